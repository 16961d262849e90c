#ifndef KESTREL_TOOLS_COVER_WATCHPLACES_H
#define KESTREL_TOOLS_COVER_WATCHPLACES_H

#include "tools/session/debug/Debugger.h"

namespace KestrelTool
{

/// What a text names for a watch: an element of a buffer ("out[5]"), and at a stop also what of the source has an
/// address ("tile[3]", "*p"), of the work-item in focus and its group, "localN:ADDRESS" and "private:ADDRESS".
/// \throws CCommandError
SWatch ReadWatch(CDebugger& debugger, const std::string& strText);

/// Finds the lines and work-items that access what is watched, by a plain run of its own.
/// \throws CCommandError if there are none
void FindWatchedLines(CDebugger& debugger, SWatch& watch);

} // namespace KestrelTool

#endif
