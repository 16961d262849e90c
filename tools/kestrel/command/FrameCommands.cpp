// Commands about the call stack of a stop.

#include "tools/kestrel/command/Commands.h"
#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/SourceValues.h"

#include <nlohmann/json.hpp>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

json ListArguments(CDebugger& debugger, const SFrame& frame)
{
    CSourceValues values(debugger);
    json list = json::array();
    for (const SSourceVariable& variable : debugger.FindVariables(frame.nLine))
    {
        if (variable.bParameter && variable.nFrame == frame.nDepth)
        {
            const SSourceValue value = values.Read(variable, debugger.GetFocus());
            list.push_back(
                {{"name", variable.strName}, {"value", values.Format(value, debugger.GetSettings().eFormat)}});
        }
    }
    return list;
}

json DescribeFrame(CDebugger& debugger, const SFrame& frame, size_t nNumber)
{
    json description = {{"frame", nNumber},
                        {"function", frame.strFunction},
                        {"line", frame.nLine},
                        {"arguments", ListArguments(debugger, frame)}};
    if (frame.place)
    {
        description["source"] = frame.place->strFile + ":" + std::to_string(frame.place->nLine);
    }
    return description;
}

/// Shows the selected frame and its line.
json ShowFrame(CDebugger& debugger)
{
    const SFrame frame = debugger.GetFrames()[debugger.GetFrame()];
    json view = DescribeFrame(debugger, frame, debugger.GetFrame());
    view["view"] = "frame";
    view["text"] = debugger.GetListing().GetLine(frame.nLine);
    if (frame.place)
    {
        const std::string* const pText = debugger.GetSourceText().FindLine(frame.place->strFile, frame.place->nLine);
        view["source_text"] = pText != nullptr ? *pText : std::string();
    }
    return view;
}

} // namespace

json DoBacktrace(CCommandContext& context)
{
    context.AllowNone();
    CDebugger& debugger = context.GetDebugger();
    debugger.RequireLive();
    json list = json::array();
    for (const SFrame& frame : debugger.GetFrames())
    {
        list.push_back(DescribeFrame(debugger, frame, list.size()));
    }
    return {{"view", "backtrace"}, {"selected", debugger.GetFrame()}, {"frames", list}};
}

json DoFrame(CCommandContext& context)
{
    CDebugger& debugger = context.GetDebugger();
    debugger.RequireLive();
    if (!context.GetArguments().empty())
    {
        debugger.SelectFrame(ReadNumber(context.GetWord("a frame's number")));
    }
    return ShowFrame(debugger);
}

json DoUp(CCommandContext& context)
{
    CDebugger& debugger = context.GetDebugger();
    debugger.RequireLive();
    const size_t nBy = context.GetCount(1);
    const size_t nLast = debugger.GetFrames().size() - 1;
    if (debugger.GetFrame() == nLast)
    {
        throw CCommandError("this is the outermost frame");
    }
    debugger.SelectFrame(nBy < nLast - debugger.GetFrame() ? debugger.GetFrame() + nBy : nLast);
    return ShowFrame(debugger);
}

json DoDown(CCommandContext& context)
{
    CDebugger& debugger = context.GetDebugger();
    debugger.RequireLive();
    const size_t nBy = context.GetCount(1);
    if (debugger.GetFrame() == 0)
    {
        throw CCommandError("this is the innermost frame");
    }
    debugger.SelectFrame(debugger.GetFrame() - std::min(nBy, debugger.GetFrame()));
    return ShowFrame(debugger);
}

} // namespace KestrelTool
