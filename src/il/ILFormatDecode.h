#ifndef KESTREL_IL_ILFORMATDECODE_H
#define KESTREL_IL_ILFORMATDECODE_H

/// The words of the binary intermediate language: enumerations, the views of a 32-bit word's bit fields, and the
/// functions that read and set them. Everything is a plain value or a function without state; bit 0 is the least
/// significant bit. How the words make up an instruction is CShaderDebuggerInstructionIL's business.

/// One token of a stream.
using IL = unsigned int;
static_assert(sizeof(IL) == 4, "a token is 32 bits");

/// All opcodes, from the one table. IL_OP_LAST is the count, and no opcode itself.
enum ILOpCode : unsigned int
{
#define IL_OPCODE(name, value, classes, tail) name = value,
#include "il/ILOpCodes.def"
};
#define IL_OPCODE(name, value, classes, tail) +1
constexpr unsigned int g_nILOpCodeRows = 0
#include "il/ILOpCodes.def"
    ;
static_assert(IL_OP_UNKNOWN == 0 && g_nILOpCodeRows == IL_OP_LAST + 1, "the opcode table must have all rows");

/// Opcodes above the range of a token. They are numbers of a text assembler and stand in no stream.
enum ILOpCodeExt : unsigned int
{
    IL_OP_EXT_JMP = IL_OP_LAST,
    IL_OP_EXT_JNZ,
    IL_OP_EXT_M4X4,
    IL_OP_EXT_M4X3,
    IL_OP_EXT_M3X4,
    IL_OP_EXT_M3X3,
    IL_OP_EXT_M3X2,
    IL_OP_EXT_TARGET,
    IL_OP_EXT_RET_DYN_SW,
    IL_OP_EXT_LAST
};

/// The register files that an operand token can name.
enum ILRegType : unsigned int
{
#define IL_REGISTER_TYPE(name, shown, type, written) IL_REGTYPE_##name,
#include "il/ILRegisterTypes.def"
    IL_REGTYPE_LAST
};
static_assert(IL_REGTYPE_TEMP == 4 && IL_REGTYPE_ITEMP == 30 && IL_REGTYPE_THREAD_ID_IN_GROUP == 41 &&
                  IL_REGTYPE_GENERIC_MEM == 47 && IL_REGTYPE_LAST == 63,
              "register type numbers are part of the token format");

/// What a destination modifier says of one component.
enum ILModDstComponent : unsigned int
{
    IL_MODCOMP_NOWRITE,
    IL_MODCOMP_WRITE,
    IL_MODCOMP_0,
    IL_MODCOMP_1,
    IL_MODCOMP_LAST
};

/// What a source modifier selects for one component.
enum ILComponentSelect : unsigned int
{
    IL_COMPSEL_X_R,
    IL_COMPSEL_Y_G,
    IL_COMPSEL_Z_B,
    IL_COMPSEL_W_A,
    IL_COMPSEL_0,
    IL_COMPSEL_1,
    IL_COMPSEL_LAST
};

/// How an operand is addressed, and so which words follow its token.
enum ILAddressing : unsigned int
{
    IL_ADDR_ABSOLUTE,
    IL_ADDR_RELATIVE,
    IL_ADDR_REG_RELATIVE,
    IL_ADDR_LAST
};

enum IL_Shader_Type : unsigned int
{
    IL_SHADER_VERTEX,
    IL_SHADER_PIXEL,
    IL_SHADER_GEOMETRY,
    IL_SHADER_COMPUTE,
    IL_SHADER_HULL,
    IL_SHADER_DOMAIN,
    IL_SHADER_LAST
};

enum IL_UAV_ACCESS_TYPE : unsigned int
{
    IL_UAV_ACCESS_TYPE_RW,
    IL_UAV_ACCESS_TYPE_RO,
    IL_UAV_ACCESS_TYPE_WO,
    IL_UAV_ACCESS_TYPE_PRIVATE,
    IL_UAV_ACCESS_TYPE_LAST
};

