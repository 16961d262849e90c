#ifndef KESTREL_TOOLS_VIEW_VIEW_H
#define KESTREL_TOOLS_VIEW_VIEW_H

#include "tools/session/Page.h"
#include "tools/session/program/Debuggee.h"

namespace KestrelTool
{

/// Serves a page on a port of the loopback address that shows a session over the whole dispatch, until it is ended by a
/// signal. The page's address, which is printed, has a random word in it; without that nobody gets anything.
/// \param nPort  0 for one that is free
/// \return an EExitCode
/// \throws CLaunchFileError, CPlatformError
int RunView(const SDebuggeeSetup& setup, const SDebuggeeOptions& options, unsigned int nPort);

/// Serves such a page for the session of another front end, as PageMaker has it.
std::unique_ptr<IPage> ServePage(const ConsoleMaker& makeConsole, CDebugger* pLaunch, CProgramSession* pProgram,
                                 unsigned int nPort);

} // namespace KestrelTool

#endif
