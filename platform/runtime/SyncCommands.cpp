#include "platform/runtime/Enqueue.h"

namespace KestrelPlatform::Runtime
{

namespace
{

/// A queue runs its commands in order, so markers and barriers have nothing to do.
cl_int SubmitSync(CEnqueue& enqueue, cl_command_type eType)
{
    return enqueue.Submit(eType, false, [] { return CL_SUCCESS; });
}

} // namespace

} // namespace KestrelPlatform::Runtime

using namespace KestrelPlatform::Runtime;

cl_int CL_API_CALL clEnqueueMarkerWithWaitList(cl_command_queue command_queue, cl_uint num_events_in_wait_list,
                                               const cl_event* event_wait_list, cl_event* event)
{
    return ApiEnqueue(__func__, {command_queue, num_events_in_wait_list, event_wait_list, event},
                      [](CEnqueue& enqueue) { return SubmitSync(enqueue, CL_COMMAND_MARKER); });
}

cl_int CL_API_CALL clEnqueueBarrierWithWaitList(cl_command_queue command_queue, cl_uint num_events_in_wait_list,
                                                const cl_event* event_wait_list, cl_event* event)
{
    return ApiEnqueue(__func__, {command_queue, num_events_in_wait_list, event_wait_list, event},
                      [](CEnqueue& enqueue) { return SubmitSync(enqueue, CL_COMMAND_BARRIER); });
}

cl_int CL_API_CALL clEnqueueMarker(cl_command_queue command_queue, cl_event* event)
{
    return ApiEnqueue(__func__, {command_queue, 0, nullptr, event},
                      [event](CEnqueue& enqueue)
                      { return event ? SubmitSync(enqueue, CL_COMMAND_MARKER) : CL_INVALID_VALUE; });
}

cl_int CL_API_CALL clEnqueueBarrier(cl_command_queue command_queue)
{
    return ApiEnqueue(__func__, {command_queue, 0, nullptr, nullptr},
                      [](CEnqueue& enqueue) { return SubmitSync(enqueue, CL_COMMAND_BARRIER); });
}

cl_int CL_API_CALL clEnqueueWaitForEvents(cl_command_queue command_queue, cl_uint num_events,
                                          const cl_event* event_list)
{
    return ApiEnqueue(__func__, {command_queue, num_events, event_list, nullptr},
                      [&](CEnqueue& enqueue)
                      {
                          if (num_events == 0 || !event_list)
                          {
                              return CL_INVALID_VALUE;
                          }
                          const cl_int nError = SubmitSync(enqueue, CL_COMMAND_BARRIER);
                          return nError == CL_INVALID_EVENT_WAIT_LIST ? CL_INVALID_EVENT : nError;
                      });
}
