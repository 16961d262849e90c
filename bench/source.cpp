// The cost of a stop at source level: steps by line of a compiled kernel, alone and with all variables of the function
// for all work-items, and a run to a breakpoint after a loop that writes many registers.

#include "bench/BenchMemory.h"
#include "bench/BenchReport.h"
#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/LineStepper.h"
#include "tools/session/debug/SourceValues.h"
#include "tools/session/debug/Views.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <stdexcept>

using namespace KestrelBench;
using namespace KestrelTool;

namespace
{

class CSilence : public IEventSink
{
public:
    void OnEvent(const nlohmann::json&) override {}
};

/// Thirty ordinary lines with a loop, branches and a function.
const char* const s_pszKernel = R"(#line 1 "walk.cl"
int mix(int a, int b)
{
    int c = a ^ (b << 3);
    return c + (c >> 2);
}
kernel void walk(global int* out, int passes)
{
    int id = get_global_id(0);
    int low = id & 15;
    int high = id >> 4;
    float scale = 1.0f / (1 + low);
    int sum = 0;
    for (int pass = 0; pass < passes; ++pass)
    {
        int next = mix(sum, pass + id);
        if (next & 1)
        {
            sum += next;
        }
        else
        {
            sum -= low;
            scale *= 1.5f;
        }
        high ^= next;
        sum += high & 7;
    }
    int whole = (int)(scale * 16);
    sum += whole;
    out[id] = sum;
    out[id] += mix(low, high);
}
)";

SLaunchFile MakeLaunch(const std::string& strSource, const std::string& strKernel, size_t nItems)
{
    SLaunchFile file;
    file.strPath = "bench";
    file.strSource = strSource;
    file.strKernel = strKernel;
    file.strOptions = "-g";
    file.nGlobalSize[0] = nItems;
    file.nLocalSize[0] = 256;
    file.bHasLocalSize = true;
    SArgument out;
    out.eKind = SArgument::Buffer;
    out.pType = FindElementType("int");
    out.vContents.assign(nItems * 4, 0);
    SArgument passes;
    passes.eKind = SArgument::Value;
    passes.pType = FindElementType("int");
    passes.vContents = {4, 0, 0, 0};
    file.vArguments = {out, passes};
    return file;
}

double Milliseconds(const std::function<void()>& work)
{
    return TimeOnce(work) * 1000;
}

/// Reads all variables of the function for all work-items.
void ReadLocals(CDebugger& debugger)
{
    CSourceValues values(debugger);
    for (const SSourceVariable& variable : values.List())
    {
        for (const SValuePiece& piece : variable.vPieces)
        {
            const std::string strRegister = "r" + std::to_string(piece.nNumber / 4);
            if (piece.ePlace == SValuePiece::Register &&
                debugger.GetSession().GetRegister(strRegister).pWords != nullptr)
            {
                debugger.GetValues(strRegister);
            }
        }
    }
}

struct SFigures
{
    std::vector<double> vTimes; ///< milliseconds
    std::vector<double> vRuns;
};

/// Steps by line from the kernel's beginning to its end, in nSessions sessions.
SFigures MeasureSteps(const CLibraries& libraries, size_t nItems, unsigned int nSessions,
                      const std::function<void(CDebugger&)>& look)
{
    CSilence silence;
    CDebugger debugger(libraries, MakeLaunch(s_pszKernel, "walk", nItems), silence);
    SFigures figures;
    for (unsigned int n = 0; n < nSessions; ++n)
    {
        debugger.Start();
        while (debugger.IsLive())
        {
            const uint64_t nBefore = debugger.GetRuns();
            const double fTime = Milliseconds(
                [&]
                {
                    CLineStepper(debugger).Next(1);
                    if (debugger.IsLive())
                    {
                        look(debugger);
                    }
                });
            if (debugger.IsLive()) // the last step runs the rest of the kernel
            {
                figures.vTimes.push_back(fTime);
                figures.vRuns.push_back(static_cast<double>(debugger.GetRuns() - nBefore));
            }
        }
    }
    if (figures.vTimes.size() < nSessions * size_t(20))
    {
        throw std::runtime_error("the kernel has fewer lines than it should");
    }
    return figures;
}

void LookAtNothing(CDebugger&) {}

void LookAtStats(CDebugger& debugger)
{
    try
    {
        CExpression expression("id", &debugger);
        ViewStatistics(debugger, expression, true);
    }
    catch (const CCommandError&)
    {
        // At the first lines nothing has been computed yet.
    }
}

/// The client's own kernel, without a debugger.
std::vector<double> TimePlainRuns(const CLibraries& libraries, size_t nItems)
{
    CLaunch launch(libraries, MakeLaunch(s_pszKernel, "walk", nItems));
    launch.ResetContents();
    return Time(9, [&] { launch.Run(); });
}

double MedianOf(std::vector<double> v)
{
    std::nth_element(v.begin(), v.begin() + static_cast<ptrdiff_t>(v.size() / 2), v.end());
    return v[v.size() / 2];
}

