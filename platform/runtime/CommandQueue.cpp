#include "platform/runtime/CommandQueue.h"

#include "platform/runtime/ApiCall.h"
#include "platform/runtime/CallbackThread.h"
#include "platform/runtime/Event.h"
#include "platform/simt/WorkerPool.h"

#include <thread>

namespace KestrelPlatform::Runtime
{

namespace
{

/// The queues whose commands the calling thread runs; several, as a command's hook may wait for another queue.
struct SOwnQueue
{
    explicit SOwnQueue(const CCommandQueue& queueIn);
    SOwnQueue(const SOwnQueue&) = delete;
    SOwnQueue& operator=(const SOwnQueue&) = delete;
    ~SOwnQueue();

    const CCommandQueue& queue;
    const SOwnQueue* const pOuter;
};

thread_local const SOwnQueue* t_pOwnQueues = nullptr;

SOwnQueue::SOwnQueue(const CCommandQueue& queueIn) : queue(queueIn), pOuter(t_pOwnQueues)
{
    t_pOwnQueues = this;
}

SOwnQueue::~SOwnQueue()
{
    t_pOwnQueues = pOuter;
}

constexpr cl_command_queue_properties s_nKnownProperties =
    CL_QUEUE_OUT_OF_ORDER_EXEC_MODE_ENABLE | CL_QUEUE_PROFILING_ENABLE;

/// CL_SUCCESS if all events succeeded, else the code that a command takes over from them.
cl_int WaitForAll(const std::vector<CRef<CEvent>>& vEvents)
{
    bool bFailed = false;
    for (const CRef<CEvent>& pEvent : vEvents)
    {
        bFailed |= pEvent->Wait() < 0;
    }
    return bFailed ? CL_EXEC_STATUS_ERROR_FOR_EVENTS_IN_WAIT_LIST : CL_SUCCESS;
}

cl_int CheckProperties(cl_command_queue_properties nProperties)
{
    const cl_command_queue_properties nIntercept =
        IsExtensionEnabled("cl_ovk_event_callback") ? s_nQueueInterceptEnable : 0;
    return (nProperties & ~(s_nKnownProperties | nIntercept)) == 0 ? CL_SUCCESS : CL_INVALID_VALUE;
}

cl_int CreateQueue(cl_context hContext, cl_device_id hDevice, cl_command_queue_properties nProperties,
                   cl_command_queue& hQueue)
{
    CRef<CContext> pContext = Lookup<CContext>(hContext);
    if (!pContext)
    {
        return CL_INVALID_CONTEXT;
    }
    CRef<CDevice> pDevice = Lookup<CDevice>(hDevice);
    if (!pDevice || !pContext->HasDevice(*pDevice))
    {
        return CL_INVALID_DEVICE;
    }
    if (const cl_int nError = CheckProperties(nProperties))
    {
        return nError;
    }
    hQueue = GiveToClient(MakeObject<CCommandQueue>(std::move(pContext), std::move(pDevice), nProperties));
    return CL_SUCCESS;
}

} // namespace

SCommand::SCommand() = default;
SCommand::~SCommand() = default;

CCommandQueue::CCommandQueue(CRef<CContext> pContext, CRef<CDevice> pDevice, cl_command_queue_properties nProperties)
    : CObject(s_eKind), m_pContext(std::move(pContext)), m_pDevice(std::move(pDevice)), m_nProperties(nProperties)
{
}

cl_int CCommandQueue::GetInfo(cl_command_queue_info eInfo, const SInfoQuery& query)
{
    switch (eInfo)
    {
    case CL_QUEUE_CONTEXT:
        return query.Value(HandleOf(m_pContext));
    case CL_QUEUE_DEVICE:
        return query.Value(HandleOf(m_pDevice));
    case CL_QUEUE_REFERENCE_COUNT:
        return query.Value(GetClientReferences());
    case CL_QUEUE_PROPERTIES:
        return query.Value(m_nProperties);
    default:
        return CL_INVALID_VALUE;
    }
}

void CCommandQueue::Expect()
{
    std::lock_guard<std::mutex> lock(m_Mutex);
    if (!m_bThread)
    {
        StartThread();
    }
    ++m_nExpected;
}

/// The lock must be held.
void CCommandQueue::StartThread()
{
    m_bClosing = GetClientReferences() == 0;
    std::thread(
        [pSelf = CRef<CCommandQueue>(this)]() mutable
        {
            const std::optional<CActivity> closing = pSelf->Work();
            pSelf = CRef<CCommandQueue>();
        })
        .detach();
    m_bThread = true;
}

void CCommandQueue::Push(std::unique_ptr<SCommand> pCommand, bool bWaits) noexcept
{
    std::unique_lock<std::mutex> lock(m_Mutex);
    SCommand* pNew = pCommand.get();
    if (m_pLast)
    {
        m_pLast->m_pNext = std::move(pCommand);
    }
    else
    {
        m_pFirst = std::move(pCommand);
    }
    m_pLast = pNew;
    --m_nExpected;
    ++m_nHandedOver;
    if (pNew->m_bInstant && m_pFirst.get() == pNew && !m_bRunning && CanRunOnAnyThread())
    {
        RunFirst(lock);
    }
    else if (!bWaits || !CanRunOnAnyThread())
    {
        m_Wake.notify_one();
    }
}

void CCommandQueue::Flush()
{
    std::lock_guard<std::mutex> lock(m_Mutex);
    for (SCommand* pCommand = m_pFirst.get(); pCommand; pCommand = pCommand->m_pNext.get())
    {
        pCommand->m_pEvent->SetStatus(CL_SUBMITTED);
    }
}

cl_int CCommandQueue::Finish()
{
    if (IsOwnThread())
    {
        return CL_INVALID_OPERATION;
    }
    std::unique_lock<std::mutex> lock(m_Mutex);
    const cl_ulong nLast = m_nHandedOver;
    if (m_nEnded < nLast)
    {
        CCallbackThread::BeforeWait();
    }
    while (m_nEnded < nLast)
    {
        if (CanRunOnAnyThread() && !m_bRunning)
        {
            RunFirst(lock);
        }
        else if (!HelpRunning(lock) && m_nEnded < nLast)
        {
            m_Ended.wait(lock);
        }
    }
    return std::exchange(m_bCommandFailed, false) ? CL_OUT_OF_RESOURCES : CL_SUCCESS;
}

void CCommandQueue::RunUntilEnded(const CEvent& event)
{
    std::unique_lock<std::mutex> lock(m_Mutex);
    while (event.GetStatus() > CL_COMPLETE)
    {
        CCallbackThread::BeforeWait();
        if (CanRunOnAnyThread() && !m_bRunning && m_pFirst)
        {
            RunFirst(lock);
        }
        else if (!HelpRunning(lock))
        {
            return;
        }
    }
}

/// Helps with the kernel that another thread runs. The lock must be held, and is released meanwhile.
/// \return false if no kernel runs, or if it still runs but has no work left to share
bool CCommandQueue::HelpRunning(std::unique_lock<std::mutex>& lock)
{
    if (!m_bRunning)
    {
        return false;
    }
    lock.unlock();
    const bool bHelped = CWorkerPool::Get().HelpWhile(m_bRunning, this);
    lock.lock();
    return bHelped;
}

bool CCommandQueue::CanRunOnAnyThread() const
{
    return (m_nProperties & s_nQueueInterceptEnable) == 0;
}

bool CCommandQueue::IsOwnThread() const
{
    const SOwnQueue* pOwn = t_pOwnQueues;
    while (pOwn && &pOwn->queue != this)
    {
        pOwn = pOwn->pOuter;
    }
    return pOwn != nullptr;
}

void CCommandQueue::OnLastClientRelease()
{
    std::lock_guard<std::mutex> lock(m_Mutex);
    m_bClosing = true;
    if (m_bThread)
    {
        m_Closing.emplace();
    }
    m_Wake.notify_one();
}

/// The next command, which must exist. The lock must be held.
std::unique_ptr<SCommand> CCommandQueue::TakeFirst()
{
    std::unique_ptr<SCommand> pCommand = std::move(m_pFirst);
    m_pFirst = std::move(pCommand->m_pNext);
    if (!m_pFirst)
    {
        m_pLast = nullptr;
    }
    return pCommand;
}

/// Runs the next command, which must exist while no other runs. The lock must be held, and is released meanwhile.
void CCommandQueue::RunFirst(std::unique_lock<std::mutex>& lock)
{
    const SOwnQueue own(*this);
    std::unique_ptr<SCommand> pCommand = TakeFirst();
    m_bRunning = true;
    lock.unlock();
    pCommand->m_pEvent->SetStatus(CL_SUBMITTED);
    const cl_int nWaited = WaitForAll(pCommand->m_vWaitList);
    const cl_int nResult = nWaited != CL_SUCCESS ? nWaited : Execute(*pCommand);
    if (nResult < 0 && pCommand->m_Undo)
    {
        pCommand->m_Undo();
    }
    // Releases what the command held before the event's end wakes anybody.
    pCommand->m_Run = nullptr;
    pCommand->m_Undo = nullptr;
    pCommand->m_vWaitList.clear();
    CActivity ending;
    pCommand->m_pEvent->SetStatus(std::min(nResult, CL_COMPLETE));
    pCommand.reset();
    lock.lock();
    m_bRunning = false;
    m_bCommandFailed |= nWaited == CL_SUCCESS && nResult < 0;
    ++m_nEnded;
    m_Ended.notify_all();
    if (m_bClosing && !m_pFirst && m_nExpected == 0)
    {
        m_Closing = std::move(ending);
    }
    // The queue's thread runs the remaining commands.
    if (m_pFirst || m_bClosing)
    {
        m_Wake.notify_one();
    }
}

std::optional<CActivity> CCommandQueue::Work()
{
    std::unique_lock<std::mutex> lock(m_Mutex);
    for (;;)
    {
        const auto isDue = [this] { return !m_bRunning && (m_pFirst || (m_bClosing && m_nExpected == 0)); };
        while (!isDue())
        {
            if (!HelpRunning(lock) && !isDue())
            {
                m_Wake.wait(lock);
            }
        }
        if (!m_pFirst)
        {
            break;
        }
        RunFirst(lock);
    }
    m_bThread = false;
    return std::exchange(m_Closing, std::nullopt);
}

cl_int CCommandQueue::Execute(SCommand& command)
{
    CEvent& event = *command.m_pEvent;
    const InterceptHook pHook =
        (m_nProperties & s_nQueueInterceptEnable) != 0 ? m_pContext->GetInterceptHook() : nullptr;
    cl_int nResult = CL_SUCCESS;
    const bool bDealtWith = pHook && pHook(HandleOf(command.m_pEvent), &nResult) == 1;
    event.SetStatus(CL_RUNNING);
    if (bDealtWith)
    {
        return nResult;
    }
    try
    {
        return command.m_Run();
    }
    catch (const std::bad_alloc&)
    {
        return CL_OUT_OF_HOST_MEMORY;
    }
    catch (...)
    {
        return CL_OUT_OF_RESOURCES;
    }
}

} // namespace KestrelPlatform::Runtime

