// Commands that show the source and the kernel's text.

#include "tools/kestrel/command/Commands.h"
#include "tools/session/debug/CommandError.h"
#include "tools/source/SourcePlaces.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

/// A range of lines, including the last one.
struct SLines
{
    unsigned int nFirst = 0;
    unsigned int nLast = 0;
};

SLines Around(unsigned int nMiddle, unsigned int nLeast, size_t nSize)
{
    const unsigned int nCount = static_cast<unsigned int>(std::min<size_t>(nSize, 0x10000000));
    const unsigned int nFirst = nMiddle > nLeast + nCount / 2 ? nMiddle - nCount / 2 : nLeast;
    return {nFirst, nFirst + nCount - 1};
}

/// "FIRST,LAST"; nothing for a text without a comma.
std::optional<SLines> ReadRange(const std::string& strText)
{
    const size_t nComma = strText.find(',');
    if (nComma == std::string::npos)
    {
        return std::nullopt;
    }
    const std::string strFirst = strText.substr(0, strText.find_last_not_of(" \t", nComma - 1) + 1);
    const size_t nSecond = strText.find_first_not_of(" \t", nComma + 1);
    const SLines lines = {ReadShortNumber(nComma == 0 ? std::string() : strFirst),
                          ReadShortNumber(nSecond == std::string::npos ? std::string() : strText.substr(nSecond))};
    if (lines.nLast < lines.nFirst)
    {
        throw CCommandError("list: the last line stands in front of the first");
    }
    return lines;
}

json DescribeLine(CDebugger& debugger, unsigned int nLine)
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
    return line;
}

json ListCode(CDebugger& debugger, const SLines& lines)
{
    json list = json::array();
    for (unsigned int nLine = lines.nFirst; nLine <= lines.nLast && nLine < debugger.GetListing().GetLineCount();
         ++nLine)
    {
        list.push_back(DescribeLine(debugger, nLine));
    }
    return {{"view", "lines"}, {"lines", list}};
}

/// The lines of a file that have breakpoints.
std::set<unsigned int> FindBreakpoints(CDebugger& debugger, const std::string& strFile)
{
    std::set<unsigned int> found;
    for (const SBreakpoint& breakpoint : debugger.GetBreakpoints().GetAll())
    {
        for (const unsigned int nLine : breakpoint.lines)
        {
            const std::optional<SSourceLine> place = ReadSourceLine(debugger.GetListing().GetPlace(nLine));
            if (place && IsFile(place->strFile, strFile))
            {
                found.insert(place->nLine);
            }
        }
    }
    return found;
}

json ListSource(CDebugger& debugger, const std::string& strFile, const SLines& lines)
{
    CSourceText& text = debugger.GetSourceText();
    const unsigned int nEnd = text.GetLastLine(strFile);
    if (nEnd == 0)
    {
        throw CCommandError(ShortenPlace(strFile) + " can't be read here; disassemble shows what was made of it");
    }
    if (lines.nFirst > nEnd)
    {
        throw CCommandError(ShortenPlace(strFile) + " ends at line " + std::to_string(nEnd));
    }
    const std::set<unsigned int> breakpoints = FindBreakpoints(debugger, strFile);
    const std::optional<SSourceLine> here = debugger.IsLive() ? debugger.GetSourceLine() : std::nullopt;
    json list = json::array();
    for (unsigned int nLine = lines.nFirst; nLine <= std::min(lines.nLast, nEnd); ++nLine)
    {
        const std::string* const pText = text.FindLine(strFile, nLine);
        json line = {{"line", nLine}, {"text", pText != nullptr ? *pText : std::string()}};
        if (here && here->nLine == nLine && IsFile(here->strFile, strFile))
        {
            line["here"] = true;
        }
        if (breakpoints.count(nLine) != 0)
        {
            line["breakpoint"] = true;
        }
        list.push_back(line);
    }
    return {{"view", "lines"}, {"file", strFile}, {"lines", list}};
}

