// Commands about breakpoints.

#include "tools/kestrel/check/FaultPlaces.h"
#include "tools/kestrel/command/Commands.h"
#include "tools/kestrel/cover/WatchPlaces.h"
#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/SourceLines.h"
#include "tools/session/program/ProgramSession.h"

#include <nlohmann/json.hpp>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

/// Checks a condition as far as possible: before a launch, no names are known.
void CheckCondition(CCommandContext& context, const std::string& strCondition)
{
    CDebugger* const pDebugger = context.GetInterpreter().FindDebugger();
    if (pDebugger != nullptr)
    {
        CExpression(strCondition, pDebugger);
    }
    else if (strCondition.find_first_not_of(" \t") == std::string::npos)
    {
        throw CCommandError("a condition is an expression");
    }
}

/// A breakpoint that outlives launches: it has lines in those launches that contain its place.
json AddLaunchBreakpoint(CCommandContext& context, const SLaunchPlace& place, bool bTemporary,
                         const std::optional<std::string>& strCondition)
{
    if (strCondition)
    {
        CheckCondition(context, *strCondition);
    }
    CProgramSession& program = *context.GetInterpreter().GetProgram();
    SBreakpoint& breakpoint = program.AddBreakpoint(place, bTemporary);
    breakpoint.strCondition = strCondition.value_or("");
    json answer = DescribeBreakpoint(context.GetInterpreter().FindDebugger(), breakpoint);
    answer["view"] = "breakpoint";
    return answer;
}

/// Whether a program that the debuggee has made has a kernel with this name.
bool IsKernel(const CProgramSession& session, const std::string& strName)
{
    const std::vector<SKnownProgram>& vPrograms = session.GetRecord().GetPrograms();
    return std::any_of(
        vPrograms.begin(), vPrograms.end(),
        [&](const SKnownProgram& program)
        { return std::find(program.vKernels.begin(), program.vKernels.end(), strName) != program.vKernels.end(); });
}

/// Reads a place that doesn't need a launch: "FILE:LINE", or a kernel's name. Another name may be that of a function of
/// the launch that waits.
std::optional<SLaunchPlace> ReadLaunchPlace(CCommandContext& context, const std::string& strPlace)
{
    if (context.GetInterpreter().GetProgram() == nullptr)
    {
        return std::nullopt;
    }
    SLaunchPlace place;
    CDebugger* const pDebugger = context.GetInterpreter().FindDebugger();
    const std::optional<SSourceLine> line =
        pDebugger != nullptr ? ReadSourcePlace(*pDebugger, strPlace) : ReadSourceLine(strPlace);
    if (line)
    {
        place.eKind = SLaunchPlace::Source;
        place.strFile = line->strFile;
        place.nLine = line->nLine;
        return place;
    }
    const bool bName = !strPlace.empty() && strPlace.find_first_of("*+- \t") == std::string::npos &&
                       std::isdigit(static_cast<unsigned char>(strPlace[0])) == 0 && strPlace != "entry";
    const bool bFunction = bName && pDebugger != nullptr && strPlace != pDebugger->GetLaunch().GetFile().strKernel &&
                           !IsKernel(*context.GetInterpreter().GetProgram(), strPlace) &&
                           pDebugger->GetCode().FindName(strPlace) != nullptr;
    place.eKind = SLaunchPlace::Kernel;
    place.strKernel = strPlace;
    return bName && !bFunction ? std::optional<SLaunchPlace>(place) : std::nullopt;
}

json AddBreakpoint(CCommandContext& context, bool bTemporary)
{
    std::string strPlace = context.GetArguments();
    std::string strCondition;
    const size_t nIf = (" " + strPlace + " ").find(" if ");
    if (nIf != std::string::npos)
    {
        strCondition = strPlace.substr(std::min(nIf + 3, strPlace.size()));
        strPlace = strPlace.substr(0, nIf);
    }
    strPlace.erase(strPlace.find_last_not_of(" \t") + 1);
    if (const std::optional<SLaunchPlace> place = ReadLaunchPlace(context, strPlace))
    {
        return AddLaunchBreakpoint(context, *place, bTemporary,
                                   nIf != std::string::npos ? std::optional<std::string>(strCondition) : std::nullopt);
    }
    CDebugger& debugger = context.GetDebugger();
    if (strPlace.empty())
    {
        debugger.RequireLive();
    }
    const std::set<unsigned int> lines =
        strPlace.empty() ? std::set<unsigned int>{debugger.GetLine()} : ReadPlace(debugger, strPlace);
    if (nIf != std::string::npos)
    {
        CheckCondition(context, strCondition);
    }
    SBreakpoint& breakpoint = debugger.GetBreakpoints().Add(lines, bTemporary);
    breakpoint.strCondition = strCondition;
    const std::vector<unsigned int> vRefused =
        debugger.IsLive() ? debugger.GetSession().SetBreakpoints(lines) : std::vector<unsigned int>();
    if (!vRefused.empty())
    {
        debugger.GetBreakpoints().Remove(breakpoint.nId);
        throw CCommandError("line " + std::to_string(vRefused.front()) + " can hold no breakpoint");
    }
    json answer = DescribeBreakpoint(&debugger, breakpoint);
    answer["view"] = "breakpoint";
    return answer;
}

