#include "platform/runtime/Event.h"

#include "platform/runtime/ApiCall.h"
#include "platform/runtime/CallbackThread.h"

#include <chrono>

namespace KestrelPlatform::Runtime
{

namespace
{

cl_ulong Now()
{
    return static_cast<cl_ulong>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
            .count());
}

} // namespace

CEvent::CEvent(CRef<CContext> pContext, CRef<CCommandQueue> pQueue, cl_command_type eType)
    : CObject(s_eKind), m_pContext(std::move(pContext)), m_pQueue(std::move(pQueue)), m_eType(eType),
      m_nStatus(m_pQueue ? CL_QUEUED : CL_SUBMITTED)
{
    m_nTimes[CL_QUEUED] = Now();
}

cl_int CEvent::GetStatus() const
{
    std::lock_guard<std::mutex> lock(m_Mutex);
    return m_nStatus;
}

bool CEvent::SetStatus(cl_int nStatus)
{
    std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_nStatus <= CL_COMPLETE || nStatus >= m_nStatus)
    {
        return false;
    }
    const cl_ulong nNow = Now();
    for (cl_int n = std::max(nStatus, CL_COMPLETE); n < m_nStatus; ++n)
    {
        m_nTimes[n] = nNow;
    }
    m_nStatus = nStatus;

    std::vector<SCallback> vLater;
    for (const SCallback& callback : m_vCallbacks)
    {
        if (nStatus <= callback.m_nStatus)
        {
            Post(callback, nStatus < 0 ? nStatus : callback.m_nStatus);
        }
        else
        {
            vLater.push_back(callback);
        }
    }
    m_vCallbacks.swap(vLater);

    if (nStatus <= CL_COMPLETE)
    {
        m_Ended.notify_all();
    }
    return true;
}

cl_int CEvent::Wait()
{
    std::unique_lock<std::mutex> lock(m_Mutex);
    if (m_nStatus > CL_COMPLETE)
    {
        CCallbackThread::BeforeWait();
    }
    m_Ended.wait(lock, [this] { return m_nStatus <= CL_COMPLETE; });
    return m_nStatus;
}

cl_int CEvent::WaitAndRun()
{
    if (m_pQueue)
    {
        m_pQueue->RunUntilEnded(*this);
    }
    return Wait();
}

void CEvent::AddCallback(cl_int nStatus, EventNotify pNotify, void* pUser)
{
    const SCallback callback{nStatus, pNotify, pUser};
    std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_nStatus > nStatus)
    {
        m_vCallbacks.push_back(callback);
    }
    else
    {
        Post(callback, m_nStatus < 0 ? m_nStatus : nStatus);
    }
}

void CEvent::Post(const SCallback& callback, cl_int nStatus)
{
    CCallbackThread::Post([pSelf = CRef<CEvent>(this), callback, nStatus]
                          { callback.m_pNotify(HandleOf(pSelf), nStatus, callback.m_pUser); });
}

void CEvent::OnLastClientRelease()
{
    if (!m_pQueue)
    {
        SetStatus(CL_INVALID_EVENT);
    }
}

cl_int CEvent::GetInfo(cl_event_info eInfo, const SInfoQuery& query)
{
    switch (eInfo)
    {
    case CL_EVENT_COMMAND_QUEUE:
        return query.Value(HandleOf(m_pQueue));
    case CL_EVENT_CONTEXT:
        return query.Value(HandleOf(m_pContext));
    case CL_EVENT_COMMAND_TYPE:
        return query.Value(m_eType);
    case CL_EVENT_COMMAND_EXECUTION_STATUS:
        return query.Value(GetStatus());
    case CL_EVENT_REFERENCE_COUNT:
        return query.Value(GetClientReferences());
    default:
        return CL_INVALID_VALUE;
    }
}

cl_int CEvent::GetProfilingInfo(cl_profiling_info eInfo, const SInfoQuery& query) const
{
    std::lock_guard<std::mutex> lock(m_Mutex);
    if (!m_pQueue || (m_pQueue->GetProperties() & CL_QUEUE_PROFILING_ENABLE) == 0 || m_nStatus != CL_COMPLETE)
    {
        return CL_PROFILING_INFO_NOT_AVAILABLE;
    }
    switch (eInfo)
    {
    case CL_PROFILING_COMMAND_QUEUED:
        return query.Value(m_nTimes[CL_QUEUED]);
    case CL_PROFILING_COMMAND_SUBMIT:
        return query.Value(m_nTimes[CL_SUBMITTED]);
    case CL_PROFILING_COMMAND_START:
        return query.Value(m_nTimes[CL_RUNNING]);
    case CL_PROFILING_COMMAND_END:
        return query.Value(m_nTimes[CL_COMPLETE]);
    default:
        return CL_INVALID_VALUE;
    }
}

cl_int ReadWaitList(const CContext& context, cl_uint nEvents, const cl_event* phEvents,
                    std::vector<CRef<CEvent>>& vEvents)
{
    if ((nEvents == 0) != (phEvents == nullptr))
    {
        return CL_INVALID_EVENT_WAIT_LIST;
    }
    for (cl_uint i = 0; i < nEvents; ++i)
    {
        CRef<CEvent> pEvent = Lookup<CEvent>(phEvents[i]);
        if (!pEvent)
        {
            return CL_INVALID_EVENT_WAIT_LIST;
        }
        if (&pEvent->GetContext() != &context)
        {
            return CL_INVALID_CONTEXT;
        }
        vEvents.push_back(std::move(pEvent));
    }
    return CL_SUCCESS;
}

} // namespace KestrelPlatform::Runtime

