// Mathematical functions in single precision: by instructions where there are any, otherwise in double
// precision, rounded once.

#include "Math.h"

INSTRUCTION float __il_exn(float x);
INSTRUCTION float __il_exp_vec(float x);
INSTRUCTION float __il_ln(float x);
INSTRUCTION float __il_log_vec(float x);
INSTRUCTION float __il_sin_vec(float x);
INSTRUCTION float __il_cos_vec(float x);
INSTRUCTION float __il_tan(float x);
INSTRUCTION float __il_asin(float x);
INSTRUCTION float __il_acos(float x);
INSTRUCTION float __il_atan(float x);
INSTRUCTION float __il_sqrt_vec(float x);
INSTRUCTION float __il_rsq_vec(float x);
INSTRUCTION float __il_rcp_vec(float x);
INSTRUCTION float __il_mod(float x, float y);

// These instructions are as short as a call.
#define INSTRUCTION_1(NAME, expression)                                                                                \
    FUNCTION float NAME(float x) { return expression; }                                                                \
    BY_COMPONENT_1(FUNCTION, float, NAME, float)
#define INSTRUCTION_2(NAME, expression)                                                                                \
    FUNCTION float NAME(float x, float y) { return expression; }                                                       \
    BY_COMPONENT_2(FUNCTION, float, NAME, float, float)

// powr: for x of at least 0; NaN where the limit depends on the path.
HELPER float PowerOfPositive(float x, float y)
{
    const float infinity = __builtin_inff();
    const bool bNone = x < 0 || (y == 0 && (x == 0 || x == infinity)) || (x == 1 && __builtin_fabsf(y) == infinity);
    return x != x || y != y ? x + y : (bNone ? __builtin_nanf("") : __il_pow(__builtin_fabsf(x), y));
}

INSTRUCTION_1(exp, __il_exn(x))
INSTRUCTION_1(exp2, __il_exp_vec(x))
INSTRUCTION_1(exp10, __il_pow(10.0f, x))
INSTRUCTION_1(log, __il_ln(x))
INSTRUCTION_1(log2, __il_log_vec(x))
INSTRUCTION_2(pow, __il_pow(x, y))
INSTRUCTION_2(powr, PowerOfPositive(x, y))
INSTRUCTION_1(sqrt, __il_sqrt_vec(x))
INSTRUCTION_1(rsqrt, __il_rsq_vec(x))
INSTRUCTION_1(sin, __il_sin_vec(x))
INSTRUCTION_1(cos, __il_cos_vec(x))
INSTRUCTION_1(tan, __il_tan(x))
INSTRUCTION_1(asin, __il_asin(x))
INSTRUCTION_1(acos, __il_acos(x))
INSTRUCTION_1(atan, __il_atan(x))
INSTRUCTION_1(asinpi, __il_asin(x) * (float)ONE_OVER_PI)
INSTRUCTION_1(acospi, __il_acos(x) * (float)ONE_OVER_PI)
INSTRUCTION_1(atanpi, __il_atan(x) * (float)ONE_OVER_PI)
INSTRUCTION_2(fmod, __il_mod(x, y))

