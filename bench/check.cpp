// The cost of observing a run, relative to a plain run of the same kernel on the same interpreter, measured in
// alternation. KESTREL_BENCH_LOOK selects one kind of observation.

#include "bench/BenchKernels.h"
#include "bench/BenchReport.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

using namespace KestrelBench;
using namespace KestrelPlatform;

namespace
{

const unsigned int s_nRuns = 9;

struct SLook
{
    const char* pszName;
    void (*pfSwitch)(SLaunch& launch, bool bOn);
    double fMedian; ///< limit for the median over all kernels
    double fMost;
};

const SLook s_Looks[] = {
    {"memory", [](SLaunch& launch, bool bOn) { launch.nChecks = bOn ? PLATFORM_CHECK_MEMORY : 0; }, 1.3, 2},
    {"race", [](SLaunch& launch, bool bOn) { launch.nChecks = bOn ? PLATFORM_CHECK_RACE : 0; }, 2.5, 5},
    {"init", [](SLaunch& launch, bool bOn) { launch.nChecks = bOn ? PLATFORM_CHECK_INIT : 0; }, 3, 5},
    {"nan", [](SLaunch& launch, bool bOn) { launch.nChecks = bOn ? PLATFORM_CHECK_NAN : 0; }, 1.5, 2.5},
    {"all", [](SLaunch& launch, bool bOn) { launch.nChecks = bOn ? ~0u : 0; }, 6, 10},
    {"profile", [](SLaunch& launch, bool bOn) { launch.bKeepProfile = bOn; }, 1.5, 3},
};

unsigned int RepeatsOf(SBenchKernel& kernel)
{
    kernel.Run(0);
    return static_cast<unsigned int>(
        std::clamp(0.02 / std::max(TimeOnce([&kernel] { kernel.Run(0); }), 1e-7), 1.0, 1e3));
}

double Median(std::vector<double> vFigures)
{
    std::sort(vFigures.begin(), vFigures.end());
    return vFigures[vFigures.size() / 2];
}

/// Makes the run check memory for unwritten bytes, although all of it is written.
std::vector<std::vector<unsigned char>> MakeShadows(SLaunch& launch)
{
    std::vector<std::vector<unsigned char>> vShadows;
    for (SMemoryRange& range : launch.vMemory)
    {
        vShadows.emplace_back(range.nSize, 0);
        range.pShadow = vShadows.back().data();
    }
    return vShadows;
}

void Report(CReport& report, const SLook& look)
{
    std::vector<double> vMedians;
    for (const auto& pKernel : MakeBenchKernels())
    {
        pKernel->Check();
        const std::vector<std::vector<unsigned char>> vShadows = MakeShadows(pKernel->launch);
        const unsigned int nTimes = RepeatsOf(*pKernel);
        const auto run = [&](bool bOn)
        {
            look.pfSwitch(pKernel->launch, bOn);
            for (unsigned int n = 0; n < nTimes; ++n)
            {
                pKernel->Run(0);
            }
        };
        const std::vector<double> vRatios = TimeRatios(
            s_nRuns, [&] { run(true); }, [&] { run(false); });
        vMedians.push_back(Median(vRatios));
        report.Add(std::string(look.pszName) + " over plain, " + pKernel->strName, vRatios, look.fMost);
    }
    report.Add(std::string(look.pszName) + " over plain, the kernels' medians", vMedians, look.fMedian);
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        CReport report("check", argc, argv);
        const char* const pszWanted = std::getenv("KESTREL_BENCH_LOOK");
        for (const SLook& look : s_Looks)
        {
            if (!pszWanted || std::string(pszWanted) == look.pszName)
            {
                Report(report, look);
            }
        }
        return 0;
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "%s\n", error.what());
        return 2;
    }
}
