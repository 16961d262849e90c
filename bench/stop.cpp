// The cost of a stop, compared with its lower bound: one run of the unpatched kernel, one copy of its
// buffers and one read of the output buffers. Times are milliseconds.

#include "KestrelPlatform.h"
#include "bench/BenchCalls.h"
#include "bench/BenchCores.h"
#include "bench/BenchMemory.h"
#include "bench/BenchReport.h"
#include "tools/session/launch/Launch.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <stdexcept>

using namespace KestrelBench;
using namespace KestrelTool;

namespace
{

const unsigned int s_nMaxStops = 40;
/// The size of the two output buffers for each work-item.
const size_t s_nOutputBytes = 20;
const size_t s_nElementBytes = 4;
const size_t s_nLocalSize = 64;
const char* const s_pszKernel = "line";
/// If one run takes more work than this, only two stops are measured.
const double s_fLongRun = 5e8;

/// The beginning of each kernel's text: r0.x is the work-item's number, buffer 0 the only argument.
const char* const s_pszHead =
    ";ARGSTART:__OpenCL_line_kernel\n;version:3:1:104\n;device:quench\n;uniqueid:1024\n;memory:64bitABI\n"
    ";pointer:data:i32:1:1:0:uav:10:4:RW:0:0\n;function:1:1030\n;ARGEND:__OpenCL_line_kernel\n"
    "il_cs_2_0\ndcl_cb cb0[10]\ndcl_cb cb1[1]\ndcl_literal l0, 2, 1, 0, -1\n"
    "dcl_literal l1, 1000000, 3, 5, 7\n;$$$$$$$$$$\nendmain\nfunc 1024\n;__OpenCL_line_kernel\n"
    "dcl_max_thread_per_group 256\ndcl_typeless_uav_id(10)_stride(4)_length(4)\n"
    "imad r0.x, vThreadGrpId.x, cb0[1].x, vTidInGrp.x\n";
const char* const s_pszTail = "ret\nendfunc\nend\n";

/// A straight line of arithmetic between a load and a store.
std::string MakeText(unsigned int nInstructions, const std::string& strBody)
{
    std::string strLine = "ishl r1.x, r0.x, l0.x\ni64add r2.xy, cb1[0].xy, r1.x000\n"
                          "uav_raw_load_id(10)_addr64 r3.x, r2.xy\n" +
                          strBody;
    for (unsigned int n = strBody.empty() ? 7 : nInstructions; n < nInstructions; ++n)
    {
        const std::string strTarget = "r" + std::to_string(4 + n % 8) + ".x";
        strLine += "imad " + strTarget + ", r3.x, l1.y, r" + std::to_string(4 + (n + 5) % 8) + ".x\n";
    }
    return s_pszHead + strLine + "iadd r3.x, r3.x, r4.x\nuav_raw_store_id(10)_addr64 mem0.x, r2.xy, r3.x\n" + s_pszTail;
}

/// Stores like the outputs of a stop: a register for each work-item, and after all of them a word for each.
std::string MakeOutputsText()
{
    return s_pszHead +
           std::string("ishl r1.x, r0.x, l0.x\nishl r2.x, r1.x, l0.x\n"
                       "i64add r2.xy, cb1[0].xy, r2.x000\n"
                       "uav_raw_store_id(10)_addr64 mem0, r2.xy, r0.xxxx\n"
                       "ishl r3.x, cb0[0].x, l0.x\nishl r3.x, r3.x, l0.x\niadd r1.x, r1.x, r3.x\n"
                       "i64add r2.xy, cb1[0].xy, r1.x000\n"
                       "uav_raw_store_id(10)_addr64 mem0.x, r2.xy, r0.x\n") +
           s_pszTail;
}

SLaunchFile MakeLaunch(unsigned int nInstructions, size_t nItems, const std::string& strBody = "")
{
    SLaunchFile launch;
    launch.strPath = "benchmark";
    launch.strKernel = s_pszKernel;
    launch.strDevice = "Quench";
    launch.strOptions = "-g";
    launch.nGlobalSize[0] = nItems;
    launch.bHasLocalSize = true;
    launch.nLocalSize[0] = s_nLocalSize;
    launch.strSource = MakeText(nInstructions, strBody);
    SArgument data;
    data.eKind = SArgument::Buffer;
    data.pType = FindElementType("int");
    data.vContents.assign(nItems * s_nElementBytes, 1);
    launch.vArguments.push_back(data);
    return launch;
}

void Require(bool bDone, const char* pszWhat)
{
    if (!bDone)
    {
        throw std::runtime_error(pszWhat);
    }
}

const SPlatformControl& Control(const CLibraries& libraries)
{
    void* pFunction = libraries.cl.clGetExtensionFunctionAddress("kestrelPlatformControl");
    Require(pFunction != nullptr, "the platform has no control");
    return *reinterpret_cast<const SPlatformControl* (*)()>(pFunction)();
}

/// The lower bound: one run of the kernel, one copy of its buffers, and one read of as many bytes as a stop's outputs,
/// which a kernel has just written. Measured after each stop, so that both see the same state of the machine.
class CFloor
{
public:
    CFloor(const CLibraries& libraries, CLaunch& launch)
        : m_Cl(libraries.cl), m_Launch(launch), m_nItems(launch.GetWorkItems()), m_vBytes(m_nItems * s_nOutputBytes)
    {
        cl_context context = nullptr;
        m_Cl.clGetCommandQueueInfo(launch.GetQueue(), CL_QUEUE_CONTEXT, sizeof(context), &context, nullptr);
        m_Copy = m_Cl.clCreateBuffer(context, CL_MEM_READ_WRITE, m_nItems * s_nElementBytes, nullptr, nullptr);
        m_Outputs = m_Cl.clCreateBuffer(context, CL_MEM_READ_WRITE, m_vBytes.size(), nullptr, nullptr);
        m_Queue = m_Cl.clCreateCommandQueue(context, launch.GetDevice(), 0, nullptr);
        const std::string strText = MakeOutputsText();
        const char* pszText = strText.c_str();
        m_Program = m_Cl.clCreateProgramWithSource(context, 1, &pszText, nullptr, nullptr);
        m_Cl.clBuildProgram(m_Program, 0, nullptr, "", nullptr, nullptr);
        m_Writer = m_Cl.clCreateKernel(m_Program, s_pszKernel, nullptr);
        Require(m_Writer != nullptr, "the outputs' kernel can't be built");
        m_Cl.clSetKernelArg(m_Writer, 0, sizeof(m_Outputs), &m_Outputs);
    }
    ~CFloor()
    {
        m_Cl.clReleaseKernel(m_Writer);
        m_Cl.clReleaseProgram(m_Program);
        m_Cl.clReleaseCommandQueue(m_Queue);
        m_Cl.clReleaseMemObject(m_Outputs);
        m_Cl.clReleaseMemObject(m_Copy);
    }
    CFloor(const CFloor&) = delete;
    CFloor& operator=(const CFloor&) = delete;

