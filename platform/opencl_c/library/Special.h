// Hyperbolic functions, roots, error and gamma functions, and remainders in double precision.

#ifndef KESTREL_OPENCL_C_SPECIAL_H
#define KESTREL_OPENCL_C_SPECIAL_H

#include "ExpLog.h"
#include "Trigonometry.h"

INSTRUCTION float __il_pow(float x, float y);

HELPER double Sinh(double x)
{
    const double size = __builtin_fabs(x);
    const double less = ExpMinus1(size);
    const double near = 0.5 * (less + less / (less + 1.0));
    const double far = ExpTimes(size, 0, 1, -1);
    return x == 0 ? x : __builtin_copysign(size > 40 ? far : near, x);
}

HELPER double Cosh(double x)
{
    const double raised = ExpTimes(__builtin_fabs(x), 0, 1, -1);
    return raised + 0.25 / raised;
}

HELPER double Tanh(double x)
{
    const double size = __builtin_fabs(x);
    const double less = ExpMinus1(size > 30 ? 60.0 : size + size);
    return x == 0 ? x : __builtin_copysign(less / (less + 2.0), x);
}

HELPER double Asinh(double x)
{
    const double size = __builtin_fabs(x);
    const double square = size * size;
    const double near = Log1Plus(size + square / (1.0 + __il_dsqrt(1.0 + square)));
    const double far = Log(size) + LN2;
    return x == 0 ? x : __builtin_copysign(size > 0x1p28 ? far : near, x);
}

HELPER double Acosh(double x)
{
    const double above = x - 1.0;
    const double near = Log1Plus(above + __il_dsqrt(above * (above + 2.0)));
    const double far = Log(x) + LN2;
    return x < 1 ? NAN_D : (x > 0x1p28 ? far : near);
}

HELPER double Atanh(double x)
{
    const double size = __builtin_fabs(x);
    return x == 0 ? x : __builtin_copysign(0.5 * Log1Plus(2.0 * size / (1.0 - size)), x);
}

// One third-order step from a root in single precision, whose square is exact.
HELPER double CubeRootFrom(double root, double x)
{
    const double square = root * root;
    const double over = __builtin_fma(square, root, -x);
    return root - root * over / __builtin_fma(2.0 * square, root, x);
}

HELPER double Cbrt(double x)
{
    const double size = __builtin_fabs(x);
    const int nExponent = __il_dfrexp_exp(size);
    const int nThird = (nExponent + 1200) / 3 - 400;
    const double fraction = __il_dldexp(__il_dfrexp_mant(size), nExponent - 3 * nThird);
    const double root = CubeRootFrom(__il_pow((float)fraction, 0x1.555556p-2f), fraction);
    return x == 0 || !(size < INFINITY_D) ? x : __builtin_copysign(__il_dldexp(root, nThird), x);
}

HELPER double Hypot(double x, double y)
{
    const double a = __builtin_fabs(x);
    const double b = __builtin_fabs(y);
    const int nScale = __il_dfrexp_exp(a > b ? a : b);
    const double aScaled = __il_dldexp(a, -nScale);
    const double bScaled = __il_dldexp(b, -nScale);
    const double size = __il_dldexp(__il_dsqrt(__builtin_fma(aScaled, aScaled, bScaled * bScaled)), nScale);
    return a == INFINITY_D || b == INFINITY_D ? INFINITY_D : size;
}

// erfc(x) for x from 0.85 on: a polynomial for erfc(x) exp(x^2) (1 + 2 x).
HELPER double ErfcFar(double x)
{
    const double limited = x > 28 ? 28 : x;
    const double square = limited * limited;
    const double squareLow = __builtin_fma(limited, limited, -square);
    const double scaled = ErfcScaled((limited - 4.0) / (limited + 4.0));
    return ExpTimes(-square, -squareLow, scaled / (1.0 + 2.0 * limited), 0);
}

