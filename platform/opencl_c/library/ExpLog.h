// Exponentials and logarithms in double precision. Some take or give a sum of two numbers, of which the
// second one holds the first one's rounding error.

#ifndef KESTREL_OPENCL_C_EXPLOG_H
#define KESTREL_OPENCL_C_EXPLOG_H

#include "Builtins.h"
#include "Polynomials.h"

INSTRUCTION double __il_dldexp(double x, int n);
INSTRUCTION int __il_dfrexp_exp(double x);
INSTRUCTION double __il_dfrexp_mant(double x);
INSTRUCTION int __il_dtoi(double x);
INSTRUCTION double __il_dsqrt(double x);

#define INFINITY_D __builtin_inf()
#define NAN_D __builtin_nan("")

// ln 2 as its first 40 bits and the rest, so that multiples by an exponent are exact; then as one number.
#define LN2_SHORT 0x1.62e42fefa2000p-1
#define LN2_SHORT_REST 0x1.9ef35793c7673p-41
#define LN2 0x1.62e42fefa39efp-1
#define LN2_REST 0x1.abc9e3b39803fp-56
#define LOG2_E 0x1.71547652b82fep+0
#define LOG2_E_REST 0x1.777d0ffda0d24p-56
#define LOG2_10 0x1.a934f0979a371p+1
#define LOG10_2_SHORT 0x1.34413509f6000p-2
#define LOG10_2_SHORT_REST 0x1.9fef311f12b36p-42
#define LOG10_2 0x1.34413509f79ffp-2
#define LOG10_2_REST -0x1.9dc1da994fd21p-59
#define LN10 0x1.26bb1bbb55516p+1
#define LN10_REST -0x1.f48ad494ea3e9p-53
#define LOG10_E 0x1.bcb7b1526e50ep-2
#define LOG10_E_REST 0x1.95355baaafad3p-57
#define TWO_THIRDS 0x1.5555555555555p-1
#define TWO_THIRDS_REST 0x1.5555555555555p-55

// x limited to a range beyond which its exponential is certainly 0 or infinite; NaN stays.
HELPER double Limited(double x, double limit)
{
    const double below = x > limit ? limit : x;
    return below < -limit ? -limit : below;
}

// exp(r) - 1 for |r| up to ln 2 / 2, r = high + low
HELPER double ExpMinus1Near0(double high, double low)
{
    return high + __builtin_fma(high * high, ExpRest(high), low);
}

// exp(high + low) * factor * 2^nShift, rounded once where it is denormal.
HELPER double ExpTimes(double high, double low, double factor, int nShift)
{
    const double x = Limited(high, 2000);
    const double n = __builtin_rint(x * LOG2_E);
    const double first = __builtin_fma(-n, LN2, x);
    const double second = __builtin_fma(-n, LN2_REST, low);
    const double rest = first + second;
    const double after = second - (rest - first);
    return __il_dldexp((1.0 + ExpMinus1Near0(rest, after)) * factor, __il_dtoi(n) + nShift);
}

HELPER double Exp(double x)
{
    return ExpTimes(x, 0, 1, 0);
}

HELPER double Exp2(double x)
{
    const double limited = Limited(x, 2000);
    const double n = __builtin_rint(limited);
    const double rest = limited - n;
    const double high = rest * LN2;
    const double low = __builtin_fma(rest, LN2, -high) + rest * LN2_REST;
    return __il_dldexp(1.0 + ExpMinus1Near0(high, low), __il_dtoi(n));
}

HELPER double Exp10(double x)
{
    const double limited = Limited(x, 600);
    const double n = __builtin_rint(limited * LOG2_10);
    const double rest = __builtin_fma(-n, LOG10_2_REST, __builtin_fma(-n, LOG10_2, limited));
    const double high = rest * LN10;
    const double low = __builtin_fma(rest, LN10, -high) + rest * LN10_REST;
    return __il_dldexp(1.0 + ExpMinus1Near0(high, low), __il_dtoi(n));
}

// exp(x) - 1, where the 1 is subtracted before scaling.
HELPER double ExpMinus1(double x)
{
    const double above = x < -100 ? -100 : x;
    const double limited = above > 2000 ? 2000 : above;
    const double n = __builtin_rint(limited * LOG2_E);
    const double first = __builtin_fma(-n, LN2, limited);
    const double second = -n * LN2_REST;
    const double rest = first + second;
    const double power = ExpMinus1Near0(rest, second - (rest - first));
    const int nPower = __il_dtoi(n);
    const double result = __il_dldexp(power + (1.0 - __il_dldexp(1.0, -nPower)), nPower);
    return x == 0 ? x : result;
}

// The size of x = 2^exponent * fraction, with a fraction between the roots of 1/2 and of 2.
STEP double Fraction(double x, int* pExponent)
{
    const double fraction = __builtin_fabs(__il_dfrexp_mant(x));
    const bool bLow = fraction < 0x1.6a09e667f3bcdp-1;
    *pExponent = __il_dfrexp_exp(x) - (bLow ? 1 : 0);
    return bLow ? fraction + fraction : fraction;
}

// log(1 + f), f at most 0.42 in size.
HELPER double LogNear1(double f)
{
    const double s = f / (2.0 + f);
    const double z = s * s;
    return f - s * (f - z * LogRest(z));
}

// The logarithm's result for anything but a positive number.
HELPER double LogOfOthers(double x, double result)
{
    const double kept = x < INFINITY_D ? result : x;
    const double positive = x == 0 ? -INFINITY_D : kept;
    return x < 0 ? NAN_D : positive;
}

