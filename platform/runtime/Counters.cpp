#include "platform/runtime/Counters.h"

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>

namespace KestrelPlatform::Runtime
{

namespace
{

struct SCounters
{
    std::array<std::atomic<cl_ulong>, PLATFORM_COUNTER_LAST> m_Values{};
    std::mutex m_Mutex;
    std::condition_variable m_Quiet;
    unsigned int m_nActivities = 0;
};

SCounters& Counters()
{
    static auto& s_counters = *new SCounters;
    return s_counters;
}

thread_local unsigned int t_nOwnActivities = 0;

/// The counter of each kind of object; PLATFORM_COUNTER_LAST for objects that are never destroyed.
constexpr EPlatformCounter s_objectCounters[] = {
    PLATFORM_COUNTER_LAST,     PLATFORM_COUNTER_LAST,     PLATFORM_COUNTER_CONTEXTS,
    PLATFORM_COUNTER_QUEUES,   PLATFORM_COUNTER_EVENTS,   PLATFORM_COUNTER_MEM_OBJECTS,
    PLATFORM_COUNTER_SAMPLERS, PLATFORM_COUNTER_PROGRAMS, PLATFORM_COUNTER_KERNELS,
};
static_assert(sizeof(s_objectCounters) / sizeof(s_objectCounters[0]) == static_cast<size_t>(EObjectKind::Last));

} // namespace

void CountObject(EObjectKind eKind, int nChange)
{
    const EPlatformCounter eCounter = s_objectCounters[static_cast<size_t>(eKind)];
    if (eCounter != PLATFORM_COUNTER_LAST)
    {
        Count(eCounter, static_cast<cl_ulong>(static_cast<cl_long>(nChange)));
    }
}

void Count(EPlatformCounter eCounter, cl_ulong nChange)
{
    Counters().m_Values[eCounter].fetch_add(nChange);
}

cl_ulong GetCounterValue(EPlatformCounter eCounter)
{
    if (static_cast<unsigned int>(eCounter) >= PLATFORM_COUNTER_LAST)
    {
        return 0;
    }
    if (eCounter >= PLATFORM_COUNTER_CONTEXTS)
    {
        CActivity::WaitUntilQuiet();
    }
    return Counters().m_Values[eCounter].load();
}

void ClearRunningCounters()
{
    for (int i = 0; i < PLATFORM_COUNTER_CONTEXTS; ++i)
    {
        Counters().m_Values[i].store(0);
    }
}

CActivity::CActivity()
{
    SCounters& counters = Counters();
    std::lock_guard<std::mutex> lock(counters.m_Mutex);
    ++counters.m_nActivities;
}

CActivity::CActivity(CActivity&& other) noexcept : m_bHeld(std::exchange(other.m_bHeld, false)) {}

CActivity& CActivity::operator=(CActivity&& other) noexcept
{
    std::swap(m_bHeld, other.m_bHeld);
    return *this;
}

CActivity::~CActivity()
{
    if (!m_bHeld)
    {
        return;
    }
    SCounters& counters = Counters();
    std::lock_guard<std::mutex> lock(counters.m_Mutex);
    --counters.m_nActivities;
    counters.m_Quiet.notify_all();
}

void CActivity::WaitUntilQuiet()
{
    SCounters& counters = Counters();
    std::unique_lock<std::mutex> lock(counters.m_Mutex);
    counters.m_Quiet.wait_for(lock, std::chrono::seconds(2),
                              [&counters] { return counters.m_nActivities <= t_nOwnActivities; });
}

CActivity::CRunning::CRunning()
{
    ++t_nOwnActivities;
}

CActivity::CRunning::~CRunning()
{
    --t_nOwnActivities;
}

} // namespace KestrelPlatform::Runtime
