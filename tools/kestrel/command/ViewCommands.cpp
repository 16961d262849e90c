// Commands that show the whole dispatch, and the kernel's text.

#include "tools/kestrel/command/Commands.h"
#include "tools/kestrel/debug/CommandError.h"
#include "tools/kestrel/debug/Views.h"

namespace KestrelTool
{

using nlohmann::json;

namespace
{

/// An expression with its format letters; "/a" takes all work-items.
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

json ListLines(CDebugger& debugger, unsigned int nFirst, unsigned int nLast)
{
    json lines = json::array();
    for (unsigned int nLine = nFirst; nLine <= nLast && nLine < debugger.GetListing().GetLineCount(); ++nLine)
    {
        json line = {{"line", nLine}, {"text", debugger.GetListing().GetLine(nLine)}};
        const std::string& strPlace = debugger.GetListing().GetPlace(nLine);
        if (!strPlace.empty())
        {
            line["source"] = strPlace;
        }
        if (debugger.IsLive() && nLine == debugger.GetLine())
        {
            line["here"] = true;
        }
        if (debugger.GetBreakpoints().HasLine(nLine))
        {
            line["breakpoint"] = true;
        }
        lines.push_back(line);
    }
    return {{"view", "lines"}, {"lines", lines}};
}

} // namespace

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

json DoWhere(CCommandContext& context)
{
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
    return ViewDifference(debugger, ReadOperand(context.GetWord("a register")), eFormat);
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

json DoList(CCommandContext& context)
{
    CDebugger& debugger = context.GetDebugger();
    const unsigned int nSize = static_cast<unsigned int>(debugger.GetSettings().nListSize);
    const std::string& strArguments = context.GetArguments();
    const size_t nComma = strArguments.find(',');
    unsigned int nFirst = 0;
    unsigned int nLast = 0;
    if (nComma != std::string::npos)
    {
        nFirst = ReadShortNumber(strArguments.substr(0, nComma));
        const size_t nSecond = strArguments.find_first_not_of(" \t", nComma + 1);
        nLast = ReadShortNumber(nSecond == std::string::npos ? std::string() : strArguments.substr(nSecond));
    }
    else if (strArguments.empty() && context.GetInterpreter().GetListNext() != 0)
    {
        nFirst = context.GetInterpreter().GetListNext();
        nLast = nFirst + nSize - 1;
    }
    else
    {
        const unsigned int nDefault = debugger.IsLive() ? debugger.GetLine() : debugger.GetCode().GetFirstStop();
        const unsigned int nMiddle = strArguments.empty() ? nDefault : ReadPlace(debugger, strArguments);
        nFirst = nMiddle > nSize / 2 ? nMiddle - nSize / 2 : 0;
        nLast = nFirst + nSize - 1;
    }
    if (nLast < nFirst)
    {
        throw CCommandError("list: the last line stands in front of the first");
    }
    if (nFirst >= debugger.GetListing().GetLineCount())
    {
        throw CCommandError("the kernel's text ends at line " +
                            std::to_string(debugger.GetListing().GetLineCount() - 1));
    }
    context.GetInterpreter().SetListNext(nLast + 1);
    context.GetInterpreter().SetRepeat("list");
    return ListLines(debugger, nFirst, nLast);
}

json DoDisassemble(CCommandContext& context)
{
    CDebugger& debugger = context.GetDebugger();
    const unsigned int nDefault = debugger.IsLive() ? debugger.GetLine() : debugger.GetCode().GetFirstStop();
    const unsigned int nLine = context.GetArguments().empty() ? nDefault : ReadPlace(debugger, context.GetArguments());
    const CCodeMap::SFunction* pFunction = debugger.GetCode().FindFunction(nLine);
    return pFunction != nullptr
               ? ListLines(debugger, pFunction->nHead, pFunction->nEnd)
               : ListLines(debugger, 0, static_cast<unsigned int>(debugger.GetListing().GetLineCount() - 1));
}

} // namespace KestrelTool
