// Integer functions.

#include "Builtins.h"

// Forms that are equal for vectors and scalars.
#define PLAIN(N, T, U, S)                                                                                              \
    FUNCTION T##N min(T##N x, T##N y) { return __builtin_elementwise_min(x, y); }                                      \
    FUNCTION T##N max(T##N x, T##N y) { return __builtin_elementwise_max(x, y); }                                      \
    FUNCTION T##N clamp(T##N x, T##N least, T##N largest) { return min(max(x, least), largest); }                      \
    FUNCTION U##N abs_diff(T##N x, T##N y) { return BITS(U##N, max(x, y)) - BITS(U##N, min(x, y)); }                   \
    FUNCTION T##N hadd(T##N x, T##N y) { return (x >> (T)1) + (y >> (T)1) + (x & y & (T)1); }                          \
    FUNCTION T##N rhadd(T##N x, T##N y) { return (x >> (T)1) + (y >> (T)1) + ((x | y) & (T)1); }                       \
    FUNCTION T##N rotate(T##N x, T##N n)                                                                               \
    {                                                                                                                  \
        const U##N nBits = (U)(sizeof(T) * 8 - 1);                                                                     \
        const U##N left = BITS(U##N, n) & nBits;                                                                       \
        const U##N right = (U##N)(-left) & nBits;                                                                      \
        const U##N bits = BITS(U##N, x);                                                                               \
        return BITS(T##N, (U##N)((U##N)(bits << left) | (U##N)(bits >> right)));                                       \
    }
#define PLAIN_FORMS(T, U, S, least, largest) SIZES(PLAIN, T, U, S)
INTEGER_TYPES(PLAIN_FORMS)

// Scalars of less than 32 bits are widened before they are added.
#define SATURATED(N, T)                                                                                                \
    FUNCTION T##N add_sat(T##N x, T##N y) { return __builtin_elementwise_add_sat(x, y); }                              \
    FUNCTION T##N sub_sat(T##N x, T##N y) { return __builtin_elementwise_sub_sat(x, y); }
#define SATURATED_NARROW(T, least, largest)                                                                            \
    FUNCTION T add_sat(T x, T y) { return (T)clamp(x + y, least, largest); }                                           \
    FUNCTION T sub_sat(T x, T y) { return (T)clamp(x - y, least, largest); }                                           \
    VECTORS(SATURATED, T)
SATURATED_NARROW(char, -128, 127)
SATURATED_NARROW(uchar, 0, 255)
SATURATED_NARROW(short, -32768, 32767)
SATURATED_NARROW(ushort, 0, 65535)
SIZES(SATURATED, int)
SIZES(SATURATED, uint)
SIZES(SATURATED, long)
SIZES(SATURATED, ulong)

#define ABSOLUTE(N, T, U)                                                                                              \
    FUNCTION U##N abs(T##N x) { return BITS(U##N, (T##N)__builtin_elementwise_abs(x)); }
#define ABSOLUTE_FORMS(T, U, S, least, largest) SIZES(ABSOLUTE, T, U)
SIGNED_TYPES(ABSOLUTE_FORMS)
#define ITSELF(N, T)                                                                                                   \
    FUNCTION T##N abs(T##N x) { return x; }
#define ITSELF_FORMS(T, U, S, least, largest) SIZES(ITSELF, T)
UNSIGNED_TYPES(ITSELF_FORMS)

#define SCALAR_LIMITS(N, T)                                                                                            \
    FUNCTION T##N min(T##N x, T y) { return min(x, (T##N)y); }                                                         \
    FUNCTION T##N max(T##N x, T y) { return max(x, (T##N)y); }                                                         \
    FUNCTION T##N clamp(T##N x, T least, T largest) { return clamp(x, (T##N)least, (T##N)largest); }
#define SCALAR_LIMIT_FORMS(T, U, S, least, largest) VECTORS(SCALAR_LIMITS, T)
INTEGER_TYPES(SCALAR_LIMIT_FORMS)

// Counts of bits.
FUNCTION uint clz(uint x)
{
    return x == 0 ? 32 : __builtin_clz(x);
}

FUNCTION uchar clz(uchar x)
{
    return clz((uint)x) - 24;
}

FUNCTION ushort clz(ushort x)
{
    return clz((uint)x) - 16;
}

FUNCTION ulong clz(ulong x)
{
    const uint nHigh = x >> 32;
    return nHigh != 0 ? clz(nHigh) : 32 + clz((uint)x);
}

FUNCTION uint popcount(uint x)
{
    return __builtin_popcount(x);
}

FUNCTION uchar popcount(uchar x)
{
    return __builtin_popcount(x);
}

FUNCTION ushort popcount(ushort x)
{
    return __builtin_popcount(x);
}

FUNCTION ulong popcount(ulong x)
{
    return __builtin_popcount((uint)x) + __builtin_popcount((uint)(x >> 32));
}

#define SIGNED_COUNTS(T, U, S, least, largest)                                                                         \
    FUNCTION T clz(T x) { return clz((U)x); }                                                                          \
    FUNCTION T popcount(T x) { return popcount((U)x); }
SIGNED_TYPES(SIGNED_COUNTS)

// High halves of products, and saturating multiply-adds. The product of two 64-bit integers is
// composed of four 32-bit products.
#define NARROW_PRODUCTS(T, WIDE, least, largest)                                                                       \
    FUNCTION T mul_hi(T x, T y) { return (T)(((WIDE)x * (WIDE)y) >> (sizeof(T) * 8)); }                                \
    FUNCTION T mad_sat(T a, T b, T c)                                                                                  \
    {                                                                                                                  \
        const WIDE sum = (WIDE)a * (WIDE)b + (WIDE)c;                                                                  \
        return (T)clamp(sum, (WIDE)(least), (WIDE)(largest));                                                          \
    }
NARROW_PRODUCTS(char, int, -128, 127)
NARROW_PRODUCTS(uchar, uint, 0, 255)
NARROW_PRODUCTS(short, int, -32768, 32767)
NARROW_PRODUCTS(ushort, uint, 0, 65535)
NARROW_PRODUCTS(int, long, -2147483647 - 1, 2147483647)
NARROW_PRODUCTS(uint, ulong, 0, 4294967295U)

FUNCTION ulong mul_hi(ulong x, ulong y)
{
    const ulong x0 = (uint)x;
    const ulong x1 = x >> 32;
    const ulong y0 = (uint)y;
    const ulong y1 = y >> 32;
    const ulong middle = x1 * y0 + ((x0 * y0) >> 32);
    const ulong other = x0 * y1 + (uint)middle;
    return x1 * y1 + (middle >> 32) + (other >> 32);
}

FUNCTION long mul_hi(long x, long y)
{
    return (long)(mul_hi((ulong)x, (ulong)y) - (ulong)((x >> 63) & y) - (ulong)((y >> 63) & x));
}

FUNCTION ulong mad_sat(ulong a, ulong b, ulong c)
{
    const ulong low = a * b;
    const ulong sum = low + c;
    return mul_hi(a, b) != 0 || sum < low ? ~0UL : sum;
}

FUNCTION long mad_sat(long a, long b, long c)
{
    const ulong low = (ulong)a * (ulong)b;
    const ulong sum = low + (ulong)c;
    const long high = mul_hi(a, b) + (c >> 63) + (sum < low ? 1 : 0);
    const long most = (long)(0x7FFFFFFFFFFFFFFFUL ^ (ulong)(high >> 63));
    return high == ((long)sum >> 63) ? (long)sum : most;
}

#define COMPONENT_FORMS(T, U, S, least, largest)                                                                       \
    BY_COMPONENT_1(FUNCTION, T, clz, T)                                                                                \
    BY_COMPONENT_1(FUNCTION, T, popcount, T)                                                                           \
    BY_COMPONENT_2(FUNCTION, T, mul_hi, T, T)                                                                          \
    BY_COMPONENT_3(FUNCTION, T, mad_sat, T, T, T)                                                                      \
    SIZES(MULTIPLY_ADD_HIGH, T)
#define MULTIPLY_ADD_HIGH(N, T)                                                                                        \
    FUNCTION T##N mad_hi(T##N a, T##N b, T##N c) { return mul_hi(a, b) + c; }
INTEGER_TYPES(COMPONENT_FORMS)

// Two halves as one integer of double width.
#define UPSAMPLE(N, HIGH, LOW, R, UR)                                                                                  \
    FUNCTION R##N upsample(HIGH##N high, LOW##N low)                                                                   \
    {                                                                                                                  \
        const UR##N upper = BITS(UR##N, __builtin_convertvector(high, R##N)) << (UR)(sizeof(LOW) * 8);                 \
        return BITS(R##N, upper | __builtin_convertvector(low, UR##N));                                                \
    }
#define UPSAMPLE_FORMS(HIGH, LOW, R, UR)                                                                               \
    FUNCTION R upsample(HIGH high, LOW low) { return (R)((UR)((UR)(R)high << (UR)(sizeof(LOW) * 8)) | low); }          \
    VECTORS(UPSAMPLE, HIGH, LOW, R, UR)
UPSAMPLE_FORMS(char, uchar, short, ushort)
UPSAMPLE_FORMS(uchar, uchar, ushort, ushort)
UPSAMPLE_FORMS(short, ushort, int, uint)
UPSAMPLE_FORMS(ushort, ushort, uint, uint)
UPSAMPLE_FORMS(int, uint, long, ulong)
UPSAMPLE_FORMS(uint, uint, ulong, ulong)

// 24-bit products are no faster than others; for larger operands any result is allowed.
#define PRODUCTS_24(N, T)                                                                                              \
    FUNCTION T##N mul24(T##N x, T##N y) { return x * y; }                                                              \
    FUNCTION T##N mad24(T##N x, T##N y, T##N z) { return x * y + z; }
SIZES(PRODUCTS_24, int)
SIZES(PRODUCTS_24, uint)
