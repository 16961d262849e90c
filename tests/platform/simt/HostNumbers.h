#ifndef KESTREL_TESTS_PLATFORM_SIMT_HOSTNUMBERS_H
#define KESTREL_TESTS_PLATFORM_SIMT_HOSTNUMBERS_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

/// Values computed on the host in wider types than the device's and rounded once: double for single precision, long
/// double for double precision, double for halves.
namespace KestrelPlatformTest
{

template <class TTo, class TFrom>
TTo BitsAs(TFrom from)
{
    static_assert(sizeof(TTo) == sizeof(TFrom), "a value of the same size");
    TTo to;
    std::memcpy(&to, &from, sizeof to);
    return to;
}

// The low bits of an operand as a value.
inline uint32_t u(uint64_t n)
{
    return static_cast<uint32_t>(n);
}
inline int32_t i(uint64_t n)
{
    return static_cast<int32_t>(u(n));
}
inline int64_t s(uint64_t n)
{
    return static_cast<int64_t>(n);
}
inline uint32_t w(uint64_t n)
{
    return u(n) & 0xFFFF;
}
inline int32_t x(uint64_t n)
{
    return static_cast<int16_t>(n);
}
inline double f(uint64_t n)
{
    return BitsAs<float>(u(n));
}
inline double d(uint64_t n)
{
    return BitsAs<double>(n);
}

inline double h(uint64_t n)
{
    const double dSign = (n & 0x8000) ? -1.0 : 1.0;
    const int nExponent = static_cast<int>((n >> 10) & 31);
    const double dFraction = static_cast<double>(n & 0x3FF) / 1024.0;
    if (nExponent == 31)
    {
        return dFraction != 0 ? std::numeric_limits<double>::quiet_NaN()
                              : dSign * std::numeric_limits<double>::infinity();
    }
    return dSign * (nExponent ? std::ldexp(1.0 + dFraction, nExponent - 15) : std::ldexp(dFraction, -14));
}

// And back.
inline uint64_t F(double v)
{
    return BitsAs<uint32_t>(static_cast<float>(v));
}
inline uint64_t F(long double v)
{
    return BitsAs<uint32_t>(static_cast<float>(v));
}
inline uint64_t D(double v)
{
    return BitsAs<uint64_t>(v);
}
inline uint64_t D(long double v)
{
    return BitsAs<uint64_t>(static_cast<double>(v));
}
inline uint64_t U(uint64_t v)
{
    return u(v);
}
inline uint64_t W(uint64_t v)
{
    return v & 0xFFFF;
}
inline uint64_t M(bool b)
{
    return b ? 0xFFFFFFFFu : 0;
}
inline uint64_t M64(bool b)
{
    return b ? ~0ull : 0;
}

enum EDirection
{
    Nearest,
    Down,
    Up,
    Zero
};

/// Binary16 bits: divided by its unit in the last place and rounded in the given direction, the value is a whole
/// number.
inline uint64_t ToHalf(double v, EDirection eDirection)
{
    const uint64_t nSign = std::signbit(v) ? 0x8000 : 0;
    if (v != v)
    {
        return 0x7E00;
    }
    const double dSize = std::fabs(v);
    if (std::isinf(v))
    {
        return nSign | 0x7C00;
    }
    const int nExponent = dSize == 0 ? -14 : std::max(std::ilogb(dSize), -14);
    const double dUnits = std::ldexp(dSize, 10 - nExponent);
    const bool bAway = (eDirection == Up && !nSign) || (eDirection == Down && nSign);
    const double dWhole =
        eDirection == Nearest ? std::nearbyint(dUnits) : (bAway ? std::ceil(dUnits) : std::floor(dUnits));
    const double dRounded = std::ldexp(dWhole, nExponent - 10);
    if (dRounded > 65504.0)
    {
        return nSign | (eDirection == Nearest || bAway ? 0x7C00 : 0x7BFF);
    }
    // Counting on from the exponent's first value carries into the next exponent.
    const int nBiased = dWhole >= 1024.0 ? nExponent + 15 : 0;
    const uint64_t nFirst = nBiased ? static_cast<uint64_t>(nBiased - 1) << 10 : 0;
    return nSign | (nFirst + static_cast<uint64_t>(dWhole));
}

inline uint64_t H(double v)
{
    return ToHalf(v, Nearest);
}

/// Toward zero into a range; NaN gives 0.
inline uint64_t Cut(double v, double dLow, double dHigh, uint64_t nLow, uint64_t nHigh)
{
    if (v != v)
    {
        return 0;
    }
    if (v <= dLow)
    {
        return nLow;
    }
    return v >= dHigh
               ? nHigh
               : static_cast<uint64_t>(v < 0 ? static_cast<int64_t>(v) : 0) + (v < 0 ? 0 : static_cast<uint64_t>(v));
}

inline uint64_t CutInt(double v)
{
    return u(Cut(v, -2147483648.0, 2147483647.0, 0x80000000u, 0x7FFFFFFF));
}
inline uint64_t CutUint(double v)
{
    return Cut(v, 0.0, 4294967295.0, 0, 0xFFFFFFFFu);
}
inline uint64_t CutInt64(double v)
{
    return Cut(v, -0x1p63, 0x1p63, 1ull << 63, ~(1ull << 63));
}
inline uint64_t CutUint64(double v)
{
    return Cut(v, 0.0, 0x1p64, 0, ~0ull);
}

/// The class bit of a value of any format: signalling NaN, quiet NaN, then from -infinity to +infinity.
inline uint64_t ClassBit(uint64_t n, int nBits, int nFraction)
{
    const bool bNegative = (n >> (nBits - 1)) & 1;
    const uint64_t nExponent = (n >> nFraction) & ((1ull << (nBits - 1 - nFraction)) - 1);
    const uint64_t nLast = (1ull << (nBits - 1 - nFraction)) - 1;
    const uint64_t nRest = n & ((1ull << nFraction) - 1);
    if (nExponent == nLast && nRest)
    {
        return (nRest >> (nFraction - 1)) ? 2 : 1;
    }
    if (nExponent == nLast)
    {
        return bNegative ? 1u << 2 : 1u << 9;
    }
    if (nExponent)
    {
        return bNegative ? 1u << 3 : 1u << 8;
    }
    if (nRest)
    {
        return bNegative ? 1u << 4 : 1u << 7;
    }
    return bNegative ? 1u << 5 : 1u << 6;
}

inline uint64_t Distance(uint64_t a, uint64_t b)
{
    return a > b ? a - b : b - a;
}
inline uint32_t Byte(uint64_t n, int nByte)
{
    return static_cast<uint32_t>(n >> (8 * nByte)) & 0xFF;
}

/// The sum of the differences of four bytes; with bMasked, those where b is 0 are skipped.
inline uint64_t ByteSad(uint64_t a, uint64_t b, bool bMasked)
{
    uint64_t nSum = 0;
    for (int n = 0; n < 4; ++n)
    {
        nSum += bMasked && Byte(b, n) == 0 ? 0 : Distance(Byte(a, n), Byte(b, n));
    }
    return nSum;
}

/// The mean of each pair of bytes, rounded up if the third byte is odd.
inline uint64_t ByteLerp(uint64_t a, uint64_t b, uint64_t c)
{
    uint64_t nResult = 0;
    for (int n = 0; n < 4; ++n)
    {
        nResult |= ((Byte(a, n) + Byte(b, n) + (Byte(c, n) & 1ull)) / 2) << (8 * n);
    }
    return nResult;
}

inline uint64_t QuadSad(uint64_t a, uint64_t b, uint64_t c, bool bMasked)
{
    uint64_t nResult = 0;
    for (int n = 0; n < 4; ++n)
    {
        nResult |= W(ByteSad(a >> (8 * n), b, bMasked) + (c >> (16 * n))) << (16 * n);
    }
    return nResult;
}

inline int64_t Sign24(uint64_t n)
{
    return (static_cast<int64_t>(n & 0xFFFFFF) ^ 0x800000) - 0x800000;
}

/// If only one is a number, gives that, whatever kind of NaN the other is.
inline double Smaller(double a, double b)
{
    return b != b || a < b ? a : (a != a ? b : std::min(a, b));
}
inline double Larger(double a, double b)
{
    return b != b || a > b ? a : (a != a ? b : std::max(a, b));
}

/// Whether it is a signalling half NaN, which even functions for any number don't accept.
inline bool IsSignalling(uint64_t n)
{
    return ClassBit(w(n), 16, 10) == 1;
}

inline double Sign(double v)
{
    return v != v ? 0.0 : (v > 0 ? 1.0 : (v < 0 ? -1.0 : v));
}
inline double Clamped(double v, double dLow, double dHigh)
{
    return v != v ? 0.0 : std::min(std::max(v, dLow), dHigh);
}

template <class T>
T Middle(T a, T b, T c)
{
    return std::max(std::min(a, b), std::min(std::max(a, b), c));
}

inline uint64_t Reverse(uint64_t n)
{
    uint64_t nResult = 0;
    for (int nBit = 0; nBit < 32; ++nBit)
    {
        nResult |= ((n >> nBit) & 1) << (31 - nBit);
    }
    return nResult;
}

/// Width a, offset b, both modulo 32; bits above 31 are left out.
inline uint64_t Extract(uint64_t a, uint64_t b, uint64_t c, bool bSigned)
{
    const uint64_t nWidth = std::min<uint64_t>(a % 32, 32 - b % 32);
    uint64_t nResult = 0;
    for (uint64_t n = 0; n < nWidth; ++n)
    {
        nResult |= ((c >> (b % 32 + n)) & 1) << n;
    }
    for (uint64_t n = nWidth; bSigned && nWidth && n < 32; ++n)
    {
        nResult |= ((nResult >> (nWidth - 1)) & 1) << n;
    }
    return nResult;
}

/// Where a direction meets a cube: face 0 to 5 (+x, -x, +y, -y, +z, -z), twice the major axis, and the two axes of the
/// face.
struct SCube
{
    SCube(double x, double y, double z)
    {
        static const int s_nS[6][2] = {{2, -1}, {2, 1}, {0, 1}, {0, 1}, {0, 1}, {0, -1}};
        static const int s_nT[6][2] = {{1, -1}, {1, -1}, {2, 1}, {2, -1}, {1, -1}, {1, -1}};
        const double v[3] = {x, y, z};
        int nAxis = 2;
        if (std::fabs(v[1]) > std::fabs(v[2]) && std::fabs(v[1]) >= std::fabs(v[0]))
        {
            nAxis = 1;
        }
        else if (std::fabs(v[0]) > std::fabs(v[2]))
        {
            nAxis = 0;
        }
        nFace = nAxis * 2 + (v[nAxis] < 0 ? 1 : 0);
        dMajor = 2 * v[nAxis];
        dS = s_nS[nFace][1] * v[s_nS[nFace][0]];
        dT = s_nT[nFace][1] * v[s_nT[nFace][0]];
    }

    int nFace;
    double dMajor;
    double dS;
    double dT;
};

} // namespace KestrelPlatformTest

#endif
