// Geometric functions. Lengths of floats are computed in double precision, where squares and their sum
// can't overflow or lose bits; doubles are scaled by a power of two.

#include "Builtins.h"

INSTRUCTION double __il_drsq(double x);
INSTRUCTION double __il_dldexp(double x, int n);
INSTRUCTION int __il_dfrexp_exp(double x);
INSTRUCTION float __il_rsq_vec(float x);

#define PRODUCTS(F)                                                                                                    \
    FUNCTION F dot(F a, F b) { return a * b; }                                                                         \
    FUNCTION F dot(F##2 a, F##2 b) { return a.x * b.x + a.y * b.y; }                                                   \
    FUNCTION F dot(F##3 a, F##3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }                                       \
    FUNCTION F dot(F##4 a, F##4 b) { return a.x * b.x + a.y * b.y + a.z * b.z + a.w * b.w; }                           \
    FUNCTION F##3 cross(F##3 a, F##3 b) { return a.yzx * b.zxy - a.zxy * b.yzx; }                                      \
    FUNCTION F##4 cross(F##4 a, F##4 b) { return (F##4)(a.yzx * b.zxy - a.zxy * b.yzx, 0); }
PRODUCTS(float)
PRODUCTS(double)

HELPER double Largest(double a)
{
    return __builtin_fabs(a);
}

HELPER double Largest(double2 a)
{
    return __builtin_fmax(Largest(a.x), Largest(a.y));
}

HELPER double Largest(double3 a)
{
    return __builtin_fmax(Largest(a.xy), Largest(a.z));
}

HELPER double Largest(double4 a)
{
    return __builtin_fmax(Largest(a.xy), Largest(a.zw));
}

// For floats, widened to double: the square is exact there.
HELPER double Wide(float a)
{
    return a;
}

#define WIDE(N)                                                                                                        \
    HELPER double##N Wide(float##N a) { return __builtin_convertvector(a, double##N); }                                \
    HELPER float##N Narrow(double##N a) { return __builtin_convertvector(a, float##N); }
WIDE(2)
WIDE(3)
WIDE(4)

HELPER float Narrow(double a)
{
    return a;
}

// The exponent of the power of two that scales the largest component to near 1; 0 if squares are safe without scaling.
HELPER int ScaleFor(double most)
{
    const bool bSafe = most > 0x1p-400 && most < 0x1p+400;
    return bSafe || most == 0 || most == __builtin_inf() ? 0 : -__il_dfrexp_exp(most);
}

// Toward an infinite component: infinities count as 1, the other components as 0.
#define DIRECTION(N)                                                                                                   \
    HELPER double##N Direction(double##N a)                                                                            \
    {                                                                                                                  \
        const long##N bits = BITS(long##N, a);                                                                         \
        const long##N size = bits & 0x7FFFFFFFFFFFFFFFL;                                                               \
        const long##N one = (size == 0x7FF0000000000000L) & 0x3FF0000000000000L;                                       \
        return BITS(double##N, (bits & (-0x7FFFFFFFFFFFFFFFL - 1)) | one);                                             \
    }
DIRECTION(2)
DIRECTION(3)
DIRECTION(4)

HELPER double Direction(double a)
{
    return __builtin_copysign(1.0, a);
}

#define LENGTHS(N)                                                                                                     \
    HELPER double##N Scaled(double##N a, int n) { return a * __il_dldexp(1.0, n / 2) * __il_dldexp(1.0, n - n / 2); }  \
    FUNCTION double length(double##N a)                                                                                \
    {                                                                                                                  \
        const double most = Largest(a);                                                                                \
        const int nScale = ScaleFor(most);                                                                             \
        const double##N scaled = Scaled(a, nScale);                                                                    \
        const double size = __il_dldexp(__builtin_sqrt(dot(scaled, scaled)), -nScale);                                 \
        return most == __builtin_inf() ? most : size;                                                                  \
    }                                                                                                                  \
    FUNCTION double##N normalize(double##N a)                                                                          \
    {                                                                                                                  \
        const double most = Largest(a);                                                                                \
        const double##N finite = most == __builtin_inf() ? Direction(a) : a;                                           \
        const double##N scaled = Scaled(finite, ScaleFor(Largest(finite)));                                            \
        return most == 0 ? a : scaled / __builtin_sqrt(dot(scaled, scaled));                                           \
    }                                                                                                                  \
    FUNCTION float length(float##N a)                                                                                  \
    {                                                                                                                  \
        const double##N wide = Wide(a);                                                                                \
        return __builtin_sqrt(dot(wide, wide));                                                                        \
    }                                                                                                                  \
    FUNCTION float##N normalize(float##N a)                                                                            \
    {                                                                                                                  \
        const double##N wide = Wide(a);                                                                                \
        const double squares = dot(wide, wide);                                                                        \
        const double##N finite = squares == __builtin_inf() ? Direction(wide) : wide;                                  \
        const double##N unit = finite * __il_drsq(squares == __builtin_inf() ? dot(finite, finite) : squares);         \
        return squares == 0 ? a : Narrow(unit);                                                                        \
    }                                                                                                                  \
    FUNCTION float distance(float##N a, float##N b) { return length(a - b); }                                          \
    FUNCTION double distance(double##N a, double##N b) { return length(a - b); }                                       \
    FUNCTION float fast_length(float##N a) { return __builtin_sqrtf(dot(a, a)); }                                      \
    FUNCTION float fast_distance(float##N a, float##N b) { return fast_length(a - b); }                                \
    FUNCTION float##N fast_normalize(float##N a)                                                                       \
    {                                                                                                                  \
        const float squares = dot(a, a);                                                                               \
        return squares == 0 ? a : a * __il_rsq_vec(squares);                                                           \
    }
LENGTHS()
LENGTHS(2)
LENGTHS(3)
LENGTHS(4)
