#ifndef KESTREL_PLATFORM_RUNTIME_COMMANDQUEUE_H
#define KESTREL_PLATFORM_RUNTIME_COMMANDQUEUE_H

#include "platform/runtime/Context.h"
#include "platform/runtime/Counters.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace KestrelPlatform::Runtime
{

class CEvent;

/// One command in a queue.
struct SCommand
{
    CRef<CEvent> m_pEvent;
    std::vector<CRef<CEvent>> m_vWaitList;
    std::function<cl_int()> m_Run; ///< does the work; gives CL_SUCCESS, or the code that the event ends with
    std::function<void()> m_Undo;  ///< if given, called before the event ends with an error
    bool m_bInstant = false;       ///< is quicker than waking another thread, and waits for nothing
    std::unique_ptr<SCommand> m_pNext;

    SCommand();
    ~SCommand();
};

/// A command queue. Commands run one after the other, in the order of submission, on a thread of the queue's own. It
/// starts with the first command, and ends when the client has released the queue and no command is left. To avoid
/// switches between threads, a thread that waits for commands runs those that the queue's thread hasn't begun yet, and
/// an instant command runs at once if no other is before it. That doesn't happen if the client intercepts commands,
/// since its hook may expect the queue's thread. Any of these threads that has to wait for a running kernel helps with
/// its work-groups.
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

    /// Announces a command: starts the queue's thread if necessary, which stays until Push. If it throws
    /// std::system_error, nothing has been announced.
    void Expect();
    /// Submits an announced command. Can't fail.
    /// \param bWaits  the calling thread will call RunUntilEnded for the command's event
    void Push(std::unique_ptr<SCommand> pCommand, bool bWaits = false) noexcept;
    /// Marks all commands in the queue as submitted.
    void Flush();
    /// Waits until all commands in the queue have ended.
    /// \return CL_OUT_OF_RESOURCES if a command's own work has failed since the last wait;
    ///         CL_INVALID_OPERATION on the queue's own thread, where the wait would never end
    cl_int Finish();
    /// Runs commands that haven't begun yet, up to the one that the event belongs to. If another thread has
    /// begun that command, it may still run when this returns.
    void RunUntilEnded(const CEvent& event);
    /// True on a thread that runs a command of this queue: waiting for another command would never end.
    bool IsOwnThread() const;

protected:
    void OnLastClientRelease() override;

private:
    void StartThread();
    /// The queue's thread. Gives an object that must last until the thread has dropped the queue.
    std::optional<CActivity> Work();
    std::unique_ptr<SCommand> TakeFirst();
    bool CanRunOnAnyThread() const;
    void RunFirst(std::unique_lock<std::mutex>& lock);
    bool HelpRunning(std::unique_lock<std::mutex>& lock);
    cl_int Execute(SCommand& command);

    const CRef<CContext> m_pContext;
    const CRef<CDevice> m_pDevice;
    const cl_command_queue_properties m_nProperties;

    std::mutex m_Mutex;
    std::condition_variable m_Wake;  ///< for the queue's thread
    std::condition_variable m_Ended; ///< for those that wait in Finish
    std::unique_ptr<SCommand> m_pFirst;
    SCommand* m_pLast = nullptr;
    cl_ulong m_nHandedOver = 0;
    cl_ulong m_nEnded = 0;
    cl_ulong m_nExpected = 0;
    bool m_bThread = false;
    std::atomic<bool> m_bRunning{false}; ///< a thread runs a command; changed under the lock
    /// The client has released the queue. Set under the lock together with m_Closing, so that the thread can't end
    /// before that is there.
    bool m_bClosing = false;
    bool m_bCommandFailed = false;
    std::optional<CActivity> m_Closing; ///< from the client's last release to the thread's end
};

} // namespace KestrelPlatform::Runtime

#endif
