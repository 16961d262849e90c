#include "tests/platform/opencl_c/lowering/EachWay.h"

#include <cmath>
#include <cstring>
#include <random>

using namespace KestrelTest;

// The expressions under test mix types, as both languages allow.
#pragma GCC diagnostic ignored "-Wfloat-conversion"

namespace
{

/// An expression of two numbers that means the same in C and in OpenCL C.
struct SCase
{
    const char* pszType;
    const char* pszResult;
    const char* pszExpression;
    size_t nSize;
    size_t nResultSize;
    void (*pfnHost)(const void* pA, const void* pB, void* pResult);
};

#define CASE(T, R, ...)                                                                                                \
    {                                                                                                                  \
#T, #R, #__VA_ARGS__, sizeof(T), sizeof(R), [](const void* pA, const void* pB, void* pResult)                  \
        {                                                                                                              \
            T a, b;                                                                                                    \
            std::memcpy(&a, pA, sizeof a);                                                                             \
            std::memcpy(&b, pB, sizeof b);                                                                             \
            const R r = static_cast<R>(__VA_ARGS__);                                                                   \
            std::memcpy(pResult, &r, sizeof r);                                                                        \
        }       \
    }

/// Expressions that never overflow: the arithmetic uses U, the unsigned type of the same width as T.
#define INTEGER_CASES(T, U)                                                                                            \
    CASE(T, T, (U)a + (U)b), CASE(T, T, (U)a - (U)b), CASE(T, T, (U)((uint)(U)a * (ulong)(U)b)), CASE(T, T, a& b),     \
        CASE(T, T, a | b), CASE(T, T, a ^ b), CASE(T, T, ~a), CASE(T, T, (U)a << (b & 7)), CASE(T, T, a >> (b & 7)),   \
        CASE(T, T, (U)a >> (b & 7)), CASE(T, T, b == 0 ? 1 : (U)a / (U)b), CASE(T, T, b == 0 ? 1 : (U)a % (U)b),       \
        CASE(T, T, b == 0 || b == (T) ~(T)0 ? 1 : a / b), CASE(T, T, b == 0 || b == (T) ~(T)0 ? 1 : a % b),            \
        CASE(T, int, a < b), CASE(T, int, a <= b), CASE(T, int, a > b), CASE(T, int, a >= b), CASE(T, int, a == b),    \
        CASE(T, int, a != b), CASE(T, int, !a), CASE(T, int, a&& b), CASE(T, int, a || b), CASE(T, T, a > b ? a : b),  \
        CASE(T, char, a), CASE(T, uchar, a), CASE(T, short, a), CASE(T, ushort, a), CASE(T, int, a), CASE(T, uint, a), \
        CASE(T, long, a), CASE(T, ulong, a), CASE(T, float, a), CASE(T, double, a), CASE(T, T, (U)((U)a * 3 + 5) / 7), \
        CASE(T, T, (T)(a / 3)), CASE(T, T, (T)(a % 10)), CASE(T, T, ((U)a << 3 | (U)a >> (sizeof(U) * 8 - 3)))

#define FLOAT_CASES(T)                                                                                                 \
    CASE(T, T, a + b), CASE(T, T, a - b), CASE(T, T, a* b), CASE(T, T, a / b), CASE(T, T, -a), CASE(T, int, a < b),    \
        CASE(T, int, a <= b), CASE(T, int, a > b), CASE(T, int, a >= b), CASE(T, int, a == b), CASE(T, int, a != b),   \
        CASE(T, int, !(a < b)), CASE(T, int, !(a >= b)), CASE(T, int, a&& b), CASE(T, T, a < b ? a : b),               \
        CASE(T, float, a), CASE(T, double, a), CASE(T, int, a > (T)-2e9 && a < (T)2e9 ? (int)a : 7),                   \
        CASE(T, uint, a > (T)-1 && a < (T)4e9 ? (uint)a : 7),                                                          \
        CASE(T, long, a > (T)-9e18 && a < (T)9e18 ? (long)a : 7),                                                      \
        CASE(T, ulong, a > (T)-1 && a < (T)18e18 ? (ulong)a : 7),                                                      \
        CASE(T, char, a > (T)-100 && a < (T)100 ? (char)a : 7), CASE(T, ushort, a >= 0 && a < (T)6e4 ? (ushort)a : 7), \
        CASE(T, int, (a < b) + 2 * (a > b) + 4 * (a == b) + 8 * !(a <= b))

const SCase s_Cases[] = {
    INTEGER_CASES(char, uchar),
    INTEGER_CASES(uchar, uchar),
    INTEGER_CASES(short, ushort),
    INTEGER_CASES(ushort, ushort),
    INTEGER_CASES(int, uint),
    INTEGER_CASES(uint, uint),
    INTEGER_CASES(long, ulong),
    INTEGER_CASES(ulong, ulong),
    FLOAT_CASES(float),
    FLOAT_CASES(double),
    // The integer widths that the compiler's passes make of these.
    CASE(ulong, ulong, (a >> 24 & 0xFFFFFF) * 3 + (b & 0x1FFFFFFFFul)),
    CASE(uint, uint, (a & 0xFFFFFF) * (b & 0xFFFFFF) >> 8),
    CASE(ulong, uint, (uint)(a >> 33) ^ (uint)(b << 7)),
    CASE(int, long, (long)a* b),
    CASE(uint, ulong, (ulong)a* b + a),
    CASE(uint, uint, (uint)(((ulong)a * b) >> 32)),
    CASE(int, int, (int)(((long)a * b) >> 32)),
    CASE(uint, uint, (a >> 24) | ((a >> 8) & 0xFF00) | ((a << 8) & 0xFF0000) | (a << 24)),
    CASE(int, int, a < 0 ? (int)(0u - (uint)a) : a),
    CASE(short, int, a* b),
    CASE(char, char, (char)(a / (b | 1))),
    // Conditions as numbers.
    CASE(int, float, (float)(a < b) + 2 * (float)-(a == b)),
    CASE(ulong, double, (double)(a < b) - (double)(a > b)),
};

const size_t s_nBytes = 4096; ///< for each operand

/// Bytes that include special numbers of each kind.
std::vector<uchar> Operands(uint nSeed)
{
    std::mt19937 random(nSeed);
    std::vector<uchar> vBytes(s_nBytes);
    for (uchar& byte : vBytes)
    {
        byte = static_cast<uchar>(random());
    }
    const uint words[] = {0,          1,          0xFFFFFFFF, 0x80000000, 0x7FFFFFFF, 0x3F800000,
                          0xBF800000, 0x7F800000, 0xFF800000, 0x7FC00000, 0x00000001, 0x007FFFFF,
                          0x00800000, 0x4F000000, 0x42280000, 0xC2280000};
    for (size_t n = 0; n < 512; ++n)
    {
        std::memcpy(&vBytes[n * 4], &words[random() % std::size(words)], 4);
    }
    for (size_t n = 0; n < 128; ++n)
    {
        const double dValue =
            std::ldexp(static_cast<double>(static_cast<int>(random())), static_cast<int>(random() % 40) - 31);
        std::memcpy(&vBytes[2048 + n * 8], &dValue, 8);
    }
    return vBytes;
}

std::string SourceOf(const std::vector<const SCase*>& vCases)
{
    std::string strSource = "#pragma OPENCL EXTENSION cl_khr_fp64 : enable\n";
    for (size_t n = 0; n < vCases.size(); ++n)
    {
        const SCase& each = *vCases[n];
        const std::string strType = each.pszType;
        strSource += "__kernel void k" + std::to_string(n) + "(__global const " + strType + "* pA, __global const " +
                     strType + "* pB, __global " + each.pszResult + "* pR)\n{\n    size_t i = get_global_id(0);\n    " +
                     strType + " a = pA[i];\n    " + strType + " b = pB[i];\n    pR[i] = (" + each.pszResult + ")(" +
                     each.pszExpression + ");\n}\n";
    }
    return strSource;
}

/// NaNs have many encodings; which one results doesn't matter.
bool Same(const SCase& each, const uchar* pA, const uchar* pB)
{
    if (std::string(each.pszResult) == "float" || std::string(each.pszResult) == "double")
    {
        float f[2];
        double d[2];
        const bool bFloat = each.nResultSize == 4;
        std::memcpy(&f[0], pA, 4);
        std::memcpy(&f[1], pB, 4);
        if (!bFloat)
        {
            std::memcpy(&d[0], pA, 8);
            std::memcpy(&d[1], pB, 8);
        }
        if (bFloat ? std::isnan(f[0]) && std::isnan(f[1]) : std::isnan(d[0]) && std::isnan(d[1]))
        {
            return true;
        }
    }
    return std::memcmp(pA, pB, each.nResultSize) == 0;
}

} // namespace

