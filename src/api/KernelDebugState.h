#ifndef KESTREL_API_KERNELDEBUGSTATE_H
#define KESTREL_API_KERNELDEBUGSTATE_H

#include "OVKKestrel.h"
#include "core/ShaderDebuggerCommon.h"

#include <atomic>
#include <memory>
#include <set>

namespace boost
{
class mutex;
}

namespace OVK_ShaderDebugger
{
class CShaderDebuggerHostCL;
}

namespace Kestrel
{

/// One debugged launch. The client's debug context is its address.
class CKernelDebugState
{
public:
    CKernelDebugState() = default;
    /// Deletes the host, and with it the debugger and the device.
    ~CKernelDebugState();
    CKernelDebugState(const CKernelDebugState&) = delete;
    CKernelDebugState& operator=(const CKernelDebugState&) = delete;

    ovkclDebugCallback m_callback = nullptr;
    void* m_pUserData = nullptr;
    OVK_ShaderDebugger::CShaderDebuggerHostCL* m_pShaderDebuggerHost = nullptr; ///< owned
    ovkclDebugEvent m_debugEvent = OVKCLDEBUG_EVENT_UNINITIALIZED;              ///< last event sent or about to be sent
    OVK_ShaderDebugger::ThreadID m_dispatchDimensions;
    bool m_bFastContinue = false;         ///< the run was finished on the unpatched kernel
    bool m_bTrackPrivateMemory = true;    ///< the private memory register counts as tracked
    bool m_bTidewater = false;            ///< the device is of the newer generation
    bool m_bUnpatchedLaunched = false;    ///< the unpatched kernel got into the queue
    cl_int m_nUnpatchedCode = CL_SUCCESS; ///< why it didn't get there, or failed there

    /// The launch's event on the path of the intercept; not retained, alive as long as the launch hasn't run.
    cl_event m_launchEvent = nullptr;
    /// Set when the intercept takes the launch up; outlives the state.
    std::shared_ptr<std::atomic<bool>> m_pTaken = std::make_shared<std::atomic<bool>>(false);

    /// Work-items of the dispatch.
    size_t GetNumWorkItems() const;
    /// Whether private memory is a UAV of the kernel's: always on newer devices, on older ones where it declares one.
    bool HasPrivateUAV() const;
    /// Name of the register through which private memory is reached, without its index.
    const char* GetPrivateMemoryRegister() const { return HasPrivateUAV() ? "PrivateUAVAccess8" : "x1"; }
};

/// The open sessions, and the lock that guards them and every session's debugger. Neither is ever
/// destroyed: a runtime's thread may still come while the process ends.
extern std::set<CKernelDebugState*>& g_KernelDebugStates;
extern boost::mutex& g_mutexKernelDebugStates;

/// Holds g_mutexKernelDebugStates.
///
/// A thread that holds it already comes here a second time if the runtime calls the client's code from within a call
/// that was made under the lock, and that code calls the library. This object then doesn't take the lock, and
/// IsNested() says so.
class CSessionLock
{
public:
    CSessionLock();
    ~CSessionLock();
    CSessionLock(const CSessionLock&) = delete;
    CSessionLock& operator=(const CSessionLock&) = delete;

    /// Gives the lock up while the client's callback runs; Retake takes it again.
    void Release();
    void Retake();

    bool IsNested() const { return m_bNested; }

private:
    const bool m_bNested;
    bool m_bHeld;
};

/// Makes the next launch of the calling thread begin with values on demand.
void AskForValuesOnDemand();
/// Whether the calling thread has asked for values on demand for the launch that it makes now. Clears the request.
bool TakeValuesOnDemand();

/// Whether a debug context is that of an open session. Under the lock.
bool IsOpenSession(const CKernelDebugState* pKernelDebugState);

} // namespace Kestrel

#endif