    double Take()
    {
        RunKernel(m_Writer);
        m_Cl.clFinish(m_Queue);
        LetThreadsSleep();
        const double fSeconds = TimeOnce(
            [this]
            {
                m_Cl.clEnqueueCopyBuffer(m_Queue, m_Launch.GetMemory(0), m_Copy, 0, 0, m_nItems * s_nElementBytes, 0,
                                         nullptr, nullptr);
                RunKernel(m_Launch.GetKernel());
                Require(m_Cl.clEnqueueReadBuffer(m_Queue, m_Outputs, CL_TRUE, 0, m_vBytes.size(), m_vBytes.data(), 0,
                                                 nullptr, nullptr) == CL_SUCCESS,
                        "the floor can't be measured");
            });
        // Each work-item's word is its number.
        uint32_t nLast = 0;
        std::memcpy(&nLast, m_vBytes.data() + m_vBytes.size() - sizeof nLast, sizeof nLast);
        Require(nLast == m_nItems - 1, "the outputs aren't written");
        return fSeconds;
    }

private:
    /// The runtime's threads stay awake for some microseconds, but when a stop's kernel comes they are asleep.
    static void LetThreadsSleep()
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(100);
        while (std::chrono::steady_clock::now() < end)
        {
        }
    }

    void RunKernel(cl_kernel kernel)
    {
        Require(m_Cl.clEnqueueNDRangeKernel(m_Queue, kernel, 1, nullptr, &m_nItems, &s_nLocalSize, 0, nullptr,
                                            nullptr) == CL_SUCCESS,
                "a kernel of the floor can't be run");
    }

    const cl_icd_dispatch_table& m_Cl;
    CLaunch& m_Launch;
    size_t m_nItems;
    std::vector<char> m_vBytes;
    cl_mem m_Copy = nullptr;
    cl_mem m_Outputs = nullptr;
    cl_command_queue m_Queue = nullptr;
    cl_program m_Program = nullptr;
    cl_kernel m_Writer = nullptr; ///< of m_Outputs
};

