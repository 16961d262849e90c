// The tool's own cost at a stop of a large dispatch: the pictures and statistics of mask, grid and stats, relative to
// the time of the stop's own kernel runs.

#include "bench/BenchReport.h"
#include "tools/session/debug/Views.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>

#include <unistd.h>

using namespace KestrelBench;
using namespace KestrelTool;

namespace
{

const unsigned int s_nStops = 15;

class CSilence : public IEventSink
{
public:
    void OnEvent(const nlohmann::json&) override {}
};

const char* const s_pszKernel = R"(;ARGSTART:__OpenCL_wide_kernel
;version:3:1:104
;device:quench
;uniqueid:1024
;memory:64bitABI
;pointer:out:float:1:1:0:uav:10:4:RW:0:0
;function:1:1030
;ARGEND:__OpenCL_wide_kernel
il_cs_2_0
dcl_cb cb0[10]
dcl_cb cb1[1]
dcl_literal l0, 2, 1, 0, -1
dcl_literal l1, 0.25, 7, 0, 0
;$$$$$$$$$$
endmain
func 1024
;__OpenCL_wide_kernel
dcl_max_thread_per_group 256
dcl_typeless_uav_id(10)_stride(4)_length(4)
imad r0.xyz, vThreadGrpId, cb0[1], vTidInGrp
iadd r0.xyz, r0, cb0[6]
ishl r1.x, r0.x, l0.x
i64add r2.xy, cb1[0].xy, r1.x000
itof r3.x, r0.x
mov r4.x, l0.z
whileloop
ige r5.x, r4.x, l1.y
break_logicalnz r5.x
mul r3.x, r3.x, l1.x
sin r3.y, r3.x
add r3.x, r3.x, r3.y
iadd r4.x, r4.x, l0.y
endloop
uav_raw_store_id(10)_addr64 mem0.x, r2.xy, r3.x
ret
endfunc
end
)";

/// A launch of a million work-items, with its own files.
class CWideLaunch
{
public:
    CWideLaunch() : m_Folder(std::filesystem::temp_directory_path() / ("kestrel_bench_" + std::to_string(getpid())))
    {
        std::filesystem::create_directories(m_Folder);
        std::ofstream(m_Folder / "wide.il") << s_pszKernel;
        std::ofstream(m_Folder / "wide.json")
            << R"({"program": "wide.il", "kernel": "wide", "global": [1048576], "local": [256],
                   "args": [{"buffer": {"type": "float", "count": 1048576, "fill": "zero"}}]})";
    }
    ~CWideLaunch() { std::filesystem::remove_all(m_Folder); }
    std::string GetPath() const { return (m_Folder / "wide.json").string(); }

private:
    std::filesystem::path m_Folder;
};

struct SFigures
{
    std::vector<double> vRuns; ///< the stop's own kernel runs
    std::vector<double> vMask; ///< all in milliseconds
    std::vector<double> vGrid;
    std::vector<double> vStats;
    std::vector<double> vAnswers; ///< all three
};

double Milliseconds(const std::function<void()>& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

void MeasureStop(CDebugger& debugger, SFigures& figures)
{
    const double fBefore = debugger.GetRunSeconds();
    const uint64_t nBefore = debugger.GetRuns();
    debugger.Continue(1);
    if (debugger.GetRuns() == nBefore)
    {
        throw std::runtime_error("the stop took no kernel run");
    }
    figures.vRuns.push_back((debugger.GetRunSeconds() - fBefore) * 1000);
    CExpression expression("r3.x");
    GuessType(debugger, expression, EFormat::Auto);
    figures.vMask.push_back(Milliseconds([&] { ViewMask(debugger, 70, 20); }));
    figures.vGrid.push_back(Milliseconds([&] { ViewGrid(debugger, expression, false, 70, 20); }));
    figures.vStats.push_back(Milliseconds([&] { ViewStatistics(debugger, expression, false); }));
    figures.vAnswers.push_back(figures.vMask.back() + figures.vGrid.back() + figures.vStats.back());
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        CReport report("tool", argc, argv);
        const std::string strLib = GetLibraryFolder();
        const CLibraries libraries(strLib + "/kestrel-platform", strLib + "/libOVKKestrel.so.1");
        const CWideLaunch launch;
        CSilence silence;
        CDebugger debugger(libraries, ReadLaunchFile(launch.GetPath()), silence);
        // A stop in each pass of the loop; four registers have been written since the last stop.
        debugger.GetBreakpoints().Add({23}, false);
        SFigures figures;
        while (figures.vRuns.size() < s_nStops)
        {
            debugger.Start();
            for (int nPass = 0; nPass < 5; ++nPass)
            {
                MeasureStop(debugger, figures);
            }
        }
        report.Add("kernel runs of a stop, ms", figures.vRuns, 0);
        report.Add("mask, ms", figures.vMask, 0);
        report.Add("grid, ms", figures.vGrid, 0);
        report.Add("stats, ms", figures.vStats, 0);
        report.Add("answers over kernel runs", Ratios(figures.vAnswers, figures.vRuns), 2);
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "bench_tool: %s\n", error.what());
        return 1;
    }
    return 0;
}
