#ifndef KESTREL_PLATFORM_RUNTIME_CALLBACKTHREAD_H
#define KESTREL_PLATFORM_RUNTIME_CALLBACKTHREAD_H

#include <functional>

namespace KestrelPlatform::Runtime
{

/// A thread of its own for the client's callbacks, which run one after the other in the order of posting. So a callback
/// may call anything, even wait for a queue. While a callback waits, another thread runs the callbacks after it.
class CCallbackThread
{
public:
    static void Post(std::function<void()> callback);
    /// To be called before waiting for another thread: if this is the callback thread, another one takes
    /// its place.
    static void BeforeWait();
};

} // namespace KestrelPlatform::Runtime

#endif
