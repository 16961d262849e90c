// Compares C expressions with what this file's compiler makes of the same text.

#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/Expression.h"
#include "tools/source/CNumbers.h"

#include <gtest/gtest.h>

#include <type_traits>

// The texts under test mix types, as the language allows.
// NOLINTBEGIN(bugprone-signed-char-misuse)
#pragma GCC diagnostic ignored "-Wsign-compare"
#pragma GCC diagnostic ignored "-Wparentheses"
#pragma GCC diagnostic ignored "-Wbool-compare"
#pragma GCC diagnostic ignored "-Wfloat-conversion"
#pragma GCC diagnostic ignored "-Wpsabi"

using namespace KestrelTool;

namespace
{

typedef unsigned char uchar;
typedef unsigned short ushort;
typedef unsigned int uint;
typedef unsigned long ulong;
typedef float float4 __attribute__((vector_size(16)));
typedef int int4 __attribute__((vector_size(16)));
typedef uchar uchar8 __attribute__((vector_size(8)));

/// Variables whose values the compiler can't assume. No signed operation on two of them overflows.
char c = -7;
uchar uc = 200;
short s = -300;
ushort us = 46000;
int i = -30000;
uint ui = 4000000000u;
long l = -1500000000;
ulong ul = 0xF234567890ABCDEFull;
float f = 2.6f;
double d = -1e10 / 3;
int three = 3;
float4 v = {1.5f, -2.25f, 3.0f, 1e9f};
float4 w = {0.5f, 7.0f, -3.0f, 1e9f};
int4 a = {1, -2, 300000, 7};
int4 b = {3, 2, -100, 7};
uchar8 bytes = {1, 250, 3, 128, 5, 6, 7, 255};
int numbers[5] = {10, -20, 30, -40, 50};
int* p = numbers + 1;
struct SPair
{
    char kind;
    struct
    {
        double weight;
        short counts[3];
    } more;
};
SPair pair = {'k', {2.5, {7, -8, 9}}};
SPair* q = &pair;

struct SKnown
{
    const char* pszName;
    const SSourceType* pType;
    const void* pBytes;
};

/// One work-item with the variables above, and this program's whole memory as its global memory.
class CHostVariables : public IValueSource
{
public:
    CHostVariables()
    {
        const auto scalar = [](const char* pszName) { return FindScalarType(pszName); };
        m_Counts = {SSourceType::Array, "short[3]", 6, 3, scalar("short"), {}};
        m_More = {
            SSourceType::Struct, "struct", 16, 0, nullptr, {{"weight", 0, scalar("double")}, {"counts", 8, &m_Counts}}};
        m_Pair = {SSourceType::Struct,
                  "SPair",
                  sizeof(SPair),
                  0,
                  nullptr,
                  {{"kind", 0, scalar("char")}, {"more", 8, &m_More}}};
        m_Numbers = {SSourceType::Array, "int[5]", 20, 5, scalar("int"), {}};
        const auto global = SSourceType::GlobalSpace;
        m_vKnown = {{"c", scalar("char"), &c},         {"uc", scalar("uchar"), &uc},
                    {"s", scalar("short"), &s},        {"us", scalar("ushort"), &us},
                    {"i", scalar("int"), &i},          {"ui", scalar("uint"), &ui},
                    {"l", scalar("long"), &l},         {"ul", scalar("ulong"), &ul},
                    {"f", scalar("float"), &f},        {"d", scalar("double"), &d},
                    {"three", scalar("int"), &three},  {"v", m_Types.Find("float4"), &v},
                    {"w", m_Types.Find("float4"), &w}, {"a", m_Types.Find("int4"), &a},
                    {"b", m_Types.Find("int4"), &b},   {"bytes", m_Types.Find("uchar8"), &bytes},
                    {"numbers", &m_Numbers, numbers},  {"p", &m_Types.MakePointer(*scalar("int"), global), &p},
                    {"pair", &m_Pair, &pair},          {"q", &m_Types.MakePointer(m_Pair, global), &q}};
    }

