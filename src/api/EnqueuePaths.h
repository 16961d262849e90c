#ifndef KESTREL_API_ENQUEUEPATHS_H
#define KESTREL_API_ENQUEUEPATHS_H

#include "api/KernelDebugState.h"

#include <memory>

namespace Kestrel
{

/// The arguments of a launch, as the client gave them.
struct SEnqueueArguments
{
    cl_command_queue command_queue;
    cl_kernel kernel;
    cl_uint work_dim;
    const size_t* global_work_offset;
    const size_t* global_work_size;
    const size_t* local_work_size;
    cl_uint num_events_in_wait_list;
    const cl_event* event_wait_list;
    cl_event* event;
};

/// The real launch goes into the client's queue with the session attached to its event, and the session
/// opens; the runtime's intercept starts it. Deletes the state on failure.
cl_int EnqueueOnInterceptPath(std::unique_ptr<CKernelDebugState> pState, const SEnqueueArguments& arguments);

/// An empty kernel goes into the client's queue in place of the launch, and the whole session runs here. Deletes
/// the state in every case.
cl_int EnqueueOnFallbackPath(std::unique_ptr<CKernelDebugState> pState, const SEnqueueArguments& arguments);

} // namespace Kestrel

#endif
