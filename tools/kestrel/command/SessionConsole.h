#ifndef KESTREL_TOOLS_COMMAND_SESSIONCONSOLE_H
#define KESTREL_TOOLS_COMMAND_SESSIONCONSOLE_H

#include "tools/session/Console.h"

namespace KestrelTool
{

/// The prompt's commands for the session of another front end, which receives the session's events.
std::unique_ptr<IConsole> MakeSessionConsole(CDebugger* pDebugger, CProgramSession* pProgram);

} // namespace KestrelTool

#endif
