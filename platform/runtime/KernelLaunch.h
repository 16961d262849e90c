#ifndef KESTREL_PLATFORM_RUNTIME_KERNELLAUNCH_H
#define KESTREL_PLATFORM_RUNTIME_KERNELLAUNCH_H

#include "KestrelPlatform.h"
#include "platform/runtime/Kernel.h"

namespace KestrelPlatform::Runtime
{

/// The index space that a client asks for.
struct SIndexSpace
{
    cl_uint m_nDimensions;
    const size_t* m_pGlobalOffset; ///< may be null
    const size_t* m_pGlobalSize;
    const size_t* m_pLocalSize; ///< null: the runtime chooses
};

/// A kernel with its arguments as they were at the enqueue, ready to run.
struct SPreparedLaunch
{
    CRef<CContext> m_pContext;
    std::shared_ptr<const SExecutableKernel> m_pExecutable;
    std::vector<CRef<CMemObject>> m_vMems;   ///< the memory objects that the arguments name
    std::vector<SPlatformBuffer> m_vBuffers; ///< of global and constant pointers
    SLaunch m_Launch;
};

/// Checks a launch by the rules of clEnqueueNDRangeKernel in OpenCL 1.2, and copies the arguments.
cl_int PrepareLaunch(const CKernel& kernel, const CDevice& device, const SIndexSpace& space, SPreparedLaunch& prepared);

} // namespace KestrelPlatform::Runtime

#endif
