// Conversions between all types: convert_T, with _sat and with a rounding mode. Without a mode, integers
// round toward zero and floating-point numbers to nearest. Each destination type has a file, so that a
// program reads little that it doesn't need.

#ifndef KESTREL_OPENCL_C_CONVERT_H
#define KESTREL_OPENCL_C_CONVERT_H

#include "Builtins.h"

INSTRUCTION int __il_ftoi(float x);
INSTRUCTION uint __il_ftou(float x);
INSTRUCTION int __il_dtoi(double x);
INSTRUCTION uint __il_dtou(double x);
INSTRUCTION long __il_dtoi64(double x);
INSTRUCTION ulong __il_dtou64(double x);

#define EACH_MODE(M, ...)                                                                                              \
    M(, __VA_ARGS__) M(_rte, __VA_ARGS__) M(_rtz, __VA_ARGS__) M(_rtp, __VA_ARGS__) M(_rtn, __VA_ARGS__)
#define EACH_DIRECTION(M, ...) M(_rtz, __VA_ARGS__) M(_rtp, __VA_ARGS__) M(_rtn, __VA_ARGS__)

// Integers to integers: nothing rounds. Saturation clamps the source to the limits that both types can represent.
#define INTEGER_MODE(MODE, N, D, S)                                                                                    \
    FUNCTION D##N convert_##D##N##MODE(S##N x)                                                                         \
    {                                                                                                                  \
        return __builtin_convertvector(x, D##N);                                                                       \
    }                                                                                                                  \
    FUNCTION D##N convert_##D##N##_sat##MODE(S##N x)                                                                   \
    {                                                                                                                  \
        return __builtin_convertvector(Within##D(x), D##N);                                                            \
    }
#define SCALAR_MODE(MODE, D, S)                                                                                        \
    FUNCTION D convert_##D##MODE(S x)                                                                                  \
    {                                                                                                                  \
        return (D)x;                                                                                                   \
    }                                                                                                                  \
    FUNCTION D convert_##D##_sat##MODE(S x)                                                                            \
    {                                                                                                                  \
        return (D)Within##D(x);                                                                                        \
    }
#define WITHIN(N, D, S)                                                                                                \
    HELPER S##N Within##D(S##N x)                                                                                      \
    {                                                                                                                  \
        const S least = (long)LEAST_##S > (long)LEAST_##D ? LEAST_##S : (S)LEAST_##D;                                  \
        const S largest = (ulong)LARGEST_##S < (ulong)LARGEST_##D ? LARGEST_##S : (S)LARGEST_##D;                      \
        return __builtin_elementwise_min(__builtin_elementwise_max(x, (S##N)least), (S##N)largest);                    \
    }
#define LEAST_char ((char)-128)
#define LEAST_short ((short)-32768)
#define LEAST_int (-2147483647 - 1)
#define LEAST_long (-9223372036854775807L - 1)
#define LEAST_uchar ((uchar)0)
#define LEAST_ushort ((ushort)0)
#define LEAST_uint 0U
#define LEAST_ulong 0UL
#define LARGEST_char ((char)127)
#define LARGEST_short ((short)32767)
#define LARGEST_int 2147483647
#define LARGEST_long 9223372036854775807L
#define LARGEST_uchar ((uchar)255)
#define LARGEST_ushort ((ushort)65535)
#define LARGEST_uint 4294967295U
#define LARGEST_ulong 18446744073709551615UL

#define INTEGER_SIZE(N, D, S) EACH_MODE(INTEGER_MODE, N, D, S)
#define INTEGER_TO_INTEGER(D, S)                                                                                       \
    SIZES(WITHIN, D, S)                                                                                                \
    EACH_MODE(SCALAR_MODE, D, S)                                                                                       \
    VECTORS(INTEGER_SIZE, D, S)
#define FROM_INTEGERS(M, D) M(D, char) M(D, uchar) M(D, short) M(D, ushort) M(D, int) M(D, uint) M(D, long) M(D, ulong)
#define INTEGERS_TO(D) FROM_INTEGERS(INTEGER_TO_INTEGER, D)

// Floating-point numbers to integers: first rounded by the mode. The instructions saturate, and turn NaN
// into 0.
HELPER float Rounded(float x)
{
    return x;
}
HELPER double Rounded(double x)
{
    return x;
}
#define ROUND(MODE, FUNCTION_NAME)                                                                                     \
    HELPER float Rounded##MODE(float x)                                                                                \
    {                                                                                                                  \
        return __builtin_##FUNCTION_NAME##f(x);                                                                        \
    }                                                                                                                  \
    HELPER double Rounded##MODE(double x)                                                                              \
    {                                                                                                                  \
        return __builtin_##FUNCTION_NAME(x);                                                                           \
    }
ROUND(_rte, rint)
ROUND(_rtz, trunc)
ROUND(_rtp, ceil)
ROUND(_rtn, floor)

#define SATURATED_NARROW(D)                                                                                            \
    HELPER D Saturated##D(float x)                                                                                     \
    {                                                                                                                  \
        return (D)Within##D(__il_ftoi(x));                                                                             \
    }                                                                                                                  \
    HELPER D Saturated##D(double x)                                                                                    \
    {                                                                                                                  \
        return (D)Within##D(__il_dtoi(x));                                                                             \
    }
#define SATURATED_WIDE(D, FROM_FLOAT, FROM_DOUBLE)                                                                     \
    HELPER D Saturated##D(float x)                                                                                     \
    {                                                                                                                  \
        return FROM_FLOAT(x);                                                                                          \
    }                                                                                                                  \
    HELPER D Saturated##D(double x)                                                                                    \
    {                                                                                                                  \
        return FROM_DOUBLE(x);                                                                                         \
    }
#define TO_INTEGER_MODE(MODE, D, F)                                                                                    \
    FUNCTION D convert_##D##MODE(F x)                                                                                  \
    {                                                                                                                  \
        return (D)Rounded##MODE(x);                                                                                    \
    }                                                                                                                  \
    FUNCTION D convert_##D##_sat##MODE(F x)                                                                            \
    {                                                                                                                  \
        return Saturated##D(Rounded##MODE(x));                                                                         \
    }                                                                                                                  \
    CONVERT_BY_COMPONENT(D, MODE, F)                                                                                   \
    CONVERT_BY_COMPONENT(D, _sat##MODE, F)
#define CONVERT_BY_COMPONENT(D, MODE, S)                                                                               \
    FUNCTION D##2 convert_##D##2##MODE(S##2 x)                                                                         \
    {                                                                                                                  \
        return (D##2)(convert_##D##MODE(x.x), convert_##D##MODE(x.y));                                                 \
    }                                                                                                                  \
    FUNCTION D##3 convert_##D##3##MODE(S##3 x)                                                                         \
    {                                                                                                                  \
        return (D##3)(convert_##D##2##MODE(x.xy), convert_##D##MODE(x.z));                                             \
    }                                                                                                                  \
    FUNCTION D##4 convert_##D##4##MODE(S##4 x)                                                                         \
    {                                                                                                                  \
        return (D##4)(convert_##D##2##MODE(x.lo), convert_##D##2##MODE(x.hi));                                         \
    }                                                                                                                  \
    FUNCTION D##8 convert_##D##8##MODE(S##8 x)                                                                         \
    {                                                                                                                  \
        return (D##8)(convert_##D##4##MODE(x.lo), convert_##D##4##MODE(x.hi));                                         \
    }                                                                                                                  \
    FUNCTION D##16 convert_##D##16##MODE(S##16 x)                                                                      \
    {                                                                                                                  \
        return (D##16)(convert_##D##8##MODE(x.lo), convert_##D##8##MODE(x.hi));                                        \
    }
#define FLOATS_TO(D)                                                                                                   \
    EACH_MODE(TO_INTEGER_MODE, D, float)                                                                               \
    EACH_MODE(TO_INTEGER_MODE, D, double)

// All conversions to an integer type. SATURATED: the macro for conversions from floating-point numbers.
#define CONVERSIONS_TO(D, SATURATED, ...)                                                                              \
    INTEGERS_TO(D)                                                                                                     \
    SATURATED(D, ##__VA_ARGS__)                                                                                        \
    FLOATS_TO(D)

// To floating-point numbers: to nearest, like the language's own conversion.
#define NEAREST(N, MODE, F, S)                                                                                         \
    FUNCTION F##N convert_##F##N##MODE(S##N x)                                                                         \
    {                                                                                                                  \
        return __builtin_convertvector(x, F##N);                                                                       \
    }
#define TO_NEAREST(MODE, F, S)                                                                                         \
    FUNCTION F convert_##F##MODE(S x)                                                                                  \
    {                                                                                                                  \
        return (F)x;                                                                                                   \
    }                                                                                                                  \
    VECTORS(NEAREST, MODE, F, S)

// Integers that fit in the fraction are the same in every mode.
#define EXACT(F, S) EACH_MODE(TO_NEAREST, F, S)

// In other modes, an integer's leading bits are converted exactly. A step away from zero adds one to the
// bits of the result. \param nBits of a fraction
HELPER ulong Leading(ulong size, int nBits)
{
    const int nWidth = size == 0 ? 0 : 64 - __builtin_clzl(size);
    const int nLost = nWidth > nBits ? nWidth - nBits : 0;
    return (size >> nLost) << nLost;
}

#define AWAY_rtz(bNegative) 0
#define AWAY_rtp(bNegative) ((bNegative) ? 0 : 1)
#define AWAY_rtn(bNegative) ((bNegative) ? 1 : 0)
#define DIRECTED(MODE, F, BITS_TYPE, nBits, S)                                                                         \
    FUNCTION F convert_##F##MODE(S x)                                                                                  \
    {                                                                                                                  \
        const bool bNegative = x < 0;                                                                                  \
        const ulong whole = bNegative ? 0UL - (ulong)x : (ulong)x;                                                     \
        const ulong leading = Leading(whole, nBits);                                                                   \
        const BITS_TYPE nAway = leading != whole ? AWAY##MODE(bNegative) : 0;                                          \
        const F size = BITS(F, BITS(BITS_TYPE, (F)leading) + nAway);                                                   \
        return bNegative ? -size : size;                                                                               \
    }                                                                                                                  \
    CONVERT_BY_COMPONENT(F, MODE, S)
#define INEXACT(F, BITS_TYPE, nBits, S)                                                                                \
    TO_NEAREST(, F, S)                                                                                                 \
    TO_NEAREST(_rte, F, S)                                                                                             \
    EACH_DIRECTION(DIRECTED, F, BITS_TYPE, nBits, S)

// A double to a float: to nearest, then one step back if that went in the wrong direction.
#define WRONG_rtz(nearest, x) (__builtin_fabs((double)nearest) > __builtin_fabs(x))
#define WRONG_rtp(nearest, x) ((double)nearest < x)
#define WRONG_rtn(nearest, x) ((double)nearest > x)
#define NARROWED(MODE, unused)                                                                                         \
    FUNCTION float convert_float##MODE(double x)                                                                       \
    {                                                                                                                  \
        const float nearest = (float)x;                                                                                \
        const int nBits = BITS(int, nearest);                                                                          \
        const int nStep = __builtin_fabs((double)nearest) > __builtin_fabs(x) ? -1 : 1;                                \
        return WRONG##MODE(nearest, x) ? BITS(float, nBits + nStep) : nearest;                                         \
    }                                                                                                                  \
    CONVERT_BY_COMPONENT(float, MODE, double)

#endif
