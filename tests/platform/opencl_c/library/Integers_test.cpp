#include "tests/platform/opencl_c/library/Elementwise.h"

#include <cstring>
#include <limits>

namespace KestrelTest
{
namespace
{

using TWide = __int128;

/// The nearest value of the type.
template <class T>
T Saturated(TWide n)
{
    const TWide nLeast = +std::numeric_limits<T>::min();
    const TWide nLargest = +std::numeric_limits<T>::max();
    return static_cast<T>(n < nLeast ? nLeast : (n > nLargest ? nLargest : n));
}

/// The upper half of a product. The bits below 128 don't depend on signedness.
template <class T>
T HighProduct(T x, T y)
{
    const auto nX = static_cast<unsigned __int128>(TWide(x));
    const auto nY = static_cast<unsigned __int128>(TWide(y));
    return static_cast<T>((nX * nY) >> (sizeof(T) * 8));
}

template <class U>
int LeadingZeros(U x)
{
    const int nBits = sizeof(U) * 8;
    return x == 0 ? nBits : __builtin_clzll(x) - (64 - nBits);
}

template <class U>
U Rotated(U x, unsigned n)
{
    const unsigned nBits = sizeof(U) * 8;
    return n == 0 ? x : static_cast<U>((x << n) | (x >> (nBits - n)));
}

template <class T>
class TIntegers : public testing::Test
{
};

using TIntegerTypes = testing::Types<int8_t, uint8_t, int16_t, uint16_t, int32_t, uint32_t, int64_t, uint64_t>;
TYPED_TEST_SUITE(TIntegers, TIntegerTypes);

TYPED_TEST(TIntegers, OfOneAreRight)
{
    using T = TypeParam;
    using U = std::make_unsigned_t<T>;
    const std::vector<T> a = TellingIntegers<T>();
    for (const STestDevice& device : g_TestDevices)
    {
        CElementwise test(device);
        test.Expect("abs(a)", "", Mapped<U>([](T x) { return static_cast<U>(x < 0 ? 0 - static_cast<U>(x) : x); }, a),
                    a);
        test.Expect("clz(a)", "", Mapped<T>([](T x) { return static_cast<T>(LeadingZeros<U>(x)); }, a), a);
        test.Expect("popcount(a)", "",
                    Mapped<T>([](T x) { return static_cast<T>(__builtin_popcountll(static_cast<U>(x))); }, a), a);
        test.Run();
    }
}

TYPED_TEST(TIntegers, OfTwoAreRight)
{
    using T = TypeParam;
    using U = std::make_unsigned_t<T>;
    const auto pairs = Pairs(TellingIntegers<T>(), TellingIntegers<T>());
    const std::vector<T>& a = pairs.first;
    const std::vector<T>& b = pairs.second;
    const auto Of = [&](auto function)
    { return Mapped<T>([&](T x, T y) { return static_cast<T>(function(TWide(x), TWide(y))); }, a, b); };
    for (const STestDevice& device : g_TestDevices)
    {
        CElementwise test(device);
        test.Expect("abs_diff(a, b)", "",
                    Mapped<U>([](T x, T y) { return static_cast<U>(x > y ? TWide(x) - y : TWide(y) - x); }, a, b), a,
                    b);
        test.Expect("add_sat(a, b)", "", Of([](TWide x, TWide y) { return Saturated<T>(x + y); }), a, b);
        test.Expect("sub_sat(a, b)", "", Of([](TWide x, TWide y) { return Saturated<T>(x - y); }), a, b);
        test.Expect("hadd(a, b)", "", Of([](TWide x, TWide y) { return (x + y) >> 1; }), a, b);
        test.Expect("rhadd(a, b)", "", Of([](TWide x, TWide y) { return (x + y + 1) >> 1; }), a, b);
        test.Expect("max(a, b)", "", Of([](TWide x, TWide y) { return x > y ? x : y; }), a, b);
        test.Expect("min(a, b)", "", Of([](TWide x, TWide y) { return x < y ? x : y; }), a, b);
        test.Expect("mul_hi(a, b)", "", Mapped<T>(HighProduct<T>, a, b), a, b);
        test.Expect("rotate(a, b)", "",
                    Of([](TWide x, TWide y)
                       { return Rotated(static_cast<U>(x), static_cast<unsigned>(y & (sizeof(T) * 8 - 1))); }),
                    a, b);
        test.Expect("min(a, (T)3)", "", Of([](TWide x, TWide) { return x < 3 ? x : 3; }), a, b);
        test.Expect("max(a, (T)3)", "", Of([](TWide x, TWide) { return x > 3 ? x : 3; }), a, b);
        test.Expect("clamp(a, (T)2, (T)9)", "", Of([](TWide x, TWide) { return x < 2 ? 2 : (x > 9 ? 9 : x); }), a, b);
        test.Run(std::string("typedef ") + TypeName<T>() + " T;\n");
    }
}

TYPED_TEST(TIntegers, OfThreeAreRight)
{
    using T = TypeParam;
    const std::vector<T> vSome = SpecialIntegers<T>();
    std::vector<T> a;
    std::vector<T> b;
    std::vector<T> c;
    for (const T x : vSome)
    {
        for (const T y : vSome)
        {
            for (const T z : vSome)
            {
                a.push_back(x);
                b.push_back(y);
                c.push_back(z);
            }
        }
    }
    const auto Sum = [](T x, T y, T z)
    {
        // The product of two unsigned 64-bit numbers plus a third one fits in 128 unsigned bits.
        if constexpr (std::is_unsigned_v<T>)
        {
            const unsigned __int128 n = static_cast<unsigned __int128>(x) * y + z;
            return static_cast<T>(n > std::numeric_limits<T>::max() ? std::numeric_limits<T>::max() : n);
        }
        else
        {
            return Saturated<T>(static_cast<TWide>(x) * y + z);
        }
    };
    const auto High = [](T x, T y, T z) { return static_cast<uint64_t>(HighProduct(x, y)) + static_cast<uint64_t>(z); };
    for (const STestDevice& device : g_TestDevices)
    {
        CElementwise test(device);
        test.Expect("mad_sat(a, b, c)", "", Mapped<T>(Sum, a, b, c), a, b, c);
        test.Expect("mad_hi(a, b, c)", "", Mapped<T>(High, a, b, c), a, b, c);
        test.Expect(
            "clamp(a, min(b, c), max(b, c))", "",
            Mapped<T>([](T x, T y, T z) { return std::min(std::max(x, std::min(y, z)), std::max(y, z)); }, a, b, c), a,
            b, c);
        test.Run();
    }
}

template <class H, class L, class R>
void ExpectUpsampled(CElementwise& test)
{
    const auto [high, low] = Pairs(TellingIntegers<H>(), TellingIntegers<L>());
    test.Expect("upsample(a, b)", "",
                Mapped<R>([](H x, L y) { return (static_cast<uint64_t>(x) << (sizeof(H) * 8)) | y; }, high, low), high,
                low);
}

TEST(IntegerBuiltins, HalvesAreJoined)
{
    for (const STestDevice& device : g_TestDevices)
    {
        CElementwise test(device);
        ExpectUpsampled<int8_t, uint8_t, int16_t>(test);
        ExpectUpsampled<uint8_t, uint8_t, uint16_t>(test);
        ExpectUpsampled<int16_t, uint16_t, int32_t>(test);
        ExpectUpsampled<uint16_t, uint16_t, uint32_t>(test);
        ExpectUpsampled<int32_t, uint32_t, int64_t>(test);
        ExpectUpsampled<uint32_t, uint32_t, uint64_t>(test);
        test.Run();
    }
}

template <class T>
void ExpectProductsOf24Bits(CElementwise& test)
{
    std::vector<T> v;
    for (const T n : SpecialIntegers<T>())
    {
        v.push_back(static_cast<T>(static_cast<uint32_t>(n) << 8) >> 8);
    }
    const auto [a, b] = Pairs(v, v);
    test.Expect("mul24(a, b)", "", Mapped<T>([](T x, T y) { return TWide(x) * y; }, a, b), a, b);
    test.Expect("mad24(a, b, a)", "", Mapped<T>([](T x, T y) { return TWide(x) * y + x; }, a, b), a, b);
}

TEST(IntegerBuiltins, ProductsOf24Bits)
{
    for (const STestDevice& device : g_TestDevices)
    {
        CElementwise test(device);
        ExpectProductsOf24Bits<int32_t>(test);
        ExpectProductsOf24Bits<uint32_t>(test);
        test.Run();
    }
}

} // namespace
} // namespace KestrelTest
