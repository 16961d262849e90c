#ifndef KESTREL_PLATFORM_SIMT_HALFFLOAT_H
#define KESTREL_PLATFORM_SIMT_HALFFLOAT_H

#include <cstdint>

namespace KestrelPlatform
{

enum EHalfRounding
{
    RoundNearest, ///< to even
    RoundZero,
    RoundDown,
    RoundUp
};

/// IEEE 754 binary16 bits of a single-precision value. NaN stays NaN. A value that is too large becomes infinity, or
/// the largest finite value if it is rounded toward zero.
uint32_t FloatToHalf(float f, EHalfRounding eRounding);

/// The same from double precision, rounded once to nearest.
uint32_t DoubleToHalf(double d);

/// The value of binary16 bits; bits above the low 16 are ignored.
float HalfToFloat(uint32_t nHalf);

} // namespace KestrelPlatform

#endif