void AddSmall(CReport& report, const CLibraries& libraries)
{
    const unsigned int nSessions = 5;
    const SFigures alone = MeasureSteps(libraries, 1024, nSessions, LookAtNothing);
    report.Add("next at 1,024 work-items, ms", alone.vTimes, 0.3);
    report.Add("its kernel runs", alone.vRuns, 2);
    const SFigures locals = MeasureSteps(libraries, 1024, nSessions, ReadLocals);
    report.Add("next with all variables of all work-items, ms", locals.vTimes, 1);
    report.Add("its kernel runs", locals.vRuns, 0);
}

void AddLarge(CReport& report, const CLibraries& libraries)
{
    const size_t nItems = size_t(1) << 20;
    const double fPlain = MedianOf(TimePlainRuns(libraries, nItems)) * 1000;
    report.Add("plain run at 1 M work-items, ms", {fPlain}, 0);
    const SFigures alone = MeasureSteps(libraries, nItems, 1, LookAtNothing);
    report.Add("next at 1 M work-items, plain runs", Scaled(alone.vTimes, 1 / fPlain), 3);
    const SFigures stats = MeasureSteps(libraries, nItems, 1, LookAtStats);
    report.Add("the same with stats, plain runs", Scaled(stats.vTimes, 1 / fPlain), 5);
}

/// A loop that changes two hundred variables, and a breakpoint after it.
std::string MakeWideKernel()
{
    const int nVariables = 200;
    std::string strText =
        "#line 1 \"wide.cl\"\nkernel void wide(global int* out, int passes)\n{\nint id = get_global_id(0);\n";
    std::string strBody;
    std::string strSum = "0";
    for (int n = 0; n < nVariables; ++n)
    {
        const std::string strName = "v" + std::to_string(n);
        strText += "int " + strName + " = id + " + std::to_string(n) + ";\n";
        strBody += strName + " = " + strName + " * 3 + pass;\n";
        strSum += " + " + strName;
    }
    return strText + "for (int pass = 0; pass < passes; ++pass)\n{\n" + strBody +
           "}\nint last = id;\nout[id] = last;\nout[id] = " + strSum + ";\n}\n";
}

void AddContinue(CReport& report, const CLibraries& libraries)
{
    CSilence silence;
    const std::string strSource = MakeWideKernel();
    const auto nLines = static_cast<unsigned int>(std::count(strSource.begin(), strSource.end(), '\n'));
    CDebugger debugger(libraries, MakeLaunch(strSource, "wide", 1024), silence);
    debugger.GetBreakpoints().Add(
        FindSourceLines(debugger.GetListing(), debugger.GetDebugInfo(), nullptr, {"wide.cl", nLines - 3}), false);
    std::vector<double> vRuns;
    std::vector<double> vLocals;
    for (int n = 0; n < 5; ++n)
    {
        debugger.Start();
        const uint64_t nBefore = debugger.GetRuns();
        debugger.Continue(1);
        debugger.RequireLive();
        const uint64_t nStopped = debugger.GetRuns();
        ReadLocals(debugger);
        vRuns.push_back(static_cast<double>(nStopped - nBefore));
        vLocals.push_back(static_cast<double>(debugger.GetRuns() - nStopped));
        debugger.Kill();
    }
    report.Add("kernel runs of a continue after a loop with 200 variables", vRuns, 1.5);
    report.Add("and of reading all of them", vLocals, 1.5);
}

/// A session's peak memory up to its first line, in bytes per work-item, with a buffer of nBytes for each.
double MeasureMemory(const CLibraries& libraries, size_t nBytes)
{
    const size_t nItems = size_t(1) << 24;
    CSilence silence;
    SLaunchFile file = MakeLaunch(s_pszKernel, "walk", nItems);
    file.vArguments.front().vContents.assign(nItems * nBytes, 0);
    CDebugger debugger(libraries, file, silence);
    const double fBefore = StartMemoryPeak();
    debugger.Start();
    CLineStepper(debugger).Next(2);
    const double fPeak = MemoryPeak() - fBefore;
    debugger.Kill();
    return fPeak * 1024 / static_cast<double>(nItems);
}

/// The memory that a session keeps for each work-item, without the copies of buffers, which grow with the buffer.
void AddMemory(CReport& report, const CLibraries& libraries)
{
    const double fSmall = MeasureMemory(libraries, 4);
    const double fLarge = MeasureMemory(libraries, 8);
    const double fCopies = (fLarge - fSmall) / 4;
    report.Add("bytes a work-item beside the copies of its buffer", {fSmall - fCopies * 4}, 2);
    report.Add("copies of a buffer", {fCopies}, 0);
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        CReport report("source", argc, argv);
        const std::string strLib = GetLibraryFolder();
        const CLibraries libraries(strLib + "/kestrel-platform", strLib + "/libOVKKestrel.so.1");
        // Comes first, as the heap would reuse memory that others have freed.
        AddMemory(report, libraries);
        AddSmall(report, libraries);
        AddLarge(report, libraries);
        AddContinue(report, libraries);
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "bench_source: %s\n", error.what());
        return 1;
    }
    return 0;
}
