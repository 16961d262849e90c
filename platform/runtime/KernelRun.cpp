// Runs launches, and keeps the results of the last run.

#include "platform/runtime/KernelRun.h"

#include "platform/compiler/DebugLines.h"
#include "platform/compiler/ElfReader.h"
#include "platform/compiler/ProgramImage.h"
#include "platform/runtime/Counters.h"
#include "platform/runtime/PrintfRecords.h"
#include "platform/runtime/Settings.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <optional>

namespace KestrelPlatform::Runtime
{

namespace
{

/// "kernel.cl:14" for an instruction, "" if the source isn't known.
std::string FindSourcePlace(const SExecutableKernel& kernel, uint32_t nInstruction)
{
    const std::vector<uint32_t>& vLines = kernel.m_Compiled.vLines;
    if (!kernel.m_pImage || nInstruction >= vLines.size() || vLines[nInstruction] == 0)
    {
        return {};
    }
    const std::vector<char>& vImage = kernel.m_pImage->GetBytes();
    KestrelPlatform::CElfReader elf;
    std::string strFault;
    std::string_view section;
    if (!elf.Read(vImage.data(), vImage.size(), strFault) || !elf.FindSection(KestrelPlatform::s_LineSection, section))
    {
        return {};
    }
    return KestrelPlatform::CDebugLines(section).Find(vLines[nInstruction] - 1);
}

/// "instruction 12", with the place in the source if it is known.
std::string NameInstruction(const SExecutableKernel& kernel, uint32_t nInstruction)
{
    const std::string strPlace = FindSourcePlace(kernel, nInstruction);
    return "instruction " + std::to_string(nInstruction) + (strPlace.empty() ? "" : " (" + strPlace + ")");
}

struct SLastFault
{
    std::mutex m_Mutex;
    std::shared_ptr<const SExecutableKernel> m_pExecutable;
    SPlatformFault m_Fault{};
    std::vector<SPlatformFaultRecord> m_vRecords;
    SPlatformEnd m_End{PLATFORM_END_COMPLETE, 0, ~cl_ulong(0)};
    std::vector<SPlatformBuffer> m_vBuffers;
    std::vector<cl_ulong> m_vVisits; ///< of the last run that counted them
    std::vector<SPlatformProfile> m_vProfile;
    std::vector<SPlatformFinding> m_vFindings;
    SPlatformCheckLimits m_checkLimits{0, 0};
    std::vector<SPlatformPlace> m_vPlaces;
    std::optional<SPlatformWatch> m_Watch; ///< for future runs
    std::vector<SPlatformAccess> m_vAccesses;
    std::vector<cl_uint> m_vFollowed; ///< arguments, for future runs
    SPlatformSizes m_Sizes{1, {1, 1, 1}, {1, 1, 1}, {0, 0, 0}};
};

std::atomic<bool> s_bBreakRuns{false};
std::atomic<bool> s_bCountVisits{false};
std::atomic<bool> s_bKeepProfile{false};
std::atomic<cl_uint> s_nChecks{0};

SLastFault& LastFault()
{
    static auto& s_fault = *new SLastFault;
    return s_fault;
}

SPlatformFaultRecord MakeRecord(const SFaultRecord& fault)
{
    const SBadAccess& access = fault.access;
    return {access.nInstruction, fault.bBarrier, access.bWrite, access.nWorkItem, access.nAddress, access.eMemory};
}

SPlatformSizes MakeSizes(const SLaunch& launch)
{
    SPlatformSizes sizes = {};
    sizes.nDimensions = launch.nDimensions;
    std::copy_n(launch.nGlobalSize, 3, sizes.global);
    std::copy_n(launch.nLocalSize, 3, sizes.local);
    std::copy_n(launch.nGlobalOffset, 3, sizes.offset);
    return sizes;
}

SPlatformEnd MakeEnd(const SLaunchResult& result)
{
    static constexpr EPlatformEnd s_ends[] = {PLATFORM_END_COMPLETE, PLATFORM_END_LIMIT, PLATFORM_END_BROKEN,
                                              PLATFORM_END_MEMORY};
    return {s_ends[result.eStatus], result.nStopInstruction, result.nStopWorkItem};
}

/// Replaces origins that are buffer numbers by the buffer's address and size.
void NameOrigins(const SCompiledKernel& kernel, std::vector<SPlatformFinding>& vFindings)
{
    for (SPlatformFinding& finding : vFindings)
    {
        if (finding.nKind != PLATFORM_FINDING_INIT || finding.nOrigin < PLATFORM_ORIGIN_BUFFER)
        {
            continue;
        }
        const SOriginBuffer buffer = FindOrigin(finding.nOrigin, kernel.b64BitAddresses);
        finding.nOrigin = PLATFORM_ORIGIN_BUFFER;
        finding.nOriginAddress = buffer.m_nAddress;
        finding.nOriginBytes = buffer.m_nSize;
    }
}

void KeepFault(SPreparedLaunch& prepared, SLaunchResult& result)
{
    NameOrigins(prepared.m_pExecutable->m_Compiled, result.vFindings);
    SPlatformFault fault{};
    fault.nBadAccesses = result.nBadAccesses;
    fault.nInstruction = result.firstBadAccess.nInstruction;
    fault.nWorkItem = result.firstBadAccess.nWorkItem;
    fault.nAddress = result.firstBadAccess.nAddress;
    fault.bWrite = result.firstBadAccess.bWrite ? 1 : 0;
    fault.nUnreachedBarriers = result.nUnreachedBarriers;
    std::vector<SPlatformFaultRecord> vRecords;
    for (const SFaultRecord& record : result.vFaults)
    {
        vRecords.push_back(MakeRecord(record));
    }
    SLastFault& last = LastFault();
    std::lock_guard<std::mutex> lock(last.m_Mutex);
    last.m_pExecutable = prepared.m_pExecutable;
    last.m_Fault = fault;
    last.m_vRecords.swap(vRecords);
    last.m_End = MakeEnd(result);
    last.m_Sizes = MakeSizes(prepared.m_Launch);
    last.m_vBuffers.swap(prepared.m_vBuffers);
    last.m_vFindings.swap(result.vFindings);
    last.m_checkLimits = result.checkLimits;
    last.m_vPlaces.swap(result.vPlaces);
    if (result.eStatus == SLaunchResult::Complete && !result.vVisits.empty())
    {
        last.m_vVisits.assign(result.vVisits.begin(), result.vVisits.end());
    }
    if (result.eStatus == SLaunchResult::Complete && !result.vProfile.empty())
    {
        last.m_vProfile.swap(result.vProfile);
    }
    if (result.eStatus == SLaunchResult::Complete && prepared.m_Launch.watch)
    {
        last.m_vAccesses.swap(result.vAccesses);
    }
}

/// The watched bytes as addresses; nothing if the run doesn't use that memory.
std::optional<SPlatformWatch> FindWatched(const SPreparedLaunch& prepared)
{
    SLastFault& last = LastFault();
    std::lock_guard<std::mutex> lock(last.m_Mutex);
    std::optional<SPlatformWatch> watch = last.m_Watch;
    if (!watch || watch->nMemory != PLATFORM_MEMORY_GLOBAL)
    {
        return watch;
    }
    const auto it = std::find_if(prepared.m_vBuffers.begin(), prepared.m_vBuffers.end(),
                                 [&](const SPlatformBuffer& buffer) { return buffer.nArgument == watch->nArgument; });
    if (it == prepared.m_vBuffers.end() || watch->nAddress >= it->nSize)
    {
        return std::nullopt;
    }
    watch->nBytes = std::min(watch->nBytes, it->nSize - watch->nAddress);
    watch->nAddress += it->nAddress;
    return watch;
}

std::vector<SAddressRange> FindFollowed(const SPreparedLaunch& prepared)
{
    SLastFault& last = LastFault();
    std::lock_guard<std::mutex> lock(last.m_Mutex);
    std::vector<SAddressRange> vRanges;
    for (const SPlatformBuffer& buffer : prepared.m_vBuffers)
    {
        if (std::find(last.m_vFollowed.begin(), last.m_vFollowed.end(), buffer.nArgument) != last.m_vFollowed.end())
        {
            vRanges.push_back({buffer.nAddress, buffer.nAddress + buffer.nSize});
        }
    }
    return vRanges;
}

/// Reports a run's faults to the context's callback.
void ReportFault(const SPreparedLaunch& prepared, const SLaunchResult& result)
{
    const std::string strKernel = "kernel " + prepared.m_pExecutable->m_Compiled.strName + ": ";
    if (result.nBadAccesses != 0)
    {
        prepared.m_pContext->Report(strKernel + std::to_string(result.nBadAccesses) +
                                    " accesses outside memory, the first a " +
                                    (result.firstBadAccess.bWrite ? "write" : "read") + " at address " +
                                    std::to_string(result.firstBadAccess.nAddress) + " by work-item " +
                                    std::to_string(result.firstBadAccess.nWorkItem) + " at " +
                                    NameInstruction(*prepared.m_pExecutable, result.firstBadAccess.nInstruction));
    }
    if (result.nUnreachedBarriers != 0)
    {
        prepared.m_pContext->Report(strKernel + std::to_string(result.nUnreachedBarriers) +
                                    " barriers that part of a work-group didn't reach");
    }
    if (result.eStatus == SLaunchResult::InstructionLimit)
    {
        prepared.m_pContext->Report(
            strKernel + "stopped at the limit of " + std::to_string(prepared.m_Launch.nInstructionLimit) +
            " instructions for a work-group, work-item " + std::to_string(result.nStopWorkItem) + " at " +
            NameInstruction(*prepared.m_pExecutable, result.nStopInstruction));
    }
}

} // namespace

cl_int RunPrepared(SPreparedLaunch& prepared)
{
    const std::shared_ptr<ITraceSink> pTrace = GetTraceSink();
    prepared.m_Launch.pTrace = pTrace.get();
    prepared.m_Launch.nInstructionLimit = GetInstructionLimit();
    prepared.m_Launch.nSchedule = TakeSchedule();
    prepared.m_Launch.pBreak = &s_bBreakRuns;
    prepared.m_Launch.bKeepProfile = s_bKeepProfile;
    prepared.m_Launch.watch = FindWatched(prepared);
    prepared.m_Launch.bCountVisits = s_bCountVisits;
    prepared.m_Launch.nChecks = s_nChecks;
    prepared.m_Launch.vFollowed = FindFollowed(prepared);
    Count(PLATFORM_COUNTER_KERNEL_RUNS, 1);
    const SCompiledKernel& kernel = prepared.m_pExecutable->m_Compiled;
    const std::unique_ptr<CStorage> pPrinted = ListenToPrintf(kernel, prepared.m_Launch);
    SLaunchResult result = RunLaunch(prepared.m_Launch);
    if (pPrinted)
    {
        PrintRecords(kernel.vFormats, *pPrinted);
    }
    KeepFault(prepared, result);
    ReportFault(prepared, result);
    switch (result.eStatus)
    {
    case SLaunchResult::Complete:
        return CL_SUCCESS;
    case SLaunchResult::OutOfMemory:
        return CL_OUT_OF_HOST_MEMORY;
    case SLaunchResult::InstructionLimit:
    case SLaunchResult::Broken:
        break;
    }
    return CL_OUT_OF_RESOURCES;
}

void BreakRuns(bool bBreak)
{
    s_bBreakRuns = bBreak;
}

SPlatformEnd GetLastEnd()
{
    SLastFault& last = LastFault();
    std::lock_guard<std::mutex> lock(last.m_Mutex);
    return last.m_End;
}

SPlatformSizes GetLastSizes()
{
    SLastFault& last = LastFault();
    std::lock_guard<std::mutex> lock(last.m_Mutex);
    return last.m_Sizes;
}

namespace
{

/// Copies up to nCount results of the last run; null asks for their number alone. \return how many there are
template <class T>
cl_uint GiveLast(std::vector<T> SLastFault::*pvKept, T* pTo, cl_uint nCount)
{
    SLastFault& last = LastFault();
    std::lock_guard<std::mutex> lock(last.m_Mutex);
    const std::vector<T>& vKept = last.*pvKept;
    std::copy_n(vKept.begin(), std::min<size_t>(pTo ? nCount : 0, vKept.size()), pTo);
    return static_cast<cl_uint>(vKept.size());
}

} // namespace

cl_uint GetPlaces(SPlatformPlace* pPlaces, cl_uint nPlaces)
{
    return GiveLast(&SLastFault::m_vPlaces, pPlaces, nPlaces);
}

SPlatformCheckLimits GetCheckLimits()
{
    SLastFault& last = LastFault();
    std::lock_guard<std::mutex> lock(last.m_Mutex);
    return last.m_checkLimits;
}

cl_uint GetLastBuffers(SPlatformBuffer* pBuffers, cl_uint nBuffers)
{
    return GiveLast(&SLastFault::m_vBuffers, pBuffers, nBuffers);
}

void CountVisits(bool bCount)
{
    SLastFault& last = LastFault();
    std::lock_guard<std::mutex> lock(last.m_Mutex);
    s_bCountVisits = bCount;
    last.m_vVisits.clear();
}

cl_uint GetVisits(cl_ulong* pCounts, cl_uint nCounts)
{
    return GiveLast(&SLastFault::m_vVisits, pCounts, nCounts);
}

void KeepProfile(bool bKeep)
{
    SLastFault& last = LastFault();
    std::lock_guard<std::mutex> lock(last.m_Mutex);
    s_bKeepProfile = bKeep;
    last.m_vProfile.clear();
}

cl_uint GetProfile(SPlatformProfile* pRows, cl_uint nRows)
{
    return GiveLast(&SLastFault::m_vProfile, pRows, nRows);
}

void WatchAccesses(const SPlatformWatch* pWatch)
{
    SLastFault& last = LastFault();
    std::lock_guard<std::mutex> lock(last.m_Mutex);
    last.m_Watch = pWatch ? std::optional<SPlatformWatch>(*pWatch) : std::nullopt;
    last.m_vAccesses.clear();
}

cl_uint GetAccesses(SPlatformAccess* pAccesses, cl_uint nAccesses)
{
    return GiveLast(&SLastFault::m_vAccesses, pAccesses, nAccesses);
}

void SetChecks(cl_uint nChecks)
{
    s_nChecks = nChecks;
}

void FollowNumbers(const cl_uint* pArguments, cl_uint nArguments)
{
    SLastFault& last = LastFault();
    std::lock_guard<std::mutex> lock(last.m_Mutex);
    last.m_vFollowed.assign(pArguments, pArguments + nArguments);
}

cl_uint GetChecks()
{
    return s_nChecks;
}

cl_uint GetFindings(SPlatformFinding* pFindings, cl_uint nFindings)
{
    return GiveLast(&SLastFault::m_vFindings, pFindings, nFindings);
}

std::string GetSourcePlace(cl_uint nInstruction)
{
    SLastFault& last = LastFault();
    std::lock_guard<std::mutex> lock(last.m_Mutex);
    return last.m_pExecutable ? FindSourcePlace(*last.m_pExecutable, nInstruction) : std::string();
}

SPlatformFault GetLastFault()
{
    SLastFault& last = LastFault();
    std::lock_guard<std::mutex> lock(last.m_Mutex);
    return last.m_Fault;
}

cl_uint GetFaultRecords(SPlatformFaultRecord* pRecords, cl_uint nRecords)
{
    return GiveLast(&SLastFault::m_vRecords, pRecords, nRecords);
}

} // namespace KestrelPlatform::Runtime
