#include "platform/simt/WorkerPool.h"

#include <algorithm>

namespace KestrelPlatform
{

CWorkerPool& CWorkerPool::Get()
{
    static CWorkerPool s_Pool;
    return s_Pool;
}

CWorkerPool::CWorkerPool() : m_nThreads(std::max(1u, std::thread::hardware_concurrency())) {}

CWorkerPool::~CWorkerPool()
{
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        m_bQuit = true;
    }
    m_Wake.notify_all();
    for (std::thread& thread : m_vThreads)
        thread.join();
}

void CWorkerPool::Run(uint32_t nHelpers, const std::function<void()>& task)
{
    SJob job = {&task, nHelpers, 0};
    if (nHelpers > 0)
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        // A thread that can't be started is only a helper less.
        try
        {
            while (m_vThreads.size() + 1 < m_nThreads)
                m_vThreads.emplace_back(&CWorkerPool::Work, this);
        }
        catch (const std::system_error&)
        {
        }
        m_Jobs.push_back(&job);
    }
    if (nHelpers > 0)
        m_Wake.notify_all();
    task();
    if (nHelpers == 0)
        return;
    std::unique_lock<std::mutex> lock(m_Mutex);
    m_Jobs.remove(&job);
    m_Left.wait(lock, [&job] { return job.nInside == 0; });
}

void CWorkerPool::Work()
{
    std::unique_lock<std::mutex> lock(m_Mutex);
    for (;;)
    {
        const auto it = std::find_if(m_Jobs.begin(), m_Jobs.end(), [](const SJob* pJob) { return pJob->nWanted > 0; });
        if (m_bQuit)
            return;
        if (it == m_Jobs.end())
        {
            m_Wake.wait(lock);
            continue;
        }
        SJob& job = **it;
        --job.nWanted;
        ++job.nInside;
        lock.unlock();
        (*job.pTask)();
        lock.lock();
        if (--job.nInside == 0)
            m_Left.notify_all();
    }
}

} // namespace KestrelPlatform
