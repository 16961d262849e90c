#include "platform/simt/HalfFloat.h"

#include <cmath>
#include <cstring>

namespace KestrelPlatform
{

namespace
{

const uint32_t s_nInfinity = 0x7C00;
const uint32_t s_nLargest = 0x7BFF;

/// Whether a magnitude with these discarded bits is rounded up.
bool RoundsAway(uint64_t nRest, uint64_t nHalfway, bool bOdd, bool bNegative, EHalfRounding eRounding)
{
    if (nRest == 0)
    {
        return false;
    }
    switch (eRounding)
    {
    case RoundNearest:
        return nRest > nHalfway || (nRest == nHalfway && bOdd);
    case RoundDown:
        return bNegative;
    case RoundUp:
        return !bNegative;
    default:
        return false;
    }
}

uint32_t Overflow(bool bNegative, EHalfRounding eRounding)
{
    const bool bAway =
        eRounding == RoundNearest || (eRounding == RoundDown && bNegative) || (eRounding == RoundUp && !bNegative);
    return bAway ? s_nInfinity : s_nLargest;
}

uint32_t Convert(double d, EHalfRounding eRounding)
{
    uint64_t nBits = 0;
    std::memcpy(&nBits, &d, sizeof nBits);
    const bool bNegative = (nBits >> 63) != 0;
    const uint32_t nSign = bNegative ? 0x8000 : 0;
    const int nExponent = static_cast<int>((nBits >> 52) & 0x7FF) - 1023;
    uint64_t nFraction = nBits & 0xFFFFFFFFFFFFFull;
    if (nExponent == 1024)
    {
        return nSign | s_nInfinity | (nFraction ? 0x200 | static_cast<uint32_t>(nFraction >> 42) : 0);
    }
    if (nExponent > 15)
    {
        return nSign | Overflow(bNegative, eRounding);
    }
    if (nExponent == -1023 && nFraction == 0)
    {
        return nSign;
    }
    // Below 2^-14 the unit is always 2^-24. Of a value far below it, only "not zero" matters.
    int nShift = 42;
    uint32_t nBase = 0;
    if (nExponent >= -14)
    {
        nBase = static_cast<uint32_t>(nExponent + 15) << 10;
    }
    else
    {
        nFraction |= 1ull << 52;
        nShift += -14 - nExponent;
    }
    if (nShift > 62)
    {
        nShift = 62;
    }
    const uint64_t nKept = nFraction >> nShift;
    const uint64_t nRest = nFraction & ((1ull << nShift) - 1);
    uint32_t nHalf = nBase + static_cast<uint32_t>(nKept);
    if (RoundsAway(nRest, 1ull << (nShift - 1), (nHalf & 1) != 0, bNegative, eRounding))
    {
        ++nHalf;
    }
    return nSign | nHalf;
}

} // namespace

uint32_t FloatToHalf(float f, EHalfRounding eRounding)
{
    return Convert(f, eRounding);
}

uint32_t DoubleToHalf(double d)
{
    return Convert(d, RoundNearest);
}

float HalfToFloat(uint32_t nHalf)
{
    const uint32_t nSign = (nHalf & 0x8000) << 16;
    const uint32_t nExponent = (nHalf >> 10) & 0x1F;
    const uint32_t nFraction = nHalf & 0x3FF;
    uint32_t nBits = 0;
    if (nExponent == 31)
    {
        nBits = nSign | 0x7F800000 | (nFraction << 13);
    }
    else if (nExponent != 0)
    {
        nBits = nSign | ((nExponent + 112) << 23) | (nFraction << 13);
    }
    else
    {
        const float f = std::ldexp(static_cast<float>(nFraction), -24);
        std::memcpy(&nBits, &f, sizeof nBits);
        nBits |= nSign;
    }
    float f = 0;
    std::memcpy(&f, &nBits, sizeof f);
    return f;
}

} // namespace KestrelPlatform