enum IL_UAV_CACHE_TYPE : unsigned int
{
    IL_UAV_SC_DECIDE,
    IL_UAV_FORCE_CACHED,
    IL_UAV_FORCE_UNCACHED,
    IL_UAV_CACHE_LAST
};

// Every view starts with `val`, so that `IL_Dst dst = {}` is the zero word and `IL_Dst{word}` a view of a word's copy.

/// The language token.
union IL_Lang
{
    IL val;
    struct
    {
        unsigned int client_type : 8;
        unsigned int reserved : 24;
    } bits;
};

/// The version token.
union IL_Version
{
    IL val;
    struct
    {
        unsigned int minor_version : 8;
        unsigned int major_version : 8;
        unsigned int shader_type : 8;
        unsigned int multipass : 1;
        unsigned int realtime : 1;
        unsigned int reserved : 6;
    } bits;
};

/// The first word of every instruction.
union IL_OpCode
{
    IL val;
    struct
    {
        unsigned int code : 16;
        unsigned int controls : 14;
        unsigned int sec_modifier_present : 1;
        unsigned int pri_modifier_present : 1;
    } bits;
};

/// The opcode word of `dcl_resource`.
union IL_DCLResourceOpCode
{
    IL val;
    struct
    {
        unsigned int code : 16;
        unsigned int controls_id : 8;
        unsigned int controls_type : 4;
        unsigned int reserved : 3;
        unsigned int controls_unnormalize : 1;
    } bits;
};

/// The opcode word of `dcl_typed_uav` and `dcl_typeless_uav`.
union IL_DclTypedUavOpCode
{
    IL val;
    struct
    {
        unsigned int code : 16;
        unsigned int id : 10;
        unsigned int access : 2;
        unsigned int reserved : 4;
    } bits;
};

/// The opcode word of the UAV memory operations.
union IL_UavOpCode
{
    IL val;
    struct
    {
        unsigned int code : 16;
        unsigned int id : 10;
        unsigned int cache_control : 2;
        unsigned int indexed_args : 1;
        unsigned int addr_mode : 1;
        unsigned int aligned : 1;
        unsigned int pri_mod_present_arena_atomic : 1;
    } bits;
};

/// The opcode word of `sample`.
union IL_SAMPLE_COpCode
{
    IL val;
    struct
    {
        unsigned int code : 16;
        unsigned int controls_resource : 8;
        unsigned int controls_sampler : 4;
        unsigned int indexed_args : 1;
        unsigned int addroff_present : 1;
        unsigned int sec_modifier_present : 1;
        unsigned int pri_modifier_present : 1;
    } bits;
};

/// The fields of an operand token, destination and source alike.
struct IL_OperandBits
{
    unsigned int register_num : 16;
    unsigned int register_type : 6;
    unsigned int modifier_present : 1;
    unsigned int relative_address : 2;
    unsigned int dimension : 1;
    unsigned int immediate_present : 1;
    unsigned int internal_temp : 1;
    unsigned int reserved : 3;
    unsigned int extended : 1;
};

union IL_Dst
{
    IL val;
    IL_OperandBits bits;
};

union IL_Src
{
    IL val;
    IL_OperandBits bits;
};

/// The modifier word of a destination.
union IL_Dst_Mod
{
    IL val;
    struct
    {
        unsigned int component_x_r : 2;
        unsigned int component_y_g : 2;
        unsigned int component_z_b : 2;
        unsigned int component_w_a : 2;
        unsigned int clamp : 1;
        unsigned int shift_scale : 4;
        unsigned int round : 3;
        unsigned int denorm : 3;
        unsigned int size : 3;
        unsigned int reserved : 10;
    } bits;
};

