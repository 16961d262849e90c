#ifndef KESTREL_PLATFORM_RUNTIME_ENQUEUE_H
#define KESTREL_PLATFORM_RUNTIME_ENQUEUE_H

#include "platform/runtime/ApiCall.h"
#include "platform/runtime/CommandQueue.h"
#include "platform/runtime/Event.h"

#include <functional>
#include <memory>

namespace KestrelPlatform::Runtime
{

/// The common arguments of enqueue calls.
struct SEnqueueArguments
{
    cl_command_queue m_hQueue;
    cl_uint m_nWaits;
    const cl_event* m_phWaits;
    cl_event* m_phEvent; ///< null: the client wants none
};

/// An enqueue call in progress. Its command is handed over to the queue only at the very end of the call. So when the
/// queue's thread, and with it the client's intercept hook, sees the command, all work of the call is done, including
/// storing the event.
class CEnqueue
{
public:
    explicit CEnqueue(const SEnqueueArguments& arguments) : m_Arguments(arguments) {}
    CEnqueue(const CEnqueue&) = delete;
    CEnqueue& operator=(const CEnqueue&) = delete;
    ~CEnqueue();

    /// Checks the queue. \return CL_INVALID_COMMAND_QUEUE
    cl_int Open();
    CCommandQueue& GetQueue() const { return *m_pQueue; }
    CContext& GetContext() const { return m_pQueue->GetContext(); }

    /// Creates the command and its event, after checking the wait list. If the result isn't CL_SUCCESS, nothing has
    /// happened - except for a blocking command, which is submitted at once and waited for: the result is then that of
    /// the command, and the client gets no event if it failed.
    /// \param undo if given, called once if the command isn't created, or before it ends with an error
    cl_int Submit(cl_command_type eType, bool bBlocking, std::function<cl_int()> run, std::function<void()> undo = {});

private:
    cl_int MakeCommand(cl_command_type eType, bool bBlocking, std::unique_ptr<SCommand>& pCommand);
    cl_int SubmitBlocking(std::unique_ptr<SCommand> pCommand);

    const SEnqueueArguments m_Arguments;
    CRef<CCommandQueue> m_pQueue;
    std::unique_ptr<SCommand> m_pCommand;
};

/// The common part of enqueue calls: checks the queue and passes the call to the body.
template <class F>
cl_int ApiEnqueue(const char* pszEntryPoint, const SEnqueueArguments& arguments, F&& body)
{
    CEnqueue enqueue(arguments);
    return ApiCall(pszEntryPoint,
                   [&]() -> cl_int
                   {
                       const cl_int nError = enqueue.Open();
                       return nError != CL_SUCCESS ? nError : body(enqueue);
                   });
}

} // namespace KestrelPlatform::Runtime

#endif
