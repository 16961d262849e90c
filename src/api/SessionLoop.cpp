#include "api/SessionLoop.h"

#include "OVKKestrel.h"
#include "api/ApiTrace.h"
#include "api/DispatchTable.h"
#include "api/KernelDebugState.h"
#include "device/ShaderDebuggerHostCL.h"
#include "modules/CLCall.h"

#include <string>
#include <vector>

namespace Kestrel
{

using OVK_ShaderDebugger::CallCL;
using OVK_ShaderDebugger::CShaderDebuggerHostCL;

namespace
{

/// The client's launch, as the host keeps it.
struct SLaunch
{
    cl_command_queue queue = nullptr; ///< the host's own
    cl_kernel kernel = nullptr;
    unsigned int nWorkDim = 0;
    const size_t* pGlobalOffset = nullptr;
    const size_t* pGlobalSize = nullptr;
    const size_t* pLocalSize = nullptr;

    explicit SLaunch(CShaderDebuggerHostCL& host)
    {
        kernel = host.GetKernel();
        queue = host.GetCommandQueue();
        host.GetEnqueueData(&nWorkDim, &pGlobalOffset, &pGlobalSize, &pLocalSize);
    }

    bool IsComplete() const
    {
        return kernel != nullptr && queue != nullptr && nWorkDim != 0 && pGlobalOffset != nullptr &&
               pGlobalSize != nullptr && pLocalSize != nullptr;
    }
};

/// Calls the client with the session's event, without the lock.
/// \return its answer, which may be no command at all
unsigned int CallClient(CSessionLock& lock, CKernelDebugState& state)
{
    CLD_Log("callback( ", static_cast<void*>(&state), ", ", STraced<ovkclDebugEvent>{state.m_debugEvent}, " )\n");

    const ovkclDebugCallback callback = state.m_callback;
    void* const pUserData = state.m_pUserData;
    const ovkclDebugEvent eEvent = state.m_debugEvent;
    lock.Release();
    const unsigned int nCommand = static_cast<unsigned int>(callback(&state, eEvent, pUserData));
    lock.Retake();

    CLD_Log("callback() returned ", STraced<ovkclDebugCommand>{static_cast<ovkclDebugCommand>(nCommand)}, "\n");
    return nCommand;
}

/// So short that a string holds it without an allocation.
const char s_szOutOfMemory[] = "Out of memory.";

/// If there is no memory for the reason, the last error says so instead.
void SetLastError(CShaderDebuggerHostCL& host, const char* pszReason) noexcept
{
    try
    {
        host.SetLastError(pszReason);
    }
    catch (...)
    {
        host.SetLastError(s_szOutOfMemory);
    }
}

bool HasLastError(CShaderDebuggerHostCL& host) noexcept
{
    try
    {
        std::string strLastError;
        host.GetLastError(strLastError);
        return !strLastError.empty();
    }
    catch (...)
    {
        return true;
    }
}

/// Sends the error event; pszReason is used if the debugger has left no reason of its own.
bool FailStart(CSessionLock& lock, CKernelDebugState& state, const char* pszReason)
{
    CLD_Log("Error: ", pszReason, "\n");
    if (!HasLastError(*state.m_pShaderDebuggerHost))
    {
        SetLastError(*state.m_pShaderDebuggerHost, pszReason);
    }
    state.m_debugEvent = OVKCLDEBUG_EVENT_ERROR;
    CallClient(lock, state);
    return false;
}

/// Ends the debug run. \return whether the client's memory has what the last run left; it gets all of it or nothing
bool EndDebugRun(CShaderDebuggerHostCL& host, bool bDeliver) noexcept
{
    try
    {
        host.EndDebugging(bDeliver);
        return host.HasDeliveredResults();
    }
    catch (...)
    {
        return false;
    }
}

/// Runs the client's kernel from its start. \return the message for a run that didn't finish; null if it did
const char* RunUnpatched(CKernelDebugState& state, const SLaunch& launch) noexcept
{
    const size_t* pLocalSize =
        OVK_ShaderDebugger::GetWorkGroupSize(launch.nWorkDim, launch.pLocalSize) != 0 ? launch.pLocalSize : nullptr;
    cl_event event = nullptr;
    state.m_nUnpatchedCode =
        CallCL(g_CLDispatchTable.EnqueueNDRangeKernel, launch.queue, launch.kernel, launch.nWorkDim,
               launch.pGlobalOffset, launch.pGlobalSize, pLocalSize, cl_uint(0), nullptr, &event);
    if (state.m_nUnpatchedCode != CL_SUCCESS)
    {
        return "The kernel could not be enqueued.";
    }
    state.m_bUnpatchedLaunched = true;
    state.m_nUnpatchedCode = CallCL(g_CLDispatchTable.WaitForEvents, cl_uint(1), &event);
    const cl_int nReleaseCode = CallCL(g_CLDispatchTable.ReleaseEvent, event);
    CLD_Assert(nReleaseCode == CL_SUCCESS);
    if (state.m_nUnpatchedCode != CL_SUCCESS)
    {
        return "The kernel did not run to its end.";
    }
    state.m_bFastContinue = true;
    return nullptr;
}

/// Drops the debug run and runs the client's kernel from its start.
void FinishUnpatched(CKernelDebugState& state, const SLaunch& launch) noexcept
{
    EndDebugRun(*state.m_pShaderDebuggerHost, false);
    if (const char* pszReason = RunUnpatched(state, launch))
    {
        SetLastError(*state.m_pShaderDebuggerHost, pszReason);
    }
}

/// The same for a client that continues without a breakpoint. If the client breaks the run off, the session goes on,
/// with memory as it was. \return whether it goes on
bool FinishOrReturn(CKernelDebugState& state, const SLaunch& launch)
{
    CShaderDebuggerHostCL& host = *state.m_pShaderDebuggerHost;
    const char* pszReason = RunUnpatched(state, launch);
    if (state.m_nUnpatchedCode == OVKCLDEBUG_EXT_RUN_BROKEN_OFF)
    {
        // A queue may keep the failure for the next wait on it, and that mustn't be one for a later run.
        CallCL(g_CLDispatchTable.Finish, launch.queue);
    }
    if (state.m_nUnpatchedCode == OVKCLDEBUG_EXT_RUN_BROKEN_OFF && host.RestoreArguments())
    {
        state.m_bUnpatchedLaunched = false;
        state.m_nUnpatchedCode = CL_SUCCESS;
        return true;
    }
    EndDebugRun(host, false);
    if (pszReason != nullptr)
    {
        SetLastError(host, pszReason);
    }
    return false;
}

/// Does what the client answered. \return true if the debugger has stopped again
bool Obey(unsigned int nCommand, CKernelDebugState& state, const SLaunch& launch)
{
    CShaderDebuggerHostCL& host = *state.m_pShaderDebuggerHost;
    switch (nCommand)
    {
    case OVKCLDEBUG_COMMAND_CONTINUE:
        state.m_bFastContinue = false;
        return host.GetBreakPointsAsLineNumbers(nullptr) != 0 ? host.Run() : FinishOrReturn(state, launch);
    case OVKCLDEBUG_COMMAND_STEP:
        return host.Step();
    case OVKCLDEBUG_COMMAND_EXT_STEP_BACK:
        // At the first stop there is no way back, and the session halts where it is.
        host.Back();
        return true;
    case OVKCLDEBUG_COMMAND_EXT_RUN_BACK:
        host.RunBack();
        return true;
    default:
        OVK_ShaderDebugger::CLD_Report("DoDebugging", "CLD_Break", "\"Unrecognized debug command\"");
        FinishUnpatched(state, launch);
        return false;
    }
}

/// The same for a debugger that may run out of memory on the way. Nothing of the run can be used after that.
/// \param bUsable  cleared if memory has run out
bool ObeyOrBreak(unsigned int nCommand, CKernelDebugState& state, const SLaunch& launch, bool& bUsable) noexcept
{
    try
    {
        return Obey(nCommand, state, launch);
    }
    catch (...)
    {
        CLD_Log("Error: The debugger ran out of memory.\n");
        SetLastError(*state.m_pShaderDebuggerHost, s_szOutOfMemory);
        bUsable = false;
        return false;
    }
}

/// Starts the debugger and tells the client if it can't. Exhausted memory is passed on, once the client has been told.
bool StartSession(CSessionLock& lock, CKernelDebugState& state)
{
    CShaderDebuggerHostCL& host = *state.m_pShaderDebuggerHost;
    try
    {
        const std::vector<char>& vBinary = host.GetShaderData();
        if (vBinary.empty())
        {
            return FailStart(lock, state, "No kernel binary.");
        }
        return host.StartDebugging(vBinary.data(), vBinary.size(), nullptr, &state.m_dispatchDimensions,
                                   OVK_ShaderDebugger::DM_Unknown) ||
               FailStart(lock, state, "Could not start kernel debugging.");
    }
    catch (...)
    {
        EndDebugRun(host, false);
        FailStart(lock, state, s_szOutOfMemory);
        throw;
    }
}

} // namespace

bool DoDebugging(CKernelDebugState* pKernelDebugState)
{
    CSessionLock lock;
    if (lock.IsNested() || !CLD_Assert(IsOpenSession(pKernelDebugState)) ||
        !CLD_Assert(pKernelDebugState->m_debugEvent == OVKCLDEBUG_EVENT_UNINITIALIZED))
    {
        return false;
    }
    CKernelDebugState& state = *pKernelDebugState;
    CShaderDebuggerHostCL& host = *state.m_pShaderDebuggerHost;
    const SLaunch launch(host);
    if (!CLD_Assert(launch.IsComplete()))
    {
        return false;
    }

    if (!StartSession(lock, state))
    {
        return false;
    }
    if (!host.InitKernelArgInfo(launch.kernel))
    {
        CLD_Log("Error: Could not read the kernel's arguments.\n");
        host.EndDebugging(false);
        return false;
    }

    state.m_debugEvent = OVKCLDEBUG_EVENT_STARTED;
    unsigned int nCommand = CallClient(lock, state);
    state.m_debugEvent = OVKCLDEBUG_EVENT_HALTED;
    bool bUsable = true;
    while (ObeyOrBreak(nCommand, state, launch, bUsable))
    {
        nCommand = CallClient(lock, state);
    }

    state.m_debugEvent = OVKCLDEBUG_EVENT_FINISHED;
    CallClient(lock, state);
    if (!state.m_bFastContinue && !(bUsable && EndDebugRun(host, true)))
    {
        CLD_Log("Error: The results could not be handed over, and the kernel runs again.\n");
        FinishUnpatched(state, launch);
    }
    return true;
}

} // namespace Kestrel