using namespace KestrelPlatform::Runtime;

cl_command_queue CL_API_CALL clCreateCommandQueue(cl_context context, cl_device_id device,
                                                  cl_command_queue_properties properties, cl_int* errcode_ret)
{
    return ApiCreate<cl_command_queue>(__func__, errcode_ret,
                                       [&](cl_command_queue& hQueue) -> cl_int
                                       { return CreateQueue(context, device, properties, hQueue); });
}

cl_command_queue CL_API_CALL clCreateCommandQueueWithProperties(cl_context context, cl_device_id device,
                                                                const cl_queue_properties* properties,
                                                                cl_int* errcode_ret)
{
    return ApiCreate<cl_command_queue>(__func__, errcode_ret,
                                       [&](cl_command_queue& hQueue) -> cl_int
                                       {
                                           cl_command_queue_properties nProperties = 0;
                                           for (const cl_queue_properties* pPair = properties; pPair && pPair[0] != 0;
                                                pPair += 2)
                                           {
                                               if (pPair[0] != CL_QUEUE_PROPERTIES)
                                               {
                                                   return CL_INVALID_VALUE;
                                               }
                                               nProperties = pPair[1];
                                           }
                                           return CreateQueue(context, device, nProperties, hQueue);
                                       });
}

cl_int CL_API_CALL clRetainCommandQueue(cl_command_queue command_queue)
{
    return ApiCall(__func__, [&] { return RetainHandle<CCommandQueue>(command_queue, CL_INVALID_COMMAND_QUEUE); });
}

