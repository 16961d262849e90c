#include "tests/platform/opencl_c/library/Elementwise.h"
#include "tests/platform/opencl_c/library/Floats.h"

#include <algorithm>
#include <numeric>

#include <mpfr.h>

namespace KestrelTest
{
namespace
{

/// The half next to a number in a rounding direction, by counting steps of 2^-24 below 2^-14 and of 2^(e-10) above.
uint16_t HalfOf(double d, mpfr_rnd_t eRounding)
{
    const uint16_t nSign = std::signbit(d) ? 0x8000 : 0;
    if (std::isnan(d))
    {
        return 0x7E00;
    }
    if (std::isinf(d))
    {
        return nSign | 0x7C00;
    }
    const int nExponent = d == 0 ? -14 : std::max(std::ilogb(d), -14);
    mpfr_t steps;
    mpfr_init2(steps, 64);
    mpfr_set_d(steps, d, MPFR_RNDN);
    mpfr_mul_2si(steps, steps, 10 - nExponent, MPFR_RNDN);
    mpfr_rint(steps, steps, eRounding);
    const long nSteps = std::labs(mpfr_get_si(steps, MPFR_RNDN));
    mpfr_clear(steps);
    // The steps continue from one binade to the next; after the last one comes infinity.
    const long nBits = nSteps + (nExponent + 14) * 1024L;
    const bool bStays =
        eRounding == MPFR_RNDZ || (eRounding == MPFR_RNDU && nSign != 0) || (eRounding == MPFR_RNDD && nSign == 0);
    return static_cast<uint16_t>(nSign | std::min(nBits, bStays ? 0x7BFFL : 0x7C00L));
}

template <class F>
std::vector<F> NumbersForHalves()
{
    std::vector<F> v = SpecialFloats<F>();
    for (int n = -26; n <= 17; ++n)
    {
        const F power = std::ldexp(F(1), n);
        const F step = std::ldexp(F(1), std::max(n, -14) - 10);
        for (const F x :
             {power, power + step / 2, power + step * F(1.5), power + step / 4, power - step / 4, power - step / 2})
        {
            v.push_back(x);
            v.push_back(std::nextafter(x, F(0)));
            v.push_back(-std::nextafter(x, F(1e30)));
            v.push_back(-x);
        }
    }
    while (v.size() % 48 != 0)
    {
        v.push_back(F(65519.99));
    }
    return v;
}

struct SStoreRounding
{
    const char* pszSuffix;
    mpfr_rnd_t eRounding;
};

template <class F>
class THalves : public testing::Test
{
};

TYPED_TEST_SUITE(THalves, TFloatTypes);

TYPED_TEST(THalves, AreStoredRounded)
{
    using F = TypeParam;
    const std::vector<F> v = NumbersForHalves<F>();
    const SStoreRounding roundings[] = {
        {"", MPFR_RNDN}, {"_rte", MPFR_RNDN}, {"_rtz", MPFR_RNDZ}, {"_rtp", MPFR_RNDU}, {"_rtn", MPFR_RNDD}};
    for (const STestDevice& testDevice : g_TestDevices)
    {
        COpenCLDevice device(testDevice.pszName);
        const CDeviceBuffer numbers = device.Buffer(v);
        for (const SStoreRounding& rounding : roundings)
        {
            std::string strSource;
            const std::string strF = TypeName<F>();
            for (const std::string strSize : {"", "2", "3", "4", "8", "16"})
            {
                const std::string strLoad = strSize.empty() ? "x[i]" : Joined({"vload", strSize, "(i, x)"});
                const std::string_view function = strSize.empty() ? "vstore_half" : "vstorea_half";
                strSource += Joined({"kernel void k", strSize, "(global const ", strF,
                                     "* x, global half* r, global half* ra) { size_t i = get_global_id(0); vstore_half",
                                     strSize, rounding.pszSuffix, "(", strLoad, ", i, r); ", function, strSize,
                                     rounding.pszSuffix, "(", strLoad, ", i, ra); }\n"});
            }
            COpenCLProgram program(device, strSource);
            for (const size_t nSize : {1, 2, 3, 4, 8, 16})
            {
                const CDeviceBuffer packed = device.Buffer(std::vector<uint16_t>(v.size(), 0x1234));
                const CDeviceBuffer aligned = device.Buffer(std::vector<uint16_t>(v.size() * 4 / 3, 0x1234));
                program.Run("k" + (nSize == 1 ? "" : std::to_string(nSize)), {{v.size() / nSize}, {}, {}}, numbers,
                            packed, aligned);
                const std::vector<uint16_t> vPacked = device.Read<uint16_t>(packed);
                const std::vector<uint16_t> vAligned = device.Read<uint16_t>(aligned);
                const size_t nPitch = nSize == 3 ? 4 : nSize;
                for (size_t i = 0; i < v.size(); ++i)
                {
                    const uint16_t nHalf = HalfOf(v[i], rounding.eRounding);
                    const auto Alike = [&](uint16_t n)
                    { return n == nHalf || (std::isnan(v[i]) && (n & 0x7FFF) > 0x7C00); };
                    const uint16_t nAligned = vAligned[i / nSize * nPitch + i % nSize];
                    ASSERT_TRUE(Alike(vPacked[i]) && Alike(nAligned))
                        << strF << std::hexfloat << " " << v[i] << rounding.pszSuffix << " by " << nSize << ": "
                        << std::hex << vPacked[i] << " and " << nAligned << " instead of " << nHalf;
                }
            }
        }
    }
}

TEST(HalfBuiltins, EveryHalfIsRead)
{
    std::vector<uint16_t> vHalves(65536);
    std::iota(vHalves.begin(), vHalves.end(), 0);
    for (const STestDevice& testDevice : g_TestDevices)
    {
        COpenCLDevice device(testDevice.pszName);
        const CDeviceBuffer halves = device.Buffer(vHalves);
        for (const std::string strSize : {"", "2", "4", "8", "16"})
        {
            const size_t nSize = strSize.empty() ? 1 : std::stoul(strSize);
            const std::string strStore =
                strSize.empty() ? "r[I] = " : Joined({"*(global float", strSize, "*)(r + I * ", strSize, ") = "});
            const std::string_view function = strSize.empty() ? "vload_half" : "vloada_half";
            const std::string strSource =
                Joined({"kernel void k(global const half* h, global float* r, global float* s)",
                        "{ size_t I = get_global_id(0); ", strStore, "vload_half", strSize, "(I, h); r = s; ", strStore,
                        function, strSize, "(I, h); }"});
            COpenCLProgram program(device, strSource);
            const CDeviceBuffer packed = device.Buffer(std::vector<float>(65536));
            const CDeviceBuffer aligned = device.Buffer(std::vector<float>(65536));
            program.Run("k", {{65536 / nSize}, {}, {}}, halves, packed, aligned);
            const std::vector<float> vPacked = device.Read<float>(packed);
            const std::vector<float> vAligned = device.Read<float>(aligned);
            for (unsigned n = 0; n < 65536; ++n)
            {
                const int nExponent = (n >> 10) & 31;
                const float fraction = static_cast<float>(n & 1023);
                const float size = nExponent == 31  ? (fraction == 0 ? INFINITY : NAN)
                                   : nExponent == 0 ? std::ldexp(fraction, -24)
                                                    : std::ldexp(1024 + fraction, nExponent - 25);
                const float expected = (n & 0x8000) != 0 ? -size : size;
                for (const float f : {vPacked[n], vAligned[n]})
                {
                    ASSERT_TRUE((std::isnan(f) && std::isnan(expected)) || std::memcmp(&f, &expected, 4) == 0)
                        << std::hex << n;
                }
            }
        }
    }
}

template <class T>
class TMemory : public testing::Test
{
};

TYPED_TEST_SUITE(TMemory, TAllTypes);

/// Vectors are loaded and stored at unaligned places in all address spaces, without touching their neighbours.
TYPED_TEST(TMemory, VectorsAreLoadedAndStored)
{
    using T = TypeParam;
    const std::string strSource = R"(
#pragma OPENCL EXTENSION cl_khr_fp64 : enable
#define CAT_(a, b) a##b
#define CAT(a, b) CAT_(a, b)
kernel void k(global const T* x, constant T* c, local T* l, global T* r)
{
    T p[64], q[64];
    for (int i = 0; i < 64; ++i) { p[i] = x[i]; l[i] = 1; q[i] = 1; }
    CAT(vstore, N)(CAT(vload, N)(1, x + 1), 1, r + 1);
    CAT(vstore, N)(CAT(vload, N)(1, c + 1), 1, l + 1);
    CAT(vstore, N)(CAT(vload, N)(1, p + 1), 1, q + 1);
    CAT(vstore, N)(CAT(vload, N)(1, l + 1), 1, q + 1 + N);
    for (int i = 0; i < 64; ++i) { r[64 + i] = l[i]; r[128 + i] = q[i]; }
}
)";
    for (const STestDevice& testDevice : g_TestDevices)
    {
        COpenCLDevice device(testDevice.pszName);
        for (const size_t nSize : {2, 3, 4, 8, 16})
        {
            COpenCLProgram program(device, strSource,
                                   std::string("-DT=") + TypeName<T>() + " -DN=" + std::to_string(nSize));
            std::vector<T> v(64);
            std::iota(v.begin(), v.end(), T(10));
            std::vector<T> vExpected(192, 1);
            for (size_t i = 0; i < nSize; ++i)
            {
                const T value = v[1 + nSize + i];
                vExpected[1 + nSize + i] = value;
                vExpected[64 + 1 + nSize + i] = value;
                vExpected[128 + 1 + nSize + i] = value;
                vExpected[128 + 1 + 2 * nSize + i] = value;
            }
            const CDeviceBuffer numbers = device.Buffer(v);
            const CDeviceBuffer result = device.Buffer(std::vector<T>(192, 1));
            program.Run("k", {{1}, {1}, {}}, numbers, numbers, SLocalBytes{64 * sizeof(T)}, result);
            ASSERT_EQ(device.Read<T>(result), vExpected) << TypeName<T>() << nSize;
        }
    }
}

/// The low bits of a mask known only at run time select components.
TYPED_TEST(TMemory, ComponentsAreShuffled)
{
    using T = TypeParam;
    using U =
        std::tuple_element_t<sizeof(T) == 8 ? 3 : sizeof(T) / 2, std::tuple<uint8_t, uint16_t, uint32_t, uint64_t>>;
    for (const STestDevice& testDevice : g_TestDevices)
    {
        COpenCLDevice device(testDevice.pszName);
        for (const size_t nFrom : {2, 4, 8, 16})
        {
            std::string strSource;
            for (const size_t nTo : {2, 4, 8, 16})
            {
                const std::string strFrom = std::to_string(nFrom);
                const std::string strTo = std::to_string(nTo);
                strSource += Joined({"kernel void k", strTo, "(global const T* x, global const U* m, global T* r) { U",
                                     strTo, " mask = vload", strTo, "(get_global_id(0), m); T", strFrom, " a = vload",
                                     strFrom, "(0, x), b = vload", strFrom, "(1, x); vstore", strTo,
                                     "(shuffle(a, mask), get_global_id(0), r); vstore", strTo,
                                     "(shuffle2(a, b, mask), get_global_id(0), r + 64); }\n"});
            }
            std::string strTypes;
            for (const std::string strSize : {"2", "4", "8", "16"})
            {
                strTypes += Joined({"typedef ", TypeName<T>(), strSize, " T", strSize, "; typedef ", TypeName<U>(),
                                    strSize, " U", strSize, ";\n"});
            }
            COpenCLProgram program(device, strTypes + strSource,
                                   Joined({"-DT=", TypeName<T>(), " -DU=", TypeName<U>()}));
            std::vector<T> vX(32);
            std::iota(vX.begin(), vX.end(), T(50));
            std::vector<U> vMask(64);
            std::vector<T> vExpected(128);
            for (size_t i = 0; i < vMask.size(); ++i)
            {
                vMask[i] = static_cast<U>(i * 37 + i / 3);
                vExpected[i] = vX[vMask[i] % nFrom];
                vExpected[64 + i] = vX[vMask[i] % (2 * nFrom)];
            }
            for (const size_t nTo : {2, 4, 8, 16})
            {
                const CDeviceBuffer result = device.Buffer(std::vector<T>(128));
                program.Run("k" + std::to_string(nTo), {{64 / nTo}, {}, {}}, device.Buffer(vX), device.Buffer(vMask),
                            result);
                ASSERT_EQ(device.Read<T>(result), vExpected) << TypeName<T>() << " from " << nFrom << " to " << nTo;
            }
        }
    }
}

/// A group copies to local memory and back, in one piece and with strides.
TYPED_TEST(TMemory, GroupsCopy)
{
    using T = TypeParam;
    const std::string strSource = R"(
#pragma OPENCL EXTENSION cl_khr_fp64 : enable
kernel void k(global const V* x, local V* l, global V* r, global V* s)
{
    size_t g = get_group_id(1);
    prefetch(x + g * 20, 20);
    event_t e = async_work_group_copy(l, x + g * 20, 20, 0);
    wait_group_events(1, &e);
    size_t i = get_local_id(0) + get_local_id(1) * get_local_size(0);
    V seen = l[19 - i];
    barrier(CLK_LOCAL_MEM_FENCE);
    l[i] = seen;
    barrier(CLK_LOCAL_MEM_FENCE);
    e = async_work_group_copy(r + g * 20, l, 20, 0);
    e = async_work_group_strided_copy(s + g * 40, l, 10, 4, e);
    wait_group_events(1, &e);
    e = async_work_group_strided_copy(l, x + g * 20, 7, 3, 0);
    wait_group_events(1, &e);
    if (i < 7) { s[g * 40 + 4 * i + 1] = l[i]; }
}
)";
    for (const STestDevice& testDevice : g_TestDevices)
    {
        COpenCLDevice device(testDevice.pszName);
        for (const size_t nSize : {1, 2, 4, 16})
        {
            COpenCLProgram program(device, strSource,
                                   std::string("-DV=") + TypeName<T>() + (nSize == 1 ? "" : std::to_string(nSize)));
            std::vector<T> v(40 * nSize);
            std::iota(v.begin(), v.end(), T(0));
            std::vector<T> vBack(40 * nSize);
            std::vector<T> vStrided(80 * nSize, T(9));
            for (size_t i = 0; i < v.size(); ++i)
            {
                const size_t nElement = i / nSize % 20;
                const size_t nGroup = i / nSize / 20;
                vBack[(nGroup * 20 + 19 - nElement) * nSize + i % nSize] = v[i];
                if (nElement >= 10)
                {
                    vStrided[(nGroup * 40 + 4 * (19 - nElement)) * nSize + i % nSize] = v[i];
                }
                if (nElement % 3 == 0)
                {
                    vStrided[(nGroup * 40 + 4 * (nElement / 3) + 1) * nSize + i % nSize] = v[i];
                }
            }
            const CDeviceBuffer back = device.Buffer(std::vector<T>(v.size()));
            const CDeviceBuffer strided = device.Buffer(std::vector<T>(2 * v.size(), T(9)));
            program.Run("k", {{10, 4}, {10, 2}, {}}, device.Buffer(v), SLocalBytes{20 * nSize * sizeof(T)}, back,
                        strided);
            ASSERT_EQ(device.Read<T>(back), vBack) << TypeName<T>() << nSize;
            ASSERT_EQ(device.Read<T>(strided), vStrided) << TypeName<T>() << nSize;
        }
    }
}

