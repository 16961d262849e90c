#include "bench/BenchCalls.h"

#include <atomic>
#include <chrono>

namespace KestrelBench
{

namespace
{

typedef std::chrono::steady_clock Clock;

cl_icd_dispatch s_Table;
std::array<std::atomic<int64_t>, CALL_Kinds> s_vNanoseconds;

class CTimer
{
public:
    explicit CTimer(ECallKind eKind) : m_eKind(eKind), m_Start(Clock::now()) {}
    ~CTimer() { s_vNanoseconds[m_eKind] += std::chrono::nanoseconds(Clock::now() - m_Start).count(); }
    CTimer(const CTimer&) = delete;
    CTimer& operator=(const CTimer&) = delete;

private:
    ECallKind m_eKind;
    Clock::time_point m_Start;
};

template <auto pEntry, ECallKind eKind, typename Function>
struct STimed;

template <auto pEntry, ECallKind eKind, typename Result, typename... Parameters>
struct STimed<pEntry, eKind, Result(CL_API_CALL*)(Parameters...)>
{
    static Result CL_API_CALL Call(Parameters... parameters)
    {
        const CTimer timer(eKind);
        return (s_Table.*pEntry)(parameters...);
    }
};

template <auto pEntry, ECallKind eKind, typename Function>
void Wrap(cl_icd_dispatch& table, Function cl_icd_dispatch::*)
{
    if (table.*pEntry != nullptr)
    {
        table.*pEntry = &STimed<pEntry, eKind, Function>::Call;
    }
}

template <auto pEntry, ECallKind eKind>
void Wrap(cl_icd_dispatch& table)
{
    Wrap<pEntry, eKind>(table, pEntry);
}

} // namespace

std::array<double, CALL_Kinds> TakeCallTimes()
{
    std::array<double, CALL_Kinds> vSeconds = {};
    for (size_t n = 0; n < vSeconds.size(); ++n)
    {
        vSeconds[n] = static_cast<double>(s_vNanoseconds[n].exchange(0)) * 1e-9;
    }
    return vSeconds;
}

cl_icd_dispatch MakeTimedTable(const cl_icd_dispatch& table)
{
    s_Table = table;
    cl_icd_dispatch timed = table;
    Wrap<&cl_icd_dispatch::clCreateProgramWithBinary, CALL_Build>(timed);
    Wrap<&cl_icd_dispatch::clBuildProgram, CALL_Build>(timed);
    Wrap<&cl_icd_dispatch::clCreateKernel, CALL_Build>(timed);
    Wrap<&cl_icd_dispatch::clReleaseKernel, CALL_Build>(timed);
    Wrap<&cl_icd_dispatch::clReleaseProgram, CALL_Build>(timed);
    Wrap<&cl_icd_dispatch::clEnqueueCopyBuffer, CALL_Transfer>(timed);
    Wrap<&cl_icd_dispatch::clEnqueueCopyImage, CALL_Transfer>(timed);
    Wrap<&cl_icd_dispatch::clEnqueueWriteBuffer, CALL_Transfer>(timed);
    Wrap<&cl_icd_dispatch::clEnqueueNDRangeKernel, CALL_Run>(timed);
    Wrap<&cl_icd_dispatch::clWaitForEvents, CALL_Run>(timed);
    Wrap<&cl_icd_dispatch::clFinish, CALL_Transfer>(timed);
    Wrap<&cl_icd_dispatch::clEnqueueMapBuffer, CALL_Transfer>(timed);
    Wrap<&cl_icd_dispatch::clEnqueueUnmapMemObject, CALL_Transfer>(timed);
    Wrap<&cl_icd_dispatch::clEnqueueReadBuffer, CALL_Transfer>(timed);
    Wrap<&cl_icd_dispatch::clSetKernelArg, CALL_Other>(timed);
    Wrap<&cl_icd_dispatch::clGetMemObjectInfo, CALL_Other>(timed);
    Wrap<&cl_icd_dispatch::clGetKernelInfo, CALL_Other>(timed);
    Wrap<&cl_icd_dispatch::clGetEventInfo, CALL_Other>(timed);
    Wrap<&cl_icd_dispatch::clCreateBuffer, CALL_Other>(timed);
    Wrap<&cl_icd_dispatch::clReleaseMemObject, CALL_Other>(timed);
    return timed;
}

} // namespace KestrelBench
