#include "api/EnqueuePaths.h"

#include "api/ApiTrace.h"
#include "api/DispatchTable.h"
#include "api/MetadataExtension.h"
#include "modules/CLCall.h"

#include <atomic>

namespace Kestrel
{

using OVK_ShaderDebugger::CallCL;

namespace
{

/// Kept for a launch until its event is complete, to end the session of a launch that never ran because a command in
/// its wait list had failed.
struct SAbortWatch
{
    CKernelDebugState* pState;
    std::shared_ptr<std::atomic<bool>> pTaken;
};

void CL_CALLBACK OnLaunchComplete(cl_event, cl_int, void* pUserData)
{
    const std::unique_ptr<SAbortWatch> pWatch(static_cast<SAbortWatch*>(pUserData));
    if (*pWatch->pTaken)
    {
        return;
    }
    {
        const CSessionLock lock;
        g_KernelDebugStates.erase(pWatch->pState);
    }
    delete pWatch->pState;
}

/// Takes over a reference to the event. Must not run under the lock: the event may be complete already.
void WatchForAbort(cl_event event, std::unique_ptr<SAbortWatch> pWatch)
{
    if (CallCL(g_CLDispatchTable.SetEventCallback, event, CL_COMPLETE, OnLaunchComplete,
               static_cast<void*>(pWatch.get())) == CL_SUCCESS)
    {
        static_cast<void>(pWatch.release());
    }
    CallCL(g_CLDispatchTable.ReleaseEvent, event);
}

/// Puts the launch into the queue and the session on its event.
cl_int EnqueueWithSession(CKernelDebugState* pState, const SEnqueueArguments& arguments, cl_event& event)
{
    cl_int nCode =
        CallCL(g_CLDispatchTable.EnqueueNDRangeKernel, arguments.command_queue, arguments.kernel, arguments.work_dim,
               arguments.global_work_offset, arguments.global_work_size, arguments.local_work_size,
               arguments.num_events_in_wait_list, arguments.event_wait_list, &event);
    if (nCode != CL_SUCCESS)
    {
        CLD_Log("Error: Failed to enqueue kernel.\n");
        return nCode;
    }
    nCode = SetEventSession(event, pState);
    if (nCode != CL_SUCCESS)
    {
        CLD_Log("Error: Failed to set object key value.\n");
        CallCL(g_CLDispatchTable.ReleaseEvent, event);
    }
    return nCode;
}

} // namespace

cl_int EnqueueOnInterceptPath(std::unique_ptr<CKernelDebugState> pState, const SEnqueueArguments& arguments)
{
    if (!InitializeMetadataExtension(arguments.command_queue))
    {
        CLD_Log("Error: Failed to initialize metadata extension.\n");
        return OVKCLDEBUG_ENQUEUE_FAILED;
    }
    std::unique_ptr<SAbortWatch> pWatch(new SAbortWatch{pState.get(), pState->m_pTaken});
    cl_event event = nullptr;
    bool bWatch = false;
    {
        // The hook takes the same lock, so that it can't look for the session before it is there.
        const CSessionLock lock;
        if (lock.IsNested() || !g_KernelDebugStates.insert(pState.get()).second)
        {
            CLD_Log("Error: Kernel debug state has already been created.\n");
            return OVKCLDEBUG_ENQUEUE_FAILED;
        }
        const cl_int nCode = EnqueueWithSession(pState.get(), arguments, event);
        if (nCode != CL_SUCCESS)
        {
            g_KernelDebugStates.erase(pState.get());
            return nCode;
        }
        pState->m_launchEvent = event;
        static_cast<void>(pState.release());
        bWatch = arguments.num_events_in_wait_list != 0 && CallCL(g_CLDispatchTable.RetainEvent, event) == CL_SUCCESS;
        if (arguments.event != nullptr)
        {
            *arguments.event = event;
        }
        else
        {
            CallCL(g_CLDispatchTable.ReleaseEvent, event);
        }
    }
    if (bWatch)
    {
        WatchForAbort(event, std::move(pWatch));
    }
    return CL_SUCCESS;
}

} // namespace Kestrel
