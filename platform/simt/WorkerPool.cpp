#include "platform/simt/WorkerPool.h"

#include <sched.h>
#include <xmmintrin.h>

#include <algorithm>
#include <chrono>

namespace KestrelPlatform
{

namespace
{

/// A little longer than sleeping and waking up takes.
constexpr std::chrono::microseconds s_Patience(20);

/// Spins until a condition holds, for a short time at most.
template <class Condition>
void AwaitBriefly(const Condition& holds)
{
    const auto end = std::chrono::steady_clock::now() + s_Patience;
    while (!holds() && std::chrono::steady_clock::now() < end)
    {
        _mm_pause();
    }
}

/// Moves the calling thread away from a core, if it may run on another one.
void LeaveCore(int nCore)
{
    cpu_set_t allowed;
    if (nCore < 0 || nCore >= CPU_SETSIZE || sched_getaffinity(0, sizeof allowed, &allowed) != 0)
    {
        return;
    }
    cpu_set_t others = allowed;
    CPU_CLR(nCore, &others);
    if (CPU_COUNT(&others) == 0 || sched_setaffinity(0, sizeof others, &others) != 0)
    {
        return;
    }
    sched_setaffinity(0, sizeof allowed, &allowed);
}

} // namespace

CWorkerPool& CWorkerPool::Get()
{
    // Never destroyed: while the process ends, queue threads may still come and wait.
    static CWorkerPool& s_Pool = *new CWorkerPool;
    return s_Pool;
}

CWorkerPool::CWorkerPool() : m_nThreads(std::max(1u, std::thread::hardware_concurrency())) {}

/// The lock must be held. If a thread can't be started, there is just one helper less.
void CWorkerPool::StartThreads()
{
    try
    {
        while (m_vThreads.size() + 1 < m_nThreads)
        {
            m_vThreads.emplace_back(&CWorkerPool::Work, this);
        }
    }
    catch (const std::system_error&)
    {
    }
}

/// The lock must be held.
void CWorkerPool::Join(SJob& job)
{
    --job.nWanted;
    ++job.nInside;
}

/// Gives a job to the threads that stand by for its owner. The lock must be held.
void CWorkerPool::CallOnStandBy(SJob& job)
{
    for (auto it = m_StandBy.begin(); it != m_StandBy.end() && job.nWanted > 0;)
    {
        if (it->pOwner != job.pOwner)
        {
            ++it;
            continue;
        }
        SStandBy& standBy = *it;
        it = m_StandBy.erase(it);
        Join(job);
        standBy.pJob = &job;
    }
}

void CWorkerPool::Run(uint32_t nHelpers, const std::function<void()>& task, const void* pOwner)
{
    if (nHelpers == 0)
    {
        task();
        return;
    }
    SJob job;
    job.pTask = &task;
    job.pOwner = pOwner;
    job.nWanted = nHelpers;
    bool bWake = false;
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        StartThreads();
        m_nRunCore = sched_getcpu();
        m_Jobs.push_back(job);
        CallOnStandBy(job);
        bWake = job.nWanted > 0;
    }
    if (bWake)
    {
        m_Wake.notify_all();
    }
    task();
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        m_Jobs.erase(m_Jobs.iterator_to(job));
    }
    // By now nobody can join, and the last pieces are small.
    AwaitBriefly([&job] { return job.nInside == 0; });
    std::unique_lock<std::mutex> lock(m_Mutex);
    m_Left.wait(lock, [&job] { return job.nInside == 0; });
}

bool CWorkerPool::HelpWhile(const std::atomic<bool>& bBusy, const void* pOwner) noexcept
{
    std::unique_lock<std::mutex> lock(m_Mutex);
    if (SJob* pJob = FindJob(pOwner))
    {
        Join(*pJob);
        Help(*pJob, lock);
        return true;
    }
    SStandBy self;
    self.pOwner = pOwner;
    m_StandBy.push_back(self);
    lock.unlock();
    AwaitBriefly([&] { return self.pJob != nullptr || !bBusy; });
    lock.lock();
    if (self.pJob != nullptr)
    {
        Help(*self.pJob, lock);
        return true;
    }
    m_StandBy.erase(m_StandBy.iterator_to(self));
    return !bBusy;
}

/// A job that needs a helper, of this owner, or of any if it is null. The lock must be held.
CWorkerPool::SJob* CWorkerPool::FindJob(const void* pOwner)
{
    const auto it = std::find_if(m_Jobs.begin(), m_Jobs.end(),
                                 [pOwner](const SJob& job)
                                 { return job.nWanted > 0 && (pOwner == nullptr || job.pOwner == pOwner); });
    return it == m_Jobs.end() ? nullptr : &*it;
}

/// Works on a joined job, then leaves it. The lock must be held, and is released meanwhile.
void CWorkerPool::Help(SJob& job, std::unique_lock<std::mutex>& lock)
{
    lock.unlock();
    (*job.pTask)();
    lock.lock();
    if (--job.nInside == 0)
    {
        m_Left.notify_all();
    }
}

/// A helper that was woken on the core of the task's own thread gets to run only when that thread is done. This makes
/// it sleep on another core, where it will be woken the next time. The lock must be held, and may be released
/// meanwhile.
void CWorkerPool::KeepApart(std::unique_lock<std::mutex>& lock)
{
    const int nCore = m_nRunCore;
    if (sched_getcpu() != nCore)
    {
        return;
    }
    lock.unlock();
    LeaveCore(nCore);
    lock.lock();
}

void CWorkerPool::Work()
{
    std::unique_lock<std::mutex> lock(m_Mutex);
    while (true)
    {
        SJob* const pJob = FindJob(nullptr);
        if (pJob == nullptr)
        {
            m_Wake.wait(lock);
            KeepApart(lock);
            continue;
        }
        Join(*pJob);
        Help(*pJob, lock);
    }
}

} // namespace KestrelPlatform
