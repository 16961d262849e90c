// Trigonometric functions in double precision. An angle is reduced to within pi / 4, as a sum of two numbers.

#ifndef KESTREL_OPENCL_C_TRIGONOMETRY_H
#define KESTREL_OPENCL_C_TRIGONOMETRY_H

#include "ExpLog.h"

#define HALF_PI 0x1.921fb54442d18p+0
#define HALF_PI_REST 0x1.1a62633145c07p-54
#define HALF_PI_END -0x1.f1976b7ed8fbcp-110
#define PI_D 0x1.921fb54442d18p+1
#define PI_REST 0x1.1a62633145c07p-53
#define TWO_OVER_PI 0x1.45f306dc9c883p-1
#define ONE_OVER_PI 0x1.45f306dc9c883p-2

// |angle| = nQuadrant * pi / 2 + high + low
struct SAngle
{
    double high;
    double low;
    int nQuadrant;
};

// Subtracts a multiple of pi / 2 in three parts, so that the first product is exact.
STEP struct SAngle NearAngle(double x)
{
    const double n = __builtin_rint(x * TWO_OVER_PI);
    const double first = __builtin_fma(-n, HALF_PI, x);
    const double second = n * HALF_PI_REST;
    const double secondLow = __builtin_fma(n, HALF_PI_REST, -second);
    const double high = first - second;
    const double back = first - high;
    const double lost = (first - (high + back)) + (back - second);
    const double low = lost - secondLow - n * HALF_PI_END;
    struct SAngle angle;
    angle.high = high + low;
    angle.low = low - (angle.high - high);
    angle.nQuadrant = __il_dtoi(n);
    return angle;
}

// 2 / pi, 64 zeros and then its bits.
__constant static const ulong s_TwoOverPi[21] = {0,
                                                 0xA2F9836E4E441529,
                                                 0xFC2757D1F534DDC0,
                                                 0xDB6295993C439041,
                                                 0xFE5163ABDEBBC561,
                                                 0xB7246E3A424DD2E0,
                                                 0x06492EEA09D1921C,
                                                 0xFE1DEB1CB129A73E,
                                                 0xE88235F52EBB4484,
                                                 0xE99C7026B45F7E41,
                                                 0x3991D639835339F4,
                                                 0x9C845F8BBDF9283B,
                                                 0x1FF897FFDE05980F,
                                                 0xEF2F118B5A0A6D1F,
                                                 0x6D367ECF27CB09B7,
                                                 0x4F463F669E5FEA2D,
                                                 0x7527BAC7EBE5F17B,
                                                 0x3D0739F78A5292EA,
                                                 0x6BFB5FB11F8D5D08,
                                                 0x56033046FC7B6BAB,
                                                 0xF0CFBC209AF4361D};

HELPER ulong HighProduct(ulong x, ulong y)
{
    const ulong x0 = (uint)x;
    const ulong x1 = x >> 32;
    const ulong y0 = (uint)y;
    const ulong y1 = y >> 32;
    const ulong middle = x1 * y0 + ((x0 * y0) >> 32);
    const ulong other = x0 * y1 + (uint)middle;
    return x1 * y1 + (middle >> 32) + (other >> 32);
}

HELPER ulong Joined(ulong high, ulong low, int nShift)
{
    return nShift == 0 ? high : (high << nShift) | (low >> (64 - nShift));
}

