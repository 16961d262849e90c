#include "fuzz/FuzzKernel.h"
#include "fuzz/Targets.h"

#include "platform/compiler/ItemLayout.h"

#include <algorithm>

namespace KestrelFuzz
{

using namespace OVK_ShaderDebugger;

namespace
{

/// The debugger's decoder and the compiler's, which share no code, must accept the same items and find the same
/// lengths. The debugger may only refuse two kinds more: an item longer than any kernel needs, and a macro call with
/// several results.
void CompareDecoders(const std::vector<unsigned int>& vTokens)
{
    constexpr size_t nLongest = 4096;
    CFakeHost host;
    CInputTokenStream<unsigned int> stream(&host, vTokens.data(), vTokens.size());
    CShaderDebuggerInstructionIL instruction(&host);
    size_t nPosition = 0;
    while (nPosition < vTokens.size())
    {
        KestrelPlatform::SItemLayout layout;
        const char* pszReason = nullptr;
        const bool bMeasured =
            KestrelPlatform::MeasureItem(vTokens.data() + nPosition, vTokens.size() - nPosition, layout, pszReason);
        const bool bManyResults = layout.nOpcode == IL_OP_MACROCALL && layout.nInstructionModifier >> 16 > 1;
        if (bMeasured && (layout.nWords > nLongest || bManyResults))
        {
            return;
        }
        const bool bRead = instruction.ReadInstruction(stream);
        Require(bRead == bMeasured, "both decoders take the same items", "at word " + std::to_string(nPosition));
        if (!bRead)
        {
            return;
        }
        Require(instruction.GetLength() == layout.nWords, "both decoders measure alike",
                "at word " + std::to_string(nPosition));
        Require(stream.GetTokensRead() == nPosition + layout.nWords, "a read moves past what was read");
        nPosition += layout.nWords;
    }
}

void CheckRegisters(CFuzzShader& shader)
{
    const std::vector<unsigned int>& vOwn = shader.m_nPatchedTempRegisters;
    const auto isOwn = [&](const Register& reg)
    { return reg.reg.type == RT_Temp && std::find(vOwn.begin(), vOwn.end(), reg.reg.number) != vOwn.end(); };
    for (const CShaderDebuggerInstructionIL& instruction : shader.m_Instructions)
    {
        Register reg;
        if (instruction.HasDestReg() && instruction.GetDestRegister(reg))
        {
            Require(!isOwn(reg), "the debugger's temps are none that the kernel writes");
            Require(reg.reg.pIndexRegister == nullptr || !isOwn(*reg.reg.pIndexRegister),
                    "the debugger's temps are none that the kernel indexes with");
        }
        for (unsigned int i = 0; i < instruction.GetSrcRegCount(); ++i)
        {
            Require(!instruction.GetSrcRegister(i, reg) || !isOwn(reg),
                    "the debugger's temps are none that the kernel reads");
        }
    }
}

void CheckAnalysis(CFuzzShader& shader)
{
    const InstructionNumber nCount = shader.m_nInstructionCount;
    Require(nCount > 0 && shader.m_nEndOfShader == nCount - 1, "the end is the last instruction");
    Require(shader.m_Instructions.size() == nCount, "every instruction is kept");
    Require(shader.m_Instructions.back().GetOpCode() == IL_OP_END, "the last instruction is an end");
    Require(shader.m_PC_LineNumberMap.left.size() == nCount && shader.m_PC_LineNumberMap.right.size() == nCount,
            "every instruction has a line of its own");
    Require(shader.m_nPatchedTempRegisterCount <= CAnalyzedShaderIL::NUM_IL_REGISTER_INDICES &&
                shader.m_nPatchedLiteralRegisterCount <= CAnalyzedShaderIL::NUM_IL_REGISTER_INDICES,
            "no more registers than there are");
    if (shader.IsCompute() && shader.m_bTidewater)
    {
        const unsigned int nResults = shader.GetResultsUAVNum();
        const unsigned int nMask = shader.GetExecMaskUAVNum();
        Require(nResults != nMask && shader.m_UAVNums.count(nResults) == 0 && shader.m_UAVNums.count(nMask) == 0,
                "the output buffers have UAVs of their own");
    }
    CheckRegisters(shader);
}

} // namespace

void FuzzIL(const uint8_t* pData, size_t nSize)
{
    const std::vector<unsigned int> vTokens = ToWords(pData, nSize);
    CompareDecoders(vTokens);
    if (vTokens.size() > 2)
    {
        CompareDecoders(std::vector<unsigned int>(vTokens.begin() + 2, vTokens.end()));
    }

    CFuzzKernel kernel(pData, nSize);
    if (kernel.Analyze())
    {
        CheckAnalysis(kernel.Shader());
    }
    else
    {
        Require(!kernel.Shader().IsShaderDebuggable(DM_Asm), "a kernel that is refused can't be debugged");
    }
}

} // namespace KestrelFuzz
