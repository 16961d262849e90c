#include "tests/platform/opencl_c/library/Elementwise.h"
#include "tests/platform/opencl_c/library/Floats.h"
#include "tests/platform/opencl_c/library/MathReference.h"

#include <algorithm>
#include <cstdlib>
#include <iomanip>
#include <map>
#include <mutex>

namespace KestrelTest
{
namespace
{

/// The number of random arguments of each kind for each function. KESTREL_BUILTIN_ROUNDS=200000 makes a long test.
size_t Rounds()
{
    const char* const pszRounds = std::getenv("KESTREL_BUILTIN_ROUNDS");
    return pszRounds != nullptr ? std::strtoul(pszRounds, nullptr, 10) : 500;
}

/// The largest errors by function, for float and double.
using TErrors = std::map<std::string, std::pair<double, double>>;

std::string Figure(double d, int nDigits)
{
    std::ostringstream text;
    text << std::setprecision(nDigits) << std::fixed << d;
    return text.str();
}

/// The table of measured errors for the documents: KESTREL_WRITE_ACCURACY names the file.
void WriteTable(const TErrors& errors)
{
    const char* const pszPath = std::getenv("KESTREL_WRITE_ACCURACY");
    if (pszPath == nullptr)
    {
        return;
    }
    const auto Cell = [](double dError, double dAllowed)
    {
        const std::string strAllowed = dAllowed < 0 ? "free" : (dAllowed == 0 ? "rounded" : Figure(dAllowed, 0));
        return std::isnan(dAllowed) ? std::string("| | ") : "| " + Figure(dError, 2) + " | " + strAllowed + " ";
    };
    std::ofstream file(pszPath);
    file << "| Function | float: measured | allowed | double: measured | allowed |\n|---|---|---|---|---|\n";
    for (const SMathFunction& function : MathFunctions())
    {
        const auto found = errors.find(function.pszName);
        if (found != errors.end())
        {
            file << "| `" << function.pszName << "` " << Cell(found->second.first, function.dAllowedFloat)
                 << Cell(found->second.second, function.dAllowedDouble) << "|\n";
        }
    }
}

template <class F>
bool IsSameNumber(F a, F b)
{
    return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b));
}

/// A kernel that calls a function for one vector size.
std::string MathKernel(const SMathFunction& function, const std::string& strType, unsigned nSize)
{
    const std::string strSize = nSize == 1 ? "" : std::to_string(nSize);
    const auto Load = [&](const char* pszFrom)
    { return nSize == 1 ? std::string(pszFrom) + "[i]" : "vload" + strSize + "(i, " + pszFrom + ")"; };
    const std::string strSecond = function.eShape == SMathFunction::OfInteger ? ", " + Load("n")
                                  : function.eShape == SMathFunction::Of2     ? ", " + Load("y")
                                                                              : "";
    const std::string strCall = std::string(function.pszName) + "(" + Load("x") + strSecond + ")";
    return "kernel void " + strType + strSize + "_(global const " + strType + "* x, global const " + strType +
           "* y, global const int* n, global " + strType + "* r) { size_t i = get_global_id(0); " +
           (nSize == 1 ? "r[i] = " + strCall : "vstore" + strSize + "(" + strCall + ", i, r)") + "; }\n";
}

/// Runs a function on a device and compares it with MPFR; every vector size must give the same bits.
/// \return the largest error in ulp
template <class F>
double TryFunction(const STestDevice& testDevice, COpenCLDevice& device, const SMathFunction& function)
{
    constexpr bool bDouble = sizeof(F) == 8;
    std::vector<double> vX;
    std::vector<double> vY;
    MakeArguments(function, bDouble, Rounds(), vX, vY);
    while (vX.size() % 48 != 0)
    {
        vX.push_back(vX[vX.size() / 2]);
        vY.push_back(vY[vY.size() / 2]);
    }
    std::vector<int32_t> vN(vX.size(), 0);
    if (function.eShape == SMathFunction::OfInteger)
    {
        std::copy(vY.begin(), vY.end(), vN.begin());
    }
    std::string strSource;
    for (const unsigned nSize : testDevice.vSizes)
    {
        strSource += MathKernel(function, TypeName<F>(), nSize);
    }
    COpenCLProgram program(device, strSource, testDevice.pszOptions);
    const CDeviceBuffer x = device.Buffer(std::vector<F>(vX.begin(), vX.end()));
    const CDeviceBuffer y = device.Buffer(std::vector<F>(vY.begin(), vY.end()));
    const CDeviceBuffer n = device.Buffer(vN);
    std::vector<F> vFirst;
    for (const unsigned nSize : testDevice.vSizes)
    {
        const CDeviceBuffer result = device.Buffer(std::vector<F>(vX.size(), F(77)));
        const std::string strKernel = TypeName<F>() + (nSize == 1 ? "" : std::to_string(nSize)) + "_";
        program.Run(strKernel, {{vX.size() / nSize}, {}, {}}, x, y, n, result);
        const std::vector<F> vResult = device.Read<F>(result);
        vFirst = vFirst.empty() ? vResult : vFirst;
        const auto wrong = std::mismatch(vResult.begin(), vResult.end(), vFirst.begin(), IsSameNumber<F>).first;
        EXPECT_EQ(wrong, vResult.end()) << function.pszName << " of vectors of " << nSize << ", element "
                                        << wrong - vResult.begin();
    }
    mpfr_t reference;
    mpfr_init2(reference, 300);
    double dWorst = 0;
    size_t nWrong = 0;
    for (size_t i = 0; i < vX.size(); ++i)
    {
        Reference(function, vX[i], vY[i], reference);
        dWorst = std::max(dWorst, ErrorInUlp(function, vFirst[i], reference, bDouble));
        if (!IsAllowed(function, vFirst[i], reference, bDouble) && nWrong++ < 3)
        {
            ADD_FAILURE() << function.pszName << " of " << TypeName<F>() << std::hexfloat << " " << vX[i] << " "
                          << vY[i] << ": " << vFirst[i] << " instead of " << mpfr_get_d(reference, MPFR_RNDN);
        }
    }
    mpfr_clear(reference);
    EXPECT_EQ(nWrong, 0u) << function.pszName;
    return dWorst;
}

