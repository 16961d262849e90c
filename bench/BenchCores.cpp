#include "bench/BenchCores.h"

#include <atomic>
#include <thread>

#include <pthread.h>

#include "bench/BenchReport.h"

namespace KestrelBench
{

namespace
{

constexpr unsigned int s_nSeries = 5;
constexpr int s_nPasses = 20000;

/// \return false if this thread can't run on the core
bool BindToCore(int nCore)
{
    cpu_set_t cores;
    CPU_ZERO(&cores);
    CPU_SET(nCore, &cores);
    return pthread_setaffinity_np(pthread_self(), sizeof(cores), &cores) == 0;
}

/// Two threads take turns; each waits for the other's write.
double TimePass()
{
    alignas(64) std::atomic<int> nTurn(0);
    std::atomic<bool> bBound(true);
    const auto play = [&](int nCore, int nMine)
    {
        if (!BindToCore(nCore))
        {
            bBound = false;
        }
        for (int n = 0; n < s_nPasses; ++n)
        {
            while (nTurn.load(std::memory_order_acquire) != nMine)
            {
            }
            nTurn.store(1 - nMine, std::memory_order_release);
        }
    };
    const double fSeconds = TimeOnce(
        [&]
        {
            std::thread second(play, 1, 1);
            std::thread first(play, 0, 0);
            first.join();
            second.join();
        });
    return bBound ? fSeconds / s_nPasses : 0;
}

} // namespace

std::vector<double> TimeCacheLine()
{
    std::vector<double> vSeconds;
    for (unsigned int n = 0; n < s_nSeries && std::thread::hardware_concurrency() > 1; ++n)
    {
        const double fSeconds = TimePass();
        if (fSeconds == 0)
        {
            return {};
        }
        vSeconds.push_back(fSeconds);
    }
    return vSeconds;
}

} // namespace KestrelBench