using namespace KestrelPlatform::Runtime;

cl_int CL_API_CALL clWaitForEvents(cl_uint num_events, const cl_event* event_list)
{
    return ApiCall(__func__,
                   [&]() -> cl_int
                   {
                       if (num_events == 0 || !event_list)
                       {
                           return CL_INVALID_VALUE;
                       }
                       std::vector<CRef<CEvent>> vEvents;
                       for (cl_uint i = 0; i < num_events; ++i)
                       {
                           vEvents.push_back(Lookup<CEvent>(event_list[i]));
                           if (!vEvents.back())
                           {
                               return CL_INVALID_EVENT;
                           }
                           if (&vEvents.back()->GetContext() != &vEvents.front()->GetContext())
                           {
                               return CL_INVALID_CONTEXT;
                           }
                           if (vEvents.back()->IsOnOwnThread())
                           {
                               return CL_INVALID_OPERATION;
                           }
                       }
                       bool bFailed = false;
                       for (const CRef<CEvent>& pEvent : vEvents)
                       {
                           bFailed |= pEvent->WaitAndRun() < 0;
                       }
                       return bFailed ? CL_EXEC_STATUS_ERROR_FOR_EVENTS_IN_WAIT_LIST : CL_SUCCESS;
                   });
}

cl_event CL_API_CALL clCreateUserEvent(cl_context context, cl_int* errcode_ret)
{
    return ApiCreate<cl_event>(__func__, errcode_ret,
                               [&](cl_event& hEvent) -> cl_int
                               {
                                   CRef<CContext> pContext = Lookup<CContext>(context);
                                   if (!pContext)
                                   {
                                       return CL_INVALID_CONTEXT;
                                   }
                                   hEvent = GiveToClient(
                                       MakeObject<CEvent>(std::move(pContext), CRef<CCommandQueue>(), CL_COMMAND_USER));
                                   return CL_SUCCESS;
                               });
}

cl_int CL_API_CALL clSetUserEventStatus(cl_event event, cl_int execution_status)
{
    return ApiCall(__func__,
                   [&]() -> cl_int
                   {
                       const CRef<CEvent> pEvent = Lookup<CEvent>(event);
                       if (!pEvent || pEvent->GetCommandType() != CL_COMMAND_USER)
                       {
                           return CL_INVALID_EVENT;
                       }
                       if (execution_status > CL_COMPLETE)
                       {
                           return CL_INVALID_VALUE;
                       }
                       return pEvent->SetStatus(execution_status) ? CL_SUCCESS : CL_INVALID_OPERATION;
                   });
}

cl_int CL_API_CALL clSetEventCallback(cl_event event, cl_int command_exec_callback_type, EventNotify pfn_notify,
                                      void* user_data)
{
    return ApiCall(__func__,
                   [&]() -> cl_int
                   {
                       const CRef<CEvent> pEvent = Lookup<CEvent>(event);
                       if (!pEvent)
                       {
                           return CL_INVALID_EVENT;
                       }
                       if (!pfn_notify || command_exec_callback_type < CL_COMPLETE ||
                           command_exec_callback_type > CL_SUBMITTED)
                       {
                           return CL_INVALID_VALUE;
                       }
                       pEvent->AddCallback(command_exec_callback_type, pfn_notify, user_data);
                       return CL_SUCCESS;
                   });
}

cl_int CL_API_CALL clGetEventInfo(cl_event event, cl_event_info param_name, size_t param_value_size, void* param_value,
                                  size_t* param_value_size_ret)
{
    return ApiCall(__func__,
                   [&]() -> cl_int
                   {
                       const CRef<CEvent> pEvent = Lookup<CEvent>(event);
                       if (!pEvent)
                       {
                           return CL_INVALID_EVENT;
                       }
                       return pEvent->GetInfo(param_name, {param_value_size, param_value, param_value_size_ret});
                   });
}

cl_int CL_API_CALL clGetEventProfilingInfo(cl_event event, cl_profiling_info param_name, size_t param_value_size,
                                           void* param_value, size_t* param_value_size_ret)
{
    return ApiCall(
        __func__,
        [&]() -> cl_int
        {
            const CRef<CEvent> pEvent = Lookup<CEvent>(event);
            if (!pEvent)
            {
                return CL_INVALID_EVENT;
            }
            return pEvent->GetProfilingInfo(param_name, {param_value_size, param_value, param_value_size_ret});
        });
}

cl_int CL_API_CALL clRetainEvent(cl_event event)
{
    return ApiCall(__func__, [&] { return RetainHandle<CEvent>(event, CL_INVALID_EVENT); });
}

cl_int CL_API_CALL clReleaseEvent(cl_event event)
{
    return ApiCall(__func__, [&] { return ReleaseHandle<CEvent>(event, CL_INVALID_EVENT); });
}
