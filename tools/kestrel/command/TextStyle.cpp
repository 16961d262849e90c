#include "tools/kestrel/command/TextStyle.h"

#include <nlohmann/json.hpp>

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <sstream>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

const char* const s_pszHere = "\x1b[1m";     ///< the next line to execute
const char* const s_pszChanged = "\x1b[33m"; ///< a value that has changed
const char* const s_pszActive = "\x1b[32m";  ///< active lanes

std::string ReadVariable(const char* pszName)
{
    const char* const pszValue = std::getenv(pszName);
    return pszValue != nullptr ? pszValue : "";
}

/// Counts all bytes except UTF-8 continuation bytes.
size_t CountColumns(const std::string& strText)
{
    return static_cast<size_t>(std::count_if(strText.begin(), strText.end(),
                                             [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

void WrapLine(const std::string& strLine, size_t nWidth, std::string& strWrapped)
{
    const size_t nIndent = std::min({strLine.find_first_not_of(' '), strLine.size(), nWidth / 2});
    std::string strRow = strLine.substr(0, nIndent);
    bool bWord = false;
    for (size_t n = nIndent; n < strLine.size();)
    {
        const size_t nWord = std::min(strLine.find_first_not_of(' ', n), strLine.size());
        const size_t nEnd = std::min(strLine.find(' ', nWord), strLine.size());
        const std::string strNext = strLine.substr(n, nEnd - n); // includes the blanks before it
        if (bWord && CountColumns(strRow) + CountColumns(strNext) > nWidth)
        {
            strWrapped += strRow + "\n";
            strRow = std::string(nIndent, ' ') + strLine.substr(nWord, nEnd - nWord);
        }
        else
        {
            strRow += strNext;
        }
        bWord = true;
        n = nEnd;
    }
    strWrapped += strRow;
}

} // namespace

CTextStyle CTextStyle::Of(const std::ostream& output)
{
    const bool bTerminal = &output == &std::cout && isatty(STDOUT_FILENO) != 0;
    const std::string strTerminal = ReadVariable("TERM");
    const bool bColour = bTerminal && ReadVariable("NO_COLOR").empty() && !strTerminal.empty() && strTerminal != "dumb";
    struct winsize size = {};
    const bool bSize = bTerminal && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0;
    return CTextStyle(bColour, bSize ? size.ws_col : 0);
}

bool NeedsAsciiPictures()
{
    const std::string strAll = ReadVariable("LC_ALL");
    const std::string strType = ReadVariable("LC_CTYPE");
    const std::string strLanguage = !strAll.empty() ? strAll : !strType.empty() ? strType : ReadVariable("LANG");
    const bool bUnicode =
        strLanguage.find("UTF-8") != std::string::npos || strLanguage.find("utf8") != std::string::npos;
    return isatty(STDOUT_FILENO) != 0 && !bUnicode;
}

std::string CTextStyle::Wrap(const std::string& strText, size_t nWidth)
{
    std::string strWrapped;
    std::istringstream stream(strText);
    for (std::string strLine; std::getline(stream, strLine);)
    {
        if (nWidth == 0 || CountColumns(strLine) <= nWidth)
        {
            strWrapped += strLine;
        }
        else
        {
            WrapLine(strLine, nWidth, strWrapped);
        }
        strWrapped += stream.eof() ? "" : "\n";
    }
    return strWrapped;
}

/// A value that is shown for the first time hasn't changed.
bool CTextStyle::HasChanged(const std::string& strName, const std::string& strValue)
{
    std::string& strShown = m_mapShown.insert({strName, strValue}).first->second;
    const bool bChanged = strShown != strValue;
    strShown = strValue;
    return bChanged;
}

std::vector<SPaintedText> CTextStyle::Paint(const json& answer, const std::string& strText)
{
    const std::string strWrapped = Wrap(strText, m_nWidth);
    if (!m_bColour)
    {
        return {{strWrapped}};
    }
    const std::string strView = answer.value("view", "");
    const bool bValues = strView == "variables" || answer.value("event", "") == "display";
    std::vector<SPaintedText> vPainted;
    std::istringstream stream(strWrapped);
    for (std::string strLine; std::getline(stream, strLine);)
    {
        const std::string strEnd = stream.eof() ? "" : "\n";
        const size_t nLabel = 9; // columns before a picture's rows
        const size_t nArrow = strView == "diff" ? strLine.find(" -> ") : std::string::npos;
        const size_t nEqual = bValues ? strLine.find(" = ") : std::string::npos;
        const bool bRow = strView == "mask" && strLine.size() > nLabel && strLine[nLabel - 1] == ' ' &&
                          strLine.find_first_not_of(' ') < nLabel - 1;
        size_t nPlain = 0;
        const char* pszColour = "";
        if (strLine.compare(0, 2, "=>") == 0)
        {
            pszColour = s_pszHere;
        }
        else if (nArrow != std::string::npos)
        {
            nPlain = nArrow + 4;
            pszColour = s_pszChanged;
        }
        else if (nEqual != std::string::npos && HasChanged(strLine.substr(0, nEqual), strLine.substr(nEqual)))
        {
            nPlain = nEqual + 3;
            pszColour = s_pszChanged;
        }
        else if (bRow)
        {
            nPlain = nLabel;
            pszColour = s_pszActive;
        }
        vPainted.push_back({strLine.substr(0, nPlain)});
        vPainted.push_back({strLine.substr(nPlain), pszColour});
        vPainted.push_back({strEnd});
    }
    return vPainted;
}

} // namespace KestrelTool
