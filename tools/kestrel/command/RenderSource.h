#ifndef KESTREL_TOOLS_COMMAND_RENDERSOURCE_H
#define KESTREL_TOOLS_COMMAND_RENDERSOURCE_H

#include <nlohmann/json_fwd.hpp>

#include <string>

namespace KestrelTool
{

// Lines of the source and of the IL, and the functions that a stop is in, as text.
std::string RenderLines(const nlohmann::json& view);
/// "life at life.cl:20"; the place is missing where there is none.
std::string RenderFunction(const nlohmann::json& entry);
/// The line of a stop or a frame: that of the source, if its text is known, with the IL beside where that says more.
std::string RenderHere(const nlohmann::json& entry);
std::string RenderBacktrace(const nlohmann::json& view);
std::string RenderFrame(const nlohmann::json& view);

} // namespace KestrelTool

#endif
