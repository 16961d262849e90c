#include "tools/dap/LaunchRequest.h"

#include "tools/dap/Fields.h"

#include <nlohmann/json.hpp>

#include <filesystem>

namespace KestrelTool
{

namespace
{

std::map<std::string, std::optional<std::string>> ReadVariables(const nlohmann::json& arguments)
{
    std::map<std::string, std::optional<std::string>> mapVariables;
    const nlohmann::json environment = ReadObject(arguments, "env");
    for (const auto& variable : environment.items())
    {
        if (!variable.value().is_string() && !variable.value().is_null())
        {
            throw CRequestError("the environment's variable " + variable.key() + " has to be a text, or null");
        }
        mapVariables[variable.key()] =
            variable.value().is_null() ? std::nullopt : std::optional<std::string>(variable.value());
    }
    return mapVariables;
}

} // namespace

SDebuggeeOptions ReadLaunchRequest(const nlohmann::json& arguments)
{
    SDebuggeeOptions options;
    options.strLaunch = ReadText(arguments, "launchFile", "");
    options.command.strFolder = ReadText(arguments, "cwd", "");
    options.command.mapVariables = ReadVariables(arguments);
    options.bStopOnEntry = ReadFlag(arguments, "stopOnEntry", false);
    options.bNoDebug = ReadFlag(arguments, "noDebug", false);
    const std::string strProgram = ReadText(arguments, "program", "");
    if (options.strLaunch.empty() == strProgram.empty())
    {
        throw CRequestError("a launch needs either launchFile, the path of a launch file, or program");
    }
    if (!options.strLaunch.empty())
    {
        const std::filesystem::path path = options.strLaunch;
        options.strLaunch =
            options.command.strFolder.empty() ? path.string() : (options.command.strFolder / path).string();
        return options;
    }
    options.command.vWords = ReadTexts(arguments, "args");
    options.command.vWords.insert(options.command.vWords.begin(), strProgram);
    options.command.bNoInput = true;
    return options;
}

} // namespace KestrelTool
