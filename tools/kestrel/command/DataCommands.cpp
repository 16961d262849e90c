// Commands that show values of the work-item in focus, and memory.

#include "tools/kestrel/command/Commands.h"
#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/SourceValues.h"
#include "tools/session/debug/Views.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

std::vector<uint32_t> ReadWords(CDebugger& debugger, const SOperand& operand)
{
    const SRegisterView view = debugger.GetValues(operand.strRegister);
    std::vector<uint32_t> vWords;
    for (const unsigned int nComponent : operand.vComponents)
    {
        vWords.push_back(view[debugger.GetFocus()][nComponent]);
    }
    return vWords;
}

EFormat ChooseFormat(CDebugger& debugger, const std::string& strFormat)
{
    return strFormat.empty() ? debugger.GetSettings().eFormat : ReadFormat(strFormat);
}

/// Splits "a, f(b, c)" at the commas that aren't in brackets.
std::vector<std::string> SplitAtCommas(const std::string& strText)
{
    std::vector<std::string> vParts(1);
    int nDepth = 0;
    for (const char c : strText)
    {
        nDepth += c == '(' || c == '[' ? 1 : c == ')' || c == ']' ? -1 : 0;
        const bool bFirst = vParts.back().empty() && std::isspace(static_cast<unsigned char>(c)) != 0;
        if (c == ',' && nDepth == 0)
        {
            vParts.emplace_back();
        }
        else if (!bFirst)
        {
            vParts.back() += c;
        }
    }
    return vParts;
}

} // namespace

json PrintExpression(CDebugger& debugger, const std::string& strFormat, const std::string& strExpression)
{
    debugger.RequireLive();
    const EFormat eFormat = ChooseFormat(debugger, strFormat);
    json answer = {{"view", "print"}, {"expression", strExpression}, {"item", debugger.GetFocus()}};
    CExpression expression(strExpression, &debugger);
    if (expression.IsOperand())
    {
        const std::vector<uint32_t> vWords = ReadWords(debugger, expression.GetOperand());
        std::vector<std::string> vValues = FormatWords(vWords, eFormat);
        for (size_t i = 0; eFormat == EFormat::Address && i < vValues.size(); ++i)
        {
            vValues[i] = debugger.NameAddress(uint64_t(vWords[2 * i + 1]) << 32 | vWords[2 * i]);
        }
        answer["value"] = FormatTuple(vValues);
        answer["active"] = debugger.GetActive().pActive[debugger.GetFocus()] != 0;
        return answer;
    }
    expression.SetFloat(eFormat == EFormat::Float);
    expression.Bind(debugger);
    answer["value"] = FormatValue(expression.Read(debugger.GetFocus()), eFormat,
                                  [&](uint64_t nAddress) { return debugger.NameAddress(nAddress); });
    if (expression.IsPlace())
    {
        answer["type"] = expression.GetType()->strName;
        answer["active"] = debugger.IsAtEntry() || debugger.GetActive().pActive[debugger.GetFocus()] != 0;
    }
    return answer;
}

json DoPrint(CCommandContext& context)
{
    const std::vector<std::string> vExpressions = SplitAtCommas(context.GetText("an expression"));
    json prints = json::array();
    for (const std::string& strExpression : vExpressions)
    {
        prints.push_back(PrintExpression(context.GetDebugger(), context.GetFormat(), strExpression));
    }
    return prints.size() == 1 ? prints[0] : json{{"view", "prints"}, {"prints", prints}};
}

json DoDisplay(CCommandContext& context)
{
    const std::vector<std::string> vExpressions = SplitAtCommas(context.GetText("an expression"));
    for (const std::string& strExpression : vExpressions)
    {
        const CExpression valid(strExpression, &context.GetDebugger());
    }
    ReadFormat(context.GetFormat());
    json prints = json::array();
    for (const std::string& strExpression : vExpressions)
    {
        const unsigned int nId = context.GetInterpreter().MakeDisplayId();
        context.GetInterpreter().GetDisplays().push_back({nId, context.GetFormat(), strExpression});
        json answer = {{"view", "display"}, {"display", nId}, {"expression", strExpression}};
        try
        {
            answer = PrintExpression(context.GetDebugger(), context.GetFormat(), strExpression);
            answer["display"] = nId;
        }
        catch (const CCommandError&)
        {
            // It may have a value at another stop.
        }
        prints.push_back(answer);
    }
    return prints.size() == 1 ? prints[0] : json{{"view", "prints"}, {"prints", prints}};
}

json DoUndisplay(CCommandContext& context)
{
    std::vector<SDisplay>& vDisplays = context.GetInterpreter().GetDisplays();
    if (context.GetArguments().empty())
    {
        vDisplays.clear();
        return nullptr;
    }
    const uint64_t nId = ReadNumber(context.GetArguments());
    const auto it =
        std::find_if(vDisplays.begin(), vDisplays.end(), [&](const SDisplay& display) { return display.nId == nId; });
    if (it == vDisplays.end())
    {
        throw CCommandError("there is no display " + std::to_string(nId));
    }
    vDisplays.erase(it);
    return nullptr;
}

