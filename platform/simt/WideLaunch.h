#ifndef KESTREL_PLATFORM_SIMT_WIDELAUNCH_H
#define KESTREL_PLATFORM_SIMT_WIDELAUNCH_H

#include "KestrelPlatform.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace KestrelPlatform
{

/// A decoded kernel: immutable, shared between launches and threads.
class CProgram;

struct SDecodeError
{
    uint32_t nInstruction = 0; ///< index among the instructions
    std::string strMessage;    ///< includes the instruction's name
};

/// Decodes a token stream into the compact form that runs.
/// \return null, with the reason, for a stream that doesn't decode, isn't structured, calls a
///         function that doesn't exist, or has an instruction that this device doesn't support
std::shared_ptr<const CProgram> DecodeProgram(const uint32_t* pTokens, size_t nCount, SDecodeError& error);

/// A memory object in the flat address space of the device.
struct SMemoryRange
{
    uint64_t nAddress = 0; ///< above 0
    uint64_t nSize = 0;    ///< bytes
    unsigned char* pData = nullptr;
    bool bReadOnly = false;
    /// For each byte 0 if it is written, else the origin of the unwritten byte; null if all are written.
    unsigned char* pShadow = nullptr;
};

/// An image as a kernel sees it. Texels in a row are adjacent; row pitch and slice pitch are in bytes.
struct SImageBinding
{
    unsigned char* pData = nullptr; ///< null for a null image: reads give 0, writes are dropped
    uint32_t nChannelOrder = 0;     ///< cl_channel_order
    uint32_t nChannelType = 0;      ///< cl_channel_type
    uint32_t nType = 0;             ///< cl_mem_object_type
    uint32_t nWidth = 0;
    uint32_t nHeight = 1;
    uint32_t nDepth = 1;
    uint32_t nArraySize = 1;
    size_t nRowPitch = 0;
    size_t nSlicePitch = 0;
};

struct SSamplerBinding
{
    bool bNormalized = false;
    uint32_t nAddressing = 0; ///< cl_addressing_mode
    uint32_t nFilter = 0;     ///< cl_filter_mode
};

struct SAddressRange
{
    uint64_t nFirst = 0;
    uint64_t nEnd = 0;
};

/// Receives every executed instruction of a launch, one call at a time.
class ITraceSink
{
public:
    virtual ~ITraceSink() = default;
    virtual void OnRecord(const SPlatformTraceRecord& record) = 0;
};

struct SLaunch
{
    std::shared_ptr<const CProgram> pProgram;
    uint32_t nDimensions = 1;
    size_t nGlobalSize[3] = {1, 1, 1};
    size_t nLocalSize[3] = {1, 1, 1}; ///< divides the global size
    size_t nGlobalOffset[3] = {0, 0, 0};
    std::vector<uint32_t> vConstantBuffer1;                       ///< four words for each element
    std::map<uint32_t, std::vector<uint32_t>> mapConstantBuffers; ///< further ones, by number
    uint32_t nHidden[3] = {0, 0, 0};                ///< element 3 of constant buffer 0: where printf writes to
    std::vector<SMemoryRange> vMemory;              ///< sorted by address, not overlapping
    std::map<uint32_t, SImageBinding> mapResources; ///< images read, by resource number
    std::map<uint32_t, SImageBinding> mapUavImages; ///< images written, by UAV number
    std::map<uint32_t, SSamplerBinding> mapSamplers;
    uint32_t nDynamicLocalBytes = 0;     ///< local memory arguments, after what the IL declares
    uint64_t nInstructionLimit = 0;      ///< instructions a work-group may execute; 0 means none
    uint32_t nMaxThreads = 0;            ///< threads that may run it; 0 for one for each core
    uint64_t nSchedule = 0;              ///< varies the order of groups and threads; 0 for none
    ITraceSink* pTrace = nullptr;        ///< a traced launch runs on one thread
    bool bCountVisits = false;           ///< fills SLaunchResult::vVisits; ignored with a trace
    std::optional<SPlatformWatch> watch; ///< addresses; fills vAccesses, on one thread; ditto
    bool bKeepProfile = false;           ///< fills vProfile in place of vVisits; ditto
    /// EPlatformCheck bits; fills SLaunchResult::vFindings. Ignored if the launch is recorded otherwise.
    uint32_t nChecks = 0;
    std::vector<SAddressRange> vFollowed;      ///< buffers; NaN and infinity in them are followed by PLATFORM_CHECK_NAN
    const std::atomic<bool>* pBreak = nullptr; ///< true ends it; may be null
    const void* pOwner = nullptr;              ///< whose waiting threads may help (CWorkerPool::HelpWhile)
};

/// The first access to an address without memory.
struct SBadAccess
{
    uint32_t nInstruction = 0;
    uint64_t nWorkItem = 0; ///< linear, x fastest, without the offset
    uint64_t nAddress = 0;
    bool bWrite = false;
    enum EMemory : uint8_t
    {
        Global,
        Local, ///< the address is relative to its area
        Private,
        Registers, ///< an array or a constant buffer; the address is the element
        Image      ///< the address is the x coordinate
    };
    EMemory eMemory = Global;
    uint32_t nBytes = 0;    ///< accessed; 0 if the memory isn't counted in bytes
    bool bReadOnly = false; ///< memory exists there, but mustn't be written
};

/// A fault that gets a record of its own.
struct SFaultRecord
{
    SBadAccess access;     ///< for a barrier, the first work-item of the group that missed it; no address
    bool bBarrier = false; ///< not an access, but a barrier that part of a work-group missed
};

struct SLaunchResult
{
    enum EStatus
    {
        Complete,
        InstructionLimit, ///< stopped: the kernel didn't end
        Broken,           ///< stopped from outside
        OutOfMemory
    };
    EStatus eStatus = Complete;
    uint32_t nStopInstruction = 0;         ///< for a stopped run: where one of its blocks was
    uint64_t nStopWorkItem = ~uint64_t(0); ///< the first that was active there
    std::vector<SPlatformPlace> vPlaces;   ///< for a stopped run: where all work-items were
    uint64_t nBadAccesses = 0;
    SBadAccess firstBadAccess;
    uint64_t nUnreachedBarriers = 0; ///< barriers that part of a work-group missed
    /// One record for each work-item and instruction, in that order; the first s_nFaultRecords of them.
    std::vector<SFaultRecord> vFaults;
    /// By instruction, if requested: how many work-items reached it, over all passes and calls, as active in the trace.
    /// Ends with the last instruction that was reached. Empty for a program without a trace.
    std::vector<uint64_t> vVisits;
    std::vector<SPlatformProfile> vProfile;  ///< by instruction, if requested
    std::vector<SPlatformFinding> vFindings; ///< by instruction, if checks were asked for
    SPlatformCheckLimits checkLimits{0, 0};
    std::vector<SPlatformAccess> vAccesses; ///< watched accesses, the first 65,536
};

constexpr size_t s_nFaultRecords = 64;

/// Runs a launch on all cores, and returns when it has ended. Several launches may run at once.
SLaunchResult RunLaunch(const SLaunch& launch);

} // namespace KestrelPlatform

#endif
