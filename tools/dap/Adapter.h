#ifndef KESTREL_TOOLS_DAP_ADAPTER_H
#define KESTREL_TOOLS_DAP_ADAPTER_H

#include "tools/session/Console.h"
#include "tools/session/launch/Libraries.h"

#include <optional>
#include <string>

namespace KestrelTool
{

/// What the debug adapter works with.
struct SAdapterSetup
{
    const CLibraries& libraries;
    std::string strLayer; ///< for programs under the debugger, as SProgramCommand has them
    std::string strVendors;
    ConsoleMaker makeConsole;
};

/// Speaks the Debug Adapter Protocol: one conversation over the standard input and output, or over connections to a
/// port of the loopback address one conversation after the other, until it is ended.
/// \param port  0 for one that is free, which is printed
/// \return an EExitCode
int RunDebugAdapter(const SAdapterSetup& setup, std::optional<unsigned int> port);

} // namespace KestrelTool

#endif