/// A session that continues to a line near the kernel's end, and steps from there.
class CMeasuredSession
{
public:
    CMeasuredSession(const CLibraries& libraries, unsigned int nStops) : m_Lib(libraries), m_nStops(nStops) {}

    void Run(CLaunch& launch, bool bOneRegister = false, CFloor* pFloor = nullptr)
    {
        m_bOneRegister = bOneRegister;
        m_pFloor = pFloor;
        m_Start = std::chrono::steady_clock::now();
        const cl_int nCode = launch.Debug(&CMeasuredSession::OnEvent, this);
        Require(nCode == CL_SUCCESS, "the launch can't be debugged");
        launch.ReadContents(0);
        Require(m_bStarted, "the session didn't start");
    }

    ovkclDebugPC nLine = 0; ///< the target of the continue
    double fAnalysis = 0;   ///< from the enqueue to the first event
    uint64_t nContinueRuns = 0;
    std::vector<double> vStops;  ///< seconds of each step
    std::vector<double> vFloors; ///< the lower bound after each, in seconds
    std::vector<double> vQueries;
    std::array<std::vector<double>, CALL_Kinds> vCalls; ///< the part spent in the runtime
    uint64_t nStepRuns = 0;

private:
    static ovkclDebugCommand OnEvent(ovkclDebugContext context, ovkclDebugEvent nEvent, void* pUser)
    {
        return static_cast<CMeasuredSession*>(pUser)->Answer(context, nEvent);
    }

    ovkclDebugCommand Answer(ovkclDebugContext context, ovkclDebugEvent nEvent)
    {
        const double fSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_Start).count();
        if (nEvent == OVKCLDEBUG_EVENT_STARTED)
        {
            m_bStarted = true;
            fAnalysis = fSeconds;
            GoNearTheEnd(context);
            return Go(OVKCLDEBUG_COMMAND_CONTINUE);
        }
        if (nEvent != OVKCLDEBUG_EVENT_HALTED)
        {
            return OVKCLDEBUG_COMMAND_CONTINUE;
        }
        const uint64_t nRuns = Control(m_Lib).GetCounter(PLATFORM_COUNTER_KERNEL_RUNS);
        const std::array<double, CALL_Kinds> vTimes = TakeCallTimes();
        if (m_bContinued)
        {
            m_bContinued = false;
            nContinueRuns = nRuns;
            m_Lib.ovkclDebugClearAllBreakpoints(context);
        }
        else
        {
            vStops.push_back(fSeconds);
            nStepRuns += nRuns;
            for (size_t n = 0; n < vTimes.size(); ++n)
            {
                vCalls[n].push_back(vTimes[n]);
            }
        }
        Query(context);
        if (m_pFloor != nullptr && vStops.size() > vFloors.size())
        {
            vFloors.push_back(m_pFloor->Take());
        }
        return Go(vStops.size() < m_nStops ? OVKCLDEBUG_COMMAND_STEP : OVKCLDEBUG_COMMAND_CONTINUE);
    }

    ovkclDebugCommand Go(ovkclDebugCommand nCommand)
    {
        Control(m_Lib).ClearCounters();
        TakeCallTimes();
        m_Start = std::chrono::steady_clock::now();
        return nCommand;
    }

    void GoNearTheEnd(ovkclDebugContext context)
    {
        size_t nSize = 0;
        Require(m_Lib.ovkclDebugGetKernelBinarySize(context, &nSize) == OVKCLDEBUG_SUCCESS, "no kernel binary");
        ovkclDebugRegisterLocator locator = 0;
        m_Lib.ovkclDebugUtilStringToDebugRegisterLocator(reinterpret_cast<const cl_char*>("r4"), &locator);
        if (m_bOneRegister)
        {
            m_Lib.ovkclDebugSetTrackingRegisters(context, &locator, 1);
        }
        m_bContinued = true;
        Require(m_Lib.ovkclDebugSetBreakpoint(context, nLine, 0, nullptr) == OVKCLDEBUG_SUCCESS, "no breakpoint");
    }

    void Query(ovkclDebugContext context)
    {
        ovkclDebugRegisterLocator locator = 0;
        m_Lib.ovkclDebugUtilStringToDebugRegisterLocator(reinterpret_cast<const cl_char*>("r4"), &locator);
        const cl_bool* pMask = nullptr;
        const void* pValues = nullptr;
        size_t nSize = 0;
        size_t nStride = 0;
        vQueries.push_back(TimeOnce(
            [&]
            {
                for (int n = 0; n < 100; ++n)
                {
                    m_Lib.ovkclDebugGetExecutionMask(context, &pMask, &nSize);
                    m_Lib.ovkclDebugGetRegisterValues(context, locator, &pValues, &nSize, &nStride);
                }
            }));
    }

    const CLibraries& m_Lib;
    std::chrono::steady_clock::time_point m_Start;
    unsigned int m_nStops;
    CFloor* m_pFloor = nullptr;
    bool m_bStarted = false;
    bool m_bContinued = false;
    bool m_bOneRegister = false;
};