/// The breakpoints of a list of numbers; all if the list is empty.
std::vector<unsigned int> ReadIds(CCommandContext& context)
{
    std::vector<unsigned int> vIds;
    for (const std::string& strWord : context.GetWords())
    {
        vIds.push_back(context.GetInterpreter().GetBreakpoints().Find(ReadShortNumber(strWord)).nId);
    }
    if (vIds.empty())
    {
        for (const SBreakpoint& breakpoint : context.GetInterpreter().GetBreakpoints().GetAll())
        {
            vIds.push_back(breakpoint.nId);
        }
    }
    return vIds;
}

/// The breakpoint of the first word, and the words after it.
SBreakpoint& SplitFirst(CCommandContext& context, const char* pszWhat, std::string& strRest)
{
    const std::string& strText = context.GetText(pszWhat);
    const size_t nEnd = std::min(strText.find_first_of(" \t"), strText.size());
    strRest = strText.substr(nEnd);
    strRest.erase(0, std::min(strRest.find_first_not_of(" \t"), strRest.size()));
    return context.GetInterpreter().GetBreakpoints().Find(ReadShortNumber(strText.substr(0, nEnd)));
}

/// Adds a breakpoint on all lines that access something; it stops only for those accesses.
json AddWatch(CCommandContext& context, const char* pszCommand, bool bReads, bool bWrites)
{
    CDebugger& debugger = context.GetDebugger();
    const std::string& strText = context.GetText("an element, as in out[5]");
    SWatch watch = ReadWatch(debugger, strText);
    watch.strText = std::string(pszCommand) + " " + strText;
    watch.bReads = bReads;
    watch.bWrites = bWrites;
    FindWatchedLines(debugger, watch);
    std::set<unsigned int> lines;
    for (const auto& line : watch.mapLines)
    {
        lines.insert(line.first);
    }
    SBreakpoint& breakpoint = debugger.GetBreakpoints().Add(lines, false);
    breakpoint.pWatch = std::make_shared<SWatch>(std::move(watch));
    json answer = DescribeBreakpoint(&debugger, breakpoint);
    answer["view"] = "breakpoint";
    return answer;
}

/// Adds a breakpoint on all lines with a certain fault; it stops only where the fault happens.
json AddFaultStop(CCommandContext& context)
{
    CDebugger& debugger = context.GetDebugger();
    SFaultStop stop =
        FindFaultPlaces(debugger, context.GetText("a check: memory, race, init, nan, barrier or alignment"));
    std::set<unsigned int> lines;
    for (const auto& place : stop.mapPlaces)
    {
        lines.insert(place.first);
    }
    SBreakpoint& breakpoint = debugger.GetBreakpoints().Add(lines, false);
    breakpoint.pFault = std::make_shared<SFaultStop>(std::move(stop));
    json answer = DescribeBreakpoint(&debugger, breakpoint);
    answer["view"] = "breakpoint";
    return answer;
}

json SetEnabled(CCommandContext& context, bool bEnabled)
{
    for (const unsigned int nId : ReadIds(context))
    {
        context.GetInterpreter().GetBreakpoints().Find(nId).bEnabled = bEnabled;
    }
    return nullptr;
}

} // namespace

json DescribeBreakpoint(const CDebugger* pDebugger, const SBreakpoint& breakpoint)
{
    const bool bHere = pDebugger != nullptr && !breakpoint.lines.empty();
    const unsigned int nLine = bHere ? *breakpoint.lines.begin() : 0;
    json description = {{"id", breakpoint.nId},
                        {"line", bHere ? json(nLine) : json()},
                        {"text", bHere ? pDebugger->GetListing().GetLine(nLine) : std::string()},
                        {"temporary", breakpoint.bTemporary},
                        {"enabled", breakpoint.bEnabled},
                        {"hits", breakpoint.nHits}};
    if (bHere && !pDebugger->GetListing().GetPlace(nLine).empty())
    {
        description["source"] = pDebugger->GetListing().GetPlace(nLine);
    }
    if (breakpoint.lines.size() > 1)
    {
        description["lines"] = breakpoint.lines;
    }
    if (breakpoint.place)
    {
        description["place"] = NamePlace(*breakpoint.place);
    }
    if (breakpoint.pWatch)
    {
        description["watch"] = breakpoint.pWatch->strText;
    }
    if (breakpoint.pFault)
    {
        description["watch"] = breakpoint.pFault->strText;
    }
    if (!breakpoint.strCondition.empty())
    {
        description["condition"] = breakpoint.strCondition;
    }
    if (breakpoint.nIgnore != 0)
    {
        description["ignore"] = breakpoint.nIgnore;
    }
    if (!breakpoint.vCommands.empty())
    {
        description["commands"] = breakpoint.vCommands;
    }
    return description;
}

