#ifndef KESTREL_TOOLS_COMMAND_RENDERPICTURES_H
#define KESTREL_TOOLS_COMMAND_RENDERPICTURES_H

#include <nlohmann/json_fwd.hpp>

#include <string>

namespace KestrelTool
{

/// Pictures of a dispatch, as text.
std::string RenderMask(const nlohmann::json& view, bool bUnicode);
std::string RenderGrid(const nlohmann::json& view, bool bUnicode);
std::string RenderStatistics(const nlohmann::json& view, bool bUnicode);
/// A number of a view, printed as an integer if it is one.
std::string RenderNumber(const nlohmann::json& number);

/// Pads a text with blanks on the left.
std::string PadLeft(const std::string& strText, size_t nWidth);

} // namespace KestrelTool

#endif