/// The line nBefore lines before the last one in the kernel's text that begins with strBegin, as the debugger counts.
ovkclDebugPC FindLine(const SLaunchFile& file, const std::string& strBegin, int nBefore)
{
    std::vector<std::string> vLines;
    size_t nStart = file.strSource.find("il_cs_2_0");
    while (nStart < file.strSource.size())
    {
        const size_t nEnd = file.strSource.find('\n', nStart);
        vLines.push_back(file.strSource.substr(nStart, nEnd - nStart));
        nStart = nEnd + 1;
    }
    const auto it = std::find_if(vLines.rbegin(), vLines.rend(),
                                 [&](const std::string& strLine) { return strLine.rfind(strBegin, 0) == 0; });
    Require(it != vLines.rend(), "no such line");
    return static_cast<ovkclDebugPC>(vLines.rend() - it - 1 - nBefore);
}

double Median(std::vector<double> vFigures)
{
    std::sort(vFigures.begin(), vFigures.end());
    return vFigures[vFigures.size() / 2];
}

struct SCost
{
    std::vector<double> vStops;
    std::vector<double> vBeyond; ///< time beyond the lower bound measured after it
    std::vector<double> vRatios; ///< that relative to the lower bound
    std::vector<double> vShare;  ///< the part of a stop outside the runtime
    std::vector<double> vQueries;
};

std::string Name(unsigned int nInstructions, size_t nItems)
{
    return std::to_string(nInstructions) + " instructions, " + std::to_string(nItems) + " work-items";
}

SCost Measure(const CLibraries& libraries, CReport& report, unsigned int nInstructions, size_t nItems)
{
    const bool bLong = double(nInstructions) * double(nItems) > s_fLongRun;
    const unsigned int nStops = bLong ? 2 : std::min(s_nMaxStops, nInstructions - 8);
    const SLaunchFile file = MakeLaunch(nInstructions, nItems);
    CLaunch launch(libraries, file);
    CMeasuredSession session(libraries, nStops);
    session.nLine = FindLine(file, "iadd r3.x", static_cast<int>(nStops));
    CFloor floor(libraries, launch);
    session.Run(launch, false, &floor);

    SCost cost;
    cost.vStops = session.vStops;
    cost.vQueries = session.vQueries;
    std::vector<double> vLibrary;
    for (size_t n = 0; n < cost.vStops.size(); ++n)
    {
        double fInRuntime = 0;
        for (const std::vector<double>& vTimes : session.vCalls)
        {
            fInRuntime += vTimes[n];
        }
        cost.vBeyond.push_back(cost.vStops[n] - session.vFloors[n]);
        cost.vRatios.push_back(cost.vBeyond[n] / session.vFloors[n]);
        vLibrary.push_back(cost.vStops[n] - fInRuntime);
        cost.vShare.push_back(vLibrary.back() / cost.vStops[n]);
    }
    const std::string strName = Name(nInstructions, nItems);
    const char* const kinds[] = {"the runtime's builds", "waiting and transfers", "launching", "other calls"};
    report.Add(strName + ": analysis and first instruction", {session.fAnalysis * 1000}, 0);
    report.Add(strName + ": a stop", Scaled(cost.vStops, 1000), 0);
    report.Add(strName + ": its floor", Scaled(session.vFloors, 1000), 0);
    for (size_t n = 0; n < CALL_Kinds; ++n)
    {
        report.Add(strName + ":   " + kinds[n], Scaled(session.vCalls[n], 1000), 0);
    }
    report.Add(strName + ":   the library", Scaled(vLibrary, 1000), 0);
    report.Add(strName + ":   the library's share", cost.vShare, 0);
    report.Add(strName + ": stops a second", {1 / Median(cost.vStops)}, 0);
    report.Add(strName + ": kernel runs a stop", {double(session.nStepRuns) / double(cost.vStops.size())}, 0);
    return cost;
}

