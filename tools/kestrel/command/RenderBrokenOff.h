#ifndef KESTREL_TOOLS_COMMAND_RENDERBROKENOFF_H
#define KESTREL_TOOLS_COMMAND_RENDERBROKENOFF_H

#include <nlohmann/json_fwd.hpp>

#include <string>

namespace KestrelTool
{

/// Where the work-items were when a kernel run was aborted, one line for each place; empty if unknown.
std::string RenderBrokenOff(const nlohmann::json& event);

} // namespace KestrelTool

#endif