    std::optional<SSourceVariable> FindVariable(const std::string& strName, bool bHere) override
    {
        for (const SKnown& known : m_vKnown)
        {
            if (bHere && strName == known.pszName)
            {
                const auto* const pBytes = static_cast<const unsigned char*>(known.pBytes);
                SValuePiece piece{SValuePiece::Constant, known.pType->nSize, 0, {pBytes, pBytes + known.pType->nSize}};
                return SSourceVariable{strName, known.pType, false, 0, {piece}};
            }
        }
        return std::nullopt;
    }
    std::vector<SMemory> ListMemory(SSourceType::ESpace eSpace) override
    {
        const auto at = [](const void* pBytes) { return reinterpret_cast<uint64_t>(pBytes); };
        return eSpace == SSourceType::GlobalSpace
                   ? std::vector<SMemory>{{at(numbers), sizeof(numbers), 0}, {at(&pair), sizeof(pair), 1}}
                   : std::vector<SMemory>();
    }
    std::vector<unsigned char> ReadMemory(SSourceType::ESpace, const SMemory& memory, size_t, uint64_t nOffset,
                                          size_t nBytes) override
    {
        const auto* const pBytes = reinterpret_cast<const unsigned char*>(memory.nBase + nOffset);
        return {pBytes, pBytes + nBytes};
    }
    SRegisterView GetValues(const std::string& strRegister) override
    {
        throw CCommandError(strRegister + " has no value here");
    }
    SMaskView GetActive() override { return {}; }
    const SExtent& GetExtent() const override { return m_Extent; }
    size_t GetFocus() const override { return 0; }

private:
    CTypeStore m_Types;
    SExtent m_Extent;
    SSourceType m_Counts;
    SSourceType m_More;
    SSourceType m_Pair;
    SSourceType m_Numbers;
    std::vector<SKnown> m_vKnown;
};

/// Comparisons have type int in C and bool in C++.
template <typename T>
auto AsC(T value)
{
    if constexpr (std::is_same_v<T, bool>)
    {
        return static_cast<int>(value);
    }
    else
    {
        return value;
    }
}

template <typename T>
void Check(CHostVariables& variables, const char* pszText, T result)
{
    const auto expected = AsC(result);
    try
    {
        CExpression expression(pszText, &variables);
        expression.Bind(variables);
        const SSourceValue value = expression.Read(0);
        ASSERT_EQ(value.vBytes.size(), sizeof(expected)) << pszText << " as " << value.pType->strName;
        EXPECT_EQ(std::memcmp(value.vBytes.data(), &expected, sizeof(expected)), 0)
            << pszText << " is " << FormatValue(value, EFormat::Auto, nullptr) << ", " << value.pType->strName;
        if constexpr (std::is_arithmetic_v<decltype(expected)>)
        {
            EXPECT_EQ(IsFloating(*value.pType), std::is_floating_point_v<decltype(expected)>) << pszText;
            EXPECT_EQ(value.pType->eKind == SSourceType::Unsigned, std::is_unsigned_v<decltype(expected)>) << pszText;
        }
    }
    catch (const CCommandError& error)
    {
        ADD_FAILURE() << pszText << ": " << error.what();
    }
}

// clang-format off
#define CHECK_TEXT(expression) Check(variables, #expression, (expression))
#define CHECK_BESIDE(x, op, y) CHECK_TEXT(x op y);
#define CHECK_INTEGERS(x, op) \
    CHECK_BESIDE(x, op, c) CHECK_BESIDE(x, op, uc) CHECK_BESIDE(x, op, s) CHECK_BESIDE(x, op, us) \
    CHECK_BESIDE(x, op, i) CHECK_BESIDE(x, op, ui) CHECK_BESIDE(x, op, l) CHECK_BESIDE(x, op, ul)
#define CHECK_NUMBERS(x, op) CHECK_INTEGERS(x, op) CHECK_BESIDE(x, op, f) CHECK_BESIDE(x, op, d)
#define CHECK_ALL_INTEGERS(op) \
    CHECK_INTEGERS(c, op) CHECK_INTEGERS(uc, op) CHECK_INTEGERS(s, op) CHECK_INTEGERS(us, op) \
    CHECK_INTEGERS(i, op) CHECK_INTEGERS(ui, op) CHECK_INTEGERS(l, op) CHECK_INTEGERS(ul, op)
#define CHECK_ALL_NUMBERS(op) \
    CHECK_NUMBERS(c, op) CHECK_NUMBERS(uc, op) CHECK_NUMBERS(s, op) CHECK_NUMBERS(us, op) \
    CHECK_NUMBERS(i, op) CHECK_NUMBERS(ui, op) CHECK_NUMBERS(l, op) CHECK_NUMBERS(ul, op) \
    CHECK_NUMBERS(f, op) CHECK_NUMBERS(d, op)
// clang-format on

} // namespace

