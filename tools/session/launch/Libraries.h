#ifndef KESTREL_TOOLS_LIBRARIES_H
#define KESTREL_TOOLS_LIBRARIES_H

#include <OVKKestrel.h>

#include <stdexcept>
#include <string>

namespace KestrelTool
{

/// A library or runtime that can't be used.
class CPlatformError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The functions of the debugger library that the tool calls.
#define KESTREL_DEBUG_FUNCTIONS(X)                                                                                     \
    X(ovkclDebugSetDispatchTable)                                                                                      \
    X(ovkclDebugEnqueueNDRangeKernel)                                                                                  \
    X(ovkclDebugGetProgramCounter)                                                                                     \
    X(ovkclDebugSetBreakpoint)                                                                                         \
    X(ovkclDebugClearBreakpoint)                                                                                       \
    X(ovkclDebugClearAllBreakpoints)                                                                                   \
    X(ovkclDebugGetExecutionMask)                                                                                      \
    X(ovkclDebugGetRegisterValues)                                                                                     \
    X(ovkclDebugGetPrivateMemoryValues)                                                                                \
    X(ovkclDebugGetGlobalMemoryValues)                                                                                 \
    X(ovkclDebugGetKernelBinarySize)                                                                                   \
    X(ovkclDebugGetKernelBinary)                                                                                       \
    X(ovkclDebugGetNumberOfActiveRegisters)                                                                            \
    X(ovkclDebugGetActiveRegisters)                                                                                    \
    X(ovkclDebugSetTrackingRegisters)                                                                                  \
    X(ovkclDebugUtilDebugRegisterLocatorToString)                                                                      \
    X(ovkclDebugUtilStringToDebugRegisterLocator)                                                                      \
    X(ovkclDebugUtilGetLastError)                                                                                      \
    X(ovkclInterceptCreateContext)                                                                                     \
    X(ovkclInterceptCreateCommandQueue)                                                                                \
    X(ovkclInterceptCreateKernel)                                                                                      \
    X(ovkclInterceptReleaseKernel)                                                                                     \
    X(ovkclInterceptSetKernelArg)

/// The OpenCL runtime and the debugger library. Both are opened at run time and stay open until the process ends, since
/// other threads may be inside them.
class CLibraries
{
public:
    /// Opens the software platform in strPlatformDir, or the machine's own runtime if that is
    /// empty, and the debugger library strDebugLibrary, and makes the debugger use the runtime.
    /// \throws CPlatformError
    CLibraries(const std::string& strPlatformDir, const std::string& strDebugLibrary);

    /// Opens a certain OpenCL library instead of the platform's, whose compiler is still used.
    CLibraries(const std::string& strPlatformDir, const std::string& strOpenCL, const std::string& strDebugLibrary);

    cl_icd_dispatch_table cl; ///< null for entries that the runtime lacks

#define DECLARE_FUNCTION(name) decltype(&::name) name;
    KESTREL_DEBUG_FUNCTIONS(DECLARE_FUNCTION)
#undef DECLARE_FUNCTION

private:
    void LoadOpenCL(void* pLibrary);
    void LoadDebugger(const std::string& strDebugLibrary);
};

/// The folder that contains the debugger library and the platform's folder, relative to the running program: beside its
/// folder in a build tree or a copy of it, or the installation's. Gives the first one with the library, else the one
/// for a build tree.
std::string GetLibraryFolder();

} // namespace KestrelTool

#endif
