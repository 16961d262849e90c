#include "tools/kestrel/command/RenderProgram.h"

#include "tools/kestrel/command/RenderPictures.h"

#include <nlohmann/json.hpp>

#include <cstdio>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

std::string Word(const json& value)
{
    return value.is_string() ? value.get<std::string>() : value.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string JoinSizes(const json& sizes)
{
    std::string strText;
    for (const json& size : sizes)
    {
        strText += (strText.empty() ? "" : " x ") + Word(size);
    }
    return strText;
}

std::string CountWord(const json& count, const char* pszWhat)
{
    return Word(count) + " " + pszWhat + (count == 1 ? "" : "es");
}

} // namespace

std::string RenderLaunches(const json& view)
{
    std::string strText;
    for (const json& launch : view["launches"])
    {
        const std::string strProcess = view["processes"] == 1 ? "" : "process " + Word(launch["process"]) + "  ";
        char szTime[32];
        std::snprintf(szTime, sizeof(szTime), "%9.3f ms", launch["microseconds"].get<double>() / 1000);
        strText += strProcess + PadLeft(Word(launch["number"]), 4) + "  " + szTime + "  " + Word(launch["kernel"]) +
                   "(" + Word(launch["arguments"]) + ")  " + JoinSizes(launch["global"]);
        strText += launch["local"].empty() ? "\n" : " by " + JoinSizes(launch["local"]) + "\n";
    }
    return strText.empty() ? "no launches yet\n" : strText;
}

std::string RenderKernels(const json& view)
{
    std::string strText;
    for (const json& kernel : view["kernels"])
    {
        strText += Word(kernel["kernel"]) + "  " + CountWord(kernel["launches"], "launch") + "\n";
    }
    return strText.empty() ? "no launches yet\n" : strText;
}

std::string RenderPrograms(const json& view)
{
    std::string strText;
    for (const json& program : view["programs"])
    {
        strText += PadLeft(Word(program["program"]), 4) + "  " + Word(program["file"]);
        const std::string strOptions = Word(program["options"]);
        strText += strOptions.empty() ? "" : "  " + strOptions;
        strText += program["source"] ? "" : "  from a binary: it is shown as IL, without its source";
        strText += ":";
        for (const json& kernel : program["kernels"])
        {
            strText += " " + Word(kernel);
        }
        strText += "\n";
    }
    return strText.empty() ? "no programs yet\n" : strText;
}

std::string RenderLaunch(const json& event)
{
    return "launch " + Word(event["number"]) + ": " + Word(event["kernel"]) + " of " + Word(event["program"]) + " on " +
           Word(event["device"]) + ", " + Word(event["items"]) + " work-items\n";
}

std::string RenderPassed(const json& event)
{
    const std::string strLaunch = event["launch"].is_null()
                                      ? std::string("a launch")
                                      : "launch " + Word(event["launch"]) + " of " + Word(event["kernel"]);
    return strLaunch + " isn't debugged: " + Word(event["reason"]) + "\n";
}

std::string RenderCaptured(const json& told)
{
    const std::string strLaunch = "launch " + Word(told["launch"]) + " of " + Word(told["kernel"]);
    return told.contains("error") ? strLaunch + " isn't captured: " + Word(told["error"]) + "\n"
                                  : strLaunch + ": " + Word(told["file"]) + "\n";
}

std::string RenderEnded(const json& event)
{
    std::string strText = event["signal"] != 0 ? "the program was ended by signal " + Word(event["signal"])
                                               : "the program has ended with code " + Word(event["code"]);
    strText += event["heard"] ? "" : "; it hasn't used OpenCL by way of the loader";
    return strText + "\n" + (event["kernels"].empty() ? "" : RenderKernels(event));
}

} // namespace KestrelTool
