#include "tools/kestrel/command/Commands.h"
#include "tools/kestrel/debug/CommandError.h"
#include "tools/kestrel/debug/SourceLines.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <sstream>

namespace KestrelTool
{

namespace
{

const size_t s_nDefaultWidth = 80;
const size_t s_nDefaultHeight = 24;
const size_t s_nLabelWidth = 10; ///< in front of a picture's rows
const size_t s_nOtherRows = 4;   ///< around a picture

struct winsize GetTerminalSize()
{
    struct winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0)
    {
        size = {};
    }
    return size;
}

} // namespace

std::vector<std::string> CCommandContext::GetWords() const
{
    std::istringstream stream(m_Line.strArguments);
    std::vector<std::string> vWords;
    for (std::string strWord; stream >> strWord;)
    {
        vWords.push_back(strWord);
    }
    return vWords;
}

size_t CCommandContext::GetCount(size_t nDefault) const
{
    if (GetArguments().empty())
    {
        return nDefault;
    }
    const uint64_t nCount = ReadNumber(GetArguments());
    if (nCount == 0)
    {
        throw CCommandError("how many times? At least 1");
    }
    return nCount;
}

std::string CCommandContext::GetWord(const char* pszWhat) const
{
    const std::vector<std::string> vWords = GetWords();
    if (vWords.size() != 1)
    {
        throw CCommandError(std::string(m_Line.pCommand->pszName) + " takes " + pszWhat);
    }
    return vWords.front();
}

const std::string& CCommandContext::GetText(const char* pszWhat) const
{
    if (GetArguments().empty())
    {
        throw CCommandError(std::string(m_Line.pCommand->pszName) + " takes " + pszWhat);
    }
    return GetArguments();
}

bool CCommandContext::TakeAll(std::string& strFormat) const
{
    const size_t nPos = strFormat.find('a');
    if (nPos == std::string::npos)
    {
        return false;
    }
    strFormat.erase(nPos, 1);
    return true;
}

void CCommandContext::AllowNone() const
{
    if (!GetArguments().empty())
    {
        throw CCommandError(std::string(m_Line.pCommand->pszName) + " takes nothing behind it");
    }
}

uint64_t ReadNumber(const std::string& strText)
{
    char* pszEnd = nullptr;
    errno = 0;
    const bool bStartsWell = !strText.empty() && std::isdigit(static_cast<unsigned char>(strText[0])) != 0;
    const uint64_t nValue = std::strtoull(strText.c_str(), &pszEnd, 0);
    if (!bStartsWell || *pszEnd != '\0')
    {
        throw CCommandError("\"" + strText + "\" is no number");
    }
    if (errno == ERANGE)
    {
        throw CCommandError("\"" + strText + "\" is more than 64 bits hold");
    }
    return nValue;
}

unsigned int ReadShortNumber(const std::string& strText)
{
    const uint64_t nValue = ReadNumber(strText);
    if (nValue > std::numeric_limits<unsigned int>::max())
    {
        throw CCommandError("\"" + strText + "\" is more than 32 bits hold");
    }
    return static_cast<unsigned int>(nValue);
}

unsigned int ReadPlace(CDebugger& debugger, const std::string& strText)
{
    const CListing& listing = debugger.GetListing();
    const CCodeMap& code = debugger.GetCode();
    if (strText == "entry" || strText == debugger.GetLaunch().GetFile().strKernel)
    {
        return code.GetFirstStop();
    }
    if (const std::optional<SSourceLine> line = ReadSourceLine(strText))
    {
        const unsigned int nFound = FindSourceLine(listing, code.FindFunction(code.GetFirstStop()), *line);
        if (nFound == CListing::NoLine)
        {
            throw CCommandError("the kernel has nothing of " + strText + " or behind it");
        }
        return nFound;
    }
    const std::string strLabelWord = "func ";
    const bool bLabel = strText.compare(0, strLabelWord.size(), strLabelWord) == 0;
    const bool bRelative = !strText.empty() && (strText[0] == '+' || strText[0] == '-');
    if (!bLabel && !bRelative && !std::isdigit(static_cast<unsigned char>(strText[0])))
    {
        const CCodeMap::SFunction* pFunction = code.FindName(strText);
        if (pFunction == nullptr)
        {
            throw CCommandError("there is no function \"" + strText + "\"");
        }
        return pFunction->nEntry;
    }
    if (bLabel)
    {
        const unsigned int nLabel = ReadShortNumber(strText.substr(strLabelWord.size()));
        const CCodeMap::SFunction* pFunction = code.FindLabel(nLabel);
        if (pFunction == nullptr)
        {
            throw CCommandError("there is no function " + std::to_string(nLabel));
        }
        return pFunction->nHead < code.GetFirstStop() && pFunction->nEnd > code.GetFirstStop() ? code.GetFirstStop()
                                                                                               : pFunction->nEntry;
    }
    uint64_t nLine = ReadNumber(bRelative ? strText.substr(1) : strText);
    if (bRelative)
    {
        debugger.RequireLive();
        const bool bOutside = strText[0] == '+' ? nLine > listing.GetLineCount() : nLine > debugger.GetLine();
        if (bOutside)
        {
            throw CCommandError("there is no line " + strText + " from here");
        }
        nLine = strText[0] == '+' ? debugger.GetLine() + nLine : debugger.GetLine() - nLine;
    }
    if (nLine >= listing.GetLineCount())
    {
        throw CCommandError("there is no line " + std::to_string(nLine) + "; the kernel's text has lines 0 to " +
                            std::to_string(listing.GetLineCount() - 1));
    }
    const unsigned int nPlace = static_cast<unsigned int>(nLine);
    const unsigned int nTaken = listing.IsInstruction(nPlace) ? nPlace : listing.GetNextInstruction(nPlace);
    if (nTaken == CListing::NoLine)
    {
        throw CCommandError("there is no instruction at line " + strText + " or behind it");
    }
    return nTaken;
}

size_t GetPictureWidth(const SSettings& settings)
{
    const size_t nTerminal = GetTerminalSize().ws_col != 0 ? GetTerminalSize().ws_col : s_nDefaultWidth;
    return settings.nWidth != 0 ? settings.nWidth : nTerminal > s_nLabelWidth ? nTerminal - s_nLabelWidth : 1;
}

size_t GetPictureHeight(const SSettings& settings)
{
    const size_t nTerminal = GetTerminalSize().ws_row != 0 ? GetTerminalSize().ws_row : s_nDefaultHeight;
    return settings.nHeight != 0 ? settings.nHeight : nTerminal > s_nOtherRows ? nTerminal - s_nOtherRows : 1;
}

} // namespace KestrelTool