HELPER double ErfNear(double x)
{
    const double z = x * x;
    return x * __builtin_fma(z, ErfRest(z), 0x1.20dd750429b6dp+0);
}

HELPER double Erf(double x)
{
    const double size = __builtin_fabs(x);
    const double far = __builtin_copysign(1.0 - ErfcFar(size), x);
    return size > 0.85 ? far : ErfNear(size > 0.85 ? 0.0 : x);
}

HELPER double Erfc(double x)
{
    const double far = ErfcFar(__builtin_fabs(x));
    const bool bFar = __builtin_fabs(x) > 0.85;
    const double near = 1.0 - ErfNear(bFar ? 0.0 : x);
    return bFar ? (x < 0 ? 2.0 - far : far) : near;
}

// The logarithm of gamma from 8 on, by Stirling's formula, as a sum of two.
STEP double LogGammaInTwo(double x, double* pLow)
{
    double logLow = 0;
    const double logHigh = LogInTwo(x, &logLow);
    const double power = x - 0.5;
    const double product = power * logHigh;
    const double productLow = __builtin_fma(power, logHigh, -product) + power * logLow;
    const double without = product - x;
    const double withoutLow = (product - without) - x;
    const double rest = StirlingRest(1.0 / (x * x)) / x;
    const double sum = without + rest;
    *pLow = (without - sum) + rest + (productLow + withoutLow);
    return sum;
}

// Gamma up to 8, reduced to between 2 and 3 by its recurrence.
HELPER double GammaNear(double x)
{
    double middle = x;
    double product = 1;
    double divisor = 1;
#pragma unroll
    for (int i = 0; i < 5; ++i)
    {
        const bool bMore = middle >= 3;
        middle = bMore ? middle - 1.0 : middle;
        product = bMore ? product * middle : product;
    }
#pragma unroll
    for (int i = 0; i < 2; ++i)
    {
        const bool bLess = middle < 2;
        divisor = bLess ? divisor * middle : divisor;
        middle = bLess ? middle + 1.0 : middle;
    }
    return product * GammaMiddle(middle - 2.5) / divisor;
}

// Negative numbers by reflection: -pi / (|x| sin(pi |x|) gamma(|x|)).
HELPER double Gamma(double x)
{
    const double size = __builtin_fabs(x);
    const double reflected = x < 0 ? -PI_D / (size * SinPi(size)) : 1.0;
    // Where the formula isn't used it mustn't overflow either: checks would tell of it.
    const double limited = size < 200 ? (size > 8 ? size : 8) : 200;
    double low = 0;
    const double high = LogGammaInTwo(limited, &low);
    const double sign = x < 0 ? -1.0 : 1.0;
    const double factor = x < 0 ? reflected * 0x1.9884533d43651p-2 : 0x1.40d931ff62706p+1;
    const double far = ExpTimes(sign * high, sign * low, factor, 0);
    const double middle = GammaNear(size);
    const double near = x < 0 ? reflected / middle : middle;
    const double tiny = __builtin_fma(-0x1.2788cfc6fb619p-1, x, 1.0) / x;
    const double result = size < 0x1p-28 ? tiny : (size < 8 ? near : far);
    const bool bPole = x < 0 && IsInteger(x);
    return x != x ? x : (bPole ? NAN_D : (x == INFINITY_D ? x : result));
}

HELPER double LogGammaOfPositive(double x)
{
    const double far = __builtin_fma(x - 0.5, Log(x) - 1.0, 0x1.acfe390c97d69p-2) + StirlingRest(1.0 / (x * x)) / x;
    double middle = x;
    double product = 1;
#pragma unroll
    for (int i = 0; i < 5; ++i)
    {
        const bool bMore = middle >= 3;
        middle = bMore ? middle - 1.0 : middle;
        product = bMore ? product * middle : product;
    }
    const bool bSmall = x < 1;
    const double above1 = bSmall ? x : middle - 1.0;
    const double above2 = bSmall ? x - 1.0 : middle - 2.0;
    const double outside = Log(bSmall ? x : product);
    const double near = __builtin_fma(above1 * above2, LogGammaMiddle(above2), bSmall ? -outside : outside);
    return x < 8 ? near : (x == INFINITY_D ? x : far);
}

