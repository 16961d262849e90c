#ifndef KESTREL_IL_ILSHADERUTILS_H
#define KESTREL_IL_ILSHADERUTILS_H

#include "il/ILFormatDecode.h"

#include <cstdint>

enum EILTail : std::uint8_t;

/// What is known of an opcode from the opcode table: its class, its text name and the shape of its instruction. All
/// answers are one lookup by opcode in a table that the compiler builds from ILOpCodes.def. Nothing here has state.
namespace ILShaderUtils
{

/// Opcode classes. A number that is no opcode is in none of them, except those defined by what they leave out
/// (IsInstruction and UsesStandardModifiers).
bool IsDCL(ILOpCode op);
bool IsDCLInput(ILOpCode op);
bool IsDCLOutput(ILOpCode op);
bool IsDCLLiteral(ILOpCode op);
bool IsDCL_UAV(ILOpCode op);
/// All but declarations, comments and the bounds of a macro definition. Logs when asked for a hull shader phase.
bool IsInstruction(ILOpCode op);
bool IsFlowControlOp(ILOpCode op);
bool IsFlowControlBlockOp(ILOpCode op);
/// Whether an instruction modifier word follows the opcode token.
bool HasInstructionModifier(ILOpCode op);
/// Whether the upper bits of the opcode token announce modifier words.
bool UsesStandardModifiers(ILOpCode op);
bool IsGlobalStore(ILOpCode op);
bool IsGlobalLoad(ILOpCode op);
bool IsGlobalAtomicOp(ILOpCode op);
bool IsSampleOp(ILOpCode op);
bool IsFetch4Op(ILOpCode op);
/// Any of the five classes above.
bool IsGlobalMemAccessOp(ILOpCode op);
/// Atomics that give the old value, appends and consumes.
bool IsReadAtomicOp(ILOpCode op);
/// Whether an instruction can change global memory, an image or a counter: every store and atomic that reaches them, by
/// whatever name. (IsGlobalStore and IsGlobalAtomicOp are narrower.) A store to a UAV that is declared as private is
/// among them.
bool WritesGlobalMemory(ILOpCode op);
/// The same for local memory.
bool WritesLocalMemory(ILOpCode op);
/// Whether an instruction reads or writes memory of any kind, or an image, other than constant buffers.
bool AccessesMemory(ILOpCode op);

/// Whether the shape of the opcode's instruction is known: from its row in the opcode table, or from its trailing words
/// alone (IL_OP_DCL_TOTAL_NUM_THREAD_GROUP). Logs "Didn't find opcode token description" when it isn't: a stream cannot
/// be decoded beyond such an opcode.
bool HasDescription(ILOpCode op);
/// The words that follow its operands. ILT_NONE for what is no opcode. Logs nothing.
EILTail GetTail(ILOpCode op);
/// The format code of the opcode's row, 0 when there is none. Logs nothing.
unsigned int GetFormatCode(ILOpCode op);

/// Whether the instruction has a destination operand. `instructionModifier` is the word after the opcode token of
/// `mdef` and `mcall`, 0 for the others. False, and logged, for an opcode without a row.
bool HasDestReg(IL opToken, IL instructionModifier);
/// 1 or 0, as HasDestReg.
unsigned int GetDestRegCount(IL opToken, IL instructionModifier);
/// How many source operands the instruction has. 0, and logged, for an opcode without a row.
unsigned int GetSrcRegCount(IL opToken, IL instructionModifier);

/// The opcode's text name: a string that lives forever, never null. Empty, and logged, for an opcode without a row.
const char* GetOpCodeName(ILOpCode op);

/// The register type of an operand token.
inline ILRegType GetOpCodeDestType(IL_Dst dst)
{
    return ILFormatDecode::RegisterType(&dst);
}
inline ILRegType GetOpCodeDestType(IL token)
{
    return GetOpCodeDestType(IL_Dst{token});
}
inline ILRegType GetOpCodeSourceType(IL_Src src)
{
    return ILFormatDecode::RegisterType(&src);
}
inline ILRegType GetOpCodeSourceType(IL token)
{
    return GetOpCodeSourceType(IL_Src{token});
}

} // namespace ILShaderUtils

#endif // KESTREL_IL_ILSHADERUTILS_H
