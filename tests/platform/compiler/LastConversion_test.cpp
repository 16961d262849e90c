#include "platform/compiler/Assembler.h"
#include "platform/compiler/Disassembler.h"

#include <gtest/gtest.h>

#include <random>

using namespace KestrelPlatform;

namespace
{

/// The result of converting a text or a stream, or the fault.
struct SResult
{
    bool bOk = false;
    std::vector<uint32_t> vTokens;
    std::vector<uint32_t> vLines;
    std::string strText; ///< or the fault's message

    bool operator==(const SResult& other) const
    {
        return bOk == other.bOk && vTokens == other.vTokens && vLines == other.vLines && strText == other.strText;
    }
};

SResult FromText(const std::string& strText)
{
    SResult result;
    SDiagnostic diag;
    result.bOk = AssembleIL(strText.data(), strText.size(), result.vTokens, diag, &result.vLines);
    result.strText = diag.ToString();
    return result;
}

SResult FromTokens(const std::vector<uint32_t>& vTokens)
{
    SResult result;
    std::string strError;
    result.bOk = DisassembleIL(vTokens.data(), vTokens.size(), result.strText, strError);
    result.strText += strError;
    return result;
}

/// A kernel without lines in common with the others, at the beginning or at the end.
const char* const s_pszOther = "mdef(9)_mod(0x9)\nmend\nil_cs_2_0\nbreak\n";

SResult FromTextAlone(const std::string& strText)
{
    EXPECT_TRUE(FromText(s_pszOther).bOk);
    return FromText(strText);
}

SResult FromTokensAlone(const std::vector<uint32_t>& vTokens)
{
    static const std::vector<uint32_t> s_vOther = FromText(s_pszOther).vTokens;
    EXPECT_TRUE(FromTokens(s_vOther).bOk);
    return FromTokens(vTokens);
}

/// These include lines that change the meaning of others: the opening line, macros, comments that join the next one.
const char* const s_Lines[] = {"mov r0, l0\n",
                               "iadd r1.x, r0.y, r2.z\n",
                               "imad r3.xy__, r1, l1.x, r2.xyzw\n",
                               "imad r4.xy__, r1, l1.x, r2.xyzw\n",
                               "ishl r1.x, r0.x, l0.x ; shift\n",
                               "dcl_literal l0, 1, 2, 3, 4\n",
                               ";func begins\n",
                               ";\n",
                               "; mend it\r\n",
                               "comment 0x1, 0x2\n",
                               "\n",
                               "  \n",
                               "call 7\r\n",
                               "func 7\n",
                               "ret\n",
                               "endfunc\n",
                               "mdef(3)_outline\n",
                               "mend\n",
                               "il_cs_2_0\n",
                               "il_ps_2_0\n",
                               "no line at all\n",
                               "end"};

/// After a macro and the opening line.
const size_t s_nFirstFreeLine = 4;

class CEdits
{
public:
    /// Inserts, replaces or removes lines from the pool, usually a single one after the opening line.
    void Edit(std::vector<std::string>& vLines)
    {
        do
        {
            const size_t nFirst = Number(8) == 0 ? 0 : std::min(s_nFirstFreeLine, vLines.size() - 1);
            const auto place = vLines.begin() + static_cast<std::ptrdiff_t>(nFirst + Number(vLines.size() - nFirst));
            const size_t nKind = vLines.size() > 30 ? 3 : Number(4);
            if (nKind == 0)
            {
                vLines.insert(place, s_Lines[Number(std::size(s_Lines))]);
            }
            else if (nKind == 1)
            {
                vLines.insert(place, *place);
            }
            else if (nKind == 2)
            {
                *place = s_Lines[Number(std::size(s_Lines))];
            }
            else if (vLines.size() > 3)
            {
                vLines.erase(place);
            }
        } while (Number(4) == 0);
    }

    size_t Number(size_t nBelow) { return m_Random() % nBelow; }

private:
    std::mt19937 m_Random{7};
};

std::string Join(const std::vector<std::string>& vLines)
{
    std::string strText;
    for (const std::string& strLine : vLines)
    {
        strText += strLine;
    }
    return strText;
}

TEST(LastConversion, WhatWasConvertedBeforeChangesNothing)
{
    CEdits edits;
    std::vector<std::string> vLines = {"mdef(3)_outline\n", "ret\n", "mend\n", "il_cs_2_0\n", "ret\n", "end\n"};
    size_t nGood = 0;
    size_t nBad = 0;
    for (int n = 0; n < 3000; ++n)
    {
        std::vector<std::string> vEdited = vLines;
        edits.Edit(vEdited);
        const std::string strText = Join(vEdited);
        const SResult result = FromText(strText);
        ASSERT_EQ(result, FromTextAlone(strText)) << strText;
        ++(result.bOk ? nGood : nBad);
        if (!result.bOk)
        {
            continue;
        }
        vLines = vEdited;
        const SResult printed = FromTokens(result.vTokens);
        ASSERT_EQ(printed, FromTokensAlone(result.vTokens)) << strText;
        std::vector<uint32_t> vTokens = result.vTokens;
        vTokens[edits.Number(vTokens.size())] ^= 1u << edits.Number(32);
        const SResult changed = FromTokens(vTokens);
        ASSERT_EQ(changed, FromTokensAlone(vTokens)) << strText;
        // The next conversion may build on this one.
        FromTokens(result.vTokens);
    }
    EXPECT_GT(nGood, 1000u);
    EXPECT_GT(nBad, 300u);
}

} // namespace