json DoInfoDisplay(CCommandContext& context)
{
    json list = json::array();
    for (const SDisplay& display : context.GetInterpreter().GetDisplays())
    {
        list.push_back({{"display", display.nId}, {"expression", display.strExpression}});
    }
    return {{"view", "displays"}, {"displays", list}};
}

json DoInfoRegisters(CCommandContext& context)
{
    CDebugger& debugger = context.GetDebugger();
    debugger.RequireLive();
    const EFormat eFormat = ChooseFormat(debugger, context.GetFormat());
    std::vector<std::string> vNames = context.GetWords();
    const bool bAll = vNames.empty();
    if (bAll)
    {
        vNames = debugger.GetActiveRegisters();
    }
    std::sort(vNames.begin(), vNames.end(),
              [](const std::string& strLeft, const std::string& strRight)
              {
                  // r2 stands before r10
                  return std::make_pair(strLeft.size(), strLeft) < std::make_pair(strRight.size(), strRight);
              });
    json registers = json::array();
    for (const std::string& strName : vNames)
    {
        const SOperand operand = ReadOperand(strName);
        if (bAll && operand.strRegister.compare(0, 3, "mem") == 0)
        {
            continue; // represents stores to memory, and has no values
        }
        registers.push_back(
            {{"name", operand.ToString()}, {"value", FormatTuple(FormatWords(ReadWords(debugger, operand), eFormat))}});
    }
    return {{"view", "registers"},
            {"item", debugger.GetFocus()},
            {"active", debugger.GetActive().pActive[debugger.GetFocus()] != 0},
            {"registers", registers}};
}

json DoInfoMemory(CCommandContext& context)
{
    CDebugger& debugger = context.GetDebugger();
    const bool bAddresses = !context.GetFormat().empty();
    if (bAddresses && ReadFormat(context.GetFormat()) != EFormat::Hex)
    {
        throw CCommandError("info memory/x shows addresses; there is no other format");
    }
    json buffers = json::array();
    const std::vector<SArgument>& vArguments = debugger.GetLaunch().GetFile().vArguments;
    for (size_t i = 0; i < debugger.GetArguments().size(); ++i)
    {
        const SKernelArgument& argument = debugger.GetArguments()[i];
        if (!argument.IsGlobal() || i >= vArguments.size())
        {
            continue;
        }
        const SArgument& given = debugger.GetGiven(i);
        json buffer = {{"argument", i},
                       {"name", argument.strName},
                       {"type", argument.strType},
                       {"resource", argument.nResource},
                       {"bytes", given.vContents.size()}};
        if (bAddresses && !given.vContents.empty())
        {
            buffer["address"] = debugger.FindAddress(i);
        }
        buffers.push_back(buffer);
    }
    return {{"view", "memory"}, {"buffers", buffers}};
}

json DoInfoKernel(CCommandContext& context)
{
    CDebugger& debugger = context.GetDebugger();
    json arguments = json::array();
    for (const SKernelArgument& argument : debugger.GetArguments())
    {
        json entry = {{"kind", argument.strKind}, {"name", argument.strName}, {"type", argument.strType}};
        if (argument.strKind != "value")
        {
            entry["resource"] = argument.nResource;
            entry["access"] = argument.strAccess;
        }
        arguments.push_back(entry);
    }
    json functions = json::array();
    for (const CCodeMap::SFunction& function : debugger.GetCode().GetFunctions())
    {
        functions.push_back({{"label", function.nLabel},
                             {"name", function.strName},
                             {"macro", function.bMacro},
                             {"first", function.nHead},
                             {"last", function.nEnd}});
    }
    return {{"view", "kernel"},
            {"kernel", debugger.GetLaunch().GetFile().strKernel},
            {"lines", debugger.GetListing().GetLineCount()},
            {"entry", debugger.GetCode().GetFirstStop()},
            {"arguments", arguments},
            {"functions", functions}};
}

json DoInfoDispatch(CCommandContext& context)
{
    CDebugger& debugger = context.GetDebugger();
    const SLaunchFile& file = debugger.GetLaunch().GetFile();
    json answer = {{"view", "dispatch"},
                   {"device", debugger.GetLaunch().GetDeviceName()},
                   {"dimensions", file.nDimensions},
                   {"items", debugger.GetExtent().Count()},
                   {"live", debugger.IsLive()},
                   {"runs", debugger.GetRuns()}};
    for (unsigned int i = 0; i < file.nDimensions; ++i)
    {
        answer["global"].push_back(file.nGlobalSize[i]);
        answer["local"].push_back(file.bHasLocalSize ? json(file.nLocalSize[i]) : json(nullptr));
        answer["offset"].push_back(file.nGlobalOffset[i]);
    }
    if (debugger.IsLive())
    {
        answer["line"] = debugger.GetLine();
        answer["count"] = debugger.CountActive();
    }
    return answer;
}

json DoInfoFaults(CCommandContext& context)
{
    context.AllowNone();
    const SFaults& faults = context.GetDebugger().GetFaults().GetAll();
    return {{"view", "faults"}, {"faults", DescribeFaults(faults, faults.vShown.size())}};
}

} // namespace KestrelTool
