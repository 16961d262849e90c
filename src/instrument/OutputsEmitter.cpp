#include "instrument/InstrumentedShaderIL.h"

#include "core/Log.h"

namespace OVK_ShaderDebugger
{

namespace
{

// The elements of constant buffer 0 that tell a work-item where it is.
constexpr unsigned int s_nGlobalSizeElement = 0;
constexpr unsigned int s_nLocalSizeElement = 1;
constexpr unsigned int s_nGlobalOffsetElement = 6;
constexpr unsigned int s_nGlobalIdOffsetElement = 9;

constexpr unsigned int s_nRuntimeBuffer = 0;

Register Temp(unsigned int nNumber, RegisterMask mask = COMP_All)
{
    return Register(RT_Temp, nNumber, mask);
}

Register Literal(unsigned int nNumber, RegisterMask mask = COMP_All)
{
    return Register(RT_LITERAL, nNumber, mask);
}

Register Constant(unsigned int nBuffer, unsigned int nElement, RegisterMask mask = COMP_All)
{
    return Register(RT_CONST_BUFF, nBuffer, mask, nElement);
}

} // namespace

bool CInstrumentedShaderIL::IsCaptured(const Register& reg)
{
    return reg != g_Reg_NULL && reg.reg.type != RT_GENERIC_MEM && reg.reg.type != RT_Output;
}

void CInstrumentedShaderIL::WriteSelectorSwitch(CDest& dest)
{
    WriteInstruction(dest, IL_OP_SWITCH);
    WriteSourceReg(dest, Constant(s_nArgumentBuffer, GetRegisterSelectorConstantBufferIndex(), COMP_x));
}

void CInstrumentedShaderIL::WriteSelectorDefault(CDest& dest)
{
    WriteInstruction(dest, IL_OP_DEFAULT);
    MovDestSrc(dest, Temp(GetOutputTempRegister()), Literal(GetLiteralRegisterMinus1()));
    WriteInstruction(dest, IL_OP_BREAK);
    WriteInstruction(dest, IL_OP_ENDSWITCH);
}

void CInstrumentedShaderIL::WriteRegsToOutputTempReg(CDest& dest, const std::vector<Register>& vTargetRegs)
{
    const bool bUseSwitch = vTargetRegs.size() > 1;
    auto itFreeLiteral = m_qUnusedLiteralRegs.cbegin() + static_cast<ptrdiff_t>(m_CopyLiterals.size());

    if (bUseSwitch)
    {
        WriteSelectorSwitch(dest);
    }

    for (size_t i = 0; i < vTargetRegs.size(); ++i)
    {
        if (bUseSwitch)
        {
            WriteInstruction(dest, IL_OP_CASE);
            WriteImmediate32(dest, static_cast<unsigned int>(i));
        }

        if (IsCaptured(vTargetRegs[i]))
        {
            WriteCaptureOf(dest, vTargetRegs[i], itFreeLiteral);
        }

        if (bUseSwitch)
        {
            WriteInstruction(dest, IL_OP_BREAK);
        }
    }

    if (bUseSwitch)
    {
        WriteSelectorDefault(dest);
    }
}

void CInstrumentedShaderIL::WriteCaptureOf(CDest& dest, const Register& reg,
                                           std::deque<unsigned int>::const_iterator& itFreeLiteral)
{
    if (reg.reg.type != RT_PrivateUAVAccess)
    {
        MovDestSrc(dest, Temp(GetOutputTempRegister()), Register(reg.reg, COMP_All));
        return;
    }

    if (!SD_AssertText(GetHost(), itFreeLiteral != m_qUnusedLiteralRegs.cend(), "!qUnusedLiteralRegs.empty()"))
    {
        return;
    }

    const unsigned int nLiteral = *itFreeLiteral++;
    const RegisterMask addressMask = m_b64BitAddressSpace ? COMP_xy : COMP_x;
    WriteInstruction(dest, IL_DCL_LITERAL);
    WriteSourceReg(dest, Literal(nLiteral));
    WriteImmediate32_4(dest, reg.reg.index, 0, 0, 0);
    MovDestSrc(dest, Temp(GetOutputAddressTempRegister()), Literal(nLiteral));
    UavRawLoad(dest, reg.reg.number, Temp(GetOutputTempRegister()), Temp(GetOutputAddressTempRegister(), addressMask),
               IL_UAV_SC_DECIDE);
}

void CInstrumentedShaderIL::WriteExecMaskTempReg(CDest& dest, bool bVal)
{
    MovDestSrc(dest, Temp(GetExecMaskTempRegister()), Literal(bVal ? GetLiteralRegister1() : GetLiteralRegister0()));
}

void CInstrumentedShaderIL::CopyInputRegs(CDest& dest, const std::vector<Register>& vTargetRegs)
{
    WriteOutputDeclarations(dest);
    WriteLiteralDeclaration(dest, GetLiteralRegister0(), 0);
    WriteLiteralDeclaration(dest, GetLiteralRegister1(), 1);
    WriteLiteralDeclaration(dest, GetLiteralRegisterMinus1(), ~0u);
    WriteZero(dest, GetOutputTempRegister());
    WriteSelectorSwitch(dest);

    for (size_t i = 0; i < vTargetRegs.size(); ++i)
    {
        WriteInstruction(dest, IL_OP_CASE);
        WriteImmediate32(dest, static_cast<unsigned int>(i));
        MovDestSrc(dest, Temp(GetOutputTempRegister()), Register(vTargetRegs[i].reg, COMP_All));
        WriteInstruction(dest, IL_OP_BREAK);
    }

    WriteSelectorDefault(dest);
}

void CInstrumentedShaderIL::WriteThreadGroupSize(CDest& dest, unsigned int nFunction)
{
    const auto itMax = m_maxThreadPerGroup.find(nFunction);

    if (itMax != m_maxThreadPerGroup.end())
    {
        WriteInstruction(dest, IL_DCL_MAX_THREAD_PER_GROUP);
        WriteImmediate32(dest, static_cast<unsigned int>(itMax->second));
        return;
    }

    const auto itNum = m_numThreadPerGroup.find(nFunction);

    if (itNum != m_numThreadPerGroup.end())
    {
        const ThreadID& size = itNum->second;
        WriteInstruction(dest, IL_OP_DCL_NUM_THREAD_PER_GROUP, 3);
        WriteImmediate32_3(dest, static_cast<unsigned int>(size.x), static_cast<unsigned int>(size.y),
                           static_cast<unsigned int>(size.z));
    }
}

/// The work-item's coordinates, in the dispatch without its offset, into x, y and z of the coordinate temp, and its
/// linear index into w.
void CInstrumentedShaderIL::WriteElementIndex(CDest& dest)
{
    const unsigned int nGID = GetGIDTempRegister();
    const Register negated = Temp(GetExecMaskAddressTempRegister());

    WriteInstruction(dest, IL_OP_I_MAD);
    WriteDestReg(dest, Temp(nGID));
    WriteSourceReg(dest, IL_REGTYPE_THREAD_GROUP_ID, 0);
    WriteSourceReg(dest, Constant(s_nRuntimeBuffer, s_nLocalSizeElement));
    WriteSourceReg(dest, IL_REGTYPE_THREAD_ID_IN_GROUP, 0);

    IAddDestSrcSrc(dest, Temp(nGID), Temp(nGID), Constant(s_nRuntimeBuffer, s_nGlobalOffsetElement));

    WriteInstruction(dest, IL_OP_I_NEGATE);
    WriteDestReg(dest, negated);
    WriteSourceReg(dest, Constant(s_nRuntimeBuffer, s_nGlobalIdOffsetElement));

    IAddDestSrcSrc(dest, Temp(nGID), Temp(nGID), negated);

    WriteInstruction(dest, IL_OP_I_MAD);
    WriteDestReg(dest, Temp(nGID, COMP_w));
    WriteSourceReg(dest, Temp(nGID, COMP_z));
    WriteSourceReg(dest, Constant(s_nRuntimeBuffer, s_nGlobalSizeElement, COMP_y));
    WriteSourceReg(dest, Temp(nGID, COMP_y));

    WriteInstruction(dest, IL_OP_I_MAD);
    WriteDestReg(dest, Temp(nGID, COMP_w));
    WriteSourceReg(dest, Temp(nGID, COMP_w));
    WriteSourceReg(dest, Constant(s_nRuntimeBuffer, s_nGlobalSizeElement, COMP_x));
    WriteSourceReg(dest, Temp(nGID, COMP_x));
}

/// The offset in w of the coordinate temp, from elements of a size to those of four times that size.
void CInstrumentedShaderIL::WriteOffsetTimesFour(CDest& dest)
{
    const Register offset = Temp(GetGIDTempRegister(), COMP_w);
    WriteInstruction(dest, IL_OP_I_SHL);
    WriteDestReg(dest, offset);
    WriteSourceReg(dest, offset);
    WriteSourceReg(dest, Literal(GetLiteralRegister2(), COMP_x));
}

/// The base address from the argument buffer plus the offset in w of the coordinate temp, in an address temp.
void CInstrumentedShaderIL::WriteElementAddress(CDest& dest, unsigned int nAddressTemp,
                                                unsigned int nConstantBufferIndex)
{
    const Register offset = Temp(GetGIDTempRegister(), COMP_w);
    if (!m_b64BitAddressSpace)
    {
        IAddDestSrcSrc(dest, Temp(nAddressTemp, COMP_x), Constant(s_nArgumentBuffer, nConstantBufferIndex, COMP_x),
                       offset);
        return;
    }

    WriteInstruction(dest, IL_OP_I64_ADD);
    WriteDestReg(dest, Temp(nAddressTemp, COMP_xy));
    WriteSourceReg(dest, Constant(s_nArgumentBuffer, nConstantBufferIndex, COMP_xy));
    WriteSourceReg(dest, offset, EXTD_ZeroFill);
}

void CInstrumentedShaderIL::WriteStores(CDest& dest, InstructionNumber nTarget)
{
    if (!IsCompute())
    {
        MovDestSrc(dest, Register(RT_Output, m_nResultsOutputRegIndex, COMP_All), Temp(GetOutputTempRegister()));
        MovDestSrc(dest, Register(RT_Output, m_nExecMaskOutputRegIndex, COMP_All), Temp(GetExecMaskTempRegister()));
        return;
    }

    WriteThreadGroupSize(dest, FunctionOf(nTarget));
    WriteElementIndex(dest);

    if (!m_bByteMask)
    {
        WriteOffsetTimesFour(dest);
    }

    WriteElementAddress(dest, GetExecMaskAddressTempRegister(), GetExecMaskConstantBufferIndex());
    const RegisterMask addressMask = m_b64BitAddressSpace ? COMP_xy : COMP_x;

    if (!m_bMaskOnly)
    {
        WriteOffsetTimesFour(dest);

        if (m_bByteMask)
        {
            WriteOffsetTimesFour(dest);
        }

        WriteElementAddress(dest, GetOutputAddressTempRegister(), GetOutputConstantBufferIndex());
        UavRawStore(dest, GetResultsUAVNum(), Register(RT_GENERIC_MEM, 0, COMP_All),
                    Temp(GetOutputAddressTempRegister(), addressMask), Temp(GetOutputTempRegister()), IL_UAV_SC_DECIDE);
    }

    UavStore(dest, m_bByteMask ? IL_OP_UAV_BYTE_STORE : IL_OP_UAV_RAW_STORE, GetExecMaskUAVNum(),
             Register(RT_GENERIC_MEM, 0, COMP_x), Temp(GetExecMaskAddressTempRegister(), addressMask),
             Temp(GetExecMaskTempRegister(), COMP_x), IL_UAV_SC_DECIDE);
}

} // namespace OVK_ShaderDebugger
