#ifndef KESTREL_PLATFORM_RUNTIME_DISPATCH_H
#define KESTREL_PLATFORM_RUNTIME_DISPATCH_H

#include "platform/runtime/OpenCL.h"

namespace KestrelPlatform::Runtime
{

/// The dispatch table that every object points to. Entries of versions above 1.2 are filled too, so that a call through
/// a loader ends in an error rather than a crash: clCreateCommandQueueWithProperties works, the others answer
/// CL_INVALID_OPERATION.
const cl_icd_dispatch& GetDispatchTable();

/// Looks up an entry point that isn't exported, by name: of an extension that is on, the loader's own entry, or the
/// platform's settings (kestrelPlatformControl). Null for any other name.
void* FindExtensionFunction(const char* pszName);

} // namespace KestrelPlatform::Runtime

#endif
