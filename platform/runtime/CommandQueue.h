#ifndef KESTREL_PLATFORM_RUNTIME_COMMANDQUEUE_H
#define KESTREL_PLATFORM_RUNTIME_COMMANDQUEUE_H

#include "platform/runtime/Context.h"
#include "platform/runtime/Counters.h"

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace KestrelPlatform::Runtime
{

class CEvent;

/// One command on its way through a queue.
struct SCommand
{
    CRef<CEvent> m_pEvent;
    std::vector<CRef<CEvent>> m_vWaitList;
    std::function<cl_int()> m_run; ///< does the work; CL_SUCCESS or the code that the event ends with
    std::function<void()> m_undo;  ///< if given, called before the event ends with an error
    std::unique_ptr<SCommand> m_pNext;

    SCommand();
    ~SCommand();
};

/// A command queue. Commands run one after the other, in the order in which they were handed over,
/// on a thread of the queue's own, which starts with the first command and ends when the client has
/// released the queue and nothing is left to do.
class CCommandQueue : public CObject
{
public:
    using Handle = cl_command_queue;
    static constexpr EObjectKind s_eKind = EObjectKind::Queue;

    CCommandQueue(CRef<CContext> pContext, CRef<CDevice> pDevice, cl_command_queue_properties nProperties);

    CContext& GetContext() const { return *m_pContext; }
    CDevice& GetDevice() const { return *m_pDevice; }
    cl_command_queue_properties GetProperties() const { return m_nProperties; }
    cl_int GetInfo(cl_command_queue_info eInfo, const SInfoQuery& query);

    /// Announces a command: makes sure that the queue's thread runs, and stays until Push. May throw
    /// std::system_error, and has then announced nothing.
    void Expect();
    /// Hands over a command that was announced. Can't fail.
    void Push(std::unique_ptr<SCommand> pCommand) noexcept;
    /// Marks everything that was handed over as submitted.
    void Flush();
    /// Waits until everything that was handed over has ended.
    /// \return CL_OUT_OF_RESOURCES if a command has failed at its own work since the last wait;
    ///         CL_INVALID_OPERATION on the queue's own thread, where the wait would never end
    cl_int Finish();
    /// True on this queue's own thread: a wait for one of its commands would never end.
    bool IsOwnThread() const;

protected:
    void OnLastClientRelease() override;

private:
    void StartThread();
    /// The queue's thread. Gives what is to last until the thread has dropped the queue.
    std::optional<CActivity> Work();
    std::unique_ptr<SCommand> TakeFirst(std::unique_lock<std::mutex>& lock);
    cl_int Execute(SCommand& command);

    const CRef<CContext> m_pContext;
    const CRef<CDevice> m_pDevice;
    const cl_command_queue_properties m_nProperties;

    std::mutex m_mutex;
    std::condition_variable m_wake;  ///< for the queue's thread
    std::condition_variable m_ended; ///< for those that wait in Finish
    std::unique_ptr<SCommand> m_pFirst;
    SCommand* m_pLast = nullptr;
    cl_ulong m_nHandedOver = 0;
    cl_ulong m_nEnded = 0;
    cl_ulong m_nExpected = 0;
    bool m_bThread = false;
    /// The client has released the queue. Set under the lock together with what is left for the
    /// thread's end, so that the thread can't end before that is there.
    bool m_bClosing = false;
    bool m_bCommandFailed = false;
    std::optional<CActivity> m_closing; ///< from the client's last release to the thread's end
};

} // namespace KestrelPlatform::Runtime

#endif
