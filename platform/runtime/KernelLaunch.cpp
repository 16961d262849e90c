#include "platform/runtime/KernelLaunch.h"
#include "platform/compiler/ElfReader.h"
#include "platform/compiler/ProgramImage.h"
#include "platform/compiler/SourceLines.h"

#include "platform/runtime/Counters.h"
#include "platform/runtime/Image.h"
#include "platform/runtime/Printf.h"
#include "platform/runtime/Settings.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <optional>

namespace KestrelPlatform::Runtime
{

namespace
{

constexpr size_t s_nElementWords = 4;
constexpr size_t s_nElementBytes = 16;
constexpr size_t s_nLocalAlignment = 16;

size_t AlignLocal(size_t nBytes)
{
    return (nBytes + s_nLocalAlignment - 1) / s_nLocalAlignment * s_nLocalAlignment;
}

/// The largest divisor of a size that is within a limit.
size_t LargestDivisor(size_t nSize, size_t nLimit)
{
    for (size_t n = std::min(nSize, nLimit); n > 1; --n)
        if (nSize % n == 0)
            return n;
    return 1;
}

cl_int TakeGlobalSize(const SIndexSpace& space, SLaunch& launch)
{
    // A kernel sees sizes and offsets as 32-bit numbers.
    constexpr size_t nMax = UINT32_MAX;
    if (space.m_nDimensions < 1 || space.m_nDimensions > s_nMaxWorkDimensions)
        return CL_INVALID_WORK_DIMENSION;
    if (!space.m_pGlobalSize)
        return CL_INVALID_GLOBAL_WORK_SIZE;
    launch.nDimensions = space.m_nDimensions;
    size_t nItems = 1;
    for (cl_uint i = 0; i < space.m_nDimensions; ++i)
    {
        launch.nGlobalSize[i] = space.m_pGlobalSize[i];
        launch.nGlobalOffset[i] = space.m_pGlobalOffset ? space.m_pGlobalOffset[i] : 0;
        if (launch.nGlobalSize[i] == 0 || launch.nGlobalSize[i] > nMax)
            return CL_INVALID_GLOBAL_WORK_SIZE;
        if (launch.nGlobalOffset[i] > nMax - launch.nGlobalSize[i])
            return CL_INVALID_GLOBAL_OFFSET;
        // Work-items are counted in 64 bits.
        if (__builtin_mul_overflow(nItems, launch.nGlobalSize[i], &nItems))
            return CL_INVALID_GLOBAL_WORK_SIZE;
    }
    return CL_SUCCESS;
}

void ChooseLocalSize(size_t nLimit, SLaunch& launch)
{
    for (cl_uint i = 0; i < launch.nDimensions; ++i)
    {
        launch.nLocalSize[i] = LargestDivisor(launch.nGlobalSize[i], nLimit);
        nLimit /= launch.nLocalSize[i];
    }
}

cl_int TakeLocalSize(const SIndexSpace& space, const SCompiledKernel& kernel, SLaunch& launch)
{
    const bool bRequired = kernel.nRequiredGroupSize[0] != 0;
    if (!space.m_pLocalSize)
    {
        if (bRequired)
            return CL_INVALID_WORK_GROUP_SIZE;
        ChooseLocalSize(kernel.nMaxGroupSize, launch);
        return CL_SUCCESS;
    }
    for (cl_uint i = 0; i < space.m_nDimensions; ++i)
        launch.nLocalSize[i] = space.m_pLocalSize[i];
    size_t nItems = 1;
    for (size_t i = 0; i < s_nMaxWorkDimensions; ++i)
    {
        if (launch.nLocalSize[i] == 0)
            return CL_INVALID_WORK_GROUP_SIZE;
        if (launch.nLocalSize[i] > s_nMaxWorkGroupSize)
            return CL_INVALID_WORK_ITEM_SIZE;
        const bool bAsRequired = !bRequired || launch.nLocalSize[i] == std::max(1u, kernel.nRequiredGroupSize[i]);
        if (launch.nGlobalSize[i] % launch.nLocalSize[i] != 0 || !bAsRequired)
            return CL_INVALID_WORK_GROUP_SIZE;
        nItems *= launch.nLocalSize[i];
    }
    return nItems <= kernel.nMaxGroupSize ? CL_SUCCESS : CL_INVALID_WORK_GROUP_SIZE;
}

/// Puts arguments where the kernel looks for them.
class CArgumentBinder
{
public:
    CArgumentBinder(const SCompiledKernel& kernel, SPreparedLaunch& prepared)
        : m_kernel(kernel), m_prepared(prepared), m_nLocalEnd(AlignLocal(kernel.nStaticLocalBytes))
    {
        GetWords(1, size_t{kernel.nConstantBuffer1Elements} * s_nElementBytes);
        if (!kernel.vConstants.empty())
            prepared.m_launch.mapConstantBuffers[s_nConstantsBuffer] = kernel.vConstants;
    }

