#ifndef KESTREL_PLATFORM_RUNTIME_EVENT_H
#define KESTREL_PLATFORM_RUNTIME_EVENT_H

#include "platform/runtime/CommandQueue.h"
#include "platform/runtime/Context.h"

#include <condition_variable>
#include <mutex>
#include <vector>

namespace KestrelPlatform::Runtime
{

using EventNotify = void(CL_CALLBACK*)(cl_event, cl_int, void*);

/// An event, of a command or of the user. Its status only decreases: CL_QUEUED, CL_SUBMITTED, CL_RUNNING, then
/// CL_COMPLETE or a negative code.
class CEvent : public CObject
{
public:
    using Handle = cl_event;
    static constexpr EObjectKind s_eKind = EObjectKind::Event;

    /// \param pQueue null for a user event
    CEvent(CRef<CContext> pContext, CRef<CCommandQueue> pQueue, cl_command_type eType);

    CContext& GetContext() const { return *m_pContext; }
    cl_command_type GetCommandType() const { return m_eType; }
    cl_int GetStatus() const;
    /// Changes the status, notes the time, wakes the waiters and posts the callbacks. Ignores a status that isn't below
    /// the current one, and any change after the end.
    /// \return false if it was ignored
    bool SetStatus(cl_int nStatus);
    /// Waits for the end. \return CL_COMPLETE or the negative code
    cl_int Wait();
    /// The same for a thread of the client, which runs commands that its queue hasn't begun yet.
    cl_int WaitAndRun();
    /// True on the thread that runs the event's queue, where a wait would never end.
    bool IsOnOwnThread() const { return m_pQueue && m_pQueue->IsOwnThread(); }
    void AddCallback(cl_int nStatus, EventNotify pNotify, void* pUser);

    cl_int GetInfo(cl_event_info eInfo, const SInfoQuery& query);
    cl_int GetProfilingInfo(cl_profiling_info eInfo, const SInfoQuery& query) const;

protected:
    /// A user event that nobody can set any more ends with CL_INVALID_EVENT, so that its waiters don't wait forever.
    void OnLastClientRelease() override;

private:
    struct SCallback
    {
        cl_int m_nStatus;
        EventNotify m_pNotify;
        void* m_pUser;
    };

    void Post(const SCallback& callback, cl_int nStatus);

    const CRef<CContext> m_pContext;
    const CRef<CCommandQueue> m_pQueue;
    const cl_command_type m_eType;
    /// Locked before the callback thread's lock.
    mutable std::mutex m_Mutex;
    std::condition_variable m_Ended;
    cl_int m_nStatus;
    std::vector<SCallback> m_vCallbacks;
    cl_ulong m_nTimes[CL_QUEUED + 1] = {}; ///< by status, in nanoseconds
};

/// Reads a wait list.
/// \return CL_INVALID_EVENT_WAIT_LIST for a list that doesn't match its count or holds something else than
///         events, CL_INVALID_CONTEXT for an event of another context
cl_int ReadWaitList(const CContext& context, cl_uint nEvents, const cl_event* phEvents,
                    std::vector<CRef<CEvent>>& vEvents);

} // namespace KestrelPlatform::Runtime

#endif
