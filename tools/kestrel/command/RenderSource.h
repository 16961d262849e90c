#ifndef KESTREL_TOOLS_COMMAND_RENDERSOURCE_H
#define KESTREL_TOOLS_COMMAND_RENDERSOURCE_H

#include <nlohmann/json_fwd.hpp>

#include <string>

namespace KestrelTool
{

// Lines of source and IL, and the call stack of a stop, as text.
std::string RenderLines(const nlohmann::json& view);
/// "life at life.cl:20", without the place if it is unknown.
std::string RenderFunction(const nlohmann::json& entry);
/// The current line of a stop or frame: the source line if its text is known, with the IL if that adds something.
std::string RenderHere(const nlohmann::json& entry);
std::string RenderBacktrace(const nlohmann::json& view);
std::string RenderFrame(const nlohmann::json& view);

} // namespace KestrelTool

#endif
