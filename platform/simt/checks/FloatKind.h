#ifndef KESTREL_PLATFORM_SIMT_CHECKS_FLOATKIND_H
#define KESTREL_PLATFORM_SIMT_CHECKS_FLOATKIND_H

#include "platform/simt/LaneRules.h"

#include <cstdint>

namespace KestrelPlatform
{

/// The bits of the exponent, which are all set in NaN and infinity only; 0 for a type that isn't floating-point. Those
/// of a double are in its second word.
inline uint32_t ExponentOf(ELaneType eType)
{
    switch (eType)
    {
    case ELaneType::F:
        return 0x7F800000;
    case ELaneType::D:
        return 0x7FF00000;
    case ELaneType::H:
        return 0x7C00;
    default:
        return 0;
    }
}

enum ENumber
{
    Finite,
    Infinite,
    NotANumber
};

/// \param nHigh  the second word of a double; not used for other types
inline ENumber LookAt(ELaneType eType, uint32_t nLow, uint32_t nHigh)
{
    const uint32_t nExponent = ExponentOf(eType);
    const uint32_t nWord = eType == ELaneType::D ? nHigh : nLow;
    if (nExponent == 0 || (nWord & nExponent) != nExponent)
    {
        return Finite;
    }
    const uint32_t nFraction = (nExponent & (0u - nExponent)) - 1;
    return (nWord & nFraction) != 0 || (eType == ELaneType::D && nLow != 0) ? NotANumber : Infinite;
}

} // namespace KestrelPlatform

#endif
