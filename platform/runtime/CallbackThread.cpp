#include "platform/runtime/CallbackThread.h"

#include "platform/runtime/Counters.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace KestrelPlatform::Runtime
{

namespace
{

struct SPosted
{
    std::function<void()> m_Callback;
    CActivity m_Activity;
};

struct SState
{
    std::mutex m_Mutex;
    std::condition_variable m_Wake;
    std::deque<SPosted> m_Posted;
    unsigned int m_nServing = 0; ///< number of the thread that serves; 0 for none
    unsigned int m_nStarted = 0;
};

SState& State()
{
    static auto& s_state = *new SState;
    return s_state;
}

thread_local unsigned int t_nCallbackThread = 0;

void Run(SPosted posted)
{
    const CActivity::CRunning running;
    posted.m_Callback();
    posted.m_Callback = nullptr;
}

void Serve(unsigned int nThread)
{
    t_nCallbackThread = nThread;
    SState& state = State();
    std::unique_lock<std::mutex> lock(state.m_Mutex);
    while (state.m_nServing == nThread)
    {
        if (state.m_Posted.empty())
        {
            state.m_Wake.wait(lock);
            continue;
        }
        SPosted posted = std::move(state.m_Posted.front());
        state.m_Posted.pop_front();
        lock.unlock();
        Run(std::move(posted));
        lock.lock();
    }
}

/// Starts a thread if none serves. The lock must be held.
void EnsureServed(SState& state)
{
    if (state.m_nServing != 0)
    {
        return;
    }
    const unsigned int nThread = state.m_nStarted + 1;
    std::thread(Serve, nThread).detach();
    state.m_nStarted = nThread;
    state.m_nServing = nThread;
}

} // namespace

void CCallbackThread::Post(std::function<void()> callback)
{
    SState& state = State();
    std::lock_guard<std::mutex> lock(state.m_Mutex);
    EnsureServed(state);
    state.m_Posted.push_back({std::move(callback), CActivity()});
    state.m_Wake.notify_all();
}

void CCallbackThread::BeforeWait()
{
    if (t_nCallbackThread == 0)
    {
        return;
    }
    SState& state = State();
    std::lock_guard<std::mutex> lock(state.m_Mutex);
    if (state.m_nServing != t_nCallbackThread)
    {
        return;
    }
    state.m_nServing = 0;
    if (!state.m_Posted.empty())
    {
        EnsureServed(state);
    }
}

} // namespace KestrelPlatform::Runtime
