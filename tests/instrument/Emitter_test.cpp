#include "TestKernel.h"

namespace OVK_ShaderDebugger
{

namespace
{

class CWriter : public CTestShader
{
public:
    using CInstrumentedShaderIL::WriteImmediate32f_4;
    using CInstrumentedShaderIL::WriteInstruction;
    using CTestShader::CTestShader;
};

TEST(Emitter, WritesEachOperandAsTheAssemblerReadsIt)
{
    const Register index(RT_Temp, 2, COMP_y);
    COutputTokenStream<unsigned int> dest(nullptr, 0);
    CWriter::WriteInstruction(dest, IL_DCL_LITERAL);
    CWriter::WriteSourceReg(dest, Register(RT_LITERAL, 5, COMP_All));
    CWriter::WriteImmediate32f_4(dest, 1, -2, 0.5f, 0);
    CWriter::WriteInstruction(dest, IL_OP_MOV);
    CWriter::WriteDestReg(dest, Register(RT_IndexableTemp, 1, COMP_xy, 7));
    CWriter::WriteSourceReg(dest, Register(RegisterID(RT_CONST_BUFF, 1, 3, &index), COMP_xy), EXTD_ZeroFill);

    for (const char* pszText : {"", "abc", "abcd"})
    {
        CWriter::WriteComment(dest, pszText);
    }

    std::vector<unsigned int> vTokens = Assemble("il_cs_2_0\ndcl_literal l5, 1.0, -2.0, 0.5, 0\n"
                                                 "mov x1[7].xy, cb1[r2.y+3].xy00\n");
    vTokens.insert(vTokens.end(), {IL_OP_COMMENT, 1, 0, IL_OP_COMMENT, 1, 0x00636261});
    vTokens.insert(vTokens.end(), {IL_OP_COMMENT, 2, 0x64636261, 0});
    EXPECT_EQ(std::vector<unsigned int>(dest.GetStream(), dest.GetStreamPos()),
              std::vector<unsigned int>(vTokens.begin() + 2, vTokens.end()));
}

TEST(Emitter, TheTwoOutputRegistersAreTheDebuggers)
{
    const std::vector<unsigned int> vTokens = Assemble("il_ps_2_0\ndcl_output o0\nmov o0, r1\nendmain\nend\n");
    CFakeHost host;
    CTestShader shader(&host, vTokens.data(), vTokens.size() * sizeof(unsigned int));
    ASSERT_TRUE(shader.AnalyzeShader());

    for (unsigned int n = 0; n < 4; ++n)
    {
        const bool bOurs = n == shader.GetResultsOutputRegister() || n == shader.GetExecMaskOutputRegister();
        EXPECT_EQ(shader.IsPatchedOutputRegister(Register(RT_Output, n, COMP_x)), bOurs) << n;
        EXPECT_FALSE(shader.IsPatchedOutputRegister(Register(RT_Temp, n, COMP_x))) << n;
    }

    EXPECT_NE(shader.GetResultsOutputRegister(), shader.GetExecMaskOutputRegister());
}

} // namespace

} // namespace OVK_ShaderDebugger
