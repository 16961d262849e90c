#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/Expression.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>

using namespace KestrelTool;

namespace
{

uint32_t Bits(float fValue)
{
    uint32_t nBits;
    std::memcpy(&nBits, &fValue, sizeof(nBits));
    return nBits;
}

/// Six work-items in two rows of three, groups of three; r1 holds their index as int in x, as float in y,
/// 1.5 as a double in zw; r2.x is a NaN for the last one.
class CSixItems : public IValueSource
{
public:
    CSixItems()
    {
        m_Extent.nDimensions = 2;
        m_Extent.nGlobal[0] = 3;
        m_Extent.nGlobal[1] = 2;
        m_Extent.nLocal[0] = 3;
        for (unsigned int i = 0; i < 6; ++i)
        {
            m_vR1.insert(m_vR1.end(), {i, Bits(static_cast<float>(i)), 0, 0x3FF80000});
            const float fNaN = std::numeric_limits<float>::quiet_NaN();
            m_vR2.insert(m_vR2.end(), {i == 5 ? Bits(fNaN) : Bits(0.5f), 0xFFFFFFFF, 0xFFFFFFFE, 0xFFFFFFFF});
        }
    }

    SRegisterView GetValues(const std::string& strRegister) override
    {
        if (strRegister != "r1" && strRegister != "r2")
        {
            throw CCommandError(strRegister + " has no value here");
        }
        SRegisterView view;
        view.pWords = strRegister == "r1" ? m_vR1.data() : m_vR2.data();
        view.nItems = 6;
        return view;
    }
    SMaskView GetActive() override
    {
        SMaskView mask;
        mask.pActive = m_Active;
        mask.nItems = 6;
        return mask;
    }
    const SExtent& GetExtent() const override { return m_Extent; }
    /// "squares" are six ints, "halves" two floats, "group" three bytes of each group, "step" one unsigned value.
    std::optional<SElements> FindElements(const std::string& strName) override
    {
        const struct
        {
            const char* pszName;
            const char* pszType;
            uint64_t nCount;
        } known[] = {{"squares", "i32", 6}, {"halves", "f32", 2}, {"group", "u8", 3}, {"step", "u64", 1}};
        for (size_t i = 0; i < 4; ++i)
        {
            if (strName == known[i].pszName)
            {
                return SElements{strName, FindElementType(known[i].pszType), known[i].nCount, i == 2, i == 3, i};
            }
        }
        return std::nullopt;
    }
    std::vector<unsigned char> ReadElements(const SElements& elements, size_t nGroup, uint64_t nOffset,
                                            size_t nBytes) override
    {
        std::vector<unsigned char> vBytes(elements.GetBytes());
        for (size_t i = 0; i < elements.nCount; ++i)
        {
            const double values[] = {static_cast<double>(i * i), static_cast<double>(i) / 2,
                                     static_cast<double>(100 * nGroup + i), 0xFFFFFFFF};
            StoreElement(*elements.pType, values[elements.nPlace], &vBytes[i * elements.pType->nSize]);
        }
        return std::vector<unsigned char>(vBytes.begin() + static_cast<std::ptrdiff_t>(nOffset),
                                          vBytes.begin() + static_cast<std::ptrdiff_t>(nOffset + nBytes));
    }
    size_t GetFocus() const override { return 4; }

private:
    SExtent m_Extent;
    std::vector<unsigned int> m_vR1;
    std::vector<unsigned int> m_vR2;
    const cl_bool m_Active[6] = {0, 1, 1, 0, 1, 1};
};

std::string Evaluate(const std::string& strText)
{
    CSixItems items;
    try
    {
        CExpression expression(strText, &items);
        expression.Bind(items);
        return expression.Format(items.GetFocus(), false);
    }
    catch (const CCommandError& error)
    {
        return error.what();
    }
}

struct SCase
{
    const char* pszText;
    const char* pszResult;
};

} // namespace

