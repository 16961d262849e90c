#ifndef KESTREL_PLATFORM_COMPILER_MNEMONICREADER_H
#define KESTREL_PLATFORM_COMPILER_MNEMONICREADER_H

#include "platform/compiler/LineScanner.h"

#include <cstdint>

namespace KestrelPlatform
{

/// What the mnemonic of a line and its suffixes say.
struct SMnemonic
{
    const char* pStart = nullptr; ///< where it stands, for messages
    uint32_t nOpcode = 0;
    uint32_t nToken = 0; ///< the opcode token, without a count that the operands give
    uint32_t nInstructionModifier = 0;
    bool bPrimary = false;
    uint32_t nPrimary = 0;
    bool bSecondary = false;
    uint32_t nSecondary = 0;
    bool bDestinationModifiers = false;
    uint32_t nDestinationModifiers = 0;
    uint32_t nStride = 0; ///< of dcl_typeless_uav
    uint32_t nLength = 0;
    bool bInline = false; ///< dcl_cb_inline
};

/// Reads the mnemonic at the scanner's position with all of its suffixes, but no operand.
bool ReadMnemonic(CLineScanner& scanner, SMnemonic& mnemonic);

} // namespace KestrelPlatform

#endif
