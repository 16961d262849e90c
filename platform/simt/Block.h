#ifndef KESTREL_PLATFORM_SIMT_BLOCK_H
#define KESTREL_PLATFORM_SIMT_BLOCK_H

#include "platform/simt/AddressPlane.h"
#include "platform/simt/PendingAdds.h"
#include "platform/simt/Program.h"
#include "platform/simt/Texel.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace KestrelPlatform
{

class CFindings;
class IBlockRecorder;
struct SImageView;

/// State that all blocks of one launch share. Read-only while it runs, except for the faults and the stop flag.
struct SLaunchContext
{
    SLaunchContext(const SLaunch& launchIn, const SCode& codeIn);

    void CountBadAccess(const SBadAccess& access);
    /// \param nWorkItem  the first one of the group that didn't reach it
    void CountUnreachedBarrier(uint32_t nInstruction, uint64_t nWorkItem);
    /// Stops all blocks. \param bByBreak  from outside, rather than by the limit of instructions
    void Stop(bool bByBreak, uint32_t nInstruction, uint64_t nWorkItem);
    bool IsBreakAsked() const { return launch.pBreak && launch.pBreak->load(std::memory_order_relaxed); }

    const SLaunch& launch;
    const SCode& code;
    const SLaneTable& lanes;
    uint64_t nGroups[3] = {1, 1, 1};
    uint64_t nGroupCount = 1;
    uint32_t nGroupSize = 1;
    uint32_t nGroupsPerBlock = 1;                ///< small groups share a block
    uint32_t nBlocksPerGroup = 1;                ///< large groups take several
    uint32_t nLocalBytes = 0;                    ///< of one group, declared and dynamic
    uint32_t nDynamicStart = 0;                  ///< first local address after the declared areas
    std::vector<std::vector<uint32_t>> vBuffers; ///< words, by index in code.vBuffers
    std::vector<SImageBinding> vResources;       ///< by index in code.vResources
    std::vector<SImageBinding> vUavs;
    std::vector<SSamplerBinding> vSamplers;

    std::atomic<uint32_t> nThreads{0}; ///< that have joined so far
    std::atomic<bool> bStop{false};
    std::atomic<bool> bBroken{false};
    uint32_t nStopInstruction = 0; ///< of the first block that stopped; under faultMutex
    uint64_t nStopWorkItem = ~uint64_t(0);
    std::mutex faultMutex;
    uint64_t nBadAccesses = 0;
    SBadAccess firstBadAccess;
    uint64_t nUnreachedBarriers = 0;
    /// Linear index of a work-item in the dispatch, without the offset.
    /// \param nIndex  the work-item's linear index in its group
    uint64_t FindWorkItem(uint64_t nGroup, uint32_t nIndex) const;

    /// Notes where work-items were when they were stopped. nWorkItem and passes are those of one block.
    void AddPlace(const SPlatformPlace& told);

    std::atomic<uint64_t> nEnded{0};     ///< work-items of finished jobs
    std::vector<SPlatformPlace> vPlaces; ///< under faultMutex; reserved before the launch
    CFindings* pFindings = nullptr;      ///< also takes faults; null for none
    std::vector<SFaultRecord> vFaults;   ///< by work-item and instruction; reserved before the launch

private:
    void KeepFault(const SFaultRecord& fault);
};

/// Up to s_nLanes work-items that execute together: their registers, mask and position. A block can stop at a barrier
/// and continue later, since none of its state is on the thread's stack.
class CBlock
{
public:
    enum EState
    {
        Running,
        AtBarrier,
        Done,
        Stopped ///< at the instruction limit, or from outside
    };

    /// Allocates the rows, and fills those that are constant throughout the launch. Throws std::bad_alloc.
    /// \param nPart which part of a group this block takes, if a group takes several blocks
    /// \param pLocal the group's local memory, pending its thread's held-back additions; the group's blocks share both
    CBlock(SLaunchContext& context, uint32_t nPart, unsigned char* pLocal, CPendingAdds& pending);

    /// Prepares the block for group nFirstGroup and, if several fit, the groups after it.
    void Start(uint64_t nFirstGroup, IBlockRecorder* pTrace);
    /// Runs to the end, to a barrier that other blocks must reach too, or to the limit.
    EState Run();

    /// Notes where its work-items are. eState is the last result of Run, or Running if that wasn't called yet.
    void TellPlaces(EState eState) const;

    uint32_t GetActive() const { return m_nActive; }
    uint32_t GetLive() const { return m_nLive; }
    /// Linear index of a lane's work-item in the dispatch, without the offset.
    uint64_t GetWorkItem(uint32_t nLane) const;
    /// The work-item's linear index in its group, and the group's linear index.
    uint32_t LocalIndexOfLane(uint32_t nLane) const;
    uint64_t GetGroup(uint32_t nLane) const;
    int64_t LocalOffset(const SCode::SLocalArea& area, uint64_t nAddress, uint32_t nBytes) const;
    const uint32_t* Row(uint32_t nRow) const { return m_pRows[nRow].w; }
    const uint32_t* Mask() const { return m_pRows[s_nMaskRow].w; }
    /// The latest barrier that the block has reached.
    uint32_t GetBarrier() const { return m_nBarrier; }
    /// The first work-item that isn't active; with bDone none is.
    uint64_t GetFirstMissing(bool bDone) const;
    bool IsActive(uint32_t nLane) const { return m_pRows[s_nMaskRow].w[nLane] != 0; }
    /// The 32-bit word at a byte address of private memory; 0 past the end.
    uint32_t PrivateWord(const SCode::SPrivate& area, uint64_t nAddress, uint32_t nLane) const;
    SLaunchContext& GetContext() { return m_Context; }
    const SLaunchContext& GetContext() const { return m_Context; }
    /// All active lanes are between these two.
    uint32_t GetFirstLane() const { return m_nBegin; }
    uint32_t GetEndLane() const { return m_nLast; }
    /// The addresses of an access that is about to run, for lanes nBegin to nEnd.
    void FillAddresses(const SAccess& access, uint32_t nBegin, uint32_t nEnd, uint64_t* pAddresses) const;
    /// Finds the plane of these lanes' addresses. All of the lanes must be active. \return false if there is none
    bool FindPlane(const SAccess& access, uint32_t nBegin, uint32_t nEnd, SAddressPlane& plane) const;
    /// The lowest and the highest address of the active lanes. \return false if finding them takes a look at each lane
    bool FindRange(const SAccess& access, uint64_t& nLow, uint64_t& nHigh) const;
    /// Whether the active lanes' addresses are multiples of a power of two. False also if that isn't known.
    bool AreAligned(const SAccess& access, uint32_t nUnit) const;

private:
    struct SFree
    {
        void operator()(void* p) const;
    };

    /// Addresses of the active lanes; the lowest is nLow. With bSequence each lane's element directly follows the
    /// previous lane's.
    struct SOffsets
    {
        const uint32_t* pAddresses = nullptr;
        uint32_t nLow = 0;
        uint32_t nHigh = 0;  ///< the highest address is nHigh - nLow units above the lowest
        uint32_t nScale = 1; ///< bytes in a unit
        bool bSequence = false;
    };

    static constexpr uint64_t s_nNotScaled = ~uint64_t(0);

    uint32_t* Row(uint32_t nRow) { return m_pRows[nRow].w; }
    void FillConstants();
    void FillLocalIds();
    void FillGroupIds();
    void RunSteady();
    void GroupOfLane(uint32_t nLane, uint64_t* pGroup) const;
    void LocalIdOfLane(uint32_t nLane, uint32_t* pId) const;

    /// The state before an open if, or before a conditional call.
    struct SBranch
    {
        SLaneSpan span;      ///< before it
        uint32_t nRest = 0;  ///< lanes in its row
        bool bTaken = false; ///< uniform if: its first part was taken
        bool bOther = false; ///< its other part has begun, or was skipped
    };

    // Control flow, in BlockFlow.cpp
    template <bool bRecorded>
    EState RunSteps();
    void ClearRow(uint32_t nRow) { m_Lanes.pfFill(Row(nRow), 0, 0, s_nLanes); }
    SLaneSpan Span() const { return {m_nActive, m_nBegin, m_nEnd}; }
    void SetMask(const SLaneSpan& span);
    /// Continues after the step, or at its target if no work-item is left.
    void GoOn(const SMicroOp& step);
    /// Whether the limit of instructions is exceeded, or the launch was stopped.
    bool MustStop() const;
    EState StopAt(const SMicroOp& step);
    uint32_t RunLanes(uint32_t nStep) const;
    uint32_t RunSeenLanes(uint32_t nStep) const;
    void OpenBranch(const SMicroOp& step, uint32_t bInvert);
    void OtherBranch(const SMicroOp& step);
    void CloseBranch(const SMicroOp& step);
    bool HoldsForAll(const SMicroOp& step) const;
    void OpenWhole(const SMicroOp& step);
    void OtherWhole(const SMicroOp& step);
    void CloseWhole(const SMicroOp& step);
    void OpenIf(const SMicroOp& step);
    void OtherIf(const SMicroOp& step);
    void CloseIf(const SMicroOp& step);
    void LeaveAll(const SMicroOp& step);
    void RunUniform(const SMicroOp& step) const;
    void Spread(const SLaneRows& rows) const;
    void Loop(const SMicroOp& step);
    void EndLoop(const SMicroOp& step);
    void Switch(const SMicroOp& step);
    void Default(const SMicroOp& step);
    void EndSwitch(const SMicroOp& step);
    void Enter(const SMicroOp& step);
    void EndBody(const SMicroOp& step);
    void Call(const SMicroOp& step);
    EState Barrier(const SMicroOp& step);
    void Outside(const SMicroOp& step);
    void RunOther(const SMicroOp& step);

    // Memory, in BlockMemory.cpp; local memory, in BlockLocal.cpp
    // \param nBytes  0 if the memory isn't counted in bytes
    void CountBad(const SMicroOp& step, uint32_t nLane, uint64_t nAddress, bool bWrite, SBadAccess::EMemory eMemory,
                  uint32_t nBytes = 0, bool bReadOnly = false);
    void RecordAccess(const SMicroOp& step, const SAccess& access);
    void Access(const SMicroOp& step, const SAccess& access);
    void GlobalAccess(const SMicroOp& step, const SAccess& access);
    unsigned char* GlobalMemory(const SAccess& access, SOffsets& offsets);
    unsigned char* ScaledMemory(const SAccess& access, SOffsets& offsets);
    unsigned char* MemoryOf(const SAccess& access, uint64_t nLow, uint64_t nSpread);
    void FindAddresses(const SAccess& access);
    bool UniformLoad(const SAccess& access);
    void UniformAccess(const SMicroOp& step, const SAccess& access);
    void GlobalLane(const SMicroOp& step, const SAccess& access, uint32_t nLane);
    void LocalAccess(const SMicroOp& step, const SAccess& access);
    void LocalLane(const SMicroOp& step, const SAccess& access, uint32_t nLane);
    unsigned char* LocalMemory(const SAccess& access, SOffsets& offsets);
    void PrivateAccess(const SMicroOp& step, const SAccess& access);
    void PrivateLane(const SMicroOp& step, const SAccess& access, uint32_t nLane);
    void MoveSequence(const SAccess& access, unsigned char* pMemory);
    void StoreTogether(const uint32_t* const* ppRows, uint32_t nRows, unsigned char* pMemory, uint32_t nBytes);
    void MoveWords(const SAccess& access, unsigned char* pBase, const SOffsets& offsets);
    void MoveNarrow(const SAccess& access, unsigned char* pBase, const SOffsets& offsets);
    void MoveLane(const SAccess& access, uint32_t nLane, uint32_t nElement, unsigned char* pData);
    /// Finds the range and spacing of the active lanes' 32-bit addresses.
    SOffsets Offsets(const uint32_t* pAddresses, uint32_t nStride) const;
    bool IsSame(const uint32_t* pValues) const;
    const SMemoryRange* FindMemory(uint64_t nAddress);
    uint64_t Address(const SAccess& access, uint32_t nLane) const;
    uint64_t BaseOf(const SAccess& access) const;
    static bool IsWithoutTurn(const SAccess& access, const uint32_t* pRow, uint32_t nCount, SAddressPlane plane);
    uint32_t AnyBits(const uint32_t* pValues) const;
    bool IsInside(const uint32_t* pValues, uint32_t nOffset, uint32_t nEnd) const;
    void LoadRow(uint32_t nTo, uint32_t nFirstRow, const uint32_t* pIndices, uint32_t nScale);
    void StoreRow(uint32_t nFrom, uint32_t nFirstRow, const uint32_t* pIndices, uint32_t nScale);
    void IndexLoad(const SMicroOp& step, const SIndexed& indexed);
    void IndexStore(const SMicroOp& step, const SIndexed& indexed);

    // Atomics, in BlockAtomics.cpp
    void GlobalAtomic(const SAccess& access, uint32_t nLane, unsigned char* pData);
    void LocalAtomic(const SAccess& access, uint32_t nLane, unsigned char* pData);
    void AtomicWords(const SAccess& access, unsigned char* pBase, const SOffsets& offsets);
    void AddShared(const uint32_t* pValues, unsigned char* pBase, const SOffsets& offsets);
    void AddOwn(const uint32_t* pValues, unsigned char* pBase, const SOffsets& offsets);

    // Images, in BlockImages.cpp
    void Image(const SMicroOp& step, const SImageAccess& image);
    void ImageLane(const SMicroOp& step, const SImageAccess& image, const SImageView& view, uint32_t nLane);
    STexel Sampled(const SImageAccess& image, const SImageView& view, uint32_t nLane);
    void StoreTexel(const SImageAccess& image, const SImageView& view, const int32_t* pPlace, uint32_t nLane);

    // Waves, in BlockWaves.cpp
    void Wave(const SMicroOp& step);
    void WaveLanes(const SMicroOp& step, uint32_t nFirst, uint32_t nEnd, uint32_t nWave);
    uint64_t WaveBits(uint32_t nRow, uint32_t nFirst, uint32_t nEnd) const;

    SLaunchContext& m_Context;
    const SCode& m_Code;
    const SLaneTable& m_Lanes;
    const uint32_t m_nPart;
    unsigned char* const m_pLocal;
    CPendingAdds& m_Pending;
    std::unique_ptr<void, SFree> m_pMemory;
    SLaneRow* m_pRows = nullptr;
    SLaneRow m_nLocalIds[4]; ///< x, y, z and the linear id in group
    uint64_t m_nFirstGroup = 0;
    bool m_bSteady = false; ///< the results of the steady steps are valid
    uint32_t m_nLive = 0;   ///< lanes in use, from 0
    uint32_t m_nBarrier = 0;
    uint32_t m_nLiveEnd = 0;
    uint32_t m_nActive = 0;
    const uint32_t* m_pMask = nullptr; ///< null while all lanes from m_nBegin to m_nLast are active
    uint32_t m_nBegin = 0;             ///< lanes outside of these two aren't active; multiples of s_nGranule
    uint32_t m_nEnd = 0;
    uint32_t m_nLast = 0; ///< m_nEnd or the end of the lanes in use, whichever comes first
    uint32_t m_nStep = 0;
    uint64_t m_nExecuted = 0;
    const uint64_t m_nLimit;                ///< of instructions
    const SMicroOp* m_pStoppedAt = nullptr; ///< valid after Run has returned Stopped
    std::vector<uint32_t> m_vReturns;       ///< by body: step after its call
    std::vector<SBranch> m_vBranches;       ///< by the row that holds the lanes of the other part
    std::vector<uint64_t> m_vPasses;        ///< by a loop's row: its passes since it was last entered
    std::vector<uint32_t> m_vLocalShift;    ///< by lane: where its group's local memory begins
    SOffsets m_Index;                       ///< of the last scaled access's indices
    uint64_t m_nScaledBy = s_nNotScaled;    ///< the scale with which m_Scaled was computed
    SLaneRow m_Scaled;                      ///< offsets of a scaled access's addresses from the lowest
    SLaneRow m_Shifted;                     ///< local addresses of lanes of several groups
    size_t m_nLastRange = 0;
    IBlockRecorder* m_pTrace = nullptr;
    bool m_bSeen = false; ///< a recorder sees each step
};

} // namespace KestrelPlatform

#endif
