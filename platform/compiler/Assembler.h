#ifndef KESTREL_PLATFORM_COMPILER_ASSEMBLER_H
#define KESTREL_PLATFORM_COMPILER_ASSEMBLER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace KestrelPlatform
{

/// Where and why a text was refused. Line and column count from 1; both are 0 if no place applies.
struct SDiagnostic
{
    unsigned int nLine = 0;
    unsigned int nColumn = 0;
    std::string strMessage;

    /// "line L, column C: message", or the message alone if no place applies.
    std::string ToString() const;
};

/// Assembles IL text (the grammar is in docs/il-text.md) into 32-bit tokens.
///
/// \param pText    the text, nSize bytes, no terminator needed; may be null if nSize is 0
/// \param vTokens  receives the tokens; empty on failure
/// \param diag     receives the first fault
/// \param pvLines  if given, receives for each instruction (comments, declarations and macro
///                 markers not counted) the 1-based text line on which it stands
/// \return false for a text that doesn't follow the grammar. Reentrant.
bool AssembleIL(const char* pText, size_t nSize, std::vector<uint32_t>& vTokens, SDiagnostic& diag,
                std::vector<uint32_t>* pvLines = nullptr);

} // namespace KestrelPlatform

#endif
