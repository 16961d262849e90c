#include "tools/session/debug/Target.h"

#include "tools/session/launch/Codes.h"

#include <chrono>

namespace KestrelTool
{

CTarget::~CTarget()
{
    try
    {
        Drop();
    }
    catch (...)
    {
        // Nobody is there to receive it.
        m_pError = nullptr;
    }
    if (m_Thread.joinable())
    {
        m_Thread.join();
    }
}

CTarget::EState CTarget::Launch()
{
    m_Launch.ResetContents();
    m_strReason.clear();
    m_pError = nullptr;
    m_bRefused = false;
    m_nCode = CL_SUCCESS;
    m_ePosted = Idle;
    m_bAnswered = false;
    m_Thread = std::thread([this] { RunLaunch(); });
    return Wait();
}

CTarget::EState CTarget::Resume(ovkclDebugCommand command)
{
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_ePosted = Idle;
        m_Answer = command;
        m_bAnswered = true;
    }
    m_Changed.notify_all();
    return Wait();
}

void CTarget::Drop()
{
    if (m_eState != Idle)
    {
        m_pSession->SetBreakpoints({});
        const std::function<void(bool)> breaker = m_Breaker ? m_Breaker : [](bool) {};
        breaker(true);
        try
        {
            Resume(OVKCLDEBUG_COMMAND_CONTINUE);
        }
        catch (...)
        {
            breaker(false);
            throw;
        }
        breaker(false);
    }
}

void CTarget::OnError(CSession& session)
{
    m_bRefused = true;
    m_strReason = session.GetLastError();
}

ovkclDebugCommand CTarget::Halt(CSession& session, EState eState)
{
    std::unique_lock<std::mutex> lock(m_Mutex);
    m_pSession = &session;
    m_ePosted = eState;
    m_bAnswered = false;
    m_Changed.notify_all();
    while (!m_bAnswered)
    {
        m_Changed.wait(lock, [this] { return m_bAnswered || m_pQuery != nullptr; });
        if (m_pQuery != nullptr)
        {
            lock.unlock();
            (*m_pQuery)();
            lock.lock();
            m_pQuery = nullptr;
            m_Changed.notify_all();
        }
    }
    return m_Answer;
}

void CTarget::RunLaunch()
{
    try
    {
        // The start of the session chooses the registers; until then no memory is to be allocated for them.
        const ovkclDebugRegisterLocator onDemand = OVKCLDEBUG_EXT_VALUES_ON_DEMAND;
        m_Lib.ovkclDebugSetTrackingRegisters(nullptr, &onDemand, 1);
        const cl_int nCode = RunSession(m_Lib, m_Launch, *this);
        if (nCode != CL_SUCCESS)
        {
            m_bRefused = true;
            m_nCode = nCode;
            m_strReason = m_strReason.empty() ? NameCode(nCode) : m_strReason;
        }
    }
    catch (...)
    {
        m_pError = std::current_exception();
    }
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_ePosted = Finished;
    m_Changed.notify_all();
}

void CTarget::Do(const std::function<void()>& query)
{
    std::unique_lock<std::mutex> lock(m_Mutex);
    m_pQuery = &query;
    m_Changed.notify_all();
    WaitUntil(lock, [this] { return m_pQuery == nullptr; });
}

void CTarget::WaitUntil(std::unique_lock<std::mutex>& lock, const std::function<bool()>& isDone)
{
    while (!m_Changed.wait_for(lock, std::chrono::milliseconds(10), isDone))
    {
        if (m_Waiter)
        {
            lock.unlock();
            m_Waiter();
            lock.lock();
        }
    }
}

CTarget::EState CTarget::Wait()
{
    std::unique_lock<std::mutex> lock(m_Mutex);
    WaitUntil(lock, [this] { return m_ePosted != Idle; });
    if (m_ePosted != Finished)
    {
        m_eState = m_ePosted;
        return m_eState;
    }
    lock.unlock();
    return CollectEnd();
}

CTarget::EState CTarget::CollectEnd()
{
    m_Thread.join();
    m_eState = Idle;
    m_pSession = nullptr;
    if (m_pError)
    {
        std::rethrow_exception(m_pError);
    }
    return m_bRefused ? Refused : Finished;
}

} // namespace KestrelTool
