#include "tests/platform/opencl_c/library/Elementwise.h"
#include "tests/platform/opencl_c/library/Floats.h"

#include <cstring>

namespace KestrelTest
{
namespace
{

/// True is 1 for a scalar, and all bits for a vector component; the kernel gives all bits for both.
template <class F, class TPredicate>
void ExpectMask(CElementwise& test, const std::string& strCall, TPredicate predicate, const std::vector<F>& a,
                const std::vector<F>& b)
{
    test.Expect(strCall, "-" + strCall, Mapped<TSigned<F>>([&](F x, F y) { return predicate(x, y) ? -1 : 0; }, a, b), a,
                b);
}

template <class F>
class TFloats : public testing::Test
{
};

TYPED_TEST_SUITE(TFloats, TFloatTypes);

TYPED_TEST(TFloats, AreCompared)
{
    using F = TypeParam;
    const auto [a, b] = Pairs(SpecialFloats<F>(), SpecialFloats<F>());
    for (const STestDevice& device : g_TestDevices)
    {
        CElementwise test(device);
        ExpectMask<F>(
            test, "isequal(a, b)", [](F x, F y) { return x == y; }, a, b);
        ExpectMask<F>(
            test, "isnotequal(a, b)", [](F x, F y) { return x != y; }, a, b);
        ExpectMask<F>(
            test, "isgreater(a, b)", [](F x, F y) { return std::isgreater(x, y); }, a, b);
        ExpectMask<F>(
            test, "isgreaterequal(a, b)", [](F x, F y) { return std::isgreaterequal(x, y); }, a, b);
        ExpectMask<F>(
            test, "isless(a, b)", [](F x, F y) { return std::isless(x, y); }, a, b);
        ExpectMask<F>(
            test, "islessequal(a, b)", [](F x, F y) { return std::islessequal(x, y); }, a, b);
        ExpectMask<F>(
            test, "islessgreater(a, b)", [](F x, F y) { return std::islessgreater(x, y); }, a, b);
        ExpectMask<F>(
            test, "isordered(a, b)", [](F x, F y) { return !std::isunordered(x, y); }, a, b);
        ExpectMask<F>(
            test, "isunordered(a, b)", [](F x, F y) { return std::isunordered(x, y); }, a, b);
        ExpectMask<F>(
            test, "isfinite(a)", [](F x, F) { return std::isfinite(x); }, a, b);
        ExpectMask<F>(
            test, "isinf(a)", [](F x, F) { return std::isinf(x); }, a, b);
        ExpectMask<F>(
            test, "isnan(a)", [](F x, F) { return std::isnan(x); }, a, b);
        ExpectMask<F>(
            test, "isnormal(a)", [](F x, F) { return std::isnormal(x); }, a, b);
        ExpectMask<F>(
            test, "signbit(a)", [](F x, F) { return std::signbit(x); }, a, b);
        test.Run();
    }
}

/// In a vector, a condition's top bit counts; for a scalar, whether it is 0.
template <class T, class C>
void ExpectSelected(CElementwise& test, const std::vector<T>& vValues)
{
    const std::vector<C> vConditions = {0, 1, static_cast<C>(-1), static_cast<C>(C(1) << (sizeof(C) * 8 - 1)), 2};
    const auto [a, c] = Pairs(vValues, vConditions);
    const std::vector<T> b(a.rbegin(), a.rend());
    const auto Chosen = [](T x, T y, C z) { return (z >> (sizeof(C) * 8 - 1)) != 0 ? y : x; };
    const std::string strTopBit = std::string("select(a, b, (") + TypeName<C>() + ")(c >> (sizeof(c) * 8 - 1)))";
    test.Expect("select(a, b, c)", strTopBit, Mapped<T>(Chosen, a, b, c), a, b, c);
}

template <class T>
class TAll : public testing::Test
{
};

TYPED_TEST_SUITE(TAll, TAllTypes);

TYPED_TEST(TAll, AreSelected)
{
    using T = TypeParam;
    using U =
        std::tuple_element_t<sizeof(T) == 8 ? 3 : sizeof(T) / 2, std::tuple<uint8_t, uint16_t, uint32_t, uint64_t>>;
    std::vector<T> v;
    if constexpr (std::is_floating_point_v<T>)
    {
        v = SpecialFloats<T>();
    }
    else
    {
        v = SpecialIntegers<T>();
    }
    const auto [a, b] = Pairs(v, v);
    const std::vector<T> c(a.rbegin(), a.rend());
    const auto Mixed = [](T x, T y, T z)
    {
        const U bits = BitCast<U>(z);
        return BitCast<T>(static_cast<U>((BitCast<U>(x) & ~bits) | (BitCast<U>(y) & bits)));
    };
    for (const STestDevice& device : g_TestDevices)
    {
        CElementwise test(device);
        test.Expect("bitselect(a, b, c)", "", Mapped<T>(Mixed, a, b, c), a, b, c);
        ExpectSelected<T, U>(test, v);
        ExpectSelected<T, std::make_signed_t<U>>(test, v);
        test.Run();
    }
}

/// any and all for vectors with every pattern of top bits.
template <class T>
void ExpectJoined(COpenCLDevice& device)
{
    std::vector<T> v;
    for (unsigned n = 0; n < 65536; n += 7)
    {
        for (unsigned nBit = 0; nBit < 16; ++nBit)
        {
            v.push_back((n >> nBit) & 1 ? std::numeric_limits<T>::min() : std::numeric_limits<T>::max());
        }
    }
    v.resize(v.size() / 48 * 48);
    v.insert(v.end(), 48, T(-1));
    const CDeviceBuffer values = device.Buffer(v);
    for (const unsigned nSize : {1u, 2u, 3u, 4u, 8u, 16u})
    {
        const std::string strSize = nSize == 1 ? "" : std::to_string(nSize);
        const std::string strLoad = nSize == 1 ? "p[i]" : Joined({"vload", strSize, "(i, p)"});
        COpenCLProgram program(device, Joined({"kernel void k(global const ", TypeName<T>(),
                                               "* p, global int* r) { size_t i = get_global_id(0); r[i] = any(",
                                               strLoad, ") + 2 * all(", strLoad, "); }"}));
        const CDeviceBuffer result = device.Buffer(std::vector<int>(v.size() / nSize, 9));
        program.Run("k", {{v.size() / nSize}, {}, {}}, values, result);
        const std::vector<int> vResult = device.Read<int>(result);
        for (size_t i = 0; i < vResult.size(); ++i)
        {
            unsigned nSet = 0;
            for (size_t n = i * nSize; n < (i + 1) * nSize; ++n)
            {
                nSet += v[n] < 0;
            }
            ASSERT_EQ(vResult[i], (nSet != 0) + 2 * (nSet == nSize)) << TypeName<T>() << strSize << " at " << i;
        }
    }
}

TEST(RelationalBuiltins, AnyAndAllGoByTheTopBits)
{
    for (const STestDevice& testDevice : g_TestDevices)
    {
        COpenCLDevice device(testDevice.pszName);
        ExpectJoined<int8_t>(device);
        ExpectJoined<int16_t>(device);
        ExpectJoined<int32_t>(device);
        ExpectJoined<int64_t>(device);
    }
}

} // namespace
} // namespace KestrelTest
