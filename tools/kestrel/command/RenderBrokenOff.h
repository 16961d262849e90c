#ifndef KESTREL_TOOLS_COMMAND_RENDERBROKENOFF_H
#define KESTREL_TOOLS_COMMAND_RENDERBROKENOFF_H

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <string>

namespace KestrelTool
{

/// "63 work-items at the barrier", "1 work-item in work-groups that had ended"; those at a place are only counted.
/// \param strWhere  as of NameWhere
std::string RenderStanding(uint64_t nItems, const std::string& strWhere);

/// Where the work-items were when a kernel run was aborted, one line for each place; empty if unknown.
std::string RenderBrokenOff(const nlohmann::json& event);

} // namespace KestrelTool

#endif
