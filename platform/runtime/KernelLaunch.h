#ifndef KESTREL_PLATFORM_RUNTIME_KERNELLAUNCH_H
#define KESTREL_PLATFORM_RUNTIME_KERNELLAUNCH_H

#include "platform/runtime/Kernel.h"
#include "platform/runtime/PlatformControl.h"

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
    std::vector<CRef<CMemObject>> m_vMems; ///< the memory objects that the arguments name
    SLaunch m_launch;
};

/// Checks a launch as OpenCL 1.2 has it for clEnqueueNDRangeKernel, and takes the arguments over.
cl_int PrepareLaunch(const CKernel& kernel, const CDevice& device, const SIndexSpace& space, SPreparedLaunch& prepared);

/// Runs a launch. \return CL_SUCCESS, or the code that its event ends with
cl_int RunPrepared(SPreparedLaunch& prepared);

/// What the last kernel run did that it shouldn't have.
SPlatformFault GetLastFault();
/// Its faults one by one, up to nRecords of them. \return how many are kept
cl_uint GetFaultRecords(SPlatformFaultRecord* pRecords, cl_uint nRecords);

} // namespace KestrelPlatform::Runtime

#endif
