#include "tools/kestrel/command/Output.h"
#include "tools/kestrel/command/RenderBrokenOff.h"
#include "tools/kestrel/command/RenderPictures.h"
#include "tools/kestrel/command/RenderProgram.h"
#include "tools/kestrel/command/RenderSource.h"
#include "tools/session/debug/Format.h"
#include "tools/source/SourcePlaces.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <sstream>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

std::string Text(const json& value)
{
    return value.is_string() ? value.get<std::string>() : value.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string PadRight(const std::string& strText, size_t nWidth)
{
    return strText.size() < nWidth ? strText + std::string(nWidth - strText.size(), ' ') : strText;
}

std::string Join(const json& list, const char* pszBetween)
{
    std::string strText;
    for (const json& entry : list)
    {
        strText += (strText.empty() ? "" : pszBetween) + Text(entry);
    }
    return strText;
}

std::string NameReason(const json& event)
{
    const std::string strReason = event["reason"];
    if (!event["breakpoints"].empty())
    {
        return "breakpoint " + Join(event["breakpoints"], ", ") + ", ";
    }
    if (strReason == "history")
    {
        return "no stop lies before this one, ";
    }
    return strReason == "interrupt" ? "interrupted, " : std::string();
}

std::string RenderStopped(const json& event)
{
    std::string strText = RenderFaults(event);
    for (const char* pszTexts : {"complaints", "notes"})
    {
        for (const json& text : event.value(pszTexts, json::array()))
        {
            strText += Text(text) + "\n";
        }
    }
    strText += NameReason(event) + Text(event["count"]) + " of " + Text(event["items"]) + " active";
    strText += event.value("function", "").empty() ? "\n" : " in " + RenderFunction(event) + "\n";
    return strText + RenderHere(event);
}

std::string RenderStarted(const json& event)
{
    return "kernel " + Text(event["kernel"]) + " on " + Text(event["device"]) + ", " + Text(event["items"]) +
           " work-items\n";
}

std::string RenderFinished(const json& event)
{
    std::string strText = RenderFaults(event);
    strText += event.contains("reason") ? Text(event["reason"]) + "\n" : "";
    strText += event.contains("ended") ? Text(event["ended"]) + "\n" : "";
    if (event.contains("launch"))
    {
        return strText + "launch " + Text(event["launch"]) + " has finished\n";
    }
    return strText + "finished\n" + RenderOutputs(event);
}

std::string RenderPrint(const json& view)
{
    std::string strText = view.contains("display") ? Text(view["display"]) + ": " : "";
    strText += Text(view["expression"]) + " = " + Text(view["value"]);
    return strText + (view.value("active", true) ? "" : "  (work-item " + Text(view["item"]) + " isn't active)") + "\n";
}

std::string RenderBreakpoint(const json& view)
{
    const std::string strHead = std::string(view["temporary"] ? "temporary " : "") + "breakpoint " + Text(view["id"]);
    if (view["line"].is_null())
    {
        return strHead + ": " + Text(view["place"]) + "\n";
    }
    const std::string strCode = Text(view["line"]) + ": " + Text(view["text"]) + "\n";
    const size_t nLines = view.value("lines", json::array()).size();
    const std::string strMany = nLines > 1 ? ", and " + std::to_string(nLines - 1) + " more" : "";
    return strHead + " at " +
           (view.contains("source") ? ShortenPlace(Text(view["source"])) + strMany + ", *" : "line ") + strCode;
}

std::string RenderBreakpoints(const json& view)
{
    if (view["breakpoints"].empty())
    {
        return "no breakpoints\n";
    }
    std::string strText = "  id  line  hits  \n";
    strText = PadRight("  id  line  hits", 20) + "instruction\n";
    for (const json& breakpoint : view["breakpoints"])
    {
        strText += PadLeft(Text(breakpoint["id"]), 4) +
                   PadLeft(breakpoint["line"].is_null() ? "-" : Text(breakpoint["line"]), 6) +
                   PadLeft(Text(breakpoint["hits"]), 6) + "    " + Text(breakpoint["text"]);
        strText +=
            breakpoint.contains("place") ? (breakpoint["line"].is_null() ? "" : "  ") + Text(breakpoint["place"]) : "";
        strText += breakpoint.contains("source") ? "  at " + ShortenPlace(Text(breakpoint["source"])) : "";
        strText += breakpoint.contains("watch") ? "  " + Text(breakpoint["watch"]) : "";
        strText += breakpoint.contains("condition") ? "  if " + Text(breakpoint["condition"]) : "";
        strText += breakpoint.contains("ignore") ? "  passes " + Text(breakpoint["ignore"]) : "";
        strText += breakpoint["enabled"] ? "" : "  disabled";
        strText += breakpoint["temporary"] ? "  temporary" : "";
        strText += "\n";
        for (const json& command : breakpoint.value("commands", json::array()))
        {
            strText += "                    " + Text(command) + "\n";
        }
    }
    return strText;
}

std::string RenderRegisters(const json& view)
{
    std::string strText = "work-item " + Text(view["item"]) + (view["active"] ? "" : ", which isn't active") + "\n";
    for (const json& entry : view["registers"])
    {
        strText += PadRight(Text(entry["name"]), 8) + " " + Text(entry["value"]) + "\n";
    }
    return strText + (view["registers"].empty() ? "no register has a value here\n" : "");
}

std::string RenderMemory(const json& view)
{
    std::string strText;
    for (const json& buffer : view["buffers"])
    {
        strText += "argument " + Text(buffer["argument"]) + "  " + Text(buffer["name"]) + "  " + Text(buffer["type"]) +
                   "  uav" + Text(buffer["resource"]) + "  " + Text(buffer["bytes"]) + " bytes";
        strText += buffer.contains("address") ? "  at " + FormatHex(buffer["address"].get<uint64_t>()) : "";
        strText += "\n";
    }
    return strText.empty() ? "the kernel has no buffers\n" : strText;
}

std::string RenderKernel(const json& view)
{
    std::string strText = "kernel " + Text(view["kernel"]) + ", " + Text(view["lines"]) + " lines, entry at line " +
                          Text(view["entry"]) + "\n";
    size_t nArgument = 0;
    for (const json& argument : view["arguments"])
    {
        strText += "argument " + std::to_string(nArgument++) + "  " + Text(argument["kind"]) + "  " +
                   Text(argument["name"]) + "  " + Text(argument["type"]);
        strText += argument.contains("resource")
                       ? "  " + Text(argument["access"]) + "  resource " + Text(argument["resource"])
                       : "";
        strText += "\n";
    }
    for (const json& function : view["functions"])
    {
        strText += std::string(function["macro"] ? "macro " : "func ") + Text(function["label"]) + "  " +
                   Text(function["name"]) + "  lines " + Text(function["first"]) + " to " + Text(function["last"]) +
                   "\n";
    }
    return strText;
}

std::string RenderDispatch(const json& view)
{
    std::string strText =
        Text(view["items"]) + " work-items on " + Text(view["device"]) + ": global " + Join(view["global"], " x ");
    strText += view["local"][0].is_null() ? ", local left to the platform" : ", local " + Join(view["local"], " x ");
    strText += ", offset " + Join(view["offset"], ", ") + "\n";
    if (!view["live"].get<bool>())
    {
        return strText + "not running\n";
    }
    return strText + "at line " + Text(view["line"]) + ", " + Text(view["count"]) + " active, " + Text(view["runs"]) +
           " kernel runs so far\n";
}

std::string RenderExamine(const json& view)
{
    size_t nWidth = 1;
    size_t nPlace = 1;
    for (const json& row : view["rows"])
    {
        nPlace = std::max(nPlace, Text(row["place"]).size());
        for (const json& value : row["values"])
        {
            nWidth = std::max(nWidth, Text(value).size());
        }
    }
    std::string strText;
    for (const json& row : view["rows"])
    {
        strText += PadRight(Text(row["place"]) + ":", nPlace + 1);
        for (const json& value : row["values"])
        {
            strText += "  " + PadLeft(Text(value), nWidth);
        }
        strText += "\n";
    }
    return strText + (view["short"] ? "the buffer ends here\n" : "");
}

/// The ranges of a view: in a row for one dimension, otherwise by rows of the dispatch.
std::string RenderRanges(const json& view, const size_t (&global)[3])
{
    std::string strText;
    const bool bFlat = global[1] == 1 && global[2] == 1;
    size_t nRow = ~size_t(0);
    for (const json& range : view["ranges"])
    {
        const size_t nFirst = range[0];
        const size_t nLast = range[1];
        if (!bFlat && nFirst / global[0] != nRow)
        {
            nRow = nFirst / global[0];
            strText += (strText.empty() ? "" : "\n") + ("y " + std::to_string(nRow % global[1]));
            strText += global[2] != 1 ? " z " + std::to_string(nRow / global[1]) + ": x " : ": x ";
        }
        else
        {
            strText += strText.empty() ? "" : ", ";
        }
        strText += std::to_string(nFirst % global[0]);
        strText += nLast != nFirst ? "-" + std::to_string(nLast % global[0]) : "";
    }
    strText += view["more"] != 0 ? ", and " + Text(view["more"]) + " ranges more" : "";
    return strText + (strText.empty() ? "" : "\n");
}

std::string RenderWhere(const json& view)
{
    const size_t global[3] = {view["global"][0], view["global"][1], view["global"][2]};
    return Text(view["count"]) + " work-items\n" + RenderRanges(view, global);
}

std::string RenderDiff(const json& view)
{
    std::string strText =
        Text(view["register"]) + ": " + Text(view["count"]) + " of " + Text(view["items"]) + " work-items differ";
    strText += view["fresh"] ? "; it had no value\n" : "\n";
    for (const json& change : view["changes"])
    {
        strText += PadLeft("[" + Text(change["item"]) + "]", 8) + " " + Text(change["old"]) + " -> " +
                   Text(change["new"]) + "\n";
    }
    const size_t nHidden = view["count"].get<size_t>() - view["changes"].size();
    return strText + (nHidden != 0 ? "and " + std::to_string(nHidden) + " more\n" : "");
}

std::string RenderWorkItem(const json& view)
{
    std::string strText = "work-item " + Text(view["item"]) + ": (" + Join(view["position"], ", ") + "), group (" +
                          Join(view["group"], ", ") + "), (" + Join(view["local"], ", ") + ") in it";
    strText += view.contains("active") ? (view["active"] ? ", active" : ", not active") : "";
    return strText + "\n";
}

std::string RenderSettings(const json& view)
{
    std::string strText;
    for (const json& setting : view["settings"])
    {
        strText +=
            PadRight(Text(setting["name"]), 13) + PadRight(Text(setting["value"]), 16) + Text(setting["text"]) + "\n";
    }
    return strText;
}

std::string RenderDisplays(const json& view)
{
    std::string strText;
    for (const json& display : view["displays"])
    {
        strText += Text(display["display"]) + ": " + Text(display["expression"]) + "\n";
    }
    return strText.empty() ? "no displays\n" : strText;
}

std::string RenderVariables(const json& view)
{
    std::string strText;
    for (const json& variable : view["variables"])
    {
        strText += Text(variable["name"]) + " = " + Text(variable["value"]) + "\n";
    }
    return strText.empty() ? "none here\n" : strText;
}

std::string RenderHelp(const json& view)
{
    const std::string strArguments = view["arguments"];
    std::string strText = Text(view["name"]) +
                          (strArguments.empty() || strArguments.compare(0, 2, "[/") == 0 ? "" : " ") + strArguments +
                          "\n" + Text(view["summary"]) + "\n";
    const std::string strLong = Text(view["text"]);
    const std::string strShort = Text(view["abbreviations"]);
    strText += strLong.empty() ? "" : strLong + "\n";
    strText += strShort.empty() ? "" : "Short: " + strShort + "\n";
    return strText;
}

std::string RenderCommands(const json& view)
{
    std::vector<std::string> vGroups;
    for (const json& command : view["commands"])
    {
        if (std::find(vGroups.begin(), vGroups.end(), Text(command["group"])) == vGroups.end())
        {
            vGroups.push_back(command["group"]);
        }
    }
    std::string strText;
    for (const std::string& strGroup : vGroups)
    {
        strText += strGroup + "\n";
        for (const json& command : view["commands"])
        {
            if (command["group"] == strGroup)
            {
                strText += "  " + PadRight(Text(command["name"]), 18) + Text(command["summary"]) + "\n";
            }
        }
    }
    return strText + "Names may be cut short where they stay unique; help NAME says more.\n";
}

std::string RenderThreads(const json& view)
{
    std::string strText = Text(view["groups"]) + (view["groups"] == 1 ? " group of " : " groups of ") +
                          Text(view["size"]) + "; work-item " + Text(view["item"]) + ", in focus, is in group " +
                          Text(view["focus"]) + "\n";
    for (const json& entry : view["list"])
    {
        strText += std::string(entry["focus"] ? "* " : "  ") + PadRight(Text(entry["groups"]), 12) + " " +
                   Text(entry["active"]) + " of " + Text(view["size"]) + " active\n";
    }
    return strText + (view["more"] != 0 ? "and " + Text(view["more"]) + " ranges more\n" : "");
}

std::string RenderPrints(const json& view)
{
    std::string strText;
    for (const json& print : view["prints"])
    {
        strText += print["view"] == "print" ? RenderPrint(print) : "";
    }
    return strText;
}

struct SRenderer
{
    const char* pszView;
    std::string (*pFunction)(const json&);
};

const SRenderer s_Views[] = {
    {"print", RenderPrint},
    {"prints", RenderPrints},
    {"threads", RenderThreads},
    {"breakpoint", RenderBreakpoint},
    {"breakpoints", RenderBreakpoints},
    {"lines", RenderLines},
    {"backtrace", RenderBacktrace},
    {"frame", RenderFrame},
    {"registers", RenderRegisters},
    {"memory", RenderMemory},
    {"kernel", RenderKernel},
    {"dispatch", RenderDispatch},
    {"examine", RenderExamine},
    {"where", RenderWhere},
    {"diff", RenderDiff},
    {"workitem", RenderWorkItem},
    {"settings", RenderSettings},
    {"faults", [](const json& view) { return view["faults"]["list"].empty() ? "no faults\n" : RenderFaults(view); }},
    {"displays", RenderDisplays},
    {"launches", RenderLaunches},
    {"kernels", RenderKernels},
    {"programs", RenderPrograms},
    {"variables", RenderVariables},
    {"display", [](const json&) { return std::string(); }},
    {"help", RenderHelp},
    {"commands", RenderCommands},
    {"text", [](const json& view) { return Text(view["text"]) + "\n"; }},
};

const SRenderer s_Events[] = {
    {"started", RenderStarted},
    {"stopped", RenderStopped},
    {"finished", RenderFinished},
    {"broken off", RenderBrokenOff},
    {"display", RenderPrint},
    {"launch", RenderLaunch},
    {"passed", RenderPassed},
    {"captured", RenderCaptured},
    {"ended", RenderEnded},
    {"error", [](const json&) { return std::string(); }}, // the command that failed reports it
};

} // namespace

