#ifndef KESTREL_PLATFORM_SIMT_LANEOPS_H
#define KESTREL_PLATFORM_SIMT_LANEOPS_H

#include <cstdint>

namespace KestrelPlatform
{

/// Work-items in a block, and words in a row.
const uint32_t s_nLanes = 256;
/// Loops over lanes run in steps of this many, which is one cache line.
const uint32_t s_nGranule = 16;

/// One component of one register, for all work-items of a block.
struct SLaneRow
{
    alignas(64) uint32_t w[s_nLanes];
};

/// Every operation on rows, by number: first the rules of LaneOpsFast.def, then those of LaneOpsSlow.def.
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

/// Rows, by index from the start of a block's memory; a 64-bit operand takes two. A block's rows can be numbered with
/// 16 bits.
struct SLaneRows
{
    uint16_t d[2] = {0, 0};
    uint16_t s[6] = {0, 0, 0, 0, 0, 0};
};

/// Computes lanes nBegin to nEnd, both multiples of s_nGranule. With a mask (words of all ones or 0) only its lanes are
/// written; without one all are.
typedef void (*PFLaneOp)(SLaneRow* pRows, const SLaneRows& rows, const uint32_t* pMask, uint32_t nBegin, uint32_t nEnd);

/// The active lanes of a mask: their number, and lanes nBegin and nEnd, multiples of s_nGranule, outside of which none
/// is active.
struct SLaneSpan
{
    uint32_t nActive = 0;
    uint32_t nBegin = 0;
    uint32_t nEnd = 0;
};

/// A row in pieces of equal width.
struct SPieces
{
    uint32_t nWidth;
    uint32_t nStride;      ///< from each word to the next of its piece
    uint32_t nPieceStride; ///< from each piece to the next
};

/// Operations on masks and addresses. All take rows of s_nLanes words, 64-byte aligned. Operations on masks get pMask's
/// span before and give the one after. The others work on lanes nBegin to nEnd, of which only nBegin is a multiple of
/// s_nGranule: on the lanes of a mask, or on all if it is null.
struct SLaneTable
{
    const char* pszName;
    const PFLaneOp* pFast; ///< indexed by ELaneOp up to LANE_LAST_FAST

    /// pMask &= pCondition (inverted if bInvert). The removed lanes go to pRest, where only lanes of the span are
    /// written.
    SLaneSpan (*pfSplit)(const SLaneSpan& span, uint32_t* pMask, uint32_t* pRest, const uint32_t* pCondition,
                         uint32_t bInvert);
    /// Moves the lanes of pMask where pCondition holds to pOut.
    SLaneSpan (*pfLeave)(const SLaneSpan& span, uint32_t* pMask, uint32_t* pOut, const uint32_t* pCondition,
                         uint32_t bInvert);
    /// pMask |= pOther.
    SLaneSpan (*pfJoin)(const SLaneSpan& span, uint32_t* pMask, const uint32_t* pOther);
    /// The same within a span that contains both masks; the new span has to be found by pfSpan.
    void (*pfMerge)(const SLaneSpan& span, uint32_t* pMask, const uint32_t* pOther);
    /// Exchanges the lanes within a span that contains both masks.
    SLaneSpan (*pfSwap)(const SLaneSpan& span, uint32_t* pMask, uint32_t* pOther);
    /// Moves the lanes of pPending whose selector is nValue to pMask.
    SLaneSpan (*pfCase)(uint32_t* pMask, uint32_t* pPending, const uint32_t* pSelector, uint32_t nValue);
    /// The span of a mask that has no active lane outside of lanes nBegin to nEnd.
    SLaneSpan (*pfSpan)(const uint32_t* pMask, uint32_t nBegin, uint32_t nEnd);

    /// Smallest and largest of pValues.
    void (*pfRange)(const uint32_t* pValues, const uint32_t* pMask, uint32_t nBegin, uint32_t nEnd, uint32_t& nLow,
                    uint32_t& nHigh);
    /// The bitwise OR of pValues.
    uint32_t (*pfAnyBits)(const uint32_t* pValues, const uint32_t* pMask, uint32_t nBegin, uint32_t nEnd);
    /// Whether every lane's value is the previous lane's plus nStride; without a mask.
    bool (*pfIsSequence)(const uint32_t* pValues, uint32_t nBegin, uint32_t nEnd, uint32_t nStride);
    /// Whether the lanes' values are such pieces; without a mask.
    bool (*pfIsPlane)(const uint32_t* pValues, uint32_t nBegin, uint32_t nEnd, const SPieces& pieces);
    /// Writes one value to all lanes; without a mask.
    void (*pfFill)(uint32_t* pRow, uint32_t nValue, uint32_t nBegin, uint32_t nEnd);
    /// Writes (pValues - nBase) * nScale.
    void (*pfScale)(uint32_t* pRow, const uint32_t* pValues, uint32_t nBase, uint32_t nScale, uint32_t nBegin,
                    uint32_t nEnd);
    /// Loads the words at pBase + (pOffsets[i] - nBase) * nScale; all of them, and pBase, are within memory. With a
    /// mask the scale is 1.
    void (*pfGather)(uint32_t* pRow, const unsigned char* pBase, const uint32_t* pOffsets, uint32_t nBase,
                     uint32_t nScale, const uint32_t* pMask, uint32_t nBegin, uint32_t nEnd);
    /// The opposite: stores, in lane order.
    void (*pfScatter)(const uint32_t* pRow, unsigned char* pBase, const uint32_t* pOffsets, uint32_t nBase,
                      const uint32_t* pMask, uint32_t nBegin, uint32_t nEnd);
    /// Stores nRows (2, 3 or 4) rows to memory where the words of each lane are consecutive, lane after lane, starting
    /// at pTo; without a mask.
    void (*pfInterleave)(const uint32_t* const* ppRows, uint32_t nRows, unsigned char* pTo, uint32_t nBegin,
                         uint32_t nEnd);
    /// The opposite: loads.
    void (*pfSeparate)(uint32_t* const* ppRows, uint32_t nRows, const unsigned char* pFrom, uint32_t nBegin,
                       uint32_t nEnd);
    /// Loads each lane's word from the row that begins pIndices[i] * nScale words after pFirst.
    void (*pfLoadRows)(uint32_t* pRow, const uint32_t* pFirst, const uint32_t* pIndices, uint32_t nScale,
                       const uint32_t* pMask, uint32_t nBegin, uint32_t nEnd);
    /// The opposite: stores.
    void (*pfStoreRows)(const uint32_t* pRow, uint32_t* pFirst, const uint32_t* pIndices, uint32_t nScale,
                        const uint32_t* pMask, uint32_t nBegin, uint32_t nEnd);
};

enum class EInstructionSet
{
    Baseline, ///< x86-64-v2
    Avx2,
    Avx512
};

/// The table for the best instruction set of this machine, or for the one chosen below.
const SLaneTable& GetLaneTable();

/// For tests and benchmarks: uses the given instruction set for all later launches.
/// \return false if this machine doesn't have it
bool ChooseInstructionSet(EInstructionSet eSet);

/// The slow operation of this number; it is the same for every instruction set.
PFLaneOp GetSlowLaneOp(uint32_t nOp);

} // namespace KestrelPlatform

#endif
