#ifndef KESTREL_PLATFORM_SIMT_CHECKS_SHADOWRULES_H
#define KESTREL_PLATFORM_SIMT_CHECKS_SHADOWRULES_H

#include <cstdint>

namespace KestrelPlatform
{

/// A word's shadow has a byte for each of its bytes: 0 for one that is written, else where it comes from, with this bit
/// if it isn't a copy but something that was worked out.
const uint32_t s_nWorkedOut = 0x80;
/// Origins are EPlatformOrigin; from this one on they are buffers, by number.
const uint32_t s_nFirstBuffer = 8;
const uint32_t s_nLastBuffer = 127;

/// How a lane operation's result depends on what it reads.
enum EShadowRule : uint8_t
{
    SHADOW_ANY, ///< all of it on all
    SHADOW_COPY,
    SHADOW_SELECT,
    SHADOW_AND,
    SHADOW_OR,
    SHADOW_XOR,
    SHADOW_LEFT,
    SHADOW_RIGHT,
    SHADOW_EXTRACT
};

EShadowRule FindShadowRule(uint32_t nOp);

/// The shadow of what all of a word depends on; 0 if none of it is unwritten.
inline uint32_t SpreadShadow(uint32_t nShadow)
{
    if (nShadow == 0)
    {
        return 0;
    }
    while ((nShadow & 0xFF) == 0)
    {
        nShadow >>= 8;
    }
    return ((nShadow & 0x7F) | s_nWorkedOut) * 0x01010101u;
}

/// The shadow of a word's result, of operands a to c with the shadows sa to sc; for all rules but SHADOW_ANY and
/// SHADOW_COPY, which need no values.
uint32_t WorkOutShadow(EShadowRule eRule, const uint32_t* pValues, const uint32_t* pShadows);

} // namespace KestrelPlatform

#endif
