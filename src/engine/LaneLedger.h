#ifndef KESTREL_ENGINE_LANELEDGER_H
#define KESTREL_ENGINE_LANELEDGER_H

#include "core/ShaderDebuggerCommon.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace OVK_ShaderDebugger
{

/// How many work-items are at a place: nSure at least, and perhaps more.
struct SLaneCount
{
    uint64_t nSure = 0;
    bool bMore = false;

    bool IsNobody() const { return nSure == 0 && !bMore; }
    bool IsSomebody() const { return nSure != 0; }
    /// It isn't known whether any work-item is here.
    bool IsOpen() const { return nSure == 0 && bMore; }
    SLaneCount operator+(const SLaneCount& other) const { return {nSure + other.nSure, bMore || other.bMore}; }
    SLaneCount operator-(uint64_t n) const { return {nSure > n ? nSure - n : 0, bMore}; }
    bool operator==(const SLaneCount& other) const { return nSure == other.nSure && bMore == other.bMore; }
};

/// Where the work-items of a dispatch are while the one position walks: those that are active at it, and for each open
/// block of each open call those that wait there until the position comes to them. Work-items change place at flow
/// control only, and how many do follows from the counts of active ones before it and after it. So the ledger needs
/// counts and no masks. A work-item that is in no place has returned, or wasn't in the call.
///
/// A run that passes over a block learns how many are active after it, but not where those are that left it by a jump.
/// The places to which they may have gone are open until a count settles them, or a kernel run is made to find out.
class CLaneLedger
{
public:
    /// A place where work-items wait: the instruction, and the block that holds it.
    struct SPlace
    {
        InstructionNumber nBlock = 0; ///< the instruction that opened the block
        InstructionNumber nInst = 0;
        bool bLoop = false; ///< whether the block is a loop
        SLaneCount count;
    };

    /// Before a kernel all are active, however many they are.
    CLaneLedger() = default;
    CLaneLedger(const CLaneLedger& other) = default;
    CLaneLedger(CLaneLedger&& other) noexcept = default;
    CLaneLedger& operator=(CLaneLedger other) noexcept;
    ~CLaneLedger();

    const SLaneCount& GetActive() const { return m_Call.active; }
    /// A kernel run has told how many are still active; this may settle where others have gone.
    void SetActive(uint64_t nActive);
    /// Other work-items are active than before.
    void Replace(const SLaneCount& active);

    /// The active work-items enter a function. After the call all of them are back.
    void EnterCall();
    void LeaveCall();

    /// The position enters a block, unless it is in it already. The active work-items stay active.
    void Open(InstructionNumber nBlock, bool bLoop);
    /// The end of a block, and of all blocks in it: from here on no work-item waits there.
    void Close(InstructionNumber nBlock);
    bool IsOpen(InstructionNumber nBlock) const;

    /// Some work-items stop being active, and wait at an instruction of an open block.
    void Wait(InstructionNumber nBlock, InstructionNumber nInst, const SLaneCount& count);
    /// The work-items that wait at an instruction wait no longer. \return how many they were
    SLaneCount Take(InstructionNumber nBlock, InstructionNumber nInst);

    /// The active work-items pass over an open block, to its end, together with all that wait in it.
    void Gather(InstructionNumber nBlock);
    /// On the way jumps may have led some of them to these places; one whose block isn't open stands for a return.
    void MayLeave(const std::vector<SPlace>& vPlaces);

    /// The next place, in the order of execution, where work-items wait or may wait, when none is active at nPos:
    /// further on in the innermost block, else in the one around it and so on; in a loop first the head, for the next
    /// pass.
    std::optional<SPlace> FindNext(InstructionNumber nPos) const;

private:
    struct SWaiting
    {
        InstructionNumber nInst = 0;
        SLaneCount count;
        bool bDoubt = false; ///< the count is open because of what was passed over last
    };

    struct SBlock
    {
        InstructionNumber nStart = 0;
        bool bLoop = false;
        std::vector<SWaiting> vWaiting; ///< by instruction, ascending
    };

    struct SCall
    {
        std::vector<SBlock> vBlocks; ///< the innermost at the back
        SLaneCount active = {1, true};
        std::optional<uint64_t> nBeforeDoubt; ///< how many were active before what was passed over
        unsigned int nDoubtful = 0;           ///< the places to which they may have gone
    };

    static void Forget(SCall& call);
    SBlock* Find(InstructionNumber nBlock);
    static SWaiting& At(SBlock& block, InstructionNumber nInst);

    /// A call from which the present one has been made, as it will be found again: what lies further out is shared
    /// between the ledgers of all stops.
    struct SOuter;

    SCall m_Call; ///< the present one
    std::shared_ptr<SOuter> m_pOuter;
};

} // namespace OVK_ShaderDebugger

#endif
