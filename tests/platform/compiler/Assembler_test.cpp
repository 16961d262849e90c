#include "platform/compiler/Assembler.h"
#include "platform/compiler/ControlFields.h"
#include "platform/compiler/Disassembler.h"
#include "platform/il/InstructionShape.h"
#include "platform/il/RegisterNames.h"
#include "tests/platform/compiler/StreamGenerator.h"

#include <gtest/gtest.h>

using namespace KestrelPlatform;

namespace
{

std::vector<uint32_t> Assemble(const std::string& strText, SDiagnostic& diag, std::vector<uint32_t>* pvLines = nullptr)
{
    std::vector<uint32_t> v;
    AssembleIL(strText.data(), strText.size(), v, diag, pvLines);
    return v;
}

std::string Disassemble(const std::vector<uint32_t>& v)
{
    std::string strText;
    std::string strError;
    return DisassembleIL(v.data(), v.size(), strText, strError) ? strText : "refused: " + strError;
}

struct SEncoding
{
    const char* pText;
    std::vector<uint32_t> vWords;
    const char* pPrinted; ///< null: same as the input
};

class Encoding : public testing::TestWithParam<SEncoding>
{
};

TEST_P(Encoding, TextAndWordsAgree)
{
    SDiagnostic diag;
    std::vector<uint32_t> vExpected = {0, 0x00030200};
    vExpected.insert(vExpected.end(), GetParam().vWords.begin(), GetParam().vWords.end());
    EXPECT_EQ(Assemble(std::string("il_cs_2_0\n") + GetParam().pText, diag), vExpected) << diag.ToString();
    const char* pPrinted = GetParam().pPrinted == nullptr ? GetParam().pText : GetParam().pPrinted;
    EXPECT_EQ(Disassemble(vExpected), std::string("il_cs_2_0\n") + pPrinted + "\n");
}

// Words encoded by hand according to the layout of tokens.
const SEncoding s_Encodings[] = {
    {"iadd r16.x, r16.x, l3.x", {0x91, 0x00440010, 1, 0x00440010, 0, 0x00600003, 0}, nullptr},
    {"dcl_cb cb1[19]", {0x76, 0x041F0001, 0x13}, nullptr},
    {"dcl_literal l5, 1, 1, 1, 1", {0x79, 0x00200005, 1, 1, 1, 1}, "dcl_literal l5, 0x1, 0x1, 0x1, 0x1"},
    {"dcl_literal l5, 1.0, -1, 0x10, -0.5f",
     {0x79, 0x00200005, 0x3F800000, 0xFFFFFFFF, 0x10, 0xBF000000},
     "dcl_literal l5, 0x3F800000, 0xFFFFFFFF, 0x10, 0xBF000000"},
    {"dcl_literal l0, 1e2, .5, 4294967295, -2147483648",
     {0x79, 0x00200000, 0x42C80000, 0x3F000000, 0xFFFFFFFF, 0x80000000},
     "dcl_literal l0, 0x42C80000, 0x3F000000, 0xFFFFFFFF, 0x80000000"},
    {"uav_raw_store_id(11)_addr64 mem0.x, r1.xyxx, r2.x",
     {0x200B00E4, 0x006F0000, 1, 0x00440001, 0x0010, 0x00440002, 0},
     nullptr},
    {"uav_raw_load_id(11)_cached_aligned r0, r1.y", {0x440B00E1, 0x00040000, 0x00440001, 0x1111}, nullptr},
    {"mov r0.x_z_, cb1[3].xy00", {0x47, 0x00440000, 0x11, 0x045F0001, 0x4410, 3}, nullptr},
    {"mov x1[r2.x+4], l7", {0x47, 0x051E0001, 0x00440002, 0, 4, 0x00200007}, nullptr},
    {"mov x1[r2.x - 4].y, l7",
     {0x47, 0x055E0001, 4, 0x00440002, 0, 0xFFFFFFFC, 0x00200007},
     "mov x1[r2.x+0xFFFFFFFC]._y__, l7"},
    {"mov r0.yw, r1.xy", {0x47, 0x00440000, 0x44, 0x00440001, 0x1110}, "mov r0._y_w, r1.xyyy"},
    {"mov r0.x01_, r1.w10x_neg(xw)_abs", {0x47, 0x00440000, 0x39, 0x00440001, 0x10845B}, nullptr},
    {"mul_sat_x4 r0, r1, r2", {0x49, 0x00440000, 0x555, 0x00040001, 0x00040002}, "mul_sat_x4 r0.xyzw, r1, r2"},
    {"mov r-1, r-65536", {0x47, 0x0804FFFF, 0x08040000}, nullptr},
    {"mov r0, v2[dim 3][7]", {0x47, 0x00040000, 0x06210002, 3, 7}, nullptr},
    {"mov r0, c1[rel(0x10005)+2]", {0x47, 0x00040000, 0x04810001, 0x10005, 2}, nullptr},
    {"mov r0{ext(0x7)}, vTidInGrp.x", {0x47, 0x80040000, 7, 0x00690000, 0}, nullptr},
    {"call 1030", {8, 1030}, nullptr},
    {"call 1234567", {8, 1234567}, nullptr},
    {"call_logicalnz r0.x, 4", {104, 0x00440000, 0, 4}, nullptr},
    {"case 3", {105, 3}, nullptr},
    {"func 1024 ;__OpenCL_add_kernel",
     {50, 1024, 15, 5, 0x704F5F5F, 0x4C436E65, 0x6464615F, 0x72656B5F, 0x006C656E},
     "func 1024\n;__OpenCL_add_kernel"},
    {";abc", {15, 1, 0x00636261}, nullptr},
    {";abcd", {15, 2, 0x64636261, 0}, nullptr},
    {"; a ; b", {15, 2, 0x3B206120, 0x00006220}, nullptr},
    {"comment 0x64636261", {15, 1, 0x64636261}, nullptr},
    {"comment", {15, 0}, nullptr},
    {"fence_threads_lds", {218 | 3u << 16}, nullptr},
    {"fence_memory_ctl(0x20)", {218 | 0x24u << 16}, nullptr},
    {"breakc_relop(lt) r0.x, r1.x", {7 | 4u << 16, 0x00440000, 0, 0x00440001, 0}, nullptr},
    {"dcl_lds_id(1) 1024", {262 | 1u << 16, 1024}, nullptr},
    {"lds_load_id(1) r0.x, r1.x", {264 | 1u << 16, 0x00440000, 1, 0x00440001, 0}, nullptr},
    {"dcl_typeless_uav_id(12)_access(private)_stride(4)_length(64)", {424 | 12u << 16 | 3u << 26, 4, 64}, nullptr},
    {"dcl_raw_uav_id(11)", {222 | 11u << 16}, nullptr},
    {"dcl_resource_id(2)_type(2d)_unnorm 0", {128 | 2u << 16 | 2u << 24 | 1u << 31, 0}, nullptr},
    {"sample_resource(0)_sampler(3) r0, r1", {136 | 3u << 24, 0x00040000, 0x00040001}, nullptr},
    {"dcl_num_thread_per_group 64, 1, 1", {212 | 3u << 16, 64, 1, 1}, nullptr},
    {"dcl_max_thread_per_group 256", {352, 256}, nullptr},
    {"dcl_wavesize 64", {703 | 64u << 16}, nullptr},
    {"dcl_cb_sec(0x9)_inline 0x1, 0x2", {118 | 3u << 30, 2, 1, 2, 9}, nullptr},
    {"mcall(5)_out(1)_in(2) r0, r1, r2", {347 | 5u << 16, 0x10002, 0x00040000, 0x00040001, 0x00040002}, nullptr},
    {"mcall(5)_out(0)_in(0)", {347 | 5u << 16, 0}, nullptr},
    {"mdef(5)_outline", {345 | 5u << 16, 0x10000}, nullptr},
    {"mov_pri(0x1)_sec(0x2) r0, r1", {71 | 3u << 30, 1, 2, 0x00040000, 0x00040001}, nullptr},
    {"op(213) 4, 1", {213 | 2u << 16, 4, 1}, nullptr},
    {"op(71) r0, r1", {71, 0x00040000, 0x00040001}, "mov r0, r1"},
    {"iand r0, r1, r2", {172, 0x00040000, 0x00040001, 0x00040002}, "and r0, r1, r2"},
    {" \t mov  r0 ,r1 \t", {71, 0x00040000, 0x00040001}, "mov r0, r1"},
    {"mov r0, r1\r", {71, 0x00040000, 0x00040001}, "mov r0, r1"},
};

INSTANTIATE_TEST_SUITE_P(ByHand, Encoding, testing::ValuesIn(s_Encodings));

TEST(Assembler, OpeningLines)
{
    SDiagnostic diag;
    EXPECT_EQ(Assemble("il_ps_3_1", diag), (std::vector<uint32_t>{0, 0x00010301}));
    EXPECT_EQ(Disassemble({0, 0x00010301}), "il_ps_3_1\n");
    EXPECT_EQ(Disassemble({5, 0x01030200}), "il(0x5, 0x1030200)\n");
    EXPECT_EQ(Assemble("il(0x5, 0x1030200)", diag), (std::vector<uint32_t>{5, 0x01030200}));
}

TEST(Assembler, MacrosStandInFrontAndCommentsThereDont)
{
    const char* pText = "; lost\nmdef(3)_mod(0x2)\n;kept\nmend\n; lost too\nil_cs_2_0\nend";
    SDiagnostic diag;
    const std::vector<uint32_t> vExpected = {345 | 3u << 16, 2, 15, 2, 0x7470656B, 0, 346, 0, 0x00030200, 40};
    EXPECT_EQ(Assemble(pText, diag), vExpected) << diag.ToString();
    EXPECT_EQ(Disassemble(vExpected), "mdef(3)_mod(0x2)\n;kept\nmend\nil_cs_2_0\nend\n");
}

TEST(Assembler, LinesAreThoseOfInstructions)
{
    SDiagnostic diag;
    std::vector<uint32_t> vLines;
    Assemble("il_cs_2_0\n\ndcl_cb cb0[1]\n;c\nmov r0, r1 ;x\ndcl_wavesize 64\nendmain\n", diag, &vLines);
    // dcl_wavesize counts as an instruction, as everywhere in the system.
    EXPECT_EQ(vLines, (std::vector<uint32_t>{5, 6, 7}));
}

TEST(Disassembler, ACommentThatWouldBeJoinedToTheOneInFrontIsPrintedInWords)
{
    const std::vector<uint32_t> v = {0, 0x00030200, 15, 2, 0x636E7566, 0, 15, 1, 0x61, 15, 1, 0x62};
    EXPECT_EQ(Disassemble(v), "il_cs_2_0\n;func\ncomment 0x61\n;b\n");
}

struct SFault
{
    const char* pText;
    const char* pMessage;
};

class Fault : public testing::TestWithParam<SFault>
{
};

TEST_P(Fault, NamesThePlaceAndWhatWasExpected)
{
    SDiagnostic diag;
    EXPECT_TRUE(Assemble(GetParam().pText, diag).empty());
    EXPECT_EQ(diag.ToString(), GetParam().pMessage);
}

const SFault s_Faults[] = {
    {"", "line 1, column 1: expected the opening line 'il_cs_2_0', got the end of the text"},
    {"; only a comment", "line 2, column 1: expected the opening line 'il_cs_2_0', got the end of the text"},
    {"mov r0, r1", "line 1, column 1: expected the opening line 'il_cs_2_0', got 'mov'"},
    {"il_xs_2_0", "line 1, column 1: expected the opening line 'il_cs_2_0', got 'il_xs_2_0'"},
    {"mdef(1)\nend", "line 3, column 1: expected 'mend', got the end of the text"},
    {"il_cs_2_0\nmvo r0, r1", "line 2, column 1: expected an instruction, got 'mvo'"},
    {"il_cs_2_0\nmov_foo r0, r1", "line 2, column 5: expected a suffix of mov, got 'foo'"},
    {"il_cs_2_0\nend_sat", "line 2, column 5: expected a suffix of end, got 'sat'"},
    {"il_cs_2_0\n mov r0 r1", "line 2, column 9: expected ',', got 'r1'"},
    {"il_cs_2_0\nmov r0, q1", "line 2, column 9: expected a register, got 'q1'"},
    {"il_cs_2_0\nmov r0,", "line 2, column 8: expected a register, got the end of the line"},
    {"il_cs_2_0\nmov r70000, r1", "line 2, column 6: a register number is at most 65535"},
    {"il_cs_2_0\nmov r0.yx, r1", "line 2, column 8: expected a mask such as xy, x_z_ or x01_, got 'yx'"},
    {"il_cs_2_0\nmov r0, r1.xq", "line 2, column 12: expected a swizzle of x, y, z, w, 0 and 1, got 'xq'"},
    {"il_cs_2_0\nmov r0, r1_wide", "line 2, column 12: expected a source modifier, got 'wide'"},
    {"il_cs_2_0\nmov r0_abs, r1", "line 2, column 7: modifiers of a destination stand after the mnemonic"},
    {"il_cs_2_0\nmov r0, cb1[3", "line 2, column 14: expected ']', got the end of the line"},
    {"il_cs_2_0\nmov r0, x1[x2[3]]", "line 2, column 14: an index register has no index of its own"},
    {"il_cs_2_0\nmov r0, r1, r2", "line 2, column 11: expected ',' or the end of the line, got ','"},
    {"il_cs_2_0\nmov r0, r1{bits(0x400000)}",
     "line 2, column 12: bits(...) sets a bit that has a spelling of its own or brings a word"},
    {"il_cs_2_0\ndcl_literal l0, 1, 2, 3", "line 2, column 24: expected ',', got the end of the line"},
    {"il_cs_2_0\ndcl_literal l0, 1, 2, 3, 0x123456789", "line 2, column 26: the number doesn't fit in 32 bits"},
    {"il_cs_2_0\ndcl_literal l0, 1, 2, 3, 4294967296", "line 2, column 26: the number doesn't fit in 32 bits"},
    {"il_cs_2_0\ndcl_literal l0, 1, 2, 3, 1e99",
     "line 2, column 26: the number doesn't fit in a single-precision float"},
    {"il_cs_2_0\ndcl_literal l0, 1, 2, 3, 1.2.3", "line 2, column 26: expected a number, got '1.2.3'"},
    {"il_cs_2_0\nuav_raw_store_id(1024) mem0, r0, r1", "line 2, column 18: id is at most 1023"},
    {"il_cs_2_0\nuav_raw_store_id(1)_id(2) mem0, r0, r1", "line 2, column 21: id sets bits that are given already"},
    {"il_cs_2_0\nuav_raw_store_id(1)_aligned mem0, r0, r1",
     "line 2, column 21: expected a suffix of uav_raw_store, got 'aligned'"},
    {"il_cs_2_0\nmcall(3)_in(1)", "line 2, column 15: expected a register, got the end of the line"},
    {"il_cs_2_0\nop(5000)", "line 2, column 4: an opcode is at most 736"},
    {"il_cs_2_0\nop(216)", "line 2, column 3: expected a known opcode, got '('"},
};

INSTANTIATE_TEST_SUITE_P(Table, Fault, testing::ValuesIn(s_Faults));

TEST(Disassembler, RefusesWhatDoesntDecode)
{
    EXPECT_EQ(Disassemble({}), "refused: token 0: the stream is cut short: no language and version words");
    EXPECT_EQ(Disassemble({0, 0x200, 0x47, 0x00040000}), "refused: token 2: the stream is cut short");
    EXPECT_EQ(Disassemble({0, 0x200, 40, 737}), "refused: token 3: unknown opcode");
    EXPECT_EQ(Disassemble({0, 0x200, 0}), "refused: token 2: unknown opcode");
    EXPECT_EQ(Disassemble({0, 0x200, 0x47, 0x03040000, 0, 0}),
              "refused: token 2: a register has both a run-time index and a dimension");
    EXPECT_EQ(Disassemble({0, 0x200, 15, 0xFFFFFFFF, 0}), "refused: token 2: the stream is cut short");
}

// The compiler has its own shape tables, which must agree with the library that receives the tokens.
TEST(InstructionShape, AgreesWithTheLibrarysOpcodeQueries)
{
    for (const uint32_t nOpcode : CStreamGenerator::KnownOpcodes())
    {
        const ILOpCode op = static_cast<ILOpCode>(nOpcode);
        const SInstructionShape& shape = GetInstructionShape(nOpcode);
        ASSERT_NE(shape.pName, nullptr) << nOpcode;
        EXPECT_STREQ(shape.pName, ILShaderUtils::GetOpCodeName(op));
        EXPECT_EQ(shape.bModifierWords, ILShaderUtils::UsesStandardModifiers(op)) << shape.pName;
        EXPECT_EQ(shape.bInstructionModifier, ILShaderUtils::HasInstructionModifier(op)) << shape.pName;
        for (const uint32_t nModifier : {0u, 0x10002u, 0x8u})
        {
            for (const uint32_t nToken : {nOpcode, nOpcode | s_nPrimaryBit})
            {
                EXPECT_EQ(HasDestination(nToken, nModifier), ILShaderUtils::HasDestReg(nToken, nModifier))
                    << shape.pName;
                EXPECT_EQ(GetSourceCount(nToken, nModifier), ILShaderUtils::GetSrcRegCount(nToken, nModifier))
                    << shape.pName;
            }
        }
        const bool bHullPhase = nOpcode >= 305 && nOpcode <= 308;
        EXPECT_TRUE(bHullPhase || IsInstructionOpcode(nOpcode) == ILShaderUtils::IsInstruction(op)) << shape.pName;
    }
}

TEST(RegisterNames, AreUniqueAndReadBack)
{
    for (unsigned int n = 0; n < 64; ++n)
    {
        EXPECT_EQ(FindRegisterType(GetRegisterTypeName(n)), static_cast<int>(n));
    }
}

} // namespace
