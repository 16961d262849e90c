// Commands about a program whose launches are debugged.

#include "tools/kestrel/command/Commands.h"
#include "tools/kestrel/debug/CommandError.h"
#include "tools/kestrel/program/ProgramSession.h"

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
