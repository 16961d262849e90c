#include "api/Version.h"

#include "api/ApiTrace.h"

using namespace Kestrel;

ovkclDebugError ovkclDebugGetVersion(cl_uint* major, cl_uint* minor, cl_uint* build)
{
    TraceCall(__func__, major, minor, build);
    if (major == nullptr || minor == nullptr || build == nullptr)
    {
        return TraceReturn<ovkclDebugError>(__func__, OVKCLDEBUG_ERROR_INVALID_ARGUMENT);
    }
    *major = 1;
    *minor = 3;
    *build = 0;
    return TraceReturn<ovkclDebugError>(__func__, OVKCLDEBUG_SUCCESS);
}