HELPER double LogGamma(double x)
{
    const double size = __builtin_fabs(x);
    const double positive = LogGammaOfPositive(size);
    const double reflected = Log(PI_D / (size * __builtin_fabs(SinPi(size)))) - positive;
    const double mirrored = size < 0x1p-60 ? positive : reflected;
    const bool bPole = x <= 0 && IsInteger(x);
    return x != x ? x : (bPole ? INFINITY_D : (x < 0 ? mirrored : positive));
}

// The sign of gamma, which changes at each negative integer.
HELPER int SignOfGamma(double x)
{
    return x < 0 ? (IsOdd(__builtin_floor(x)) ? -1 : 1) : 1;
}

// The remainder of division toward zero, and the quotient's low bits: each integer division gives eleven
// bits of the quotient. \param x, y at least 0, y not 0
STEP double RemainderOfSizes(double x, double y, uint* pQuotient)
{
    const int nBits = 53;
    const int yExponent = __il_dfrexp_exp(y);
    int nMore = __il_dfrexp_exp(x) - yExponent;
    const ulong divisor = (ulong)__il_dldexp(__il_dfrexp_mant(y), nBits);
    const ulong dividend = (ulong)__il_dldexp(__il_dfrexp_mant(x), nBits);
    ulong rest = dividend % divisor;
    ulong quotient = dividend / divisor;
    const bool bSmaller = nMore < 0 || x < y;
    nMore = bSmaller ? 0 : nMore;
    while (nMore > 0)
    {
        const int nStep = nMore < 11 ? nMore : 11;
        rest <<= nStep;
        quotient = (quotient << nStep) | (rest / divisor);
        rest %= divisor;
        nMore -= nStep;
    }
    *pQuotient = bSmaller ? 0 : (uint)quotient;
    return bSmaller ? x : __il_dldexp((double)rest, yExponent - nBits);
}

HELPER bool HasNoRemainder(double x, double y)
{
    return x != x || y != y || y == 0 || __builtin_fabs(x) == INFINITY_D;
}

HELPER double Fmod(double x, double y)
{
    const bool bNone = HasNoRemainder(x, y);
    const double ySize = __builtin_fabs(y);
    const bool bWhole = bNone || ySize == INFINITY_D;
    uint nQuotient = 0;
    const double rest = RemainderOfSizes(bWhole ? 1.0 : __builtin_fabs(x), bWhole ? 1.0 : ySize, &nQuotient);
    return x != x || y != y ? x + y : (bNone ? NAN_D : (bWhole ? x : __builtin_copysign(rest, x)));
}

// The remainder of division to nearest, and the quotient's sign and low seven bits.
STEP double RemainderAndQuotient(double x, double y, int* pQuotient)
{
    const bool bNone = HasNoRemainder(x, y);
    const double ySize = __builtin_fabs(y);
    const bool bWhole = bNone || ySize == INFINITY_D;
    const double divisor = bWhole ? 1.0 : ySize;
    uint nQuotient = 0;
    const double rest = RemainderOfSizes(bWhole ? 0.0 : __builtin_fabs(x), divisor, &nQuotient);
    const double other = divisor - rest;
    const bool bUp = rest > other || (rest == other && (nQuotient & 1) != 0);
    const int nSize = (int)((nQuotient + (bUp ? 1 : 0)) & 127);
    const double result = WithSignOf(x, bUp ? rest - divisor : rest);
    *pQuotient = bWhole ? 0 : ((BITS(long, x) ^ BITS(long, y)) < 0 ? -nSize : nSize);
    return x != x || y != y ? x + y : (bNone ? NAN_D : (bWhole ? x : result));
}

#endif
