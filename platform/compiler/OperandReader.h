#ifndef KESTREL_PLATFORM_COMPILER_OPERANDREADER_H
#define KESTREL_PLATFORM_COMPILER_OPERANDREADER_H

#include "platform/compiler/LineScanner.h"

#include <cstdint>
#include <vector>

namespace KestrelPlatform
{

/// Reads the source operand at the scanner's position and appends its words.
bool ReadSource(CLineScanner& scanner, std::vector<uint32_t>& vTokens);

/// Reads the destination operand at the scanner's position and appends its words.
///
/// \param bModifiers whether the mnemonic gave destination modifiers
/// \param nModifiers their bits of the modifier word
bool ReadDestination(CLineScanner& scanner, bool bModifiers, uint32_t nModifiers, std::vector<uint32_t>& vTokens);

} // namespace KestrelPlatform

#endif
