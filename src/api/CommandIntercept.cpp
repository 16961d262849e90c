#include "api/CommandIntercept.h"

#include "api/DispatchTable.h"
#include "api/KernelDebugState.h"
#include "api/MetadataExtension.h"
#include "api/SessionLoop.h"
#include "device/CLCall.h"

#include <memory>

using namespace Kestrel;

namespace
{

/// Takes a session out of the open ones at the end of its life, and deletes it.
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
        if (g_CLDispatchTable.OpenCLLoaded() == OpenCLModule::OpenCL_None || !IsKernelLaunch(event))
        {
            return 0;
        }
        CKernelDebugState* pKernelDebugState = FindSession(event);
        return pKernelDebugState != nullptr ? DebugLaunch(pKernelDebugState, errcode_ret) : 0;
    }
    catch (...)
    {
        return 0;
    }
}
