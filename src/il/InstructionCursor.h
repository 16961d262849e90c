#ifndef KESTREL_IL_INSTRUCTIONCURSOR_H
#define KESTREL_IL_INSTRUCTIONCURSOR_H

#include "il/ILFormatDecode.h"
#include "il/TokenStream.h"

#include <cstdint>

namespace OVK_ShaderDebugger
{

/// What is logged when an operand can't be decoded.
struct SOperandTexts
{
    const char* pszTruncated;
    const char* pszDimension;
};

/// Walks one instruction where it stands in a stream's array. No count that the stream claims needs memory, or moves
/// the cursor, before its words are known to be there. The stream itself doesn't move. Failures are logged, with the
/// text that is given, to the stream's host.
class CInstructionCursor
{
public:
    explicit CInstructionCursor(const CInputTokenStream<unsigned int>& stream);

    bool IsAtEnd() const { return m_nLength == m_nTokenCount; }
    /// The instruction's first token.
    const IL* GetTokens() const { return m_pTokens; }
    /// How many tokens the cursor has passed.
    std::uint32_t GetLength() const { return m_nLength; }
    std::uint32_t GetTokensLeft() const { return m_nTokenCount - m_nLength; }

    bool Read(IL& token, const char* pszText)
    {
        if (IsAtEnd())
        {
            return Fail(pszText);
        }

        token = m_pTokens[m_nLength++];
        return true;
    }

    /// Passes nTokens tokens. When fewer are left the cursor goes to the end of the stream.
    bool Skip(std::uint32_t nTokens, const char* pszText)
    {
        if (nTokens > GetTokensLeft())
        {
            m_nLength = m_nTokenCount;
            return Fail(pszText);
        }

        m_nLength += nTokens;
        return true;
    }

    /// Passes an operand: its token and the words that the token announces.
    bool SkipOperand(const SOperandTexts& texts);

private:
    bool SkipAddress(IL_Dst operand, const SOperandTexts& texts);
    bool Fail(const char* pszText) const;

    const CInputTokenStream<unsigned int>& m_Stream;
    const IL* m_pTokens;
    std::uint32_t m_nTokenCount; ///< from the instruction's first token to the end of the stream
    std::uint32_t m_nLength;
};

} // namespace OVK_ShaderDebugger

#endif // KESTREL_IL_INSTRUCTIONCURSOR_H
