#include "TestKernel.h"

#include "binary/ElfUtils.h"
#include "tests/support/Folders.h"

#include <dlfcn.h>

namespace OVK_ShaderDebugger
{

namespace
{

const std::string s_strKernel = "il_cs_2_0\ndcl_cb cb0[10]\ncall 1024\nendmain\nfunc 1024\n;__OpenCL_k_kernel\n"
                                "dcl_max_thread_per_group 64\nmov r0, vTidInGrp\niadd r0.x, r0.x, r0.x\nret\nendfunc\n"
                                "mdef(5)_outline\n;k\nmov r1, r0\nmend\nend\n";

/// A program with the kernel k and a second one, both with local memory.
std::vector<char> MakeProgram(const std::string& strText)
{
    SKernelSetup setup;
    setup.strEntries += ";memory:hwlocal:256\n";
    const std::string strMetadata = MakeMetadata(setup);
    const std::string strOther = MakeMetadata(setup, "other");
    const std::vector<unsigned int> vTokens = Assemble(strText);
    KestrelPlatform::CElfWriter elf;
    elf.AddSection(".debugil", 0, 1, strText);
    elf.AddSection(".debugilbin", 0, 4,
                   std::string_view(reinterpret_cast<const char*>(vTokens.data()), vTokens.size() * 4));
    const size_t nRodata = elf.AddSection(".rodata", SHF_ALLOC, 1, strMetadata + strOther);
    elf.AddSymbol("__OpenCL_k_metadata", STT_OBJECT, nRodata, 0, strMetadata.size());
    elf.AddSymbol("__OpenCL_other_metadata", STT_OBJECT, nRodata, strMetadata.size(), strOther.size());
    return elf.Write();
}

class PatchedImage : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        // The conversions open the compiler library by its name, which finds the one that is open already.
        static void* const s_pCompiler = dlopen(KestrelTest::PlatformFile("libovkocl12cl64.so").c_str(), RTLD_NOW);
        ASSERT_NE(s_pCompiler, nullptr) << dlerror();
    }

    std::vector<char> m_vProgram = MakeProgram(s_strKernel);
    CFakeHost m_Host;
};

TEST_F(PatchedImage, HoldsThePatchedTextAndMetadata)
{
    CTestShader shader(&m_Host, m_vProgram.data(), m_vProgram.size());
    ASSERT_TRUE(shader.AnalyzeShader());
    const IL* pImage = shader.CreatePatchedShader(ProgramCounter(3), {Register(RT_Temp, 0, COMP_All)});
    ASSERT_NE(pImage, nullptr);
    const char* pBytes = reinterpret_cast<const char*>(pImage);
    const std::vector<char> vImage(pBytes, pBytes + shader.GetPatchedShaderSize());

    std::vector<char> vText;
    EXPECT_FALSE(OVK_ElfUtils::GetDataFromSection(".debugilbin", vImage, nullptr));
    ASSERT_TRUE(OVK_ElfUtils::GetDataFromSection(".debugil", vImage, &vText));
    const std::string strText(vText.begin(), vText.end());
    EXPECT_NE(strText.find("call 1024\n"), std::string::npos);
    EXPECT_NE(strText.find("mov r0, vTidInGrp\nmov r2, r0\nmov r4, l1\n"), std::string::npos) << strText;
    EXPECT_EQ(strText.find("iadd r0.x"), std::string::npos);

    std::string strMetadata;
    ASSERT_TRUE(OVK_ElfUtils::ExtractMetadataFromElf(vImage, "k", &strMetadata));
    EXPECT_NE(strMetadata.find(";value:__ovk_debug_outputSelector:i32:1:1:48\n"), std::string::npos) << strMetadata;
    EXPECT_NE(strMetadata.find(";memory:hwlocal:256\n"), std::string::npos);
    EXPECT_NE(strMetadata.find(";function:2:1024:5\n"), std::string::npos);
    ASSERT_TRUE(OVK_ElfUtils::ExtractMetadataFromElf(vImage, "other", &strMetadata));
    EXPECT_NE(strMetadata.find(";memory:hwlocal:0\n"), std::string::npos);
    EXPECT_EQ(strMetadata.find("__ovk_debug"), std::string::npos);
    EXPECT_EQ(m_Host.CountLog(logWARNING, "Could not remove LDS"), 0u);
}

TEST_F(PatchedImage, StaysWhenTheNextOneFails)
{
    CTestShader shader(&m_Host, m_vProgram.data(), m_vProgram.size());
    ASSERT_TRUE(shader.AnalyzeShader());
    const std::vector<Register> vRegs = {Register(RT_Temp, 0, COMP_All)};
    ASSERT_NE(shader.CreatePatchedShader(ProgramCounter(3), vRegs), nullptr);
    const IL* pFirst = shader.GetPatchedShader();
    const size_t nSize = shader.GetPatchedShaderSize();
    const std::vector<char> vFirst(reinterpret_cast<const char*>(pFirst),
                                   reinterpret_cast<const char*>(pFirst) + nSize);

    EXPECT_EQ(shader.CreatePatchedShader(ProgramCounter(shader.m_nEndOfShader), vRegs), nullptr);
    EXPECT_EQ(m_Host.CountLog(logERROR, "Failed to patch IL"), 1u);
    EXPECT_EQ(shader.GetPatchedShader(), pFirst);
    EXPECT_EQ(shader.GetPatchedShaderSize(), nSize);

    // The same target gives the same image, whatever was patched before.
    ASSERT_NE(shader.CreatePatchedShader(ProgramCounter(4), vRegs), nullptr);
    ASSERT_NE(shader.CreatePatchedShader(ProgramCounter(3), vRegs), nullptr);
    const char* pBytes = reinterpret_cast<const char*>(shader.GetPatchedShader());
    EXPECT_EQ(std::vector<char>(pBytes, pBytes + shader.GetPatchedShaderSize()), vFirst);
}