TEST(CExpressions, ConvertEachTypeBesideEachOtherAsTheCompilerDoes)
{
    CHostVariables variables;
    CHECK_ALL_NUMBERS(+)
    CHECK_ALL_NUMBERS(-)
    CHECK_ALL_NUMBERS(*)
    CHECK_ALL_NUMBERS(/)
    CHECK_ALL_NUMBERS(<)
    CHECK_ALL_NUMBERS(>=)
    CHECK_ALL_NUMBERS(==)
    CHECK_ALL_NUMBERS(!=)
    CHECK_ALL_NUMBERS(? l - 1 : three*)
    CHECK_ALL_INTEGERS(%)
    CHECK_ALL_INTEGERS(&)
    CHECK_ALL_INTEGERS(|)
    CHECK_ALL_INTEGERS(^)
    CHECK_ALL_INTEGERS(>> three * three |)
}

TEST(CExpressions, AreWhatTheCompilerMakesOfThem)
{
    CHostVariables variables;
    CHECK_TEXT(-c);
    CHECK_TEXT(-ui);
    CHECK_TEXT(~us);
    CHECK_TEXT(!f + !0);
    CHECK_TEXT(+s);
    CHECK_TEXT(us << 3);
    CHECK_TEXT(1u << 31);
    CHECK_TEXT(1L << 40 | 0xFFFFFFFF);
    CHECK_TEXT(2147483647);
    CHECK_TEXT(2147483648);
    CHECK_TEXT(0x80000000);
    CHECK_TEXT(017 + 1.5f);
    CHECK_TEXT((uchar)i);
    CHECK_TEXT((short)us * 2);
    CHECK_TEXT((unsigned int)c);
    CHECK_TEXT((long)f - (signed char)uc);
    CHECK_TEXT((float)ul);
    CHECK_TEXT((double)(float)d);
    CHECK_TEXT((int)-f % 2);
    CHECK_TEXT(sizeof(pair) + sizeof c + sizeof numbers[0]);
    CHECK_TEXT(i < 0 ? ui : l);
    CHECK_TEXT(i < 0 ? c : f < 2 ? s : 'k' - '\n');
    CHECK_TEXT(p[2] - numbers[three] * *p);
    CHECK_TEXT(*(p + three) + p[three - 1]);
    CHECK_TEXT(p + 1);
    CHECK_TEXT(&p[2] - p);
    CHECK_TEXT(!p || p != &p[-1] && p + 1 > p);
    CHECK_TEXT(pair.more.weight * pair.more.counts[1]);
    CHECK_TEXT(q->more.counts[three - 1] + (*q).kind + (&*q)->kind);
    CHECK_TEXT(*(short*)&q->more.counts[2]);
    CHECK_TEXT(p && *p < 0 ? *p : 0);
    CHECK_TEXT(v + w * v);
    CHECK_TEXT(v / 2 - 1.0f);
    CHECK_TEXT(v < w);
    CHECK_TEXT(a == b);
    CHECK_TEXT(a << b % 5 & 31);
    CHECK_TEXT(-a ^ ~b);
    CHECK_TEXT(bytes * bytes + bytes);
    CHECK_TEXT(v[three] == w[3]);
}

