#include "platform/simt/WorkerPool.h"

#include <gtest/gtest.h>

#include <chrono>
#include <set>

namespace KestrelPlatform
{
namespace
{

const std::chrono::seconds s_Limit(10);

/// A task whose threads stay in it until a certain one has come, and which records the threads.
class CMeeting
{
public:
    void Enter()
    {
        std::unique_lock<std::mutex> lock(m_Mutex);
        m_Came.insert(std::this_thread::get_id());
        m_Arrived.notify_all();
        m_Arrived.wait_for(lock, s_Limit, [this] { return m_Came.size() >= m_nWanted; });
    }
    bool Came(std::thread::id id)
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        return m_Came.count(id) != 0;
    }

    size_t m_nWanted = 1;

private:
    std::mutex m_Mutex;
    std::condition_variable m_Arrived;
    std::set<std::thread::id> m_Came;
};

TEST(WorkerPool, WhoWaitsForATaskHelpsIt)
{
    CWorkerPool& pool = CWorkerPool::Get();
    // One more than the pool has, so that the task ends only if the waiting thread helps.
    const uint32_t nHelpers = pool.GetThreads();
    CMeeting meeting;
    meeting.m_nWanted = nHelpers + 1;
    const int owner = 0;
    std::atomic<bool> bBusy{true};
    std::thread waiting(
        [&]
        {
            while (bBusy)
            {
                pool.HelpWhile(bBusy, &owner);
            }
        });
    const std::thread::id id = waiting.get_id();
    pool.Run(
        nHelpers, [&] { meeting.Enter(); }, &owner);
    bBusy = false;
    waiting.join();
    EXPECT_TRUE(meeting.Came(id));
}

TEST(WorkerPool, NobodyHelpsWhatAnotherOneWaitsFor)
{
    CWorkerPool& pool = CWorkerPool::Get();
    CMeeting meeting;
    meeting.m_nWanted = pool.GetThreads();
    const int owner = 0;
    const int other = 0;
    std::atomic<bool> bBusy{true};
    std::atomic<unsigned int> nWaits{0};
    bool bHelped = false;
    std::thread waiting(
        [&]
        {
            for (; bBusy; ++nWaits)
            {
                bHelped = (pool.HelpWhile(bBusy, &other) && bBusy) || bHelped;
            }
        });
    const std::thread::id id = waiting.get_id();
    for (unsigned int n = 0; n < 50; ++n)
    {
        pool.Run(
            pool.GetThreads(), [&] { meeting.Enter(); }, &owner);
    }
    while (nWaits == 0)
    {
        std::this_thread::yield();
    }
    bBusy = false;
    waiting.join();
    EXPECT_FALSE(meeting.Came(id));
    EXPECT_FALSE(bHelped);
}

TEST(WorkerPool, AWaitEndsWithWhatItWaitsFor)
{
    const std::atomic<bool> bOver{false};
    const int owner = 0;
    EXPECT_TRUE(CWorkerPool::Get().HelpWhile(bOver, &owner));
    const std::atomic<bool> bBusy{true};
    EXPECT_FALSE(CWorkerPool::Get().HelpWhile(bBusy, &owner));
}

} // namespace
} // namespace KestrelPlatform
