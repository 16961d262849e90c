#ifndef KESTREL_TOOLS_DEBUG_TARGET_H
#define KESTREL_TOOLS_DEBUG_TARGET_H

#include "tools/session/launch/Session.h"

#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>

namespace KestrelTool
{

/// A debugged launch that one thread can command in straight lines. The launch and its session run
/// on threads of their own; at each stop the session's callback waits until the commanding thread
/// has said how to go on. Until then the debugger's pointers stay good and queries are free.
class CTarget : private ISessionClient
{
public:
    enum EState
    {
        Idle,     ///< not launched, or over
        AtStart,  ///< launched, in front of the first instruction
        AtStop,   ///< stopped at a program counter
        Finished, ///< only as what Launch and Resume give: the run is over, outputs are in place
        Refused   ///< only as what Launch and Resume give: there was nothing to debug
    };

    CTarget(const CLibraries& libraries, CLaunch& launch) : m_Lib(libraries), m_Launch(launch) {}
    /// Lets a session that is still open run out.
    ~CTarget() override;
    CTarget(const CTarget&) = delete;
    CTarget& operator=(const CTarget&) = delete;

    /// Writes the arguments anew and launches. Waits for the first event.
    EState Launch();
    /// Answers the stop, and waits for the next event.
    /// \throws what the session's thread has thrown
    EState Resume(ovkclDebugCommand command);
    /// At a stop and at the start: the session's thread does it, and the waiter is called meanwhile. It mustn't throw.
    void Do(const std::function<void()>& query);
    /// Drops the session. Where kernel runs can be broken off they are, else the kernel runs out undebugged. Does
    /// nothing when idle.
    void Drop();

    /// At a stop: it is the start after all, where nothing has been executed.
    void StandAtStart() { m_eState = AtStart; }

    bool IsLive() const { return m_eState != Idle; }
    EState GetState() const { return m_eState; }
    /// While an event or a query's end is waited for: whether it has come.
    bool HasPosted()
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        return m_ePosted != Idle && m_pQuery == nullptr;
    }
    /// At a stop and at the start.
    CSession& GetSession() { return *m_pSession; }
    /// The debugger's reason for the end of the last session; empty for none.
    const std::string& GetReason() const { return m_strReason; }

    /// Called every fiftieth of a second or so by whoever waits for an event.
    void SetWaiter(std::function<void()> waiter) { m_Waiter = std::move(waiter); }
    /// Breaks kernel runs off, those under way and those to come, or lets them run again.
    void SetBreaker(std::function<void(bool)> breaker) { m_Breaker = std::move(breaker); }
    /// The code that the last launch failed with.
    cl_int GetCode() const { return m_nCode; }

private:
    ovkclDebugCommand OnStarted(CSession& session) override { return Halt(session, AtStart); }
    ovkclDebugCommand OnHalted(CSession& session) override { return Halt(session, AtStop); }
    void OnFinished(CSession& session) override { m_strReason = session.GetLastError(); }
    void OnError(CSession& session) override;

    ovkclDebugCommand Halt(CSession& session, EState eState);
    void RunLaunch();
    EState Wait();
    void WaitUntil(std::unique_lock<std::mutex>& lock, const std::function<bool()>& isDone);
    EState CollectEnd();

    const CLibraries& m_Lib;
    CLaunch& m_Launch;
    std::function<void()> m_Waiter;
    std::function<void(bool)> m_Breaker;
    cl_int m_nCode = CL_SUCCESS;
    EState m_eState = Idle;
    CSession* m_pSession = nullptr;
    std::string m_strReason;
    std::thread m_Thread;
    std::exception_ptr m_pError;
    bool m_bRefused = false;

    // What the two threads hand to each other.
    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    EState m_ePosted = Idle;
    bool m_bAnswered = false;
    ovkclDebugCommand m_Answer = OVKCLDEBUG_COMMAND_CONTINUE;
    const std::function<void()>* m_pQuery = nullptr; ///< what the session's thread has to do before it goes on to wait
};

} // namespace KestrelTool

#endif