TEST(Expression, IsWorkedOutForTheWorkItemInFocus)
{
    const SCase cases[] = {
        {"r1.x", "4"},
        {"r1.x + 1", "5"},
        {"2 + 3 * 4", "14"},
        {"(2 + 3) * 4", "20"},
        {"10 - 3 - 2", "5"},
        {"1 << 3 | 1", "9"},
        {"6 & 3 == 3", "0"}, // as in C, == binds tighter
        {"-7 / 2", "-3"},
        {"-7 % 3", "-1"},
        {"~0", "-1"},
        {"!r1.x", "0"},
        {"0x10", "16"},
        {"7 / 0", "0"},
        {"7 % 0", "0"},
        {"r1.y", "1082130432"},         // bits, unless something makes it a float
        {"r1.y + 0.5", "4.5"},          // next to a float
        {"(r1.y + r1.y) * 1.0", "8.0"}, // through arithmetic
        {"float(r1.y)", "4.0"},
        {"float(r1.x)", "5.60519e-45"},
        {"float(int(r1.x)) / 8", "0.5"}, // a cast of a value converts
        {"int(float(r1.y) * 1.6)", "6"},
        {"double(r1.zw)", "1.5"},
        {"r2.y", "-1"},
        {"uint(r2.y)", "4294967295"},
        {"r2.y < 0", "1"},
        {"uint(r2.y) < 0", "0"},
        {"long(r2.zw)", "-2"},
        {"r2.x == nan", "0"},
        {"nan == nan", "1"},
        {"nan != nan", "0"},
        {"nan > 1.0", "0"},
        {"1.0 / 0 == inf", "1"},
        {"r1.x == 4 && r1.y == 4.0", "1"},
        {"r1.x == 3 || 0", "0"},
        {"$item", "4"},
        {"$x * 10 + $y", "11"},
        {"$gy * 10 + $lx", "11"},
        {"$active", "1"},
        {"any r1.x == 3", "0"}, // work-item 3 isn't active
        {"any/a r1.x == 3", "1"},
        {"all r1.x > 0", "1"},
        {"all/a r1.x > 0", "0"},
        {"count(r1.x > 1)", "3"},
        {"count/a(r1.x > 1)", "4"},
        {"count(r2.x == nan) == 1 && r1.x == 4", "1"},
        {"(any r1.x == 5) + (any r1.x == 3)", "1"},
        {"any r1.x == 5 && any r1.x == 1", "1"}, // the first any ends where the second one begins
        {"any r1.x == 5 && any r1.x == 3", "0"},
        {"any r1.x == 3 || !any r1.x == 5 || all r1.x > 0", "1"},
        {"any r1.x == 5 && r1.y == 5.0", "1"}, // one any over both
        {"count(r1.x > 1) == 3 && any r1.x == 4", "1"},
        {"squares[3]", "9"},
        {"squares[r1.x] + squares[r1.x - 1]", "25"},
        {"squares[squares[2]]", "16"},
        {"squares[r1.y + 0.0]", "16"},
        {"halves[1] * 3", "1.5"},
        {"group[2]", "102"}, // of the second group
        {"any group[0] == 0", "1"},
        {"step", "4294967295"},
        {"step > -1", "1"},
        {"count(squares[r1.x] > 4)", "2"},
        {"r1.x < 3 && squares[r1.x + 2] > 0", "0"}, // missing elements aren't used
        {"r1.x > 3 || squares[r1.x + 2] > 0", "1"},
    };
    for (const SCase& entry : cases)
    {
        EXPECT_EQ(Evaluate(entry.pszText), entry.pszResult) << entry.pszText;
    }
}

TEST(Expression, RefusesWhatIsNestedTooDeeply)
{
    for (const char* pszPiece : {"(", "-", "!", "any/a "})
    {
        std::string strText;
        for (int n = 0; n < 100000; ++n)
        {
            strText += pszPiece;
        }
        EXPECT_THROW(CExpression(strText + "1"), CCommandError) << pszPiece;
    }
    EXPECT_NO_THROW(CExpression(std::string(100, '(') + "1" + std::string(100, ')')));
}

TEST(Expression, MayBeAsLongAsOneLikes)
{
    // Long left-associative chains don't nest, and must not be evaluated or destroyed recursively.
    for (const char* pszPiece : {"+1", "||0", "&&1", "-r1.x", "*1.0", "==1", "|r1.x"})
    {
        std::string strText = "1";
        for (int n = 0; n < 20000; ++n)
        {
            strText += pszPiece;
        }
        EXPECT_NE(Evaluate(strText), "") << pszPiece;
    }
    std::string strSum = "any r1.x";
    for (int n = 0; n < 20000; ++n)
    {
        strSum += "+1";
    }
    EXPECT_EQ(Evaluate(strSum + " == 20004"), "1");
}

