// The cost of a memory query at a stop, next to a step there: in straight-line code, where the stop's own run has left
// memory as it is, and in a loop, where the first query of a stop makes a run. Times are milliseconds.

#include "bench/BenchReport.h"
#include "tools/session/launch/Launch.h"
#include "tools/session/launch/Session.h"

#include <chrono>
#include <cstdio>
#include <stdexcept>

using namespace KestrelBench;
using namespace KestrelTool;

namespace
{

const size_t s_nLocalSize = 64;
const size_t s_nStops = 40;

/// Straight-line stores, then passes of a loop that store and use local memory.
SLaunchFile MakeLaunch(size_t nItems)
{
    SLaunchFile launch;
    launch.strPath = "benchmark";
    launch.strKernel = "memory";
    launch.strDevice = "Quench";
    launch.strOptions = "-g";
    launch.nGlobalSize[0] = nItems;
    launch.bHasLocalSize = true;
    launch.nLocalSize[0] = s_nLocalSize;
    launch.strSource = ";ARGSTART:__OpenCL_memory_kernel\n;version:3:1:104\n;device:quench\n;uniqueid:1024\n"
                       ";memory:64bitABI\n;memory:hwlocal:4096\n;pointer:data:i32:1:1:0:uav:10:4:RW:0:0\n"
                       ";function:1:1030\n;ARGEND:__OpenCL_memory_kernel\nil_cs_2_0\ndcl_cb cb0[10]\ndcl_cb cb1[1]\n"
                       "dcl_literal l0, 2, 1, 0, 100\n;$$$$$$$$$$\nendmain\nfunc 1024\n;__OpenCL_memory_kernel\n"
                       "dcl_max_thread_per_group 256\ndcl_typeless_uav_id(10)_stride(4)_length(4)\ndcl_lds_id(1) 4096\n"
                       "imad r0.x, vThreadGrpId.x, cb0[1].x, vTidInGrp.x\nishl r1.x, r0.x, l0.x\n"
                       "i64add r2.xy, cb1[0].xy, r1.x000\n";
    for (unsigned int n = 0; n < s_nStops; ++n)
    {
        launch.strSource += "uav_raw_store_id(10)_addr64 mem0.x, r2.xy, r0.x\n";
    }
    launch.strSource += "mov r3.x, l0.z\nishl r6.x, vTidInGrp.x, l0.x\nwhileloop\nige r4.x, r3.x, l0.w\n"
                        "break_logicalnz r4.x\nlds_store_id(1) r6.x, r3.x\niadd r3.x, r3.x, l0.y\n"
                        "uav_raw_store_id(10)_addr64 mem0.x, r2.xy, r3.x\nendloop\nret\nendfunc\nend\n";
    SArgument data;
    data.eKind = SArgument::Buffer;
    data.pType = FindElementType("int");
    data.vContents.assign(nItems * 4, 0);
    launch.vArguments.push_back(data);
    return launch;
}

/// Steps, and queries memory at some stops in the straight-line code and some in the loop.
class CQueryingClient : public ISessionClient
{
public:
    struct STimes
    {
        std::vector<double> vSteps;
        std::vector<double> vFirst;  ///< the first query of global memory at a stop
        std::vector<double> vSecond; ///< the second there
        std::vector<double> vLocal;  ///< the first query of a group's local memory, after those
    };

    ovkclDebugCommand OnStarted(CSession&) override { return Step(); }
    ovkclDebugCommand OnHalted(CSession& session) override
    {
        const double fStep = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_Start).count();
        const SRegisterView base = session.GetRegister("r2");
        STimes& times = session.GetRegister("r3").pWords == nullptr ? line : loop;
        if (base.pWords != nullptr && times.vSteps.size() < s_nStops)
        {
            const uint64_t nAddress = base[0][0] + (uint64_t(base[0][1]) << 32);
            times.vSteps.push_back(fStep);
            times.vFirst.push_back(TimeOnce([&] { Read(session, 10, nAddress); }));
            times.vSecond.push_back(TimeOnce([&] { Read(session, 10, nAddress); }));
            times.vLocal.push_back(
                TimeOnce([&] { Read(session, OVKCLDEBUG_EXT_LOCAL_BLOCK(1), OVKCLDEBUG_EXT_LOCAL_ADDRESS(0, 0)); }));
        }
        return loop.vSteps.size() < s_nStops ? Step() : OVKCLDEBUG_COMMAND_CONTINUE;
    }
    void OnFinished(CSession&) override {}
    void OnError(CSession& session) override { throw std::runtime_error(session.GetLastError()); }

    STimes line;
    STimes loop;

private:
    ovkclDebugCommand Step()
    {
        m_Start = std::chrono::steady_clock::now();
        return OVKCLDEBUG_COMMAND_STEP;
    }

    static void Read(const CSession& session, ovkclDebugMemoryResource nResource, uint64_t nAddress)
    {
        if (session.GetGlobalMemory(nResource, nAddress, 64).size() != 64)
        {
            throw std::runtime_error("memory can't be read");
        }
    }

    std::chrono::steady_clock::time_point m_Start;
};

void Measure(const CLibraries& libraries, CReport& report, size_t nItems)
{
    CLaunch launch(libraries, MakeLaunch(nItems));
    CQueryingClient client;
    if (RunSession(libraries, launch, client) != CL_SUCCESS || client.loop.vSteps.size() < s_nStops)
    {
        throw std::runtime_error("the session went wrong");
    }
    const struct
    {
        const char* pszWhere;
        const CQueryingClient::STimes& times;
    } places[] = {{"in a line", client.line}, {"in a loop", client.loop}};
    for (const auto& place : places)
    {
        const std::string strName = std::to_string(nItems) + " work-items, " + place.pszWhere + ": ";
        report.Add(strName + "a step", Scaled(place.times.vSteps, 1000), 0);
        report.Add(strName + "the first query", Scaled(place.times.vFirst, 1000), 0);
        report.Add(strName + "the second", Scaled(place.times.vSecond, 1000), 0);
        report.Add(strName + "local memory of a group", Scaled(place.times.vLocal, 1000), 0);
    }
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        CReport report("memory", argc, argv);
        const CLibraries libraries(GetLibraryFolder() + "/kestrel-platform",
                                   GetLibraryFolder() + "/libOVKKestrel.so.1");
        for (const size_t nItems : {size_t(1024), size_t(65536), size_t(1) << 20})
        {
            Measure(libraries, report, nItems);
        }
        return 0;
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "bench memory: %s\n", error.what());
        return 1;
    }
}