TEST(LoweringValues, EveryOperationGivesWhatCGivesForEveryType)
{
    const std::vector<uchar> vA = Operands(1);
    const std::vector<uchar> vB = Operands(2);
    std::vector<const SCase*> vCases;
    for (const SCase& each : s_Cases)
    {
        vCases.push_back(&each);
    }
    EachWay(
        [&](COpenCLDevice& device, const std::string& strOptions)
        {
            COpenCLProgram program(device, SourceOf(vCases), strOptions);
            const CDeviceBuffer a = device.Buffer(vA);
            const CDeviceBuffer b = device.Buffer(vB);
            for (size_t n = 0; n < vCases.size(); ++n)
            {
                const SCase& each = *vCases[n];
                const size_t nItems = s_nBytes / each.nSize;
                const CDeviceBuffer result = device.Buffer(std::vector<uchar>(nItems * each.nResultSize));
                program.Run("k" + std::to_string(n), {{nItems}, {}, {}}, a, b, result);
                const std::vector<uchar> vResult = device.Read<uchar>(result);
                size_t nWrong = 0;
                for (size_t i = 0; i < nItems; ++i)
                {
                    uchar expected[8] = {};
                    each.pfnHost(&vA[i * each.nSize], &vB[i * each.nSize], expected);
                    const uchar* const pActual = &vResult[i * each.nResultSize];
                    if (!Same(each, expected, pActual) && nWrong++ == 0)
                    {
                        const auto Hex = [](const uchar* p, size_t nSize)
                        {
                            ulong nValue = 0;
                            std::memcpy(&nValue, p, nSize);
                            char text[32];
                            std::snprintf(text, sizeof text, "0x%lx", nValue);
                            return std::string(text);
                        };
                        ADD_FAILURE() << each.pszType << " to " << each.pszResult << ": " << each.pszExpression
                                      << " of " << Hex(&vA[i * each.nSize], each.nSize) << " and "
                                      << Hex(&vB[i * each.nSize], each.nSize) << " gave "
                                      << Hex(pActual, each.nResultSize) << ", not " << Hex(expected, each.nResultSize);
                    }
                }
            }
        });
}
