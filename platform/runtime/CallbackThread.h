#ifndef KESTREL_PLATFORM_RUNTIME_CALLBACKTHREAD_H
#define KESTREL_PLATFORM_RUNTIME_CALLBACKTHREAD_H

#include <functional>

namespace KestrelPlatform::Runtime
{

/// Where the client's callbacks run, one after the other, in the order in which they were posted: a
/// thread of their own, so that a callback may call anything, a wait for a queue among them. While a
/// callback waits, another thread takes over the ones after it.
class CCallbackThread
{
public:
    static void Post(std::function<void()> callback);
    /// To be called before a wait for another thread: on the callback thread it lets another one
    /// take its place.
    static void BeforeWait();
};

} // namespace KestrelPlatform::Runtime

#endif
