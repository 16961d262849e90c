#ifndef KESTREL_TOOLS_DAP_ADAPTER_H
#define KESTREL_TOOLS_DAP_ADAPTER_H

#include "tools/session/program/Debuggee.h"

#include <optional>

namespace KestrelTool
{

/// Speaks the Debug Adapter Protocol: one conversation over the standard input and output, or over connections to a
/// port of the loopback address one conversation after the other, until it is ended.
/// \param port  0 for one that is free, which is printed
/// \return an EExitCode
int RunDebugAdapter(const SDebuggeeSetup& setup, std::optional<unsigned int> port);

} // namespace KestrelTool

#endif
