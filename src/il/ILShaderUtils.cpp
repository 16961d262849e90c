#include "il/ILShaderUtils.h"

#include "core/SDULogger.h"
#include "il/ILOpCodeTable.h"

#include <cstdint>

namespace
{

constexpr ILOpCodeTable s_OpTraits = BuildILOpCodeTable();
constexpr SILOpCodeTraits s_NoTraits;

const SILOpCodeTraits& Traits(ILOpCode op)
{
    return ILFormatDecode::Validate(op) ? s_OpTraits[op] : s_NoTraits;
}

bool IsInClass(ILOpCode op, std::uint32_t nClasses)
{
    return (Traits(op).nClasses & nClasses) != 0;
}

} // namespace

namespace ILShaderUtils
{

bool IsDCL(ILOpCode op)
{
    return IsInClass(op, OPC_DCL);
}

bool IsDCLInput(ILOpCode op)
{
    return IsInClass(op, OPC_DCL_INPUT);
}

bool IsDCLOutput(ILOpCode op)
{
    return IsInClass(op, OPC_DCL_OUTPUT);
}

bool IsDCLLiteral(ILOpCode op)
{
    return IsInClass(op, OPC_DCL_LITERAL);
}

bool IsDCL_UAV(ILOpCode op)
{
    return IsInClass(op, OPC_DCL_UAV);
}

bool IsInstruction(ILOpCode op)
{
    if (IsInClass(op, OPC_HULL_PHASE))
    {
        SDU_Break("Instruction or not???");
    }

    return !IsInClass(op, OPC_NO_INSTRUCTION);
}

bool IsFlowControlOp(ILOpCode op)
{
    return IsInClass(op, OPC_FLOW_CONTROL);
}

bool IsFlowControlBlockOp(ILOpCode op)
{
    return IsInClass(op, OPC_FLOW_CONTROL_BLOCK);
}

bool HasInstructionModifier(ILOpCode op)
{
    return IsInClass(op, OPC_INSTRUCTION_MODIFIER);
}

bool UsesStandardModifiers(ILOpCode op)
{
    return !IsInClass(op, OPC_NO_STANDARD_MODIFIERS);
}

bool IsGlobalStore(ILOpCode op)
{
    return IsInClass(op, OPC_GLOBAL_STORE);
}

bool IsGlobalLoad(ILOpCode op)
{
    return IsInClass(op, OPC_GLOBAL_LOAD);
}

bool IsGlobalAtomicOp(ILOpCode op)
{
    return IsInClass(op, OPC_GLOBAL_ATOMIC);
}

bool WritesGlobalMemory(ILOpCode op)
{
    return IsInClass(op, OPC_WRITES_GLOBAL);
}

bool WritesLocalMemory(ILOpCode op)
{
    return IsInClass(op, OPC_WRITES_LOCAL);
}

bool AccessesMemory(ILOpCode op)
{
    return IsInClass(op, OPC_GLOBAL_MEM_ACCESS | OPC_WRITES_GLOBAL | OPC_WRITES_LOCAL | OPC_READS);
}

bool IsSampleOp(ILOpCode op)
{
    return IsInClass(op, OPC_SAMPLE);
}

bool IsFetch4Op(ILOpCode op)
{
    return IsInClass(op, OPC_FETCH4);
}

bool IsGlobalMemAccessOp(ILOpCode op)
{
    return IsInClass(op, OPC_GLOBAL_MEM_ACCESS);
}

bool IsReadAtomicOp(ILOpCode op)
{
    return IsInClass(op, OPC_READ_ATOMIC);
}

bool HasDescription(ILOpCode op)
{
    if (!Traits(op).bHasShape)
    {
        return SDU_Break("Didn't find opcode token description");
    }

    return true;
}

EILTail GetTail(ILOpCode op)
{
    return Traits(op).eTail;
}

unsigned int GetFormatCode(ILOpCode op)
{
    return Traits(op).nFormat;
}

bool HasDestReg(IL opToken, IL instructionModifier)
{
    const SILOpCodeTraits& traits = Traits(ILFormatDecode::GetOp(opToken));

    if (!traits.bHasShape)
    {
        return SDU_Break("HasDestReg() - unable to find opcode");
    }

    if (traits.nFormat == g_nILFormatFromModifier)
    {
        return (instructionModifier >> 16) != 0;
    }

    return traits.nDestCount != 0;
}

unsigned int GetDestRegCount(IL opToken, IL instructionModifier)
{
    return HasDestReg(opToken, instructionModifier) ? 1 : 0;
}

unsigned int GetSrcRegCount(IL opToken, IL instructionModifier)
{
    const IL_OpCode opCode{opToken};
    const ILOpCode op = ILFormatDecode::GetOp(opToken);
    const SILOpCodeTraits& traits = Traits(op);

    if (!traits.bHasShape)
    {
        SDU_Break("GetSrcRegCount() - unable to find opcode");
        return 0;
    }

    if (traits.nFormat == g_nILFormatFromModifier)
    {
        return instructionModifier & 0xFFFFu;
    }

    // The inline table of values stands in the source's place.
    if (op == IL_DCL_CONST_BUFFER && opCode.bits.pri_modifier_present)
    {
        return 0;
    }

    return traits.nSrcCount;
}

const char* GetOpCodeName(ILOpCode op)
{
    const char* pszName = Traits(op).pszName;

    if (pszName == nullptr)
    {
        SDU_Break("Didn't find opcode");
        return "";
    }

    return pszName;
}

} // namespace ILShaderUtils
