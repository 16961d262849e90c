#include "tools/kestrel/command/Commands.h"
#include "tools/session/debug/CommandError.h"

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
const size_t s_nLabelWidth = 10; ///< columns before a picture's rows
const size_t s_nOtherRows = 4;   ///< lines around a picture

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
        throw CCommandError(std::string(m_Line.pCommand->pszName) + " takes nothing after it");
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
