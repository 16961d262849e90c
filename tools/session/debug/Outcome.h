#ifndef KESTREL_TOOLS_DEBUG_OUTCOME_H
#define KESTREL_TOOLS_DEBUG_OUTCOME_H

#include "tools/session/launch/Launch.h"

#include <nlohmann/json_fwd.hpp>

namespace KestrelTool
{

/// What a launch has left, as an event has it: "outputs" of the arguments that are compared, the first elements of
/// each, and "differences", the first of each.
nlohmann::json DescribeOutputs(const CLaunch& launch);

/// Why the platform has ended a plain run under way, and where it was; empty if it hasn't.
std::string DescribeRunEnd(const CLibraries& libraries, const CLaunch& launch);

/// The same for a plain run, with the faults that the platform has recorded.
nlohmann::json DescribeRun(const CLibraries& libraries, const CLaunch& launch);

} // namespace KestrelTool

#endif
