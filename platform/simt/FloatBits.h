#ifndef KESTREL_PLATFORM_SIMT_FLOATBITS_H
#define KESTREL_PLATFORM_SIMT_FLOATBITS_H

#include <cstdint>
#include <cstring>

namespace KestrelPlatform
{

/// The single-precision number with these bits.
inline float AsFloat(uint32_t n)
{
    float f = 0;
    std::memcpy(&f, &n, sizeof f);
    return f;
}

/// The bits of a single-precision number.
inline uint32_t AsWord(float f)
{
    uint32_t n = 0;
    std::memcpy(&n, &f, sizeof n);
    return n;
}

} // namespace KestrelPlatform

#endif