TEST(Expression, HoldsForAnyActiveWorkItemUnlessItIsTheSameForAll)
{
    const struct
    {
        const char* pszText;
        bool bHolds;
    } cases[] = {{"r1.x == 5", true}, {"r1.x == 3", false},     {"r1.x == 5 && r1.y == 4.0", false},
                 {"1", true},         {"any r1.x == 3", false}, {"count(r1.x > 1) == 3", true}};
    for (const auto& entry : cases)
    {
        CSixItems items;
        CExpression expression(entry.pszText, &items);
        expression.Bind(items);
        EXPECT_EQ(expression.HoldsForAny(items), entry.bHolds) << entry.pszText;
    }
}

TEST(Expression, SaysWhatIsWrong)
{
    const SCase cases[] = {
        {"", "in \"\", column 1: expected a register, a number or \"(\""},
        {"r1.x +", "in \"r1.x +\", column 7: expected a register, a number or \"(\""},
        {"(r1.x", "in \"(r1.x\", column 6: expected \")\""},
        {"r1.x r1.y", "in \"r1.x r1.y\", column 6: expected an operator or the end"},
        {"r1.x + r1", "in \"r1.x + r1\", column 10: expected a single component of r1, as in r1.x"},
        {"double(r1.x)", "in \"double(r1.x)\", column 13: expected two components, as in double(r2.xy)"},
        {"count r1.x", "in \"count r1.x\", column 7: expected \"(\" after count"},
        {"$width", "in \"$width\", column 7: expected $item, $x, $y, $z, $gx, $gy, $gz, $lx, $ly, $lz or $active"},
        {"r1.q", "\"r1.q\": components are x, y, z and w"},
        {"r9.x > 1", "r9 has no value here"},
        {".", "in \".\", column 1: expected a number"},
        {"18446744073709551616", "in \"18446744073709551616\", column 1: expected a number of 64 bits"},
        {"1e999", "in \"1e999\", column 1: expected a number that a double holds"},
        {"r65536.x", "\"r65536.x\" is no register: its number is too large"},
        {"x1[4294967296].x", "\"x1[4294967296].x\" is no register: its number is too large"},
        {"squares[6]", "squares[6] isn't there: squares has 6 elements"},
        {"squares[-1]", "squares[-1] isn't there: squares has 6 elements"},
        {"squares[18446744073709551615]", "squares[-1] isn't there: squares has 6 elements"},
        {"all squares[r1.x + 1] > 0", "squares[6] isn't there: squares has 6 elements"},
        {"1.5 & 3", "in \"1.5 & 3\", column 5: this operator takes integers, not double"},
        {"squares", "in \"squares\", column 8: expected which element, as in squares[0]"},
        {"squares[1", "in \"squares[1\", column 10: expected \"]\""},
    };
    for (const SCase& entry : cases)
    {
        EXPECT_EQ(Evaluate(entry.pszText), entry.pszResult) << entry.pszText;
    }
}

TEST(Expression, KnowsWhichRegistersItNeeds)
{
    const CExpression expression("cb1[2].x + x1[0].w > vTidInGrp.x");
    EXPECT_EQ(expression.GetRegisters(), (std::set<std::string>{"cb1[2]", "x1[0]", "vTidInGrp0"}));
    EXPECT_FALSE(expression.IsOperand());
    EXPECT_EQ(CExpression("r3.zyx").GetOperand().ToString(), "r3.zyx");
    EXPECT_EQ(CExpression("r3").GetOperand().ToString(), "r3");
}

TEST(Expression, GivesTheSameInBlocksAsOneByOne)
{
    CSixItems items;
    CExpression expression("r1.y * 2.0 - $item");
    expression.Bind(items);
    double values[6];
    expression.Evaluate(0, 6, values);
    for (size_t i = 0; i < 6; ++i)
    {
        EXPECT_EQ(values[i], double(i)) << i;
    }
}
