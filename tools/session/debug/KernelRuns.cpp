#include "tools/session/debug/KernelRuns.h"

#include "tools/session/debug/RuntimeFailures.h"

#include "KestrelPlatform.h"

#include <algorithm>
#include <chrono>
#include <mutex>

namespace KestrelTool
{

namespace
{

typedef std::chrono::steady_clock Clock;

// Global, since calls of the runtime have no parameter for it.
struct SShared
{
    std::mutex mutex;
    const cl_icd_dispatch_table* pTable = nullptr;
    uint64_t nRuns = 0;
    double fSeconds = 0;
    double fLongest = 0;
    bool bRunning = false;
    Clock::time_point start;
    std::vector<char> vImage;
    bool bRefusing = false;
    uint64_t nWatched = 0; ///< mappings are kept until the end of this run; 0 for none
    std::vector<std::vector<unsigned char>> vReads;
    const SPlatformControl* pControl = nullptr; ///< counts plain runs; null for none
    cl_uint nArguments = 0;                     ///< of the unpatched kernel
};

const size_t s_nSmallBuffer = 1 << 16;
const uint64_t s_nFirstRuns = 3;

SShared& Shared()
{
    static SShared s_Shared;
    return s_Shared;
}

/// \return whether to refuse the run
bool NoteStart()
{
    const std::lock_guard<std::mutex> lock(Shared().mutex);
    if (Shared().bRefusing)
    {
        return true;
    }
    ++Shared().nRuns;
    Shared().bRunning = true;
    Shared().start = Clock::now();
    return false;
}

void NoteEnd()
{
    const std::lock_guard<std::mutex> lock(Shared().mutex);
    if (Shared().bRunning)
    {
        const double fSeconds = std::chrono::duration<double>(Clock::now() - Shared().start).count();
        Shared().fSeconds += fSeconds;
        Shared().fLongest = std::max(Shared().fLongest, fSeconds);
        Shared().bRunning = false;
    }
}

/// \param nCode  result of waiting for the run
cl_int TellEnd(cl_int nCode)
{
    NoteEnd();
    const std::lock_guard<std::mutex> lock(Shared().mutex);
    return nCode != CL_SUCCESS && Shared().bRefusing ? OVKCLDEBUG_EXT_RUN_BROKEN_OFF : nCode;
}

void ChooseWhetherToCount(cl_kernel kernel)
{
    const std::lock_guard<std::mutex> lock(Shared().mutex);
    cl_uint nArguments = 0;
    if (Shared().pControl != nullptr && Shared().pTable->clGetKernelInfo(kernel, CL_KERNEL_NUM_ARGS, sizeof(nArguments),
                                                                         &nArguments, nullptr) == CL_SUCCESS)
    {
        Shared().pControl->CountVisits(nArguments == Shared().nArguments ? 1 : 0);
    }
}

cl_int CL_API_CALL EnqueueKernel(cl_command_queue queue, cl_kernel kernel, cl_uint nDimensions, const size_t* pOffset,
                                 const size_t* pGlobal, const size_t* pLocal, cl_uint nWaits, const cl_event* pWaits,
                                 cl_event* pEvent)
{
    if (NoteStart())
    {
        return OVKCLDEBUG_EXT_RUN_BROKEN_OFF;
    }
    ChooseWhetherToCount(kernel);
    return Shared().pTable->clEnqueueNDRangeKernel(queue, kernel, nDimensions, pOffset, pGlobal, pLocal, nWaits, pWaits,
                                                   pEvent);
}

cl_int CL_API_CALL WaitForEvents(cl_uint nEvents, const cl_event* pEvents)
{
    return TellEnd(Shared().pTable->clWaitForEvents(nEvents, pEvents));
}

cl_int CL_API_CALL Finish(cl_command_queue queue)
{
    return TellEnd(Shared().pTable->clFinish(queue));
}

void* CL_API_CALL MapBuffer(cl_command_queue queue, cl_mem buffer, cl_bool bBlocking, cl_map_flags flags,
                            size_t nOffset, size_t nSize, cl_uint nWaits, const cl_event* pWaits, cl_event* pEvent,
                            cl_int* pCode)
{
    void* pData = Shared().pTable->clEnqueueMapBuffer(queue, buffer, bBlocking, flags, nOffset, nSize, nWaits, pWaits,
                                                      pEvent, pCode);
    const std::lock_guard<std::mutex> lock(Shared().mutex);
    const bool bWatched = Shared().nWatched != 0 && Shared().nRuns <= Shared().nWatched;
    if (bWatched && pData != nullptr && bBlocking != CL_FALSE && (flags & CL_MAP_READ) != 0 && nSize <= s_nSmallBuffer)
    {
        const unsigned char* pBytes = static_cast<const unsigned char*>(pData);
        Shared().vReads.emplace_back(pBytes, pBytes + nSize);
    }
    return pData;
}

cl_program CL_API_CALL CreateProgram(cl_context context, cl_uint nDevices, const cl_device_id* pDevices,
                                     const size_t* pLengths, const unsigned char** ppBinaries, cl_int* pStatus,
                                     cl_int* pCode)
{
    if (nDevices == 1 && pLengths != nullptr && ppBinaries != nullptr && ppBinaries[0] != nullptr)
    {
        const std::lock_guard<std::mutex> lock(Shared().mutex);
        Shared().vImage.assign(ppBinaries[0], ppBinaries[0] + pLengths[0]);
    }
    return Shared().pTable->clCreateProgramWithBinary(context, nDevices, pDevices, pLengths, ppBinaries, pStatus,
                                                      pCode);
}

/// Leaves a function missing if the runtime doesn't have it.
template <typename Function>
void Replace(Function& entry, Function replacement)
{
    entry = entry != nullptr ? replacement : entry;
}

} // namespace

CKernelRuns::CKernelRuns(const CLibraries& libraries) : m_Lib(libraries), m_Noting(NoteFailures(libraries.cl))
{
    Shared().pTable = &m_Noting;
    Shared().nRuns = 0;
    Shared().fSeconds = 0;
    Shared().fLongest = 0;
    Shared().vImage.clear();
    Shared().vReads.clear();
    Shared().bRefusing = false;
    Shared().nWatched = 0;
    Shared().pControl = nullptr;
    cl_icd_dispatch_table table = m_Noting;
    Replace(table.clEnqueueNDRangeKernel, &EnqueueKernel);
    Replace(table.clWaitForEvents, &WaitForEvents);
    Replace(table.clFinish, &Finish);
    Replace(table.clEnqueueMapBuffer, &MapBuffer);
    Replace(table.clCreateProgramWithBinary, &CreateProgram);
    libraries.ovkclDebugSetDispatchTable(&table);
}

CKernelRuns::~CKernelRuns()
{
    Shared().pControl = nullptr;
    m_Lib.ovkclDebugSetDispatchTable(&m_Lib.cl);
}

uint64_t CKernelRuns::GetCount() const
{
    const std::lock_guard<std::mutex> lock(Shared().mutex);
    return Shared().nRuns;
}

double CKernelRuns::GetSeconds() const
{
    const std::lock_guard<std::mutex> lock(Shared().mutex);
    return Shared().fSeconds;
}

double CKernelRuns::GetLongestSeconds() const
{
    const std::lock_guard<std::mutex> lock(Shared().mutex);
    return Shared().fLongest;
}

double CKernelRuns::GetRunningSeconds() const
{
    const std::lock_guard<std::mutex> lock(Shared().mutex);
    return Shared().bRunning ? std::chrono::duration<double>(Clock::now() - Shared().start).count() : 0;
}

std::vector<char> CKernelRuns::GetLastImage() const
{
    const std::lock_guard<std::mutex> lock(Shared().mutex);
    return Shared().vImage;
}

void CKernelRuns::Refuse(bool bRefuse)
{
    const std::lock_guard<std::mutex> lock(Shared().mutex);
    Shared().bRefusing = bRefuse;
}

void CKernelRuns::CountPlainRuns(const SPlatformControl* pControl, cl_uint nArguments)
{
    const std::lock_guard<std::mutex> lock(Shared().mutex);
    Shared().pControl = pControl;
    Shared().nArguments = nArguments;
    if (pControl != nullptr)
    {
        pControl->CountVisits(1);
    }
}

void CKernelRuns::WatchFirstRuns()
{
    const std::lock_guard<std::mutex> lock(Shared().mutex);
    Shared().nWatched = Shared().nRuns + s_nFirstRuns;
    Shared().vReads.clear();
}

std::vector<std::vector<unsigned char>> CKernelRuns::GetFirstReads() const
{
    const std::lock_guard<std::mutex> lock(Shared().mutex);
    return Shared().vReads;
}

} // namespace KestrelTool