json DoCatchLaunch(CCommandContext& context)
{
    if (context.GetInterpreter().GetProgram() == nullptr)
    {
        throw CCommandError("there is no program here; kestrel exec debugs one");
    }
    SLaunchPlace place;
    place.eKind = SLaunchPlace::Launch;
    for (const std::string& strWord : context.GetWords())
    {
        const bool bNumber = std::isdigit(static_cast<unsigned char>(strWord[0])) != 0;
        const bool bTaken = bNumber ? place.nNumber != 0 : !place.strKernel.empty() || place.nNumber != 0;
        if (bTaken)
        {
            throw CCommandError("catch launch takes a kernel, a number, or both in this order");
        }
        place.nNumber = bNumber ? ReadNumber(strWord) : 0;
        place.strKernel = bNumber ? place.strKernel : strWord;
    }
    return AddLaunchBreakpoint(context, place, false, std::nullopt);
}

json DoBreak(CCommandContext& context)
{
    return AddBreakpoint(context, false);
}

json DoTemporaryBreak(CCommandContext& context)
{
    return AddBreakpoint(context, true);
}

json DoWatch(CCommandContext& context)
{
    return AddWatch(context, "watch", false, true);
}

json DoStopOn(CCommandContext& context)
{
    return AddFaultStop(context);
}

json DoReadWatch(CCommandContext& context)
{
    return AddWatch(context, "rwatch", true, false);
}

json DoAccessWatch(CCommandContext& context)
{
    return AddWatch(context, "awatch", true, true);
}

json DoCondition(CCommandContext& context)
{
    std::string strCondition;
    SBreakpoint& breakpoint = SplitFirst(context, "a breakpoint's number, and an expression", strCondition);
    if (strCondition.empty())
    {
        breakpoint.strCondition.clear();
        return {{"view", "text"}, {"text", "breakpoint " + std::to_string(breakpoint.nId) + " has no condition now"}};
    }
    CheckCondition(context, strCondition);
    breakpoint.strCondition = strCondition;
    breakpoint.condition.reset();
    return nullptr;
}

json DoIgnore(CCommandContext& context)
{
    std::string strCount;
    SBreakpoint& breakpoint = SplitFirst(context, "a breakpoint's number, and a count", strCount);
    breakpoint.nIgnore = ReadNumber(strCount);
    return {{"view", "text"},
            {"text", "breakpoint " + std::to_string(breakpoint.nId) + " passes over its next " +
                         std::to_string(breakpoint.nIgnore) + " hits"}};
}

json DoBreakpointCommands(CCommandContext& context)
{
    CBreakpoints& breakpoints = context.GetInterpreter().GetBreakpoints();
    if (context.GetArguments().empty() && breakpoints.GetAll().empty())
    {
        throw CCommandError("there is no breakpoint");
    }
    const unsigned int nId =
        context.GetArguments().empty() ? breakpoints.GetAll().back().nId : ReadShortNumber(context.GetArguments());
    breakpoints.Find(nId);
    const std::vector<std::string> vCommands = context.GetInterpreter().ReadBlock();
    for (const std::string& strCommand : vCommands)
    {
        ParseCommandLine(strCommand);
    }
    breakpoints.Find(nId).vCommands = vCommands;
    return nullptr;
}

json DoEnable(CCommandContext& context)
{
    return SetEnabled(context, true);
}

json DoDisable(CCommandContext& context)
{
    return SetEnabled(context, false);
}

json DoDelete(CCommandContext& context)
{
    for (const unsigned int nId : ReadIds(context))
    {
        context.GetInterpreter().GetBreakpoints().Remove(nId);
    }
    return nullptr;
}

json DoInfoBreakpoints(CCommandContext& context)
{
    context.AllowNone();
    json list = json::array();
    for (const SBreakpoint& breakpoint : context.GetInterpreter().GetBreakpoints().GetAll())
    {
        list.push_back(DescribeBreakpoint(context.GetInterpreter().FindDebugger(), breakpoint));
    }
    return {{"view", "breakpoints"}, {"breakpoints", list}};
}

} // namespace KestrelTool
