// User-defined commands, and commands that aren't about kernels.

#include "tools/kestrel/command/Commands.h"
#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/SourceLines.h"
#include "tools/session/program/ProgramSession.h"
#include "tools/source/SourcePlaces.h"

#include <nlohmann/json.hpp>

#include <sys/wait.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

json MakeText(const std::string& strText)
{
    return {{"view", "text"}, {"text", strText}};
}

std::string ToLower(std::string strText)
{
    std::transform(strText.begin(), strText.end(), strText.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return strText;
}

/// Checks that a name may be defined by the user.
/// \throws CCommandError for a word that has a meaning already
std::string RequireFreeName(const std::string& strName)
{
    const bool bWord = !strName.empty() && std::isalpha(static_cast<unsigned char>(strName[0])) != 0 &&
                       std::all_of(strName.begin(), strName.end(),
                                   [](unsigned char c) { return std::isalnum(c) != 0 || c == '-' || c == '_'; });
    if (!bWord)
    {
        throw CCommandError("\"" + strName + "\" is no name: letters, digits, - and _");
    }
    for (size_t i = 0; i < g_nCommands; ++i)
    {
        const std::string strOwn = g_Commands[i].pszName;
        const bool bTwoWords = strOwn.find(' ') != std::string::npos;
        const std::string strAliases = " " + std::string(bTwoWords ? "" : g_Commands[i].pszAliases) + " ";
        if (strOwn.substr(0, strOwn.find(' ')) == strName || strAliases.find(" " + strName + " ") != std::string::npos)
        {
            throw CCommandError(strName + " is a command already");
        }
    }
    return strName;
}

/// Writes a breakpoint's place so that it can be read back.
std::string SpellPlace(CDebugger* pDebugger, const SBreakpoint& breakpoint)
{
    if (breakpoint.place && breakpoint.place->eKind == SLaunchPlace::Launch)
    {
        const SLaunchPlace& place = *breakpoint.place;
        return "launch" + (place.strKernel.empty() ? "" : " " + place.strKernel) +
               (place.nNumber != 0 ? " " + std::to_string(place.nNumber) : "");
    }
    if (breakpoint.place && breakpoint.place->eKind != SLaunchPlace::Line)
    {
        const bool bKernel = breakpoint.place->eKind == SLaunchPlace::Kernel;
        return bKernel ? breakpoint.place->strKernel : NamePlace(*breakpoint.place);
    }
    if (pDebugger == nullptr || breakpoint.lines.empty())
    {
        return std::string();
    }
    const unsigned int nLine = *breakpoint.lines.begin();
    const std::string strPlace = ShortenPlace(pDebugger->GetListing().GetPlace(nLine));
    // An instruction in the middle of a source line is written as its IL line.
    const bool bSource = !strPlace.empty() && ReadPlace(*pDebugger, strPlace) == breakpoint.lines;
    return bSource ? strPlace : "*" + std::to_string(nLine);
}

} // namespace

json DoDefine(CCommandContext& context)
{
    const std::string strName = RequireFreeName(context.GetWord("a name"));
    context.GetInterpreter().GetUserCommands()[strName] = context.GetInterpreter().ReadBlock();
    return nullptr;
}

json DoAlias(CCommandContext& context)
{
    std::map<std::string, std::string>& mapAliases = context.GetInterpreter().GetAliases();
    const std::string& strText = context.GetArguments();
    if (strText.empty())
    {
        std::string strList;
        for (const auto& [strName, strMeaning] : mapAliases)
        {
            strList += strList.empty() ? "" : "\n";
            strList += strName;
            strList += " = ";
            strList += strMeaning;
        }
        return MakeText(strList.empty() ? "no aliases" : strList);
    }
    const size_t nEqual = strText.find('=');
    const size_t nMeaning = nEqual == std::string::npos ? nEqual : strText.find_first_not_of(" \t", nEqual + 1);
    if (nMeaning == std::string::npos)
    {
        throw CCommandError("alias takes a name, = and a command");
    }
    const std::string strName = RequireFreeName(strText.substr(0, strText.find_first_of(" \t=")));
    const std::string strMeaning = strText.substr(nMeaning);
    if (context.GetInterpreter().GetUserCommands().count(strMeaning.substr(0, strMeaning.find(' '))) == 0)
    {
        ParseCommandLine(strMeaning);
    }
    mapAliases[strName] = strMeaning;
    return nullptr;
}