// The device may choose the accuracy of half_ and native_ functions: here they are as accurate as the others.
#define QUICK_FORMS(PREFIX)                                                                                            \
    INSTRUCTION_1(PREFIX##_exp, __il_exn(x))                                                                           \
    INSTRUCTION_1(PREFIX##_exp2, __il_exp_vec(x))                                                                      \
    INSTRUCTION_1(PREFIX##_exp10, __il_pow(10.0f, x))                                                                  \
    INSTRUCTION_1(PREFIX##_log, __il_ln(x))                                                                            \
    INSTRUCTION_1(PREFIX##_log2, __il_log_vec(x))                                                                      \
    INSTRUCTION_1(PREFIX##_log10, __il_log_vec(x) * (float)LOG10_2)                                                    \
    INSTRUCTION_2(PREFIX##_powr, PowerOfPositive(x, y))                                                                \
    INSTRUCTION_1(PREFIX##_recip, __il_rcp_vec(x))                                                                     \
    INSTRUCTION_2(PREFIX##_divide, x / y)                                                                              \
    INSTRUCTION_1(PREFIX##_sqrt, __il_sqrt_vec(x))                                                                     \
    INSTRUCTION_1(PREFIX##_rsqrt, __il_rsq_vec(x))                                                                     \
    INSTRUCTION_1(PREFIX##_sin, __il_sin_vec(x))                                                                       \
    INSTRUCTION_1(PREFIX##_cos, __il_cos_vec(x))                                                                       \
    INSTRUCTION_1(PREFIX##_tan, __il_tan(x))
QUICK_FORMS(half)
QUICK_FORMS(native)

MATH_1(float, log10, (float)Log10(x))
MATH_1(float, log1p, (float)Log1Plus(x))
MATH_1(float, expm1, (float)ExpMinus1(x))
MATH_2_INT(float, pown, (float)Power(x, n))
MATH_2_INT(float, rootn, (float)Root(x, n))
MATH_2(float, atan2, (float)Atan2(x, y))
MATH_2(float, atan2pi, (float)(Atan2(x, y) * ONE_OVER_PI))
MATH_1(float, sinpi, (float)SinPi(x))
MATH_1(float, cospi, (float)CosPi(x))
MATH_1(float, tanpi, (float)TanPi(x))
MATH_1(float, sinh, (float)Sinh(x))
MATH_1(float, cosh, (float)Cosh(x))
MATH_1(float, tanh, (float)Tanh(x))
MATH_1(float, asinh, (float)Asinh(x))
MATH_1(float, acosh, (float)Acosh(x))
MATH_1(float, atanh, (float)Atanh(x))
MATH_1(float, erf, (float)Erf(x))
MATH_1(float, erfc, (float)Erfc(x))
MATH_1(float, tgamma, (float)Gamma(x))
MATH_1(float, lgamma, (float)LogGamma(x))

// A float's square is exact in double precision, and a sum of two can't overflow.
HELPER float HypotOf(float x, float y)
{
    const double size = __il_dsqrt(__builtin_fma((double)x, (double)x, (double)y * (double)y));
    const bool bInfinite = __builtin_fabsf(x) == __builtin_inff() || __builtin_fabsf(y) == __builtin_inff();
    return bInfinite ? __builtin_inff() : (float)size;
}
MATH_2(float, hypot, HypotOf(x, y))

// By magnitude: the root of a NaN, an infinity or zero is the number itself.
HELPER float CbrtOf(float x)
{
    const float size = __builtin_fabsf(x);
    const float positive = size > 0 ? size : 1.0f; // for zero the formula would divide by it
    const double root = CubeRootFrom(__il_pow(positive, 0x1.555556p-2f), positive);
    return size > 0 && size < __builtin_inff() ? __builtin_copysignf((float)root, x) : x;
}
MATH_1(float, cbrt, CbrtOf(x))

LONG_FUNCTION float remainder(float x, float y)
{
    int nQuotient = 0;
    return (float)RemainderAndQuotient(x, y, &nQuotient);
}
BY_COMPONENT_2(FUNCTION, float, remainder, float, float)

STEP float sincosOf(float x, float* pCosine)
{
    *pCosine = __il_cos_vec(x);
    return __il_sin_vec(x);
}
BY_POINTER(float, float, sincos)

STEP float lgamma_rOf(float x, int* pSign)
{
    *pSign = SignOfGamma(x);
    return lgamma(x);
}
BY_POINTER(float, int, lgamma_r)

STEP float remquoOf(float x, float y, int* pQuotient)
{
    return (float)RemainderAndQuotient(x, y, pQuotient);
}
BY_POINTER_2(float, int, remquo)
