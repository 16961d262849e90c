#ifndef KESTREL_IL_ILOPCODETABLE_H
#define KESTREL_IL_ILOPCODETABLE_H

#include "il/ILFormatDecode.h"

#include <array>
#include <cstddef>
#include <cstdint>

/// What the rows of ILOpCodes.def say, by opcode. The debugger and the platform each have their own reader of tokens,
/// so that they check each other; this is the description that both follow.

/// What an opcode is; any of these together.
enum EILOpClass : std::uint32_t
{
    OPC_DCL = 1u << 0,
    OPC_DCL_INPUT = 1u << 1,
    OPC_DCL_OUTPUT = 1u << 2,
    OPC_DCL_LITERAL = 1u << 3,
    OPC_DCL_UAV = 1u << 4,
    OPC_NO_INSTRUCTION = 1u << 5,
    OPC_FLOW_CONTROL = 1u << 6,
    OPC_FLOW_CONTROL_BLOCK = 1u << 7,
    OPC_INSTRUCTION_MODIFIER = 1u << 8,  ///< an instruction modifier word follows the opcode token
    OPC_NO_STANDARD_MODIFIERS = 1u << 9, ///< bits 30 and 31 of the opcode token bring no modifier words
    OPC_GLOBAL_STORE = 1u << 10,
    OPC_GLOBAL_LOAD = 1u << 11,
    OPC_GLOBAL_ATOMIC = 1u << 12,
    OPC_SAMPLE = 1u << 13,
    OPC_FETCH4 = 1u << 14,
    OPC_READ_ATOMIC = 1u << 15,
    OPC_HULL_PHASE = 1u << 16,
    OPC_WRITES_GLOBAL = 1u << 17,
    OPC_WRITES_LOCAL = 1u << 18,
    OPC_READS = 1u << 19,
    OPC_DECLARATION = OPC_DCL | OPC_NO_INSTRUCTION,
    OPC_GLOBAL_MEM_ACCESS = OPC_GLOBAL_STORE | OPC_GLOBAL_LOAD | OPC_GLOBAL_ATOMIC | OPC_SAMPLE | OPC_FETCH4
};

/// The words that follow an instruction's operands.
enum EILTail : std::uint8_t
{
    ILT_NONE,
    ILT_ONE,
    ILT_TWO,
    ILT_FOUR,
    ILT_BY_CONTROLS, ///< as many as the opcode token's `controls` says
    ILT_COUNTED      ///< a count, then as many words
};

/// All that is known of one opcode.
struct SILOpCodeTraits
{
    const char* pszName = nullptr; ///< null without a keyword
    bool bHasShape = false;        ///< false: nothing is known of the words that follow the opcode token
    std::uint32_t nClasses = 0;
    EILTail eTail = ILT_NONE;
    std::uint16_t nFormat = 0;
    std::uint8_t nDestCount = 0;
    std::uint8_t nSrcCount = 0;
};

using ILOpCodeTable = std::array<SILOpCodeTraits, IL_OP_LAST>;

/// A text name, by which an opcode is found.
struct SILKeyword
{
    const char* pszText;
    unsigned int nOpCode;
    unsigned int nFormat;
};

/// The names in the order in which an opcode is looked up: the first one of an opcode is printed, and has its shape.
inline constexpr SILKeyword g_ILKeywords[] = {
#define IL_KEYWORD(text, value, format) {text, value, format},
#include "il/ILOpCodes.def"
#define IL_SPECIAL_KEYWORD(text, value, format) {text, value, format},
#include "il/ILOpCodes.def"
};

/// What a format code says of an instruction's operands.
struct SILFormat
{
    unsigned int nCode;
    std::uint8_t nDestCount;
    std::uint8_t nSrcCount;
};

inline constexpr SILFormat g_ILFormats[] = {
#define IL_FORMAT(code, dests, sources) {code, dests, sources},
#include "il/ILOpCodes.def"
};

/// The format whose operand counts stand in the instruction modifier word.
inline constexpr unsigned int g_nILFormatFromModifier = 1009;

constexpr const SILFormat& FindILFormat(unsigned int nCode)
{
    std::size_t i = 0;
    while (g_ILFormats[i].nCode != nCode)
    {
        ++i; // a code that is missing runs off the table, which a constant expression may not
    }
    return g_ILFormats[i];
}

/// To be called once a reader, for a constant of its own.
constexpr ILOpCodeTable BuildILOpCodeTable()
{
    ILOpCodeTable table{};
    for (const SILKeyword& keyword : g_ILKeywords)
    {
        SILOpCodeTraits& traits = table[keyword.nOpCode];
        if (traits.pszName == nullptr)
        {
            const SILFormat& format = FindILFormat(keyword.nFormat);
            traits.pszName = keyword.pszText;
            traits.bHasShape = true;
            traits.nFormat = static_cast<std::uint16_t>(format.nCode);
            traits.nDestCount = format.nDestCount;
            traits.nSrcCount = format.nSrcCount;
        }
    }
    // It has no keyword, but its shape is its sibling's: a count of words and no operands.
    table[IL_OP_DCL_TOTAL_NUM_THREAD_GROUP].bHasShape = true;

#define IL_OPCODE(name, value, classes, tail)                                                                          \
    if constexpr ((value) < IL_OP_LAST)                                                                                \
    {                                                                                                                  \
        table[value].nClasses = classes;                                                                               \
        table[value].eTail = tail;                                                                                     \
    }
#include "il/ILOpCodes.def"
    return table;
}

#endif // KESTREL_IL_ILOPCODETABLE_H
