#ifndef KESTREL_PLATFORM_IL_INSTRUCTIONSHAPE_H
#define KESTREL_PLATFORM_IL_INSTRUCTIONSHAPE_H

#include "il/ILOpCodeTable.h"
#include "platform/il/TokenBits.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace KestrelPlatform
{

/// What an opcode's tokens look like.
struct SInstructionShape
{
    const char* pName = nullptr; ///< null for an opcode that no table knows
    uint8_t nNameLength = 0;
    uint8_t nSources = 0;        ///< unless the opcode is mcall
    bool bDestination = false;   ///< unless the opcode is mcall
    bool bModifierWords = false; ///< bits 30 and 31 of the opcode token bring a word each
    bool bInstructionModifier = false;
    bool bInstruction = false; ///< no declaration, comment or macro marker
    EILTail eTail = ILT_NONE;

    std::string_view Name() const { return {pName, nNameLength}; }
};

/// The shapes by opcode. The last entry is the empty shape, for opcodes beyond the table.
struct SInstructionShapes
{
    SInstructionShape shapes[IL_OP_LAST + 1] = {};
};

extern const SInstructionShapes g_InstructionShapes;

/// \return the shape of an opcode; its name is null for an opcode that neither table knows
inline const SInstructionShape& GetInstructionShape(uint32_t nOpcode)
{
    return g_InstructionShapes.shapes[nOpcode < IL_OP_LAST ? nOpcode : IL_OP_LAST];
}

/// \return the opcode of a mnemonic without suffixes, or -1
int FindOpcode(std::string_view name);

/// Whether an opcode counts as an instruction: no declaration, comment or macro marker.
inline bool IsInstructionOpcode(uint32_t nOpcode)
{
    return GetInstructionShape(nOpcode).bInstruction;
}

/// Whether the item with this opcode token and instruction modifier has a destination.
inline bool HasDestination(uint32_t nOpcodeToken, uint32_t nInstructionModifier)
{
    const uint32_t nOpcode = nOpcodeToken & s_nOpcodeMask;
    return nOpcode == IL_OP_MACROCALL ? (nInstructionModifier >> 16) != 0 : GetInstructionShape(nOpcode).bDestination;
}

/// How many sources the item with this opcode token and instruction modifier has.
inline uint32_t GetSourceCount(uint32_t nOpcodeToken, uint32_t nInstructionModifier)
{
    const uint32_t nOpcode = nOpcodeToken & s_nOpcodeMask;
    if (nOpcode == IL_OP_MACROCALL)
    {
        return nInstructionModifier & 0xFFFF;
    }
    if (nOpcode == IL_DCL_CONST_BUFFER && (nOpcodeToken & s_nPrimaryBit) != 0)
    {
        return 0;
    }
    return GetInstructionShape(nOpcode).nSources;
}

} // namespace KestrelPlatform

#endif
