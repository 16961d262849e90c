#ifndef KESTREL_PLATFORM_SIMT_CHECKS_SPINLOCK_H
#define KESTREL_PLATFORM_SIMT_CHECKS_SPINLOCK_H

#include <immintrin.h>

#include <atomic>
#include <thread>

namespace KestrelPlatform
{

/// A lock for work that takes less time than waking a thread. It has a cache line of its own, and is a BasicLockable.
class alignas(64) CSpinLock
{
public:
    void lock()
    {
        for (unsigned int n = 1; m_Locked.test_and_set(std::memory_order_acquire); ++n)
        {
            // The thread that holds the lock may have been interrupted.
            n % s_nPatience != 0 ? _mm_pause() : std::this_thread::yield();
        }
    }
    void unlock() { m_Locked.clear(std::memory_order_release); }

private:
    static constexpr unsigned int s_nPatience = 1000;

    std::atomic_flag m_Locked;
};

} // namespace KestrelPlatform

#endif
