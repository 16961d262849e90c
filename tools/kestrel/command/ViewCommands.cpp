// Commands that show the whole dispatch.

#include "tools/kestrel/command/Commands.h"
#include "tools/session/debug/Accesses.h"
#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/Views.h"

#include <nlohmann/json.hpp>

#include <limits>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

/// Reads an expression with its format letters; "/a" selects all work-items.
CExpression ReadExpression(CCommandContext& context, bool& bAll)
{
    CDebugger& debugger = context.GetDebugger();
    debugger.RequireLive();
    std::string strFormat = context.GetFormat();
    bAll = context.TakeAll(strFormat);
    CExpression expression(context.GetText("an expression"), &debugger);
    if (expression.IsOperand() && expression.GetOperand().vComponents.size() != 1)
    {
        throw CCommandError("which component? As in " + expression.GetOperand().strRegister + ".x");
    }
    GuessType(debugger, expression, strFormat.empty() ? debugger.GetSettings().eFormat : ReadFormat(strFormat));
    return expression;
}

} // namespace

json DoView(CCommandContext& context)
{
    CInterpreter& interpreter = context.GetInterpreter();
    const std::vector<std::string> vWords = context.GetWords();
    if (vWords.size() == 1 && vWords.front() == "off")
    {
        if (!interpreter.ClosePage())
        {
            throw CCommandError("no page is served");
        }
        return nullptr;
    }
    const size_t nPort = context.GetCount(0);
    if (nPort > std::numeric_limits<uint16_t>::max())
    {
        throw CCommandError("a port is a number up to 65535");
    }
    return {{"view", "text"}, {"text", interpreter.OpenPage(static_cast<unsigned int>(nPort))}};
}

json DoMask(CCommandContext& context)
{
    context.AllowNone();
    context.GetDebugger().RequireLive();
    const SSettings& settings = context.GetDebugger().GetSettings();
    return ViewMask(context.GetDebugger(), GetPictureWidth(settings), GetPictureHeight(settings));
}

json DoGrid(CCommandContext& context)
{
    bool bAll = false;
    CExpression expression = ReadExpression(context, bAll);
    const SSettings& settings = context.GetDebugger().GetSettings();
    return ViewGrid(context.GetDebugger(), expression, bAll, GetPictureWidth(settings), GetPictureHeight(settings));
}

json DoStats(CCommandContext& context)
{
    bool bAll = false;
    CExpression expression = ReadExpression(context, bAll);
    return ViewStatistics(context.GetDebugger(), expression, bAll);
}

json DoWho(CCommandContext& context)
{
    CDebugger& debugger = context.GetDebugger();
    return DescribeAccesses(debugger.GetLibraries(), debugger.GetLaunch().GetFile(),
                            context.GetText("an element, as in out[5]"), debugger.GetSettings().nLimit);
}

json DoWhere(CCommandContext& context)
{
    if (context.GetArguments().empty())
    {
        return DoBacktrace(context);
    }
    bool bAll = false;
    CExpression expression = ReadExpression(context, bAll);
    return ViewWhere(context.GetDebugger(), expression, bAll);
}

json DoDiff(CCommandContext& context)
{
    CDebugger& debugger = context.GetDebugger();
    debugger.RequireLive();
    const EFormat eFormat =
        context.GetFormat().empty() ? debugger.GetSettings().eFormat : ReadFormat(context.GetFormat());
    const std::string& strText = context.GetText("a register or an expression");
    const CExpression expression(strText, &debugger);
    return expression.IsOperand() ? ViewDifference(debugger, expression.GetOperand(), eFormat)
                                  : ViewDifference(debugger, strText, eFormat);
}

json DoWorkItem(CCommandContext& context)
{
    CDebugger& debugger = context.GetDebugger();
    const std::vector<std::string> vWords = context.GetWords();
    if (!vWords.empty())
    {
        const SExtent& extent = debugger.GetExtent();
        if (vWords.size() != 1 && vWords.size() != extent.nDimensions)
        {
            throw CCommandError("workitem takes a linear index, or as many coordinates as the dispatch has");
        }
        size_t nItem = 0;
        for (size_t i = vWords.size(); i-- > 0;)
        {
            const uint64_t nCoordinate = ReadNumber(vWords[i]);
            if (vWords.size() > 1 && nCoordinate >= extent.nGlobal[i])
            {
                throw CCommandError("\"" + vWords[i] + "\": the dispatch has only " +
                                    std::to_string(extent.nGlobal[i]) + " there");
            }
            nItem = nItem * extent.nGlobal[i] + nCoordinate;
        }
        debugger.SetFocus(nItem);
    }
    return ViewItem(debugger, debugger.GetFocus());
}

} // namespace KestrelTool
