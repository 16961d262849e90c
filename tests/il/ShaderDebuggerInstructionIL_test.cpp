#include "il/ShaderDebuggerInstructionIL.h"

#include "LoggingHost.h"

#include <gtest/gtest.h>

#include <random>
#include <utility>
#include <vector>

using namespace OVK_ShaderDebugger;

namespace
{

using Words = std::vector<IL>;

constexpr std::uint32_t s_nNoOffset = 0xFFFFFFFFu;

CShaderDebuggerInstructionIL Decode(const Words& words, IShaderDebugger* pDebugger = nullptr)
{
    CInputTokenStream<unsigned int> stream(pDebugger, words.data(), words.size());
    CShaderDebuggerInstructionIL instruction(pDebugger);
    EXPECT_TRUE(instruction.ReadInstruction(stream));
    EXPECT_EQ(0u, stream.GetTokensLeft());
    return instruction;
}

Words Tokens(const CShaderDebuggerInstructionIL& instruction)
{
    return Words(instruction.GetTokens(), instruction.GetTokens() + instruction.GetLength());
}

struct SItemCase
{
    const char* pszWhat;
    Words words;
    std::uint32_t nDestOffset;
    std::vector<std::uint32_t> vSrcOffsets;
};

/// Instructions encoded by hand, word by word.
const SItemCase s_ItemCases[] = {
    {"iadd r16.x, r16.x, l3.x",
     {0x00000091, 0x00440010, 0x00000001, 0x00440010, 0x00000000, 0x00600003, 0x00000000},
     1,
     {3, 5}},
    {"dcl_cb cb1[19]", {0x00000076, 0x041F0001, 0x00000013}, 0, {1}},
    {"dcl_cb with an inline table", {0x80000076, 2, 0x3F800000, 0x40000000}, 0, {}},
    {"dcl_cb with an empty inline table and a secondary modifier", {0xC0000076, 0, 9}, 0, {}},
    {"dcl_literal l5", {0x00000079, 0x00200005, 1, 1, 1, 1}, 0, {1}},
    {"dcl_indexed_temp_array x0[8]", {0x00000077, 0x041E0000, 8}, 0, {1}},
    {"dcl_raw_uav_id(11)", {0x000B00DE}, 0, {}},
    {"dcl_typeless_uav", {0x0C0101A8, 4, 100}, 0, {}},
    {"dcl_typed_uav, reserved bits set", {0xC00201A7, 5}, 0, {}},
    {"dcl_num_thread_per_group", {0x000300D4, 64, 1, 1}, 0, {}},
    {"dcl_num_thread_per_group of none", {0x000000D4}, 0, {}},
    {"the declaration of the number of groups, which has no row", {0x000300D5, 4, 2, 1}, 0, {}},
    {"dcl_max_thread_per_group", {0x00000160, 64}, 0, {}},
    {"dcl_output", {0x0000007D, 0x00620000, 0x55}, 1, {}},
    {"dcl_resource, unnormalized", {0x82050080, 0x1234}, 0, {}},
    {"dcl_lds", {0x00010106, 1024}, 0, {}},
    {"dcl_struct_uav has no trailing words", {0x000300DF}, 0, {}},
    {"call", {0x00000008, 7}, 0, {}},
    {"callnz", {0x00000009, 0x00040001, 7}, 0, {1}},
    {"call_logicalz", {0x00000067, 0x00440001, 0x1111, 7}, 0, {1}},
    {"func", {0x00000032, 7}, 0, {}},
    {"case", {0x00000069, 0xFFFFFFFF}, 0, {}},
    {"sleep has no trailing words", {0x000002E0}, 0, {}},
    {"end", {0x00000028}, 0, {}},
    {"empty comment", {0x0000000F, 0}, 0, {}},
    {"comment", {0x0000000F, 2, 0x64636261, 0x00006665}, 0, {}},
    {"mdef, whose upper bits are no modifier bits", {0xC0010159, 0x00010000}, 0, {}},
    {"mcall with eight sources",
     {0x0000015B, 8, 0x00040000, 0x00040001, 0x00440002, 0x0000, 0x00040003, 0x00040004, 0x00040005, 0x00440006, 0x1111,
      0x00040007},
     0,
     {2, 3, 4, 6, 7, 8, 9, 11}},
    {"mcall with both modifiers", {0xC000015B, 0x00010001, 0xA, 0xB, 0x00040000, 0x00040001}, 4, {5}},
    {"mov with both modifiers", {0xC0000047, 0xA, 0xB, 0x00040000, 0x00040001}, 3, {4}},
    {"mov with a secondary modifier", {0x40000047, 0xB, 0x00040000, 0x00040001}, 2, {3}},
    {"uav_raw_load has no modifier words", {0xE00B00E1, 0x00040000, 0x00040001}, 1, {2}},
    {"uav_raw_store, aligned", {0x600B00E4, 0xC, 0x006F0000, 1, 0x00040000, 0x00040001}, 2, {4, 5}},
    {"mov x1[r2.y+4].xy, r3", {0x00000047, 0x055E0001, 0x5, 0x00440002, 0x1111, 4, 0x00040003}, 1, {6}},
    {"source with an index word", {0x00000003, 0x00040000, 0x02210001, 6, 0x00040001}, 1, {2, 4}},
    {"source with index and immediate words", {0x00000003, 0x00040000, 0x06210001, 6, 7, 0x00040001}, 1, {2, 5}},
    {"source with a relative address", {0x00000003, 0x00040000, 0x00A10001, 0x00030000, 0x00040001}, 1, {2, 4}},
    {"source with an index register", {0x00000003, 0x00040000, 0x01210001, 0x00040009, 0x00040001}, 1, {2, 4}},
    {"source with the fourth addressing", {0x00000003, 0x00040000, 0x03A10001, 0x00040001}, 1, {2, 3}},
    {"source with everything",
     {0x00000003, 0x00040000, 0x85610001, 0x3210, 0x00440009, 0x0000, 5, 6, 0x00040001},
     1,
     {2, 8}},
};

TEST(ShaderDebuggerInstructionIL, FindsLengthAndOperandsOfEveryShape)
{
    for (const SItemCase& test : s_ItemCases)
    {
        SCOPED_TRACE(test.pszWhat);
        Words words = test.words;
        words.push_back(IL_OP_END);

        CInputTokenStream<unsigned int> stream(nullptr, words.data(), words.size());
        CShaderDebuggerInstructionIL instruction(nullptr);
        ASSERT_TRUE(instruction.ReadInstruction(stream));
        EXPECT_EQ(test.words, Tokens(instruction));
        EXPECT_EQ(words.data() + instruction.GetLength(), stream.GetStreamPos());
        EXPECT_EQ(test.nDestOffset, instruction.GetDestRegTokenOffset());
        ASSERT_EQ(test.vSrcOffsets.size(), instruction.GetSrcRegCount());

        for (std::uint32_t nSrcReg = 0; nSrcReg < test.vSrcOffsets.size(); ++nSrcReg)
        {
            EXPECT_EQ(test.vSrcOffsets[nSrcReg], instruction.GetSrcRegTokenOffset(nSrcReg)) << nSrcReg;
        }

        EXPECT_EQ(s_nNoOffset, instruction.GetSrcRegTokenOffset(instruction.GetSrcRegCount()));

        COutputTokenStream<unsigned int> written(nullptr, 0);
        ASSERT_TRUE(instruction.WriteInstruction(written));
        EXPECT_EQ(test.words, Words(written.GetStream(), written.GetStreamPos()));

        EXPECT_TRUE(instruction.ReadInstruction(stream));
        EXPECT_EQ(Words{IL_OP_END}, Tokens(instruction)) << "nothing of the first may be left";
        EXPECT_EQ(0u, instruction.GetDestRegTokenOffset());
        EXPECT_FALSE(instruction.ReadInstruction(stream));
        EXPECT_EQ(0u, instruction.GetLength());
    }
}

TEST(ShaderDebuggerInstructionIL, RefusesEveryTruncation)
{
    for (const SItemCase& test : s_ItemCases)
    {
        for (std::size_t nLength = 1; nLength < test.words.size(); ++nLength)
        {
            CLoggingHost host;
            // An exact copy, so that a sanitizer sees a read past the end.
            const Words words(test.words.begin(), test.words.begin() + static_cast<std::ptrdiff_t>(nLength));
            CInputTokenStream<unsigned int> stream(&host, words.data(), words.size());
            CShaderDebuggerInstructionIL instruction(&host);

            EXPECT_FALSE(instruction.ReadInstruction(stream)) << test.pszWhat << " cut to " << nLength;
            EXPECT_EQ(nullptr, instruction.GetTokens());
            EXPECT_EQ(0u, instruction.GetLength());
            EXPECT_NE(std::string::npos, host.TakeLog().find("stream.ReadToken(")) << test.pszWhat;
        }
    }
}

struct SRefusalCase
{
    Words words;
    const char* pszLog;
};

TEST(ShaderDebuggerInstructionIL, SaysWhyAnInstructionIsRefused)
{
    const SRefusalCase table[] = {
        {{0x00000000}, "m_OpCode != IL_OP_UNKNOWN"},
        {{0x0000FFFF}, "m_OpCode != IL_OP_UNKNOWN"},
        {{IL_OP_MEMEXPORT, 0x00040000, 0x00040000}, ""}, // no row: a message goes to the consistency log
        {{IL_OP_MACROCALL}, "stream.ReadToken(instMod)"},
        {{IL_OP_MACROCALL, 0x00020000, 0x00040000, 0x00040000}, "instMod >> 16 <= 1"},
        {{0x80000000u | IL_OP_MOV}, "stream.ReadToken(priMod)"},
        {{0x40000000u | IL_OP_MOV}, "stream.ReadToken(tokens[nOpcodeTokenLen])"},
        {{IL_OP_MOV}, "stream.ReadToken(tokens[m_nDestRegTokenOffset + nDestTokenLen])"},
        {{IL_OP_MOV, 0x00040000}, "stream.ReadToken(tokens[nSrcRegOffset])"},
        {{IL_OP_CALL}, "stream.ReadToken(tokens[m_nLength])"},
        {{IL_OP_COMMENT}, "stream.ReadToken(nCommentLength)"},
        {{IL_OP_MOV, 0x03040000, 0x00040000, 0x00040000}, "dst->bits.dimension == 0"},
        {{IL_OP_MOV, 0x00040000, 0x03040000, 0x00040000}, "src->bits.dimension == 0"},
        // Counts that exceed what the stream contains.
        {{IL_OP_COMMENT, 0xFFFFFFFF, 0}, "stream.ReadToken(tokens[m_nLength])"},
        {{0x80000000u | IL_DCL_CONST_BUFFER, 0xFFFFFFFF, 0}, "stream.ReadToken(tokens[nOpcodeTokenLen])"},
        {{0x3FFF0000u | IL_OP_DCL_NUM_THREAD_PER_GROUP, 0}, "stream.ReadToken(tokens[m_nLength])"},
        {{IL_OP_MACROCALL, 0x0000FFFF, 0x00040000}, "stream.ReadToken(tokens[nSrcRegOffset])"},
    };

    for (const SRefusalCase& test : table)
    {
        CLoggingHost host;
        CInputTokenStream<unsigned int> stream(&host, test.words.data(), test.words.size());
        CShaderDebuggerInstructionIL instruction(&host);
        EXPECT_FALSE(instruction.ReadInstruction(stream)) << std::hex << test.words[0];
        EXPECT_EQ(IL_OP_UNKNOWN, instruction.GetOpCode());

        const std::string strLog = host.TakeLog();
        EXPECT_NE(std::string::npos, strLog.find(test.pszLog)) << strLog << " for " << std::hex << test.words[0];
    }
}

TEST(ShaderDebuggerInstructionIL, TakesCommentsAndTablesOfAnyLength)
{
    for (const IL opToken : {IL(IL_OP_COMMENT), 0x80000000u | IL_DCL_CONST_BUFFER})
    {
        Words words(100002, 0x20202020);
        words[0] = opToken;
        words[1] = 100000;
        EXPECT_EQ(words, Tokens(Decode(words)));
    }
}

/// Random words: whatever decodes is cut out of the stream without gaps, and nothing is read beyond the end.
TEST(ShaderDebuggerInstructionIL, CutsRandomStreamsIntoTheirOwnWords)
{
    std::mt19937 random(20);
    std::size_t nDecoded = 0;

    for (int nRun = 0; nRun < 20000; ++nRun)
    {
        Words words(1 + random() % 40);

        for (IL& word : words)
        {
            word = static_cast<IL>(random());
            word = random() % 2 != 0 ? word % IL_OP_LAST : word & 0x8FFF0007u; // opcodes and plain operands
        }

        CInputTokenStream<unsigned int> stream(nullptr, words.data(), words.size());
        CShaderDebuggerInstructionIL instruction(nullptr);
        Words joined;

        while (instruction.ReadInstruction(stream))
        {
            const Words tokens = Tokens(instruction);
            joined.insert(joined.end(), tokens.begin(), tokens.end());
            ++nDecoded;
            Register reg;
            instruction.GetDestRegister(reg);
            instruction.ReadsFromReg(reg);
        }

        ASSERT_LE(joined.size(), words.size());
        words.resize(joined.size());
        ASSERT_EQ(words, joined) << "run " << nRun;
    }

    EXPECT_GT(nDecoded, 10000u);
}

Register Indexed(unsigned int nNumber, unsigned int nIndex, RegisterMask mask, const Register& index)
{
    return Register(RegisterID(RT_IndexableTemp, nNumber, nIndex, &index), mask);
}

struct SDestCase
{
    const char* pszWhat;
    Words words;
    bool bExists;
    Register reg;
    const char* pszLog;
};

TEST(ShaderDebuggerInstructionIL, TellsTheDestination)
{
    const Register index(RT_Temp, 2, COMP_y);
    const SDestCase table[] = {
        {"plain", {0x47, 0x00040005, 0x00040000}, true, Register(RT_Temp, 5, COMP_All), ""},
        {"masked", {0x47, 0x00440005, 0x44, 0x00040000}, true, Register(RT_Temp, 5, COMP_y | COMP_w), ""},
        {"internal temp", {0x47, 0x0804FFFF, 0x00040000}, true, Register(RT_Temp, 0xFFFFFFFF, COMP_All), ""},
        {"constant index", {0x47, 0x045E0001, 0x1, 9, 0x00040000}, true, Register(RT_IndexableTemp, 1, COMP_x, 9), ""},
        {"index word in front of the constant index",
         {0x47, 0x065E0001, 0x1, 8, 9, 0x00040000},
         true,
         Register(RT_IndexableTemp, 1, COMP_x, 9),
         ""},
        {"dynamic index",
         {0x47, 0x015E0001, 0x5, 0x00440002, 0x1111, 0x00040003},
         true,
         Indexed(1, 0, COMP_xy, index),
         ""},
        {"dynamic and constant index",
         {0x47, 0x055E0001, 0x5, 0x00440002, 0x1111, 4, 0x00040003},
         true,
         Indexed(1, 4, COMP_xy, index),
         ""},
        {"no destination", {0x28}, false, Register(), ""},
        {"no register type", {0x47, 0x001D0000, 0x00040000}, false, Register(), "regType != RT_Unknown"},
        {"loop relative",
         {0x47, 0x009E0001, 0x00030000, 0x00040000},
         false,
         Register(),
         "dst->bits.relative_address == IL_ADDR_ABSOLUTE || dst->bits.relative_address == IL_ADDR_REG_RELATIVE"},
        {"index of no register type",
         {0x47, 0x011E0001, 0x005D0002, 0x1111, 0x00040003},
         false,
         Register(),
         "indexRegType != RT_Unknown"},
        {"index with an index",
         {0x47, 0x011E0001, 0x01440002, 0x1111, 0x00040003},
         false,
         Register(),
         "indexSrc->bits.relative_address == IL_ADDR_ABSOLUTE && indexSrc->bits.immediate_present == 0"},
        {"index with an immediate",
         {0x47, 0x011E0001, 0x04440002, 0x1111, 0x00040003},
         false,
         Register(),
         "indexSrc->bits.relative_address == IL_ADDR_ABSOLUTE && indexSrc->bits.immediate_present == 0"},
        {"index without a component",
         {0x47, 0x011E0001, 0x00040002, 0x00040003},
         false,
         Register(),
         "Modifier not present"},
    };

    for (const SDestCase& test : table)
    {
        SCOPED_TRACE(test.pszWhat);
        CLoggingHost host;
        const CShaderDebuggerInstructionIL instruction = Decode(test.words, &host);
        const Register untouched(RT_LITERAL, 77, COMP_z);
        Register reg = untouched;

        EXPECT_EQ(test.bExists, instruction.GetDestRegister(reg));
        EXPECT_EQ(test.bExists ? test.reg : untouched, reg);

        const std::string strLog = host.TakeLog();
        EXPECT_EQ(test.pszLog[0] == '\0', strLog.empty()) << strLog;
        EXPECT_NE(std::string::npos, strLog.find(test.pszLog)) << strLog;

        EXPECT_EQ(test.bExists, instruction.HasDestReg());
        EXPECT_EQ(test.bExists, instruction.WritesToReg(test.reg));
        EXPECT_FALSE(instruction.WritesToReg(untouched));
        host.TakeLog();
        EXPECT_EQ(test.reg, instruction.GetDestRegister());
        EXPECT_EQ(test.bExists, host.TakeLog().find("GetDestRegister(reg)") == std::string::npos);
    }
}

TEST(ShaderDebuggerInstructionIL, TellsTheSourcesWithoutTheirIndices)
{
    CLoggingHost host;
    // mad r0, cb1[3].y, x2[r4.x+5], -r6.zzzz
    const CShaderDebuggerInstructionIL instruction =
        Decode({0x40, 0x00040000, 0x045F0001, 0x1111, 3, 0x051E0002, 0x00440004, 0x0000, 5, 0x00440006, 0xAAAA}, &host);

    ASSERT_EQ(3u, instruction.GetSrcRegCount());
    EXPECT_EQ(Register(RT_CONST_BUFF, 1, COMP_y), instruction.GetSrcRegister(0));
    EXPECT_EQ(Register(RT_IndexableTemp, 2, COMP_All), instruction.GetSrcRegister(1));
    EXPECT_EQ(Register(RT_Temp, 6, COMP_None), instruction.GetSrcRegister(2));
    EXPECT_EQ("", host.TakeLog());

    Register reg(RT_Temp, 1, COMP_x);
    EXPECT_FALSE(instruction.GetSrcRegister(3, reg));
    EXPECT_EQ(g_Reg_NULL, reg);
    EXPECT_EQ(g_Reg_NULL, instruction.GetSrcRegister(0xFFFFFFFF));
    EXPECT_NE(std::string::npos, host.TakeLog().find("GetSrcRegister(nSrcReg, reg)"));

    EXPECT_TRUE(instruction.ReadsFromReg(Register(RT_Temp, 6, COMP_x)));
    EXPECT_FALSE(instruction.ReadsFromReg(Register(RT_Temp, 0, COMP_All)));
    EXPECT_FALSE(instruction.ReadsFromReg(Register(RT_Temp, 4, COMP_All)));
}

struct SSetDestCase
{
    const char* pszWhat;
    Words words;
    RegisterID id;
    Words expected; ///< empty if it is refused
};

TEST(ShaderDebuggerInstructionIL, ReplacesTheDestinationByAPlainRegister)
{
    const Register index(RT_Temp, 2, COMP_y);
    const SSetDestCase table[] = {
        {"plain", {0x47, 0x00040005, 0x00040000}, RegisterID(RT_Temp, 9, 0, nullptr), {0x47, 0x00040009, 0x00040000}},
        {"the mask stays",
         {0x47, 0x00440005, 0x44, 0x00040000},
         RegisterID(RT_Output, 1, 0, nullptr),
         {0x47, 0x00620001, 0x44, 0x00040000}},
        {"index words are dropped",
         {0x91, 0x055E0001, 0x5, 0x00440002, 0x1111, 4, 0x00440003, 0x0000, 0x00040007},
         RegisterID(RT_Temp, 9, 0, nullptr),
         {0x91, 0x00440009, 0x5, 0x00440003, 0x0000, 0x00040007}},
        {"the new index is dropped, too",
         {0x47, 0x00040005, 0x00040000},
         RegisterID(RT_IndexableTemp, 1, 3, &index),
         {0x47, 0x001E0001, 0x00040000}},
        {"no sources", {0x7D, 0x045E0001, 0x55, 4}, RegisterID(RT_Temp, 9, 0, nullptr), {0x7D, 0x00440009, 0x55}},
        {"the sign of a temp",
         {0x47, 0x0804FFFF, 0x00040000},
         RegisterID(RT_Temp, 3, 0, nullptr),
         {0x47, 0x00040003, 0x00040000}},
        {"no destination", {0x28}, RegisterID(RT_Temp, 9, 0, nullptr), {}},
        {"no such register in the IL",
         {0x47, 0x00040005, 0x00040000},
         RegisterID(RT_PrivateUAVAccess, 9, 0, nullptr),
         {}},
    };

    for (const SSetDestCase& test : table)
    {
        SCOPED_TRACE(test.pszWhat);
        CShaderDebuggerInstructionIL instruction = Decode(test.words);
        const bool bExpected = !test.expected.empty();
        EXPECT_EQ(bExpected, instruction.SetDestRegister(test.id));
        EXPECT_EQ(bExpected ? test.expected : test.words, Tokens(instruction));

        // The offsets must have moved with the tokens: decoding the result again gives the same sources.
        const CShaderDebuggerInstructionIL fresh = Decode(Tokens(instruction));

        for (std::uint32_t nSrcReg = 0; nSrcReg <= fresh.GetSrcRegCount(); ++nSrcReg)
        {
            EXPECT_EQ(fresh.GetSrcRegTokenOffset(nSrcReg), instruction.GetSrcRegTokenOffset(nSrcReg));
        }
    }
}

TEST(ShaderDebuggerInstructionIL, CopiesAreDeepAndMovesLeaveNothing)
{
    const Words words = {0x0000015B, 0x00010008, 0x00040009, 0x00040000, 0x00040001, 0x00040002,
                         0x00040003, 0x00040004, 0x00040005, 0x00040006, 0x00040007};
    std::vector<CShaderDebuggerInstructionIL> originals(1, Decode(words));
    CShaderDebuggerInstructionIL copy(originals[0]);
    CShaderDebuggerInstructionIL assigned(nullptr);
    assigned = copy;
    CShaderDebuggerInstructionIL& self = assigned;
    assigned = self;

    ASSERT_TRUE(copy.SetDestRegister(RegisterID(RT_Temp, 15, 0, nullptr)));
    EXPECT_EQ(words, Tokens(originals[0]));
    EXPECT_EQ(words, Tokens(assigned));
    EXPECT_EQ(10u, assigned.GetSrcRegTokenOffset(7));

    CShaderDebuggerInstructionIL moved(std::move(originals[0]));
    EXPECT_EQ(words, Tokens(moved));
    EXPECT_EQ(10u, moved.GetSrcRegTokenOffset(7));

    COutputTokenStream<unsigned int> stream(nullptr, 4);
    EXPECT_EQ(0u, originals[0].GetLength());
    EXPECT_EQ(0u, originals[0].GetSrcRegCount());
    EXPECT_FALSE(originals[0].WriteInstruction(stream));

    copy = std::move(moved);
    CShaderDebuggerInstructionIL& itself = copy;
    copy = std::move(itself);
    EXPECT_EQ(words, Tokens(copy));
}

TEST(ShaderDebuggerInstructionIL, GivesItsTokensOneByOne)
{
    CShaderDebuggerInstructionIL instruction = Decode({IL_OP_CALL, 7});
    IL token = 0;
    EXPECT_TRUE(instruction.ReadToken(token));
    EXPECT_EQ(IL_OP_CALL, token);
    EXPECT_TRUE(instruction.ReadToken(token));
    EXPECT_EQ(7u, token);
    EXPECT_FALSE(instruction.ReadToken(token));
    EXPECT_EQ(2u, instruction.GetReadTokens());
    EXPECT_EQ(0u, instruction.GetToken(2));
    EXPECT_EQ(0u, instruction.GetInstructionModifier());
    EXPECT_EQ(IL_REGTYPE_LAST, instruction.GetDestRegType());

    const CShaderDebuggerInstructionIL macro = Decode({IL_OP_MACRODEF, 0x00010000});
    EXPECT_EQ(0x00010000u, macro.GetInstructionModifier());
    EXPECT_EQ("mdef", macro.GetOpCodeName());
}

} // namespace
