#include "tools/kestrel/command/RenderBrokenOff.h"

#include "tools/source/SourcePlaces.h"

#include <nlohmann/json.hpp>

#include <map>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

std::string Show(const json& value)
{
    return value.is_string() ? value.get<std::string>() : value.dump(-1, ' ', false, json::error_handler_t::replace);
}

/// "192 work-items at line 14 (spin.cl:7), pass 2 to 5 of its loop: endloop"
std::string RenderBrokenPlace(const json& place)
{
    const std::string strWhere = place["where"];
    std::string strText = "  " + RenderStanding(place["items"], strWhere);
    if (strWhere != "at" && strWhere != "barrier")
    {
        return strText + "\n";
    }
    strText += strWhere == "at" ? " at" : "";
    strText += place.contains("line") ? " line " + Show(place["line"]) : " a place without a line";
    strText += place.contains("source") ? " (" + ShortenPlace(Show(place["source"])) + ")" : "";
    if (place.contains("passes"))
    {
        const json& passes = place["passes"];
        strText += ", pass " + Show(passes[0]) + (passes[0] != passes[1] ? " to " + Show(passes[1]) : "");
    }
    return strText + (place.contains("text") ? ": " + Show(place["text"]) : "") + "\n";
}

} // namespace

std::string RenderStanding(uint64_t nItems, const std::string& strWhere)
{
    static const std::map<std::string, const char*> s_Words = {{"at", ""},
                                                               {"barrier", " at the barrier"},
                                                               {"beside", " beside them, waiting or at the end"},
                                                               {"ended", " in work-groups that had ended"},
                                                               {"not begun", " in work-groups that had not begun"}};
    return std::to_string(nItems) + (nItems == 1 ? " work-item" : " work-items") + s_Words.at(strWhere);
}

std::string RenderBrokenOff(const json& event)
{
    std::string strText = event["places"].empty() ? "" : "when the kernel run was broken off there were\n";
    for (const json& place : event["places"])
    {
        strText += RenderBrokenPlace(place);
    }
    return strText;
}

} // namespace KestrelTool