HELPER double Log(double x)
{
    int nExponent = 0;
    const double f = Fraction(x, &nExponent) - 1.0;
    const double s = f / (2.0 + f);
    const double z = s * s;
    const double n = nExponent;
    const double less = s * (f - z * LogRest(z)) - n * LN2_SHORT_REST;
    return LogOfOthers(x, n * LN2_SHORT + (f - less));
}

HELPER double Log2(double x)
{
    int nExponent = 0;
    const double natural = LogNear1(Fraction(x, &nExponent) - 1.0);
    const double high = natural * LOG2_E;
    const double low = __builtin_fma(natural, LOG2_E, -high) + natural * LOG2_E_REST;
    return LogOfOthers(x, nExponent + (high + low));
}

HELPER double Log10(double x)
{
    int nExponent = 0;
    const double natural = LogNear1(Fraction(x, &nExponent) - 1.0);
    const double n = nExponent;
    const double high = natural * LOG10_E;
    const double low = __builtin_fma(natural, LOG10_E, -high) + natural * LOG10_E_REST;
    return LogOfOthers(x, n * LOG10_2_SHORT + (high + (low + n * LOG10_2_SHORT_REST)));
}

// log(1 + x): the rounding error of 1 + x, divided by it, is added back.
HELPER double Log1Plus(double x)
{
    const double sum = 1.0 + x;
    const double lost = x >= 1.0 ? 1.0 - (sum - x) : x - (sum - 1.0);
    int nExponent = 0;
    const double fraction = Fraction(sum, &nExponent) - 1.0;
    const bool bWhole = nExponent == 0;
    const double f = bWhole ? x : fraction;
    const double n = nExponent;
    const double after = (bWhole ? 0.0 : lost / sum) + n * LN2_SHORT_REST;
    const double s = f / (2.0 + f);
    const double z = s * s;
    const double result = n * LN2_SHORT + (f - (s * (f - z * LogRest(z)) - after));
    return x == 0 ? x : LogOfOthers(sum, result);
}

// log(x) of a positive number as a sum of two, accurate to about 65 bits.
STEP double LogInTwo(double x, double* pLow)
{
    int nExponent = 0;
    const double fraction = Fraction(x, &nExponent);
    const double f = fraction - 1.0;
    const double d = fraction + 1.0;
    const double dLow = fraction - (d - 1.0);
    const double s = f / d;
    const double sLow = (__builtin_fma(-s, d, f) - s * dLow) / d;
    const double z = s * s;
    const double zLow = __builtin_fma(s, s, -z) + 2.0 * s * sLow;
    const double cube = z * s;
    const double cubeLow = __builtin_fma(z, s, -cube) + z * sLow + zLow * s;
    const double term = cube * TWO_THIRDS;
    const double termLow = __builtin_fma(cube, TWO_THIRDS, -term) + cube * TWO_THIRDS_REST + cubeLow * TWO_THIRDS;
    const double n = nExponent;
    const double first = n * LN2_SHORT;
    const double sum = first + 2.0 * s;
    const double sumLow = 2.0 * s - (sum - first);
    const double high = sum + term;
    const double highLow = term - (high - sum);
    const double low = highLow + sumLow + (n * LN2_SHORT_REST + 2.0 * sLow + termLow + cube * z * LogRestAfter(z));
    const double result = high + low;
    *pLow = low - (result - high);
    return result;
}

HELPER bool IsInteger(double x)
{
    return __builtin_trunc(x) == x;
}

HELPER bool IsOdd(double x)
{
    return IsInteger(x) && !IsInteger(x * 0.5);
}

// |x|^y
HELPER double PowerOfSize(double x, double y)
{
    const double size = __builtin_fabs(x);
    double logLow = 0;
    const double logHigh = LogInTwo(size, &logLow);
    const double high = y * logHigh;
    const double low = __builtin_fma(y, logHigh, -high) + y * logLow;
    const bool bFar = __builtin_fabs(high) > 2000;
    const double result = ExpTimes(high, bFar ? 0.0 : low, 1, 0);
    const double edge = (size == 0) == (y < 0) ? INFINITY_D : 0.0;
    const double other = size == 0 || size == INFINITY_D ? edge : result;
    return x != x || y != y ? x + y : (size == 1 || y == 0 ? 1.0 : other);
}

HELPER double Power(double x, double y)
{
    const double result = PowerOfSize(x, y);
    const bool bMinus = BITS(long, x) < 0 && IsOdd(y);
    const double real = x < 0 && x > -INFINITY_D && !IsInteger(y) ? NAN_D : result;
    return y == 0 || x == 1 ? 1.0 : (bMinus ? -real : real);
}

// powr: for x of at least 0; NaN where the limit depends on the path.
HELPER double PowerOfPositive(double x, double y)
{
    const bool bNone = x < 0 || (y == 0 && (x == 0 || x == INFINITY_D)) || (x == 1 && __builtin_fabs(y) == INFINITY_D);
    return x != x || y != y ? x + y : (bNone ? NAN_D : PowerOfSize(x, y));
}

// rootn by the logarithm divided by n.
HELPER double Root(double x, int n)
{
    const double size = __builtin_fabs(x);
    double logLow = 0;
    const double logHigh = LogInTwo(size, &logLow);
    const double high = logHigh / n;
    const double low = (__builtin_fma(-high, (double)n, logHigh) + logLow) / n;
    const double result = ExpTimes(high, low, 1, 0);
    const double edge = (size == 0) == (n < 0) ? INFINITY_D : 0.0;
    const double other = size == 0 || size == INFINITY_D ? edge : result;
    const double real = (n & 1) != 0 ? __builtin_copysign(other, x) : (x < 0 ? NAN_D : other);
    return x != x ? x : (n == 0 ? NAN_D : real);
}

#endif
