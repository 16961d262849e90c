#ifndef KESTREL_PLATFORM_RUNTIME_DISPATCH_H
#define KESTREL_PLATFORM_RUNTIME_DISPATCH_H

#include "platform/runtime/OpenCL.h"

namespace KestrelPlatform::Runtime
{

/// The dispatch table that every object starts with. The entries of versions above 1.2 are filled
/// too: clCreateCommandQueueWithProperties works, the others answer CL_INVALID_OPERATION, so that a
/// call through a loader ends in an error and not in a jump to nowhere.
const cl_icd_dispatch& GetDispatchTable();

/// The address of an entry point that isn't exported, by its name: those of an extension that is
/// on, the loader's own entry, and the door to the platform's settings. Null for any other name.
void* FindExtensionFunction(const char* pszName);

} // namespace KestrelPlatform::Runtime

#endif
