#ifndef KESTREL_PLATFORM_COMPILER_INSTRUCTIONSHAPE_H
#define KESTREL_PLATFORM_COMPILER_INSTRUCTIONSHAPE_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace KestrelPlatform
{

/// Bits of the opcode token.
const uint32_t s_nOpcodeMask = 0xFFFF;
const uint32_t s_nControlsMask = 0x3FFF;
const uint32_t s_nSecondaryBit = 1u << 30;
const uint32_t s_nPrimaryBit = 1u << 31;

/// Bits and fields of a register token.
const uint32_t s_nOperandModifier = 1u << 22;
const uint32_t s_nOperandRelativeShift = 23;
const uint32_t s_nOperandDimension = 1u << 25;
const uint32_t s_nOperandImmediate = 1u << 26;
const uint32_t s_nOperandNegative = 1u << 27;
const uint32_t s_nOperandExtended = 1u << 31;

/// Whether an operand is a register with at most a modifier word: none of the bits above is set.
inline bool IsPlainOperand(uint32_t nToken)
{
    return nToken < 1u << s_nOperandRelativeShift;
}

/// How a register is addressed (`relative_address` of its token).
enum EAddressing : uint32_t
{
    AddressAbsolute = 0,
    AddressRelative = 1,
    AddressRegister = 2,
    AddressOther = 3
};

/// The opcodes that the compiler has to know by themselves.
enum EOpcode : uint32_t
{
    OpBreakC = 7,
    OpCall = 8,
    OpCallNZ = 9,
    OpComment = 15,
    OpElse = 39,
    OpEnd = 40,
    OpEndIf = 41,
    OpEndLoop = 42,
    OpEndMain = 43,
    OpFunc = 50,
    OpIfC = 52,
    OpIfNZ = 53,
    OpLoop = 62,
    OpCallLogicalZ = 103,
    OpCallLogicalNZ = 104,
    OpCase = 105,
    OpDefault = 108,
    OpEndSwitch = 109,
    OpEndFunc = 110,
    OpIfLogicalZ = 111,
    OpIfLogicalNZ = 112,
    OpWhile = 113,
    OpSwitch = 114,
    OpDclConstBuffer = 118,
    OpDclLiteral = 121,
    OpDclResource = 128,
    OpDclNumThreadPerGroup = 212,
    OpDclTotalNumThreadGroup = 213,
    OpDclLds = 262,
    OpMacroDef = 345,
    OpMacroEnd = 346,
    OpMacroCall = 347,
    OpDclMaxThreadPerGroup = 352,
    OpDclTypedUav = 423,
    OpDclTypelessUav = 424,
    OpLast = 737
};

/// The words behind the operands.
enum ETrailing : uint8_t
{
    TrailingNone,
    TrailingOne,
    TrailingTwo,
    TrailingFour,
    TrailingByControls, ///< as many as `controls` says
    TrailingCounted     ///< a count, then as many words
};

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
    ETrailing eTrailing = TrailingNone;

    std::string_view Name() const { return {pName, nNameLength}; }
};

/// Where the parts of one item stand, as word offsets from its opcode token.
struct SItemLayout
{
    uint32_t nOpcode = 0;
    size_t nWords = 0;                 ///< of the whole item
    uint32_t nInstructionModifier = 0; ///< the word itself, 0 if the opcode has none
    size_t nPrimary = 0;   ///< offset of the primary modifier word, 0 for none; for dcl_cb the count of the table
    size_t nSecondary = 0; ///< offset of the secondary modifier word, 0 for none
    size_t nOperands = 0;  ///< offset of the first operand, or of what follows if there is none
    bool bDestination = false;
    uint32_t nSources = 0;
    size_t nTrailing = 0;      ///< offset of the first trailing word
    size_t nTrailingWords = 0; ///< with the count word of a counted tail
};

/// The shapes by opcode. The last one is that of the opcodes behind: of none.
struct SInstructionShapes
{
    SInstructionShape shapes[OpLast + 1] = {};
};

extern const SInstructionShapes g_InstructionShapes;

/// \return the shape of an opcode; its name is null for an opcode that neither table knows
inline const SInstructionShape& GetInstructionShape(uint32_t nOpcode)
{
    return g_InstructionShapes.shapes[nOpcode < OpLast ? nOpcode : OpLast];
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
    return nOpcode == OpMacroCall ? (nInstructionModifier >> 16) != 0 : GetInstructionShape(nOpcode).bDestination;
}

/// How many sources the item with this opcode token and instruction modifier has.
inline uint32_t GetSourceCount(uint32_t nOpcodeToken, uint32_t nInstructionModifier)
{
    const uint32_t nOpcode = nOpcodeToken & s_nOpcodeMask;
    if (nOpcode == OpMacroCall)
    {
        return nInstructionModifier & 0xFFFF;
    }
    if (nOpcode == OpDclConstBuffer && (nOpcodeToken & s_nPrimaryBit) != 0)
    {
        return 0;
    }
    return GetInstructionShape(nOpcode).nSources;
}

/// Measures the operand that starts at pTokens.
///
/// \param nCount   words that may be looked at
/// \param nWords   receives the operand's words
/// \param pReason  receives the reason of a failure, a constant
/// \return false for an operand that is cut short, or has both a run-time index and a dimension
bool MeasureOperand(const uint32_t* pTokens, size_t nCount, size_t& nWords, const char*& pReason);

/// Measures the item that starts at pTokens: any instruction, declaration, comment or macro marker,
/// but not the two words that open a stream. Never looks behind nCount words.
///
/// \return false, with a constant reason, for an unknown opcode or an item that is cut short
bool MeasureItem(const uint32_t* pTokens, size_t nCount, SItemLayout& layout, const char*& pReason);

} // namespace KestrelPlatform

#endif
