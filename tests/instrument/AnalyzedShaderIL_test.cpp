#include "TestKernel.h"

#include "core/ErrorStrings.h"

namespace OVK_ShaderDebugger
{

namespace
{

/// A kernel whose function has this body; the declarations are in its main body.
std::string Kernel(const std::string& strBody, const std::string& strDecls = "")
{
    return "il_cs_2_0\ndcl_cb cb0[10]\n" + strDecls +
           "call 1024\nendmain\nfunc 1024\n;__OpenCL_k_kernel\ndcl_max_thread_per_group 64\n" + strBody +
           "ret\nendfunc\nend\n";
}

std::string Repeat(const std::string& strText, unsigned int n)
{
    std::string strAll;

    while (n-- != 0)
    {
        strAll += strText;
    }

    return strAll;
}

typedef std::vector<unsigned int> Numbers;

struct SRegisterCase
{
    const char* pszName;
    std::string strBody;
    Numbers vTemps; ///< the debugger's own, in order: five by role, then the loop counters
    Numbers vLiterals;
    size_t nUnwritten = 0; ///< temps first read by an instruction that writes none, which is logged
};

class RegisterAllocation : public testing::TestWithParam<SRegisterCase>
{
};

TEST_P(RegisterAllocation, TakesTheLowestFreeNumbers)
{
    CTestKernel kernel(Kernel(GetParam().strBody));
    ASSERT_TRUE(kernel.IsAnalyzed());
    const CTestShader& shader = kernel.Shader();
    EXPECT_EQ(shader.m_nPatchedTempRegisters, GetParam().vTemps);
    EXPECT_TRUE(std::equal(shader.m_nTempRegisters.begin(), shader.m_nTempRegisters.end(), GetParam().vTemps.begin()));
    EXPECT_EQ(Numbers(shader.m_nLiteralRegisters.begin(), shader.m_nLiteralRegisters.end()), GetParam().vLiterals);
    EXPECT_EQ(kernel.Host().CountLog(logASSERT, "m_vTempRegisterUsed["), GetParam().nUnwritten);
}

std::string TempsTo9()
{
    std::string strBody;

    for (int i = 0; i < 10; ++i)
    {
        strBody += "mov r" + std::to_string(i) + ", vTidInGrp\n";
    }

    return strBody;
}

const SRegisterCase s_RegisterCases[] = {
    {"TwoLoopsDeep",
     TempsTo9() + "whileloop\nwhileloop\nbreak\nendloop\nbreak\nendloop\n",
     {10, 11, 12, 13, 14, 15},
     {0, 1, 2, 3, 4}},
    {"FiveLoopsDeep",
     TempsTo9() + Repeat("whileloop\n", 5) + Repeat("break\nendloop\n", 5),
     {10, 11, 12, 13, 14, 15, 16},
     {0, 1, 2, 3, 4}},
    {"NoLoop", TempsTo9(), {10, 11, 12, 13, 14}, {0, 1, 2, 3, 4}},
    {"Gaps", "dcl_literal l1, 0, 0, 0, 0\ndcl_literal l3, 0, 0, 0, 0\nmov r3, l1\n", {0, 1, 2, 4, 5}, {0, 2, 4, 5, 6}},
    {"SourceOfAStore", "mov r2, l0\nuav_store_id(10) r1, r2\n", {0, 3, 4, 5, 6}, {0, 1, 2, 3, 4}, 1},
    {"ReadButNeverWritten", "mov r1, r0\nmov r3, cb0[r4.x]\n", {2, 5, 6, 7, 8}, {0, 1, 2, 3, 4}},
    {"IndexOfADestination", "dcl_indexed_temp_array x0[4]\nmov x0[r0.x], r1\n", {2, 3, 4, 5, 6}, {0, 1, 2, 3, 4}, 1},
    {"NegativeTempsAreASetOfTheirOwn", "mov r-1, vTidInGrp\n", {0, 1, 2, 3, 4}, {0, 1, 2, 3, 4}},
    {"SiblingLoopsShare",
     "whileloop\nbreak\nendloop\nwhileloop\nbreak\nendloop\n",
     {0, 1, 2, 3, 4, 5},
     {0, 1, 2, 3, 4}},
};

INSTANTIATE_TEST_SUITE_P(Kernels, RegisterAllocation, testing::ValuesIn(s_RegisterCases),
                         [](const auto& test) { return std::string(test.param.pszName); });

TEST(Analysis, GivesEachLoopDepthAComponent)
{
    CTestKernel kernel(Kernel(Repeat("whileloop\n", 6) + Repeat("break\nendloop\n", 6)));
    ASSERT_TRUE(kernel.IsAnalyzed());
    // These come after the five temps and the five literals by role.
    const unsigned int expected[][3] = {{5, COMP_x, 5}, {5, COMP_y, 5}, {5, COMP_z, 5},
                                        {5, COMP_w, 5}, {6, COMP_x, 6}, {6, COMP_y, 6}};

    for (InstructionNumber i = 0; i < 6; ++i)
    {
        const InstructionNumber nLoop = kernel.Find("whileloop", i);
        const CIL_Loop* pLoop = kernel.Shader().m_FlowControl.at(nLoop)->AsLoop();
        ASSERT_NE(pLoop, nullptr);
        EXPECT_EQ(pLoop->GetStart(), nLoop);
        EXPECT_EQ(pLoop->GetEnd(), kernel.Find("endloop", 5 - i));
        EXPECT_EQ(pLoop->GetCountRegister(), expected[i][0]);
        EXPECT_EQ(pLoop->GetCountComponent(), static_cast<Component>(expected[i][1]));
        EXPECT_EQ(pLoop->GetLiteralRegister(), expected[i][2]);
    }
}

struct SUavCase
{
    const char* pszName;
    const char* pszDevice;
    std::string strDecls;
    unsigned int nResults; ///< 0: the kernel is refused
    unsigned int nExecMask;
};

class UavAllocation : public testing::TestWithParam<SUavCase>
{
};

std::string DeclareUavs(unsigned int nFirst, unsigned int nLast)
{
    std::string strDecls;

    for (unsigned int i = nFirst; i <= nLast; ++i)
    {
        strDecls += "dcl_typeless_uav_id(" + std::to_string(i) + ")_stride(4)_length(4)\n";
    }

    return strDecls;
}

TEST_P(UavAllocation, TakesTheFirstFreePair)
{
    SKernelSetup setup;
    setup.strDevice = GetParam().pszDevice;
    CTestKernel kernel(Kernel(GetParam().strDecls), setup);
    ASSERT_EQ(kernel.IsAnalyzed(), GetParam().nResults != 0);

    if (kernel.IsAnalyzed())
    {
        EXPECT_EQ(kernel.Shader().GetResultsUAVNum(), GetParam().nResults);
        EXPECT_EQ(kernel.Shader().GetExecMaskUAVNum(), GetParam().nExecMask);
    }
    else
    {
        EXPECT_EQ(kernel.Host().strLastError, ES_CanNotDebug_InsufficientFreeUAVs);
        EXPECT_EQ(kernel.Shader().Info().strDebugErrorAsm, ES_CanNotDebug_InsufficientFreeUAVs);
    }
}

const SUavCase s_UavCases[] = {
    {"None", "quench", "", 12, 13},
    {"FirstTwoTaken", "quench", DeclareUavs(12, 13), 14, 15},
    {"TypedCounts", "quench", "dcl_typed_uav_id(12)_access(wo) 0x2\n", 13, 14},
    {"RawDoesNotCount", "quench", "dcl_raw_uav_id(12)\n", 12, 13},
    {"Gap", "quench", DeclareUavs(13, 13), 12, 14},
    {"LastPair", "quench", DeclareUavs(12, 30), 31, 32},
    {"OneLeft", "quench", DeclareUavs(12, 31), 0, 0},
    {"LastTaken", "quench", DeclareUavs(12, 30) + DeclareUavs(32, 32), 0, 0},
    {"OlderDeclaresIts", "kiln", "dcl_raw_uav_id(9)\ndcl_raw_uav_id(9)\n", 9, 9},
    {"OlderWithoutOne", "kiln", "", 11, 11},
};

INSTANTIATE_TEST_SUITE_P(Kernels, UavAllocation, testing::ValuesIn(s_UavCases),
                         [](const auto& test) { return std::string(test.param.pszName); });

/// How a kernel is refused. Every refusal gives the client a message; some also go to ShaderInfo.
struct SRefusal
{
    const char* pszName;
    std::string strText;
    const char* pszLastError;
    bool bInShaderInfo;
    const char* pszLogged; ///< part of an assertion; null for none
};

class Refusal : public testing::TestWithParam<SRefusal>
{
};

TEST_P(Refusal, SaysWhy)
{
    CTestKernel kernel(GetParam().strText);
    EXPECT_FALSE(kernel.IsAnalyzed());
    EXPECT_FALSE(kernel.Shader().IsShaderDebuggable(DM_Asm));
    EXPECT_EQ(kernel.Host().strLastError, GetParam().pszLastError);
    const std::string strInfo = GetParam().bInShaderInfo ? GetParam().pszLastError : "";
    EXPECT_EQ(kernel.Shader().Info().strDebugErrorAsm, strInfo);
    EXPECT_EQ(kernel.Shader().Info().strDebugErrorMixed, strInfo);
    EXPECT_EQ(kernel.Shader().Info().strDebugErrorSource, strInfo);
    EXPECT_EQ(kernel.Host().CountLog(logERROR, GetParam().pszLastError), GetParam().bInShaderInfo ? 1u : 0u);

    if (GetParam().pszLogged != nullptr)
    {
        EXPECT_EQ(kernel.Host().CountLog(logASSERT, GetParam().pszLogged), 1u) << GetParam().pszLogged;
    }
}

constexpr const char* s_pszInvalid = ES_CanNotDebug_InvalidShader;
const std::string s_strHead = "il_cs_2_0\ndcl_cb cb0[10]\ndcl_max_thread_per_group 64\n";

const SRefusal s_Refusals[] = {
    {"LanguageBits", "il(0x100, 0x00030200)\nend\n", s_pszInvalid, true, nullptr},
    {"VersionZero", "il(0x0, 0x00030000)\nend\n", s_pszInvalid, true, nullptr},
    {"UnknownKind", "il(0x0, 0x00060200)\nend\n", s_pszInvalid, true, nullptr},
    {"OpenAtEnd", s_strHead + "if_logicalnz r0.x\nend\n", s_pszInvalid, true, "FCStack.empty()"},
    {"OpenAtEndMain", s_strHead + "whileloop\nendmain\nend\n", s_pszInvalid, true, "FCStack.empty()"},
    {"OpenAtEndFunc", Kernel("switch r0.x\n"), s_pszInvalid, true, "FCStack.empty()"},
    {"OpenAtMacroEnd", s_strHead + "endmain\nmdef(3)_outline\n;k\nif_logicalz r0.x\nmend\nend\n", s_pszInvalid, true,
     "FCStack.empty()"},
    {"FuncBeforeEndMain", s_strHead + "func 1\nendfunc\nend\n", s_pszInvalid, true, "!bInFunction"},
    {"FuncInFunc", Kernel("func 2\n"), s_pszInvalid, true, "!bInFunction"},
    {"FuncInMacro", s_strHead + "endmain\nmdef(3)_outline\n;k\nfunc 1\nmend\nend\n", s_pszInvalid, true,
     "!bInOutlineMacro"},
    {"FuncWithoutEndMain", s_strHead + "endfunc\nfunc 1\nendfunc\nend\n", s_pszInvalid, true, "bEndMainEncountered"},
    {"RetOutsideAFunction", s_strHead + "endmain\nret\nend\n", s_pszInvalid, true, "bInFunction || bInOutlineMacro"},
    {"TooDeep", Kernel(Repeat("if_logicalnz r0.x\n", 1025)), s_pszInvalid, true, "FCStack.size() < MAX_BLOCK_DEPTH"},
    {"ElseWithoutIf", Kernel("else\n"), s_pszInvalid, false, "!FCStack.empty()"},
    {"ElseInLoop", Kernel("whileloop\nelse\n"), s_pszInvalid, false, "pIf"},
    {"TwoElses", Kernel("if_logicalnz r0.x\nelse\nelse\nendif\n"), s_pszInvalid, false, "!pIf->HasElse()"},
    {"EndIfInSwitch", Kernel("switch r0.x\nendif\n"), s_pszInvalid, false, "pIf"},
    {"EndLoopOfAnIf", Kernel("if_logicalnz r0.x\nendloop\n"), s_pszInvalid, false, "pLoop"},
    {"EndSwitchAlone", Kernel("endswitch\n"), s_pszInvalid, false, "!FCStack.empty()"},
    {"CaseInLoop", Kernel("whileloop\ncase 1\n"), s_pszInvalid, false, "pSwitch"},
    {"BreakOutside", Kernel("break\n"), s_pszInvalid, false, "!FCStack.empty()"},
    {"ContinueOutside", Kernel("continue_logicalz r0.x\n"), s_pszInvalid, false, "!FCStack.empty()"},
    {"Unterminated", "il_cs_2_0\ndcl_cb cb0[10]\nmov r0, r1\nendmain\n", s_pszInvalid, false, "bEndEncountered"},
    {"MacroInMain", s_strHead + "mdef(1)_outline\n;k\nmend\nendmain\nend\n", s_pszInvalid, false, "!bInFunction"},
    {"MacroInFunc", Kernel("mdef(1)_outline\n;k\nmend\n"), s_pszInvalid, false, "!bInFunction"},
    {"MacroInMacro", s_strHead + "endmain\nmdef(3)_outline\n;k\nmdef(4)_mod(0x0)\nmend\nend\n", s_pszInvalid, false,
     "!bInOutlineMacro"},
    {"MacroEndAlone", s_strHead + "endmain\nmend\nend\n", s_pszInvalid, false, "bInOutlineMacro"},
    {"NoGroupSize", "il_cs_2_0\ndcl_cb cb0[10]\nend\n", s_pszInvalid, false, "m_maxThreadPerGroup"},
    {"NoConstantBuffer0", "il_cs_2_0\ndcl_max_thread_per_group 64\nend\n", s_pszInvalid, false,
     "m_nRuntimeABIConstantBufferSize"},
    {"TwoGroupSizes", Kernel("dcl_max_thread_per_group 32\n"), s_pszInvalid, false,
     "m_maxThreadPerGroup.find(nCurrentFunction) == m_maxThreadPerGroup.end()"},
    {"ShortGroupSize", Kernel("dcl_num_thread_per_group 32, 1\n"), s_pszInvalid, false, "instruction.GetLength() == 4"},
    {"TwoGroupShapes", Kernel("dcl_num_thread_per_group 8, 1, 1\ndcl_num_thread_per_group 8, 1, 1\n"), s_pszInvalid,
     false, "m_numThreadPerGroup.find(nCurrentFunction) == m_numThreadPerGroup.end()"},
    {"GroupSizeWithAModifier", Kernel("", "dcl_max_thread_per_group_pri(0x1) 64\n"), s_pszInvalid, false,
     "instruction.GetLength() == 2"},
    {"RawUavWithAModifier", Kernel("dcl_raw_uav_id(3)_pri(0x1)\n"), s_pszInvalid, false,
     "instruction.GetLength() == 1"},
    {"ConstantBuffer0WithAModifier", Kernel("dcl_cb_sec(0x1) cb0[10]\n"), s_pszInvalid, false,
     "instruction.GetLength() == 3"},
    {"InlineConstants", Kernel("dcl_cb_inline 0x1, 0x2\n"), s_pszInvalid, false, "RT_CONST_BUFF"},
    {"LiteralOfATemp", Kernel("dcl_literal r1, 0, 0, 0, 0\n"), s_pszInvalid, false, "RT_LITERAL"},
    {"ConstantBufferOfATemp", Kernel("dcl_cb r1\n"), s_pszInvalid, false, "RT_CONST_BUFF"},
    {"TwoRawUavs", Kernel("dcl_raw_uav_id(3)\ndcl_raw_uav_id(4)\n"), s_pszInvalid, false,
     "m_nRawUAVNum == numeric_limits<unsigned int>::max() || nRawUAVNum == m_nRawUAVNum"},
    {"HugeArray", Kernel("dcl_indexed_temp_array x0[1048577]\n"), s_pszInvalid, false, "s_nMaxArrayElements"},
    {"HugePrivateUav", Kernel("dcl_typeless_uav_id(8)_stride(4)_length(16777217)_access(private)\n"), s_pszInvalid,
     false, "s_nMaxPrivateBytes"},
    {"CountedLoop", Kernel("loop i0\nendloop\n"), "IL instruction loop is not yet supported.", true, nullptr},
    {"Cut", Kernel("cut\n"), "IL instruction cut is not yet supported.", true, nullptr},
    {"EmitCutStream", Kernel("emit_cut_sream 1\n"), "IL instruction emit_cut_sream is not yet supported.", true,
     nullptr},
    {"UavAtomicWithResult", Kernel("uav_read_add_id(10) r0.x, r1.x, r2.x\n"),
     "IL instruction uav_read_add is not yet supported.", true, nullptr},
    {"LdsAtomicWithResult", Kernel("lds_read_add_id(1) r0.x, r1.x, r2.x\n"),
     "IL instruction lds_read_add is not yet supported.", true, nullptr},
    {"Append", Kernel("append_buf_alloc_id(1) r0.x\n"), "IL instruction append_buf_alloc is not yet supported.", true,
     nullptr},
    {"HullPhase", Kernel("hs_fork_phase 1\n"), "IL instruction hs_fork_phase is not yet supported.", true, nullptr},
};

INSTANTIATE_TEST_SUITE_P(Kernels, Refusal, testing::ValuesIn(s_Refusals),
                         [](const auto& test) { return std::string(test.param.pszName); });

TEST(Analysis, RefusesTooManyRegisters)
{
    // 65,536 minus the debugger's five, plus one: one temp too many.
    std::vector<unsigned int> vTokens = Assemble("il_cs_2_0\ndcl_cb cb0[10]\ndcl_max_thread_per_group 64\n");
    const size_t nHead = vTokens.size();

    for (unsigned int i = 0; i < 65532; ++i)
    {
        vTokens.insert(vTokens.end(), {IL_OP_MOV, (IL_REGTYPE_TEMP << 16) | i, IL_REGTYPE_THREAD_ID_IN_GROUP << 16});
    }

    vTokens.push_back(IL_OP_END);
    CTestKernel full(vTokens);
    EXPECT_FALSE(full.IsAnalyzed());
    EXPECT_EQ(full.Host().strLastError, ES_CanNotDebug_InsufficientFreeTempRegisters);
    EXPECT_EQ(full.Shader().Info().strDebugErrorAsm, ES_CanNotDebug_InsufficientFreeTempRegisters);

    vTokens.erase(vTokens.begin() + nHead, vTokens.begin() + nHead + 3);
    CTestKernel fits(vTokens);
    EXPECT_TRUE(fits.IsAnalyzed());
    EXPECT_EQ(fits.Shader().m_nPatchedTempRegisters, (Numbers{0, 65532, 65533, 65534, 65535}));
}

TEST(Analysis, TakesTheLargestDeepestAndLongest)
{
    const unsigned int nDeepest = CAnalyzedShaderIL::MAX_BLOCK_DEPTH;
    CTestKernel kernel(Kernel("dcl_indexed_temp_array x0[1048576]\n"
                              "dcl_typeless_uav_id(8)_stride(4)_length(16777216)_access(private)\n" +
                              Repeat("if_logicalnz r0.x\n", nDeepest) + Repeat("endif\n", nDeepest)));
    EXPECT_TRUE(kernel.IsAnalyzed()) << kernel.Host().strLastError;
}

TEST(Analysis, NotesFunctionsLinesAndDeclarations)
{
    CTestKernel kernel("il_cs_2_0\n"          // line 0
                       "dcl_cb cb0[10]\n"     // 1
                       ";main\n"              // 2
                       "dcl_cb cb1[99]\n"     // 3
                       "call 1024\n"          // 4: instruction 0
                       "endmain\n"            // 5: 1
                       "mdef(7)_mod(0x0)\n"   // 6: skipped through its end
                       "mov r9, r8\n"         // 7
                       "mend\n"               // 8
                       "func 1024\n"          // 9: 2
                       ";__OpenCL_k_kernel\n" // 10
                       "dcl_cb cb2[4]\n"      // 11
                       "dcl_num_thread_per_group 8, 4, 2\n"
                       "dcl_indexed_temp_array x1[16]\n"
                       "dcl_typeless_uav_id(8)_stride(4)_length(65)_access(private)\n"
                       "dcl_resource_id(3)_type(2d) 0x0\n"
                       "mov r0, r1\n"       // 16: 3
                       "ret\n"              // 17: 4
                       "endfunc\n"          // 18: 5
                       "mdef(9)_outline\n"  // 19
                       ";k\n"               // 20
                       "mov r2, r1\n"       // 21: 6
                       "mend\n"             // 22
                       "mdef(10)_outline\n" // 23: a second one is skipped
                       ";k\n"               // 24
                       "mov r3, r1\n"       // 25
                       "mend\n"             // 26
                       "end\n");            // 27: 7
    ASSERT_TRUE(kernel.IsAnalyzed());
    const CTestShader& shader = kernel.Shader();
    EXPECT_EQ(shader.m_Instructions.size(), 8u);
    EXPECT_EQ(shader.m_nEndOfShader, 7u);
    const std::map<InstructionNumber, LineNumber> left = {{0, 4},  {1, 5},  {2, 9},  {3, 16},
                                                          {4, 17}, {5, 18}, {6, 21}, {7, 27}};
    EXPECT_EQ(shader.m_PC_LineNumberMap.left, left);
    EXPECT_EQ(shader.m_PC_LineNumberMap.right.at(16), 3u);
    EXPECT_EQ(shader.m_FunctionInstruction, (std::map<unsigned int, InstructionNumber>{{9, 6}, {1024, 2}}));
    EXPECT_EQ(shader.m_OutlineMacroLabel, 9u);
    EXPECT_EQ(shader.m_nOutlineMacroEnd, 7u);
    EXPECT_EQ(shader.m_FunctionScope.at(1), 0u);
    EXPECT_EQ(shader.m_FunctionScope.at(2), 1024u);
    EXPECT_EQ(shader.m_nRuntimeABIConstantBufferSize, 10u);
    EXPECT_EQ(shader.m_nKernelABIConstantBufferSize, 1u); // from the metadata, whatever dcl_cb says

    const Declarations& decls = shader.m_DeclsFuncScopeMap.at(1024);
    EXPECT_EQ(decls.m_ConstantBufferSizes, (std::map<unsigned int, unsigned int>{{2, 4}}));
    EXPECT_EQ(decls.m_IndexedTempRegisterSizes, (std::map<unsigned int, unsigned int>{{1, 16}}));
    EXPECT_EQ(decls.m_PrivateUAVSizes, (std::map<unsigned int, unsigned int>{{8, 80}}));
    EXPECT_EQ(decls.m_Resources.size(), 1u);
    EXPECT_EQ(decls.m_UAVs.size(), 1u);
    EXPECT_TRUE(shader.IsShaderDebuggable(DM_Asm));
}

TEST(Analysis, SkipsMacrosInFrontButLeavesTheirRegistersAlone)
{
    CTestKernel kernel(
        "mdef(1)_mod(0x0)\ndcl_literal l2, 1, 1, 1, 1\nmov r0, r1\nmend\nmdef(2)_outline\n;k\nmov r0, r1\nmend\n" +
        Kernel("mov r5, vTidInGrp\n"));
    ASSERT_TRUE(kernel.IsAnalyzed());
    // Eight items, the opening line, cb0; then the call.
    EXPECT_EQ(kernel.Shader().m_PC_LineNumberMap.left.at(0), 10u);
    EXPECT_EQ(kernel.Shader().m_nPatchedTempRegisters, (Numbers{2, 3, 4, 6, 7}));
    EXPECT_EQ(kernel.Shader().GetLiteralRegister2(), 3u);
    EXPECT_EQ(kernel.Shader().m_OutlineMacroLabel, 0u);
}

TEST(Analysis, NotesWrittenRegistersInTheBlocksAround)
{
    CTestKernel kernel(Kernel("whileloop\n"
                              "if_logicalnz r0.x\n"
                              "mov r1.x, r0\n"
                              "else\n"
                              "mov r1.y, r0\n"
                              "uav_store_id(10) r1, r1\n"
                              "endif\n"
                              "switch r0.x\n"
                              "case 1\n"
                              "break\n"
                              "endswitch\n"
                              "endloop\n"));
    ASSERT_TRUE(kernel.IsAnalyzed());
    const auto& flow = kernel.Shader().m_FlowControl;
    const CIL_Loop* pLoop = flow.at(kernel.Find("whileloop"))->AsLoop();
    const CIL_IfElseEndif* pIf = flow.at(kernel.Find("else"))->AsIfElseEndif();
    const CIL_Switch* pSwitch = flow.at(kernel.Find("break"))->AsSwitch();
    ASSERT_TRUE(pLoop != nullptr && pIf != nullptr && pSwitch != nullptr);
    EXPECT_EQ(pLoop->GetRegisters(), std::vector<Register>{Register(RT_Temp, 1, COMP_xy)});
    EXPECT_EQ(pIf->GetRegistersInIf(), std::vector<Register>{Register(RT_Temp, 1, COMP_x)});
    EXPECT_EQ(pIf->GetRegistersInElse(), std::vector<Register>{Register(RT_Temp, 1, COMP_y)});
    EXPECT_TRUE(pIf->GetGlobalStoreFlag() && pLoop->GetGlobalStoreFlag());
    EXPECT_FALSE(pSwitch->GetGlobalStoreFlag());
    EXPECT_TRUE(pSwitch->IsSwitchBreak(kernel.Find("break")));
    EXPECT_EQ(pSwitch->GetNextCase(kernel.Find("switch r0.x")), kernel.Find("case 1"));
    EXPECT_EQ(flow.at(kernel.Find("ret")), nullptr);
}

TEST(Analysis, TakesAPrivateStoreAsARegisterIndexedByItsAddress)
{
    CTestKernel kernel(Kernel("dcl_typeless_uav_id(8)_stride(4)_length(64)_access(private)\n"
                              "uav_raw_store_id(8) mem0.x, r1, r2\n"
                              "uav_byte_store_id(8) mem0.x, r1.z, r2\n"
                              "uav_raw_store_id(10) mem0.xy, r1.x, r2\n"));
    ASSERT_TRUE(kernel.IsAnalyzed());
    const InstructionNumber nStore = kernel.Find("uav_raw_store_id(8) mem0.x, r1, r2");
    const Register whole(RT_Temp, 1, COMP_x);
    const Register z(RT_Temp, 1, COMP_z);
    EXPECT_EQ(kernel.Written(nStore), Register(RegisterID(RT_PrivateUAVAccess, 8, 0, &whole), COMP_All));
    EXPECT_EQ(kernel.Written(nStore + 1), Register(RegisterID(RT_PrivateUAVAccess, 8, 0, &z), COMP_All));
    EXPECT_EQ(kernel.Written(nStore + 2), Register(RT_GENERIC_MEM, 0, COMP_xy));
    EXPECT_EQ(kernel.Host().CountLog(logWARNING, "Indexed temp could not be resolved on line 8, instruction 3. "
                                                 "Performance may be slow."),
              1u);
}

TEST(Analysis, KnowsTheKernelsMacroByItsComment)
{
    std::string strText = s_strHead + "endmain\n";

    for (const char* pszOther : {"mdef(1)_outline\nmov r0, r2\n", "mdef(2)_outline\n;\n", "mdef(4)_outline\n;other\n",
                                 "mdef(5)_mod(0x0)\n;k\n"})
    {
        strText += std::string(pszOther) + "mend\nfunc 8\nendfunc\n"; // consecutive macros are skipped together
    }

    CTestKernel kernel(strText + "mdef(3)_outline\n;k\nmov r0, r1\nmend\nend\n");
    ASSERT_TRUE(kernel.IsAnalyzed());
    EXPECT_EQ(kernel.Shader().m_OutlineMacroLabel, 3u);
    EXPECT_EQ(kernel.Shader().m_FunctionInstruction.at(3), kernel.Find("mov r0, r1"));
}

TEST(Analysis, TakesABreakWithNothingToLeaveAsTheIfs)
{
    CTestKernel kernel(Kernel("if_logicalnz r0.x\nbreak\nendif\n"));
    ASSERT_TRUE(kernel.IsAnalyzed());
    const auto& flow = kernel.Shader().m_FlowControl;
    EXPECT_EQ(flow.at(kernel.Find("break")), flow.at(kernel.Find("endif")));
}

TEST(Analysis, SurvivesEveryTruncation)
{
    std::string strText =
        "mdef(7)_mod(0x0)\nmov r9, r8\nmend\n" +
        Kernel("dcl_literal l0, 1, 2, 3, 4\ndcl_typeless_uav_id(8)_stride(4)_length(64)_access(private)\n"
               "whileloop\nif_logicalnz r0.x\nmov x1[r2.x+4].xy, r1\nelse\nbreakc_relop(lt) r0, r1\nendif\n"
               "endloop\nswitch r0.x\ncase 1\ndefault\nendswitch\nmcall(3)_out(1)_in(7) r1, r0, r0, r0, r0, "
               "r0, r0, r0\nuav_raw_store_id(8) mem0.x, r3.x, r4.x\n");
    strText.insert(strText.rfind("end\n"), "mdef(3)_outline\n;k\nmov r1, r0\nmend\n");
    const std::vector<unsigned int> vTokens = Assemble(strText);

    for (size_t nTokens = 0; nTokens < vTokens.size(); ++nTokens)
    {
        CTestKernel kernel(std::vector<unsigned int>(vTokens.begin(), vTokens.begin() + nTokens));
        EXPECT_FALSE(kernel.IsAnalyzed()) << nTokens;
        EXPECT_EQ(kernel.Host().strLastError, s_pszInvalid) << nTokens;
    }

    EXPECT_TRUE(CTestKernel(vTokens).IsAnalyzed());
}

TEST(Analysis, SurvivesEveryFlippedBit)
{
    const std::vector<unsigned int> vTokens =
        Assemble(Kernel("dcl_literal l0, 1, 2, 3, 4\nwhileloop\nmov x1[r2.x].xy, r1\nbreak_logicalz r0.x\nendloop\n"
                        "switch r0.x\ncase 1\nbreak\nendswitch\n"));
    size_t nAnalyzed = 0;

    for (size_t nBit = 0; nBit < vTokens.size() * 32; ++nBit)
    {
        std::vector<unsigned int> vFlipped = vTokens;
        vFlipped[nBit / 32] ^= 1u << (nBit % 32);
        CTestKernel kernel(vFlipped);
        nAnalyzed += kernel.IsAnalyzed();
        EXPECT_EQ(kernel.IsAnalyzed(), kernel.Host().strLastError.empty()) << nBit;
    }

    // Most bits are operands and values: changing them changes the kernel, but it stays valid.
    EXPECT_GT(nAnalyzed, vTokens.size() * 16);
}

TEST(Analysis, RefusesDataThatIsNoKernel)
{
    CFakeHost host;
    const char szText[] = "not a kernel at all";
    CTestShader none(&host, nullptr, 0);
    EXPECT_FALSE(none.AnalyzeShader());
    CTestShader text(&host, szText, sizeof(szText));
    EXPECT_FALSE(text.AnalyzeShader());
    CTestShader shortText(&host, szText, 3);
    EXPECT_FALSE(shortText.AnalyzeShader());

    const std::vector<unsigned int> vTokens = Assemble(Kernel(""));
    CTestShader noMetadata(&host, vTokens.data(), vTokens.size() * sizeof(unsigned int));
    EXPECT_FALSE(noMetadata.AnalyzeShader());
    EXPECT_EQ(host.CountLog(logASSERT, "m_nKernelABIConstantBufferSize != numeric_limits"), 1u);

    const std::vector<char> vImage = MakeImage(vTokens, MakeMetadata(SKernelSetup()));
    CTestShader nobodys(nullptr, vImage.data(), vImage.size());
    EXPECT_FALSE(nobodys.AnalyzeShader()) << "no host tells the kernel's name";
    host.strKernelName = "other";
    CTestShader wrongName(&host, vImage.data(), vImage.size());
    EXPECT_FALSE(wrongName.AnalyzeShader());
    EXPECT_EQ(host.strLastError, s_pszInvalid);
}

struct SMetadataCase
{
    const char* pszName;
    SKernelSetup setup;
    bool bAnalyzed;
    bool bTidewater;
    const char* pszDeviceName;
    unsigned int nArgumentElements;
    std::set<unsigned int> samplers;
};

class MetadataFacts : public testing::TestWithParam<SMetadataCase>
{
};

TEST_P(MetadataFacts, AreTaken)
{
    CTestKernel kernel(Kernel(""), GetParam().setup);
    ASSERT_EQ(kernel.IsAnalyzed(), GetParam().bAnalyzed);

    if (!kernel.IsAnalyzed())
    {
        EXPECT_FALSE(kernel.Host().strLastError.empty());
        return;
    }

    EXPECT_EQ(kernel.Shader().m_bTidewater, GetParam().bTidewater);
    EXPECT_EQ(kernel.Shader().m_DeviceName, GetParam().pszDeviceName);
    EXPECT_EQ(kernel.Shader().m_b64BitAddressSpace, GetParam().setup.b64Bit);
    EXPECT_EQ(kernel.Shader().m_nKernelABIConstantBufferSize, GetParam().nArgumentElements);
    EXPECT_EQ(kernel.Shader().m_Samplers, GetParam().samplers);
}

const std::string s_strImageAndSampler = ";image:i:2D:RO:1:1:16\n;sampler:s:3:1:16\n;sampler:t:1:0:0\n";

const SMetadataCase s_MetadataCases[] = {
    {"Newer", {"quench", true, ";value:n:i32:1:1:32\n", 104}, true, true, "Quench", 3, {}},
    {"Older", {"kiln", false, s_strImageAndSampler, 104}, true, false, "Kiln", 3, {1, 3}},
    {"NoArguments", {"ferrule", false, "", 104}, true, false, "Ferrule", 0, {}},
    {"NamesAreComparedExactly", {"Kiln", true, "", 104}, true, true, "Kiln", 0, {}},
    {"RefusedDevice", {"slag", true, "", 104}, false, false, "", 0, {}},
    {"BadText", {"quench", true, ";sampler:s\n", 104}, false, false, "", 0, {}},
    {"UnalignedOffset", {"quench", true, ";pointer:a:float:1:1:8:uav:10:4:RW:0:0\n", 104}, false, false, "", 0, {}},
    {"HugeOffset", {"quench", true, ";value:n:i32:1:1:4294967040\n", 104}, false, false, "", 0, {}},
};

INSTANTIATE_TEST_SUITE_P(Kernels, MetadataFacts, testing::ValuesIn(s_MetadataCases),
                         [](const auto& test) { return std::string(test.param.pszName); });

} // namespace

} // namespace OVK_ShaderDebugger
