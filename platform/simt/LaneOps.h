#ifndef KESTREL_PLATFORM_SIMT_LANEOPS_H
#define KESTREL_PLATFORM_SIMT_LANEOPS_H

#include <cstdint>

namespace KestrelPlatform
{

/// Work-items that one block holds: the length of a row.
const uint32_t s_nLanes = 256;
/// Loops over lanes run in steps of this many: a cache line.
const uint32_t s_nGranule = 16;

/// A row is one component of one register for all work-items of a block.
struct SLaneRow
{
    alignas(64) uint32_t w[s_nLanes];
};

/// Every operation on rows, by number: the rules of LaneOpsFast.def, then those of LaneOpsSlow.def.
enum ELaneOp : uint16_t
{
#define LANE(opcode, form, out, a, b, c, expression) LANE_##opcode,
#define HELPER(name, form, out, a, b, c, expression) LANE_##name,
#include "platform/simt/LaneOpsFast.def"
    LANE_FIRST_SLOW,
    LANE_LAST_FAST = LANE_FIRST_SLOW - 1, ///< so that the next one is LANE_FIRST_SLOW again
#define LANE(opcode, form, out, a, b, c, expression) LANE_##opcode,
#define HELPER(name, form, out, a, b, c, expression) LANE_##name,
#include "platform/simt/LaneOpsSlow.def"
    LANE_COUNT
};

/// Rows by index from the start of a block's memory: a 64-bit operand takes two of them.
struct SLaneRows
{
    uint32_t d[2] = {0, 0};
    uint32_t s[6] = {0, 0, 0, 0, 0, 0};
};

/// Computes lanes nBegin to nEnd, both multiples of s_nGranule. With a mask (words of all ones or
/// 0) only its lanes are written; without one all are.
typedef void (*PFLaneOp)(SLaneRow* pRows, const SLaneRows& rows, const uint32_t* pMask, uint32_t nBegin, uint32_t nEnd);

/// Operations on masks and addresses. All take rows of s_nLanes words, 64-byte aligned, and give the number of lanes
/// left where they give a number.
struct SLaneTable
{
    const char* pszName;
    const PFLaneOp* pFast; ///< indexed by ELaneOp up to LANE_LAST_FAST

    /// pMask &= pCondition (inverted if bInvert); what goes away is stored in pRest.
    uint32_t (*pfSplit)(uint32_t* pMask, uint32_t* pRest, const uint32_t* pCondition, uint32_t bInvert);
    /// Moves the lanes of pMask where pCondition holds over to pOut.
    uint32_t (*pfLeave)(uint32_t* pMask, uint32_t* pOut, const uint32_t* pCondition, uint32_t bInvert);
    /// pMask |= pOther.
    uint32_t (*pfJoin)(uint32_t* pMask, const uint32_t* pOther);
    uint32_t (*pfSwap)(uint32_t* pMask, uint32_t* pOther);
    /// Moves the lanes of pPending whose selector is nValue over to pMask.
    uint32_t (*pfCase)(uint32_t* pMask, uint32_t* pPending, const uint32_t* pSelector, uint32_t nValue);
    /// Smallest and largest of pValues under the mask (null: all lanes up to nCount).
    void (*pfRange)(const uint32_t* pValues, const uint32_t* pMask, uint32_t nCount, uint32_t& nLow, uint32_t& nHigh);
    /// True if lane i holds lane 0's value plus i * nStride, for all lanes up to nCount.
    bool (*pfIsSequence)(const uint32_t* pValues, uint32_t nCount, uint32_t nStride);
    /// Loads the word at pBase + pOffsets[i] - nBase for all lanes up to nCount.
    void (*pfGather)(uint32_t* pRow, const unsigned char* pBase, const uint32_t* pOffsets, uint32_t nBase,
                     uint32_t nCount);
    /// Loads for all lanes up to nCount component nComponent of array element pIndices[i] + nAdd; pFirst is the array's
    /// first row.
    void (*pfLoadElements)(uint32_t* pRow, const SLaneRow* pFirst, const uint32_t* pIndices, uint32_t nAdd,
                           uint32_t nComponent, uint32_t nCount);
    /// The way back, for the lanes of the mask (null: all).
    void (*pfStoreElements)(const uint32_t* pRow, SLaneRow* pFirst, const uint32_t* pIndices, uint32_t nAdd,
                            uint32_t nComponent, const uint32_t* pMask, uint32_t nCount);
};

enum class EInstructionSet
{
    Baseline, ///< x86-64-v2
    Avx2,
    Avx512
};

/// Table of the best instruction set of this machine, or of the one that was chosen below.
const SLaneTable& GetLaneTable();

/// For tests and benchmarks: takes the given instruction set for all later launches.
/// \return false if this machine doesn't have it
bool ChooseInstructionSet(EInstructionSet eSet);

/// The operation itself; slow ones are the same for every instruction set.
PFLaneOp GetSlowLaneOp(uint32_t nOp);

} // namespace KestrelPlatform

#endif
