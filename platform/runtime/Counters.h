#ifndef KESTREL_PLATFORM_RUNTIME_COUNTERS_H
#define KESTREL_PLATFORM_RUNTIME_COUNTERS_H

#include "KestrelPlatform.h"
#include "platform/runtime/Object.h"

namespace KestrelPlatform::Runtime
{

/// Objects made (1) and gone (-1).
void CountObject(EObjectKind eKind, int nChange);
/// Any other counter.
void Count(EPlatformCounter eCounter, cl_ulong nChange);
/// The value; for the counters of objects alive only after the runtime's own threads have dropped
/// what they have done with (see CActivity).
cl_ulong GetCounterValue(EPlatformCounter eCounter);
/// Sets the running counters (runs, builds, bytes) to 0.
void ClearRunningCounters();

/// Held by a thread of the runtime from just before it tells the client that something has ended
/// until it has dropped its own references to it. So that a client that was woken by that end and
/// then releases all it has can count on counters of 0, without a race that it couldn't see.
class CActivity
{
public:
    CActivity();
    CActivity(CActivity&& other) noexcept;
    CActivity& operator=(CActivity&& other) noexcept;
    ~CActivity();

    /// Waits until no activity is left but those that the calling thread runs itself. Gives up after
    /// two seconds, for a callback of the client's that doesn't return.
    static void WaitUntilQuiet();

    /// While it lives, the activity is the calling thread's own.
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
