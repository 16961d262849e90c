// Kernels in IL against the same computations in plain C++, scaling over cores, growth of times with
// sizes, and the memory of a large dispatch. Every kernel's results are compared with the host's before
// it is timed. Ratios are of times measured in alternation.

#include "bench/BenchHost.h"
#include "bench/BenchKernels.h"
#include "bench/BenchMemory.h"
#include "bench/BenchReport.h"
#include "platform/compiler/Assembler.h"
#include "platform/simt/LaneOps.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <thread>

using namespace KestrelBench;
using namespace KestrelPlatform;

namespace
{

const unsigned int s_nRuns = 9;
const unsigned int s_nScalingRuns = 5;

/// How often to call the work so that the clock can measure it.
unsigned int Repeats(const std::function<void()>& work, double fSeconds)
{
    work();
    return static_cast<unsigned int>(std::clamp(fSeconds / std::max(TimeOnce(work), 1e-7), 1.0, 1000.0));
}

std::function<void()> Repeated(const std::function<void()>& work, unsigned int nTimes)
{
    return [=]
    {
        for (unsigned int i = 0; i < nTimes; ++i)
        {
            work();
        }
    };
}

float ReachOf(const SBenchKernel& kernel)
{
    if (std::strcmp(GetLaneTable().pszName, "AVX-512") == 0)
    {
        return kernel.fReach512;
    }
    return std::strcmp(GetLaneTable().pszName, "AVX2") == 0 ? kernel.fReach256 : 0;
}

/// The gain from a second core for compiled code without shared data; other load on the machine reduces it.
std::vector<double> HostScaling()
{
    const uint32_t nCount = 1u << 16;
    const std::vector<float> vInput(nCount, 0.5f);
    std::vector<float> vResults[2] = {std::vector<float>(nCount), std::vector<float>(nCount)};
    const auto part = [&](int n) { Host::Saxpy(nCount, 0.97f, vInput.data(), vInput.data(), vResults[n].data()); };
    const auto one = Repeated([&part] { part(0); }, 5);
    const auto two = [&]
    {
        std::thread other(Repeated([&part] { part(1); }, 5));
        one();
        other.join();
    };
    return Scaled(TimeRatios(s_nRuns, one, two), 2);
}

/// With the currently chosen vectors.
void ReportKernels(CReport& report)
{
    const std::string strVectors = std::string(", ") + GetLaneTable().pszName;
    const auto vKernels = MakeBenchKernels();
    for (const auto& pKernel : vKernels)
    {
        pKernel->Check();
    }
    for (const auto& pKernel : vKernels)
    {
        SBenchKernel& kernel = *pKernel;
        const unsigned int nTimes = Repeats(kernel.runHost, 0.01);
        const auto once = [&kernel] { kernel.Run(1); };
        report.Add(kernel.strName + " over plain C++" + strVectors,
                   TimeRatios(s_nRuns, Repeated(once, nTimes), Repeated(kernel.runHost, nTimes)), ReachOf(kernel));
        if (kernel.runOther)
        {
            report.Add(kernel.strName + " over " + kernel.strOther + strVectors,
                       TimeRatios(s_nRuns, Repeated(once, nTimes), Repeated(kernel.runOther, nTimes)), 0);
        }
    }
}

/// With all vector widths of this machine that have limits. The widest comes last, since the rest of the run continues
/// with it.
void ReportVectors(CReport& report)
{
    for (const EInstructionSet eSet : {EInstructionSet::Baseline, EInstructionSet::Avx2, EInstructionSet::Avx512})
    {
        if (ChooseInstructionSet(eSet))
        {
            ReportKernels(report);
        }
    }
    report.Note(std::string("Vectors from here on: ") + GetLaneTable().pszName +
                "; cores: " + std::to_string(std::thread::hardware_concurrency()));
}

/// The time of each piece of work in seconds: the minimum of several tries in alternation. Other programs rarely slow
/// down all tries.
std::vector<double> LeastOfTries(const std::vector<std::function<void()>>& vWork)
{
    std::vector<double> vLeast(vWork.size(), 1e9);
    for (int nTry = 0; nTry < 3; ++nTry)
    {
        for (size_t n = 0; n < vWork.size(); ++n)
        {
            vLeast[n] = std::min(vLeast[n], TimeOnce(vWork[n]));
        }
    }
    return vLeast;
}

/// The time of a kernel on one core relative to two, and the machine's own gain for two launches without shared data.
void ReportScaling(CReport& report, SBenchKernel& kernel, SBenchKernel& other)
{
    const auto once = [&kernel] { kernel.Run(1); };
    const unsigned int nTimes = Repeats(once, 0.03);
    const auto one = Repeated(once, nTimes);
    const auto two = Repeated([&kernel] { kernel.Run(2); }, nTimes);
    const auto apart = [&]
    {
        std::thread thread(Repeated([&other] { other.Run(1); }, nTimes));
        one();
        thread.join();
    };
    std::vector<double> vRatios;
    std::vector<double> vMachine;
    for (unsigned int n = 0; n < s_nScalingRuns; ++n)
    {
        const std::vector<double> vSeconds = LeastOfTries({one, two, apart});
        vRatios.push_back(vSeconds[0] / vSeconds[1]);
        vMachine.push_back(2 * vSeconds[0] / vSeconds[2]);
    }
    const std::string strCase = kernel.strName + ", one core over two";
    if (kernel.bScales)
    {
        report.AddAtLeast(strCase, vRatios, 1.8);
    }
    else
    {
        report.Add(strCase, vRatios, 0);
    }
    report.Add("  the machine: two launches that share nothing", vMachine, 0);
}

void ReportCores(CReport& report)
{
    if (std::thread::hardware_concurrency() < 2)
    {
        report.Note("One core: nothing to compare two with.");
        return;
    }
    report.Add("plain C++ of saxpy, one core over two", HostScaling(), 0);
    const auto vKernels = MakeBenchKernels();
    const auto vOthers = MakeBenchKernels();
    for (size_t n = 0; n < vKernels.size(); ++n)
    {
        vKernels[n]->Check();
        vOthers[n]->Check();
        ReportScaling(report, *vKernels[n], *vOthers[n]);
    }
}

void ReportGrowth(CReport& report)
{
    SLaunch launch;
    launch.pProgram = Compile(VectorAddText());
    launch.nMaxThreads = 1;
    for (const uint32_t nItems : {1u << 10, 1u << 14, 1u << 18, 1u << 20, 1u << 24})
    {
        CKernelBuffers buffers;
        for (int n = 0; n < 3; ++n)
        {
            buffers.Add(std::vector<uint32_t>(nItems, 0));
        }
        launch.vConstantBuffer1.clear();
        buffers.Bind(launch);
        SetSize(launch, nItems);
        const auto run = [&launch] { RunLaunch(launch); };
        const unsigned int nTimes = Repeats(run, 0.02);
        report.Add("vector add of " + std::to_string(nItems) + ", ns a work-item",
                   Scaled(Time(5, Repeated(run, nTimes)), 1e9 / nTimes / nItems), 0);
    }
}

struct SInstructionTimes
{
    std::vector<double> vConvert;
    std::vector<double> vRun;
};

/// The times in seconds to assemble and decode a kernel, and to run it once over 16 K work-items.
SInstructionTimes MeasureInstructions(uint32_t nInstructions)
{
    const std::string strText = StraightText(nInstructions);
    SInstructionTimes times;
    const auto convert = [&strText] { Compile(strText); };
    const unsigned int nConversions = Repeats(convert, 0.02);
    times.vConvert = Scaled(Time(s_nRuns, Repeated(convert, nConversions)), 1.0 / nConversions);
    SLaunch launch;
    launch.pProgram = Compile(strText);
    launch.nMaxThreads = 1;
    const uint32_t nItems = 1u << 14;
    CKernelBuffers buffers;
    buffers.Add(std::vector<uint32_t>(nItems, 0));
    buffers.Bind(launch);
    SetSize(launch, nItems);
    const auto run = [&launch] { RunLaunch(launch); };
    const unsigned int nTimes = Repeats(run, 0.02);
    times.vRun = Scaled(Time(5, Repeated(run, nTimes)), 1.0 / nTimes);
    return times;
}

void ReportInstructions(CReport& report)
{
    const std::string strThousand = StraightText(1000);
    const std::string strTenThousand = StraightText(10000);
    const auto vTenfold = TimeRatios(s_nRuns, Repeated([&] { Compile(strTenThousand); }, 10),
                                     Repeated([&] { Compile(strThousand); }, 100));
    for (const uint32_t nInstructions : {100u, 1000u, 10000u, 100000u})
    {
        const SInstructionTimes times = MeasureInstructions(nInstructions);
        const std::string strCount = std::to_string(nInstructions) + " instructions, ";
        if (nInstructions == 1000)
        {
            report.Add(strCount + "ms to assemble and decode", Scaled(times.vConvert, 1e3), 2);
        }
        if (nInstructions == 10000)
        {
            report.Add(strCount + "assemble and decode over 1000", Scaled(vTenfold, 10), 10);
        }
        report.Add(strCount + "ns an instruction to convert", Scaled(times.vConvert, 1e9 / nInstructions), 0);
        const uint32_t nBlocks = (1u << 14) / s_nLanes;
        report.Add(strCount + "ns an instruction and block to run", Scaled(times.vRun, 1e9 / nInstructions / nBlocks),
                   0);
    }
}

/// The memory that a dispatch of 16 M work-items adds to this process, after a small one has run.
void ReportMemory(CReport& report)
{
    SLaunch launch;
    launch.pProgram = Compile(VectorAddText());
    const size_t nItems = 1u << 24;
    CKernelBuffers buffers;
    for (int n = 0; n < 3; ++n)
    {
        buffers.Add(std::vector<uint32_t>(nItems, 1));
    }
    buffers.Bind(launch);
    SetSize(launch, 1u << 16);
    RunLaunch(launch);
    std::vector<double> vKilobytes;
    for (int n = 0; n < 3; ++n)
    {
        const double fBefore = StartMemoryPeak();
        SetSize(launch, nItems);
        RunLaunch(launch);
        vKilobytes.push_back(MemoryPeak() - fBefore);
    }
    report.Add("16777216 work-items, KiB beyond a small run", vKilobytes, 1024);
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        CReport report("kernels", argc, argv);
        ReportMemory(report);
        ReportVectors(report);
        ReportCores(report);
        ReportInstructions(report);
        ReportGrowth(report);
        return 0;
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "%s\n", error.what());
        return 2;
    }
}
