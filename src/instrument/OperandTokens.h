#ifndef KESTREL_INSTRUMENT_OPERANDTOKENS_H
#define KESTREL_INSTRUMENT_OPERANDTOKENS_H

#include "il/ShaderDebuggerInstructionIL.h"

namespace OVK_ShaderDebugger
{

/// What an operand's tokens say beyond a Register: the whole swizzle, and where its index register stands.
struct SOperand
{
    ILRegType type = IL_REGTYPE_LAST;
    unsigned int nNumber = 0;
    bool bHasModifier = false;
    IL modifier = 0;
    std::uint32_t nIndexOffset = 0; ///< of the token of the index register; 0 for none
};

/// The operand whose token stands at nOffset of a decoded instruction.
inline SOperand ReadOperand(const CShaderDebuggerInstructionIL& instruction, std::uint32_t nOffset)
{
    const IL_Src token{instruction.GetToken(nOffset)};
    SOperand operand;
    operand.type = ILFormatDecode::RegisterType(&token);
    operand.nNumber = static_cast<unsigned int>(ILFormatDecode::RegisterNumber(&token));
    operand.bHasModifier = token.bits.modifier_present != 0;
    operand.modifier = operand.bHasModifier ? instruction.GetToken(nOffset + 1) : 0;

    if (token.bits.relative_address == IL_ADDR_REG_RELATIVE)
    {
        operand.nIndexOffset = nOffset + 1 + token.bits.modifier_present;
    }

    return operand;
}

} // namespace OVK_ShaderDebugger

#endif
