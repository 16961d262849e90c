#ifndef KESTREL_PLATFORM_SIMT_CHECKS_NUMBERRECORDER_H
#define KESTREL_PLATFORM_SIMT_CHECKS_NUMBERRECORDER_H

#include "platform/simt/BlockRecorder.h"
#include "platform/simt/LaneRules.h"
#include "platform/simt/WideLaunch.h"

#include <set>
#include <tuple>
#include <vector>

namespace KestrelPlatform
{

class CFindings;
struct SLaunchContext;
struct SIntegerRule;
struct SNumberRule;

/// Finds the instructions that make NaN or infinity of other numbers, and follows these to the buffers that they reach.
/// Also finds integer operations without a correct result.
class CNumberRecorder
{
public:
    CNumberRecorder(const SLaunchContext& context, CFindings& findings);

    void Start();
    void Stepping(const CBlock& block, const SMicroOp& step);
    void Stepped(const CBlock& block, const SMicroOp& step);
    void Accessing(const CBlock& block, const SMicroOp& step, const SAccess& access);
    void Accessed(const CBlock& block, const SMicroOp& step, const SAccess& access);

private:
    /// Where the NaN or infinity in a row was made or loaded: the instruction, and how (an EPlatformFault).
    struct SMade
    {
        uint32_t nInstruction = ~0u;
        uint32_t nFault = 0;
        uint64_t nBuffer = 0; ///< address of the buffer that it was loaded from; 0 if this run has made it
        bool bChosen = false; ///< a literal that was chosen, of which nothing has been told yet

        bool IsKnown() const { return nInstruction != ~0u; }
    };

    void SetMade(uint32_t nRow, const SMade& made);
    bool TouchesKnown(const SMicroOp& step) const;
    void ForgetResults(const CBlock& block, const SMicroOp& step);
    bool LookForChosen(const CBlock& block, const SMicroOp& step);
    void TellChosen(const CBlock& block, uint32_t nRow);
    void SettleChosen();
    const uint32_t* Source(const CBlock& block, const SMicroOp& step, uint32_t nRow) const;
    void CheckIntegers(const CBlock& block, const SMicroOp& step, const SIntegerRule& rule);
    void LookAtLane(const CBlock& block, const SMicroOp& step, const SLaneRule& rule, uint32_t nLane,
                    uint32_t nItemLane);
    SMade FindCarried(const CBlock& block, const SMicroOp& step, const SAccess& access, uint32_t nWord) const;
    void NoteLoaded(const CBlock& block, const SMicroOp& step, uint32_t nRow);
    void PassOn(const SMade& made, uint32_t nInstruction, uint64_t nOutput);
    void Tell(const CBlock& block, uint32_t nInstruction, uint32_t nLane, uint32_t nFault);

    const SLaunchContext& m_Context;
    CFindings& m_Findings;
    const SNumberRule* const m_pRules; ///< by operation
    std::vector<SMade> m_vMade;        ///< by row
    uint32_t m_nKnown = 0;             ///< how many rows are known in m_vMade
    std::vector<char> m_vLiterals;     ///< by row: whether it holds a literal
    std::vector<uint16_t> m_vNaNs;     ///< rows of literals that are NaN
    std::vector<uint32_t> m_vUsed;     ///< rows whose chosen NaN the step under way has told
    SMade m_Local;                     ///< what was stored into local memory last
    SLaneRow m_Kept[2];                ///< the operands that the step under way overwrites
    uint32_t m_KeptRows[2] = {0, 0};
    uint32_t m_nKept = 0;
    std::set<std::tuple<uint32_t, uint32_t, uint64_t>> m_setPassed; ///< made where, passed on where, into which memory
};

} // namespace KestrelPlatform

#endif
