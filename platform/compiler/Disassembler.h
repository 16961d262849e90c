#ifndef KESTREL_PLATFORM_COMPILER_DISASSEMBLER_H
#define KESTREL_PLATFORM_COMPILER_DISASSEMBLER_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace KestrelPlatform
{

/// Prints a token stream as IL text, one item a line, so that AssembleIL of the text gives the
/// same tokens bit for bit.
///
/// \param pTokens  nCount 32-bit words
/// \param strText  receives the text; empty on failure
/// \param strError receives the reason of a failure, with the token's index
/// \return false for a stream that doesn't decode: an unknown opcode, or one cut short. Reentrant.
bool DisassembleIL(const uint32_t* pTokens, size_t nCount, std::string& strText, std::string& strError);

} // namespace KestrelPlatform

#endif
