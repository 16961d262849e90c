#ifndef KESTREL_API_SESSIONLOOP_H
#define KESTREL_API_SESSIONLOOP_H

#include <CL/cl.h>

#include <cstddef>

namespace Kestrel
{

class CKernelDebugState;

/// Runs a whole session on the calling thread: starts the debugger, calls the client for each event and does
/// what it answers, until the kernel's end. Takes the lock of the sessions, and gives it up for the length
/// of each call of the client's callback.
/// \return true if the session ended with the finished event. The state stays the caller's, open or not
bool DoDebugging(CKernelDebugState* pKernelDebugState);

/// One continue, under the lock: to the next breakpoint, or without any to the end, on the client's own kernel.
/// \return true if the debugger has stopped again
bool DoContinue(CKernelDebugState* pKernelDebugState, cl_command_queue command_queue, cl_kernel kernel,
                cl_uint work_dim, const size_t* global_work_offset, const size_t* global_work_size,
                const size_t* local_work_size);

} // namespace Kestrel

#endif
