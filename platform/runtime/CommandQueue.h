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

/// One command on its way through a queue.
struct SCommand
{
    CRef<CEvent> m_pEvent;
    std::vector<CRef<CEvent>> m_vWaitList;
    std::function<cl_int()> m_Run; ///< does the work; CL_SUCCESS or the code that the event ends with
    std::function<void()> m_Undo;  ///< if given, called before the event ends with an error
    bool m_bInstant = false;       ///< takes no longer than to wake another thread, and waits for nothing
    std::unique_ptr<SCommand> m_pNext;

    SCommand();
    ~SCommand();
};

/// A command queue. Commands run one after the other, in the order in which they were handed over,
/// on a thread of the queue's own, which starts with the first command and ends when the client has
/// released the queue and nothing is left to do. A thread that waits for commands runs those that
/// the queue's thread hasn't begun yet, and a command that is over in an instant runs at once where
/// nothing is in front of it, so that neither costs a change of threads; not so where the client
/// intercepts commands, since its hook may count on the queue's thread. Whichever of these threads
/// has to wait for a kernel that another one runs helps with its work-groups.
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
    /// \param bWaits  the calling thread goes on to RunUntilEnded of the command's event
    void Push(std::unique_ptr<SCommand> pCommand, bool bWaits = false) noexcept;
    /// Marks everything that was handed over as submitted.
    void Flush();
    /// Waits until everything that was handed over has ended.
    /// \return CL_OUT_OF_RESOURCES if a command has failed at its own work since the last wait;
    ///         CL_INVALID_OPERATION on the queue's own thread, where the wait would never end
    cl_int Finish();
    /// Runs what nobody has begun yet, up to the end of the command that an event is of. The command
    /// may have been begun by another thread, and not have ended when this returns.
    void RunUntilEnded(const CEvent& event);
    /// True on a thread that runs one of this queue's commands: a wait for another would never end.
    bool IsOwnThread() const;

protected:
    void OnLastClientRelease() override;

private:
    void StartThread();
    /// The queue's thread. Gives what is to last until the thread has dropped the queue.
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
    std::atomic<bool> m_bRunning{false}; ///< some thread runs a command; changed under the lock
    /// The client has released the queue. Set under the lock together with what is left for the
    /// thread's end, so that the thread can't end before that is there.
    bool m_bClosing = false;
    bool m_bCommandFailed = false;
    std::optional<CActivity> m_Closing; ///< from the client's last release to the thread's end
};

} // namespace KestrelPlatform::Runtime

#endif