/// The modifier word of a source.
union IL_Src_Mod
{
    IL val;
    struct
    {
        unsigned int swizzle_x_r : 3;
        unsigned int negate_x_r : 1;
        unsigned int swizzle_y_g : 3;
        unsigned int negate_y_g : 1;
        unsigned int swizzle_z_b : 3;
        unsigned int negate_z_b : 1;
        unsigned int swizzle_w_a : 3;
        unsigned int negate_w_a : 1;
        unsigned int invert : 1;
        unsigned int bias : 1;
        unsigned int x2 : 1;
        unsigned int sign : 1;
        unsigned int abs : 1;
        unsigned int divComp : 3;
        unsigned int clamp : 1;
        unsigned int size : 3;
        unsigned int reserved : 4;
    } bits;
};

/// The word after an operand with IL_ADDR_RELATIVE.
union IL_Rel_Addr
{
    IL val;
    struct
    {
        unsigned int address_register : 16;
        unsigned int loop_relative : 1;
        unsigned int component : 3;
        unsigned int reserved : 12;
    } bits;
};

/// The word after a `comment` opcode token. Readers take all 32 bits as the count of text words.
union IL_Comment_Descriptor
{
    IL val;
    struct
    {
        unsigned int length : 16;
        unsigned int reserved : 16;
    } bits;
};

static_assert(sizeof(IL_Lang) == 4 && sizeof(IL_Version) == 4 && sizeof(IL_OpCode) == 4, "a view is one word");
static_assert(sizeof(IL_DCLResourceOpCode) == 4 && sizeof(IL_DclTypedUavOpCode) == 4, "a view is one word");
static_assert(sizeof(IL_UavOpCode) == 4 && sizeof(IL_SAMPLE_COpCode) == 4, "a view is one word");
static_assert(sizeof(IL_Dst) == 4 && sizeof(IL_Src) == 4, "a view is one word");
static_assert(sizeof(IL_Dst_Mod) == 4 && sizeof(IL_Src_Mod) == 4, "a view is one word");
static_assert(sizeof(IL_Rel_Addr) == 4 && sizeof(IL_Comment_Descriptor) == 4, "a view is one word");

