#include "api/EnqueuePaths.h"

#include "api/ApiTrace.h"
#include "api/DispatchTable.h"
#include "api/SessionLoop.h"
#include "modules/CLCall.h"

namespace Kestrel
{

using OVK_ShaderDebugger::CallCL;
using OVK_ShaderDebugger::CreateCL;
using OVK_ShaderDebugger::QueryCL;

namespace
{

/// A user event would wait for the client, which waits in the enqueue call.
cl_int RefuseUserEvents(const SEnqueueArguments& arguments)
{
    if (arguments.num_events_in_wait_list != 0 && arguments.event_wait_list == nullptr)
    {
        return CL_INVALID_EVENT_WAIT_LIST;
    }
    for (cl_uint i = 0; i < arguments.num_events_in_wait_list; ++i)
    {
        cl_command_type type = 0;
        const cl_int nCode =
            QueryCL(g_CLDispatchTable.GetEventInfo, arguments.event_wait_list[i], CL_EVENT_COMMAND_TYPE, type);
        if (nCode != CL_SUCCESS)
        {
            CLD_Log("Error: Failed to get event info.\n");
            return nCode;
        }
        if (type == CL_COMMAND_USER)
        {
            CLD_Log("Error: User events are not supported.\n");
            return OVKCLDEBUG_ENQUEUE_FAILED;
        }
    }
    return CL_SUCCESS;
}

/// Makes the empty kernel in the context of the real one. \param program  receives the program on failure too
cl_kernel CreateDummyKernel(cl_kernel kernel, cl_program& program, cl_int& nCode)
{
    cl_context context = nullptr;
    nCode = QueryCL(g_CLDispatchTable.GetKernelInfo, kernel, CL_KERNEL_CONTEXT, context);
    if (nCode != CL_SUCCESS)
    {
        return nullptr;
    }
    const char* szSource = "__kernel void dummy( void ) { }\n";
    program = CreateCL(nCode, g_CLDispatchTable.CreateProgramWithSource, context, cl_uint(1), &szSource, nullptr);
    if (program == nullptr)
    {
        return nullptr;
    }
    nCode = CallCL(g_CLDispatchTable.BuildProgram, program, cl_uint(0), nullptr, nullptr, nullptr, nullptr);
    if (nCode != CL_SUCCESS)
    {
        return nullptr;
    }
    return CreateCL(nCode, g_CLDispatchTable.CreateKernel, program, "dummy");
}

/// Puts an empty kernel into the client's queue, to which the client's wait list and event belong.
cl_int EnqueueDummyKernel(const SEnqueueArguments& arguments, cl_event& event)
{
    cl_int nCode = CL_SUCCESS;
    cl_program program = nullptr;
    const cl_kernel dummy = CreateDummyKernel(arguments.kernel, program, nCode);
    if (dummy != nullptr)
    {
        nCode = CallCL(g_CLDispatchTable.EnqueueNDRangeKernel, arguments.command_queue, dummy, arguments.work_dim,
                       arguments.global_work_offset, arguments.global_work_size, arguments.local_work_size,
                       arguments.num_events_in_wait_list, arguments.event_wait_list, &event);
        const bool bEnqueued = nCode == CL_SUCCESS;
        const cl_int nReleaseCode = CallCL(g_CLDispatchTable.ReleaseKernel, dummy);
        nCode = bEnqueued ? nReleaseCode : nCode;
    }
    if (program != nullptr)
    {
        const cl_int nReleaseCode = CallCL(g_CLDispatchTable.ReleaseProgram, program);
        nCode = nCode == CL_SUCCESS ? nReleaseCode : nCode;
    }
    if (nCode != CL_SUCCESS && event != nullptr)
    {
        CallCL(g_CLDispatchTable.ReleaseEvent, event);
        event = nullptr;
    }
    return nCode;
}

/// Runs the dummy and hands out its event.
cl_int RunDummyKernel(const SEnqueueArguments& arguments)
{
    cl_event event = nullptr;
    cl_int nCode = EnqueueDummyKernel(arguments, event);
    if (nCode != CL_SUCCESS)
    {
        CLD_Log("Error: Failed to enqueu dummy kernel.\n");
        return nCode;
    }
    nCode = CallCL(g_CLDispatchTable.WaitForEvents, cl_uint(1), &event);
    if (nCode != CL_SUCCESS)
    {
        CLD_Log("Error: Failed to wait for events.\n");
        CallCL(g_CLDispatchTable.ReleaseEvent, event);
        return nCode;
    }
    if (arguments.event != nullptr)
    {
        *arguments.event = event;
    }
    else
    {
        CallCL(g_CLDispatchTable.ReleaseEvent, event);
    }
    return CL_SUCCESS;
}

/// Keeps a session among the open ones for the life of this object.
class COpenSession
{
public:
    explicit COpenSession(CKernelDebugState* pState) : m_pState(pState)
    {
        const CSessionLock lock;
        m_bOpened = !lock.IsNested() && g_KernelDebugStates.insert(pState).second;
    }
    ~COpenSession() { Close(); }
    COpenSession(const COpenSession&) = delete;
    COpenSession& operator=(const COpenSession&) = delete;

    bool IsOpened() const { return m_bOpened; }

    /// \return false if the session wasn't there any more
    bool Close()
    {
        if (!m_bOpened)
        {
            return true;
        }
        m_bOpened = false;
        const CSessionLock lock;
        return g_KernelDebugStates.erase(m_pState) != 0;
    }

private:
    CKernelDebugState* m_pState;
    bool m_bOpened;
};

} // namespace

cl_int EnqueueOnFallbackPath(std::unique_ptr<CKernelDebugState> pState, const SEnqueueArguments& arguments)
{
    CLD_Log("Warning: Fallback path unable to support user events.\n");
    cl_int nCode = RefuseUserEvents(arguments);
    if (nCode == CL_SUCCESS)
    {
        nCode = RunDummyKernel(arguments);
    }
    if (nCode != CL_SUCCESS)
    {
        return nCode;
    }

    COpenSession session(pState.get());
    if (!session.IsOpened())
    {
        CLD_Log("Error: Kernel debug state has already been created.\n");
        return OVKCLDEBUG_ENQUEUE_FAILED;
    }
    const bool bDebugged = DoDebugging(pState.get());
    if (!session.Close())
    {
        CLD_Log("Error: Kernel debug state has not been created.\n");
        return OVKCLDEBUG_ENQUEUE_FAILED;
    }
    if (!bDebugged)
    {
        CLD_Log("Error: Debugging failed.\n");
        return OVKCLDEBUG_ENQUEUE_FAILED;
    }
    return pState->m_nUnpatchedCode;
}

} // namespace Kestrel
