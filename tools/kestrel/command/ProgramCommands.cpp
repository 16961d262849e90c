// Commands for a program whose launches are debugged.

#include "tools/kestrel/command/Commands.h"
#include "tools/session/debug/CommandError.h"
#include "tools/session/program/ProgramSession.h"

#include <nlohmann/json.hpp>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

CProgramSession& RequireProgram(CCommandContext& context)
{
    CProgramSession* const pProgram = context.GetInterpreter().GetProgram();
    if (pProgram == nullptr)
    {
        throw CCommandError("there is no program here; kestrel exec debugs one");
    }
    return *pProgram;
}

} // namespace

json DoFinishLaunch(CCommandContext& context)
{
    context.AllowNone();
    RequireProgram(context).FinishLaunch();
    return nullptr;
}

json DoCapture(CCommandContext& context)
{
    CProgramSession& program = RequireProgram(context);
    SCaptureTarget target;
    SLaunchRule rule;
    bool bRange = false;
    const std::vector<std::string> vWords = context.GetWords();
    for (size_t i = 0; i < vWords.size(); ++i)
    {
        const bool bNumber = std::isdigit(static_cast<unsigned char>(vWords[i][0])) != 0;
        if (vWords[i] == "--emit-c")
        {
            target.bEmitC = true;
        }
        else if (vWords[i] == "-o" && i + 1 < vWords.size())
        {
            target.strFolder = vWords[++i];
        }
        else if (bNumber && !bRange && ReadLaunchRange(vWords[i], rule))
        {
            bRange = true;
        }
        else if (!bNumber && vWords[i][0] != '-' && !bRange && rule.strKernel.empty())
        {
            rule.strKernel = vWords[i];
        }
        else
        {
            throw CCommandError(
                "capture takes -o FOLDER, --emit-c, and a kernel, a number N or N-M, or both in this order");
        }
    }
    if (!bRange && rule.strKernel.empty())
    {
        const std::string strPath = program.CaptureLaunch(target);
        return {{"view", "text"}, {"text", strPath}};
    }
    rule.bTurns = !rule.strKernel.empty();
    program.CaptureLaunches(rule, target);
    return nullptr;
}

json DoInfoLaunches(CCommandContext& context)
{
    context.AllowNone();
    json list = json::array();
    int nProcesses = 1;
    for (const SKnownLaunch& launch : RequireProgram(context).GetRecord().GetLaunches())
    {
        nProcesses = std::max(nProcesses, launch.nProcess);
        list.push_back({{"number", launch.nNumber},
                        {"turn", launch.nTurn},
                        {"process", launch.nProcess},
                        {"kernel", launch.strKernel},
                        {"program", launch.nProgram},
                        {"global", launch.vGlobal},
                        {"local", launch.vLocal},
                        {"arguments", launch.strArguments},
                        {"microseconds", launch.nMicroseconds}});
    }
    return {{"view", "launches"}, {"launches", list}, {"processes", nProcesses}};
}

json DoInfoKernels(CCommandContext& context)
{
    context.AllowNone();
    json list = json::array();
    for (const auto& count : RequireProgram(context).GetRecord().CountLaunches())
    {
        list.push_back({{"kernel", count.first}, {"launches", count.second}});
    }
    return {{"view", "kernels"}, {"kernels", list}};
}

json DoInfoPrograms(CCommandContext& context)
{
    context.AllowNone();
    json list = json::array();
    for (const SKnownProgram& program : RequireProgram(context).GetRecord().GetPrograms())
    {
        list.push_back({{"program", program.nNumber},
                        {"file", program.strFile},
                        {"options", program.strOptions},
                        {"source", !program.strSource.empty()},
                        {"kernels", program.vKernels}});
    }
    return {{"view", "programs"}, {"programs", list}};
}

} // namespace KestrelTool
