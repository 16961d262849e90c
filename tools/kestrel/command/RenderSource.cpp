#include "tools/kestrel/command/RenderSource.h"

#include "tools/kestrel/command/RenderPictures.h"
#include "tools/source/SourcePlaces.h"

#include <nlohmann/json.hpp>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

const size_t s_nPlaceColumn = 52; ///< the column of a line's source place

std::string Spell(const json& value)
{
    return value.is_string() ? value.get<std::string>() : value.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string RenderLine(const json& line)
{
    const std::string strMark = line.value("here", false) ? "=>" : "  ";
    std::string strText = Spell(line["text"]);
    if (line.contains("source"))
    {
        strText += std::string(strText.size() < s_nPlaceColumn ? s_nPlaceColumn - strText.size() : 0, ' ') + "  " +
                   ShortenPlace(Spell(line["source"]));
    }
    return strMark + (line.value("breakpoint", false) ? "*" : " ") + PadLeft(Spell(line["line"]), 4) + "  " + strText +
           "\n";
}

/// The source lines to show before the IL made from them.
std::string RenderBefore(const json& line)
{
    return Spell(line["line"]) + "  " + Spell(line["text"]) + "\n";
}

std::string RenderFrameHead(const json& frame)
{
    std::string strText = "#" + Spell(frame["frame"]) + "  " + Spell(frame["function"]) + "(";
    const char* pszBetween = "";
    for (const json& argument : frame["arguments"])
    {
        strText += pszBetween + Spell(argument["name"]) + "=" + Spell(argument["value"]);
        pszBetween = ", ";
    }
    return strText + ")" + (frame.contains("source") ? " at " + ShortenPlace(Spell(frame["source"])) : "") + "\n";
}

} // namespace

std::string RenderLines(const json& view)
{
    std::string strText;
    for (const json& line : view["lines"])
    {
        strText += line.contains("before") ? RenderBefore(line["before"]) : "";
        strText += RenderLine(line);
    }
    return strText;
}

std::string RenderFunction(const json& entry)
{
    const std::string strFunction = entry["function"];
    return strFunction + (entry.contains("source") ? " at " + ShortenPlace(Spell(entry["source"])) : "");
}

std::string RenderHere(const json& entry)
{
    json line = {{"line", entry["line"]}, {"text", entry["text"]}, {"here", true}};
    if (!entry.contains("source_text"))
    {
        if (entry.contains("source"))
        {
            line["source"] = entry["source"];
        }
        return RenderLine(line);
    }
    const std::string strPlace = entry["source"];
    const json sourceLine = {
        {"line", strPlace.substr(strPlace.rfind(':') + 1)}, {"text", entry["source_text"]}, {"here", true}};
    const std::string strCode = "  *" + PadLeft(Spell(entry["line"]), 4) + "  " + Spell(entry["text"]) + "\n";
    return RenderLine(sourceLine) + (entry.value("inside", false) ? strCode : "");
}

std::string RenderBacktrace(const json& view)
{
    std::string strText;
    for (const json& frame : view["frames"])
    {
        strText += RenderFrameHead(frame);
    }
    return strText;
}

std::string RenderFrame(const json& view)
{
    return RenderFrameHead(view) + RenderHere(view);
}

} // namespace KestrelTool
