#include "il/ShaderDebuggerInstructionIL.h"
#include "il/TokenStream.h"
#include "platform/compiler/Assembler.h"
#include "platform/compiler/Disassembler.h"
#include "platform/compiler/ItemLayout.h"
#include "tests/platform/compiler/StreamGenerator.h"

#include <gtest/gtest.h>

#include <chrono>

using namespace KestrelPlatform;

namespace
{

std::vector<uint32_t> WithHeader(std::vector<uint32_t> v)
{
    v.insert(v.begin(), {0u, 0x00030200u});
    return v;
}

std::string Hex(const std::vector<uint32_t>& v)
{
    std::string str;
    char buffer[16];
    for (const uint32_t n : v)
    {
        snprintf(buffer, sizeof(buffer), "%08X ", n);
        str += buffer;
    }
    return str;
}

/// Checks that the text gives the stream back, and that it has a line for each item that the decoder counts.
testing::AssertionResult SurvivesText(const std::vector<uint32_t>& v)
{
    std::string strText;
    std::string strError;
    if (!DisassembleIL(v.data(), v.size(), strText, strError))
    {
        return testing::AssertionFailure() << strError << " in " << Hex(v);
    }
    std::vector<uint32_t> vBack;
    SDiagnostic diag;
    if (!AssembleIL(strText.data(), strText.size(), vBack, diag))
    {
        return testing::AssertionFailure() << diag.ToString() << " in\n" << strText;
    }
    if (vBack != v)
    {
        return testing::AssertionFailure() << "text:\n" << strText << "was " << Hex(v) << "\nis  " << Hex(vBack);
    }
    return testing::AssertionSuccess();
}

/// The length of one item in the debugger's decoder, in words; 0 if it refuses the item.
size_t LengthForTheDebugger(const std::vector<uint32_t>& v)
{
    OVK_ShaderDebugger::CInputTokenStream<unsigned int> stream(nullptr, v.data(), v.size());
    OVK_ShaderDebugger::CShaderDebuggerInstructionIL instruction(nullptr);
    return instruction.ReadInstruction(stream) ? instruction.GetLength() : 0;
}

TEST(RoundTrip, BothDecodersMeasureAlike)
{
    for (const uint32_t nOpcode : CStreamGenerator::KnownOpcodes())
    {
        CStreamGenerator generator(nOpcode + 5000);
        for (int i = 0; i < 10; ++i)
        {
            std::vector<uint32_t> v;
            generator.Item(v, nOpcode);
            SItemLayout layout;
            const char* pReason = nullptr;
            ASSERT_TRUE(MeasureItem(v.data(), v.size(), layout, pReason)) << Hex(v) << pReason;
            ASSERT_EQ(layout.nWords, v.size()) << Hex(v);
            ASSERT_EQ(LengthForTheDebugger(v), v.size()) << Hex(v);
        }
    }
}

TEST(RoundTrip, EveryOpcodeWithRandomBits)
{
    std::vector<uint32_t> vOpcodes = CStreamGenerator::KnownOpcodes();
    EXPECT_EQ(vOpcodes.size(), 673u);
    vOpcodes.push_back(IL_OP_DCL_TOTAL_NUM_THREAD_GROUP);
    for (const uint32_t nOpcode : vOpcodes)
    {
        CStreamGenerator generator(nOpcode);
        for (int i = 0; i < 40; ++i)
        {
            std::vector<uint32_t> v;
            generator.Item(v, nOpcode);
            ASSERT_TRUE(SurvivesText(WithHeader(v)));
        }
    }
}

TEST(RoundTrip, WholeStreams)
{
    for (uint32_t nSeed = 0; nSeed < 600; ++nSeed)
    {
        CStreamGenerator generator(nSeed);
        ASSERT_TRUE(SurvivesText(generator.Stream(30))) << "seed " << nSeed;
    }
}

TEST(RoundTrip, EverySingleBitOfOpcodeOperandsAndModifiers)
{
    for (uint32_t nBit = 0; nBit < 32; ++nBit)
    {
        const uint32_t n = 1u << nBit;
        // mov and uav_raw_store with one upper bit; bits 30 and 31 say that a word follows.
        if (nBit >= 16)
        {
            std::vector<uint32_t> v = {71 | n};
            v.insert(v.end(), nBit >= 30 ? 1 : 0, 0x1234);
            v.insert(v.end(), {0x00040001, 0x00040002});
            EXPECT_TRUE(SurvivesText(WithHeader(v))) << "opcode bit " << nBit;
            EXPECT_TRUE(SurvivesText(WithHeader({225 | n, 0x00040001, 0x00040002}))) << "UAV bit " << nBit;
        }
        EXPECT_TRUE(SurvivesText(WithHeader({71, 0x00440001, n, 0x00440002, n}))) << "modifier bit " << nBit;
        EXPECT_TRUE(SurvivesText(WithHeader({71, 0x00440001, ~n, 0x00440002, ~n}))) << "all but modifier bit " << nBit;
        std::vector<uint32_t> vIndexed = {71, 0x00040000, 0x051E0002, 0x00040003u ^ n};
        vIndexed.insert(vIndexed.end(), nBit == 22 ? 2 : 1, 0x3210);
        EXPECT_TRUE(SurvivesText(WithHeader(vIndexed))) << "index token bit " << nBit;
    }
    // Every addressing kind with and without dimension, immediate, extension and modifier.
    for (uint32_t nForm = 0; nForm < 64; ++nForm)
    {
        const uint32_t nToken = 0x001E0005 | (nForm & 1) << 22 | ((nForm >> 1) & 3) << 23 | ((nForm >> 3) & 1) << 25 |
                                ((nForm >> 4) & 1) << 26 | ((nForm >> 5) & 1) << 31;
        const uint32_t nKind = (nForm >> 1) & 3;
        const bool bDimension = (nForm & 8) != 0;
        if (nKind == 2 && bDimension)
        {
            continue;
        }
        uint32_t nWords = (nForm & 1) + ((nForm >> 4) & 1) + ((nForm >> 5) & 1);
        nWords += nKind == 0 ? (bDimension ? 1 : 0) : nKind == 3 ? 0 : 1;
        std::vector<uint32_t> v = {71, nToken};
        v.insert(v.end(), nWords, 0x00040007);
        v.push_back(nToken);
        v.insert(v.end(), nWords, 0x00040007);
        EXPECT_TRUE(SurvivesText(WithHeader(v))) << "form " << nForm;
    }
}

TEST(RoundTrip, EveryCutOfAStreamIsRefusedOrSurvives)
{
    CStreamGenerator generator(7);
    const std::vector<uint32_t> v = generator.Stream(60);
    for (size_t n = 0; n < v.size(); ++n)
    {
        const std::vector<uint32_t> vCut(v.begin(), v.begin() + static_cast<long>(n));
        std::string strText;
        std::string strError;
        if (DisassembleIL(vCut.data(), vCut.size(), strText, strError))
        {
            ASSERT_TRUE(SurvivesText(vCut));
        }
        else
        {
            ASSERT_TRUE(strText.empty());
            ASSERT_NE(strError.find("token "), std::string::npos);
        }
    }
}

TEST(RoundTrip, RandomWordsNeverBreakTheDisassembler)
{
    std::mt19937 random(11);
    for (int i = 0; i < 20000; ++i)
    {
        std::vector<uint32_t> v = {0, 0x00030200};
        for (int n = 0; n < 8; ++n)
        {
            const uint32_t nWord = static_cast<uint32_t>(random());
            v.push_back(n % 3 == 0 ? (nWord & 0xFFFF0000u) | nWord % 740 : nWord);
        }
        std::string strText;
        std::string strError;
        if (DisassembleIL(v.data(), v.size(), strText, strError))
        {
            ASSERT_TRUE(SurvivesText(v));
        }
    }
}

TEST(RoundTrip, RandomTextNeverBreaksTheAssembler)
{
    CStreamGenerator generator(23);
    const std::vector<uint32_t> v = generator.Stream(40);
    std::string strText;
    std::string strError;
    ASSERT_TRUE(DisassembleIL(v.data(), v.size(), strText, strError));
    static const char s_Characters[] = "()[]{}_.,;-+0x19rfeb \n\t\r\0\xFF";
    std::mt19937 random(5);
    for (int i = 0; i < 4000; ++i)
    {
        std::string strBroken = strText;
        for (int n = 0; n < 3; ++n)
        {
            strBroken[random() % strBroken.size()] = s_Characters[random() % (sizeof(s_Characters) - 1)];
        }
        std::vector<uint32_t> vTokens;
        SDiagnostic diag;
        if (AssembleIL(strBroken.data(), strBroken.size(), vTokens, diag))
        {
            // Whatever can be assembled can be decoded: no accepted text gives a stream that is read differently.
            ASSERT_TRUE(SurvivesText(vTokens)) << strBroken;
        }
        else
        {
            ASSERT_TRUE(vTokens.empty());
            ASSERT_GT(diag.nLine, 0u);
            ASSERT_GT(diag.nColumn, 0u);
        }
    }
}

double MillisecondsFor(uint32_t nInstructions)
{
    std::string strText = "il_cs_2_0\n";
    for (uint32_t i = 0; i < nInstructions / 4; ++i)
    {
        strText += "mad r1.x_z_, r2.xxyy, cb1[3].x, r4.x_neg(x)\nuav_raw_store_id(11)_addr64 mem0.x, r1.xyxx, r2.x\n"
                   "mov x1[r2.x+4], l7\n;a comment\n";
    }
    std::vector<uint32_t> vTokens;
    SDiagnostic diag;
    std::string strError;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(AssembleIL(strText.data(), strText.size(), vTokens, diag)) << diag.ToString();
    EXPECT_TRUE(DisassembleIL(vTokens.data(), vTokens.size(), strText, strError));
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

TEST(RoundTrip, TimeGrowsWithLengthOnly)
{
    MillisecondsFor(1000);
    const double dSmall = MillisecondsFor(10000);
    const double dLarge = MillisecondsFor(80000);
    RecordProperty("milliseconds_10000", std::to_string(dSmall));
    // Eight times the length; with quadratic time it would take 64 times as long. The slack is for a busy machine.
    EXPECT_LT(dLarge, dSmall * 32 + 20);
}

} // namespace
