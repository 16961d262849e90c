#ifndef KESTREL_PLATFORM_SIMT_WORKERPOOL_H
#define KESTREL_PLATFORM_SIMT_WORKERPOOL_H

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include <boost/intrusive/list.hpp>

namespace KestrelPlatform
{

/// Threads that help launches, and sleep in between. They are started when a launch first needs them.
///
/// Waking a sleeping thread takes as long as a small launch, and the system often wakes it on the core that is
/// busy with the launch. So a thread that is awake and has to wait for a launch helps it instead (HelpWhile),
/// and only as many helpers as are still needed are woken.
class CWorkerPool
{
public:
    static CWorkerPool& Get();

    /// Runs the task on this thread and on up to nHelpers others at the same time; returns when all of them
    /// have left it. The task divides the work itself and must not throw. Any thread.
    /// \param pOwner  whose waiting threads may help; null for nobody
    void Run(uint32_t nHelpers, const std::function<void()>& task, const void* pOwner = nullptr);

    /// For a thread that has to wait while bBusy: helps with the owner's next task, if one comes within a few
    /// microseconds. Any thread but one that runs that task.
    /// \return false if there was none and it is still busy
    bool HelpWhile(const std::atomic<bool>& bBusy, const void* pOwner) noexcept;

    uint32_t GetThreads() const { return m_nThreads; }

private:
    typedef boost::intrusive::list_base_hook<> CHook;

    struct SJob : CHook
    {
        const std::function<void()>* pTask = nullptr;
        const void* pOwner = nullptr;
        uint32_t nWanted = 0;             ///< helpers that may still join
        std::atomic<uint32_t> nInside{0}; ///< helpers that are in the task
    };

    /// A thread that waits for a job of its owner.
    struct SStandBy : CHook
    {
        const void* pOwner = nullptr;
        std::atomic<SJob*> pJob{nullptr};
    };

    CWorkerPool();
    void Work();
    void StartThreads();
    SJob* FindJob(const void* pOwner);
    static void Join(SJob& job);
    void CallOnStandBy(SJob& job);
    void Help(SJob& job, std::unique_lock<std::mutex>& lock);
    void KeepApart(std::unique_lock<std::mutex>& lock);

    const uint32_t m_nThreads;
    std::mutex m_Mutex;
    std::condition_variable m_Wake;
    std::condition_variable m_Left;
    boost::intrusive::list<SJob> m_Jobs;
    boost::intrusive::list<SStandBy> m_StandBy; ///< those without a job
    std::vector<std::thread> m_vThreads;
    int m_nRunCore = -1; ///< the core where the last task was begun
};

} // namespace KestrelPlatform

#endif
