#include "tools/kestrel/command/CommandTable.h"
#include "tools/session/debug/CommandError.h"

#include <algorithm>
#include <cctype>
#include <sstream>

namespace KestrelTool
{

namespace
{

bool StartsWith(const std::string& strText, const std::string& strBeginning)
{
    return strText.compare(0, strBeginning.size(), strBeginning) == 0;
}

std::vector<std::string> SplitWords(const std::string& strText)
{
    std::istringstream stream(strText);
    std::vector<std::string> vWords;
    for (std::string strWord; stream >> strWord;)
    {
        vWords.push_back(strWord);
    }
    return vWords;
}

std::string FirstOfName(const std::string& strText)
{
    return strText.substr(0, strText.find(' '));
}

std::string SecondWord(const std::string& strText)
{
    const size_t nBlank = strText.find(' ');
    return nBlank == std::string::npos ? std::string() : strText.substr(nBlank + 1);
}

bool HasAlias(const SCommand& command, const std::string& strWord)
{
    for (const std::string& strAlias : SplitWords(command.pszAliases))
    {
        if (strAlias == strWord)
        {
            return true;
        }
    }
    return false;
}

/// The matching first words of commands with two words, such as "info".
std::vector<std::string> FindFamilies(const std::string& strBeginning)
{
    std::vector<std::string> vFamilies;
    for (size_t i = 0; i < g_nCommands; ++i)
    {
        const std::string strName = g_Commands[i].pszName;
        const std::string strFamily = FirstOfName(strName);
        const bool bNew = vFamilies.empty() || vFamilies.back() != strFamily;
        if (strFamily != strName && StartsWith(strFamily, strBeginning) && bNew)
        {
            vFamilies.push_back(strFamily);
        }
    }
    return vFamilies;
}

/// The commands that a word may mean: the one with this name or abbreviation, else all that begin with it.
std::vector<const SCommand*> FindMatches(const std::string& strFamily, const std::string& strWord)
{
    std::vector<const SCommand*> vMatches;
    for (size_t i = 0; i < g_nCommands; ++i)
    {
        const std::string strName = g_Commands[i].pszName;
        const bool bTwoWords = strName.find(' ') != std::string::npos;
        if (bTwoWords == strFamily.empty() || (bTwoWords && FirstOfName(strName) != strFamily))
        {
            continue;
        }
        const std::string strOwn = bTwoWords ? SecondWord(strName) : strName;
        if (strOwn == strWord || HasAlias(g_Commands[i], strWord))
        {
            return {&g_Commands[i]};
        }
        if (StartsWith(strOwn, strWord))
        {
            vMatches.push_back(&g_Commands[i]);
        }
    }
    return vMatches;
}

std::string ListNames(const std::vector<const SCommand*>& vMatches)
{
    std::string strNames;
    for (const SCommand* pCommand : vMatches)
    {
        strNames += (strNames.empty() ? "" : ", ") + std::string(pCommand->pszName);
    }
    return strNames;
}

const SCommand* Choose(const std::vector<const SCommand*>& vMatches, const std::string& strWords)
{
    if (vMatches.empty())
    {
        throw CCommandError("there is no command \"" + strWords + "\"; help lists them");
    }
    if (vMatches.size() > 1)
    {
        throw CCommandError("\"" + strWords + "\" may be " + ListNames(vMatches));
    }
    return vMatches.front();
}

/// Removes a word of letters and hyphens from the start of a text, and gives it.
std::string TakeWord(std::string& strText)
{
    size_t nEnd = 0;
    while (nEnd < strText.size() && (std::isalpha(static_cast<unsigned char>(strText[nEnd])) || strText[nEnd] == '-'))
    {
        ++nEnd;
    }
    std::string strWord = strText.substr(0, nEnd);
    strText.erase(0, nEnd);
    return strWord;
}

void TrimFront(std::string& strText)
{
    strText.erase(0, std::min(strText.find_first_not_of(" \t"), strText.size()));
}

} // namespace

std::string TakeToken(std::string& strLine)
{
    const size_t nEnd = std::min(strLine.find_first_not_of("0123456789"), strLine.size());
    std::string strToken = strLine.substr(0, nEnd);
    strLine.erase(0, nEnd);
    TrimFront(strLine);
    return strToken;
}

SCommandLine ParseCommandLine(const std::string& strLine)
{
    SCommandLine line;
    std::string strRest = strLine;
    TrimFront(strRest);
    const std::string strWord = TakeWord(strRest);
    if (strWord.empty())
    {
        throw CCommandError("\"" + strLine + "\" is no command; help lists them");
    }
    const std::vector<const SCommand*> vMatches = FindMatches(std::string(), strWord);
    const std::vector<std::string> vFamilies = FindFamilies(strWord);
    const bool bFamily = vFamilies.size() == 1 && (vMatches.empty() || strWord == "i" || vFamilies[0] == strWord);
    if (!bFamily)
    {
        line.pCommand = Choose(vMatches, strWord);
    }
    else
    {
        TrimFront(strRest);
        const std::string strSecond = TakeWord(strRest);
        if (strSecond.empty())
        {
            throw CCommandError(vFamilies[0] + " what? There are " + ListNames(FindMatches(vFamilies[0], "")));
        }
        line.pCommand = Choose(FindMatches(vFamilies[0], strSecond), vFamilies[0] + " " + strSecond);
    }
    if (!strRest.empty() && strRest[0] == '/')
    {
        const size_t nEnd = std::min(strRest.find_first_of(" \t"), strRest.size());
        line.strFormat = strRest.substr(1, nEnd - 1);
        strRest.erase(0, nEnd);
    }
    TrimFront(strRest);
    line.strArguments = strRest;
    return line;
}

const SCommand* FindCommand(const std::string& strWords)
{
    try
    {
        return ParseCommandLine(strWords).pCommand;
    }
    catch (const CCommandError&)
    {
        return nullptr;
    }
}

std::vector<std::string> CompleteCommand(const std::string& strBeginning)
{
    std::vector<std::string> vNames;
    const bool bSecond = strBeginning.find(' ') != std::string::npos;
    for (size_t i = 0; i < g_nCommands; ++i)
    {
        const std::string strName = bSecond ? g_Commands[i].pszName : FirstOfName(g_Commands[i].pszName);
        if (StartsWith(strName, strBeginning) && (vNames.empty() || vNames.back() != strName))
        {
            vNames.push_back(strName);
        }
    }
    return vNames;
}

} // namespace KestrelTool
