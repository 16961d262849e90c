#include "tests/platform/opencl_c/library/Elementwise.h"

#include <cfenv>
#include <limits>

#include <mpfr.h>

namespace KestrelTest
{
namespace
{

/// Represents every value of the source types exactly: it has 64 bits of fraction.
using TExact = long double;

struct SRounding
{
    const char* pszSuffix;
    mpfr_rnd_t eRounding;
};

// The default is to nearest for floating-point results, and toward zero for integers.
const SRounding s_Roundings[] = {
    {"", MPFR_RNDN}, {"_rte", MPFR_RNDN}, {"_rtz", MPFR_RNDZ}, {"_rtp", MPFR_RNDU}, {"_rtn", MPFR_RNDD}};

/// The nearest integer in a rounding direction.
TExact Whole(TExact x, const SRounding& rounding)
{
    mpfr_t n;
    mpfr_init2(n, 64);
    mpfr_set_ld(n, x, MPFR_RNDN);
    mpfr_rint(n, n, rounding.pszSuffix[0] == '\0' ? MPFR_RNDZ : rounding.eRounding);
    const TExact result = mpfr_get_ld(n, MPFR_RNDN);
    mpfr_clear(n);
    return result;
}

/// The nearest number of a type in a rounding direction.
template <class T>
T Narrowed(TExact x, mpfr_rnd_t eRounding)
{
    mpfr_t n;
    mpfr_init2(n, 64);
    mpfr_set_ld(n, x, MPFR_RNDN);
    const T result = std::is_same_v<T, float> ? static_cast<T>(mpfr_get_flt(n, eRounding))
                                              : static_cast<T>(mpfr_get_d(n, eRounding));
    mpfr_clear(n);
    return result;
}

/// Converts to an integer; a value out of range gives the nearest limit, NaN gives 0.
template <class D>
D SaturatedTo(TExact x)
{
    if (std::isnan(x))
    {
        return 0;
    }
    const TExact least = std::numeric_limits<D>::min();
    const TExact largest = std::numeric_limits<D>::max();
    return x <= least ? std::numeric_limits<D>::min()
                      : (x >= largest ? std::numeric_limits<D>::max() : static_cast<D>(x));
}

/// Numbers at the limits of integer types, and where floating-point types round.
template <class S>
std::vector<S> Numbers()
{
    if constexpr (std::is_floating_point_v<S>)
    {
        std::vector<S> v = {
            0,        S(0.25),  S(0.5),   S(0.75),   1,       S(1.5),  S(2.5),  S(3.5),
            S(126.5), S(127.5), S(254.5), S(255.5),  S(1e10), S(1e20), S(1e38), std::numeric_limits<S>::infinity(),
            S(1e-38), S(1e-45), S(0.1),   S(1.0 / 3)};
        for (int n = 7; n <= 64; ++n)
        {
            const S power = std::ldexp(S(1), n);
            v.insert(v.end(), {power, std::nextafter(power, S(0)), std::nextafter(power, S(1e30)), power - S(1),
                               power - S(0.5), power + S(0.5)});
        }
        if (sizeof(S) == 8)
        {
            // Halfway between floats, next to that, beyond floats, and below the smallest one.
            v.insert(v.end(), {S(1 + 0x1p-24), S(1 + 0x1p-24 + 0x1p-52), S(1 + 0x3p-24), S(1e300), S(0x1.fffffefp127),
                               S(0x1.ffffffp127), S(1e-300), S(0x1p-150), S(0x1.8p-149), S(0x1.000002p-127)});
        }
        const size_t nCount = v.size();
        for (size_t i = 0; i < nCount; ++i)
        {
            v.push_back(-v[i]);
        }
        v.push_back(std::numeric_limits<S>::quiet_NaN());
        return v;
    }
    else
    {
        std::vector<S> v = TellingIntegers<S>();
        for (unsigned n = 20; n < sizeof(S) * 8; ++n)
        {
            // Ties and their neighbours with 24 and 53 bits of fraction.
            for (const unsigned nFraction : {24u, 53u})
            {
                const uint64_t nHalf = n > nFraction ? uint64_t(1) << (n - nFraction - 1) : 0;
                for (const uint64_t nBits : {nHalf, nHalf + 1, nHalf - 1, 3 * nHalf, nHalf * 2})
                {
                    v.push_back(static_cast<S>((uint64_t(1) << n) + nBits));
                    v.push_back(static_cast<S>(0 - ((uint64_t(1) << n) + nBits)));
                }
            }
        }
        return v;
    }
}

/// Those whose conversion is defined without saturation.
template <class D, class S>
std::vector<S> Fitting(const std::vector<S>& vAll, const SRounding& rounding)
{
    if constexpr (std::is_integral_v<S>)
    {
        return vAll;
    }
    std::vector<S> v;
    for (const S x : vAll)
    {
        const TExact whole = Whole(x, rounding);
        if (whole >= TExact(std::numeric_limits<D>::min()) && whole <= TExact(std::numeric_limits<D>::max()))
        {
            v.push_back(x);
        }
    }
    return v;
}

template <class D, class S>
void ExpectConversions(CElementwise& test)
{
    const std::vector<S> vAll = Numbers<S>();
    for (const SRounding& rounding : s_Roundings)
    {
        const std::string strName = std::string("convert_") + TypeName<D>() + "$";
        if constexpr (std::is_floating_point_v<D>)
        {
            test.Expect(strName + rounding.pszSuffix + "(a)", "",
                        Mapped<D>([&](S x) { return Narrowed<D>(x, rounding.eRounding); }, vAll), vAll);
        }
        else
        {
            const auto Wrapped = [&](S x)
            {
                if constexpr (std::is_integral_v<S>)
                {
                    return static_cast<D>(x);
                }
                return static_cast<D>(Whole(x, rounding));
            };
            const std::vector<S> vFitting = Fitting<D>(vAll, rounding);
            test.Expect(strName + rounding.pszSuffix + "(a)", "", Mapped<D>(Wrapped, vFitting), vFitting);
            test.Expect(strName + "_sat" + rounding.pszSuffix + "(a)", "",
                        Mapped<D>([&](S x) { return SaturatedTo<D>(Whole(x, rounding)); }, vAll), vAll);
        }
    }
}

template <class S>
void ExpectAllFrom(const STestDevice& device)
{
    CElementwise test(device);
    ExpectConversions<int8_t, S>(test);
    ExpectConversions<uint8_t, S>(test);
    ExpectConversions<int16_t, S>(test);
    ExpectConversions<uint16_t, S>(test);
    ExpectConversions<int32_t, S>(test);
    ExpectConversions<uint32_t, S>(test);
    ExpectConversions<int64_t, S>(test);
    ExpectConversions<uint64_t, S>(test);
    ExpectConversions<float, S>(test);
    ExpectConversions<double, S>(test);
    test.Run();
}

template <class T>
class TConversions : public testing::Test
{
};

TYPED_TEST_SUITE(TConversions, TAllTypes);

TYPED_TEST(TConversions, ToAllTypesAreRight)
{
    for (const STestDevice& device : g_TestDevices)
    {
        ExpectAllFrom<TypeParam>(device);
    }
}

} // namespace
} // namespace KestrelTest