// A number of 2^20 or more times 192 bits of 2 / pi, those that matter for the place within a full circle:
// higher bits give multiples of 4 quadrants, lower ones don't change the result.
STEP struct SAngle FarAngle(double x)
{
    const ulong bits = BITS(ulong, x);
    const int nExponent = (int)(bits >> 52) - 1075;
    const ulong mantissa = (bits & 0xFFFFFFFFFFFFFUL) | 0x10000000000000UL;
    const int nBit = nExponent + 62;
    const int nWord = nBit >> 6;
    const int nShift = nBit & 63;
    const ulong word1 = s_TwoOverPi[nWord + 1];
    const ulong word2 = s_TwoOverPi[nWord + 2];
    const ulong top = Joined(s_TwoOverPi[nWord], word1, nShift);
    const ulong middle = Joined(word1, word2, nShift);
    const ulong bottom = Joined(word2, s_TwoOverPi[nWord + 3], nShift);

    const ulong product0 = mantissa * bottom;
    const ulong crossed = mantissa * middle;
    const ulong product1 = crossed + HighProduct(mantissa, bottom);
    const ulong product2 = mantissa * top + HighProduct(mantissa, middle) + (product1 < crossed ? 1 : 0);

    // Two bits of quadrants, rounded; the rest is relative to the nearest one.
    const uint nQuadrant = (uint)((product2 + (1UL << 61)) >> 62);
    const ulong rest2 = product2 - ((ulong)nQuadrant << 62);
    const bool bNegative = (long)rest2 < 0;
    const ulong flip = bNegative ? ~0UL : 0;
    const ulong size2 = rest2 ^ flip;
    const ulong size1 = product1 ^ flip;
    const ulong size0 = product0 ^ flip;

    const bool bFirst = size2 != 0;
    const ulong a = bFirst ? size2 : size1;
    const ulong b = bFirst ? size1 : size0;
    const ulong c = bFirst ? size0 : 0;
    const int nZeros = a == 0 ? 0 : __builtin_clzl(a);
    const ulong high = Joined(a, b, nZeros);
    const ulong low = Joined(b, c, nZeros);
    const int nScale = -nZeros - (bFirst ? 62 : 126);
    const double sign = bNegative ? -1.0 : 1.0;
    const double turnsHigh = sign * __il_dldexp((double)(high >> 11), nScale + 11);
    const double turnsLow = sign * __il_dldexp((double)(((high & 2047) << 53) | (low >> 11)), nScale + 11 - 64);

    struct SAngle angle;
    angle.high = turnsHigh * HALF_PI;
    angle.low = __builtin_fma(turnsHigh, HALF_PI, -angle.high) + turnsHigh * HALF_PI_REST + turnsLow * HALF_PI;
    angle.nQuadrant = (int)nQuadrant;
    return angle;
}

// \param x at least 0; infinities and NaN come out as NaN
STEP struct SAngle ReducedAngle(double x)
{
    struct SAngle angle = NearAngle(x);
    if (x > 0x1p20)
    {
        angle = FarAngle(x);
        angle.high = x < INFINITY_D ? angle.high : x - x;
    }
    return angle;
}

// x in half turns: x * pi
STEP struct SAngle AngleOfHalfTurns(double x)
{
    const double small = x < 0x1p53 ? x : (x < INFINITY_D ? 0.0 : x - x);
    const double n = __builtin_rint(small + small);
    const double rest = __builtin_fma(n, -0.5, small);
    struct SAngle angle;
    angle.high = rest * PI_D;
    angle.low = __builtin_fma(rest, PI_D, -angle.high) + rest * PI_REST;
    angle.nQuadrant = __il_dtoi(__builtin_fma(__builtin_floor(n * 0.25), -4.0, n));
    return angle;
}

// Sine and cosine near 0.
HELPER double SinNear0(double x, double low)
{
    const double z = x * x;
    return x + __builtin_fma(z * x, SinRest(z), __builtin_fma(-0.5 * z, low, low));
}

HELPER double CosNear0(double x, double low)
{
    const double z = x * x;
    const double less = 0.5 * z;
    const double first = 1.0 - less;
    return first + (((1.0 - first) - less) + __builtin_fma(z * z, CosRest(z), -x * low));
}

STEP double SinOf(struct SAngle angle)
{
    const double sine = SinNear0(angle.high, angle.low);
    const double cosine = CosNear0(angle.high, angle.low);
    const double size = (angle.nQuadrant & 1) != 0 ? cosine : sine;
    return (angle.nQuadrant & 2) != 0 ? -size : size;
}

STEP double CosOf(struct SAngle angle)
{
    angle.nQuadrant += 1;
    return SinOf(angle);
}

STEP double TanOf(struct SAngle angle)
{
    const double sine = SinNear0(angle.high, angle.low);
    const double cosine = CosNear0(angle.high, angle.low);
    return (angle.nQuadrant & 1) != 0 ? -cosine / sine : sine / cosine;
}

HELPER double WithSignOf(double x, double result)
{
    return BITS(long, x) < 0 ? -result : result;
}

HELPER double Sin(double x)
{
    const double size = __builtin_fabs(x);
    return x == 0 ? x : WithSignOf(x, SinOf(ReducedAngle(size)));
}

HELPER double Cos(double x)
{
    return CosOf(ReducedAngle(__builtin_fabs(x)));
}

HELPER double Tan(double x)
{
    const double size = __builtin_fabs(x);
    return x == 0 ? x : WithSignOf(x, TanOf(ReducedAngle(size)));
}

