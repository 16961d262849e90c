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

/// A debugged launch that one thread can command step by step. The launch and its session run on threads of their own.
/// At each stop the session's callback waits until the commanding thread tells it how to continue; until then, the
/// debugger's pointers stay valid and queries are possible.
class CTarget : private ISessionClient
{
public:
    enum EState
    {
        Idle,     ///< not launched, or over
        AtStart,  ///< launched, before the first instruction
        AtStop,   ///< stopped at a program counter
        Finished, ///< only as a result of Launch and Resume: the run is over, outputs are in place
        Refused   ///< only as a result of Launch and Resume: nothing could be debugged
    };

    CTarget(const CLibraries& libraries, CLaunch& launch) : m_Lib(libraries), m_Launch(launch) {}
    /// Lets an open session run to its end.
    ~CTarget() override;
    CTarget(const CTarget&) = delete;
    CTarget& operator=(const CTarget&) = delete;

    /// Writes the arguments' contents again and launches. Waits for the first event.
    EState Launch();
    /// Sends the answer to a stop, and waits for the next event.
    /// \throws whatever the session's thread has thrown
    EState Resume(ovkclDebugCommand command);
    /// At a stop or at the start: runs the query on the session's thread, and calls the waiter meanwhile. It mustn't
    /// throw.
    void Do(const std::function<void()>& query);
    /// Ends the session. Aborts kernel runs if possible; otherwise the kernel runs to its end undebugged. Does nothing
    /// when idle.
    void Drop();

    /// At a stop: treats it as the start, since nothing has been executed.
    void StandAtStart() { m_eState = AtStart; }

    bool IsLive() const { return m_eState != Idle; }
    EState GetState() const { return m_eState; }
    /// While waiting for an event or a query's end: whether it has come.
    bool HasPosted()
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        return m_ePosted != Idle && m_pQuery == nullptr;
    }
    /// At a stop or at the start.
    CSession& GetSession() { return *m_pSession; }
    /// The debugger's reason for ending the last session; empty for none.
    const std::string& GetReason() const { return m_strReason; }

    /// Called about fifty times a second by the thread that waits for an event.
    void SetWaiter(std::function<void()> waiter) { m_Waiter = std::move(waiter); }
    /// Sets a function that aborts current and future kernel runs, or allows them again.
    void SetBreaker(std::function<void(bool)> breaker) { m_Breaker = std::move(breaker); }
    /// The error code of the last launch.
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

    // Data exchanged by the two threads.
    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    EState m_ePosted = Idle;
    bool m_bAnswered = false;
    ovkclDebugCommand m_Answer = OVKCLDEBUG_COMMAND_CONTINUE;
    const std::function<void()>* m_pQuery = nullptr; ///< to be run by the session's thread before it continues to wait
};

} // namespace KestrelTool

#endif
