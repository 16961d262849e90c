#ifndef KESTREL_TOOLS_CHECK_FAULTPLACES_H
#define KESTREL_TOOLS_CHECK_FAULTPLACES_H

#include "tools/session/debug/Debugger.h"

namespace KestrelTool
{

/// Finds the places that a check reports for the launch under debug, by a run of its own.
/// \param strCheck  "memory", "race", "init", "nan", "barrier" or "alignment"
/// \throws CCommandError for another word, or if nothing is found
SFaultStop FindFaultPlaces(CDebugger& debugger, const std::string& strCheck);

} // namespace KestrelTool

#endif