std::string RenderText(const json& answer, bool bUnicode)
{
    if (answer.contains("event"))
    {
        for (const SRenderer& renderer : s_Events)
        {
            if (answer["event"] == renderer.pszView)
            {
                return renderer.pFunction(answer);
            }
        }
    }
    const std::string strView = answer.value("view", "");
    if (strView == "mask")
    {
        return RenderMask(answer, bUnicode);
    }
    if (strView == "grid")
    {
        return RenderGrid(answer, bUnicode);
    }
    if (strView == "stats")
    {
        return RenderStatistics(answer, bUnicode);
    }
    for (const SRenderer& renderer : s_Views)
    {
        if (strView == renderer.pszView)
        {
            return renderer.pFunction(answer);
        }
    }
    return answer.dump(-1, ' ', true, json::error_handler_t::replace) + "\n";
}

namespace
{

/// The target of a faulty access, by kind of memory.
std::string RenderPlace(const json& fault)
{
    const std::string strMemory = fault["memory"];
    if (strMemory == "registers")
    {
        return "element " + Text(fault["address"]) +
               " of an array of registers or a constant buffer that hasn't got it";
    }
    if (strMemory == "image")
    {
        return "an image outside its texels, at x " + Text(fault["address"]);
    }
    return strMemory == "global" ? Text(fault["place"]) + ", which is in no buffer"
                                 : strMemory + " memory at " + Text(fault["place"]) + ", which is outside of it";
}

std::string RenderFault(const json& fault)
{
    const std::string strKind = fault["kind"];
    const std::string strItem = "fault: work-item " + Text(fault["workitem"]);
    const std::string strPlace = fault.contains("source") ? ShortenPlace(Text(fault["source"])) : "";
    std::string strLine = strPlace.empty() ? "" : "at " + strPlace;
    if (fault.contains("line"))
    {
        strLine = strPlace.empty() ? "at line " + Text(fault["line"]) : strLine + ", *" + Text(fault["line"]);
    }
    if (strKind == "barrier")
    {
        return strItem + " didn't reach the barrier" + (strLine.empty() ? "" : " " + strLine) +
               " that others of its group reached\n";
    }
    return strItem + (strKind == "write" ? " wrote to " : " read from ") + RenderPlace(fault) +
           (strLine.empty() ? "" : ", " + strLine) + "\n";
}

} // namespace