/// Views of tokens and access to their fields. Nothing here has state, logs or fails; a pointer that goes in must
/// point to a token. The As... functions give the same word seen as another type, at the same address.
namespace ILFormatDecode
{

/// Whether a number is an opcode of this format.
constexpr bool Validate(unsigned int op)
{
    return op < IL_OP_LAST;
}

/// The opcode of an opcode token, IL_OP_UNKNOWN for a number out of range.
inline ILOpCode GetOp(IL token)
{
    const unsigned int code = token & 0xFFFFu;
    return Validate(code) ? static_cast<ILOpCode>(code) : IL_OP_UNKNOWN;
}
inline ILOpCode GetOp(const IL* pToken)
{
    return GetOp(*pToken);
}

inline const IL_OpCode* AsOpCode(const IL* pToken)
{
    return reinterpret_cast<const IL_OpCode*>(pToken);
}
inline IL_OpCode* AsOpCode(IL* pToken)
{
    return reinterpret_cast<IL_OpCode*>(pToken);
}
inline const IL_Dst* AsDest(const IL* pToken)
{
    return reinterpret_cast<const IL_Dst*>(pToken);
}
inline IL_Dst* AsDest(IL* pToken)
{
    return reinterpret_cast<IL_Dst*>(pToken);
}
inline const IL_Dst_Mod* AsDestMod(const IL* pToken)
{
    return reinterpret_cast<const IL_Dst_Mod*>(pToken);
}
inline IL_Dst_Mod* AsDestMod(IL* pToken)
{
    return reinterpret_cast<IL_Dst_Mod*>(pToken);
}
inline const IL_Src* AsSource(const IL* pToken)
{
    return reinterpret_cast<const IL_Src*>(pToken);
}
inline IL_Src* AsSource(IL* pToken)
{
    return reinterpret_cast<IL_Src*>(pToken);
}
inline const IL_Src_Mod* AsSourceMod(const IL* pToken)
{
    return reinterpret_cast<const IL_Src_Mod*>(pToken);
}
inline IL_Src_Mod* AsSourceMod(IL* pToken)
{
    return reinterpret_cast<IL_Src_Mod*>(pToken);
}
inline const IL_Lang* AsLanguage(const IL* pToken)
{
    return reinterpret_cast<const IL_Lang*>(pToken);
}
inline IL_Lang* AsLanguage(IL* pToken)
{
    return reinterpret_cast<IL_Lang*>(pToken);
}
inline const IL_Version* AsVersion(const IL* pToken)
{
    return reinterpret_cast<const IL_Version*>(pToken);
}
inline IL_Version* AsVersion(IL* pToken)
{
    return reinterpret_cast<IL_Version*>(pToken);
}

namespace Detail
{

/// A temp keeps the sign of its number in `internal_temp`; all other numbers are unsigned.
inline int OperandNumber(const IL_OperandBits& bits)
{
    const unsigned int nNumber = bits.register_num;
    const bool bNegative = bits.register_type == IL_REGTYPE_TEMP && bits.internal_temp != 0;
    return static_cast<int>(bNegative ? nNumber | 0xFFFF0000u : nNumber);
}

inline void SetOperandNumber(IL_OperandBits& bits, int nNumber)
{
    bits.register_num = static_cast<unsigned int>(nNumber) & 0xFFFFu;

    if (bits.register_type == IL_REGTYPE_TEMP)
    {
        bits.internal_temp = nNumber < 0 ? 1 : 0;
    }
}

} // namespace Detail

inline ILRegType RegisterType(const IL_Dst* pDst)
{
    return static_cast<ILRegType>(pDst->bits.register_type);
}
inline ILRegType RegisterType(const IL_Src* pSrc)
{
    return static_cast<ILRegType>(pSrc->bits.register_type);
}
inline void SetRegisterType(IL_Dst* pDst, ILRegType type)
{
    pDst->bits.register_type = type & 0x3Fu;
}
inline void SetRegisterType(IL_Src* pSrc, ILRegType type)
{
    pSrc->bits.register_type = type & 0x3Fu;
}

/// The register number: negative for a temp whose `internal_temp` is set, and -1 for an output whose number is only
/// known at run time.
inline int RegisterNumber(const IL_Dst* pDst)
{
    if (pDst->bits.register_type == IL_REGTYPE_OUTPUT && pDst->bits.relative_address == IL_ADDR_REG_RELATIVE)
    {
        return -1;
    }

    return Detail::OperandNumber(pDst->bits);
}
/// The register number: negative for a temp whose `internal_temp` is set.
inline int RegisterNumber(const IL_Src* pSrc)
{
    return Detail::OperandNumber(pSrc->bits);
}

/// Sets the low 16 bits of the number. Set the type first: a temp also keeps the sign.
inline void SetRegisterNumber(IL_Dst* pDst, int nNumber)
{
    Detail::SetOperandNumber(pDst->bits, nNumber);
}
inline void SetRegisterNumber(IL_Src* pSrc, int nNumber)
{
    Detail::SetOperandNumber(pSrc->bits, nNumber);
}

/// The UAV number of the opcode word of `dcl_typed_uav` or `dcl_typeless_uav`.
inline unsigned int GetTypedUavId(IL token)
{
    return IL_DclTypedUavOpCode{token}.bits.id;
}
inline unsigned int GetTypedUavId(const IL* pToken)
{
    return GetTypedUavId(*pToken);
}

/// The access of the opcode word of `dcl_typed_uav` or `dcl_typeless_uav`.
inline IL_UAV_ACCESS_TYPE GetUavAccessType(IL token)
{
    return static_cast<IL_UAV_ACCESS_TYPE>(IL_DclTypedUavOpCode{token}.bits.access);
}
inline IL_UAV_ACCESS_TYPE GetUavAccessType(const IL* pToken)
{
    return GetUavAccessType(*pToken);
}

} // namespace ILFormatDecode

#endif // KESTREL_IL_ILFORMATDECODE_H
