#include "il/ILShaderUtils.h"

#include "core/SDULogger.h"

#include <array>
#include <cstdint>

namespace
{

enum EOpClass : std::uint32_t
{
    OPC_DCL = 1u << 0,
    OPC_DCL_INPUT = 1u << 1,
    OPC_DCL_OUTPUT = 1u << 2,
    OPC_DCL_LITERAL = 1u << 3,
    OPC_DCL_UAV = 1u << 4,
    OPC_NO_INSTRUCTION = 1u << 5,
    OPC_FLOW_CONTROL = 1u << 6,
    OPC_FLOW_CONTROL_BLOCK = 1u << 7,
    OPC_INSTRUCTION_MODIFIER = 1u << 8,
    OPC_NO_STANDARD_MODIFIERS = 1u << 9,
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
    OPC_GLOBAL_MEM_ACCESS = OPC_GLOBAL_STORE | OPC_GLOBAL_LOAD | OPC_GLOBAL_ATOMIC | OPC_SAMPLE | OPC_FETCH4
};

/// All opcodes from first to last belong to the classes.
struct SClassRange
{
    std::uint32_t nClasses;
    unsigned int nFirst;
    unsigned int nLast;
};

constexpr std::uint32_t s_nDeclaration = OPC_DCL | OPC_NO_INSTRUCTION;

constexpr SClassRange s_ClassRanges[] = {
    {s_nDeclaration, IL_OP_DCLARRAY, IL_OP_DEFB},
    {s_nDeclaration, IL_DCL_CONST_BUFFER, IL_DCL_RESOURCE},
    {s_nDeclaration, IL_DCL_PERSIST, IL_DCL_PERSIST},
    {s_nDeclaration, IL_OP_DCL_SHARED_TEMP, IL_OP_DCL_SHARED_TEMP},
    {s_nDeclaration, IL_OP_DCL_NUM_THREAD_PER_GROUP, IL_OP_DCL_LDS_SHARING_MODE},
    {s_nDeclaration, IL_OP_DCL_UAV, IL_OP_DCL_STRUCT_UAV},
    {s_nDeclaration, IL_OP_DCL_ARENA_UAV, IL_OP_DCL_ARENA_UAV},
    {s_nDeclaration, IL_OP_DCL_RAW_SRV, IL_OP_DCL_STRUCT_SRV},
    {s_nDeclaration, IL_DCL_LDS, IL_DCL_STRUCT_LDS},
    {s_nDeclaration, IL_DCL_NUM_ICP, IL_DCL_NUM_INSTANCES},
    {s_nDeclaration, IL_DCL_TS_DOMAIN, IL_OP_DCL_INTERFACE_PTR},
    {s_nDeclaration, IL_DCL_STREAM, IL_DCL_GLOBAL_FLAGS},
    {s_nDeclaration, IL_DCL_MAX_THREAD_PER_GROUP, IL_DCL_MAX_THREAD_PER_GROUP},
    {s_nDeclaration, IL_DCL_GDS, IL_DCL_STRUCT_GDS},
    {s_nDeclaration, IL_OP_DCL_TYPED_UAV, IL_OP_DCL_TYPELESS_UAV},
    {OPC_DCL_INPUT, IL_DCL_INPUT, IL_DCL_INPUT},
    {OPC_DCL_OUTPUT, IL_DCL_OUTPUT, IL_DCL_OUTPUT},
    {OPC_DCL_LITERAL, IL_DCL_LITERAL, IL_DCL_LITERAL},
    {OPC_DCL_UAV, IL_OP_DCL_UAV, IL_OP_DCL_STRUCT_UAV},
    {OPC_DCL_UAV, IL_OP_DCL_ARENA_UAV, IL_OP_DCL_ARENA_UAV},
    {OPC_NO_INSTRUCTION, IL_OP_COMMENT, IL_OP_COMMENT},
    {OPC_NO_INSTRUCTION, IL_OP_MACRODEF, IL_OP_MACROEND},
    {OPC_FLOW_CONTROL, IL_OP_BREAK, IL_OP_CALLNZ},
    {OPC_FLOW_CONTROL, IL_OP_CONTINUE, IL_OP_CONTINUEC},
    {OPC_FLOW_CONTROL, IL_OP_ELSE, IL_OP_ELSE},
    {OPC_FLOW_CONTROL, IL_OP_ENDIF, IL_OP_ENDLOOP},
    {OPC_FLOW_CONTROL, IL_OP_FUNC, IL_OP_FUNC},
    {OPC_FLOW_CONTROL, IL_OP_IFC, IL_OP_IFNZ},
    {OPC_FLOW_CONTROL, IL_OP_LOOP, IL_OP_LOOP},
    {OPC_FLOW_CONTROL, IL_OP_RET, IL_OP_RET},
    {OPC_FLOW_CONTROL, IL_OP_BREAK_LOGICALZ, IL_OP_RET_LOGICALNZ},
    {OPC_FLOW_CONTROL_BLOCK, IL_OP_ELSE, IL_OP_ELSE},
    {OPC_FLOW_CONTROL_BLOCK, IL_OP_ENDIF, IL_OP_ENDLOOP},
    {OPC_FLOW_CONTROL_BLOCK, IL_OP_IFC, IL_OP_IFNZ},
    {OPC_FLOW_CONTROL_BLOCK, IL_OP_LOOP, IL_OP_LOOP},
    {OPC_FLOW_CONTROL_BLOCK, IL_OP_ENDSWITCH, IL_OP_ENDSWITCH},
    {OPC_FLOW_CONTROL_BLOCK, IL_OP_IF_LOGICALZ, IL_OP_SWITCH},
    {OPC_INSTRUCTION_MODIFIER, IL_OP_MACRODEF, IL_OP_MACRODEF},
    {OPC_INSTRUCTION_MODIFIER, IL_OP_MACROCALL, IL_OP_MACROCALL},
    {OPC_NO_STANDARD_MODIFIERS, IL_DCL_RESOURCE, IL_DCL_RESOURCE},
    {OPC_NO_STANDARD_MODIFIERS, IL_OP_UAV_RAW_LOAD, IL_OP_UAV_RAW_LOAD},
    {OPC_NO_STANDARD_MODIFIERS, IL_OP_UAV_ARENA_LOAD, IL_OP_UAV_ARENA_STORE},
    {OPC_NO_STANDARD_MODIFIERS, IL_OP_SRV_RAW_LOAD, IL_OP_SRV_STRUCT_LOAD},
    {OPC_NO_STANDARD_MODIFIERS, IL_OP_MACRODEF, IL_OP_MACRODEF},
    {OPC_NO_STANDARD_MODIFIERS, IL_OP_DCL_TYPED_UAV, IL_OP_DCL_TYPELESS_UAV},
    {OPC_GLOBAL_STORE, IL_OP_UAV_STORE, IL_OP_UAV_STRUCT_STORE},
    {OPC_GLOBAL_STORE, IL_OP_UAV_ARENA_STORE, IL_OP_UAV_ARENA_STORE},
    {OPC_GLOBAL_STORE, IL_OP_UAV_BYTE_STORE, IL_OP_UAV_SHORT_STORE},
    {OPC_GLOBAL_LOAD, IL_OP_UAV_LOAD, IL_OP_UAV_STRUCT_LOAD},
    {OPC_GLOBAL_LOAD, IL_OP_UAV_ARENA_LOAD, IL_OP_UAV_ARENA_LOAD},
    {OPC_GLOBAL_LOAD, IL_OP_UAV_BYTE_LOAD, IL_OP_UAV_SHORT_LOAD},
    {OPC_GLOBAL_ATOMIC, IL_OP_UAV_ADD, IL_OP_UAV_READ_CMP_XCHG},
    {OPC_SAMPLE, IL_OP_SAMPLE, IL_OP_SAMPLE_C_LZ},
    {OPC_SAMPLE, IL_OP_SAMPLE_C_L, IL_OP_SAMPLE_C_B},
    {OPC_FETCH4, IL_OP_FETCH4, IL_OP_FETCH4},
    {OPC_FETCH4, IL_OP_FETCH4_C, IL_OP_FETCH4_PO_C},
    {OPC_READ_ATOMIC, IL_OP_UAV_READ_ADD, IL_OP_APPEND_BUF_CONSUME},
    {OPC_READ_ATOMIC, IL_OP_LDS_READ_ADD, IL_OP_LDS_READ_CMP_XCHG},
    {OPC_READ_ATOMIC, IL_OP_GDS_READ_ADD, IL_OP_GDS_READ_CMP_XCHG},
    {OPC_READ_ATOMIC, IL_OP_UAV_READ_UINC, IL_OP_UAV_READ_UDEC},
    {OPC_READ_ATOMIC, IL_OP_LDS_READ_INC, IL_OP_LDS_READ_DEC},
    {OPC_READ_ATOMIC, IL_OP_LDS_READ_MSKOR, IL_OP_LDS_READ_MSKOR},
    {OPC_READ_ATOMIC, IL_OP_LDS_READ_ADD_B64, IL_OP_LDS_READ_CMP_XCHG_B64},
    {OPC_READ_ATOMIC, IL_OP_GDS_READ_ADD_B64, IL_OP_GDS_READ_CMP_XCHG_B64},
    {OPC_HULL_PHASE, IL_OP_HS_CP_PHASE, IL_OP_ENDPHASE},
    {OPC_WRITES_GLOBAL, IL_OP_UAV_STORE, IL_OP_UAV_STRUCT_STORE},
    {OPC_WRITES_GLOBAL, IL_OP_UAV_ARENA_STORE, IL_OP_APPEND_BUF_CONSUME},
    {OPC_WRITES_GLOBAL, IL_OP_UAV_UINC, IL_OP_UAV_UDEC},
    {OPC_WRITES_GLOBAL, IL_OP_UAV_READ_UINC, IL_OP_UAV_READ_UDEC},
    {OPC_WRITES_GLOBAL, IL_OP_UAV_BYTE_STORE, IL_OP_UAV_SHORT_STORE},
    {OPC_WRITES_GLOBAL, IL_OP_FLAT_ADDR_STORE, IL_OP_FLAT_ATOMIC},
    {OPC_WRITES_GLOBAL, IL_OP_UAV_STORE_MASK, IL_OP_UAV_STORE_MASK},
    {OPC_WRITES_GLOBAL, IL_OP_UAV_STORE_MIP, IL_OP_UAV_STORE_MIP},
    {OPC_WRITES_GLOBAL, IL_OP_UAV_FMIN, IL_OP_UAV_READ_FCMP_XCHG},
    {OPC_WRITES_LOCAL, IL_OP_LDS_STORE_VEC, IL_OP_LDS_STORE_VEC},
    {OPC_WRITES_LOCAL, IL_OP_LDS_STORE, IL_OP_LDS_READ_CMP_XCHG},
    {OPC_WRITES_LOCAL, IL_OP_LDS_STORE_BYTE, IL_OP_LDS_STORE_SHORT},
    {OPC_WRITES_LOCAL, IL_OP_LDS_INC, IL_OP_LDS_READ_MSKOR},
    {OPC_WRITES_LOCAL, IL_OP_LDS_STORE_B64, IL_OP_LDS_READ_CMP_XCHG_B64},
    {OPC_WRITES_LOCAL, IL_OP_LDS_WRAP_RTN_B32, IL_OP_LDS_CONDXCHG32_RTN_B64},
    {OPC_WRITES_LOCAL, IL_OP_LDS_FMIN, IL_OP_LDS_READ_FCMP_XCHG_B64},
    {OPC_READS, IL_OP_LDS_LOAD_VEC, IL_OP_LDS_LOAD_VEC},
    {OPC_READS, IL_OP_LDS_LOAD, IL_OP_LDS_LOAD},
    {OPC_READS, IL_OP_LDS_LOAD_BYTE, IL_OP_LDS_LOAD_USHORT},
    {OPC_READS, IL_OP_LDS_LOAD_B64, IL_OP_LDS_LOAD_B64},
    {OPC_READS, IL_OP_SRV_RAW_LOAD, IL_OP_SRV_STRUCT_LOAD},
    {OPC_READS, IL_OP_FLAT_ADDR_LOAD, IL_OP_FLAT_ADDR_LOAD},
};

/// The format whose operand counts stand in the instruction modifier word.
constexpr unsigned int s_nFormatFromModifier = 1009;

/// What a format code says of an instruction's operands.
struct SFormat
{
    unsigned int nCode;
    std::uint8_t nDestCount;
    std::uint8_t nSrcCount;
};

constexpr SFormat s_Formats[] = {
    {0, 0, 0},    {1001, 1, 0}, {1002, 1, 1}, {1003, 1, 2}, {1004, 1, 3}, {1005, 1, 4}, {1006, 1, 5}, {1007, 1, 6},
    {1008, 0, 0}, {1009, 0, 0}, {1010, 1, 0}, {1011, 1, 1}, {1012, 1, 2}, {1013, 1, 3}, {1014, 1, 4}, {1015, 0, 0},
    {1016, 0, 0}, {1017, 0, 1}, {1018, 0, 1}, {1019, 0, 2}, {1020, 0, 3}, {1022, 0, 0}, {1023, 0, 0}, {2001, 0, 0},
    {2002, 1, 0}, {2003, 0, 1}, {2004, 0, 0}, {2005, 0, 1}, {2006, 0, 0},
};

struct SKeyword
{
    const char* pszText;
    unsigned int nOpCode;
    unsigned int nFormat;
};

/// The rows that an opcode is looked up in, in lookup order.
constexpr SKeyword s_Keywords[] = {
#define IL_KEYWORD(text, value, format) {text, value, format},
#include "il/ILOpCodes.def"
#define IL_SPECIAL_KEYWORD(text, value, format) {text, value, format},
#include "il/ILOpCodes.def"
};

/// All that is known of one opcode.
struct SOpTraits
{
    const char* pszName = nullptr; ///< null without a row
    bool bHasShape = false;        ///< false: nothing is known of the words behind the opcode token
    std::uint32_t nClasses = 0;
    std::uint16_t nFormat = 0;
    std::uint8_t nDestCount = 0;
    std::uint8_t nSrcCount = 0;
};

using OpTraitsTable = std::array<SOpTraits, IL_OP_LAST>;

constexpr const SFormat& FindFormat(unsigned int nCode)
{
    std::size_t i = 0;
    while (s_Formats[i].nCode != nCode)
    {
        ++i; // a code that is missing runs off the table, which a constant expression may not
    }
    return s_Formats[i];
}

constexpr OpTraitsTable BuildOpTraits()
{
    OpTraitsTable table{};

    for (const SKeyword& keyword : s_Keywords)
    {
        SOpTraits& traits = table[keyword.nOpCode];

        if (traits.pszName == nullptr) // the first row wins
        {
            const SFormat& format = FindFormat(keyword.nFormat);
            traits.pszName = keyword.pszText;
            traits.bHasShape = true;
            traits.nFormat = static_cast<std::uint16_t>(format.nCode);
            traits.nDestCount = format.nDestCount;
            traits.nSrcCount = format.nSrcCount;
        }
    }

    // It has no row, but its shape is its sibling's: a count of words and no operands.
    table[IL_OP_DCL_TOTAL_NUM_THREAD_GROUP].bHasShape = true;

    for (const SClassRange& range : s_ClassRanges)
    {
        for (unsigned int op = range.nFirst; op <= range.nLast; ++op)
        {
            table[op].nClasses |= range.nClasses;
        }
    }

    return table;
}

constexpr OpTraitsTable s_OpTraits = BuildOpTraits();
constexpr SOpTraits s_NoTraits;

const SOpTraits& Traits(ILOpCode op)
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

unsigned int GetFormatCode(ILOpCode op)
{
    return Traits(op).nFormat;
}

bool HasDestReg(IL opToken, IL instructionModifier)
{
    const SOpTraits& traits = Traits(ILFormatDecode::GetOp(opToken));

    if (!traits.bHasShape)
    {
        return SDU_Break("HasDestReg() - unable to find opcode");
    }

    if (traits.nFormat == s_nFormatFromModifier)
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
    const SOpTraits& traits = Traits(op);

    if (!traits.bHasShape)
    {
        SDU_Break("GetSrcRegCount() - unable to find opcode");
        return 0;
    }

    if (traits.nFormat == s_nFormatFromModifier)
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
