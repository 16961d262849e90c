#include "TestKernel.h"
#include "tests/support/Folders.h"

#include <cstdlib>

namespace OVK_ShaderDebugger
{

namespace
{

const std::string s_strFolder = KestrelTest::SourceFile("tests/instrument/");

/// The registers that a case captures.
enum ECapture
{
    CAPTURE_Written, ///< what the target writes
    CAPTURE_Two,     ///< the same register, none, and r0
    CAPTURE_Private, ///< two elements of the target's private array
};

/// A call on the way to the target, and the passes of the loops around it.
struct SCall
{
    size_t nOccurrence; ///< of the line that calls the function
    const char* pszLine;
    std::vector<unsigned int> vPasses;
};

struct SGolden
{
    const char* pszName;   ///< of the file with the patched kernel
    const char* pszKernel; ///< of the file with the kernel
    const char* pszTarget; ///< the line of the target; null for the entry of the kernel
    size_t nOccurrence = 0;
    std::vector<unsigned int> vPasses = {};
    ECapture eCapture = CAPTURE_Written;
    SKernelSetup setup = {};
    std::vector<SCall> vCalls = {}; ///< innermost first
};

std::ostream& operator<<(std::ostream& stream, const SGolden& golden)
{
    return stream << golden.pszName;
}

std::vector<Register> Captured(const SGolden& golden, const Register& written)
{
    switch (golden.eCapture)
    {
    case CAPTURE_Two:
        return {written, g_Reg_NULL, Register(RT_Temp, 0, COMP_x)};

    case CAPTURE_Private:
        return {Register(RT_PrivateUAVAccess, written.reg.number, COMP_All, 0),
                Register(RT_PrivateUAVAccess, written.reg.number, COMP_All, 16)};

    default:
        return {written};
    }
}

SKernelSetup WithSamplers()
{
    SKernelSetup setup;
    setup.strEntries += ";sampler:s:1:1:16\n;sampler:t:18:0:0\n";
    return setup;
}

class GoldenPatch : public testing::TestWithParam<SGolden>
{
};

TEST_P(GoldenPatch, IsAsWritten)
{
    const SGolden& golden = GetParam();
    CTestKernel kernel(ReadFile(s_strFolder + "kernels/" + golden.pszKernel + ".il"), golden.setup);
    ASSERT_TRUE(kernel.IsAnalyzed());

    for (auto it = golden.vCalls.rbegin(); it != golden.vCalls.rend(); ++it)
    {
        kernel.Shader().m_CallStack.push_front(kernel.At(kernel.Find(it->pszLine, it->nOccurrence), it->vPasses));
    }

    ProgramCounter target = g_PC_NULL;
    std::vector<Register> vRegs = {Register(RT_Temp, 0, COMP_x), Register(RT_IndexableTemp, 1, COMP_All, 2)};

    if (golden.pszTarget != nullptr)
    {
        const InstructionNumber nTarget = kernel.Find(golden.pszTarget, golden.nOccurrence);
        target = kernel.At(nTarget, golden.vPasses);
        vRegs = Captured(golden, kernel.Written(nTarget));
    }

    std::vector<unsigned int> vPatched;
    ASSERT_TRUE(kernel.Patch(target, vRegs, vPatched));
    const std::string strPatched = Disassemble(vPatched.data(), vPatched.size());
    const std::string strPath = s_strFolder + "golden/" + golden.pszName + ".il";

    if (std::getenv("KESTREL_WRITE_GOLDEN") != nullptr)
    {
        std::ofstream(strPath) << strPatched;
        FAIL() << strPath << " is written; read it before it is kept";
    }

    const std::vector<std::string> vActual = SplitLines(strPatched);
    const std::vector<std::string> vExpected = SplitLines(ReadFile(strPath));

    for (size_t i = 0; i < std::max(vActual.size(), vExpected.size()); ++i)
    {
        const std::string strActual = i < vActual.size() ? vActual[i] : "(end)";
        const std::string strExpected = i < vExpected.size() ? vExpected[i] : "(end)";
        ASSERT_EQ(strActual, strExpected) << strPath << ", line " << i + 1;
    }
}

const SGolden s_Goldens[] = {
    {"first_instruction", "calls", "mov r0, vTidInGrp"},
    {"entry_list", "blocks", nullptr},
    {"loop_in_if", "blocks", "iadd r1.x, r0.x, l5.y", 0, {1}},
    {"while_itself", "blocks", "whileloop", 0, {2}},
    {"endloop", "blocks", "endloop"},
    {"if_in_loop", "blocks", "mov r1.z, r0.z", 0, {2}},
    {"second_sibling_loop", "blocks", "mov r1.w, l5.w", 0, {3}},
    {"else", "blocks", "else"},
    {"endif", "blocks", "endif"},
    {"two_registers", "blocks", "mov r1.x, l5.z", 0, {}, CAPTURE_Two},
    {"raw_store", "blocks", "uav_raw_store_id(10)_addr64 mem0.x, r0.xy, r1.x"},
    {"local_store", "blocks", "lds_store_id(1) r0.x, r1.x"},
    {"ret", "blocks", "ret"},
    {"endfunc", "blocks", "endfunc"},
    {"five_deep", "five_deep", "mov r0, vTidInGrp", 0, {1, 2, 3, 4, 5}},
    {"switch", "switch", "switch r0.x", 1},
    {"break_between_cases", "switch", "break", 2},
    {"break_in_if_in_case", "switch", "break", 3},
    {"last_break", "switch", "break", 4},
    {"case", "switch", "case 2"},
    {"break_of_switch_in_loop", "switch", "break", 0, {1}},
    {"switch_in_loop", "switch", "switch r0.x", 0, {1}},
    {"constant_index", "memory", "mov x1[3].xy, r0", 0, {}, CAPTURE_Written, WithSamplers()},
    {"dynamic_index", "memory", "mov x1[r0.y+1], r0"},
    {"private_uav", "memory", "uav_raw_store_id(8) mem0.x, r0.x, r0.y", 0, {}, CAPTURE_Private},
    {"private_byte_store", "memory", "uav_byte_store_id(8) mem0.x, l1.x, r0.y"},
    {"byte_store", "memory", "uav_byte_store_id(10)_addr64 mem0.x, r0.xy, r0.x"},
    {"typed_store", "memory", "uav_store_id(10) r0, r0"},
    {"addresses_32bit", "older", "uav_raw_load_id(11) r0.x, r0.x", 0, {}, CAPTURE_Written, OlderDevice()},
    {"private_uav_32bit", "older", "uav_raw_store_id(8) mem0.x, r0.x, r0.y", 0, {}, CAPTURE_Private, OlderDevice()},
    {"call", "calls", "call 1025"},
    {"func", "calls", "func 1025"},
    {"called_function", "calls", "mov r0.y, r0.x"},
    {"second_of_two_calls",
     "repeated",
     "func 1025",
     0,
     {},
     CAPTURE_Written,
     {},
     {{1, "call 1025", {4}}, {0, "call 1024", {}}}},
    {"call_in_loop_in_called_function",
     "repeated",
     "mov r1, r0",
     0,
     {},
     CAPTURE_Written,
     {},
     {{0, "call 1026", {2}}, {0, "call 1025", {}}, {0, "call 1024", {}}}},
    {"ret_dyn_in_if", "calls", "ret_dyn"},
    {"macro_call_with_result", "calls", "mcall(3)_out(1)_in(1) r1, r0"},
    {"macro_call_in_loop", "calls", "mcall(3)_out(0)_in(0)", 0, {1}},
    {"outline_macro", "calls", "mov r0.z, r0.x"},
    {"macro_before_its_caller", "macro_first", "mov r0.x, r1.x", 0, {1}},
    {"macro_in_a_pass_of_its_caller",
     "calls",
     "mov r0.z, r0.x",
     0,
     {},
     CAPTURE_Written,
     {},
     {{0, "mcall(3)_out(0)_in(0)", {1}}, {0, "call 1024", {}}}},
    {"call_on_a_condition",
     "conditions",
     "ret_logicalz r0.y",
     0,
     {},
     CAPTURE_Written,
     {},
     {{0, "call_logicalnz r0.x, 1025", {1}}, {0, "call 1024", {}}}},
    {"return_in_loop", "forms", "mov r4, r0", 0, {1}, CAPTURE_Written, {}, {{1, "call 4294967295", {}}}},
};

INSTANTIATE_TEST_SUITE_P(Kernels, GoldenPatch, testing::ValuesIn(s_Goldens),
                         [](const auto& test) { return std::string(test.param.pszName); });

/// Every kernel of the golden tests, with its setup.
const std::pair<const char*, SKernelSetup> s_Kernels[] = {
    {"blocks", {}}, {"switch", {}},      {"five_deep", {}},  {"memory", WithSamplers()}, {"older", OlderDevice()},
    {"calls", {}},  {"macro_first", {}}, {"conditions", {}}, {"repeated", {}},           {"forms", {}},
};

/// In a well-formed stream every block is closed within its function, nothing follows the end, and the two stores occur
/// once.
void ExpectWellFormed(const std::vector<unsigned int>& vPatched, CFakeHost& host)
{
    CInputTokenStream<unsigned int> src(&host, vPatched.data(), vPatched.size());
    LineNumber nMacroLines = 0;
    CTestShader skipper(&host, vPatched.data(), 4);

    if (ILFormatDecode::GetOp(vPatched[0]) == IL_OP_MACRODEF)
    {
        EXPECT_TRUE(skipper.SkipMacros(src, nMacroLines));
    }

    src.SkipTokens(2);
    CShaderDebuggerInstructionIL item(&host);
    std::vector<ILOpCode> vOpen;
    size_t nReturns = 0;
    ILOpCode last = IL_OP_UNKNOWN;

    while (item.ReadInstruction(src))
    {
        last = item.GetOpCode();
        nReturns += last == IL_OP_RET_DYN;

        switch (last)
        {
        case IL_OP_IFC:
        case IL_OP_IFNZ:
        case IL_OP_IF_LOGICALNZ:
        case IL_OP_IF_LOGICALZ:
            vOpen.push_back(IL_OP_ENDIF);
            break;

        case IL_OP_WHILE:
            vOpen.push_back(IL_OP_ENDLOOP);
            break;

        case IL_OP_SWITCH:
            vOpen.push_back(IL_OP_ENDSWITCH);
            break;

        case IL_OP_ENDIF:
        case IL_OP_ENDLOOP:
        case IL_OP_ENDSWITCH:
            ASSERT_FALSE(vOpen.empty());
            ASSERT_EQ(vOpen.back(), last);
            vOpen.pop_back();
            break;

        case IL_OP_ENDMAIN:
        case IL_OP_ENDFUNC:
        case IL_OP_END:
            ASSERT_TRUE(vOpen.empty());
            break;

        default:
            break;
        }
    }

    EXPECT_EQ(src.GetTokensLeft(), 0u);
    EXPECT_EQ(last, IL_OP_END);
    EXPECT_GE(nReturns, 1u);
}

TEST(Patcher, MakesAWellFormedStreamAtEveryPosition)
{
    for (const auto& entry : s_Kernels)
    {
        CTestKernel kernel(ReadFile(s_strFolder + "kernels/" + entry.first + ".il"), entry.second);
        ASSERT_TRUE(kernel.IsAnalyzed());

        for (InstructionNumber i = 0; i < kernel.Shader().m_Instructions.size(); ++i)
        {
            const ILOpCode op = kernel.Shader().m_Instructions[i].GetOpCode();
            std::vector<unsigned int> vPatched;
            const bool bPatched =
                kernel.Patch(kernel.At(i), {kernel.Written(i), Register(RT_Temp, 0, COMP_x)}, vPatched);
            ASSERT_EQ(bPatched, op != IL_OP_END && op != IL_OP_ENDMAIN) << entry.first << " " << i;

            if (bPatched)
            {
                SCOPED_TRACE(std::string(entry.first) + " " + std::to_string(i));
                ExpectWellFormed(vPatched, kernel.Host());
                EXPECT_EQ(Assemble(Disassemble(vPatched.data(), vPatched.size())), vPatched);
            }
        }
    }
}

TEST(Patcher, GivesTheSameTokensForTheSameTargetOnly)
{
    CTestKernel kernel(ReadFile(s_strFolder + "kernels/memory.il"));
    const InstructionNumber nTarget = kernel.Find("uav_raw_store_id(8) mem0.x, r0.x, r0.y");
    const std::vector<Register> vPrivate = {Register(RT_PrivateUAVAccess, 8, COMP_All, 0),
                                            Register(RT_PrivateUAVAccess, 8, COMP_All, 16)};
    std::vector<unsigned int> vFirst;
    std::vector<unsigned int> vSecond;
    std::vector<unsigned int> vOther;
    EXPECT_TRUE(kernel.Patch(kernel.At(nTarget), vPrivate, vFirst));
    EXPECT_TRUE(kernel.Patch(kernel.At(nTarget), vPrivate, vSecond));
    EXPECT_TRUE(kernel.Patch(kernel.At(nTarget), {vPrivate[0]}, vOther));
    EXPECT_EQ(vFirst, vSecond);
    EXPECT_NE(vFirst, vOther);
}

TEST(Patcher, RefusesWhatIsNoPosition)
{
    CTestKernel kernel(ReadFile(s_strFolder + "kernels/blocks.il"));
    const std::vector<Register> vRegs = {Register(RT_Temp, 0, COMP_x)};
    std::vector<unsigned int> vPatched;
    EXPECT_FALSE(kernel.Patch(g_PC_NULL, {}, vPatched));
    EXPECT_EQ(kernel.Host().CountLog(logASSERT, "nTargetInstruction != g_PC_NULL || !vTargetRegs.empty()"), 1u);
    EXPECT_FALSE(kernel.Patch(ProgramCounter(kernel.Find("endmain")), vRegs, vPatched));
    EXPECT_FALSE(kernel.Patch(ProgramCounter(kernel.Shader().m_nEndOfShader), vRegs, vPatched));
    EXPECT_FALSE(kernel.Patch(ProgramCounter(kernel.Shader().m_nEndOfShader + 1), vRegs, vPatched));
    EXPECT_EQ(kernel.Shader().CreatePatchedShader(g_PC_NULL, {}), nullptr);
}

TEST(Patcher, RefusesAStreamThatItHasNotAnalysed)
{
    CTestKernel kernel(ReadFile(s_strFolder + "kernels/blocks.il"));
    std::vector<unsigned int> vOther = kernel.Shader().m_vTokens;
    const InstructionNumber nTarget = kernel.Find("ret");
    CShaderDebuggerInstructionIL& first = kernel.Shader().m_Instructions[0];
    std::replace(vOther.begin(), vOther.end(), first.GetToken(0), static_cast<unsigned int>(IL_OP_CALLNZ));
    CInputTokenStream<unsigned int> src(&kernel.Host(), vOther.data(), vOther.size());
    COutputTokenStream<unsigned int> dest(&kernel.Host(), 0);
    EXPECT_FALSE(kernel.Shader().PatchIL(src, dest, ProgramCounter(nTarget), {g_Reg_NULL}));

    for (size_t nTokens = 0; nTokens <= kernel.Shader().m_vTokens.size(); ++nTokens)
    {
        const bool bWhole = nTokens == kernel.Shader().m_vTokens.size();
        CInputTokenStream<unsigned int> part(&kernel.Host(), kernel.Shader().m_vTokens.data(), nTokens);
        EXPECT_EQ(kernel.Shader().PatchIL(part, dest, ProgramCounter(nTarget), {g_Reg_NULL}), bWhole) << nTokens;
    }
}

} // namespace

} // namespace OVK_ShaderDebugger
