// Parses places in a kernel's code.

#include "tools/kestrel/command/Commands.h"
#include "tools/session/debug/CommandError.h"
#include "tools/source/SourcePlaces.h"

namespace KestrelTool
{

namespace
{

const std::string s_strLabelWord = "func ";

bool IsRelative(const std::string& strText)
{
    return !strText.empty() && (strText[0] == '+' || strText[0] == '-');
}

bool IsNumber(const std::string& strText)
{
    return !strText.empty() && std::isdigit(static_cast<unsigned char>(strText[0])) != 0;
}

const CCodeMap::SFunction* KernelFunction(CDebugger& debugger)
{
    return debugger.GetCode().FindFunction(debugger.GetCode().GetFirstStop());
}

std::set<unsigned int> ReadFunction(CDebugger& debugger, const std::string& strName)
{
    const CCodeMap::SFunction* pFunction = debugger.GetCode().FindName(strName);
    if (pFunction != nullptr)
    {
        return {pFunction->nEntry};
    }
    std::set<unsigned int> lines = FindSourceFunction(debugger.GetListing(), debugger.GetDebugInfo(), strName);
    if (lines.empty())
    {
        throw CCommandError("there is no function \"" + strName + "\"");
    }
    return lines;
}

unsigned int ReadLabel(CDebugger& debugger, const std::string& strText)
{
    const CCodeMap& code = debugger.GetCode();
    const unsigned int nLabel = ReadShortNumber(strText.substr(s_strLabelWord.size()));
    const CCodeMap::SFunction* pFunction = code.FindLabel(nLabel);
    if (pFunction == nullptr)
    {
        throw CCommandError("there is no function " + std::to_string(nLabel));
    }
    const bool bKernel = pFunction->nHead < code.GetFirstStop() && pFunction->nEnd > code.GetFirstStop();
    return bKernel ? code.GetFirstStop() : pFunction->nEntry;
}

/// An absolute line, or one relative to the current line.
uint64_t ReadLine(const std::string& strText, uint64_t nHere, uint64_t nEnd)
{
    if (!IsRelative(strText))
    {
        return ReadNumber(strText);
    }
    const uint64_t nBy = ReadNumber(strText.substr(1));
    if (strText[0] == '+' ? nBy > nEnd : nBy > nHere)
    {
        throw CCommandError("there is no line " + strText + " from here");
    }
    return strText[0] == '+' ? nHere + nBy : nHere - nBy;
}

unsigned int ReadLineOfIL(CDebugger& debugger, const std::string& strText)
{
    const CListing& listing = debugger.GetListing();
    if (IsRelative(strText))
    {
        debugger.RequireLive();
    }
    const uint64_t nLine = ReadLine(strText, debugger.IsLive() ? debugger.GetLine() : 0, listing.GetLineCount());
    if (nLine >= listing.GetLineCount())
    {
        throw CCommandError("there is no line " + std::to_string(nLine) + "; the kernel's text has lines 0 to " +
                            std::to_string(listing.GetLineCount() - 1));
    }
    const unsigned int nPlace = static_cast<unsigned int>(nLine);
    const unsigned int nTaken = listing.IsInstruction(nPlace) ? nPlace : listing.GetNextInstruction(nPlace);
    if (nTaken == CListing::NoLine)
    {
        throw CCommandError("there is no instruction at line " + strText + " or after it");
    }
    return nTaken;
}

} // namespace

std::optional<SSourceLine> ReadSourcePlace(CDebugger& debugger, const std::string& strText)
{
    if (std::optional<SSourceLine> line = ReadSourceLine(strText))
    {
        return line;
    }
    std::optional<SSourceLine> here = debugger.HasSource() ? debugger.GetSourceLine() : std::nullopt;
    if (!here || (!IsNumber(strText) && !IsRelative(strText)))
    {
        return std::nullopt;
    }
    if (IsRelative(strText))
    {
        debugger.RequireLive();
    }
    const uint64_t nLine = ReadLine(strText, here->nLine, debugger.GetSourceText().GetLastLine(here->strFile));
    if (nLine > 0xFFFFFFFF)
    {
        throw CCommandError("there is no line " + strText);
    }
    here->nLine = static_cast<unsigned int>(nLine);
    return here;
}

std::set<unsigned int> ReadPlace(CDebugger& debugger, const std::string& strText)
{
    if (strText == "entry" || strText == debugger.GetLaunch().GetFile().strKernel)
    {
        return {debugger.GetCode().GetFirstStop()};
    }
    if (const std::optional<SSourceLine> line = ReadSourcePlace(debugger, strText))
    {
        std::set<unsigned int> lines =
            FindSourceLines(debugger.GetListing(), debugger.GetDebugInfo(), KernelFunction(debugger), *line);
        if (lines.empty())
        {
            throw CCommandError("the kernel has no code at " + ShortenPlace(line->strFile) + ":" +
                                std::to_string(line->nLine) + " or after it");
        }
        return lines;
    }
    if (strText.compare(0, 1, "*") == 0)
    {
        return {ReadLineOfIL(debugger, strText.substr(1))};
    }
    if (strText.compare(0, s_strLabelWord.size(), s_strLabelWord) == 0)
    {
        return {ReadLabel(debugger, strText)};
    }
    return IsNumber(strText) || IsRelative(strText) ? std::set<unsigned int>{ReadLineOfIL(debugger, strText)}
                                                    : ReadFunction(debugger, strText);
}

} // namespace KestrelTool
