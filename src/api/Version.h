#ifndef KESTREL_API_VERSION_H
#define KESTREL_API_VERSION_H

#include "OVKKestrel.h"

/// The library's version. Not exported.
/// \return OVKCLDEBUG_ERROR_INVALID_ARGUMENT if a pointer is null
ovkclDebugError ovkclDebugGetVersion(cl_uint* major, cl_uint* minor, cl_uint* build);

#endif
