#ifndef KESTREL_PLATFORM_COMPILER_ITEMLAYOUT_H
#define KESTREL_PLATFORM_COMPILER_ITEMLAYOUT_H

#include "platform/il/InstructionShape.h"

#include <cstddef>
#include <cstdint>

namespace KestrelPlatform
{

/// Where the parts of one item stand, as word offsets from its opcode token.
struct SItemLayout
{
    uint32_t nOpcode = 0;
    size_t nWords = 0;                 ///< of the whole item
    uint32_t nInstructionModifier = 0; ///< the word itself, 0 if the opcode has none
    size_t nPrimary = 0;   ///< offset of the primary modifier word, 0 for none; for dcl_cb the count of the table
    size_t nSecondary = 0; ///< offset of the secondary modifier word, 0 for none
    size_t nOperands = 0;  ///< offset of the first operand, or of what follows if there is none
    bool bDestination = false;
    uint32_t nSources = 0;
    size_t nTrailing = 0;      ///< offset of the first trailing word
    size_t nTrailingWords = 0; ///< with the count word of a counted tail
};

/// Measures the operand that starts at pTokens.
///
/// \param nCount   words that may be looked at
/// \param nWords   receives the operand's words
/// \param pReason  receives the reason of a failure, a constant
/// \return false for an operand that is cut short, or has both a run-time index and a dimension
bool MeasureOperand(const uint32_t* pTokens, size_t nCount, size_t& nWords, const char*& pReason);

/// Measures the item that starts at pTokens: any instruction, declaration, comment or macro marker,
/// but not the two words that open a stream. Never reads past nCount words.
///
/// \return false, with a constant reason, for an unknown opcode or an item that is cut short
bool MeasureItem(const uint32_t* pTokens, size_t nCount, SItemLayout& layout, const char*& pReason);

} // namespace KestrelPlatform

#endif
