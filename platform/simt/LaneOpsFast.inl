// The fast rules and the mask operations for one instruction set. The including file defines
// KESTREL_LANE_SET, the name of the table that it makes.

#include "platform/simt/LaneOps.h"

namespace KestrelPlatform
{

namespace
{

#include "platform/simt/LaneTypes.inl"

#define LANE(opcode, form, out, a, b, c, expression) KESTREL_RULE(opcode, form, out, a, b, c, expression)
#define HELPER(name, form, out, a, b, c, expression) KESTREL_RULE(name, form, out, a, b, c, expression)
#include "platform/simt/LaneOpsFast.def"

const PFLaneOp s_Fast[] = {
#define LANE(opcode, form, out, a, b, c, expression) RunRule<SRule_##opcode>,
#define HELPER(name, form, out, a, b, c, expression) RunRule<SRule_##name>,
#include "platform/simt/LaneOpsFast.def"
};

uint32_t Split(uint32_t* pMask, uint32_t* pRest, const uint32_t* pCondition, uint32_t bInvert)
{
    const uint32_t nFlip = bInvert ? 0xFFFFFFFFu : 0;
    uint32_t nCount = 0;
#pragma GCC ivdep
    for (uint32_t i = 0; i < s_nLanes; ++i)
    {
        const uint32_t c = (pCondition[i] ? 0xFFFFFFFFu : 0u) ^ nFlip;
        const uint32_t m = pMask[i];
        pRest[i] = m & ~c;
        pMask[i] = m & c;
        nCount -= m & c;
    }
    return nCount;
}

uint32_t Leave(uint32_t* pMask, uint32_t* pOut, const uint32_t* pCondition, uint32_t bInvert)
{
    const uint32_t nFlip = bInvert ? 0xFFFFFFFFu : 0;
    uint32_t nCount = 0;
#pragma GCC ivdep
    for (uint32_t i = 0; i < s_nLanes; ++i)
    {
        const uint32_t c = (pCondition[i] ? 0xFFFFFFFFu : 0u) ^ nFlip;
        const uint32_t m = pMask[i];
        pOut[i] |= m & c;
        pMask[i] = m & ~c;
        nCount -= m & ~c;
    }
    return nCount;
}

uint32_t Join(uint32_t* pMask, const uint32_t* pOther)
{
    uint32_t nCount = 0;
#pragma GCC ivdep
    for (uint32_t i = 0; i < s_nLanes; ++i)
    {
        const uint32_t m = pMask[i] | pOther[i];
        pMask[i] = m;
        nCount -= m;
    }
    return nCount;
}

uint32_t Swap(uint32_t* pMask, uint32_t* pOther)
{
    uint32_t nCount = 0;
#pragma GCC ivdep
    for (uint32_t i = 0; i < s_nLanes; ++i)
    {
        const uint32_t m = pOther[i];
        pOther[i] = pMask[i];
        pMask[i] = m;
        nCount -= m;
    }
    return nCount;
}

uint32_t Case(uint32_t* pMask, uint32_t* pPending, const uint32_t* pSelector, uint32_t nValue)
{
    uint32_t nCount = 0;
#pragma GCC ivdep
    for (uint32_t i = 0; i < s_nLanes; ++i)
    {
        const uint32_t c = (pSelector[i] == nValue ? 0xFFFFFFFFu : 0u) & pPending[i];
        const uint32_t m = pMask[i] | c;
        pPending[i] &= ~c;
        pMask[i] = m;
        nCount -= m;
    }
    return nCount;
}

void Range(const uint32_t* pValues, const uint32_t* pMask, uint32_t nCount, uint32_t& nLow, uint32_t& nHigh)
{
    uint32_t nMin = 0xFFFFFFFFu;
    uint32_t nMax = 0;
    if (!pMask)
    {
        for (uint32_t i = 0; i < nCount; ++i)
        {
            nMin = pValues[i] < nMin ? pValues[i] : nMin;
            nMax = pValues[i] > nMax ? pValues[i] : nMax;
        }
    }
    else
    {
        for (uint32_t i = 0; i < nCount; ++i)
        {
            const uint32_t nForMin = pValues[i] | ~pMask[i];
            const uint32_t nForMax = pValues[i] & pMask[i];
            nMin = nForMin < nMin ? nForMin : nMin;
            nMax = nForMax > nMax ? nForMax : nMax;
        }
    }
    nLow = nMin;
    nHigh = nMax;
}

bool IsSequence(const uint32_t* pValues, uint32_t nCount, uint32_t nStride)
{
    uint32_t nDifference = 0;
    const uint32_t nFirst = pValues[0];
    for (uint32_t i = 0; i < nCount; ++i)
        nDifference |= pValues[i] ^ (nFirst + i * nStride);
    return nDifference == 0;
}

uint32_t WordAt(const unsigned char* p)
{
    uint32_t n;
    __builtin_memcpy(&n, p, sizeof n);
    return n;
}

/// Work-items in a row of a two-dimensional group load consecutive words, or all the same one.
void Gather(uint32_t* pRow, const unsigned char* pBase, const uint32_t* pOffsets, uint32_t nBase, uint32_t nCount)
{
    uint32_t i = 0;
    for (; i + s_nGranule <= nCount; i += s_nGranule)
    {
        const uint32_t nFirst = pOffsets[i];
        uint32_t nNotSequence = 0;
        uint32_t nNotSame = 0;
        for (uint32_t k = 0; k < s_nGranule; ++k)
        {
            nNotSequence |= pOffsets[i + k] ^ (nFirst + k * 4);
            nNotSame |= pOffsets[i + k] ^ nFirst;
        }
        const unsigned char* const pFirst = pBase + (nFirst - nBase);
        if (nNotSequence == 0)
        {
            __builtin_memcpy(pRow + i, pFirst, s_nGranule * 4);
            continue;
        }
        const uint32_t nWord = WordAt(pFirst);
        for (uint32_t k = 0; k < s_nGranule; ++k)
            pRow[i + k] = nNotSame ? WordAt(pBase + (pOffsets[i + k] - nBase)) : nWord;
    }
    for (; i < nCount; ++i)
        pRow[i] = WordAt(pBase + (pOffsets[i] - nBase));
}

void LoadElements(uint32_t* pRow, const SLaneRow* pFirst, const uint32_t* pIndices, uint32_t nAdd, uint32_t nComponent,
                  uint32_t nCount)
{
    for (uint32_t i = 0; i < nCount; ++i)
        pRow[i] = pFirst[(pIndices[i] + nAdd) * 4 + nComponent].w[i];
}

void StoreElements(const uint32_t* pRow, SLaneRow* pFirst, const uint32_t* pIndices, uint32_t nAdd, uint32_t nComponent,
                   const uint32_t* pMask, uint32_t nCount)
{
    for (uint32_t i = 0; i < nCount; ++i)
    {
        if (!pMask || pMask[i])
            pFirst[(pIndices[i] + nAdd) * 4 + nComponent].w[i] = pRow[i];
    }
}

} // namespace

extern const SLaneTable KESTREL_LANE_SET;
const SLaneTable KESTREL_LANE_SET = {KESTREL_LANE_NAME, s_Fast, Split, Leave, Join, Swap, Case, Range, IsSequence,
                                     Gather, LoadElements, StoreElements};

} // namespace KestrelPlatform
