#include "il/ILShaderUtils.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>

using namespace ILShaderUtils;

namespace
{

constexpr unsigned int s_nBeyondAllOpcodes = 800;

ILOpCode Op(unsigned int nNumber)
{
    return static_cast<ILOpCode>(nNumber);
}

/// The numbers of a list such as "6-9 16 17".
std::set<unsigned int> Numbers(const char* pszList)
{
    std::set<unsigned int> numbers;
    std::istringstream list(pszList);
    unsigned int nFirst = 0;

    while (list >> nFirst)
    {
        unsigned int nLast = nFirst;

        if (list.peek() == '-')
        {
            list.get();
            list >> nLast;
        }

        for (unsigned int n = nFirst; n <= nLast; ++n)
        {
            numbers.insert(n);
        }
    }

    return numbers;
}

struct SClassCase
{
    const char* pszName;
    bool (*pPredicate)(ILOpCode);
    bool bExpectedInList;
    const char* pszList;
};

/// The opcode numbers in the token format, compared with the ranges that the code has.
const SClassCase s_ClassCases[] = {
    {"IsDCL", IsDCL, true,
     "20-29 118-128 202 209 212-215 221-223 230 258-259 262-263 302-304 309-315 348-349 352 354-355 423-424"},
    {"IsDCLInput", IsDCLInput, true, "126"},
    {"IsDCLOutput", IsDCLOutput, true, "125"},
    {"IsDCLLiteral", IsDCLLiteral, true, "121"},
    {"IsDCL_UAV", IsDCL_UAV, true, "221 222 223 230"},
    {"IsInstruction", IsInstruction, false,
     "15 345 346 20-29 118-128 202 209 212-215 221-223 230 258-259 262-263 302-304 309-315 348-349 352 354-355 "
     "423-424"},
    {"IsFlowControlOp", IsFlowControlOp, true, "6-9 16 17 39 41 42 50 52 53 62 83 101-117"},
    {"IsFlowControlBlockOp", IsFlowControlBlockOp, true, "39 41 42 52 53 62 109 111 112 113 114"},
    {"HasInstructionModifier", HasInstructionModifier, true, "345 347"},
    {"UsesStandardModifiers", UsesStandardModifiers, false, "128 225 231 232 260 261 345 423 424"},
    {"IsGlobalStore", IsGlobalStore, true, "227 228 229 232 406 407"},
    {"IsGlobalLoad", IsGlobalLoad, true, "224 225 226 231 402 403"},
    {"IsGlobalAtomicOp", IsGlobalAtomicOp, true, "233-255"},
    {"WritesGlobalMemory", WritesGlobalMemory, true,
     "227 228 229 232 233-257 390 391 394 395 406 407 558 559 675 700 705-709"},
    {"WritesLocalMemory", WritesLocalMemory, true, "220 265-288 400 401 427-432 487-516 564 565 712-723"},
    {"IsSampleOp", IsSampleOp, true, "136-141 292-294"},
    {"IsFetch4Op", IsFetch4Op, true, "199 319-321"},
    {"IsGlobalMemAccessOp", IsGlobalMemAccessOp, true,
     "136-141 199 224-229 231-232 233-255 292-294 319-321 402-403 406-407"},
    {"IsReadAtomicOp", IsReadAtomicOp, true, "244-257 277-288 372-386 394-395 429-430 432 502-516 533-547"},
};

TEST(ILShaderUtils, ClassifiesEveryOpcode)
{
    for (const SClassCase& test : s_ClassCases)
    {
        const std::set<unsigned int> numbers = Numbers(test.pszList);

        for (unsigned int n = 0; n < s_nBeyondAllOpcodes; ++n)
        {
            EXPECT_EQ((numbers.count(n) != 0) == test.bExpectedInList, test.pPredicate(Op(n)))
                << test.pszName << " of " << n;
        }
    }
}

// By their names, memory instructions load, declare or write.
TEST(ILShaderUtils, EveryMemoryInstructionThatIsNoLoadWrites)
{
    for (unsigned int n = 0; n < IL_OP_LAST; ++n)
    {
        const std::string strName = HasDescription(Op(n)) ? GetOpCodeName(Op(n)) : "";
        const auto begins = [&](const char* pszText) { return strName.find(pszText) == 0; };
        const bool bLoads = strName.find("load") != std::string::npos;
        EXPECT_EQ(WritesGlobalMemory(Op(n)), (begins("uav_") || begins("flat_") || begins("append_")) && !bLoads)
            << strName;
        EXPECT_EQ(WritesLocalMemory(Op(n)), begins("lds_") && !bLoads) << strName;
    }
}

struct SShapeCase
{
    IL opToken;
    IL instructionModifier;
    unsigned int nDestCount;
    unsigned int nSrcCount;
};

/// One opcode for each format code, and those where the token or the modifier word decides.
const SShapeCase s_ShapeCases[] = {
    {0, 0, 0, 0},                // none
    {IL_OP_SAMPLEINFO, 0, 1, 0}, // 1001
    {IL_OP_SAMPLE, 0, 1, 1},     // 1002
    {IL_OP_SAMPLE_L, 0, 1, 2},   // 1003
    {IL_OP_SAMPLE_G, 0, 1, 3},   // 1004
    {IL_OP_SAMPLE_C_G, 0, 1, 4}, // 1005
    {IL_OP_MACRODEF, 0x10000, 0, 0},
    {IL_OP_MACROCALL, 0x00010002, 1, 2},
    {IL_OP_MACROCALL, 0x00000002, 0, 2},
    {IL_OP_MACROCALL, 0x00000008, 0, 8},
    {IL_DCL_OUTPUT, 0, 1, 0},       // 1010
    {IL_OP_MOV, 0, 1, 1},           // 1011
    {IL_OP_UAV_RAW_STORE, 0, 1, 2}, // 1012
    {IL_OP_MAD, 0, 1, 3},           // 1013
    {IL_OP_U_BIT_INSERT, 0, 1, 4},  // 1014
    {IL_OP_ENDMAIN, 0, 0, 0},       // 1015
    {IL_OP_CALL, 0, 0, 0},          // 1016
    {IL_OP_IFNZ, 0, 0, 1},          // 1017
    {IL_OP_CALLNZ, 0, 0, 1},        // 1018
    {IL_OP_IFC, 0, 0, 2},           // 1019
    {IL_OP_UAV_CMP, 0, 0, 3},       // 1020
    {IL_OP_CUT_STREAM, 0, 0, 0},    // 1022
    {IL_DCL_RESOURCE, 0, 0, 0},     // 1023
    {IL_OP_DCL_TYPED_UAV, 0, 0, 0}, // 2001
    {IL_DCL_LITERAL, 0, 0, 1},      // 2003
    {IL_DCL_LDS, 0, 0, 0},          // 2004
    {IL_DCL_INDEXED_TEMP_ARRAY, 0, 0, 1},
    {IL_OP_DCL_NUM_THREAD_PER_GROUP, 0, 0, 0},
    {IL_DCL_CONST_BUFFER, 0, 0, 1},
    {0x80000000u | IL_DCL_CONST_BUFFER, 0, 0, 0},
    {0x80000000u | IL_OP_MOV, 0, 1, 1},
    {IL_OP_MEMEXPORT, 0, 0, 0}, // no row
    {0xFFFFu, 0, 0, 0},         // no opcode
};

TEST(ILShaderUtils, TellsTheOperandsOfEveryFormat)
{
    for (const SShapeCase& test : s_ShapeCases)
    {
        EXPECT_EQ(test.nDestCount, GetDestRegCount(test.opToken, test.instructionModifier)) << test.opToken;
        EXPECT_EQ(test.nDestCount != 0, HasDestReg(test.opToken, test.instructionModifier)) << test.opToken;
        EXPECT_EQ(test.nSrcCount, GetSrcRegCount(test.opToken, test.instructionModifier)) << test.opToken;
    }
}

struct SNameCase
{
    unsigned int nOpCode;
    const char* pszName;
};

const SNameCase s_NameCases[] = {
    {0, "none"},
    {172, "and"},
    {301, "ubit_reverse"},
    {191, "dfrexp"},
    {196, "dldexp"},
    {189, "invariant_move"},
    {336, "f_2_u4"},
    {291, "emit_cut_sream"},
    {113, "whileloop"},
    {736, "sleep"},
    {316, "fcall"},
    {82, "reflect"},
    {66, ""},
    {737, ""},
    {65535, ""},
};

TEST(ILShaderUtils, NamesAnOpcodeByItsFirstRow)
{
    for (const SNameCase& test : s_NameCases)
    {
        EXPECT_STREQ(test.pszName, GetOpCodeName(Op(test.nOpCode))) << test.nOpCode;
    }
}

TEST(ILShaderUtils, KnowsAShapeFromARowOrFromTrailingWords)
{
    EXPECT_TRUE(HasDescription(IL_OP_SLEEP));
    EXPECT_TRUE(HasDescription(IL_OP_DCL_TOTAL_NUM_THREAD_GROUP));
    EXPECT_STREQ("", GetOpCodeName(IL_OP_DCL_TOTAL_NUM_THREAD_GROUP));
    EXPECT_FALSE(HasDescription(IL_OP_MEMEXPORT));
    EXPECT_FALSE(HasDescription(IL_OP_LAST));
    EXPECT_FALSE(HasDescription(Op(65535)));
}

} // namespace