    /// \param nArgument  its number
    cl_int Bind(cl_uint nArgument, const SKernelArgument& argument, const SArgumentValue& value)
    {
        if (!value.m_bSet)
            return CL_INVALID_KERNEL_ARGS;
        switch (argument.eKind)
        {
        case SKernelArgument::Value:
            Put(argument, value.m_vBytes.data(), value.m_vBytes.size());
            return CL_SUCCESS;
        case SKernelArgument::LocalPointer:
            PutAddress(argument, m_nLocalEnd);
            m_nLocalEnd += AlignLocal(value.m_nLocalBytes);
            return m_nLocalEnd <= s_nLocalMemorySize ? CL_SUCCESS : CL_OUT_OF_RESOURCES;
        case SKernelArgument::Sampler:
            m_prepared.m_launch.mapSamplers[argument.nResource] = value.m_sampler;
            return CL_SUCCESS;
        case SKernelArgument::Image:
            return BindImage(argument, value);
        case SKernelArgument::GlobalPointer:
        case SKernelArgument::ConstantPointer:
        case SKernelArgument::Counter:
            return BindBuffer(nArgument, argument, value);
        }
        return CL_INVALID_KERNEL_ARGS;
    }

    cl_int Finish()
    {
        if (m_nLocalEnd > s_nLocalMemorySize)
            return CL_OUT_OF_RESOURCES;
        m_prepared.m_launch.nDynamicLocalBytes = static_cast<uint32_t>(m_nLocalEnd - m_kernel.nStaticLocalBytes);
        MergeRanges();
        return CL_SUCCESS;
    }

private:
    /// The words of a constant buffer, with room for so many bytes at least.
    std::vector<uint32_t>& GetWords(uint32_t nConstantBuffer, size_t nBytes)
    {
        std::vector<uint32_t>& vWords = nConstantBuffer == 1 ? m_prepared.m_launch.vConstantBuffer1
                                                             : m_prepared.m_launch.mapConstantBuffers[nConstantBuffer];
        const size_t nWords = (nBytes + s_nElementBytes - 1) / s_nElementBytes * s_nElementWords;
        if (vWords.size() < nWords)
            vWords.resize(nWords, 0);
        return vWords;
    }

    void Put(const SKernelArgument& argument, const void* pBytes, size_t nBytes)
    {
        std::vector<uint32_t>& vWords = GetWords(argument.nConstantBuffer, argument.nConstantBufferOffset + nBytes);
        std::memcpy(reinterpret_cast<unsigned char*>(vWords.data()) + argument.nConstantBufferOffset, pBytes, nBytes);
    }

    /// An address fills x on 32-bit kernels and xy on 64-bit ones; the rest of its element is 0.
    void PutAddress(const SKernelArgument& argument, cl_ulong nAddress)
    {
        const cl_ulong element[2] = {nAddress, 0};
        Put(argument, element, sizeof(element));
    }

    /// The object that was set; null if none was, or if it has gone meanwhile.
    CRef<CMemObject> FindMem(const SArgumentValue& value)
    {
        CRef<CMemObject> pMem = value.m_hMem ? Lookup<CMemObject>(value.m_hMem) : CRef<CMemObject>();
        if (!pMem || pMem->GetId() != value.m_nMemId)
            return {};
        m_prepared.m_vMems.push_back(pMem);
        return pMem;
    }

