#ifndef KESTREL_PLATFORM_COMPILER_STREAMHEADER_H
#define KESTREL_PLATFORM_COMPILER_STREAMHEADER_H

#include <cstddef>
#include <cstdint>

namespace KestrelPlatform
{

/// Names of a version word's third byte, by value.
const char* const s_StreamKinds[] = {"vs", "ps", "gs", "cs", "hs", "ds"};
const size_t s_nStreamKinds = 6;

/// Bit 16 of the modifier word of `mdef`: an outline macro.
const uint32_t s_nOutlineMacroBit = 1u << 16;

/// Bits of a register token that no operand syntax sets; they are reserved.
const uint32_t s_nOperandReservedBits = 7u << 28;

/// Bits of an index register's token that no syntax sets. In this token they bring no further words.
const uint32_t s_nIndexRawBits = 0xFF800000u;

/// \return the short name of a version word's kind, or null if the word has no natural spelling
inline const char* GetStreamKindName(uint32_t nVersion)
{
    const uint32_t nKind = nVersion >> 16;
    return nKind < s_nStreamKinds ? s_StreamKinds[nKind] : nullptr;
}

} // namespace KestrelPlatform

#endif
