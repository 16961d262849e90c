#ifndef KESTREL_API_SESSIONLOOP_H
#define KESTREL_API_SESSIONLOOP_H

namespace Kestrel
{

class CKernelDebugState;

/// Runs a whole session on the calling thread: starts the debugger, calls the client for each event and does
/// what it answers, until the kernel's end. Takes the lock of the sessions, and gives it up for the length
/// of each call of the client's callback.
/// \return true if the session ended with the finished event. The state stays the caller's, open or not
bool DoDebugging(CKernelDebugState* pKernelDebugState);

} // namespace Kestrel

#endif
