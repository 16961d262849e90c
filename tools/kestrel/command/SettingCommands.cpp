// Settings, help, command files, and quit.

#include "tools/kestrel/command/Commands.h"
#include "tools/kestrel/command/PromptSettings.h"
#include "tools/session/debug/CommandError.h"

#include <nlohmann/json.hpp>

#include <sstream>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

std::string JoinWords(const std::vector<std::string>& vWords)
{
    std::string strText;
    for (const std::string& strWord : vWords)
    {
        strText += (strText.empty() ? "" : " ") + strWord;
    }
    return strText;
}

std::vector<std::string> SplitAtBlanks(const std::string& strText)
{
    std::istringstream stream(strText);
    std::vector<std::string> vWords;
    for (std::string strWord; stream >> strWord;)
    {
        vWords.push_back(strWord);
    }
    return vWords;
}

size_t ReadSize(const std::string& strText, size_t nLeast)
{
    const uint64_t nValue = ReadNumber(strText);
    if (nValue < nLeast || nValue > 100000)
    {
        throw CCommandError("\"" + strText + "\": " + std::to_string(nLeast) + " to 100000");
    }
    return nValue;
}

bool ReadSwitch(const std::string& strText, const char* pszName)
{
    if (strText != "on" && strText != "off")
    {
        throw CCommandError(std::string(pszName) + " is on or off");
    }
    return strText == "on";
}

std::string ShowSize(size_t nSize)
{
    return nSize == 0 ? "the terminal's" : std::to_string(nSize);
}

json DescribeSetting(const SSetting& setting, const SSettings& settings)
{
    return {{"name", setting.pszName}, {"value", setting.get(settings)}, {"text", setting.pszText}};
}

} // namespace

const SSetting g_Settings[] = {
    {"confirm", "whether questions are asked: on or off",
     [](const SSettings& settings) { return std::string(settings.bConfirm ? "on" : "off"); },
     [](SSettings& settings, const std::string& strValue) { settings.bConfirm = ReadSwitch(strValue, "confirm"); }},
    {"format", "how values are shown: auto, float, int, unsigned, hex, binary, char, double, long",
     [](const SSettings& settings) { return std::string(GetFormatName(settings.eFormat)); },
     [](SSettings& settings, const std::string& strValue) { settings.eFormat = ReadFormat(strValue); }},
    {"height", "rows of a picture; 0 for what the terminal has",
     [](const SSettings& settings) { return ShowSize(settings.nHeight); },
     [](SSettings& settings, const std::string& strValue) { settings.nHeight = ReadSize(strValue, 0); }},
    {"limit", "ranges and changes that a list shows",
     [](const SSettings& settings) { return std::to_string(settings.nLimit); },
     [](SSettings& settings, const std::string& strValue) { settings.nLimit = ReadSize(strValue, 1); }},
    {"listsize", "lines that list shows", [](const SSettings& settings) { return std::to_string(settings.nListSize); },
     [](SSettings& settings, const std::string& strValue) { settings.nListSize = ReadSize(strValue, 1); }},
    {"max-seconds", "seconds after which a kernel run is broken off, where the platform can; 0 for never",
     [](const SSettings& settings) { return std::to_string(settings.nMaxSeconds); },
     [](SSettings& settings, const std::string& strValue) { settings.nMaxSeconds = ReadSize(strValue, 0); }},
    {"pagination", "whether output stops at full screens: off, as it never does",
     [](const SSettings&) { return std::string("off"); },
     [](SSettings&, const std::string& strValue)
     {
         if (ReadSwitch(strValue, "pagination"))
         {
             throw CCommandError("output never stops at full screens");
         }
     }},
    {"pictures", "unicode or ascii",
     [](const SSettings& settings) { return std::string(settings.bUnicode ? "unicode" : "ascii"); },
     [](SSettings& settings, const std::string& strValue)
     {
         if (strValue != "unicode" && strValue != "ascii")
         {
             throw CCommandError("pictures are unicode or ascii");
         }
         settings.bUnicode = strValue == "unicode";
     }},
    {"tracked", "registers that are kept up to date from the next launch on; all if none is named",
     [](const SSettings& settings)
     { return settings.vTracked.empty() ? std::string("all") : JoinWords(settings.vTracked); },
     [](SSettings& settings, const std::string& strValue)
     { settings.vTracked = strValue == "all" ? std::vector<std::string>() : SplitAtBlanks(strValue); }},
    {"width", "columns of a picture; 0 for what the terminal has",
     [](const SSettings& settings) { return ShowSize(settings.nWidth); },
     [](SSettings& settings, const std::string& strValue) { settings.nWidth = ReadSize(strValue, 0); }},
};
const size_t g_nSettings = sizeof(g_Settings) / sizeof(g_Settings[0]);

