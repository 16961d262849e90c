#ifndef KESTREL_TOOLS_COVER_WATCHPLACES_H
#define KESTREL_TOOLS_COVER_WATCHPLACES_H

#include "tools/session/debug/Debugger.h"

namespace KestrelTool
{

/// Reads what to watch: an element of a buffer ("out[5]"). At a stop also a source expression with an address
/// ("tile[3]", "*p") in the focused work-item and its group, "localN:ADDRESS" and "private:ADDRESS".
/// \throws CCommandError
SWatch ReadWatch(CDebugger& debugger, const std::string& strText);

/// Finds the lines and work-items that make the watched accesses, by a plain run of its own.
/// \throws CCommandError if there are none
void FindWatchedLines(CDebugger& debugger, SWatch& watch);

} // namespace KestrelTool

#endif
