#ifndef KESTREL_TOOLS_LAYER_COMPLAINTS_H
#define KESTREL_TOOLS_LAYER_COMPLAINTS_H

#include "tools/layer/Objects.h"

namespace KestrelLayer
{

/// Tells of a launch that the runtime refuses, with the arguments that it can't use.
/// \param nNumber  counts the process's launches
void TellRefusedLaunch(const SKernel& kernel, uint64_t nNumber, cl_int nCode);

/// Tells of a call that waits, if this thread is inside one of the program's callbacks.
void NoteWait(const char* pszCall);

/// A callback of an event that the program has handed over; it may be called once.
struct SEventCallback
{
    void(CL_CALLBACK* pfnNotify)(cl_event, cl_int, void*);
    void* pUserData;
};
/// Calls one, which is deleted, so that NoteWait knows of it.
void CL_CALLBACK CallBack(cl_event event, cl_int nStatus, void* pCallback);

} // namespace KestrelLayer

#endif
