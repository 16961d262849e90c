#ifndef KESTREL_PLATFORM_RUNTIME_COUNTERS_H
#define KESTREL_PLATFORM_RUNTIME_COUNTERS_H

#include "KestrelPlatform.h"
#include "platform/runtime/Object.h"

namespace KestrelPlatform::Runtime
{

/// Counts objects created (1) or destroyed (-1).
void CountObject(EObjectKind eKind, int nChange);
/// Any other counter.
void Count(EPlatformCounter eCounter, cl_ulong nChange);
/// The value. Counters of live objects are read after the runtime's own threads have dropped finished objects (see
/// CActivity).
cl_ulong GetCounterValue(EPlatformCounter eCounter);
/// Sets the running counters (runs, builds, bytes) to 0.
void ClearRunningCounters();

/// Held by a thread of the runtime from just before it reports an end to the client until it has dropped its own
/// references. So a client that is woken by that report and then releases everything will find counters of 0, although
/// it can't see when the runtime's thread is done.
class CActivity
{
public:
    CActivity();
    CActivity(CActivity&& other) noexcept;
    CActivity& operator=(CActivity&& other) noexcept;
    ~CActivity();

    /// Waits until all activities have ended, except those of the calling thread. Gives up after two seconds, in case a
    /// callback of the client doesn't return.
    static void WaitUntilQuiet();

    /// While it exists, the activity belongs to the calling thread.
    class CRunning
    {
    public:
        CRunning();
        ~CRunning();
    };

private:
    bool m_bHeld = true;
};

} // namespace KestrelPlatform::Runtime

#endif
