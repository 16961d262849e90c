#include "platform/compiler/ItemLayout.h"

namespace KestrelPlatform
{
namespace
{

const char* const s_pCutShort = "the stream is cut short";

/// Takes n words from what is left, or fails.
bool Take(size_t nCount, size_t& nUsed, size_t n, const char*& pReason)
{
    if (n > nCount - nUsed)
    {
        pReason = s_pCutShort;
        return false;
    }
    nUsed += n;
    return true;
}

/// Takes an operand from what is left, or fails.
bool TakeOperand(const uint32_t* pTokens, size_t nCount, size_t& nUsed, const char*& pReason)
{
    if (nUsed < nCount && IsPlainOperand(pTokens[nUsed]))
    {
        return Take(nCount, nUsed, (pTokens[nUsed] & s_nOperandModifier) != 0 ? 2 : 1, pReason);
    }
    size_t nWords = 0;
    const bool bOk = MeasureOperand(pTokens + nUsed, nCount - nUsed, nWords, pReason);
    nUsed += nWords;
    return bOk;
}

bool MeasureModifierWords(const uint32_t* pTokens, size_t nCount, const SInstructionShape& shape, SItemLayout& layout,
                          size_t& nUsed, const char*& pReason)
{
    if (!shape.bModifierWords)
    {
        return true;
    }
    if ((pTokens[0] & s_nPrimaryBit) != 0)
    {
        layout.nPrimary = nUsed;
        if (!Take(nCount, nUsed, 1, pReason))
        {
            return false;
        }
        if (layout.nOpcode == IL_DCL_CONST_BUFFER && !Take(nCount, nUsed, pTokens[layout.nPrimary], pReason))
        {
            return false;
        }
    }
    if ((pTokens[0] & s_nSecondaryBit) != 0)
    {
        layout.nSecondary = nUsed;
        return Take(nCount, nUsed, 1, pReason);
    }
    return true;
}

bool MeasureTrailing(const uint32_t* pTokens, size_t nCount, EILTail eTail, size_t& nUsed, const char*& pReason)
{
    switch (eTail)
    {
    case ILT_NONE:
        return true;
    case ILT_ONE:
        return Take(nCount, nUsed, 1, pReason);
    case ILT_TWO:
        return Take(nCount, nUsed, 2, pReason);
    case ILT_FOUR:
        return Take(nCount, nUsed, 4, pReason);
    case ILT_BY_CONTROLS:
        return Take(nCount, nUsed, (pTokens[0] >> 16) & s_nControlsMask, pReason);
    case ILT_COUNTED:
        break;
    }
    const size_t nCountWord = nUsed;
    return Take(nCount, nUsed, 1, pReason) && Take(nCount, nUsed, pTokens[nCountWord], pReason);
}

} // namespace

bool MeasureOperand(const uint32_t* pTokens, size_t nCount, size_t& nWords, const char*& pReason)
{
    nWords = 0;
    if (!Take(nCount, nWords, 1, pReason))
    {
        return false;
    }
    const uint32_t nToken = pTokens[0];
    const uint32_t nAddressing = (nToken >> s_nOperandRelativeShift) & 3;
    const bool bDimension = (nToken & s_nOperandDimension) != 0;
    size_t nFixed = ((nToken & s_nOperandModifier) != 0 ? 1 : 0) + ((nToken & s_nOperandImmediate) != 0 ? 1 : 0) +
                    ((nToken & s_nOperandExtended) != 0 ? 1 : 0);
    if (nAddressing == AddressRegister)
    {
        if (bDimension)
        {
            pReason = "a register has both a run-time index and a dimension";
            return false;
        }
        const size_t nIndexToken = 1 + ((nToken & s_nOperandModifier) != 0 ? 1 : 0);
        if (nIndexToken >= nCount)
        {
            pReason = s_pCutShort;
            return false;
        }
        nFixed += 1 + ((pTokens[nIndexToken] & s_nOperandModifier) != 0 ? 1 : 0);
    }
    else if (nAddressing == AddressRelative || (nAddressing == AddressAbsolute && bDimension))
    {
        nFixed += 1;
    }
    return Take(nCount, nWords, nFixed, pReason);
}

bool MeasureItem(const uint32_t* pTokens, size_t nCount, SItemLayout& layout, const char*& pReason)
{
    layout = SItemLayout();
    size_t nUsed = 0;
    if (!Take(nCount, nUsed, 1, pReason))
    {
        return false;
    }
    const uint32_t nToken = pTokens[0];
    layout.nOpcode = nToken & s_nOpcodeMask;
    const SInstructionShape& shape = GetInstructionShape(layout.nOpcode);
    if (shape.pName == nullptr)
    {
        pReason = "unknown opcode";
        return false;
    }
    if (shape.bInstructionModifier)
    {
        if (!Take(nCount, nUsed, 1, pReason))
        {
            return false;
        }
        layout.nInstructionModifier = pTokens[1];
    }
    if (!MeasureModifierWords(pTokens, nCount, shape, layout, nUsed, pReason))
    {
        return false;
    }
    layout.nOperands = nUsed;
    layout.bDestination = HasDestination(nToken, layout.nInstructionModifier);
    layout.nSources = GetSourceCount(nToken, layout.nInstructionModifier);
    const uint32_t nOperands = layout.nSources + (layout.bDestination ? 1 : 0);
    for (uint32_t i = 0; i < nOperands; ++i)
    {
        if (!TakeOperand(pTokens, nCount, nUsed, pReason))
        {
            return false;
        }
    }
    layout.nTrailing = nUsed;
    if (!MeasureTrailing(pTokens, nCount, shape.eTail, nUsed, pReason))
    {
        return false;
    }
    layout.nTrailingWords = nUsed - layout.nTrailing;
    layout.nWords = nUsed;
    return true;
}

} // namespace KestrelPlatform
