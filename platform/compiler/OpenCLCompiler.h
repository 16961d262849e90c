#ifndef KESTREL_PLATFORM_COMPILER_OPENCLCOMPILER_H
#define KESTREL_PLATFORM_COMPILER_OPENCLCOMPILER_H

#include "platform/compiler/FrontEnd.h"
#include "platform/compiler/ProgramBuilder.h"

#include <string>
#include <vector>

namespace KestrelPlatform
{

/// A text that a source may include, under the name that it is included by.
struct SSourceHeader
{
    std::string strName;
    std::string strSource;
};

/// One source to compile for one device.
struct SCompileJob
{
    std::string strSource;
    std::vector<SSourceHeader> vHeaders;
    std::string strOptions; ///< as the client gave them
    SDeviceTarget target;
    bool bDebug = false; ///< whether the options hold "-g"
};

/// The compiler of OpenCL C, which is a library of its own: see OpenOpenCLCompiler. Reentrant.
class IOpenCLCompiler
{
public:
    virtual ~IOpenCLCompiler() = default;

    /// Makes IL of a source that is a whole program.
    ///
    /// \param strLog receives the compiler's words; may hold warnings after a success
    virtual bool Build(const SCompileJob& job, SModule& module, std::string& strLog) const = 0;
};

} // namespace KestrelPlatform

#endif
