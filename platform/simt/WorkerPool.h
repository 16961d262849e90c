#ifndef KESTREL_PLATFORM_SIMT_WORKERPOOL_H
#define KESTREL_PLATFORM_SIMT_WORKERPOOL_H

#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <thread>
#include <vector>

namespace KestrelPlatform
{

/// Threads that help launches and sleep in between. They are started when the first launch needs them.
class CWorkerPool
{
public:
    static CWorkerPool& Get();

    ~CWorkerPool();

    /// Runs the task on this thread and on up to nHelpers others at the same time; returns when all
    /// of them have left it. The task divides the work itself and must not throw. Any thread.
    void Run(uint32_t nHelpers, const std::function<void()>& task);

    uint32_t GetThreads() const { return m_nThreads; }

private:
    struct SJob
    {
        const std::function<void()>* pTask;
        uint32_t nWanted; ///< helpers that may still join
        uint32_t nInside; ///< helpers that are in the task
    };

    CWorkerPool();
    void Work();

    const uint32_t m_nThreads;
    std::mutex m_Mutex;
    std::condition_variable m_Wake;
    std::condition_variable m_Left;
    std::list<SJob*> m_Jobs;
    std::vector<std::thread> m_vThreads;
    bool m_bQuit = false;
};

} // namespace KestrelPlatform

#endif
