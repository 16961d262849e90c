#include "il/ILFormatDecode.h"

#include <gtest/gtest.h>

using namespace ILFormatDecode;

namespace
{

struct SNumberCase
{
    const char* pszWhat;
    IL token;
    int nAsDest;
    int nAsSource;
};

const SNumberCase s_NumberCases[] = {
    {"temp 16", 0x00440010, 16, 16},
    {"internal temp", 0x0804FFFF, -1, -1},
    {"internal temp of another number", 0x08048000, -32768, -32768},
    {"temp without the sign bit", 0x0004FFFF, 65535, 65535},
    {"literal with the temp's sign bit", 0x0820FFFF, 65535, 65535},
    {"output", 0x00220003, 3, 3},
    {"output with a dynamic index", 0x01220003, -1, 3},
    {"output with a loop relative index", 0x00A20003, 3, 3},
};

TEST(ILFormatDecode, ReadsRegisterNumbers)
{
    for (const SNumberCase& test : s_NumberCases)
    {
        const IL_Dst dst{test.token};
        const IL_Src src{test.token};
        EXPECT_EQ(test.nAsDest, RegisterNumber(&dst)) << test.pszWhat;
        EXPECT_EQ(test.nAsSource, RegisterNumber(&src)) << test.pszWhat;
    }
}

TEST(ILFormatDecode, WritesRegisterNumbersWithTheSignOfTempsOnly)
{
    IL_Dst dst = {};
    SetRegisterType(&dst, IL_REGTYPE_TEMP);
    SetRegisterNumber(&dst, -2);
    EXPECT_EQ(0x0804FFFEu, dst.val);
    EXPECT_EQ(-2, RegisterNumber(&dst));
    SetRegisterNumber(&dst, 7);
    EXPECT_EQ(0x00040007u, dst.val);

    IL_Src src{0x07C00000}; // modifier, loop relative and register relative, dimension, immediate: all stay
    SetRegisterType(&src, IL_REGTYPE_CONST_BUFF);
    SetRegisterNumber(&src, -1);
    EXPECT_EQ(0x07DFFFFFu, src.val);
}

TEST(ILFormatDecode, ReadsOpcodesBelowTheLimitOnly)
{
    EXPECT_TRUE(Validate(736));
    EXPECT_FALSE(Validate(737));
    EXPECT_EQ(IL_OP_SLEEP, GetOp(0xFFFF02E0u));
    EXPECT_EQ(IL_OP_UNKNOWN, GetOp(0x000002E1u));
    EXPECT_EQ(IL_OP_UNKNOWN, GetOp(0x0000FFFFu));
}

/// The views against words written by hand: one set bit or a telling value in every field.
TEST(ILFormatDecode, ViewsSeeTheirFieldsWhereTheFormatHasThem)
{
    const IL_Version version{0x02030201};
    EXPECT_EQ(1u, version.bits.minor_version);
    EXPECT_EQ(2u, version.bits.major_version);
    EXPECT_EQ(IL_SHADER_COMPUTE, version.bits.shader_type);
    EXPECT_EQ(0u, version.bits.multipass);
    EXPECT_EQ(1u, version.bits.realtime);

    const IL_OpCode opCode{0x80030000 | IL_OP_DCL_NUM_THREAD_PER_GROUP};
    EXPECT_EQ(3u, opCode.bits.controls);
    EXPECT_EQ(0u, opCode.bits.sec_modifier_present);
    EXPECT_EQ(1u, opCode.bits.pri_modifier_present);

    const IL_UavOpCode store{0x200B00E4};
    EXPECT_EQ(IL_OP_UAV_RAW_STORE, store.bits.code);
    EXPECT_EQ(11u, store.bits.id);
    EXPECT_EQ(1u, store.bits.addr_mode);
    EXPECT_EQ(0u, store.bits.indexed_args + store.bits.aligned + store.bits.cache_control);

    const IL typelessUav = 0x0FFF01A8; // the highest id, private
    EXPECT_EQ(1023u, GetTypedUavId(&typelessUav));
    EXPECT_EQ(IL_UAV_ACCESS_TYPE_PRIVATE, GetUavAccessType(&typelessUav));

    const IL_DCLResourceOpCode resource{0x82050080};
    EXPECT_EQ(5u, resource.bits.controls_id);
    EXPECT_EQ(2u, resource.bits.controls_type);
    EXPECT_EQ(1u, resource.bits.controls_unnormalize);

    const IL_SAMPLE_COpCode sample{0x23040088};
    EXPECT_EQ(4u, sample.bits.controls_resource);
    EXPECT_EQ(3u, sample.bits.controls_sampler);
    EXPECT_EQ(1u, sample.bits.addroff_present);
    EXPECT_EQ(0u, sample.bits.indexed_args);

    const IL_Dst_Mod dstMod{0x00295371};
    EXPECT_EQ(IL_MODCOMP_WRITE, dstMod.bits.component_x_r);
    EXPECT_EQ(IL_MODCOMP_NOWRITE, dstMod.bits.component_y_g);
    EXPECT_EQ(IL_MODCOMP_1, dstMod.bits.component_z_b);
    EXPECT_EQ(IL_MODCOMP_WRITE, dstMod.bits.component_w_a);
    EXPECT_EQ(1u, dstMod.bits.clamp);
    EXPECT_EQ(9u, dstMod.bits.shift_scale);
    EXPECT_EQ(2u, dstMod.bits.round);
    EXPECT_EQ(1u, dstMod.bits.denorm);
    EXPECT_EQ(5u, dstMod.bits.size);

    const IL_Src_Mod srcMod{0x0B3AD418};
    EXPECT_EQ(IL_COMPSEL_X_R, srcMod.bits.swizzle_x_r);
    EXPECT_EQ(1u, srcMod.bits.negate_x_r);
    EXPECT_EQ(IL_COMPSEL_Y_G, srcMod.bits.swizzle_y_g);
    EXPECT_EQ(IL_COMPSEL_0, srcMod.bits.swizzle_z_b);
    EXPECT_EQ(IL_COMPSEL_1, srcMod.bits.swizzle_w_a);
    EXPECT_EQ(1u, srcMod.bits.negate_w_a);
    EXPECT_EQ(0u, srcMod.bits.invert);
    EXPECT_EQ(1u, srcMod.bits.bias);
    EXPECT_EQ(0u, srcMod.bits.x2);
    EXPECT_EQ(1u, srcMod.bits.sign);
    EXPECT_EQ(1u, srcMod.bits.abs);
    EXPECT_EQ(1u, srcMod.bits.divComp);
    EXPECT_EQ(1u, srcMod.bits.clamp);
    EXPECT_EQ(5u, srcMod.bits.size);

    const IL_Rel_Addr relAddr{0x00070009};
    EXPECT_EQ(9u, relAddr.bits.address_register);
    EXPECT_EQ(1u, relAddr.bits.loop_relative);
    EXPECT_EQ(3u, relAddr.bits.component);
}

} // namespace
