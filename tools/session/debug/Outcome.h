#ifndef KESTREL_TOOLS_DEBUG_OUTCOME_H
#define KESTREL_TOOLS_DEBUG_OUTCOME_H

#include "tools/session/launch/Launch.h"

#include <nlohmann/json_fwd.hpp>

namespace KestrelTool
{

/// The results of a launch, as in an event: "outputs" with the first elements of each compared argument, and
/// "differences" with the first difference of each.
nlohmann::json DescribeOutputs(const CLaunch& launch);

/// Why and where the platform has stopped a plain run early; empty if it hasn't.
std::string DescribeRunEnd(const CLibraries& libraries, const CLaunch& launch);

/// The results of a plain run, with the faults that the platform has recorded.
nlohmann::json DescribeRun(const CLibraries& libraries, const CLaunch& launch);

} // namespace KestrelTool

#endif
