#include "instrument/InstrumentedShaderIL.h"

#include <cstring>

namespace OVK_ShaderDebugger
{

namespace
{

constexpr unsigned int s_nNoIndex = ~0u;

} // namespace

void CInstrumentedShaderIL::WriteInstruction(CDest& dest, ILOpCode opCode, unsigned int nControls)
{
    IL_OpCode token = {};
    token.bits.code = opCode & 0xFFFFu;
    token.bits.controls = nControls & 0x3FFFu;
    dest.WriteToken(token.val);
}

void CInstrumentedShaderIL::WriteDestReg(CDest& dest, ILRegType type, unsigned int nRegNum, RegisterMask mask,
                                         unsigned int nIndex)
{
    IL_Dst token = ShaderDebuggerUtilsIL::DestRegister(type, static_cast<int>(nRegNum), mask != COMP_All);
    token.bits.immediate_present = nIndex != s_nNoIndex;
    dest.WriteToken(token.val);

    if (token.bits.modifier_present)
    {
        dest.WriteToken(ShaderDebuggerUtilsIL::GetILDstMod(mask).val);
    }

    if (token.bits.immediate_present)
    {
        dest.WriteToken(nIndex);
    }
}

void CInstrumentedShaderIL::WriteSourceReg(CDest& dest, ILRegType type, unsigned int nRegNum, RegisterMask mask,
                                           unsigned int nIndex, ComponentExtend extend)
{
    const unsigned int nUsedIndex = ShaderDebuggerUtilsIL::IsILRegTypeIndexed(type) ? nIndex : 0;
    WriteSourceReg(dest, Register(ShaderDebuggerUtilsIL::ILtoSDRegisterType(type), nRegNum, mask, nUsedIndex), extend);
}

void CInstrumentedShaderIL::WriteSourceReg(CDest& dest, const Register& srcReg, ComponentExtend extend)
{
    const bool bIndexed = IsRegTypeIndexed(srcReg.reg.type);
    const Register* pIndex = bIndexed ? srcReg.reg.pIndexRegister : nullptr;

    IL_Src token = {};
    ILFormatDecode::SetRegisterType(&token, ShaderDebuggerUtilsIL::SDtoILRegisterType(srcReg.reg.type));
    ILFormatDecode::SetRegisterNumber(&token, static_cast<int>(srcReg.reg.number));
    token.bits.modifier_present = srcReg.mask != COMP_All;
    token.bits.relative_address = pIndex != nullptr ? IL_ADDR_REG_RELATIVE : IL_ADDR_ABSOLUTE;
    token.bits.immediate_present = bIndexed;
    dest.WriteToken(token.val);

    if (token.bits.modifier_present)
    {
        dest.WriteToken(ShaderDebuggerUtilsIL::GetILSrcMod(srcReg.mask, extend).val);
    }

    if (pIndex != nullptr)
    {
        WriteSourceReg(dest, *pIndex);
    }

    if (bIndexed)
    {
        dest.WriteToken(srcReg.reg.index);
    }
}

void CInstrumentedShaderIL::WriteImmediate32(CDest& dest, unsigned int i)
{
    dest.WriteToken(i);
}

void CInstrumentedShaderIL::WriteImmediate32_3(CDest& dest, unsigned int x, unsigned int y, unsigned int z)
{
    const unsigned int tokens[] = {x, y, z};
    dest.WriteTokens(tokens, 3);
}

void CInstrumentedShaderIL::WriteImmediate32_4(CDest& dest, unsigned int x, unsigned int y, unsigned int z,
                                               unsigned int w)
{
    const unsigned int tokens[] = {x, y, z, w};
    dest.WriteTokens(tokens, 4);
}

void CInstrumentedShaderIL::WriteImmediate32f(CDest& dest, float f)
{
    unsigned int nBits = 0;
    static_assert(sizeof(nBits) == sizeof(f), "a float's bits are one token");
    std::memcpy(&nBits, &f, sizeof(f));
    dest.WriteToken(nBits);
}

void CInstrumentedShaderIL::WriteImmediate32f_4(CDest& dest, float x, float y, float z, float w)
{
    for (const float f : {x, y, z, w})
    {
        WriteImmediate32f(dest, f);
    }
}

void CInstrumentedShaderIL::WriteComment(CDest& dest, const std::string& strComment)
{
    WriteInstruction(dest, IL_OP_COMMENT);

    // At least one zero byte ends the text.
    IL_Comment_Descriptor descriptor = {};
    descriptor.bits.length = ((strComment.size() + sizeof(IL)) / sizeof(IL)) & 0xFFFFu;
    dest.WriteToken(descriptor.val);

    std::string strPadded = strComment;
    strPadded.resize(descriptor.bits.length * sizeof(IL), '\0');
    dest.WriteData(strPadded.data(), strPadded.size());
}

void CInstrumentedShaderIL::MovDestSrc(CDest& dest, const Register& destReg, const Register& srcReg)
{
    WriteInstruction(dest, IL_OP_MOV);
    WriteDestReg(dest, destReg);
    WriteSourceReg(dest, srcReg);
}

void CInstrumentedShaderIL::IAddDestSrcSrc(CDest& dest, const Register& destReg, const Register& srcReg0,
                                           const Register& srcReg1)
{
    WriteInstruction(dest, IL_OP_I_ADD);
    WriteDestReg(dest, destReg);
    WriteSourceReg(dest, srcReg0);
    WriteSourceReg(dest, srcReg1);
}

void CInstrumentedShaderIL::CMovDestSrcSrcSrc(CDest& dest, const Register& destReg, const Register& condition,
                                              const Register& srcReg1, const Register& srcReg2)
{
    WriteInstruction(dest, IL_OP_CMOV_LOGICAL);
    WriteDestReg(dest, destReg);
    WriteSourceReg(dest, condition);
    WriteSourceReg(dest, srcReg1);
    WriteSourceReg(dest, srcReg2);
}

void CInstrumentedShaderIL::WriteDestReg(CDest& dest, const Register& destReg)
{
    WriteDestReg(dest, ShaderDebuggerUtilsIL::SDtoILRegisterType(destReg.reg.type), destReg.reg.number, destReg.mask,
                 IsRegTypeIndexed(destReg.reg.type) ? destReg.reg.index : s_nNoIndex);
}

void CInstrumentedShaderIL::WriteUavOpCode(CDest& dest, ILOpCode opCode, unsigned int nId,
                                           IL_UAV_CACHE_TYPE cacheType) const
{
    IL_UavOpCode token = {};
    token.bits.code = opCode & 0xFFFFu;
    token.bits.id = nId & 0x3FFu;
    token.bits.cache_control = cacheType & 3u;
    token.bits.addr_mode = m_b64BitAddressSpace;
    dest.WriteToken(token.val);
}

void CInstrumentedShaderIL::UavRawLoad(CDest& dest, unsigned int nId, const Register& destReg, const Register& srcReg,
                                       IL_UAV_CACHE_TYPE readType) const
{
    WriteUavOpCode(dest, IL_OP_UAV_RAW_LOAD, nId, readType);
    WriteDestReg(dest, destReg);
    WriteSourceReg(dest, srcReg);
}

void CInstrumentedShaderIL::UavRawStore(CDest& dest, unsigned int nId, const Register& destReg,
                                        const Register& offsetReg, const Register& srcReg,
                                        IL_UAV_CACHE_TYPE writeType) const
{
    UavStore(dest, IL_OP_UAV_RAW_STORE, nId, destReg, offsetReg, srcReg, writeType);
}

void CInstrumentedShaderIL::UavStore(CDest& dest, ILOpCode opCode, unsigned int nId, const Register& destReg,
                                     const Register& offsetReg, const Register& srcReg,
                                     IL_UAV_CACHE_TYPE writeType) const
{
    WriteUavOpCode(dest, opCode, nId, writeType);
    WriteDestReg(dest, destReg);
    WriteSourceReg(dest, offsetReg);
    WriteSourceReg(dest, srcReg);
}

} // namespace OVK_ShaderDebugger