std::string RenderFaults(const json& event)
{
    if (!event.contains("faults"))
    {
        return std::string();
    }
    const json& faults = event["faults"];
    std::string strText;
    for (const json& fault : faults["list"])
    {
        strText += RenderFault(fault);
    }
    strText += faults["more"] != 0 ? "and " + Text(faults["more"]) + " more\n" : "";
    if (faults["incomplete"])
    {
        strText +=
            faults["accesses"] != 0 ? "in all " + Text(faults["accesses"]) + " accesses to no buffer so far\n" : "";
        strText += faults["barriers"] != 0 ? "in all " + Text(faults["barriers"]) + " barriers missed so far\n" : "";
    }
    return strText;
}

std::string RenderOutputs(const json& finished)
{
    std::string strText;
    for (const json& output : finished["outputs"])
    {
        strText += "output of argument " + Text(output["argument"]) + ": " + Join(output["values"], " ");
        strText += output["elements"].get<size_t>() > output["values"].size() ? " ...\n" : "\n";
    }
    for (const json& difference : finished["differences"])
    {
        strText += "argument " + Text(difference["argument"]) + ", element " + Text(difference["element"]) + ": " +
                   Text(difference["got"]) + ", expected " + Text(difference["expected"]) + "\n";
    }
    if (!finished["differences"].empty())
    {
        return strText + "outputs differ\n";
    }
    const bool bFaulty = finished.value("faulty", false);
    if (finished["outputs"].empty())
    {
        return strText + "outputs not compared: the launch file expects none" +
               (bFaulty ? "; there were faults\n" : "\n");
    }
    return strText + (bFaulty ? "outputs are as expected, but there were faults\n" : "outputs are right\n");
}

} // namespace KestrelTool
