#include "il/ShaderDebuggerUtilsIL.h"

#include "core/SDULogger.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>

using namespace OVK_ShaderDebugger;

namespace ShaderDebuggerUtilsIL
{

namespace
{

struct SRegisterFile
{
    ILRegType ilType;
    const char* pszText; ///< null for a file whose registers have no names
    RegisterType type;
};

/// All register files of the tokens, in the order of their numbers. Read in both directions; where two rows share a
/// text, the first is the one that the text means.
constexpr SRegisterFile s_RegisterFiles[] = {
#define IL_REGISTER_TYPE(name, shown, type, written) {IL_REGTYPE_##name, shown, type},
#include "il/ILRegisterTypes.def"
};

constexpr std::size_t s_nRegisterFiles = sizeof(s_RegisterFiles) / sizeof(s_RegisterFiles[0]);

constexpr std::array<ILRegType, RT_MAX + 1> InvertRegisterFiles()
{
    std::array<ILRegType, RT_MAX + 1> inverse{};

    for (ILRegType& ilType : inverse)
    {
        ilType = IL_REGTYPE_LAST;
    }

    for (const SRegisterFile& file : s_RegisterFiles)
    {
        if (file.type != RT_Unknown)
        {
            inverse[file.type] = file.ilType;
        }
    }

    return inverse;
}

constexpr std::array<ILRegType, RT_MAX + 1> s_ILTypeOf = InvertRegisterFiles();

constexpr const char* s_pszInvalidType = "!!!invalidRegType!!!";
constexpr const char* s_pszPrivateUAVAccess = "PrivateUAVAccess";

/// A source modifier word's selectors.
struct SSwizzle
{
    RegisterMask mask;
    std::uint8_t select[4][4]; ///< by ComponentExtend, then component
};

constexpr std::uint8_t X = IL_COMPSEL_X_R;
constexpr std::uint8_t Y = IL_COMPSEL_Y_G;
constexpr std::uint8_t Z = IL_COMPSEL_Z_B;
constexpr std::uint8_t W = IL_COMPSEL_W_A;
constexpr std::uint8_t O = IL_COMPSEL_0;
constexpr std::uint8_t I = IL_COMPSEL_1;

constexpr SSwizzle s_Swizzles[] = {
    {COMP_x, {{X, X, X, X}, {X, X, X, X}, {X, O, O, O}, {X, I, I, I}}},
    {COMP_y, {{Y, Y, Y, Y}, {Y, Y, Y, Y}, {Y, O, O, O}, {Y, I, I, I}}},
    {COMP_z, {{Z, Z, Z, Z}, {Z, Z, Z, Z}, {Z, O, O, O}, {Z, I, I, I}}},
    {COMP_w, {{W, W, W, W}, {W, W, W, W}, {W, O, O, O}, {W, I, I, I}}},
    {COMP_xy, {{X, Y, X, Y}, {X, Y, Y, Y}, {X, Y, O, O}, {X, Y, I, I}}},
    {COMP_zw, {{Z, W, Z, W}, {Z, W, W, W}, {Z, W, O, O}, {Z, W, I, I}}},
    {COMP_xyz, {{X, Y, Z, X}, {X, Y, Z, Z}, {X, Y, Z, O}, {X, Y, Z, I}}},
    {COMP_All, {{X, Y, Z, W}, {X, Y, Z, W}, {X, Y, Z, W}, {X, Y, Z, W}}},
};

const SSwizzle* FindSwizzle(RegisterMask mask)
{
    for (const SSwizzle& swizzle : s_Swizzles)
    {
        if (swizzle.mask == mask)
        {
            return &swizzle;
        }
    }

    return nullptr;
}

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

/// \return false unless the text is a decimal number of 32 bits and nothing else
bool ParseNumber(const std::string& strNumber, unsigned int& nNumber)
{
    std::uint64_t nValue = 0;

    for (const char c : strNumber)
    {
        if (!IsDigit(c))
        {
            return false;
        }

        nValue = nValue * 10 + static_cast<unsigned int>(c - '0');

        if (nValue > std::numeric_limits<unsigned int>::max())
        {
            return false;
        }
    }

    nNumber = static_cast<unsigned int>(nValue);
    return !strNumber.empty();
}

struct SRegisterNumbers
{
    unsigned int nNumber = 0;
    unsigned int nIndex = 0;
};

/// A number alone, as in r7.
bool ParsePlainNumber(const std::string& strRest, SRegisterNumbers& numbers)
{
    const std::size_t pos = strRest.find('[');
    return SDU_Assert(!(pos != std::string::npos)) && SDU_Assert(ParseNumber(strRest, numbers.nNumber));
}

/// A number and an index, as in cb1[3].
bool ParseIndexedNumber(const std::string& strRest, SRegisterNumbers& numbers)
{
    const std::size_t pos = strRest.find('[');

    if (!SDU_Assert(!(pos == std::string::npos)))
    {
        return false;
    }

    const std::size_t pos2 = strRest.find(']', pos);
    return SDU_Assert(!(pos2 == std::string::npos)) && SDU_Assert(pos2 + 1 == strRest.size()) &&
           SDU_Assert(ParseNumber(strRest.substr(0, pos), numbers.nNumber)) &&
           SDU_Assert(ParseNumber(strRest.substr(pos + 1, pos2 - pos - 1), numbers.nIndex));
}

} // namespace

IL_Dst DestRegister(ILRegType type, int nNumber, bool bModifier)
{
    IL_Dst dst = {};
    ILFormatDecode::SetRegisterType(&dst, type);
    ILFormatDecode::SetRegisterNumber(&dst, nNumber);
    dst.bits.modifier_present = bModifier ? 1 : 0;
    return dst;
}

IL_Dst_Mod GetILDstMod(RegisterMask mask)
{
    IL_Dst_Mod mod = {};
    mod.bits.component_x_r = (mask & COMP_x) != 0 ? IL_MODCOMP_WRITE : IL_MODCOMP_NOWRITE;
    mod.bits.component_y_g = (mask & COMP_y) != 0 ? IL_MODCOMP_WRITE : IL_MODCOMP_NOWRITE;
    mod.bits.component_z_b = (mask & COMP_z) != 0 ? IL_MODCOMP_WRITE : IL_MODCOMP_NOWRITE;
    mod.bits.component_w_a = (mask & COMP_w) != 0 ? IL_MODCOMP_WRITE : IL_MODCOMP_NOWRITE;
    return mod;
}

RegisterMask GetMask(IL_Dst_Mod mod)
{
    RegisterMask mask = COMP_None;
    mask |= mod.bits.component_x_r == IL_MODCOMP_WRITE ? COMP_x : COMP_None;
    mask |= mod.bits.component_y_g == IL_MODCOMP_WRITE ? COMP_y : COMP_None;
    mask |= mod.bits.component_z_b == IL_MODCOMP_WRITE ? COMP_z : COMP_None;
    mask |= mod.bits.component_w_a == IL_MODCOMP_WRITE ? COMP_w : COMP_None;
    return mask;
}

IL_Src_Mod GetILSrcMod(RegisterMask mask, ComponentExtend extend)
{
    IL_Src_Mod mod = {};
    const SSwizzle* pSwizzle = FindSwizzle(mask);

    if (!SDU_AssertText(pSwizzle != nullptr, "nNumCompsSet == 1 || mask == COMP_All || mask == COMP_xyz || "
                                             "mask == COMP_xy || mask == COMP_zw"))
    {
        return mod;
    }

    const std::uint8_t(&select)[4] = pSwizzle->select[extend & 3];
    mod.bits.swizzle_x_r = select[0];
    mod.bits.swizzle_y_g = select[1];
    mod.bits.swizzle_z_b = select[2];
    mod.bits.swizzle_w_a = select[3];
    return mod;
}

RegisterMask GetMask(IL_Src_Mod mod)
{
    IL_Src_Mod changesValue = {};
    changesValue.bits.negate_x_r = changesValue.bits.negate_y_g = 1;
    changesValue.bits.negate_z_b = changesValue.bits.negate_w_a = 1;
    changesValue.bits.invert = changesValue.bits.bias = changesValue.bits.x2 = 1;
    changesValue.bits.sign = changesValue.bits.abs = changesValue.bits.clamp = 1;
    changesValue.bits.divComp = 7;

    if ((mod.val & changesValue.val) != 0)
    {
        return COMP_None;
    }

    const unsigned int nSelected = 1u << mod.bits.swizzle_x_r | 1u << mod.bits.swizzle_y_g |
                                   1u << mod.bits.swizzle_z_b | 1u << mod.bits.swizzle_w_a;
    static_assert(1u << IL_COMPSEL_X_R == COMP_x && 1u << IL_COMPSEL_W_A == COMP_w, "selectors name components");
    const unsigned int nComponents = nSelected & COMP_All;
    return static_cast<RegisterMask>(nComponents & (~nComponents + 1)); // the lowest bit
}

RegisterType ILtoSDRegisterType(ILRegType type)
{
    const RegisterType rtRegType = type < IL_REGTYPE_LAST ? s_RegisterFiles[type].type : RT_Unknown;
    SDU_Assert(!(rtRegType == RT_Unknown));
    return rtRegType;
}

ILRegType SDtoILRegisterType(RegisterType type)
{
    const ILRegType regType = static_cast<unsigned int>(type) <= RT_MAX ? s_ILTypeOf[type] : IL_REGTYPE_LAST;
    SDU_Assert(!(regType == IL_REGTYPE_LAST));
    return regType;
}

const char* GetILRegisterType(ILRegType type)
{
    const char* pszText = type < IL_REGTYPE_LAST ? s_RegisterFiles[type].pszText : nullptr;

    if (!SDU_AssertText(pszText != nullptr, "!(strRegType == \"!!!invalidRegType!!!\")"))
    {
        return s_pszInvalidType;
    }

    return pszText;
}

ILRegType ParseILRegisterType(const std::string& strType)
{
    for (const SRegisterFile& file : s_RegisterFiles)
    {
        if (file.pszText != nullptr && strType == file.pszText)
        {
            return file.ilType;
        }
    }

    SDU_AssertText(false, "!(fauxString == \"Invalid register type\")");
    return IL_REGTYPE_LAST;
}

bool IsILRegTypeIndexed(ILRegType type)
{
    return type == IL_REGTYPE_ITEMP || type == IL_REGTYPE_CONST_BUFF;
}

std::string GetILRegisterName(const Register& reg, bool bIncludeIndex)
{
    const RegisterID& id = reg.reg;
    std::string strName =
        id.type == RT_PrivateUAVAccess ? s_pszPrivateUAVAccess : GetILRegisterType(SDtoILRegisterType(id.type));
    strName += std::to_string(id.number);

    if (bIncludeIndex && IsRegTypeIndexed(id.type))
    {
        strName += '[' + std::to_string(id.index) + ']';
    }

    return strName;
}

RegisterID ParseILRegisterName(const std::string& strName)
{
    const std::size_t nPrefix = std::min(strName.find_first_of("0123456789"), strName.size());
    const ILRegType type = ParseILRegisterType(strName.substr(0, nPrefix));
    const std::string strRest = strName.substr(nPrefix);
    SRegisterNumbers numbers;

    if (type == IL_REGTYPE_LAST ||
        !(IsILRegTypeIndexed(type) ? ParseIndexedNumber(strRest, numbers) : ParsePlainNumber(strRest, numbers)))
    {
        return g_RegID_NULL;
    }

    return RegisterID(ILtoSDRegisterType(type), numbers.nNumber, numbers.nIndex, nullptr);
}

} // namespace ShaderDebuggerUtilsIL