/// All work-items of a group apply each function to one word of global and of local memory. Checks the last value, and
/// that each old value was seen as often as it must be.
TEST(AtomicBuiltins, ChangeWordsOnce)
{
    struct SCase
    {
        const char* pszCall;
        uint32_t nBefore;
        uint32_t nAfter;         ///< for int; for xchg, the sum of all old values and the last one
        uint32_t nAfterUnsigned; ///< of uint
        uint64_t nSumOfOld;      ///< 0 where it depends on the order
    };
    // 64 work-items; i is the id.
    const SCase cases[] = {
        {"add(p, (T)3)", 5, 197, 197, 64 * 5 + 3 * 2016},
        {"sub(p, (T)3)", 500, 308, 308, 64 * 500 - 3 * 2016},
        {"inc(p)", 7, 71, 71, 64 * 7 + 2016},
        {"dec(p)", 100, 36, 36, 64 * 100 - 2016},
        {"and(p, (T)~(1 << (i & 7)))", 0xFFFF, 0xFF00, 0xFF00, 0},
        {"or(p, (T)(1 << (i & 15)))", 0, 0xFFFF, 0xFFFF, 0},
        {"xor(p, (T)(1 << (i & 31)))", 0x1234, 0x1234, 0x1234, 0},
        {"min(p, (T)(40 - i))", 90, static_cast<uint32_t>(-23), 0, 0},
        {"max(p, (T)(i - 40))", 3, 23, 0xFFFFFFFF, 0},
        {"cmpxchg(p, (T)9, (T)77)", 9, 77, 77, 9 + 63 * 77},
        {"xchg(p, (T)i)", 64, 64 + 2016, 64 + 2016, 0},
    };
    const std::string strSource = R"(
kernel void k(global T* g, global T* old)
{
    local T word;
    volatile local T* l = &word;
    int i = get_local_id(0);
    if (i == 0) { word = g[0]; }
    barrier(CLK_LOCAL_MEM_FENCE);
    { volatile global T* p = g; old[i] = CALL; }
    { volatile local T* p = l; old[64 + i] = CALL; }
    barrier(CLK_LOCAL_MEM_FENCE | CLK_GLOBAL_MEM_FENCE);
    if (i == 0) { g[1] = word; }
}
)";
    for (const STestDevice& testDevice : g_TestDevices)
    {
        COpenCLDevice device(testDevice.pszName);
        for (const SCase& entry : cases)
        {
            for (const std::string strPrefix : {"atomic_", "atom_"})
            {
                for (const bool bSigned : {false, true})
                {
                    const std::string strWhat = Joined({strPrefix, entry.pszCall, bSigned ? " of int" : " of uint"});
                    COpenCLProgram program(device, Joined({"#define T ", bSigned ? "int" : "uint", "\n#define CALL ",
                                                           strPrefix, entry.pszCall, "\n", strSource}));
                    const CDeviceBuffer words = device.Buffer(std::vector<uint32_t>{entry.nBefore, 0});
                    const CDeviceBuffer old = device.Buffer(std::vector<uint32_t>(128));
                    program.Run("k", {{64}, {64}, {}}, words, old);
                    std::vector<uint32_t> vWords = device.Read<uint32_t>(words);
                    const std::vector<uint32_t> vOld = device.Read<uint32_t>(old);
                    if (std::string_view(entry.pszCall).substr(0, 4) == "xchg")
                    {
                        // Every stored value comes out again, except the last one.
                        vWords[0] = std::accumulate(vOld.begin(), vOld.begin() + 64, vWords[0]);
                        vWords[1] = std::accumulate(vOld.begin() + 64, vOld.end(), vWords[1]);
                    }
                    const uint32_t nAfter = bSigned ? entry.nAfter : entry.nAfterUnsigned;
                    EXPECT_EQ(vWords, (std::vector<uint32_t>{nAfter, nAfter})) << strWhat;
                    if (entry.nSumOfOld != 0)
                    {
                        EXPECT_EQ(std::accumulate(vOld.begin(), vOld.begin() + 64, uint64_t(0)), entry.nSumOfOld)
                            << strWhat;
                        EXPECT_EQ(std::accumulate(vOld.begin() + 64, vOld.end(), uint64_t(0)), entry.nSumOfOld)
                            << strWhat;
                    }
                }
            }
        }
    }
}

