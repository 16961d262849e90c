#include "instrument/InstrumentedShaderIL.h"

#include "core/Log.h"

namespace OVK_ShaderDebugger
{

namespace
{

/// The values of the debugger's literals, by role.
constexpr unsigned int s_LiteralValues[] = {0, 1, 2, ~0u, 16};

/// The arguments that a patched kernel has after the kernel's own.
constexpr unsigned int s_nAddedArguments = 3;

constexpr unsigned int s_nRawStride = 4;
constexpr unsigned int s_nRawLength = 4;

} // namespace

void CInstrumentedShaderIL::WriteLiteralDeclaration(CDest& dest, unsigned int nRegister, unsigned int nValue)
{
    WriteInstruction(dest, IL_DCL_LITERAL);
    WriteSourceReg(dest, IL_REGTYPE_LITERAL, nRegister);
    WriteImmediate32_4(dest, nValue, nValue, nValue, nValue);
}

void CInstrumentedShaderIL::WriteZero(CDest& dest, unsigned int nTemp)
{
    MovDestSrc(dest, Register(RT_Temp, nTemp, COMP_All), Register(RT_LITERAL, GetLiteralRegister0(), COMP_All));
}

void CInstrumentedShaderIL::WriteOutputDeclarations(CDest& dest)
{
    for (const unsigned int nOutput : {m_nResultsOutputRegIndex, m_nExecMaskOutputRegIndex})
    {
        WriteInstruction(dest, IL_DCL_OUTPUT);
        WriteDestReg(dest, IL_REGTYPE_OUTPUT, nOutput);
    }
}

void CInstrumentedShaderIL::WriteBufferDeclarations(CDest& dest)
{
    WriteInstruction(dest, IL_DCL_CONST_BUFFER);
    WriteSourceReg(dest, IL_REGTYPE_CONST_BUFF, 0, COMP_All, m_nRuntimeABIConstantBufferSize);
    WriteInstruction(dest, IL_DCL_CONST_BUFFER);
    WriteSourceReg(dest, IL_REGTYPE_CONST_BUFF, 1, COMP_All, m_nKernelABIConstantBufferSize + s_nAddedArguments);

    if (!m_bTidewater)
    {
        WriteInstruction(dest, IL_OP_DCL_RAW_UAV, m_nRawUAVNum);
        WriteInstruction(dest, IL_OP_DCL_ARENA_UAV, ARENA_UAV);
        return;
    }

    for (const unsigned int nUav : {GetResultsUAVNum(), GetExecMaskUAVNum()})
    {
        WriteInstruction(dest, IL_OP_DCL_TYPELESS_UAV, nUav);
        WriteImmediate32(dest, s_nRawStride);
        WriteImmediate32(dest, s_nRawLength);
    }
}

void CInstrumentedShaderIL::InitResourcesAndRegisters(CDest& dest, bool bInitLoopRegisters, ProgramCounter pc)
{
    if (IsCompute())
    {
        WriteBufferDeclarations(dest);
        WriteDecls(dest, 0);
    }
    else
    {
        WriteOutputDeclarations(dest);
    }

    WriteDebuggerNumericLiteralDeclarations(dest);
    WriteSamplerStubs(dest);

    for (const unsigned int nTemp : m_vTempRegisterNumbers)
    {
        WriteZero(dest, nTemp);
    }

    for (const unsigned int nTemp : m_nPatchedTempRegisters)
    {
        WriteZero(dest, nTemp);
    }

    if (bInitLoopRegisters)
    {
        WriteDebuggerLoopLiteralDeclarations(dest, pc);
    }
}

/// What the capture inside an outline macro works with.
void CInstrumentedShaderIL::WriteMacroPreamble(CDest& dest, const ProgramCounter& pc)
{
    WriteDebuggerNumericLiteralDeclarations(dest);
    WriteDebuggerLoopLiteralDeclarations(dest, pc);

    for (const unsigned int nTemp : m_nPatchedTempRegisters)
    {
        WriteZero(dest, nTemp);
    }
}

/// One sample with each sampler of the kernel, so that all of them stay in use whatever the patch leaves out.
void CInstrumentedShaderIL::WriteSamplerStubs(CDest& dest)
{
    for (const auto& function : m_DeclsFuncScopeMap)
    {
        const std::vector<CShaderDebuggerInstructionIL>& vResources = function.second.m_Resources;

        if (vResources.empty())
        {
            continue;
        }

        IL_SAMPLE_COpCode token = {};
        token.bits.code = IL_OP_SAMPLE;
        token.bits.controls_resource = IL_DCLResourceOpCode{vResources.back().GetToken(0)}.bits.controls_id;
        WriteZero(dest, GetExecMaskTempRegister());

        for (const unsigned int nSampler : m_Samplers)
        {
            token.bits.controls_sampler = nSampler & 0xFu;
            dest.WriteToken(token.val);
            WriteDestReg(dest, IL_REGTYPE_TEMP, GetExecMaskTempRegister());
            WriteSourceReg(dest, IL_REGTYPE_TEMP, GetOutputTempRegister());
        }

        return;
    }
}

void CInstrumentedShaderIL::WriteDebuggerNumericLiteralDeclarations(CDest& dest)
{
    for (size_t i = 0; i < m_nLiteralRegisters.size(); ++i)
    {
        WriteLiteralDeclaration(dest, m_nLiteralRegisters[i], s_LiteralValues[i]);
    }
}

void CInstrumentedShaderIL::WriteDebuggerLoopLiteralDeclarations(CDest& dest, const ProgramCounter& pc)
{
    unsigned int nLoopDepth = 0;
    unsigned int nCurrentComponentIndex = 0;

    for (const LoopState& state : pc.m_LoopStack)
    {
        const CIL_Loop* pLoop = CIL_FCConstruct::AsLoop(ConstructOf(state.nLoopStart));

        if (!SD_Assert(GetHost(), pLoop != nullptr) || !SD_Assert(GetHost(), pLoop->GetLoopDepth() - 1 == nLoopDepth) ||
            !SD_Assert(GetHost(), pLoop->GetCountComponent() == GetComponent(nCurrentComponentIndex)))
        {
            break;
        }

        if (nCurrentComponentIndex == 0)
        {
            WriteInstruction(dest, IL_DCL_LITERAL);
            WriteSourceReg(dest, IL_REGTYPE_LITERAL, pLoop->GetLiteralRegister());
        }

        WriteImmediate32(dest, state.nLoopIteration + 1);
        nCurrentComponentIndex = (nCurrentComponentIndex + 1) % 4;
        ++nLoopDepth;
    }

    for (; nCurrentComponentIndex % 4 != 0; ++nCurrentComponentIndex)
    {
        WriteImmediate32(dest, 0);
    }
}

bool CInstrumentedShaderIL::WriteDecls(CDest& dest, unsigned int nFuncLabel)
{
    const auto it = m_DeclsFuncScopeMap.find(nFuncLabel);

    if (it == m_DeclsFuncScopeMap.end())
    {
        return false;
    }

    for (const auto& buffer : it->second.m_ConstantBufferSizes)
    {
        WriteInstruction(dest, IL_DCL_CONST_BUFFER);
        WriteSourceReg(dest, IL_REGTYPE_CONST_BUFF, buffer.first, COMP_All, buffer.second);
    }

    for (const auto* pDeclarations : {&it->second.m_Resources, &it->second.m_UAVs})
    {
        for (const CShaderDebuggerInstructionIL& declaration : *pDeclarations)
        {
            declaration.WriteInstruction(dest);
        }
    }

    return true;
}

} // namespace OVK_ShaderDebugger
