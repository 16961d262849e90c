#ifndef KESTREL_TOOLS_LAYER_COMPLAINTS_H
#define KESTREL_TOOLS_LAYER_COMPLAINTS_H

#include "tools/layer/Objects.h"

namespace KestrelLayer
{

/// Reports a launch that the runtime refuses, with the arguments that are to blame.
/// \param nNumber  the launch's number within the process
void TellRefusedLaunch(const SKernel& kernel, uint64_t nNumber, cl_int nCode);

/// Reports a waiting call, if this thread is inside one of the program's callbacks.
void NoteWait(const char* pszCall);

/// An event callback that the program has registered; it is called once.
struct SEventCallback
{
    void(CL_CALLBACK* pfnNotify)(cl_event, cl_int, void*);
    void* pUserData;
};
/// Calls one and deletes it, so that NoteWait knows that it runs.
void CL_CALLBACK CallBack(cl_event event, cl_int nStatus, void* pCallback);

} // namespace KestrelLayer

#endif