namespace
{

const SSetting& FindSetting(const std::string& strName)
{
    std::string strKnown;
    for (const SSetting& setting : g_Settings)
    {
        if (strName == setting.pszName)
        {
            return setting;
        }
        strKnown += (strKnown.empty() ? "" : ", ") + std::string(setting.pszName);
    }
    throw CCommandError("there is no setting \"" + strName + "\"; there are " + strKnown);
}

json DescribeCommand(const SCommand& command)
{
    return {{"name", command.pszName},      {"abbreviations", command.pszAliases}, {"arguments", command.pszArguments},
            {"group", command.pszGroup},    {"summary", command.pszSummary},       {"text", command.pszText},
            {"example", command.pszExample}};
}

} // namespace

json DoSet(CCommandContext& context)
{
    const std::string& strText = context.GetText("a setting and its value");
    const size_t nEnd = std::min(strText.find_first_of(" \t"), strText.size());
    const std::string strName = strText.substr(0, nEnd);
    if (strName == "var" || strName == "variable")
    {
        throw CCommandError(
            "values can't be set: each stop is computed anew from the launch, so that a change would be "
            "gone at the next one");
    }
    const SSetting& setting = FindSetting(strName);
    const size_t nValue = strText.find_first_not_of(" \t", nEnd);
    if (nValue == std::string::npos)
    {
        throw CCommandError(std::string("set ") + setting.pszName + " takes a value: " + setting.pszText);
    }
    setting.set(context.GetInterpreter().GetSettings(), strText.substr(nValue));
    return nullptr;
}

json DoShow(CCommandContext& context)
{
    json list = json::array();
    const SSettings& settings = context.GetInterpreter().GetSettings();
    if (!context.GetArguments().empty())
    {
        list.push_back(DescribeSetting(FindSetting(context.GetArguments()), settings));
    }
    for (size_t i = 0; i < g_nSettings && context.GetArguments().empty(); ++i)
    {
        list.push_back(DescribeSetting(g_Settings[i], settings));
    }
    return {{"view", "settings"}, {"settings", list}};
}

json DoHelp(CCommandContext& context)
{
    if (!context.GetArguments().empty())
    {
        const SCommandLine line = ParseCommandLine(context.GetArguments());
        json answer = DescribeCommand(*line.pCommand);
        answer["view"] = "help";
        return answer;
    }
    json list = json::array();
    for (size_t i = 0; i < g_nCommands; ++i)
    {
        list.push_back(DescribeCommand(g_Commands[i]));
    }
    return {{"view", "commands"}, {"commands", list}};
}

json DoSource(CCommandContext& context)
{
    if (context.GetInterpreter().Source(context.GetText("a file")) == CInterpreter::Quit)
    {
        context.GetInterpreter().RequestQuit();
    }
    return nullptr;
}

json DoQuit(CCommandContext& context)
{
    if (!context.GetArguments().empty())
    {
        const int nMost = 255;
        const uint64_t nCode = ReadNumber(context.GetWord("an exit code"));
        if (nCode > nMost)
        {
            throw CCommandError("an exit code is 0 to 255");
        }
        context.GetInterpreter().SetQuitCode(static_cast<int>(nCode));
    }
    context.GetInterpreter().RequestQuit();
    return nullptr;
}

} // namespace KestrelTool
