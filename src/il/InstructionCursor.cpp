#include "il/InstructionCursor.h"

#include "core/Log.h"

#include <algorithm>
#include <limits>

namespace OVK_ShaderDebugger
{

CInstructionCursor::CInstructionCursor(const CInputTokenStream<unsigned int>& stream)
    : m_Stream(stream), m_pTokens(stream.GetStreamPos()), m_nLength(0)
{
    const std::size_t nLimit = std::numeric_limits<std::uint32_t>::max();
    m_nTokenCount = static_cast<std::uint32_t>(std::min(stream.GetTokensLeft(), nLimit));
}

bool CInstructionCursor::SkipOperand(const SOperandTexts& texts)
{
    IL_Dst operand = {}; // a source has the same fields
    return Read(operand.val, texts.pszTruncated) && Skip(operand.bits.modifier_present, texts.pszTruncated) &&
           SkipAddress(operand, texts) && Skip(operand.bits.immediate_present, texts.pszTruncated) &&
           Skip(operand.bits.extended, texts.pszTruncated);
}

bool CInstructionCursor::SkipAddress(IL_Dst operand, const SOperandTexts& texts)
{
    switch (operand.bits.relative_address)
    {
    case IL_ADDR_ABSOLUTE:
        return Skip(operand.bits.dimension, texts.pszTruncated);

    case IL_ADDR_RELATIVE:
        return Skip(1, texts.pszTruncated);

    case IL_ADDR_REG_RELATIVE:
    {
        IL_Src indexSrc = {};
        return (operand.bits.dimension == 0 || Fail(texts.pszDimension)) && Read(indexSrc.val, texts.pszTruncated) &&
               Skip(indexSrc.bits.modifier_present, texts.pszTruncated);
    }

    default:
        return true;
    }
}

bool CInstructionCursor::Fail(const char* pszText) const
{
    return SD_Break(m_Stream.GetHost(), pszText);
}

} // namespace OVK_ShaderDebugger
