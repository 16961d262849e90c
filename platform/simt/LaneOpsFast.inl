// The fast rules and the mask operations for one instruction set. The including file defines
// KESTREL_LANE_SET, the name of the table that it creates.

#include <immintrin.h>

#include "platform/simt/LaneOps.h"

namespace KestrelPlatform
{

namespace
{

#include "platform/simt/LaneTypes.inl"

#define LANE(opcode, form, out, a, b, c, expression) KESTREL_RULE(opcode, form, out, a, b, c, expression)
#define HELPER(name, form, out, a, b, c, expression) KESTREL_RULE(name, form, out, a, b, c, expression)
#include "platform/simt/LaneOpsFast.def"

/// 64-bit rules on separate words: with 64-bit lanes, the compiler would split and join words all the time.
#define KESTREL_WORD_PAIR(name, low, high)                                                                             \
    struct SWords_##name                                                                                               \
    {                                                                                                                  \
        static uint32_t Low(uint32_t a0, uint32_t a1, uint32_t b0, uint32_t b1) { return low; }                        \
        static uint32_t High(uint32_t a0, uint32_t a1, uint32_t b0, uint32_t b1, uint32_t nLow) { return high; }       \
    };                                                                                                                 \
    template <>                                                                                                        \
    void RunRule<SRule_##name>(SLaneRow * pRows, const SLaneRows& rows, const uint32_t* pMask, uint32_t nBegin,        \
                               uint32_t nEnd)                                                                          \
    {                                                                                                                  \
        RunWords<SWords_##name>(pRows, rows, pMask, nBegin, nEnd);                                                     \
    }

inline uint32_t LessUnsigned(uint32_t a0, uint32_t a1, uint32_t b0, uint32_t b1)
{
    return Mask(a1 < b1) | (Mask(a1 == b1) & Mask(a0 < b0));
}

inline uint32_t LessSigned(uint32_t a0, uint32_t a1, uint32_t b0, uint32_t b1)
{
    return Mask(static_cast<int32_t>(a1) < static_cast<int32_t>(b1)) | (Mask(a1 == b1) & Mask(a0 < b0));
}

KESTREL_WORD_PAIR(IL_OP_I64_ADD, a0 + b0, a1 + b1 - Mask(nLow < a0))
KESTREL_WORD_PAIR(IL_OP_I64_SUB, a0 - b0, a1 - b1 + Mask(a0 < b0))
KESTREL_WORD_PAIR(IL_OP_I64_EQ, Mask(a0 == b0) & Mask(a1 == b1), nLow)
KESTREL_WORD_PAIR(IL_OP_I64_NE, Mask(a0 != b0) | Mask(a1 != b1), nLow)
KESTREL_WORD_PAIR(IL_OP_I64_LT, LessSigned(a0, a1, b0, b1), nLow)
KESTREL_WORD_PAIR(IL_OP_I64_GE, ~LessSigned(a0, a1, b0, b1), nLow)
KESTREL_WORD_PAIR(IL_OP_U64_LT, LessUnsigned(a0, a1, b0, b1), nLow)
KESTREL_WORD_PAIR(IL_OP_U64_GE, ~LessUnsigned(a0, a1, b0, b1), nLow)

const PFLaneOp s_Fast[] = {
#define LANE(opcode, form, out, a, b, c, expression) RunRule<SRule_##opcode>,
#define HELPER(name, form, out, a, b, c, expression) RunRule<SRule_##name>,
#include "platform/simt/LaneOpsFast.def"
};

#include "platform/simt/LaneMoves.inl"

#include "platform/simt/LaneMasks.inl"

} // namespace

extern const SLaneTable KESTREL_LANE_SET;
const SLaneTable KESTREL_LANE_SET = {
    KESTREL_LANE_NAME, s_Fast,  Split, Leave, Join,   Merge,   Swap,       Case,     Span,     Range,    AnyBits,
    IsSequence,        IsPlane, Fill,  Scale, Gather, Scatter, Interleave, Separate, LoadRows, StoreRows};

} // namespace KestrelPlatform
