#include "il/ShaderDebuggerUtilsIL.h"

#include <gtest/gtest.h>

#include <set>

using namespace OVK_ShaderDebugger;
using namespace ShaderDebuggerUtilsIL;

namespace
{

/// The whole word of each swizzle, selectors 0 to 5 in the nibbles from x at the right to w at the left.
struct SSwizzleCase
{
    RegisterMask mask;
    IL words[4]; // EXTD_Repeat, EXTD_RepeatLast, EXTD_ZeroFill, EXTD_OneFill
};

const SSwizzleCase s_SwizzleCases[] = {
    {COMP_x, {0x0000, 0x0000, 0x4440, 0x5550}},
    {COMP_y, {0x1111, 0x1111, 0x4441, 0x5551}},
    {COMP_z, {0x2222, 0x2222, 0x4442, 0x5552}},
    {COMP_w, {0x3333, 0x3333, 0x4443, 0x5553}},
    {COMP_xy, {0x1010, 0x1110, 0x4410, 0x5510}},
    {COMP_zw, {0x3232, 0x3332, 0x4432, 0x5532}},
    {COMP_xyz, {0x0210, 0x2210, 0x4210, 0x5210}},
    {COMP_All, {0x3210, 0x3210, 0x3210, 0x3210}},
    {COMP_x | COMP_z, {0, 0, 0, 0}},
    {COMP_None, {0, 0, 0, 0}},
};

TEST(ShaderDebuggerUtilsIL, BuildsSwizzles)
{
    for (const SSwizzleCase& test : s_SwizzleCases)
    {
        for (unsigned int n = 0; n < 4; ++n)
        {
            EXPECT_EQ(test.words[n], GetILSrcMod(test.mask, static_cast<ComponentExtend>(n)).val)
                << test.mask << " extended by " << n;
        }
    }
}

struct SMaskCase
{
    IL word;
    RegisterMask mask;
};

TEST(ShaderDebuggerUtilsIL, ASourceReadsItsLowestComponent)
{
    const SMaskCase table[] =
        {
            {0x3210, COMP_x},      {0x0333, COMP_x},      {0x4441, COMP_y},
            {0x3232, COMP_z},      {0x4442, COMP_z},      {0x5535, COMP_w},
            {0x4545, COMP_None},   {0x0008, COMP_None},   {0x8000, COMP_None}, // constants, negates
            {0x010000, COMP_None}, {0x020000, COMP_None}, {0x040000, COMP_None},
            {0x080000, COMP_None},                                                 // invert to sign
            {0x100000, COMP_None}, {0x800000, COMP_None}, {0x01000000, COMP_None}, // abs, divComp, clamp
            {0xFE003210, COMP_x}, // size and reserved bits don't matter
        };

    for (const SMaskCase& test : table)
    {
        EXPECT_EQ(test.mask, GetMask(IL_Src_Mod{test.word})) << std::hex << test.word;
    }
}

TEST(ShaderDebuggerUtilsIL, DestinationMasksCountOnlyWrites)
{
    EXPECT_EQ(0x55u, GetILDstMod(COMP_All).val);
    EXPECT_EQ(0x44u, GetILDstMod(COMP_y | COMP_w).val);

    for (unsigned int mask = 0; mask <= COMP_All; ++mask)
    {
        EXPECT_EQ(mask, GetMask(GetILDstMod(static_cast<RegisterMask>(mask))));
    }

    EXPECT_EQ(COMP_x, GetMask(IL_Dst_Mod{0xE1})); // x written, z constant 0, w constant 1
}

TEST(ShaderDebuggerUtilsIL, BuildsDestinationTokens)
{
    EXPECT_EQ(0x00440010u, DestRegister(IL_REGTYPE_TEMP, 16, true).val);
    EXPECT_EQ(0x0804FFFFu, DestRegister(IL_REGTYPE_TEMP, -1, false).val);
    EXPECT_EQ(0x002F0000u, DestRegister(IL_REGTYPE_GENERIC_MEM, 0, false).val);
}

TEST(ShaderDebuggerUtilsIL, TypesTranslateBothWaysWhereTheyHaveACounterpart)
{
    std::set<RegisterType> translated;

    for (unsigned int n = 0; n < IL_REGTYPE_LAST; ++n)
    {
        const ILRegType ilType = static_cast<ILRegType>(n);
        const RegisterType type = ILtoSDRegisterType(ilType);

        if (ilType == IL_REGTYPE_VPRIM)
        {
            EXPECT_EQ(RT_Unknown, type);
            EXPECT_STREQ("!!!invalidRegType!!!", GetILRegisterType(ilType));
            continue;
        }

        EXPECT_EQ(ilType, SDtoILRegisterType(type)) << n;
        EXPECT_TRUE(translated.insert(type).second) << n;
    }

    // The debugger has 76 types; the 14 that no token can name stay untranslated.
    EXPECT_EQ(62u, translated.size());

    for (const RegisterType type :
         {RT_Unknown, RT_Immediate, RT_Sampler, RT_Resource, RT_Constant, RT_ConstantInt, RT_ConstantBool, RT_Null,
          RT_OutputStructured, RT_OutputRaw, RT_PrivateUAVAccess, RT_OUTPUT, RT_INPUT, RT_OMASK})
    {
        EXPECT_EQ(IL_REGTYPE_LAST, SDtoILRegisterType(type)) << type;
    }

    EXPECT_EQ(RT_Unknown, ILtoSDRegisterType(IL_REGTYPE_LAST));
    EXPECT_EQ(IL_REGTYPE_LAST, SDtoILRegisterType(static_cast<RegisterType>(RT_MAX + 1)));
    EXPECT_STREQ("!!!invalidRegType!!!", GetILRegisterType(IL_REGTYPE_LAST));
    EXPECT_EQ(IL_REGTYPE_LAST, ParseILRegisterType("!!!invalidRegType!!!"));
}

TEST(ShaderDebuggerUtilsIL, WritesRegisterNames)
{
    EXPECT_EQ("r5", GetILRegisterName(Register(RT_Temp, 5, COMP_x), true));
    EXPECT_EQ("cb1[3]", GetILRegisterName(Register(RT_CONST_BUFF, 1, COMP_x, 3), true));
    EXPECT_EQ("cb1", GetILRegisterName(Register(RT_CONST_BUFF, 1, COMP_x, 3), false));
    EXPECT_EQ("PrivateUAVAccess2[16]", GetILRegisterName(Register(RT_PrivateUAVAccess, 2, COMP_x, 16), true));
    EXPECT_EQ("vTidInGrp0", GetILRegisterName(Register(RT_ThreadIDinGroup, 0, COMP_x, 7), true));
}

struct SNameCase
{
    const char* pszName;
    RegisterID id;
};

TEST(ShaderDebuggerUtilsIL, ParsesRegisterNames)
{
    const SNameCase table[] = {
        {"r7", RegisterID(RT_Temp, 7, 0, nullptr)},
        {"v3", RegisterID(RT_VERTEX, 3, 0, nullptr)},
        {"o1", RegisterID(RT_VOUTPUT, 1, 0, nullptr)},
        {"vTidInGrp0", RegisterID(RT_ThreadIDinGroup, 0, 0, nullptr)},
        {"cb0[12]", RegisterID(RT_CONST_BUFF, 0, 12, nullptr)},
        {"x2[0]", RegisterID(RT_IndexableTemp, 2, 0, nullptr)},
        {"r4294967295", RegisterID(RT_Temp, 4294967295u, 0, nullptr)},
        {"r4294967296", g_RegID_NULL},
        {"r99999999999999999999999", g_RegID_NULL},
        {"cb0", g_RegID_NULL},
        {"cb0[12", g_RegID_NULL},
        {"cb0]12[", g_RegID_NULL},
        {"cb0[1]2", g_RegID_NULL},
        {"cb0[]", g_RegID_NULL},
        {"cb[1]", g_RegID_NULL},
        {"r7[1]", g_RegID_NULL},
        {"r7.x", g_RegID_NULL},
        {"r7x", g_RegID_NULL},
        {"cb0x[1]", g_RegID_NULL},
        {"cb0[1x]", g_RegID_NULL},
        {"r-1", g_RegID_NULL},
        {"r", g_RegID_NULL},
        {"7", g_RegID_NULL},
        {"", g_RegID_NULL},
        {"zz7", g_RegID_NULL},
        {"PrivateUAVAccess2[16]", g_RegID_NULL},
    };

    for (const SNameCase& test : table)
    {
        EXPECT_EQ(test.id, ParseILRegisterName(test.pszName)) << test.pszName;
    }
}

} // namespace