class CMathFunctions : public testing::TestWithParam<STestDevice>
{
};

TEST_P(CMathFunctions, AreAsAccurateAsTheyMustBe)
{
    TErrors errors;
    COpenCLDevice device(GetParam().pszName);
    for (const SMathFunction& function : MathFunctions())
    {
        const double dFloat = TryFunction<float>(GetParam(), device, function);
        const double dDouble =
            std::isnan(function.dAllowedDouble) ? 0 : TryFunction<double>(GetParam(), device, function);
        errors[function.pszName] = {dFloat, dDouble};
    }
    WriteTable(errors);
}

INSTANTIATE_TEST_SUITE_P(OfDevices, CMathFunctions, testing::ValuesIn(g_TestDevices),
                         [](const auto& test) { return std::string(test.param.pszName); });

template <class F>
class TParts : public testing::Test
{
};

TYPED_TEST_SUITE(TParts, TFloatTypes);

/// The low seven bits of the quotient to nearest, with its sign.
template <class F>
int QuotientBits(F x, F y)
{
    if (!std::isfinite(x) || std::isnan(y) || y == 0)
    {
        return 0;
    }
    mpfr_t exact;
    mpfr_t divisor;
    mpfr_init2(exact, 64);
    mpfr_init2(divisor, 64);
    mpfr_set_d(exact, x, MPFR_RNDN);
    mpfr_set_d(divisor, y, MPFR_RNDN);
    long nQuotient = 0;
    mpfr_remquo(exact, &nQuotient, exact, divisor, MPFR_RNDN);
    mpfr_clear(exact);
    mpfr_clear(divisor);
    return static_cast<int>(nQuotient < 0 ? -(-nQuotient & 127) : nQuotient & 127);
}

/// A call that stores its second result through a pointer to a private variable.
std::string ByPointer(const std::string& strCall, const std::string& strType)
{
    return "({ " + strType + "$ p; " + strCall + "; })";
}

