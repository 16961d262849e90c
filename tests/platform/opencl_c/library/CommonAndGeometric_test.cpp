#include "tests/platform/opencl_c/library/Elementwise.h"
#include "tests/platform/opencl_c/library/Floats.h"

namespace KestrelTest
{
namespace
{

template <class F>
class TCommon : public testing::Test
{
};

TYPED_TEST_SUITE(TCommon, TFloatTypes);

/// OpenCL 1.2 defines these functions by formulas; their rounding is checked to a few units in the last place.
TYPED_TEST(TCommon, FunctionsAreRight)
{
    using F = TypeParam;
    const std::vector<F> v = {0, F(0.25), F(0.5), F(0.75),  1,        F(-0.25), -1,
                              3, F(-7.5), 100,    F(1e-30), F(-1e20), F(0.1)};
    const auto [a, b] = Pairs(v, v);
    const std::string strF = TypeName<F>();
    const auto Clamped = [](F x, F y, F z) { return std::fmin(std::fmax(x, y), z); };
    const auto Smooth = [&](F x)
    {
        const F t = Clamped((x - F(-1)) / (F(3) - F(-1)), 0, 1);
        return t * t * (3 - 2 * t);
    };
    for (const STestDevice& device : g_TestDevices)
    {
        CElementwise test(device);
        test.Expect("clamp(a, min(b, -b), max(b, -b)) + 0", "",
                    Mapped<F>([&](F x, F y) { return Clamped(x, -std::fabs(y), std::fabs(y)) + F(0); }, a, b), a, b);
        test.Expect("clamp(a, (F)-1, (F)2)", "", Mapped<F>([&](F x) { return Clamped(x, -1, 2); }, a), a);
        test.Expect("max(a, b)", "", Mapped<F>([](F x, F y) { return x < y ? y : x; }, a, b), a, b);
        test.Expect("min(a, b)", "", Mapped<F>([](F x, F y) { return y < x ? y : x; }, a, b), a, b);
        test.Expect("max(a, (F)0.5)", "", Mapped<F>([](F x) { return std::fmax(x, F(0.5)); }, a), a);
        test.Expect("min(a, (F)0.5)", "", Mapped<F>([](F x) { return std::fmin(x, F(0.5)); }, a), a);
        test.Expect("fmax(a, (F)0.5)", "", Mapped<F>([](F x) { return std::fmax(x, F(0.5)); }, a), a);
        test.Expect("fmin(a, (F)0.5)", "", Mapped<F>([](F x) { return std::fmin(x, F(0.5)); }, a), a);
        test.Expect("degrees(a)", "", Mapped<F>([](F x) { return x * F(57.29577951308232); }, a), a);
        test.Expect("radians(a)", "", Mapped<F>([](F x) { return x * F(0.017453292519943295); }, a), a);
        test.Expect("mix(a, b, a)", "", Mapped<F>([](F x, F y) { return x + (y - x) * x; }, a, b), a, b);
        test.Expect("mix(a, b, (F)0.25)", "", Mapped<F>([](F x, F y) { return x + (y - x) * F(0.25); }, a, b), a, b);
        test.Expect("step(a, b)", "", Mapped<F>([](F x, F y) { return y < x ? 0 : 1; }, a, b), a, b);
        test.Expect("step((F)0.5, a)", "", Mapped<F>([](F x) { return x < F(0.5) ? 0 : 1; }, a), a);
        test.Expect("smoothstep((F$)-1, (F$)3, a)", "smoothstep((F)-1, (F)3, a)", Mapped<F>(Smooth, a), a);
        test.Expect("smoothstep((F)-1, (F)3, a)", "", Mapped<F>(Smooth, a), a);
        test.Expect("sign(a)", "", Mapped<F>([](F x) { return x > 0 ? F(1) : (x < 0 ? F(-1) : x); }, a), a);
        std::string strTypes = "#pragma OPENCL EXTENSION cl_khr_fp64 : enable\n";
        for (const char* pszSize : {"", "2", "3", "4", "8", "16"})
        {
            strTypes += "typedef " + strF + pszSize + " F" + pszSize + ";\n";
        }
        test.Run(strTypes);
    }
}

/// Lengths and directions of vectors with components of any magnitude, against long double.
template <class F>
void ExpectLengths(COpenCLDevice& device, unsigned nSize)
{
    std::vector<F> v;
    const F numbers[] = {1,
                         -2,
                         3,
                         F(0.5),
                         F(1e18),
                         F(-3e-19),
                         F(1e30),
                         F(1e-30),
                         std::numeric_limits<F>::max() / 8,
                         std::numeric_limits<F>::min(),
                         0};
    for (size_t i = 0; i < 400; ++i)
    {
        const F scale = numbers[i % std::size(numbers)];
        v.push_back(i % 5 == 0 ? numbers[(i / 5) % std::size(numbers)] : scale * static_cast<F>(0.1 + 0.13 * (i % 7)));
    }
    const std::string strF = std::string(TypeName<F>()) + (nSize == 1 ? "" : std::to_string(nSize));
    const std::string strLoad = nSize == 1 ? "p[i]" : "vload" + std::to_string(nSize) + "(i, p)";
    const std::string strStore =
        nSize == 1 ? "d[i] = normalize(x)" : "vstore" + std::to_string(nSize) + "(normalize(x), i, d)";
    const std::string strT = TypeName<F>();
    COpenCLProgram program(device, "kernel void k(global const " + strT + "* p, global " + strT + "* l, global " +
                                       strT + "* d, global " + strT + "* w) { size_t i = get_global_id(0); " + strF +
                                       " x = " + strLoad + "; l[i] = length(x); " + strStore +
                                       "; w[i] = distance(x, -x); }");
    const size_t nCount = 96;
    const CDeviceBuffer lengths = device.Buffer(std::vector<F>(nCount));
    const CDeviceBuffer directions = device.Buffer(std::vector<F>(nCount * nSize));
    const CDeviceBuffer distances = device.Buffer(std::vector<F>(nCount));
    program.Run("k", {{nCount}, {}, {}}, device.Buffer(v), lengths, directions, distances);
    const std::vector<F> vLengths = device.Read<F>(lengths);
    const std::vector<F> vDirections = device.Read<F>(directions);
    const std::vector<F> vDistances = device.Read<F>(distances);
    const F few = 4 * std::numeric_limits<F>::epsilon();
    for (size_t i = 0; i < nCount; ++i)
    {
        long double squares = 0;
        for (size_t n = 0; n < nSize; ++n)
        {
            const long double x = v[i * nSize + n];
            squares += x * x;
        }
        const long double length = std::sqrt(squares);
        EXPECT_NEAR(squares == 0 ? 1 + vLengths[i] : vLengths[i] / length, 1, few) << strF << " " << i;
        EXPECT_NEAR(squares == 0 ? 2 + vDistances[i] : vDistances[i] / length, 2, 2 * few) << strF << " " << i;
        for (size_t n = 0; n < nSize; ++n)
        {
            const long double x = v[i * nSize + n];
            EXPECT_NEAR(vDirections[i * nSize + n], squares == 0 ? 0 : x / length, few) << strF << " " << i;
        }
    }
}

TEST(GeometricBuiltins, LengthsNeitherOverflowNorVanish)
{
    for (const STestDevice& testDevice : g_TestDevices)
    {
        COpenCLDevice device(testDevice.pszName);
        for (unsigned nSize = 1; nSize <= 4; ++nSize)
        {
            ExpectLengths<float>(device, nSize);
            ExpectLengths<double>(device, nSize);
        }
    }
}

TEST(GeometricBuiltins, ProductsAndQuickForms)
{
    const std::string strSource = R"(
kernel void k(global float* r, global double* d)
{
    float4 a = (float4)(1, -2, 3, 4), b = (float4)(5, 7, -11, 2);
    r[0] = dot(a, b);
    r[1] = dot(a.xyz, b.xyz);
    r[2] = dot(a.xy, b.xy);
    r[3] = dot(a.x, b.x);
    vstore4(cross(a, b), 1, r);
    vstore3(cross(a.xyz, b.xyz), 0, r + 8);
    r[11] = fast_length((float2)(3, 4));
    r[12] = fast_distance((float3)(1, 2, 3), (float3)(3, 4, 4));
    vstore2(fast_normalize((float2)(0, -8)), 0, r + 13);
    r[15] = normalize((float2)(INFINITY, 3)).x;
    double4 e = convert_double4(a), f = convert_double4(b);
    d[0] = dot(e, f);
    vstore4(cross(e, f), 0, d + 1);
}
)";
    for (const STestDevice& testDevice : g_TestDevices)
    {
        COpenCLDevice device(testDevice.pszName);
        COpenCLProgram program(device, strSource);
        const CDeviceBuffer floats = device.Buffer(std::vector<float>(16));
        const CDeviceBuffer doubles = device.Buffer(std::vector<double>(5));
        program.Run("k", {{1}, {1}, {}}, floats, doubles);
        EXPECT_EQ(device.Read<float>(floats),
                  (std::vector<float>{-34, -42, -9, 5, 1, 26, 17, 0, 1, 26, 17, 5, 3, 0, -1, 1}));
        EXPECT_EQ(device.Read<double>(doubles), (std::vector<double>{-34, 1, 26, 17, 0}));
    }
}

} // namespace
} // namespace KestrelTest
