#ifndef KESTREL_TOOLS_DEBUG_RUNTIMEFAILURES_H
#define KESTREL_TOOLS_DEBUG_RUNTIMEFAILURES_H

#include <OVKKestrel.h>

#include <string>

namespace KestrelTool
{

/// A failed call of the runtime.
struct SRuntimeFailure
{
    const char* pszCall = nullptr; ///< null for none
    cl_int nCode = CL_SUCCESS;
};

/// A copy of a runtime's table that notes failed calls, since the debugger has only one text for everything that
/// prevents a session. It covers only calls that every session needs. The original table must outlive the copy's use.
cl_icd_dispatch_table NoteFailures(const cl_icd_dispatch_table& table);

/// The last failed call.
SRuntimeFailure GetLastFailure();
void ForgetFailures();

} // namespace KestrelTool

#endif
