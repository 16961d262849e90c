#include "tools/session/launch/Codes.h"

#include <CL/cl_ext.h>
#include <OVKKestrelCodes.def>

namespace KestrelTool
{

namespace
{

struct SCode
{
    cl_int nCode;
    const char* pszWords;
};

const SCode s_DebugCodes[] = {
    {OVKCLDEBUG_ERROR_INTERNAL, "the debugger failed inside"},
    {OVKCLDEBUG_ERROR_INVALID_CONTEXT, "the session isn't open"},
    {OVKCLDEBUG_ERROR_INVALID_STATE, "that isn't there at this stop"},
    {OVKCLDEBUG_ERROR_OPERATION_FAILED, "the debugger refused it"},
    {OVKCLDEBUG_ERROR_INVALID_LOCATION, "there is no such place"},
    {OVKCLDEBUG_ERROR_BUFFER_TOO_SMALL, "the buffer is too small"},
    {OVKCLDEBUG_ERROR_OUT_OF_MEMORY, "there isn't enough memory"},
    {OVKCLDEBUG_ERROR_INVALID_ARGUMENT, "invalid argument"},
};

template <size_t N>
std::string Name(const SCode (&table)[N], cl_int nCode)
{
    for (const SCode& entry : table)
    {
        if (entry.nCode == nCode)
        {
            return std::string(entry.pszWords) + " (" + std::to_string(nCode) + ")";
        }
    }
    return "code " + std::to_string(nCode);
}

} // namespace

std::string NameCode(cl_int nCode)
{
    switch (nCode)
    {
#define NAME_CODE(name, words)                                                                                         \
    case name:                                                                                                         \
        return #name " (" + std::to_string(nCode) + "), " words;
        KESTREL_CODES(NAME_CODE)
#undef NAME_CODE
    default:
        return "code " + std::to_string(nCode);
    }
}

std::string NameDebugCode(ovkclDebugError nCode)
{
    return Name(s_DebugCodes, nCode);
}

bool IsPlatformFailure(cl_int nCode)
{
    return nCode == CL_OUT_OF_RESOURCES || nCode == CL_OUT_OF_HOST_MEMORY ||
           nCode == CL_MEM_OBJECT_ALLOCATION_FAILURE || nCode == CL_DEVICE_NOT_AVAILABLE ||
           nCode == CL_EXEC_STATUS_ERROR_FOR_EVENTS_IN_WAIT_LIST || nCode == CL_MAP_FAILURE;
}

} // namespace KestrelTool
