#include "TestKernel.h"

namespace OVK_ShaderDebugger
{

namespace
{

/// A body that ends in a write of "x0[r1.x]" or another indexed register, and the value of the index.
struct SIndexCase
{
    const char* pszName;
    const char* pszBody;
    int nIndex; ///< -1: stays dynamic
    const char* pszWarning = nullptr;
};

class IndexResolution : public testing::TestWithParam<SIndexCase>
{
};

TEST_P(IndexResolution, FindsTheConstantOrStaysDynamic)
{
    CTestKernel kernel(std::string("il_cs_2_0\ndcl_cb cb0[10]\ndcl_max_thread_per_group 64\n"
                                   "dcl_literal l1, 5, 6, 7, 8\ndcl_literal l2, 2, 2, 2, 2\n"
                                   "dcl_literal l3, 2, 2, 2, 2\ndcl_literal l4, 33, 0, 0, 0\n"
                                   "dcl_typeless_uav_id(8)_stride(4)_length(64)_access(private)\n"
                                   "dcl_indexed_temp_array x0[16]\n") +
                       GetParam().pszBody + "end\n");
    ASSERT_TRUE(kernel.IsAnalyzed());
    const auto itLast = std::find_if(kernel.Shader().m_RegisterOutput.rbegin(), kernel.Shader().m_RegisterOutput.rend(),
                                     [](const auto& entry) { return IsRegTypeIndexed(entry.second.reg.type); });
    ASSERT_NE(itLast, kernel.Shader().m_RegisterOutput.rend());
    const RegisterID& reg = itLast->second.reg;
    EXPECT_EQ(reg.pIndexRegister == nullptr, GetParam().nIndex >= 0);

    if (GetParam().nIndex >= 0)
    {
        EXPECT_EQ(reg.index, static_cast<unsigned int>(GetParam().nIndex));
    }

    EXPECT_EQ(kernel.Host().CountLog(logWARNING, "Indexed temp could not be resolved"),
              GetParam().nIndex < 0 ? 1u : 0u);

    if (GetParam().pszWarning != nullptr)
    {
        EXPECT_EQ(kernel.Host().CountLog(logWARNING, GetParam().pszWarning), 1u);
    }
}

const SIndexCase s_Cases[] = {
    {"Constant", "mov x0[3], r0\n", 3},
    {"Move", "mov r1, l1\nmov x0[r1.x], r0\n", 5},
    {"MoveOfAComponent", "mov r1.x, l1.x\nmov x0[r1.x], r0\n", 5},
    {"SwizzledMove", "mov r1.x, l1.z\nmov x0[r1.x], r0\n", 7},
    {"OtherComponent", "mov r1, l1\nmov x0[r1.w], r0\n", 8},
    {"LiteralItself", "mov x0[l1.y], r0\n", 6},
    {"OnTopOfAnImmediate", "mov r1.x, l1.x\nmov x0[r1.x+4], r0\n", 9},
    {"Add", "mov r1.x, l1.x\niadd r1.x, r1.x, l2.x\nmov x0[r1.x], r0\n", 7},
    {"AddThenShift", "iadd r1.x, l1.w, l1.w\nishr r1.x, r1.x, l2.x\nmov x0[r1.x], r0\n", 4},
    {"ShiftAmountModulo32", "iadd r2.x, l3.x, l2.x\nmov r2.y, l4.x\nishr r1.x, r2.x, r2.y\nmov x0[r1.x], r0\n", 2},
    {"UndeclaredLiteralIsZero", "mov r1.x, l9.x\nmov x0[r1.x], r0\n", 0},
    {"LastWriteCounts", "mov r1.x, l1.y\nmov r1.x, l1.x\nmov x0[r1.x], r0\n", 5},
    {"OtherComponentsDontMatter", "mov r1.x, l1.x\nmov r1.y, r7.x\nmov x0[r1.x], r0\n", 5},
    {"OldValueOfTheSource", "mov r2.x, l1.x\nmov r1.x, r2.x\nmov r2.x, l1.y\nmov x0[r1.x], r0\n", 5},
    {"OtherFileWithTheNumber", "mov r1.x, l1.x\nmov x1[1], r0\nuav_raw_store_id(10) mem1.x, r0, r0\nmov x0[r1.x], r0\n",
     5},
    {"PiecesOfAVector", "mov r2.x, l1.w\nmov r2.y, l1.x\nmov r1, r2.yx\nmov x0[r1.y], r0\n", 8},
    {"PrivateStore", "mov r1.x, l1.w\nuav_raw_store_id(8) mem0.x, r1.x, r0\n", 8},
    {"DefinedAboveTheIf", "mov r1.x, l1.x\nif_logicalnz r0.x\nmov r1.x, l1.y\nelse\nmov x0[r1.x], r0\nendif\n", 5},
    {"DefinedAboveTheSwitch",
     "mov r1.x, l1.x\nswitch r0.x\ncase 0\nmov r1.x, l1.y\nbreak\ndefault\nmov x0[r1.x], r0\nbreak\nendswitch\n", 5},
    {"WrittenInAnIf", "if_logicalnz r0.x\nmov r1.x, l1.x\nendif\nmov x0[r1.x], r0\n", -1},
    {"WrittenInASwitch", "switch r0.x\ncase 0\nmov r1.x, l1.x\nbreak\nendswitch\nmov x0[r1.x], r0\n", -1},
    {"InALoop", "mov r1.x, l1.x\nwhileloop\nmov x0[r1.x], r0\niadd r1.x, r1.x, l2.x\nendloop\n", -1},
    {"AfterALoop", "mov r1.x, l1.x\nwhileloop\nbreak\nendloop\nmov x0[r1.x], r0\n", -1},
    {"AfterACall", "mov r1.x, l1.x\ncall 5\nmov x0[r1.x], r0\n", -1},
    {"AfterAMacro", "mov r1.x, l1.x\nmcall(5)_in(0)\nmov x0[r1.x], r0\n", -1},
    {"OfTheWorkItem", "mov r1.x, vTidInGrp.x\nmov x0[r1.x], r0\n", -1, "Expression could not be reduced to literals."},
    {"NeverWritten", "mov x0[r1.x], r0\n", -1, "Expression could not be reduced to literals."},
    {"OutOfAnArray", "mov r1.x, x0[2].x\nmov x0[r1.x], r0\n", -1, "Can only track across simple registers."},
    {"OtherInstruction", "imul r1.x, l1.x, l2.x\nmov x0[r1.x], r0\n", -1, "Cannot resolve instruction 149."},
    {"NegatedLiteral", "uav_raw_store_id(8) mem0.x, l1.x_neg(x), r0\n", -1},
    {"NegatedAddress", "mov r1, l1\nuav_raw_store_id(8) mem0.x, r1.x_neg(x), r0\n", -1},
    {"ZeroForAComponent", "mov r1.x, l1.0\nmov x0[r1.x], r0\n", -1, "Cannot resolve instruction 71."},
    {"OneForAComponentThatIsntUsed", "mov r1.xy, l1.x1\nmov x0[r1.x], r0\n", 5},
    {"NegatedSource", "mov r1.x, l1.x_neg(x)\nmov x0[r1.x], r0\n", -1, "Cannot resolve instruction 71."},
    {"SaturatedResult", "mov_sat r1.x, l1.x\nmov x0[r1.x], r0\n", -1, "Can only track across simple registers."},
};

INSTANTIATE_TEST_SUITE_P(Bodies, IndexResolution, testing::ValuesIn(s_Cases),
                         [](const auto& test) { return std::string(test.param.pszName); });

TEST(IndexResolver, LooksOnlySoFarBack)
{
    std::string strBody = "il_cs_2_0\ndcl_cb cb0[10]\ndcl_max_thread_per_group 64\ndcl_literal l1, 5, 5, 5, 5\n"
                          "mov r1.x, l1.x\n";

    for (int i = 0; i < 99; ++i)
    {
        strBody += "mov r2, r3\n";
    }

    CTestKernel within(strBody + "mov x0[r1.x], r0\nend\n");
    ASSERT_TRUE(within.IsAnalyzed());
    EXPECT_EQ(within.Written(100), Register(RT_IndexableTemp, 0, COMP_All, 5));

    CTestKernel beyond(strBody + "mov r2, r3\nmov x0[r1.x], r0\nend\n");
    ASSERT_TRUE(beyond.IsAnalyzed());
    EXPECT_NE(beyond.Written(101).reg.pIndexRegister, nullptr);
}

TEST(IndexResolver, RefusesWhatHasNoIndexAndWhatLiesPastTheKernel)
{
    CTestKernel kernel("il_cs_2_0\ndcl_cb cb0[10]\ndcl_max_thread_per_group 64\nmov r0, r1\nend\n");
    Register element(RT_IndexableTemp, 0, COMP_All, 5);
    Register temp(RT_Temp, 0, COMP_All);
    EXPECT_TRUE(kernel.Shader().ResolveIndexRegisterToConstant(&element, 2, 1));
    EXPECT_FALSE(kernel.Shader().ResolveIndexRegisterToConstant(&element, 3, 1));
    EXPECT_FALSE(kernel.Shader().ResolveIndexRegisterToConstant(&temp, 2, 1));
    EXPECT_FALSE(kernel.Shader().ResolveIndexRegisterToConstant(nullptr, 2, 1));
}

} // namespace

} // namespace OVK_ShaderDebugger
