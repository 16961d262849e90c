// Mathematical functions that decompose, round and compare numbers, the same for both types.

#include "Builtins.h"

INSTRUCTION int __il_frexp_exp(float x);
INSTRUCTION float __il_frexp_mant(float x);
INSTRUCTION float __il_fldexp(float x, int n);
INSTRUCTION int __il_dfrexp_exp(double x);
INSTRUCTION double __il_dfrexp_mant(double x);
INSTRUCTION double __il_dldexp(double x, int n);

#define INTRINSIC __attribute__((overloadable, const))

// The types' names in intrinsic functions.
#define TYPE_NAME "f"
#define TYPE_NAME2 "v2f"
#define TYPE_NAME3 "v3f"
#define TYPE_NAME4 "v4f"
#define TYPE_NAME8 "v8f"
#define TYPE_NAME16 "v16f"

// I, U: integers of the same size. MINUS: the sign bit. QUIET: the bits of a NaN. LAST: the largest number below 1.
#define BASIC(N, F, I, U, WIDTH, MINUS, QUIET, LAST)                                                                   \
    INTRINSIC F##N NearestInteger(F##N x) __asm("llvm.rint." TYPE_NAME##N WIDTH);                                      \
    INTRINSIC F##N MultiplyAdd(F##N x, F##N y, F##N z) __asm("llvm.fma." TYPE_NAME##N WIDTH);                          \
    FUNCTION F##N rint(F##N x) { return NearestInteger(x); }                                                           \
    FUNCTION F##N fma(F##N x, F##N y, F##N z) { return MultiplyAdd(x, y, z); }                                         \
    FUNCTION F##N mad(F##N x, F##N y, F##N z) { return x * y + z; }                                                    \
    FUNCTION F##N fabs(F##N x) { return __builtin_elementwise_abs(x); }                                                \
    FUNCTION F##N ceil(F##N x) { return __builtin_elementwise_ceil(x); }                                               \
    FUNCTION F##N floor(F##N x) { return __builtin_elementwise_floor(x); }                                             \
    FUNCTION F##N trunc(F##N x) { return __builtin_elementwise_trunc(x); }                                             \
    FUNCTION F##N fmin(F##N x, F##N y) { return __builtin_elementwise_min(x, y); }                                     \
    FUNCTION F##N fmax(F##N x, F##N y) { return __builtin_elementwise_max(x, y); }                                     \
    FUNCTION F##N nan(U##N n) { return BITS(F##N, n | (U##N)(QUIET)); }                                                \
    FUNCTION F##N copysign(F##N x, F##N y)                                                                             \
    {                                                                                                                  \
        return BITS(F##N, (BITS(U##N, x) & ~(U##N)(MINUS)) | (BITS(U##N, y) & (U##N)(MINUS)));                         \
    }                                                                                                                  \
    FUNCTION F##N round(F##N x)                                                                                        \
    {                                                                                                                  \
        const F##N whole = trunc(x);                                                                                   \
        return copysign(fabs(x - whole) >= (F)0.5 ? whole + copysign((F##N)1, x) : whole, x);                          \
    }                                                                                                                  \
    FUNCTION F##N fdim(F##N x, F##N y) { return x > y ? x - y : (x <= y ? (F##N)0 : x + y); }                          \
    FUNCTION F##N maxmag(F##N x, F##N y)                                                                               \
    {                                                                                                                  \
        return fabs(x) > fabs(y) ? x : (fabs(y) > fabs(x) ? y : fmax(x, y));                                           \
    }                                                                                                                  \
    FUNCTION F##N minmag(F##N x, F##N y)                                                                               \
    {                                                                                                                  \
        return fabs(x) < fabs(y) ? x : (fabs(y) < fabs(x) ? y : fmin(x, y));                                           \
    }                                                                                                                  \
    /* In the order of the numbers, negative ones count down from 0. */                                                \
    FUNCTION F##N nextafter(F##N x, F##N y)                                                                            \
    {                                                                                                                  \
        const I##N bits = BITS(I##N, x);                                                                               \
        const I##N sign = bits & (I##N)(MINUS);                                                                        \
        const I##N place = bits < (I##N)0 ? (I##N)(MINUS) - bits : bits;                                               \
        const I##N next = x < y ? place + (I)1 : place - (I)1;                                                         \
        const I##N back = next < (I##N)0 ? (I##N)(MINUS) - next : next;                                                \
        const F##N moved = BITS(F##N, next == (I##N)0 ? sign : back);                                                  \
        return x == y ? y : (((x < y) | (x > y)) ? moved : x + y);                                                     \
    }                                                                                                                  \
    HELPER F##N Fractional(F##N x, F##N whole)                                                                         \
    {                                                                                                                  \
        const F##N part = x - whole;                                                                                   \
        const F##N below1 = part > (F##N)(LAST) ? (F##N)(LAST) : part;                                                 \
        const F##N finite = ((part != part) & (x == x)) ? copysign((F##N)0, x) : below1;                                 \
        return x == (F##N)0 ? x : finite;                                                                              \
    }                                                                                                                  \
    HELPER F##N AfterPoint(F##N x, F##N whole)                                                                         \
    {                                                                                                                  \
        const F##N part = x - whole;                                                                                   \
        return copysign(((part != part) & (x == x)) ? (F##N)0 : part, x);                                                \
    }                                                                                                                  \
    PARTS(F##N, __global)                                                                                              \
    PARTS(F##N, __local)                                                                                               \
    PARTS(F##N, __private)
#define PARTS(F, SPACE)                                                                                                \
    EFFECT F fract(F x, SPACE F* pWhole)                                                                               \
    {                                                                                                                  \
        const F whole = floor(x);                                                                                      \
        *pWhole = whole;                                                                                               \
        return Fractional(x, whole);                                                                                   \
    }                                                                                                                  \
    EFFECT F modf(F x, SPACE F* pWhole)                                                                                \
    {                                                                                                                  \
        const F whole = trunc(x);                                                                                      \
        *pWhole = whole;                                                                                               \
        return AfterPoint(x, whole);                                                                                   \
    }
SIZES(BASIC, float, int, uint, "32", 0x80000000, 0x7FC00000, 0x1.fffffep-1f)
SIZES(BASIC, double, long, ulong, "64", 0x8000000000000000, 0x7FF8000000000000, 0x1.fffffffffffffp-1)

#define LIMITS(N, F)                                                                                                   \
    FUNCTION F##N fmin(F##N x, F y) { return fmin(x, (F##N)y); }                                                       \
    FUNCTION F##N fmax(F##N x, F y) { return fmax(x, (F##N)y); }
VECTORS(LIMITS, float)
VECTORS(LIMITS, double)

#define EXPONENTS_IN(N, F, SPACE)                                                                                      \
    EFFECT F##N frexp(F##N x, SPACE int##N* pExponent)                                                                 \
    {                                                                                                                  \
        *pExponent = Exponent(x);                                                                                      \
        return Mantissa(x);                                                                                            \
    }
#define EXPONENTS(F, EXPONENT, MANTISSA, SCALE)                                                                        \
    HELPER int Exponent(F x) { return EXPONENT(x); }                                                                   \
    HELPER F Mantissa(F x) { return MANTISSA(x); }                                                                     \
    BY_COMPONENT_1(HELPER, int, Exponent, F)                                                                           \
    BY_COMPONENT_1(HELPER, F, Mantissa, F)                                                                             \
    SIZES(EXPONENTS_IN, F, __global)                                                                                   \
    SIZES(EXPONENTS_IN, F, __local)                                                                                    \
    SIZES(EXPONENTS_IN, F, __private)                                                                                  \
    FUNCTION F ldexp(F x, int n) { return SCALE(x, n); }                                                               \
    BY_COMPONENT_2(FUNCTION, F, ldexp, F, int)                                                                         \
    VECTORS(LDEXP_ALIKE, F)                                                                                            \
    FUNCTION int ilogb(F x)                                                                                            \
    {                                                                                                                  \
        const int nOther = x == 0 ? -2147483647 - 1 : 2147483647;                                                      \
        return x != 0 && fabs(x) < (F)__builtin_inf() ? EXPONENT(x) - 1 : nOther;                                      \
    }                                                                                                                  \
    BY_COMPONENT_1(FUNCTION, int, ilogb, F)                                                                            \
    FUNCTION F logb(F x)                                                                                               \
    {                                                                                                                  \
        const F other = x == 0 ? -(F)__builtin_inf() : fabs(x);                                                        \
        return x != 0 && fabs(x) < (F)__builtin_inf() ? (F)(EXPONENT(x) - 1) : other;                                  \
    }                                                                                                                  \
    BY_COMPONENT_1(FUNCTION, F, logb, F)
#define LDEXP_ALIKE(N, F)                                                                                              \
    FUNCTION F##N ldexp(F##N x, int n) { return ldexp(x, (int##N)n); }
EXPONENTS(float, __il_frexp_exp, __il_frexp_mant, __il_fldexp)
EXPONENTS(double, __il_dfrexp_exp, __il_dfrexp_mant, __il_dldexp)
