#ifndef KESTREL_PLATFORM_SIMT_OPCODES_H
#define KESTREL_PLATFORM_SIMT_OPCODES_H

#include <cstdint>

namespace KestrelPlatform
{

/// Every opcode by its name, as the token's low 16 bits hold it.
enum EOpCode : uint32_t
{
#define IL_OPCODE(name, value) name = value,
#include "il/ILOpCodes.def"
};

/// Opcodes that stand in a run, the last one included.
struct SOpCodeRange
{
    uint32_t nFirst;
    uint32_t nLast;

    bool Has(uint32_t nOpCode) const { return nOpCode >= nFirst && nOpCode <= nLast; }
};

/// The register types that a compute kernel can name, as the token holds them.
enum ERegisterType : uint32_t
{
    REG_ADDR = 3,
    REG_TEMP = 4,
    REG_ITEMP = 30,
    REG_CONST_BUFF = 31,
    REG_LITERAL = 32,
    REG_INPUT = 33,
    REG_OUTPUT = 34,
    REG_IMMED_CONST_BUFF = 35,
    REG_PERSIST = 37,
    REG_GLOBAL = 38,
    REG_SHARED_TEMP = 40,
    REG_THREAD_ID_IN_GROUP = 41,
    REG_THREAD_ID_IN_GROUP_FLAT = 42,
    REG_ABSOLUTE_THREAD_ID = 43,
    REG_ABSOLUTE_THREAD_ID_FLAT = 44,
    REG_THREAD_GROUP_ID = 45,
    REG_THREAD_GROUP_ID_FLAT = 46,
    REG_GENERIC_MEM = 47,
    REG_INPUT_ARG = 61,
    REG_OUTPUT_ARG = 62
};

/// What the tables say of an opcode.
struct SOpCodeShape
{
    const char* pszName = nullptr; ///< text name; null for an opcode in neither table
    uint32_t nFormat = 0;
    bool bDestination = false;
    uint32_t nSources = 0;
    bool bInstruction = false;         ///< counts as an instruction: no declaration, comment or macro marker
    bool bStandardModifiers = false;   ///< bits 30 and 31 announce modifier words
    bool bInstructionModifier = false; ///< the word behind the opcode says operand counts
    uint32_t nTrailingWords = 0;       ///< fixed count; those that controls or a count word tell aren't in it
};

/// The shape of the opcode in a token's low 16 bits. Any value may be given.
const SOpCodeShape& GetOpCodeShape(uint32_t nOpCode);

} // namespace KestrelPlatform

#endif