TEST_F(PatchedImage, OfAKernelThatWasRefusedIsNone)
{
    const std::vector<char> vProgram = MakeProgram("il_cs_2_0\nmov r0, r1\nend\n");
    CTestShader shader(&m_Host, vProgram.data(), vProgram.size());
    EXPECT_FALSE(shader.AnalyzeShader());
    EXPECT_EQ(shader.CreatePatchedShader(ProgramCounter(0), {Register(RT_Temp, 0, COMP_All)}), nullptr);
}

TEST_F(PatchedImage, OfPlainTokensIsPlainTokens)
{
    // A kernel of another kind has no metadata, and its outputs are output registers.
    const std::vector<unsigned int> vTokens =
        Assemble("il_ps_2_0\ndcl_input v2.xy\ndcl_output o0\nmov r1, v2\nmov o0, r1\nmov r1.x, r1.y\nendmain\nend\n");
    CTestShader shader(&m_Host, vTokens.data(), vTokens.size() * sizeof(unsigned int));
    ASSERT_TRUE(shader.AnalyzeShader());
    ASSERT_NE(shader.CreatePatchedShader(ProgramCounter(2), {Register(RT_Temp, 1, COMP_x)}), nullptr);
    EXPECT_TRUE(shader.IsPatchedOutputRegister(Register(RT_Output, 0, COMP_All)));
    EXPECT_TRUE(shader.IsPatchedOutputRegister(Register(RT_Output, 1, COMP_All)));
    EXPECT_FALSE(shader.IsPatchedOutputRegister(Register(RT_Output, 2, COMP_All)));
    EXPECT_FALSE(shader.IsPatchedOutputRegister(Register(RT_Temp, 0, COMP_All)));
    EXPECT_EQ(Disassemble(shader.GetPatchedShader(), shader.GetPatchedShaderSize() / sizeof(unsigned int)),
              "il_ps_2_0\ndcl_input v2.xy\ndcl_output o0\ndcl_output o1\n"
              "dcl_literal l0, 0x0, 0x0, 0x0, 0x0\ndcl_literal l1, 0x1, 0x1, 0x1, 0x1\n"
              "dcl_literal l2, 0x2, 0x2, 0x2, 0x2\n"
              "dcl_literal l3, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF\n"
              "dcl_literal l4, 0x10, 0x10, 0x10, 0x10\n"
              "mov r1, l0\nmov r0, l0\nmov r2, l0\nmov r3, l0\nmov r4, l0\nmov r5, l0\n"
              "mov r1, v2\nmov r1.x, r1.y\nmov r0, r1\nmov r3, l1\nmov o0, r0\nmov o1, r3\nret_dyn\nendmain\nend\n");
}

TEST_F(PatchedImage, OfAnotherKindKeepsWhatTheDebuggerDoesNotReplaceThere)
{
    const std::string strDeclarations = "dcl_cb cb0[4]\ndcl_raw_uav_id(3)\ndcl_arena_uav_id(8)\n"
                                        "dcl_max_thread_per_group 64\ndcl_num_thread_per_group 8, 1, 1\n";
    const std::string strAfter = "endmain\nfunc 7\ndcl_cb cb1[4]\ndcl_raw_uav_id(3)\nret\nendfunc\nend\n";
    const std::vector<unsigned int> vTokens =
        Assemble("il_ps_2_0\n" + strDeclarations + "mov r1, l9\nmov r2, l9\n" + strAfter);
    CTestShader shader(nullptr, vTokens.data(), vTokens.size() * sizeof(unsigned int)); // without a host to report to
    ASSERT_TRUE(shader.AnalyzeShader());
    ASSERT_NE(shader.CreatePatchedShader(ProgramCounter(0), {Register(RT_Temp, 1, COMP_x)}), nullptr);
    const std::string strPatched =
        Disassemble(shader.GetPatchedShader(), shader.GetPatchedShaderSize() / sizeof(unsigned int));
    EXPECT_NE(strPatched.find(strDeclarations), std::string::npos) << strPatched;
    EXPECT_NE(strPatched.find("ret_dyn\n" + strAfter), std::string::npos) << strPatched;

    CTestShader refused(nullptr, vTokens.data(), sizeof(unsigned int));
    EXPECT_FALSE(refused.AnalyzeShader());
}

} // namespace

} // namespace OVK_ShaderDebugger