/// Lists source lines, around a place or continuing after the last list.
json DoListSource(CCommandContext& context, const SSourceLine& here)
{
    CDebugger& debugger = context.GetDebugger();
    const SSourceLine next = context.GetInterpreter().GetListNext();
    const size_t nSize = debugger.GetSettings().nListSize;
    std::string strFile = here.strFile;
    SLines lines = Around(here.nLine, 1, nSize);
    if (const std::optional<SLines> range = ReadRange(context.GetArguments()))
    {
        lines = *range;
    }
    else if (!context.GetArguments().empty())
    {
        std::optional<SSourceLine> place = ReadSourcePlace(debugger, context.GetArguments());
        place =
            place
                ? place
                : ReadSourceLine(debugger.GetListing().GetPlace(*ReadPlace(debugger, context.GetArguments()).begin()));
        if (!place)
        {
            throw CCommandError(context.GetArguments() + " has no lines of a source; disassemble shows it");
        }
        strFile = place->strFile;
        lines = Around(place->nLine, 1, nSize);
    }
    else if (next.nLine != 0 && !next.strFile.empty())
    {
        strFile = next.strFile;
        lines = {next.nLine, next.nLine + static_cast<unsigned int>(nSize) - 1};
    }
    json view = ListSource(debugger, strFile, {std::max(lines.nFirst, 1u), lines.nLast});
    context.GetInterpreter().SetListNext({strFile, lines.nLast + 1});
    return view;
}

/// Lists lines of IL in the same way.
json DoListCode(CCommandContext& context)
{
    CDebugger& debugger = context.GetDebugger();
    const SSourceLine next = context.GetInterpreter().GetListNext();
    const size_t nSize = debugger.GetSettings().nListSize;
    const unsigned int nHere = debugger.IsLive() ? debugger.GetLine() : debugger.GetCode().GetFirstStop();
    SLines lines = Around(nHere, 0, nSize);
    const std::string& strPlace = context.GetArguments();
    if (const std::optional<SLines> range = ReadRange(strPlace.compare(0, 1, "*") == 0 ? strPlace.substr(1) : strPlace))
    {
        lines = *range;
    }
    else if (!strPlace.empty())
    {
        lines = Around(*ReadPlace(debugger, strPlace).begin(), 0, nSize);
    }
    else if (next.nLine != 0 && next.strFile.empty())
    {
        lines = {next.nLine, next.nLine + static_cast<unsigned int>(nSize) - 1};
    }
    if (lines.nFirst >= debugger.GetListing().GetLineCount())
    {
        throw CCommandError("the kernel's text ends at line " +
                            std::to_string(debugger.GetListing().GetLineCount() - 1));
    }
    context.GetInterpreter().SetListNext({std::string(), lines.nLast + 1});
    return ListCode(debugger, lines);
}

/// Inserts each source line before the first instruction that comes from it.
void MixSource(CDebugger& debugger, json& lines)
{
    std::string strLast;
    for (json& line : lines)
    {
        const std::string strPlace = line.value("source", std::string());
        const std::optional<SSourceLine> place = ReadSourceLine(strPlace);
        if (place && strPlace != strLast)
        {
            const std::string* const pText = debugger.GetSourceText().FindLine(place->strFile, place->nLine);
            line["before"] = {{"line", place->nLine}, {"text", pText != nullptr ? *pText : std::string()}};
        }
        strLast = place ? strPlace : strLast;
    }
}

} // namespace

json DoList(CCommandContext& context)
{
    CDebugger& debugger = context.GetDebugger();
    const std::optional<SSourceLine> here = debugger.HasSource() ? debugger.GetSourceLine() : std::nullopt;
    const bool bCode = context.GetArguments().compare(0, 1, "*") == 0;
    json view = here && !bCode ? DoListSource(context, *here) : DoListCode(context);
    context.GetInterpreter().SetRepeat("list");
    return view;
}

json DoDisassemble(CCommandContext& context)
{
    CDebugger& debugger = context.GetDebugger();
    if (!context.GetFormat().empty() && context.GetFormat() != "s")
    {
        throw CCommandError("disassemble has no format but /s");
    }
    const unsigned int nDefault = debugger.IsLive() ? debugger.GetLine() : debugger.GetCode().GetFirstStop();
    const unsigned int nLine =
        context.GetArguments().empty() ? nDefault : *ReadPlace(debugger, context.GetArguments()).begin();
    const CCodeMap::SFunction* pFunction = debugger.GetCode().FindFunction(nLine);
    json view = pFunction != nullptr
                    ? ListCode(debugger, {pFunction->nHead, pFunction->nEnd})
                    : ListCode(debugger, {0, static_cast<unsigned int>(debugger.GetListing().GetLineCount() - 1)});
    if (context.GetFormat() == "s")
    {
        MixSource(debugger, view["lines"]);
    }
    return view;
}

} // namespace KestrelTool