TEST(CExpressions, KnowWhatOnlyKernelsHave)
{
    const struct
    {
        const char* pszText;
        const char* pszResult;
    } cases[] = {
        {"v.xy", "(1.5, -2.25)"},
        {"v.wzyx.s0", "1e+09"},
        {"bytes.hi.odd", "(6, 255)"},
        {"bytes.s7 + bytes.even.y", "258"},
        {"(float4)(1, v.yz, 2)", "(1.0, -2.25, 3.0, 2.0)"},
        {"(float4)(1, v.yz, 2).zx", "(3.0, 1.0)"},
        {"-(float4)(1, v.yz, 2).y", "2.25"},
        {"(int4)(three)", "(3, 3, 3, 3)"},
        {"convert_int4(v * 2)", "(3, -4, 6, 2000000000)"},
        {"as_uint(1.0f)", "1065353216"},
        {"(half)0.1f * 3", "0.299805"}, // rounded to half in each step
        {"(half)65520", "inf"},
        {"dot(v.xy, w.xy)", "-15.0"},
        {"length((float2)(3, 4))", "5.0"},
        {"cross((float3)(1, 0, 0), (float3)(0, 1, 0))", "(0.0, 0.0, 1.0)"},
        {"clamp(i, -5, 5)", "-5"},
        {"min(uc, (uchar)100)", "100"},
        {"max(v, 0)", "(1.5, 0.0, 3.0, 1e+09)"},
        {"abs(s)", "300"},
        {"popcount(c)", "6"}, // of eight bits
        {"rotate((uchar)0x81, (uchar)1)", "3"},
        {"fma(f, 2, 1)", "6.2"},
        {"sqrt(v.z * 3)", "3.0"},
        {"isnan(v / 0 * 0)", "(-1, -1, -1, -1)"},
        {"get_global_size(0) + get_work_dim()", "2"},
        {"any get_global_id(0) == 0", "1"},
        {"f / 0 * 0 == f / 0 * 0", "0"}, // NaNs of variables compare as in C
        {"f / 0 * 0 == nan", "1"},
        {"three[0]", "in \"three[0]\", column 6: int has no elements"},
        {"numbers[three + 2]", "int[5] has no element 5"},
        {"numbers[5]", "in \"numbers[5]\", column 8: int[5] has no element 5"},
        {"&three", "three is in registers here, and has no address"},
        {"pair.size", "in \"pair.size\", column 5: SPair has no member size"},
        {"q.kind", "in \"q.kind\", column 2: SPair* has no member kind; it is a pointer, which -> follows"},
        {"v.q", "in \"v.q\", column 2: float4 has no component q"},
        {"v + a", "in \"v + a\", column 3: float4 and int4 don't go together; convert_float4() converts"},
        {"i + pair", "in \"i + pair\", column 3: an operator takes numbers, not SPair"},
        {"i % f", "in \"i % f\", column 3: % takes integers, not float"},
        {"*i", "in \"*i\", column 1: int is no pointer"},
        {"i = 3", "in \"i = 3\", column 3: values can't be set: each stop is computed anew from the launch"},
        {"sine(f)", "in \"sine(f)\", column 1: there is no function sine that expressions can call"},
        {"1 + fma(f)", "in \"1 + fma(f)\", column 5: fma takes 3 arguments"},
        {"nothing", "there is no nothing here, be it a variable, an argument or a register"},
    };
    CHostVariables variables;
    for (const auto& entry : cases)
    {
        std::string strResult;
        try
        {
            CExpression expression(entry.pszText, &variables);
            expression.Bind(variables);
            strResult = expression.Format(0, false);
        }
        catch (const CCommandError& error)
        {
            strResult = error.what();
        }
        EXPECT_EQ(strResult, entry.pszResult) << entry.pszText;
    }
}
// NOLINTEND(bugprone-signed-char-misuse)
