#ifndef KESTREL_API_METADATAEXTENSION_H
#define KESTREL_API_METADATAEXTENSION_H

#include <CL/cl.h>

namespace Kestrel
{

class CKernelDebugState;

/// The extension that attaches a pointer to an event, in the vendor's form or the EXT form. All of it may be called
/// from any thread; it takes a lock of its own, under which nothing of the library's is called.

/// Looks up the functions and makes the key, once for a runtime.
/// \return false if the runtime has neither form, or refuses the key
bool InitializeMetadataExtension(cl_command_queue queue);

/// Forgets the functions and the key: they belong to a runtime that isn't used any more.
void ForgetMetadataExtension();

/// Attaches a session to an event. \return the runtime's code; -1 without the extension
cl_int SetEventSession(cl_event event, CKernelDebugState* pKernelDebugState);

/// The session that was attached to an event. It may be gone: look it up in the open sessions.
/// \return null if there is none
CKernelDebugState* GetEventSession(cl_event event);

} // namespace Kestrel

#endif