// A zero has the argument's sign for the sine, and no sign for the cosine.
HELPER double SinPi(double x)
{
    const double sine = SinOf(AngleOfHalfTurns(__builtin_fabs(x)));
    return WithSignOf(x, sine == 0 ? 0.0 : sine);
}

HELPER double CosPi(double x)
{
    const double cosine = CosOf(AngleOfHalfTurns(__builtin_fabs(x)));
    return cosine == 0 ? 0.0 : cosine;
}

// Zeros and infinities change their sign from one period to the next.
HELPER double TanPi(double x)
{
    const struct SAngle angle = AngleOfHalfTurns(__builtin_fabs(x));
    const double edge = (angle.nQuadrant & 1) != 0 ? INFINITY_D : 0.0;
    const bool bSecond = (angle.nQuadrant & 2) != 0;
    return WithSignOf(x, angle.high == 0 ? (bSecond ? -edge : edge) : TanOf(angle));
}

// The arc tangent of numerator / denominator, both at least 0: the quotient's angle relative to 0, pi / 4 or pi / 2.
HELPER double AtanOfQuotient(double numerator, double denominator)
{
    const bool bPastFirst = numerator > 0x1.a827999fcef32p-2 * denominator;
    const bool bPastSecond = numerator * 0x1.a827999fcef32p-2 > denominator;
    const double middleTop = numerator - denominator;
    const double middleBottom = numerator + denominator;
    const double top = bPastSecond ? -denominator : (bPastFirst ? middleTop : numerator);
    const double bottom = bPastSecond ? numerator : (bPastFirst ? middleBottom : denominator);
    const double from = bPastSecond ? HALF_PI : (bPastFirst ? 0.5 * HALF_PI : 0.0);
    const double fromLow = bPastSecond ? HALF_PI_REST : (bPastFirst ? 0.5 * HALF_PI_REST : 0.0);
    const double t = top / bottom;
    const double z = t * t;
    return from + (t + __builtin_fma(z * t, AtanRest(z), fromLow));
}

HELPER double Atan(double x)
{
    const double size = __builtin_fabs(x);
    return __builtin_copysign(AtanOfQuotient(size, 1.0), x);
}

// Both are scaled by a power of two so that sums and products can't overflow or underflow. Zeros and
// infinities are handled as the axes and corners that they lie on.
HELPER double Atan2(double y, double x)
{
    const double ySize = __builtin_fabs(y);
    const double xSize = __builtin_fabs(x);
    const int nScale = -__il_dfrexp_exp(ySize > xSize ? ySize : xSize);
    const bool bCorner = ySize == xSize;
    const bool bFlat = xSize == INFINITY_D || ySize == 0;
    const bool bUpright = ySize == INFINITY_D;
    const double flatNumerator = bFlat ? 0.0 : __il_dldexp(ySize, nScale);
    const double numerator = bCorner ? (ySize == 0 ? 0.0 : 1.0) : (bUpright ? 1.0 : flatNumerator);
    const double denominator = bCorner || bFlat ? 1.0 : (bUpright ? 0.0 : __il_dldexp(xSize, nScale));
    const double angle = AtanOfQuotient(numerator, denominator);
    const double turned = BITS(long, x) < 0 ? PI_D - (angle - PI_REST) : angle;
    return x != x || y != y ? x + y : __builtin_copysign(turned, y);
}

// From 0.5 on by the half-angle formula.
HELPER double Asin(double x)
{
    const double size = __builtin_fabs(x);
    const bool bFar = size > 0.5;
    const double z = bFar ? 0.5 * (1.0 - size) : size * size;
    const double s = bFar ? __il_dsqrt(z) : size;
    const double angle = __builtin_fma(z * s, AsinRest(z), s);
    return __builtin_copysign(bFar ? HALF_PI - (2.0 * angle - HALF_PI_REST) : angle, x);
}

HELPER double Acos(double x)
{
    const double size = __builtin_fabs(x);
    const bool bFar = size > 0.5;
    const double z = bFar ? 0.5 * (1.0 - size) : size * size;
    const double s = bFar ? __il_dsqrt(z) : x;
    const double angle = __builtin_fma(z * s, AsinRest(z), s);
    const double twice = angle + angle;
    const double far = x < 0 ? PI_D - (twice - PI_REST) : twice;
    return bFar ? far : HALF_PI - (angle - HALF_PI_REST);
}

#endif
