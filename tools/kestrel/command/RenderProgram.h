#ifndef KESTREL_TOOLS_COMMAND_RENDERPROGRAM_H
#define KESTREL_TOOLS_COMMAND_RENDERPROGRAM_H

#include <nlohmann/json_fwd.hpp>

#include <string>

namespace KestrelTool
{

// Views and events of a program under the debugger, as text.
std::string RenderLaunches(const nlohmann::json& view);
std::string RenderKernels(const nlohmann::json& view);
std::string RenderPrograms(const nlohmann::json& view);
std::string RenderLaunch(const nlohmann::json& event);
std::string RenderPassed(const nlohmann::json& event);
std::string RenderCaptured(const nlohmann::json& told);
std::string RenderEnded(const nlohmann::json& event);

} // namespace KestrelTool

#endif
