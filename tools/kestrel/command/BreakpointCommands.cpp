// Commands about breakpoints.

#include "tools/kestrel/command/Commands.h"
#include "tools/kestrel/debug/CommandError.h"

namespace KestrelTool
{

using nlohmann::json;

namespace
{

json AddBreakpoint(CCommandContext& context, bool bTemporary)
{
    CDebugger& debugger = context.GetDebugger();
    std::string strPlace = context.GetArguments();
    std::string strCondition;
    const size_t nIf = (" " + strPlace + " ").find(" if ");
    if (nIf != std::string::npos)
    {
        strCondition = strPlace.substr(std::min(nIf + 3, strPlace.size()));
        strPlace = strPlace.substr(0, nIf);
    }
    strPlace.erase(strPlace.find_last_not_of(" \t") + 1);
    if (strPlace.empty())
    {
        debugger.RequireLive();
    }
    const unsigned int nLine = strPlace.empty() ? debugger.GetLine() : ReadPlace(debugger, strPlace);
    std::optional<CExpression> condition;
    if (nIf != std::string::npos)
    {
        condition.emplace(strCondition, &debugger);
    }
    SBreakpoint& breakpoint = debugger.GetBreakpoints().Add(nLine, bTemporary);
    breakpoint.condition = std::move(condition);
    if (debugger.IsLive() && !debugger.GetSession().SetBreakpoints({nLine}).empty())
    {
        debugger.GetBreakpoints().Remove(breakpoint.nId);
        throw CCommandError("line " + std::to_string(nLine) + " can hold no breakpoint");
    }
    json answer = DescribeBreakpoint(debugger, breakpoint);
    answer["view"] = "breakpoint";
    return answer;
}

/// The breakpoints that a list of numbers names; all for no list.
std::vector<unsigned int> ReadIds(CCommandContext& context)
{
    std::vector<unsigned int> vIds;
    for (const std::string& strWord : context.GetWords())
    {
        vIds.push_back(context.GetDebugger().GetBreakpoints().Find(ReadShortNumber(strWord)).nId);
    }
    if (vIds.empty())
    {
        for (const SBreakpoint& breakpoint : context.GetDebugger().GetBreakpoints().GetAll())
        {
            vIds.push_back(breakpoint.nId);
        }
    }
    return vIds;
}

/// The breakpoint that the first word names, and what stands behind it.
SBreakpoint& SplitFirst(CCommandContext& context, const char* pszWhat, std::string& strRest)
{
    const std::string& strText = context.GetText(pszWhat);
    const size_t nEnd = std::min(strText.find_first_of(" \t"), strText.size());
    strRest = strText.substr(nEnd);
    strRest.erase(0, std::min(strRest.find_first_not_of(" \t"), strRest.size()));
    return context.GetDebugger().GetBreakpoints().Find(ReadShortNumber(strText.substr(0, nEnd)));
}

json SetEnabled(CCommandContext& context, bool bEnabled)
{
    for (const unsigned int nId : ReadIds(context))
    {
        context.GetDebugger().GetBreakpoints().Find(nId).bEnabled = bEnabled;
    }
    return nullptr;
}

} // namespace

json DescribeBreakpoint(CDebugger& debugger, const SBreakpoint& breakpoint)
{
    json description = {{"id", breakpoint.nId},
                        {"line", breakpoint.nLine},
                        {"text", debugger.GetListing().GetLine(breakpoint.nLine)},
                        {"temporary", breakpoint.bTemporary},
                        {"enabled", breakpoint.bEnabled},
                        {"hits", breakpoint.nHits}};
    if (breakpoint.condition)
    {
        description["condition"] = breakpoint.condition->GetText();
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

json DoBreak(CCommandContext& context)
{
    return AddBreakpoint(context, false);
}

json DoTemporaryBreak(CCommandContext& context)
{
    return AddBreakpoint(context, true);
}

json DoCondition(CCommandContext& context)
{
    std::string strCondition;
    SBreakpoint& breakpoint = SplitFirst(context, "a breakpoint's number, and an expression", strCondition);
    if (strCondition.empty())
    {
        breakpoint.condition.reset();
        return {{"view", "text"}, {"text", "breakpoint " + std::to_string(breakpoint.nId) + " has no condition now"}};
    }
    breakpoint.condition.emplace(strCondition, &context.GetDebugger());
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
    CBreakpoints& breakpoints = context.GetDebugger().GetBreakpoints();
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
        context.GetDebugger().GetBreakpoints().Remove(nId);
    }
    return nullptr;
}

json DoInfoBreakpoints(CCommandContext& context)
{
    context.AllowNone();
    json list = json::array();
    for (const SBreakpoint& breakpoint : context.GetDebugger().GetBreakpoints().GetAll())
    {
        list.push_back(DescribeBreakpoint(context.GetDebugger(), breakpoint));
    }
    return {{"view", "breakpoints"}, {"breakpoints", list}};
}

} // namespace KestrelTool
