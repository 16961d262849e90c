#ifndef KESTREL_TOOLS_COMMAND_SESSIONCONSOLE_H
#define KESTREL_TOOLS_COMMAND_SESSIONCONSOLE_H

#include "tools/session/Console.h"

namespace KestrelTool
{

/// The prompt's commands over a session that another front end has. Its events go to that front end.
std::unique_ptr<IConsole> MakeSessionConsole(CDebugger* pDebugger, CProgramSession* pProgram);

} // namespace KestrelTool

#endif
