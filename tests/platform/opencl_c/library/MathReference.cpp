#include "tests/platform/opencl_c/library/MathReference.h"

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>

namespace KestrelTest
{
namespace
{

constexpr double s_dInfinity = std::numeric_limits<double>::infinity();
constexpr double s_dNaN = std::numeric_limits<double>::quiet_NaN();
constexpr mpfr_prec_t s_nBits = 300;

// In the form of MPFR's functions, which round to nearest at the precision of the result.
#define OF_1(name, function)                                                                                           \
    void name(mpfr_ptr r, mpfr_srcptr x, mpfr_srcptr)                                                                  \
    {                                                                                                                  \
        function(r, x, MPFR_RNDN);                                                                                     \
    }
#define OF_2(name, function)                                                                                           \
    void name(mpfr_ptr r, mpfr_srcptr x, mpfr_srcptr y)                                                                \
    {                                                                                                                  \
        function(r, x, y, MPFR_RNDN);                                                                                  \
    }
OF_1(Acos, mpfr_acos)
OF_1(Acosh, mpfr_acosh)
OF_1(AcosPi, mpfr_acospi)
OF_1(Asin, mpfr_asin)
OF_1(Asinh, mpfr_asinh)
OF_1(AsinPi, mpfr_asinpi)
OF_1(Atan, mpfr_atan)
OF_1(Atanh, mpfr_atanh)
OF_1(AtanPi, mpfr_atanpi)
OF_1(Cbrt, mpfr_cbrt)
OF_1(Ceil, mpfr_rint_ceil)
OF_1(Cos, mpfr_cos)
OF_1(Cosh, mpfr_cosh)
OF_1(CosPi, mpfr_cospi)
OF_1(Erf, mpfr_erf)
OF_1(Erfc, mpfr_erfc)
OF_1(Exp, mpfr_exp)
OF_1(Exp2, mpfr_exp2)
OF_1(Exp10, mpfr_exp10)
OF_1(Expm1, mpfr_expm1)
OF_1(Fabs, mpfr_abs)
OF_1(Floor, mpfr_rint_floor)
OF_1(Gamma, mpfr_gamma)
OF_1(Log, mpfr_log)
OF_1(Log2, mpfr_log2)
OF_1(Log10, mpfr_log10)
OF_1(Log1p, mpfr_log1p)
OF_1(Rint, mpfr_rint_roundeven)
OF_1(Round, mpfr_rint_round)
OF_1(Sin, mpfr_sin)
OF_1(Sinh, mpfr_sinh)
OF_1(SinPi, mpfr_sinpi)
OF_1(Sqrt, mpfr_sqrt)
OF_1(Tan, mpfr_tan)
OF_1(Tanh, mpfr_tanh)
OF_1(TanPi, mpfr_tanpi)
OF_1(Trunc, mpfr_rint_trunc)
OF_2(Atan2, mpfr_atan2)
OF_2(Atan2Pi, mpfr_atan2pi)
OF_2(CopySign, mpfr_copysign)
OF_2(Fmod, mpfr_fmod)
OF_2(Fmax, mpfr_max)
OF_2(Fmin, mpfr_min)
OF_2(Hypot, mpfr_hypot)
OF_2(Pow, mpfr_pow)
OF_2(Remainder, mpfr_remainder)
OF_2(Divide, mpfr_div)
#undef OF_1
#undef OF_2

void LogGamma(mpfr_ptr r, mpfr_srcptr x, mpfr_srcptr)
{
    int nSign = 0;
    mpfr_lgamma(r, &nSign, x, MPFR_RNDN);
}

void ReciprocalRoot(mpfr_ptr r, mpfr_srcptr x, mpfr_srcptr)
{
    mpfr_rec_sqrt(r, x, MPFR_RNDN);
    mpfr_setsign(r, r, mpfr_zero_p(x) ? mpfr_signbit(x) : 0, MPFR_RNDN);
}

void Reciprocal(mpfr_ptr r, mpfr_srcptr x, mpfr_srcptr)
{
    mpfr_ui_div(r, 1, x, MPFR_RNDN);
}

void Fdim(mpfr_ptr r, mpfr_srcptr x, mpfr_srcptr y)
{
    mpfr_dim(r, x, y, MPFR_RNDN);
}

/// The number with the larger or smaller magnitude; for equal magnitudes, the larger or smaller number.
void MaxMag(mpfr_ptr r, mpfr_srcptr x, mpfr_srcptr y)
{
    const bool bNaN = mpfr_nan_p(x) || mpfr_nan_p(y);
    const int nOrder = bNaN ? 0 : mpfr_cmpabs(x, y);
    nOrder == 0 ? mpfr_max(r, x, y, MPFR_RNDN) : mpfr_set(r, nOrder > 0 ? x : y, MPFR_RNDN);
}

void MinMag(mpfr_ptr r, mpfr_srcptr x, mpfr_srcptr y)
{
    const bool bNaN = mpfr_nan_p(x) || mpfr_nan_p(y);
    const int nOrder = bNaN ? 0 : mpfr_cmpabs(x, y);
    nOrder == 0 ? mpfr_min(r, x, y, MPFR_RNDN) : mpfr_set(r, nOrder < 0 ? x : y, MPFR_RNDN);
}

/// The exponent that scales a number to between 1 and 2.
void Logb(mpfr_ptr r, mpfr_srcptr x, mpfr_srcptr)
{
    if (mpfr_regular_p(x))
    {
        mpfr_set_si(r, mpfr_get_exp(x) - 1, MPFR_RNDN);
        return;
    }
    mpfr_abs(r, x, MPFR_RNDN);
    if (mpfr_zero_p(x))
    {
        mpfr_set_inf(r, -1);
    }
}

void Ldexp(mpfr_ptr r, mpfr_srcptr x, mpfr_srcptr n)
{
    mpfr_mul_2si(r, x, mpfr_get_si(n, MPFR_RNDN), MPFR_RNDN);
}

/// NaN if x is negative or the limit depends on the path, section 7.5.1.
void Powr(mpfr_ptr r, mpfr_srcptr x, mpfr_srcptr y)
{
    const bool bEdge = mpfr_zero_p(x) || mpfr_inf_p(x);
    const bool bOne = !mpfr_nan_p(x) && mpfr_cmp_ui(x, 1) == 0;
    if (mpfr_nan_p(x) || mpfr_nan_p(y) || (mpfr_signbit(x) && !mpfr_zero_p(x)) || (mpfr_zero_p(y) && bEdge) ||
        (bOne && mpfr_inf_p(y)))
    {
        mpfr_set_nan(r);
        return;
    }
    mpfr_t size;
    mpfr_init2(size, s_nBits);
    mpfr_abs(size, x, MPFR_RNDN);
    mpfr_pow(r, size, y, MPFR_RNDN);
    mpfr_clear(size);
}

void Rootn(mpfr_ptr r, mpfr_srcptr x, mpfr_srcptr n)
{
    const long nRoot = mpfr_get_si(n, MPFR_RNDN);
    mpfr_rootn_si(r, x, nRoot, MPFR_RNDN);
    if (mpfr_zero_p(x) && nRoot % 2 == 0 && nRoot != 0)
    {
        nRoot > 0 ? mpfr_set_zero(r, 1) : mpfr_set_inf(r, 1);
    }
}

constexpr double s_dNone = NAN;
constexpr double s_dFree = -1;

const std::vector<SMathFunction> s_Functions = {
    {"acos", SMathFunction::Of1, Acos, 4, 4, -1, 1},
    {"acosh", SMathFunction::Of1, Acosh, 4, 4, 1, 10},
    {"acospi", SMathFunction::Of1, AcosPi, 5, 5, -1, 1},
    {"asin", SMathFunction::Of1, Asin, 4, 4, -1, 1},
    {"asinh", SMathFunction::Of1, Asinh, 4, 4, -10, 10},
    {"asinpi", SMathFunction::Of1, AsinPi, 5, 5, -1, 1},
    {"atan", SMathFunction::Of1, Atan, 5, 5, -5, 5},
    {"atan2", SMathFunction::Of2, Atan2, 6, 6, -5, 5},
    {"atan2pi", SMathFunction::Of2, Atan2Pi, 6, 6, -5, 5},
    {"atanh", SMathFunction::Of1, Atanh, 5, 5, -1, 1},
    {"atanpi", SMathFunction::Of1, AtanPi, 5, 5, -5, 5},
    {"cbrt", SMathFunction::Of1, Cbrt, 2, 2, -10, 10},
    {"ceil", SMathFunction::Of1, Ceil, 0, 0, -10, 10},
    {"copysign", SMathFunction::Of2, CopySign, 0, 0, -10, 10},
    {"cos", SMathFunction::Of1, Cos, 4, 4, -100, 100},
    {"cosh", SMathFunction::Of1, Cosh, 4, 4, -100, 100},
    {"cospi", SMathFunction::Of1, CosPi, 4, 4, -4, 4},
    {"erf", SMathFunction::Of1, Erf, 16, 16, -4, 4},
    {"erfc", SMathFunction::Of1, Erfc, 16, 16, -4, 28},
    {"exp", SMathFunction::Of1, Exp, 3, 3, -110, 100},
    {"exp10", SMathFunction::Of1, Exp10, 3, 3, -50, 40},
    {"exp2", SMathFunction::Of1, Exp2, 3, 3, -150, 130},
    {"expm1", SMathFunction::Of1, Expm1, 3, 3, -2, 2},
    {"fabs", SMathFunction::Of1, Fabs, 0, 0, -10, 10},
    {"fdim", SMathFunction::Of2, Fdim, 0, 0, -10, 10},
    {"floor", SMathFunction::Of1, Floor, 0, 0, -10, 10},
    {"fmax", SMathFunction::Of2, Fmax, 0, 0, -10, 10, true},
    {"fmin", SMathFunction::Of2, Fmin, 0, 0, -10, 10, true},
    {"fmod", SMathFunction::Of2, Fmod, 0, 0, -100, 100},
    {"hypot", SMathFunction::Of2, Hypot, 4, 4, -10, 10},
    {"ldexp", SMathFunction::OfInteger, Ldexp, 0, 0, -10, 10},
    {"lgamma", SMathFunction::Of1, LogGamma, s_dFree, s_dFree, -10, 20},
    {"log", SMathFunction::Of1, Log, 3, 3, 0, 3},
    {"log10", SMathFunction::Of1, Log10, 3, 3, 0, 3},
    {"log1p", SMathFunction::Of1, Log1p, 2, 2, -1, 3},
    {"log2", SMathFunction::Of1, Log2, 3, 3, 0, 3},
    {"logb", SMathFunction::Of1, Logb, 0, 0, -10, 10},
    {"maxmag", SMathFunction::Of2, MaxMag, 0, 0, -10, 10, true},
    {"minmag", SMathFunction::Of2, MinMag, 0, 0, -10, 10, true},
    {"pow", SMathFunction::Of2, Pow, 16, 16, 0, 50},
    {"pown", SMathFunction::OfInteger, Pow, 16, 16, -4, 4},
    {"powr", SMathFunction::Of2, Powr, 16, 16, 0, 50},
    {"remainder", SMathFunction::Of2, Remainder, 0, 0, -100, 100},
    {"rint", SMathFunction::Of1, Rint, 0, 0, -10, 10},
    {"rootn", SMathFunction::OfInteger, Rootn, 16, 16, -50, 50},
    {"round", SMathFunction::Of1, Round, 0, 0, -10, 10},
    {"rsqrt", SMathFunction::Of1, ReciprocalRoot, 2, 2, 0, 10},
    {"sin", SMathFunction::Of1, Sin, 4, 4, -100, 100},
    {"sinh", SMathFunction::Of1, Sinh, 4, 4, -100, 100},
    {"sinpi", SMathFunction::Of1, SinPi, 4, 4, -4, 4},
    {"sqrt", SMathFunction::Of1, Sqrt, 3, 0, 0, 10},
    {"tan", SMathFunction::Of1, Tan, 5, 5, -100, 100},
    {"tanh", SMathFunction::Of1, Tanh, 5, 5, -3, 3},
    {"tanpi", SMathFunction::Of1, TanPi, 6, 6, -4, 4},
    {"tgamma", SMathFunction::Of1, Gamma, 16, 16, -40, 40},
    {"trunc", SMathFunction::Of1, Trunc, 0, 0, -10, 10},
    {"half_cos", SMathFunction::Of1, Cos, 8192, s_dNone, -100, 100},
    {"half_divide", SMathFunction::Of2, Divide, 8192, s_dNone, -10, 10},
    {"half_exp", SMathFunction::Of1, Exp, 8192, s_dNone, -110, 100},
    {"half_exp10", SMathFunction::Of1, Exp10, 8192, s_dNone, -50, 40},
    {"half_exp2", SMathFunction::Of1, Exp2, 8192, s_dNone, -150, 130},
    {"half_log", SMathFunction::Of1, Log, 8192, s_dNone, 0, 3},
    {"half_log10", SMathFunction::Of1, Log10, 8192, s_dNone, 0, 3},
    {"half_log2", SMathFunction::Of1, Log2, 8192, s_dNone, 0, 3},
    {"half_powr", SMathFunction::Of2, Powr, 8192, s_dNone, 0, 50},
    {"half_recip", SMathFunction::Of1, Reciprocal, 8192, s_dNone, -10, 10},
    {"half_rsqrt", SMathFunction::Of1, ReciprocalRoot, 8192, s_dNone, 0, 10},
    {"half_sin", SMathFunction::Of1, Sin, 8192, s_dNone, -100, 100},
    {"half_sqrt", SMathFunction::Of1, Sqrt, 8192, s_dNone, 0, 10},
    {"half_tan", SMathFunction::Of1, Tan, 8192, s_dNone, -100, 100},
    {"native_cos", SMathFunction::Of1, Cos, s_dFree, s_dNone, -100, 100},
    {"native_divide", SMathFunction::Of2, Divide, s_dFree, s_dNone, -10, 10},
    {"native_exp", SMathFunction::Of1, Exp, s_dFree, s_dNone, -110, 100},
    {"native_exp10", SMathFunction::Of1, Exp10, s_dFree, s_dNone, -50, 40},
    {"native_exp2", SMathFunction::Of1, Exp2, s_dFree, s_dNone, -150, 130},
    {"native_log", SMathFunction::Of1, Log, s_dFree, s_dNone, 0, 3},
    {"native_log10", SMathFunction::Of1, Log10, s_dFree, s_dNone, 0, 3},
    {"native_log2", SMathFunction::Of1, Log2, s_dFree, s_dNone, 0, 3},
    {"native_powr", SMathFunction::Of2, Powr, s_dFree, s_dNone, 0, 50},
    {"native_recip", SMathFunction::Of1, Reciprocal, s_dFree, s_dNone, -10, 10},
    {"native_rsqrt", SMathFunction::Of1, ReciprocalRoot, s_dFree, s_dNone, 0, 10},
    {"native_sin", SMathFunction::Of1, Sin, s_dFree, s_dNone, -100, 100},
    {"native_sqrt", SMathFunction::Of1, Sqrt, s_dFree, s_dNone, 0, 10},
    {"native_tan", SMathFunction::Of1, Tan, s_dFree, s_dNone, -100, 100},
};

/// Values where functions change their behaviour, and their neighbours, where rounding shows.
std::vector<double> SpecialValues(bool bDouble)
{
    std::vector<double> v = {0,
                             s_dInfinity,
                             bDouble ? DBL_MAX : FLT_MAX,
                             bDouble ? DBL_MIN : FLT_MIN,
                             bDouble ? 0x1p-1074 : 0x1p-149,
                             bDouble ? 0x1.8p-1030 : 0x1.8p-130};
    for (const double d : {0.25,
                           0.5,
                           0.85,
                           1.0,
                           1.5,
                           2.0,
                           2.5,
                           3.0,
                           4.0,
                           7.0,
                           8.0,
                           10.0,
                           22.0,
                           33.0,
                           88.75,
                           100.0,
                           128.0,
                           150.0,
                           171.5,
                           709.78,
                           745.0,
                           1024.0,
                           1e5,
                           1048576.0,
                           16777215.0,
                           16777217.0,
                           1e15,
                           1e22,
                           1e38,
                           0.7853981633974483,
                           1.5707963267948966,
                           3.141592653589793,
                           6.283185307179586,
                           0.4142135623730950})
    {
        const double dRounded = bDouble ? d : static_cast<float>(d);
        v.push_back(dRounded);
        v.push_back(bDouble ? std::nextafter(d, 0) : std::nextafter(static_cast<float>(d), 0.0f));
        v.push_back(bDouble ? std::nextafter(d, 1e300) : std::nextafter(static_cast<float>(d), 1e38f));
    }
    const size_t nPositive = v.size();
    for (size_t i = 0; i < nPositive; ++i)
    {
        v.push_back(-v[i]);
    }
    v.push_back(s_dNaN);
    return v;
}

/// Any number; all exponents are equally likely.
double AnyNumber(std::mt19937_64& random, bool bDouble)
{
    const uint64_t nBits = random();
    if (bDouble)
    {
        double d = 0;
        std::memcpy(&d, &nBits, sizeof d);
        return std::isnan(d) ? s_dNaN : d;
    }
    const uint32_t nWord = static_cast<uint32_t>(nBits);
    float f = 0;
    std::memcpy(&f, &nWord, sizeof f);
    return std::isnan(f) ? s_dNaN : f;
}

double InRange(std::mt19937_64& random, bool bDouble, double dLeast, double dLargest)
{
    const double d = std::uniform_real_distribution<double>(dLeast, dLargest)(random);
    return bDouble ? d : static_cast<float>(d);
}

int32_t AnyInteger(std::mt19937_64& random)
{
    const uint64_t nBits = random();
    return static_cast<int32_t>(nBits) >> (nBits >> 32) % 32;
}

} // namespace

const std::vector<SMathFunction>& MathFunctions()
{
    return s_Functions;
}

void Reference(const SMathFunction& function, double dX, double dY, mpfr_ptr result)
{
    mpfr_t x;
    mpfr_t y;
    mpfr_init2(x, 64);
    mpfr_init2(y, 64);
    mpfr_set_d(x, dX, MPFR_RNDN);
    mpfr_set_d(y, dY, MPFR_RNDN);
    function.pReference(result, x, y);
    mpfr_clear(x);
    mpfr_clear(y);
}

double ErrorInUlp(const SMathFunction& function, double dResult, mpfr_srcptr reference, bool bDouble)
{
    if (mpfr_nan_p(reference) || std::isnan(dResult))
    {
        return mpfr_nan_p(reference) && std::isnan(dResult) ? 0 : s_dInfinity;
    }
    if (mpfr_zero_p(reference) || mpfr_inf_p(reference))
    {
        const double dReference = mpfr_get_d(reference, MPFR_RNDN);
        const bool bSigns = function.bAnyZero || std::signbit(dReference) == std::signbit(dResult);
        return dReference == dResult && bSigns ? 0 : s_dInfinity;
    }
    const mpfr_exp_t nLargest = bDouble ? 1024 : 128;
    const mpfr_exp_t nLeast = bDouble ? -1021 : -125;
    const mpfr_exp_t nExponent = std::min(std::max(mpfr_get_exp(reference), nLeast), nLargest);
    const mpfr_exp_t nPlaces = bDouble ? 53 : 24;
    mpfr_t error;
    mpfr_init2(error, s_nBits);
    // Infinity counts as the first number beyond the range.
    if (std::isinf(dResult))
    {
        mpfr_set_si_2exp(error, dResult > 0 ? 1 : -1, nLargest, MPFR_RNDN);
    }
    else
    {
        mpfr_set_d(error, dResult, MPFR_RNDN);
    }
    // If the true value is beyond the range, infinity is right, however large the value is.
    const bool bBeyond = std::isinf(dResult) && mpfr_get_exp(reference) > nLargest &&
                         std::signbit(dResult) == (mpfr_signbit(reference) != 0);
    mpfr_sub(error, error, reference, MPFR_RNDN);
    mpfr_mul_2si(error, error, nPlaces - nExponent, MPFR_RNDN);
    const double dError = bBeyond ? 0 : std::fabs(mpfr_get_d(error, MPFR_RNDA));
    mpfr_clear(error);
    return dError;
}

bool IsAllowed(const SMathFunction& function, double dResult, mpfr_srcptr reference, bool bDouble)
{
    const double dAllowed = bDouble ? function.dAllowedDouble : function.dAllowedFloat;
    const double dError = ErrorInUlp(function, dResult, reference, bDouble);
    const double dNearest =
        bDouble ? mpfr_get_d(reference, MPFR_RNDN) : static_cast<double>(mpfr_get_flt(reference, MPFR_RNDN));
    return dError == 0 || (dAllowed == 0 ? dResult == dNearest : dError <= (dAllowed < 0 ? DBL_MAX : dAllowed));
}

void MakeArguments(const SMathFunction& function, bool bDouble, size_t nRandom, std::vector<double>& vX,
                   std::vector<double>& vY)
{
    std::mt19937_64 random(1);
    const std::vector<double> vSpecial = SpecialValues(bDouble);
    std::vector<double> vSecond = {0};
    if (function.eShape == SMathFunction::Of2)
    {
        vSecond = vSpecial;
    }
    if (function.eShape == SMathFunction::OfInteger)
    {
        vSecond = {0, 1, -1, 2, -2, 3, -3, 7, 30, -31, 127, -149, 1023, -1074, 16777217, 2147483647, -2147483648.0};
    }
    for (const double dX : vSpecial)
    {
        for (const double dY : vSecond)
        {
            vX.push_back(dX);
            vY.push_back(dY);
        }
    }
    for (size_t i = 0; i < nRandom; ++i)
    {
        const bool bInteger = function.eShape == SMathFunction::OfInteger;
        vX.push_back(AnyNumber(random, bDouble));
        vY.push_back(bInteger ? AnyInteger(random) : AnyNumber(random, bDouble));
        vX.push_back(InRange(random, bDouble, function.dLeast, function.dLargest));
        vY.push_back(bInteger ? AnyInteger(random) : InRange(random, bDouble, -50, 50));
    }
}

} // namespace KestrelTest
