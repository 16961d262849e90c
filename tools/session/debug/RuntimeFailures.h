#ifndef KESTREL_TOOLS_DEBUG_RUNTIMEFAILURES_H
#define KESTREL_TOOLS_DEBUG_RUNTIMEFAILURES_H

#include <OVKKestrel.h>

#include <string>

namespace KestrelTool
{

/// A call of the runtime that failed.
struct SRuntimeFailure
{
    const char* pszCall = nullptr; ///< null for none
    cl_int nCode = CL_SUCCESS;
};

/// A runtime's table whose calls are noted when they fail, since the debugger has one text for whatever keeps it from
/// a session. Only calls that no session can do without are among them. The table mustn't go while the other is used.
cl_icd_dispatch_table NoteFailures(const cl_icd_dispatch_table& table);

/// The last call that failed.
SRuntimeFailure GetLastFailure();
void ForgetFailures();

} // namespace KestrelTool

#endif