json DoApropos(CCommandContext& context)
{
    const std::string strWanted = ToLower(context.GetText("a word"));
    std::string strFound;
    for (size_t i = 0; i < g_nCommands; ++i)
    {
        const SCommand& command = g_Commands[i];
        const std::string strAll =
            ToLower(std::string(command.pszName) + "\n" + command.pszSummary + "\n" + command.pszText);
        if (strAll.find(strWanted) != std::string::npos)
        {
            strFound += (strFound.empty() ? "" : "\n") + std::string(command.pszName) + " -- " + command.pszSummary;
        }
    }
    return MakeText(strFound.empty() ? "nothing is said of " + context.GetArguments() : strFound);
}

json DoShell(CCommandContext& context)
{
    const std::string& strCommand = context.GetText("a command of the shell");
    FILE* const pPipe = popen((strCommand + "\n").c_str(), "r");
    if (pPipe == nullptr)
    {
        throw CCommandError("the shell can't be started");
    }
    std::string strText;
    char buffer[4096];
    for (size_t nRead = fread(buffer, 1, sizeof(buffer), pPipe); nRead > 0;
         nRead = fread(buffer, 1, sizeof(buffer), pPipe))
    {
        strText.append(buffer, nRead);
    }
    const int nStatus = pclose(pPipe);
    strText.erase(strText.find_last_not_of('\n') + 1);
    if (nStatus != 0)
    {
        strText += (strText.empty() ? "" : "\n") + std::string("exit ") +
                   std::to_string(WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : nStatus);
    }
    return strText.empty() ? json(nullptr) : MakeText(strText);
}

json DoPwd(CCommandContext& context)
{
    context.AllowNone();
    std::error_code error;
    return MakeText(std::filesystem::current_path(error).string());
}

json DoCd(CCommandContext& context)
{
    const char* const pszHome = std::getenv("HOME");
    const std::string strFolder =
        context.GetArguments().empty() && pszHome != nullptr ? pszHome : context.GetText("a folder");
    std::error_code error;
    std::filesystem::current_path(strFolder, error);
    if (error)
    {
        throw CCommandError(strFolder + ": " + error.message());
    }
    return MakeText(std::filesystem::current_path(error).string());
}

json DoSaveBreakpoints(CCommandContext& context)
{
    const std::string strPath = context.GetWord("a file");
    std::ofstream file(strPath);
    size_t nSaved = 0;
    for (const SBreakpoint& breakpoint : context.GetInterpreter().GetBreakpoints().GetAll())
    {
        const std::string strPlace = SpellPlace(context.GetInterpreter().FindDebugger(), breakpoint);
        if (strPlace.empty())
        {
            continue; // a line of a kernel other than the current one
        }
        const bool bLaunch = breakpoint.place && breakpoint.place->eKind == SLaunchPlace::Launch;
        const char* const pszCommand = bLaunch ? "catch " : breakpoint.bTemporary ? "tbreak " : "break ";
        const std::string strWatch = breakpoint.pWatch   ? breakpoint.pWatch->strText
                                     : breakpoint.pFault ? breakpoint.pFault->strText
                                                         : std::string();
        // A watch's condition can't be written in one line.
        const bool bCondition = !breakpoint.strCondition.empty() && strWatch.empty();
        file << (strWatch.empty() ? pszCommand + strPlace : strWatch);
        file << (bCondition ? " if " + breakpoint.strCondition : "") << "\n";
        if (!breakpoint.vCommands.empty())
        {
            file << "commands\n";
            std::for_each(breakpoint.vCommands.begin(), breakpoint.vCommands.end(),
                          [&](const std::string& strCommand) { file << "  " << strCommand << "\n"; });
            file << "end\n";
        }
        ++nSaved;
    }
    file.close();
    if (!file)
    {
        throw CCommandError(strPath + " can't be written");
    }
    return MakeText(std::to_string(nSaved) + (nSaved == 1 ? " breakpoint in " : " breakpoints in ") + strPath +
                    "; source reads them again");
}

} // namespace KestrelTool
