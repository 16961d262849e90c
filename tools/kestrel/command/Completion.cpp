#include "tools/kestrel/command/Prompt.h"
#include "tools/kestrel/command/PromptSettings.h"
#include "tools/session/debug/CommandError.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

namespace KestrelTool
{

namespace
{

std::string FindLastWord(const std::string& strLine, bool bPath)
{
    size_t nStart = strLine.size();
    while (nStart > 0)
    {
        const char c = strLine[nStart - 1];
        const bool bWord =
            std::isalnum(static_cast<unsigned char>(c)) || std::string("_-$[]").find(c) != std::string::npos;
        if (!bWord && !(bPath && (c == '/' || c == '.')))
        {
            break;
        }
        --nStart;
    }
    return strLine.substr(nStart);
}

std::vector<std::string> ListRegisters(CDebugger& debugger)
{
    std::vector<std::string> vNames = {"any", "all", "count(", "int(", "uint(", "float(", "long(", "double("};
    try
    {
        const std::vector<std::string> vActive = debugger.GetActiveRegisters();
        vNames.insert(vNames.end(), vActive.begin(), vActive.end());
    }
    catch (const CCommandError&)
    {
        // Not running, so no register has a value.
    }
    return vNames;
}

std::vector<std::string> ListPlaces(CDebugger& debugger)
{
    std::vector<std::string> vNames = {"entry", "if"};
    for (const CCodeMap::SFunction& function : debugger.GetCode().GetFunctions())
    {
        vNames.push_back(function.strName);
    }
    const std::vector<std::string> vRegisters = ListRegisters(debugger);
    vNames.insert(vNames.end(), vRegisters.begin(), vRegisters.end());
    return vNames;
}

std::vector<std::string> ListFiles(const std::string& strWord)
{
    const size_t nSlash = strWord.rfind('/');
    const std::string strFolder = nSlash == std::string::npos ? "" : strWord.substr(0, nSlash + 1);
    std::vector<std::string> vNames;
    std::error_code code;
    for (const auto& entry : std::filesystem::directory_iterator(strFolder.empty() ? "." : strFolder, code))
    {
        vNames.push_back(strFolder + entry.path().filename().string());
    }
    return vNames;
}

std::vector<std::string> ListChoices(CInterpreter& interpreter, ECompletion eCompletion, const std::string& strWord)
{
    std::vector<std::string> vNames;
    const bool bNeedsLaunch = eCompletion == ECompletion::Register || eCompletion == ECompletion::Place;
    if (bNeedsLaunch && interpreter.FindDebugger() == nullptr)
    {
        return vNames;
    }
    switch (eCompletion)
    {
    case ECompletion::Register:
        return ListRegisters(interpreter.GetDebugger());
    case ECompletion::Place:
        return ListPlaces(interpreter.GetDebugger());
    case ECompletion::Command:
        return CompleteCommand(strWord);
    case ECompletion::File:
        return ListFiles(strWord);
    case ECompletion::Setting:
        for (size_t i = 0; i < g_nSettings; ++i)
        {
            vNames.push_back(g_Settings[i].pszName);
        }
        return vNames;
    default:
        return vNames;
    }
}

} // namespace

SCompletion CompleteLine(CInterpreter& interpreter, const std::string& strLine)
{
    SCompletion completion;
    const size_t nStart = std::min(strLine.find_first_not_of(" \t"), strLine.size());
    const std::string strText = strLine.substr(nStart);
    if (strText.find_first_of(" \t/") == std::string::npos)
    {
        completion.strWord = strText;
        completion.vChoices = CompleteCommand(strText);
        return completion;
    }
    // The second word of a two-word name.
    completion.strWord = FindLastWord(strText, false);
    const std::string strBefore = strText.substr(0, strText.size() - completion.strWord.size());
    const std::vector<std::string> vTwoWords = CompleteCommand(strText);
    if (!vTwoWords.empty())
    {
        for (const std::string& strName : vTwoWords)
        {
            completion.vChoices.push_back(strName.substr(strBefore.size()));
        }
        return completion;
    }
    const SCommand* pCommand = FindCommand(strBefore);
    if (pCommand == nullptr)
    {
        return completion;
    }
    completion.strWord = FindLastWord(strText, pCommand->eCompletion == ECompletion::File);
    for (const std::string& strName : ListChoices(interpreter, pCommand->eCompletion, completion.strWord))
    {
        if (strName.compare(0, completion.strWord.size(), completion.strWord) == 0)
        {
            completion.vChoices.push_back(strName);
        }
    }
    std::sort(completion.vChoices.begin(), completion.vChoices.end());
    completion.vChoices.erase(std::unique(completion.vChoices.begin(), completion.vChoices.end()),
                              completion.vChoices.end());
    return completion;
}

} // namespace KestrelTool
