#include "platform/simt/checks/ShadowRules.h"

#include "platform/simt/LaneOps.h"

namespace KestrelPlatform
{

namespace
{

uint32_t ByteOf(uint32_t nWord, uint32_t nByte)
{
    return nWord >> (8 * nByte) & 0xFF;
}

/// The shadow of "and" and "or". A result's byte counts as written, too, if a written byte of one operand decides it.
/// \param nDecides  the byte's value that decides: zeros for "and", ones for "or"
uint32_t MaskShadow(const uint32_t* pValues, const uint32_t* pShadows, uint32_t nDecides)
{
    uint32_t nResult = 0;
    for (uint32_t n = 0; n < 4; ++n)
    {
        const uint32_t a = ByteOf(pShadows[0], n);
        const uint32_t b = ByteOf(pShadows[1], n);
        if ((a | b) == 0 || (a == 0 && ByteOf(pValues[0], n) == nDecides) ||
            (b == 0 && ByteOf(pValues[1], n) == nDecides))
        {
            continue;
        }
        const uint32_t nOther = ByteOf(a == 0 ? pValues[0] : pValues[1], n);
        const bool bCopy = (a == 0 || b == 0) && nOther == (nDecides ^ 0xFF);
        nResult |= ((a ? a : b) | (bCopy ? 0 : s_nWorkedOut)) << (8 * n);
    }
    return nResult;
}

uint32_t ShiftShadow(uint32_t nShadow, uint32_t nBits, bool bLeft)
{
    const auto shift = [nShadow, bLeft](uint32_t nBytes) {
        return nBytes > 3 ? 0 : bLeft ? nShadow << (8 * nBytes) : nShadow >> (8 * nBytes);
    };
    const uint32_t nHere = shift(nBits / 8);
    if (nBits % 8 == 0)
    {
        return nHere;
    }
    const uint32_t nNext = shift(nBits / 8 + 1);
    uint32_t nResult = 0;
    for (uint32_t n = 0; n < 4; ++n)
    {
        const uint32_t nByte = ByteOf(nHere, n) ? ByteOf(nHere, n) : ByteOf(nNext, n);
        nResult |= (nByte ? nByte | s_nWorkedOut : 0) << (8 * n);
    }
    return nResult;
}

uint32_t ExtractShadow(const uint32_t* pValues, const uint32_t* pShadows)
{
    if ((pShadows[0] | pShadows[1]) != 0)
    {
        return SpreadShadow(pShadows[0] ? pShadows[0] : pShadows[1]);
    }
    const uint32_t nWidth = pValues[0] & 31;
    const uint32_t nOffset = pValues[1] & 31;
    uint32_t nResult = 0;
    for (uint32_t n = nOffset / 8; nWidth != 0 && n < 4 && n * 8 < nOffset + nWidth; ++n)
    {
        nResult |= pShadows[2] & (0xFFu << (8 * n));
    }
    return SpreadShadow(nResult);
}

} // namespace

EShadowRule FindShadowRule(uint32_t nOp)
{
    switch (nOp)
    {
    case LANE_Mov:
    case LANE_IL_OP_MOV:
    case LANE_IL_OP_INV_MOV:
    case LANE_IL_OP_D_MOV:
        return SHADOW_COPY;
    case LANE_Select:
    case LANE_IL_OP_CMOV_LOGICAL:
        return SHADOW_SELECT;
    case LANE_FAnd:
    case LANE_IL_OP_AND:
        return SHADOW_AND;
    case LANE_IL_OP_I_OR:
        return SHADOW_OR;
    case LANE_IL_OP_I_XOR:
    case LANE_IL_OP_I_NOT:
        return SHADOW_XOR;
    case LANE_ShiftLeft:
    case LANE_IL_OP_I_SHL:
        return SHADOW_LEFT;
    case LANE_IL_OP_U_SHR:
        return SHADOW_RIGHT;
    case LANE_IL_OP_U_BIT_EXTRACT:
    case LANE_IL_OP_I_BIT_EXTRACT:
        return SHADOW_EXTRACT;
    default:
        return SHADOW_ANY;
    }
}

uint32_t WorkOutShadow(EShadowRule eRule, const uint32_t* pValues, const uint32_t* pShadows)
{
    switch (eRule)
    {
    case SHADOW_SELECT:
        if (pShadows[0] != 0)
        {
            return SpreadShadow(pShadows[0]);
        }
        return pValues[0] ? pShadows[1] : pShadows[2];
    case SHADOW_AND:
        return MaskShadow(pValues, pShadows, 0);
    case SHADOW_OR:
        return MaskShadow(pValues, pShadows, 0xFF);
    case SHADOW_XOR:
    {
        uint32_t nResult = 0;
        for (uint32_t n = 0; n < 4; ++n)
        {
            const uint32_t nByte = ByteOf(pShadows[0], n) ? ByteOf(pShadows[0], n) : ByteOf(pShadows[1], n);
            nResult |= (nByte ? nByte | s_nWorkedOut : 0) << (8 * n);
        }
        return nResult;
    }
    case SHADOW_LEFT:
    case SHADOW_RIGHT:
        return pShadows[1] ? SpreadShadow(pShadows[1])
                           : ShiftShadow(pShadows[0], pValues[1] & 31, eRule == SHADOW_LEFT);
    case SHADOW_EXTRACT:
        return ExtractShadow(pValues, pShadows);
    default:
        return SpreadShadow(pShadows[0] ? pShadows[0] : pShadows[1] ? pShadows[1] : pShadows[2]);
    }
}

} // namespace KestrelPlatform
