#ifndef KESTREL_PLATFORM_SIMT_CHECKS_SHADOWRULES_H
#define KESTREL_PLATFORM_SIMT_CHECKS_SHADOWRULES_H

#include <cstdint>

namespace KestrelPlatform
{

/// A word's shadow has a byte for each of its bytes: 0 if that is written, else the origin of the unwritten value. This
/// bit is added if the byte isn't a copy of that value, but was computed from it.
const uint32_t s_nWorkedOut = 0x80;
/// Origins below this one are values of EPlatformOrigin. From this one on they stand for buffers.
const uint32_t s_nFirstBuffer = 8;
const uint32_t s_nLastBuffer = 127;

/// How a lane operation's result depends on what it reads.
enum EShadowRule : uint8_t
{
    SHADOW_ANY, ///< every bit depends on every bit
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

/// The shadow of a result that depends on all of a word; 0 if the whole word is written.
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

/// The shadow of a result word, by the values and shadows of three operands. For all rules but SHADOW_ANY and
/// SHADOW_COPY, which need no values.
uint32_t WorkOutShadow(EShadowRule eRule, const uint32_t* pValues, const uint32_t* pShadows);

} // namespace KestrelPlatform

#endif