    cl_int BindBuffer(cl_uint nArgument, const SKernelArgument& argument, const SArgumentValue& value)
    {
        const CRef<CMemObject> pMem = FindMem(value);
        if (!pMem)
        {
            PutAddress(argument, 0);
            return value.m_hMem ? CL_INVALID_KERNEL_ARGS : CL_SUCCESS;
        }
        const cl_ulong nBase = pMem->GetStorage()->GetAddress(m_kernel.b64BitAddresses);
        if (nBase == 0)
            return CL_MEM_OBJECT_ALLOCATION_FAILURE;
        SMemoryRange range;
        range.nAddress = nBase + pMem->GetOffset();
        range.nSize = pMem->GetSize();
        range.pData = pMem->GetData();
        range.bReadOnly = (pMem->GetFlags() & CL_MEM_READ_ONLY) != 0;
        if (unsigned char* const pShadow = pMem->GetStorage()->GetShadow())
            range.pShadow = pShadow + pMem->GetOffset();
        m_prepared.m_launch.vMemory.push_back(range);
        m_prepared.m_vBuffers.push_back({nArgument, range.nAddress, range.nSize});
        PutAddress(argument, range.nAddress);
        return CL_SUCCESS;
    }

    cl_int BindImage(const SKernelArgument& argument, const SArgumentValue& value)
    {
        const CRef<CMemObject> pMem = FindMem(value);
        if (!pMem && value.m_hMem)
            return CL_INVALID_KERNEL_ARGS;
        const SImageBinding binding = pMem ? pMem->AsImage()->GetBinding() : SImageBinding{};
        if (argument.eAccess == SKernelArgument::ReadOnly)
            m_prepared.m_launch.mapResources[argument.nResource] = binding;
        else
            m_prepared.m_launch.mapUavImages[argument.nResource] = binding;
        PutImage(argument, pMem ? binding : SImageBinding{nullptr, 0, 0, 0, 0, 0, 0, 0, 0, 0});
        return CL_SUCCESS;
    }

    /// The two elements of an image: its sizes, then its channel type and order; zeros for a null one.
    void PutImage(const SKernelArgument& argument, const SImageBinding& binding)
    {
        const uint32_t words[2 * s_nElementWords] = {binding.nWidth,
                                                     binding.nHeight,
                                                     binding.nDepth,
                                                     binding.nArraySize,
                                                     binding.nChannelType,
                                                     binding.nChannelOrder,
                                                     0,
                                                     0};
        Put(argument, words, sizeof(words));
    }

    /// Sorts the ranges and joins those that overlap: a buffer may be passed twice, or with a part of it.
    void MergeRanges()
    {
        std::vector<SMemoryRange>& vRanges = m_prepared.m_launch.vMemory;
        std::sort(vRanges.begin(), vRanges.end(),
                  [](const SMemoryRange& a, const SMemoryRange& b) { return a.nAddress < b.nAddress; });
        std::vector<SMemoryRange> vMerged;
        for (const SMemoryRange& range : vRanges)
        {
            if (vMerged.empty() || range.nAddress >= vMerged.back().nAddress + vMerged.back().nSize)
            {
                vMerged.push_back(range);
                continue;
            }
            SMemoryRange& last = vMerged.back();
            last.nSize = std::max(last.nSize, range.nAddress + range.nSize - last.nAddress);
            last.bReadOnly = last.bReadOnly && range.bReadOnly;
        }
        vRanges = std::move(vMerged);
    }