cl_int CL_API_CALL clReleaseCommandQueue(cl_command_queue command_queue)
{
    return ApiCall(__func__, [&] { return ReleaseHandle<CCommandQueue>(command_queue, CL_INVALID_COMMAND_QUEUE); });
}

cl_int CL_API_CALL clGetCommandQueueInfo(cl_command_queue command_queue, cl_command_queue_info param_name,
                                         size_t param_value_size, void* param_value, size_t* param_value_size_ret)
{
    return ApiCall(__func__,
                   [&]() -> cl_int
                   {
                       const CRef<CCommandQueue> pQueue = Lookup<CCommandQueue>(command_queue);
                       if (!pQueue)
                       {
                           return CL_INVALID_COMMAND_QUEUE;
                       }
                       return pQueue->GetInfo(param_name, {param_value_size, param_value, param_value_size_ret});
                   });
}

cl_int CL_API_CALL clSetCommandQueueProperty(cl_command_queue command_queue, cl_command_queue_properties properties,
                                             cl_bool enable, cl_command_queue_properties* old_properties)
{
    return ApiCall(__func__,
                   [&]() -> cl_int
                   {
                       // Removed in OpenCL 1.1: a queue's properties are fixed when it is created.
                       return Lookup<CCommandQueue>(command_queue) ? CL_INVALID_OPERATION : CL_INVALID_COMMAND_QUEUE;
                   });
}

cl_int CL_API_CALL clFlush(cl_command_queue command_queue)
{
    return ApiCall(__func__,
                   [&]() -> cl_int
                   {
                       const CRef<CCommandQueue> pQueue = Lookup<CCommandQueue>(command_queue);
                       if (!pQueue)
                       {
                           return CL_INVALID_COMMAND_QUEUE;
                       }
                       pQueue->Flush();
                       return CL_SUCCESS;
                   });
}

cl_int CL_API_CALL clFinish(cl_command_queue command_queue)
{
    return ApiCall(__func__,
                   [&]() -> cl_int
                   {
                       const CRef<CCommandQueue> pQueue = Lookup<CCommandQueue>(command_queue);
                       return pQueue ? pQueue->Finish() : CL_INVALID_COMMAND_QUEUE;
                   });
}
