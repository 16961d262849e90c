#ifndef KESTREL_PLATFORM_COMPILER_OPENCLCOMPILER_H
#define KESTREL_PLATFORM_COMPILER_OPENCLCOMPILER_H

#include "platform/compiler/FrontEnd.h"
#include "platform/compiler/ProgramBuilder.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace KestrelPlatform
{

/// One source to compile for one device, or objects to link.
struct SCompileJob
{
    std::string strSource; ///< empty for a link
    std::vector<SSourceHeader> vHeaders;
    SBuildOptions options;
    SDeviceTarget target;
    bool bDebug = false; ///< whether the options, or those of a linked object, ask for debug data
};

/// The compiler of OpenCL C, a library of its own. Objects are LLVM bitcode.
///
/// Every call appends the compiler's messages to strLog, a successful call its warnings. A failure gives false; a crash
/// of the compiler is one. Reentrant.
class IOpenCLCompiler
{
public:
    virtual ~IOpenCLCompiler() = default;

    /// Compiles a source that is a whole program to IL.
    virtual bool Build(const SCompileJob& job, SModule& module, std::string& strLog) const = 0;

    /// Compiles a source that others may be linked with.
    ///
    /// \param bReadFiles receives whether it includes files from disk
    virtual bool Compile(const SCompileJob& job, std::string& strObject, bool& bReadFiles,
                         std::string& strLog) const = 0;

    /// Joins objects and libraries into one library.
    virtual bool LinkLibrary(const SCompileJob& job, const std::vector<std::string_view>& vObjects,
                             std::string& strObject, std::string& strLog) const = 0;

    /// Joins objects and libraries into a program.
    virtual bool LinkProgram(const SCompileJob& job, const std::vector<std::string_view>& vObjects, SModule& module,
                             std::string& strLog) const = 0;
};

/// What a runtime and the library must agree on, since they exchange objects as they lie in memory.
struct SCompilerInterface
{
    uint32_t nVersion = 2; ///< counts changes that no size shows
    uint32_t nCompilerEntries = 4;
    uint32_t nJobBytes = sizeof(SCompileJob);
    uint32_t nModuleBytes = sizeof(SModule);
    uint32_t nKernelBytes = sizeof(SModuleKernel);
    uint32_t nSectionBytes = sizeof(SDebugSection);
};

/// The library's one function. \return null if the runtime's interface differs from its own
using GetOpenCLCompiler = const IOpenCLCompiler* (*)(const SCompilerInterface* pInterface);
constexpr const char* s_pszGetOpenCLCompiler = "kestrelOpenCLCompiler";

/// Opens the compiler, libkestrel-opencl-c.so in the folder of the library or program that contains this code. It is
/// opened at the first call and stays open. Any thread.
///
/// \param strFault receives the reason of a failure
/// \return null if it can't be opened
const IOpenCLCompiler* OpenOpenCLCompiler(std::string& strFault);

/// Identifies this compiler's version, without opening it.
std::string OpenCLCompilerVersion();

} // namespace KestrelPlatform

#endif