void MeasureLoop(const CLibraries& libraries, CReport& report)
{
    const SLaunchFile file = MakeLaunch(0, 64,
                                        "mov r4.x, l0.z\nwhileloop\nige r5.x, r4.x, l1.x\nbreak_logicalnz r5.x\n"
                                        "iadd r4.x, r4.x, l0.y\nendloop\n");
    CLaunch launch(libraries, file);
    CMeasuredSession session(libraries, 1);
    session.nLine = FindLine(file, "iadd r3.x", 0);
    session.Run(launch);
    // One run for each register that was written on the way, r0 to r5, and one for the stop's own instruction.
    const double fRule = 6 + 1;
    report.Add("kernel runs of a continue after a million passes", {double(session.nContinueRuns)}, 0);
    report.Add("the same, beyond what the rules say", {double(session.nContinueRuns) - fRule}, 1);
}

void MeasureMemory(const CLibraries& libraries, CReport& report)
{
    const size_t nItems = size_t(1) << 20;
    const SLaunchFile file = MakeLaunch(100, nItems);
    CLaunch launch(libraries, file);
    launch.Run();
    const double fBefore = StartMemoryPeak();
    CMeasuredSession session(libraries, 4);
    session.nLine = FindLine(file, "iadd r3.x", 6);
    session.Run(launch, true);
    const double fGrowth = (MemoryPeak() - fBefore) * 1024 / double(nItems);
    // The buffer exists in two copies: the saved contents and the working copy.
    report.Add("bytes a work-item beyond the buffers' copies", {fGrowth - 2 * s_nElementBytes}, 60);
}

void MeasureAll(const CLibraries& libraries, CReport& report)
{
    const unsigned int lengths[] = {10, 100, 1000, 10000};
    const size_t sizes[] = {64, 1024, 65536, 1048576};
    SCost costs[4][4];
    for (size_t l = 0; l < 4; ++l)
    {
        for (size_t s = 0; s < 4; ++s)
        {
            costs[l][s] = Measure(libraries, report, lengths[l], sizes[s]);
        }
    }
    report.Add("beyond the floor, 100 instructions, 65536 work-items", Scaled(costs[1][2].vBeyond, 1000), 1);
    report.Add("the same, over the floor", costs[1][2].vRatios, 0.5);
    report.Add("beyond the floor, 1000 instructions, 65536 work-items", Scaled(costs[2][2].vBeyond, 1000), 5);
    report.Add("a stop, 100 instructions, 1024 work-items", Scaled(costs[1][1].vStops, 1000), 0.5);
    for (size_t l = 1; l < 4; ++l)
    {
        const std::string strCase = "ten times as long: " + Name(lengths[l], 1024);
        report.Add(strCase, {Median(costs[l][1].vStops) / Median(costs[l - 1][1].vStops)}, 11);
    }
    for (size_t s = 1; s < 4; ++s)
    {
        const double fLarger = double(sizes[s]) / double(sizes[s - 1]);
        const std::string strCase = "growth with the work-items over theirs: " + Name(100, sizes[s]);
        report.Add(strCase, {Median(costs[1][s].vStops) / Median(costs[1][s - 1].vStops) / fLarger}, 1.1);
    }
    report.Add("a query, 1048576 work-items over 64",
               Ratios({Median(costs[1][3].vQueries)}, {Median(costs[1][0].vQueries)}), 3);
}

/// Half of what a stop reads was written by the other core, so the time between cores explains differences between
/// runs.
void AddCacheLine(CReport& report, const std::string& strWhen)
{
    const std::vector<double> vSeconds = TimeCacheLine();
    if (!vSeconds.empty())
    {
        report.Add("ns of a cache line to the other core and back, " + strWhen + " the stops", Scaled(vSeconds, 1e9),
                   0);
    }
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        CReport report("stop", argc, argv);
        const CLibraries libraries(GetLibraryFolder() + "/kestrel-platform",
                                   GetLibraryFolder() + "/libOVKKestrel.so.1");
        const cl_icd_dispatch_table timed = MakeTimedTable(libraries.cl);
        libraries.ovkclDebugSetDispatchTable(&timed);
        // Comes first, before other sessions free memory that would be reused.
        MeasureMemory(libraries, report);
        MeasureLoop(libraries, report);
        AddCacheLine(report, "before");
        MeasureAll(libraries, report);
        AddCacheLine(report, "after");
        return 0;
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "bench stop: %s\n", error.what());
        return 1;
    }
}
