#include "api/CommandIntercept.h"

#include "api/DispatchTable.h"
#include "api/KernelDebugState.h"
#include "api/MetadataExtension.h"
#include "api/SessionLoop.h"
#include "modules/CLCall.h"

#include <memory>

using namespace Kestrel;

namespace
{

/// Takes a session out of the open ones, and deletes it, at the end of this object's life.
class CSessionEnd
{
public:
    explicit CSessionEnd(CKernelDebugState* pKernelDebugState) : m_pKernelDebugState(pKernelDebugState) {}
    CSessionEnd(const CSessionEnd&) = delete;
    CSessionEnd& operator=(const CSessionEnd&) = delete;

    ~CSessionEnd()
    {
        {
            const CSessionLock lock;
            g_KernelDebugStates.erase(m_pKernelDebugState.get());
        }
    }

private:
    std::unique_ptr<CKernelDebugState> m_pKernelDebugState;
};

/// The session that an event carries, null if none is open. Marks it as taken up.
CKernelDebugState* FindSession(cl_event event)
{
    const CSessionLock lock;
    if (lock.IsNested())
    {
        return nullptr;
    }
    CKernelDebugState* pKernelDebugState = GetEventSession(event);
    if (!IsOpenSession(pKernelDebugState))
    {
        return nullptr;
    }
    *pKernelDebugState->m_pTaken = true;
    return pKernelDebugState;
}

/// Ends the session of a launch that is left to the runtime because a query about it failed.
void AbandonSession(cl_event event)
{
    CKernelDebugState* pAbandoned = nullptr;
    {
        const CSessionLock lock;
        for (CKernelDebugState* pKernelDebugState : g_KernelDebugStates)
        {
            pAbandoned = event != nullptr && pKernelDebugState->m_launchEvent == event ? pKernelDebugState : pAbandoned;
        }
        if (pAbandoned == nullptr)
        {
            return;
        }
        *pAbandoned->m_pTaken = true;
    }
    const CSessionEnd end(pAbandoned);
}

bool IsKernelLaunch(cl_event event)
{
    cl_command_type type = 0;
    return OVK_ShaderDebugger::QueryCL(g_CLDispatchTable.GetEventInfo, event, CL_EVENT_COMMAND_TYPE, type) ==
               CL_SUCCESS &&
           type == CL_COMMAND_NDRANGE_KERNEL;
}

cl_int DebugLaunch(CKernelDebugState* pKernelDebugState, cl_int* errcode_ret)
{
    const CSessionEnd end(pKernelDebugState);
    if (!DoDebugging(pKernelDebugState))
    {
        return 0;
    }
    const bool bNotLaunched =
        pKernelDebugState->m_nUnpatchedCode != CL_SUCCESS && !pKernelDebugState->m_bUnpatchedLaunched;
    if (bNotLaunched)
    {
        // Nothing has touched the client's buffers yet, so that the launch can still be made.
        return 0;
    }
    if (errcode_ret != nullptr)
    {
        *errcode_ret = pKernelDebugState->m_nUnpatchedCode;
    }
    return 1;
}

} // namespace

cl_int CL_CALLBACK CommandInterceptCallback(cl_event event, cl_int* errcode_ret)
{
    try
    {
        const bool bLoaded = g_CLDispatchTable.OpenCLLoaded() != OpenCLModule::OpenCL_None;
        CKernelDebugState* pKernelDebugState = bLoaded && IsKernelLaunch(event) ? FindSession(event) : nullptr;
        if (pKernelDebugState != nullptr)
        {
            return DebugLaunch(pKernelDebugState, errcode_ret);
        }
        AbandonSession(event);
        return 0;
    }
    catch (...)
    {
        return 0;
    }
}