TEST(AtomicBuiltins, FloatsAreExchanged)
{
    for (const STestDevice& testDevice : g_TestDevices)
    {
        COpenCLDevice device(testDevice.pszName);
        COpenCLProgram program(
            device, "kernel void k(global float* g) { local float l; l = 2.5f; g[1] = atomic_xchg(g, 1.5f); g[2] = "
                    "atomic_xchg(&l, -0.5f); g[3] = l; }");
        const CDeviceBuffer words = device.Buffer(std::vector<float>{7, 0, 0, 0});
        program.Run("k", {{1}, {1}, {}}, words);
        EXPECT_EQ(device.Read<float>(words), (std::vector<float>{1.5f, 7, 2.5f, -0.5f}));
    }
}

/// All functions in all dimensions, in three dimensions with an offset, and beyond the last dimension.
TEST(WorkItemBuiltins, SayWhereAWorkItemIs)
{
    const std::string strSource = R"(
kernel void k(global uint* r, uint d)
{
    size_t i = get_global_id(0) - get_global_offset(0) + get_global_size(0) * (get_global_id(1) - get_global_offset(1) + get_global_size(1) * (get_global_id(2) - get_global_offset(2)));
    r += i * 9;
    r[0] = get_work_dim();
    r[1] = get_global_size(d);
    r[2] = get_global_id(d);
    r[3] = get_local_size(d);
    r[4] = get_local_id(d);
    r[5] = get_num_groups(d);
    r[6] = get_group_id(d);
    r[7] = get_global_offset(d);
    r[8] = vec_step(uint3);
}
)";
    for (const STestDevice& testDevice : g_TestDevices)
    {
        COpenCLDevice device(testDevice.pszName);
        COpenCLProgram program(device, strSource);
        const std::vector<size_t> vGlobal = {6, 4, 2};
        const std::vector<size_t> vLocal = {3, 2, 1};
        const std::vector<size_t> vOffset = {5, 7, 11};
        for (cl_uint nDimension = 0; nDimension < 4; ++nDimension)
        {
            const CDeviceBuffer result = device.Buffer(std::vector<uint32_t>(48 * 9));
            program.Run("k", {vGlobal, vLocal, vOffset}, result, nDimension);
            const std::vector<uint32_t> vResult = device.Read<uint32_t>(result);
            for (size_t i = 0; i < 48; ++i)
            {
                const size_t places[] = {i % 6, i / 6 % 4, i / 24};
                const bool bNone = nDimension == 3;
                const size_t n = bNone ? 0 : places[nDimension];
                const size_t nLocal = bNone ? 1 : vLocal[nDimension];
                const size_t nGlobal = bNone ? 1 : vGlobal[nDimension];
                const size_t nOffset = bNone ? 0 : vOffset[nDimension];
                const std::vector<uint32_t> vSeen(vResult.begin() + static_cast<long>(i) * 9,
                                                  vResult.begin() + static_cast<long>(i) * 9 + 9);
                const std::vector<size_t> vExpected = {
                    3, nGlobal, n + nOffset, nLocal, n % nLocal, nGlobal / nLocal, n / nLocal, nOffset, 4};
                ASSERT_EQ(std::vector<size_t>(vSeen.begin(), vSeen.end()), vExpected)
                    << testDevice.pszName << " " << nDimension << " " << i;
            }
        }
    }
}

} // namespace
} // namespace KestrelTest
