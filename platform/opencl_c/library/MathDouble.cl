// Mathematical functions of double precision.

#include "Math.h"

INSTRUCTION double __il_drsq(double x);

MATH_1(double, exp, Exp(x))
MATH_1(double, exp2, Exp2(x))
MATH_1(double, exp10, Exp10(x))
MATH_1(double, expm1, ExpMinus1(x))
MATH_1(double, log, Log(x))
MATH_1(double, log2, Log2(x))
MATH_1(double, log10, Log10(x))
MATH_1(double, log1p, Log1Plus(x))
MATH_2(double, pow, Power(x, y))
MATH_2(double, powr, PowerOfPositive(x, y))
MATH_2_INT(double, pown, Power(x, n))
MATH_2_INT(double, rootn, Root(x, n))
MATH_1(double, sqrt, __il_dsqrt(x))
MATH_1(double, rsqrt, __il_drsq(x))
MATH_1(double, cbrt, Cbrt(x))
MATH_2(double, hypot, Hypot(x, y))

MATH_1(double, sin, Sin(x))
MATH_1(double, cos, Cos(x))
MATH_1(double, tan, Tan(x))
MATH_1(double, sinpi, SinPi(x))
MATH_1(double, cospi, CosPi(x))
MATH_1(double, tanpi, TanPi(x))
MATH_1(double, asin, Asin(x))
MATH_1(double, acos, Acos(x))
MATH_1(double, atan, Atan(x))
MATH_2(double, atan2, Atan2(x, y))
MATH_1(double, asinpi, Asin(x) * ONE_OVER_PI)
MATH_1(double, acospi, Acos(x) * ONE_OVER_PI)
MATH_1(double, atanpi, Atan(x) * ONE_OVER_PI)
MATH_2(double, atan2pi, Atan2(x, y) * ONE_OVER_PI)
MATH_1(double, sinh, Sinh(x))
MATH_1(double, cosh, Cosh(x))
MATH_1(double, tanh, Tanh(x))
MATH_1(double, asinh, Asinh(x))
MATH_1(double, acosh, Acosh(x))
MATH_1(double, atanh, Atanh(x))

MATH_1(double, erf, Erf(x))
MATH_1(double, erfc, Erfc(x))
MATH_1(double, tgamma, Gamma(x))
MATH_1(double, lgamma, LogGamma(x))

MATH_2(double, fmod, Fmod(x, y))

LONG_FUNCTION double remainder(double x, double y)
{
    int nQuotient = 0;
    return RemainderAndQuotient(x, y, &nQuotient);
}
BY_COMPONENT_2(FUNCTION, double, remainder, double, double)

STEP double sincosOf(double x, double* pCosine)
{
    const struct SAngle angle = ReducedAngle(__builtin_fabs(x));
    *pCosine = CosOf(angle);
    return x == 0 ? x : WithSignOf(x, SinOf(angle));
}
BY_POINTER(double, double, sincos)

STEP double lgamma_rOf(double x, int* pSign)
{
    *pSign = SignOfGamma(x);
    return lgamma(x);
}
BY_POINTER(double, int, lgamma_r)

STEP double remquoOf(double x, double y, int* pQuotient)
{
    return RemainderAndQuotient(x, y, pQuotient);
}
BY_POINTER_2(double, int, remquo)