TYPED_TEST(TParts, ComeInTwoResults)
{
    using F = TypeParam;
    const std::string strF = TypeName<F>();
    const std::vector<F> v = SpecialFloats<F>();
    const auto [a, b] = Pairs(v, v);
    // Some products are subtracted again, so that only their rounding errors are left.
    std::vector<F> c(a.rbegin(), a.rend());
    for (size_t i = 0; i < c.size(); i += 3)
    {
        c[i] = -(a[i] * b[i]);
    }
    const std::vector<TUnsigned<F>> vCodes = {0, 1, 12345, 0x7FFFFF};
    const std::vector<F> vNoPoles = {F(0.5), F(3), F(-0.5), F(-1.5), F(-2.25), F(-3.75), F(1e10), F(-1e5 - 0.5)};
    const F largest = std::nextafter(F(1), F(0));
    const auto Fraction = [&](F x)
    {
        return std::isinf(x) ? std::copysign(F(0), x)
                             : (x == 0 ? x : (std::isnan(x) ? x : std::min(x - std::floor(x), largest)));
    };
    for (const STestDevice& device : g_TestDevices)
    {
        CElementwise test(device);
        test.Expect(ByPointer("fract(a, &p)", strF), "", Mapped<F>(Fraction, a), a);
        test.Expect(ByPointer("fract(a, &p); p", strF), "", Mapped<F>([](F x) { return std::floor(x); }, a), a);
        test.Expect(ByPointer("modf(a, &p)", strF), "",
                    Mapped<F>(
                        [](F x)
                        {
                            F n;
                            return std::modf(x, &n);
                        },
                        a),
                    a);
        test.Expect(ByPointer("modf(a, &p); p", strF), "", Mapped<F>([](F x) { return std::trunc(x); }, a), a);
        test.Expect(ByPointer("frexp(a, &p)", "int"), "",
                    Mapped<F>(
                        [](F x)
                        {
                            int n;
                            return std::frexp(x, &n);
                        },
                        a),
                    a);
        test.Expect(ByPointer("frexp(a, &p); p", "int"), "",
                    Mapped<int>(
                        [](F x)
                        {
                            int n = 0;
                            std::frexp(x, &n);
                            return std::isfinite(x) ? n : 0;
                        },
                        a),
                    a);
        test.Expect("ilogb(a)", "", Mapped<int>([](F x) { return std::isnan(x) ? INT32_MAX : std::ilogb(x); }, a), a);
        test.Expect("fma(a, b, c)", "", Mapped<F>([](F x, F y, F z) { return std::fma(x, y, z); }, a, b, c), a, b, c);
        test.Expect("mad(a, b, c)", "", Mapped<F>([](F x, F y, F z) { return F(x * y) + z; }, a, b, c), a, b, c);
        test.Expect("-isnan(nan(a))", "isnan(nan(a))", Mapped<TSigned<F>>([](TUnsigned<F>) { return 1; }, vCodes),
                    vCodes);
        test.Expect("nextafter(a, b)", "", Mapped<F>([](F x, F y) { return std::nextafter(x, y); }, a, b), a, b);
        const std::string strBoth =
            Joined({"({ ", strF, "$ p; ", strF,
                    "$ s = sincos(a, &p); (s == sin(a) || s != s) && (p == cos(a) || p != p); })"});
        test.Expect("-" + strBoth, strBoth, Mapped<TSigned<F>>([](F) { return 1; }, a), a);
        test.Expect(ByPointer("remquo(a, b, &p)", "int"), "",
                    Mapped<F>([](F x, F y) { return std::remainder(x, y); }, a, b), a, b);
        test.Expect(ByPointer("remquo(a, b, &p); p", "int"), "", Mapped<int>(QuotientBits<F>, a, b), a, b);
        test.Expect(ByPointer("lgamma_r(a, &p); p", "int"), "",
                    Mapped<int>(
                        [](F x)
                        {
                            int nSign = 0;
                            lgamma_r(x, &nSign);
                            return nSign;
                        },
                        vNoPoles),
                    vNoPoles);
        test.Run();
    }
}

/// The second result may go to global, local or private memory.
TEST(MathBuiltins, GiveResultsToAllAddressSpaces)
{
    const std::string strSource = R"(
#pragma OPENCL EXTENSION cl_khr_fp64 : enable
#define TRY(R, call) { R p; call(&p); call(l##R); call(g##R + i); if (any(p != *l##R) || any(p != g##R[i])) { ok[i] = __LINE__; } }
#define FRACT(p) fract(x, p)
#define MODF(p) modf(x, p)
#define SINCOS(p) sincos(x, p)
#define FREXP(p) frexp(x, p)
#define LGAMMA(p) lgamma_r(x, p)
#define REMQUO(p) remquo(x, (F)0.7, p)
kernel void k(global F* gF, global I* gI, local F* allF, local I* allI, global int* ok)
{
    size_t i = get_global_id(0);
    local F* lF = allF + get_local_id(0);
    local I* lI = allI + get_local_id(0);
    F x = gF[i];
    ok[i] = 0;
    TRY(F, FRACT)
    TRY(F, MODF)
    TRY(F, SINCOS)
    TRY(I, FREXP)
    TRY(I, LGAMMA)
    TRY(I, REMQUO)
}
)";
    for (const STestDevice& testDevice : g_TestDevices)
    {
        COpenCLDevice device(testDevice.pszName);
        for (const std::string strF : {"float2", "float3", "float4", "float8", "float16", "double2", "double3",
                                       "double4", "double8", "double16"})
        {
            const std::string strI = "int" + strF.substr(strF.find_first_of("0123456789"));
            COpenCLProgram program(device, strSource, Joined({"-DF=", strF, " -DI=", strI}));
            std::vector<double> vNumbers(16 * 8);
            for (size_t i = 0; i < vNumbers.size(); ++i)
            {
                vNumbers[i] = 0.37 * static_cast<double>(i) - 11;
            }
            const CDeviceBuffer numbers = strF[0] == 'f'
                                              ? device.Buffer(std::vector<float>(vNumbers.begin(), vNumbers.end()))
                                              : device.Buffer(vNumbers);
            const CDeviceBuffer integers = device.Buffer(std::vector<int>(vNumbers.size(), 0));
            const CDeviceBuffer lines = device.Buffer(std::vector<int>(8, -1));
            program.Run("k", {{8}, {8}, {}}, numbers, integers, SLocalBytes{8 * 128}, SLocalBytes{8 * 64}, lines);
            EXPECT_EQ(device.Read<int>(lines), std::vector<int>(8, 0)) << strF;
        }
    }
}

} // namespace
} // namespace KestrelTest