    const SCompiledKernel& m_kernel;
    SPreparedLaunch& m_prepared;
    size_t m_nLocalEnd;
};

/// A sampler that the kernel itself defines, as its value word has it: bit 0 normalised coordinates,
/// bits 1 to 3 the addressing mode, bit 4 nearest, bit 5 linear.
SSamplerBinding DecodeSampler(uint32_t nValue)
{
    static constexpr cl_addressing_mode s_modes[] = {
        CL_ADDRESS_NONE, CL_ADDRESS_REPEAT, CL_ADDRESS_CLAMP_TO_EDGE, CL_ADDRESS_CLAMP, CL_ADDRESS_MIRRORED_REPEAT,
        CL_ADDRESS_NONE, CL_ADDRESS_NONE,   CL_ADDRESS_NONE};
    SSamplerBinding binding;
    binding.bNormalized = (nValue & 1) != 0;
    binding.nAddressing = s_modes[(nValue >> 1) & 7];
    binding.nFilter = (nValue & 0x20) != 0 ? CL_FILTER_LINEAR : CL_FILTER_NEAREST;
    return binding;
}

cl_int BindArguments(const CKernel& kernel, SPreparedLaunch& prepared)
{
    const SCompiledKernel& compiled = prepared.m_pExecutable->m_compiled;
    const std::vector<SArgumentValue> vValues = kernel.GetArgumentValues();
    CArgumentBinder binder(compiled, prepared);
    for (size_t i = 0; i < vValues.size(); ++i)
        if (const cl_int nError = binder.Bind(static_cast<cl_uint>(i), compiled.vArguments[i], vValues[i]))
            return nError;
    for (const SKernelSampler& sampler : compiled.vSamplers)
        prepared.m_launch.mapSamplers[sampler.nSampler] = DecodeSampler(sampler.nValue);
    return binder.Finish();
}

/// "kernel.cl:14" for an instruction, "" if the source isn't known.
std::string FindSourcePlace(const SExecutableKernel& kernel, uint32_t nInstruction)
{
    const std::vector<uint32_t>& vLines = kernel.m_compiled.vLines;
    if (!kernel.m_pImage || nInstruction >= vLines.size() || vLines[nInstruction] == 0)
        return {};
    const std::vector<char>& vImage = kernel.m_pImage->GetBytes();
    KestrelPlatform::CElfReader elf;
    std::string strFault;
    std::string_view section;
    if (!elf.Read(vImage.data(), vImage.size(), strFault) || !elf.FindSection(KestrelPlatform::s_LineSection, section))
        return {};
    return KestrelPlatform::CSourceLines(section).Find(vLines[nInstruction] - 1);
}

/// "instruction 12", with the place in the source if it is known.
std::string NameInstruction(const SExecutableKernel& kernel, uint32_t nInstruction)
{
    const std::string strPlace = FindSourcePlace(kernel, nInstruction);
    return "instruction " + std::to_string(nInstruction) + (strPlace.empty() ? "" : " (" + strPlace + ")");
}

struct SLastFault
{
    std::mutex m_mutex;
    std::shared_ptr<const SExecutableKernel> m_pExecutable;
    SPlatformFault m_fault{};
    std::vector<SPlatformFaultRecord> m_vRecords;
    SPlatformEnd m_end{PLATFORM_END_COMPLETE, 0, ~cl_ulong(0)};
    std::vector<SPlatformBuffer> m_vBuffers;
    std::vector<cl_ulong> m_vVisits; ///< of the last run that was counted
    std::vector<SPlatformProfile> m_vProfile;
    std::vector<SPlatformFinding> m_vFindings;
    std::vector<SPlatformPlace> m_vPlaces;
    std::optional<SPlatformWatch> m_watch; ///< for runs to come
    std::vector<SPlatformAccess> m_vAccesses;
    SPlatformSizes m_sizes{1, {1, 1, 1}, {1, 1, 1}, {0, 0, 0}};
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

/// Origins that are numbers of buffers become what they stand for.
void NameOrigins(const SCompiledKernel& kernel, std::vector<SPlatformFinding>& vFindings)
{
    for (SPlatformFinding& finding : vFindings)
    {
        if (finding.nKind != PLATFORM_FINDING_INIT || finding.nOrigin < PLATFORM_ORIGIN_BUFFER)
            continue;
        const SOriginBuffer buffer = FindOrigin(finding.nOrigin, kernel.b64BitAddresses);
        finding.nOrigin = PLATFORM_ORIGIN_BUFFER;
        finding.nOriginAddress = buffer.m_nAddress;
        finding.nOriginBytes = buffer.m_nSize;
    }
}

void KeepFault(SPreparedLaunch& prepared, SLaunchResult& result)
{
    NameOrigins(prepared.m_pExecutable->m_compiled, result.vFindings);
    SPlatformFault fault{};
    fault.nBadAccesses = result.nBadAccesses;
    fault.nInstruction = result.firstBadAccess.nInstruction;
    fault.nWorkItem = result.firstBadAccess.nWorkItem;
    fault.nAddress = result.firstBadAccess.nAddress;
    fault.bWrite = result.firstBadAccess.bWrite ? 1 : 0;
    fault.nUnreachedBarriers = result.nUnreachedBarriers;
    std::vector<SPlatformFaultRecord> vRecords;
    for (const SFaultRecord& record : result.vFaults)
        vRecords.push_back(MakeRecord(record));
    SLastFault& last = LastFault();
    std::lock_guard<std::mutex> lock(last.m_mutex);
    last.m_pExecutable = prepared.m_pExecutable;
    last.m_fault = fault;
    last.m_vRecords.swap(vRecords);
    last.m_end = MakeEnd(result);
    last.m_sizes = MakeSizes(prepared.m_launch);
    last.m_vBuffers.swap(prepared.m_vBuffers);
    last.m_vFindings.swap(result.vFindings);
    last.m_vPlaces.swap(result.vPlaces);
    if (result.eStatus == SLaunchResult::Complete && !result.vVisits.empty())
        last.m_vVisits.assign(result.vVisits.begin(), result.vVisits.end());
    if (result.eStatus == SLaunchResult::Complete && !result.vProfile.empty())
        last.m_vProfile.swap(result.vProfile);
    if (result.eStatus == SLaunchResult::Complete && prepared.m_launch.watch)
        last.m_vAccesses.swap(result.vAccesses);
}

/// What is watched, as addresses; nothing if the run hasn't got it.
std::optional<SPlatformWatch> FindWatched(const SPreparedLaunch& prepared)
{
    SLastFault& last = LastFault();
    std::lock_guard<std::mutex> lock(last.m_mutex);
    std::optional<SPlatformWatch> watch = last.m_watch;
    if (!watch || watch->nMemory != PLATFORM_MEMORY_GLOBAL)
        return watch;
    const auto it = std::find_if(prepared.m_vBuffers.begin(), prepared.m_vBuffers.end(),
                                 [&](const SPlatformBuffer& buffer) { return buffer.nArgument == watch->nArgument; });
    if (it == prepared.m_vBuffers.end() || watch->nAddress >= it->nSize)
        return std::nullopt;
    watch->nBytes = std::min(watch->nBytes, it->nSize - watch->nAddress);
    watch->nAddress += it->nAddress;
    return watch;
}

/// Tells the context's callback what a run did that it shouldn't have.
void ReportFault(const SPreparedLaunch& prepared, const SLaunchResult& result)
{
    const std::string strKernel = "kernel " + prepared.m_pExecutable->m_compiled.strName + ": ";
    if (result.nBadAccesses != 0)
        prepared.m_pContext->Report(strKernel + std::to_string(result.nBadAccesses) +
                                    " accesses outside memory, the first a " +
                                    (result.firstBadAccess.bWrite ? "write" : "read") + " at address " +
                                    std::to_string(result.firstBadAccess.nAddress) + " by work-item " +
                                    std::to_string(result.firstBadAccess.nWorkItem) + " at " +
                                    NameInstruction(*prepared.m_pExecutable, result.firstBadAccess.nInstruction));
    if (result.nUnreachedBarriers != 0)
        prepared.m_pContext->Report(strKernel + std::to_string(result.nUnreachedBarriers) +
                                    " barriers that part of a work-group didn't reach");
    if (result.eStatus == SLaunchResult::InstructionLimit)
        prepared.m_pContext->Report(
            strKernel + "stopped at the limit of " + std::to_string(prepared.m_launch.nInstructionLimit) +
            " instructions for a work-group, work-item " + std::to_string(result.nStopWorkItem) + " at " +
            NameInstruction(*prepared.m_pExecutable, result.nStopInstruction));
}

} // namespace

cl_int PrepareLaunch(const CKernel& kernel, const CDevice& device, const SIndexSpace& space, SPreparedLaunch& prepared)
{
    prepared.m_pContext = CRef<CContext>(&kernel.GetContext());
    prepared.m_pExecutable = kernel.GetExecutable(device);
    if (!prepared.m_pExecutable)
        return CL_INVALID_PROGRAM_EXECUTABLE;
    prepared.m_launch.pProgram = prepared.m_pExecutable->m_pDecoded;
    if (const cl_int nError = TakeGlobalSize(space, prepared.m_launch))
        return nError;
    if (const cl_int nError = TakeLocalSize(space, prepared.m_pExecutable->m_compiled, prepared.m_launch))
        return nError;
    return BindArguments(kernel, prepared);
}

cl_int RunPrepared(SPreparedLaunch& prepared)
{
    const std::shared_ptr<ITraceSink> pTrace = GetTraceSink();
    prepared.m_launch.pTrace = pTrace.get();
    prepared.m_launch.nInstructionLimit = GetInstructionLimit();
    prepared.m_launch.nSchedule = TakeSchedule();
    prepared.m_launch.pBreak = &s_bBreakRuns;
    prepared.m_launch.bKeepProfile = s_bKeepProfile;
    prepared.m_launch.watch = FindWatched(prepared);
    prepared.m_launch.bCountVisits = s_bCountVisits;
    prepared.m_launch.nChecks = s_nChecks;
    Count(PLATFORM_COUNTER_KERNEL_RUNS, 1);
    const SCompiledKernel& kernel = prepared.m_pExecutable->m_compiled;
    const std::unique_ptr<CStorage> pPrinted = ListenToPrintf(kernel, prepared.m_launch);
    SLaunchResult result = RunLaunch(prepared.m_launch);
    if (pPrinted)
        PrintRecords(kernel.vFormats, *pPrinted);
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
    std::lock_guard<std::mutex> lock(last.m_mutex);
    return last.m_end;
}

SPlatformSizes GetLastSizes()
{
    SLastFault& last = LastFault();
    std::lock_guard<std::mutex> lock(last.m_mutex);
    return last.m_sizes;
}

namespace
{

/// Copies up to nCount of what is kept of the last run; null asks for the number alone. \return how many are kept
template <class T>
cl_uint GiveLast(std::vector<T> SLastFault::*pvKept, T* pTo, cl_uint nCount)
{
    SLastFault& last = LastFault();
    std::lock_guard<std::mutex> lock(last.m_mutex);
    const std::vector<T>& vKept = last.*pvKept;
    std::copy_n(vKept.begin(), std::min<size_t>(pTo ? nCount : 0, vKept.size()), pTo);
    return static_cast<cl_uint>(vKept.size());
}

} // namespace

cl_uint GetPlaces(SPlatformPlace* pPlaces, cl_uint nPlaces)
{
    return GiveLast(&SLastFault::m_vPlaces, pPlaces, nPlaces);
}

cl_uint GetLastBuffers(SPlatformBuffer* pBuffers, cl_uint nBuffers)
{
    return GiveLast(&SLastFault::m_vBuffers, pBuffers, nBuffers);
}

void CountVisits(bool bCount)
{
    SLastFault& last = LastFault();
    std::lock_guard<std::mutex> lock(last.m_mutex);
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
    std::lock_guard<std::mutex> lock(last.m_mutex);
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
    std::lock_guard<std::mutex> lock(last.m_mutex);
    last.m_watch = pWatch ? std::optional<SPlatformWatch>(*pWatch) : std::nullopt;
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
    std::lock_guard<std::mutex> lock(last.m_mutex);
    return last.m_pExecutable ? FindSourcePlace(*last.m_pExecutable, nInstruction) : std::string();
}

SPlatformFault GetLastFault()
{
    SLastFault& last = LastFault();
    std::lock_guard<std::mutex> lock(last.m_mutex);
    return last.m_fault;
}

cl_uint GetFaultRecords(SPlatformFaultRecord* pRecords, cl_uint nRecords)
{
    return GiveLast(&SLastFault::m_vRecords, pRecords, nRecords);
}

} // namespace KestrelPlatform::Runtime
