#include "platform/simt/LaneOps.h"

#include "platform/simt/HalfFloat.h"

#include <cmath>

namespace KestrelPlatform
{

namespace
{

#include "platform/simt/LaneTypes.inl"

struct H
{
    typedef float Type;
    static const bool bPair = false;
    static Type Get(uint32_t n, uint32_t) { return HalfToFloat(n); }
    static uint32_t Put(Type v) { return FloatToHalf(v, RoundNearest); }
};
struct W
{
    typedef uint16_t Type;
    static const bool bPair = false;
    static Type Get(uint32_t n, uint32_t) { return static_cast<uint16_t>(n); }
    static uint32_t Put(Type v) { return v; }
};
struct X
{
    typedef int16_t Type;
    static const bool bPair = false;
    static Type Get(uint32_t n, uint32_t) { return static_cast<int16_t>(n); }
    static uint32_t Put(Type v) { return static_cast<uint16_t>(v); }
};

uint32_t HalfOf(float f, EHalfRounding eRounding)
{
    return FloatToHalf(f, eRounding);
}

uint32_t HalfOfDouble(double d)
{
    return DoubleToHalf(d);
}

float RoundToHalf(float f)
{
    return HalfToFloat(FloatToHalf(f, RoundNearest));
}

float ToRange(float a, float fLow, float fHigh)
{
    if (a != a)
    {
        return 0.0f;
    }
    return a < fLow ? fLow : (a > fHigh ? fHigh : a);
}

int32_t ToInt(double a)
{
    if (a != a)
    {
        return 0;
    }
    if (a <= -2147483648.0)
    {
        return static_cast<int32_t>(0x80000000u);
    }
    return a >= 2147483647.0 ? 0x7FFFFFFF : static_cast<int32_t>(a);
}

uint32_t ToUint(double a)
{
    if (!(a > 0.0))
    {
        return 0;
    }
    return a >= 4294967295.0 ? 0xFFFFFFFFu : static_cast<uint32_t>(a);
}

int64_t ToInt64(double a)
{
    if (a != a)
    {
        return 0;
    }
    if (a <= -9223372036854775808.0)
    {
        return static_cast<int64_t>(0x8000000000000000ull);
    }
    return a >= 9223372036854775808.0 ? 0x7FFFFFFFFFFFFFFFll : static_cast<int64_t>(a);
}

uint64_t ToUint64(double a)
{
    if (!(a > 0.0))
    {
        return 0;
    }
    return a >= 18446744073709551616.0 ? ~0ull : static_cast<uint64_t>(a);
}

template <class T>
int32_t FrexpExponent(T a)
{
    if (a == 0 || !std::isfinite(a))
    {
        return 0;
    }
    int nExponent = 0;
    std::frexp(a, &nExponent);
    return nExponent;
}

template <class T>
T FrexpMantissa(T a)
{
    int nExponent = 0;
    return std::isfinite(a) ? std::frexp(a, &nExponent) : a;
}

/// One bit for what a value is, from bit 0: signalling NaN, quiet NaN, -infinity, -normal,
/// -denormal, -0, +0, +denormal, +normal, +infinity.
uint32_t ClassBit(bool bNegative, bool bNaN, bool bQuiet, bool bInfinite, bool bZero, bool bDenormal)
{
    if (bNaN)
    {
        return bQuiet ? 2 : 1;
    }
    uint32_t nKind = 3;
    if (bInfinite)
    {
        nKind = 2;
    }
    else if (bZero)
    {
        nKind = 5;
    }
    else if (bDenormal)
    {
        nKind = 4;
    }
    return 1u << (bNegative ? nKind : 11 - nKind);
}

uint32_t ClassOf(float a)
{
    const uint32_t n = AsWord(a);
    const uint32_t nMagnitude = n & 0x7FFFFFFF;
    return ClassBit((n >> 31) != 0, nMagnitude > 0x7F800000, (n & 0x400000) != 0, nMagnitude == 0x7F800000,
                    nMagnitude == 0, nMagnitude < 0x800000);
}

uint32_t ClassOf(double a)
{
    const uint64_t n = AsLong(a);
    const uint64_t nMagnitude = n & 0x7FFFFFFFFFFFFFFFull;
    const uint64_t nInfinity = 0x7FF0000000000000ull;
    return ClassBit((n >> 63) != 0, nMagnitude > nInfinity, (n & 0x8000000000000ull) != 0, nMagnitude == nInfinity,
                    nMagnitude == 0, nMagnitude < 0x10000000000000ull);
}

uint32_t HalfClassOf(uint32_t n)
{
    const uint32_t nMagnitude = n & 0x7FFF;
    return ClassBit((n & 0x8000) != 0, nMagnitude > 0x7C00, (n & 0x200) != 0, nMagnitude == 0x7C00, nMagnitude == 0,
                    nMagnitude < 0x400);
}

uint32_t FirstBitSigned(uint32_t a)
{
    const uint32_t n = (a >> 31) ? ~a : a;
    return n ? static_cast<uint32_t>(__builtin_clz(n)) : 0xFFFFFFFFu;
}

uint32_t ReverseBits(uint32_t a)
{
    a = ((a >> 1) & 0x55555555u) | ((a & 0x55555555u) << 1);
    a = ((a >> 2) & 0x33333333u) | ((a & 0x33333333u) << 2);
    a = ((a >> 4) & 0x0F0F0F0Fu) | ((a & 0x0F0F0F0Fu) << 4);
    return __builtin_bswap32(a);
}

/// Width a and offset b, modulo 32, of the value c; bits beyond the word are left out.
uint32_t ExtractBits(uint32_t a, uint32_t b, uint32_t c)
{
    const uint32_t nWidth = a & 31;
    return (c >> (b & 31)) & ((1u << nWidth) - 1u);
}

uint32_t ExtractBitsSigned(uint32_t a, uint32_t b, uint32_t c)
{
    const uint32_t nWidth = a & 31;
    const uint32_t nOffset = b & 31;
    if (nWidth == 0)
    {
        return 0;
    }
    if (nWidth + nOffset >= 32)
    {
        return static_cast<uint32_t>(static_cast<int32_t>(c) >> nOffset);
    }
    const int32_t nTop = static_cast<int32_t>(c << (32 - nWidth - nOffset));
    return static_cast<uint32_t>(nTop >> (32 - nWidth));
}

uint32_t Distance(uint32_t a, uint32_t b)
{
    return a > b ? a - b : b - a;
}

uint32_t SumOfByteDifferences(uint32_t a, uint32_t b)
{
    uint32_t nSum = 0;
    for (uint32_t n = 0; n < 32; n += 8)
    {
        nSum += Distance((a >> n) & 0xFF, (b >> n) & 0xFF);
    }
    return nSum;
}

/// Bytes where b is 0 are skipped.
uint32_t MaskedSumOfByteDifferences(uint32_t a, uint32_t b)
{
    uint32_t nSum = 0;
    for (uint32_t n = 0; n < 32; n += 8)
    {
        nSum += ((b >> n) & 0xFF) ? Distance((a >> n) & 0xFF, (b >> n) & 0xFF) : 0;
    }
    return nSum;
}

/// Four sums of byte differences, starting at bytes 0, 1, 2 and 3 of a, each added to 16 bits of c.
uint64_t QuadSad(uint64_t a, uint32_t b, uint64_t c, bool bMasked)
{
    uint64_t nResult = 0;
    for (uint32_t n = 0; n < 4; ++n)
    {
        const uint32_t nPart = static_cast<uint32_t>(a >> (n * 8));
        const uint32_t nSum = bMasked ? MaskedSumOfByteDifferences(nPart, b) : SumOfByteDifferences(nPart, b);
        nResult |= ((nSum + (c >> (n * 16))) & 0xFFFF) << (n * 16);
    }
    return nResult;
}

uint32_t LerpBytes(uint32_t a, uint32_t b, uint32_t c)
{
    uint32_t nResult = 0;
    for (uint32_t n = 0; n < 32; n += 8)
    {
        nResult |= ((((a >> n) & 0xFF) + ((b >> n) & 0xFF) + ((c >> n) & 1)) >> 1) << n;
    }
    return nResult;
}

uint32_t PackClamped(int32_t a, int32_t b, int32_t nLow, int32_t nHigh)
{
    const int32_t x = a < nLow ? nLow : (a > nHigh ? nHigh : a);
    const int32_t y = b < nLow ? nLow : (b > nHigh ? nHigh : b);
    return (static_cast<uint32_t>(x) & 0xFFFF) | (static_cast<uint32_t>(y) << 16);
}

uint32_t Snorm16(float f)
{
    return static_cast<uint32_t>(static_cast<int32_t>(std::rint(ToRange(f, -1.0f, 1.0f) * 32767.0f))) & 0xFFFF;
}

uint32_t Unorm16(float f)
{
    return static_cast<uint32_t>(std::rint(ToRange(f, 0.0f, 1.0f) * 65535.0f));
}

/// c with byte b replaced by a, rounded and clamped to 0 to 255.
uint32_t InsertByte(float a, uint32_t b, uint32_t c)
{
    const uint32_t nShift = (b & 3) * 8;
    const uint32_t nByte = static_cast<uint32_t>(std::rint(ToRange(a, 0.0f, 255.0f)));
    return (c & ~(0xFFu << nShift)) | (nByte << nShift);
}

/// Faces 0 to 5: +x, -x, +y, -y, +z, -z.
float CubeId(float x, float y, float z)
{
    const float ax = std::fabs(x), ay = std::fabs(y), az = std::fabs(z);
    if (az >= ax && az >= ay)
    {
        return z < 0 ? 5.0f : 4.0f;
    }
    if (ay >= ax)
    {
        return y < 0 ? 3.0f : 2.0f;
    }
    return x < 0 ? 1.0f : 0.0f;
}

float CubeMajor(float x, float y, float z)
{
    const float fId = CubeId(x, y, z);
    return 2.0f * (fId >= 4 ? z : (fId >= 2 ? y : x));
}

float CubeS(float x, float y, float z)
{
    const float fId = CubeId(x, y, z);
    if (fId >= 4)
    {
        return z < 0 ? -x : x;
    }
    if (fId >= 2)
    {
        return x;
    }
    return x < 0 ? z : -z;
}

float CubeT(float x, float y, float z)
{
    const float fId = CubeId(x, y, z);
    if (fId == 2 || fId == 3)
    {
        return y < 0 ? -z : z;
    }
    return -y;
}

#define LANE(opcode, form, out, a, b, c, expression) KESTREL_RULE(opcode, form, out, a, b, c, expression)
#define HELPER(name, form, out, a, b, c, expression) KESTREL_RULE(name, form, out, a, b, c, expression)
#include "platform/simt/LaneOpsSlow.def"

const PFLaneOp s_Slow[] = {
#define LANE(opcode, form, out, a, b, c, expression) RunRule<SRule_##opcode>,
#define HELPER(name, form, out, a, b, c, expression) RunRule<SRule_##name>,
#include "platform/simt/LaneOpsSlow.def"
};

} // namespace

PFLaneOp GetSlowLaneOp(uint32_t nOp)
{
    return s_Slow[nOp - LANE_FIRST_SLOW];
}

} // namespace KestrelPlatform
