#include <cmath>
#include <cstring>
#include <limits>

#include "platform/simt/LaneOps.h"
#include "tests/platform/simt/RecordedLaunch.h"

namespace KestrelPlatformTest
{
namespace
{

struct SWords
{
    uint32_t w[4];
};

SWords W(uint32_t x, uint32_t y = 0, uint32_t z = 0, uint32_t w = 0)
{
    return {{x, y, z, w}};
}

SWords F(float x, float y = 0, float z = 0, float w = 0)
{
    return {{Bits(x), Bits(y), Bits(z), Bits(w)}};
}

SWords L(uint64_t xy, uint64_t zw = 0)
{
    return {{static_cast<uint32_t>(xy), static_cast<uint32_t>(xy >> 32), static_cast<uint32_t>(zw),
             static_cast<uint32_t>(zw >> 32)}};
}

SWords D(double xy, double zw = 0)
{
    uint64_t n[2];
    std::memcpy(&n[0], &xy, 8);
    std::memcpy(&n[1], &zw, 8);
    return L(n[0], n[1]);
}

const float s_fInf = std::numeric_limits<float>::infinity();
const float s_fNaN = std::numeric_limits<float>::quiet_NaN();
const uint32_t s_nAll = 0xFFFFFFFF;
const uint32_t s_nLeast = 0x80000000;

/// a, b and c are in l0, l1 and l2, and the lines leave the result in r0.
struct SRuleCase
{
    const char* pszLines;
    SWords a;
    SWords b;
    SWords c;
    SWords expected;
};

const SRuleCase s_IntegerCases[] = {
    {"iadd r0, l0, l1", W(s_nAll, 1, 0x7FFFFFFF, 5), W(1, 2, 1, s_nAll), {}, W(0, 3, s_nLeast, 4)},
    {"imul r0, l0, l1", W(s_nAll, 0x10000, 3, 7), W(s_nAll, 0x10000, 5, 0), {}, W(1, 0, 15, 0)},
    {"imul_high r0, l0, l1", W(s_nAll, 0x10000, s_nLeast, 7), W(s_nAll, 0x10000, 2, 9), {}, W(0, 1, s_nAll, 0)},
    {"umul_high r0, l0, l1", W(s_nAll, 0x10000, s_nLeast, 7), W(s_nAll, 0x10000, 2, 9), {}, W(0xFFFFFFFE, 1, 1, 0)},
    {"udiv r0, l0, l1", W(7, 7, s_nAll, 0), W(2, 0, s_nAll, 0), {}, W(3, s_nAll, 1, s_nAll)},
    {"umod r0, l0, l1", W(7, 7, s_nAll, 0), W(2, 0, 10, 0), {}, W(1, 7, 5, 0)},
    {"idiv r0, l0, l1",
     W(s_nLeast, 0xFFFFFFF9, 7, 5),
     W(s_nAll, 2, 0xFFFFFFFE, 0),
     {},
     W(s_nLeast, 0xFFFFFFFD, 0xFFFFFFFD, s_nAll)},
    {"imod r0, l0, l1", W(s_nLeast, 0xFFFFFFF9, 7, 5), W(s_nAll, 2, 0xFFFFFFFE, 0), {}, W(0, s_nAll, 1, 5)},
    {"ishl r0, l0, l1", W(1, 1, 3, 1), W(31, 32, 33, s_nAll), {}, W(s_nLeast, 1, 6, s_nLeast)},
    {"ishr r0, l0, l1", W(s_nLeast, s_nLeast, s_nLeast, 4), W(31, 32, 1, 2), {}, W(s_nAll, s_nLeast, 0xC0000000, 1)},
    {"ushr r0, l0, l1", W(s_nLeast, s_nLeast, s_nLeast, 4), W(31, 32, 33, 2), {}, W(1, s_nLeast, 0x40000000, 1)},
    {"ilt r0, l0, l1", W(s_nLeast, 1, 0, s_nAll), W(0, 1, s_nLeast, 0), {}, W(s_nAll, 0, 0, s_nAll)},
    {"ult r0, l0, l1", W(s_nLeast, 1, 0, s_nAll), W(0, 1, s_nLeast, 0), {}, W(0, 0, s_nAll, 0)},
    {"icarry r0, l0, l1", W(s_nAll, s_nAll, 1, s_nLeast), W(1, 0, 2, s_nLeast), {}, W(1, 0, 0, 1)},
    {"iborrow r0, l0, l1", W(0, 2, 1, s_nAll), W(1, 1, 1, 0), {}, W(1, 0, 0, 0)},
    {"imed3 r0, l0, l1, l2", W(3, s_nAll, 5, 1), W(1, 0, 5, 2), W(2, 5, 4, 3), W(2, 0, 5, 2)},
    {"umed3 r0, l0, l1, l2", W(3, s_nAll, 5, 1), W(1, 0, 5, 2), W(2, 5, 4, 3), W(2, 5, 5, 2)},
    {"imul24 r0, l0, l1",
     W(0x00FFFFFF, 0x01000002, 0x800000, 3),
     W(5, 3, 1, 0xFFFFFF),
     {},
     W(0xFFFFFFFB, 6, 0xFF800000, 0xFFFFFFFD)},
    {"umul24_high r0, l0, l1", W(0xFFFFFF, 0xFF000100, 0, 1), W(0xFFFFFF, 0x1000000, 0, 1), {}, W(0xFFFF, 0, 0, 0)},
    {"bfi r0, l0, l1, l2", W(0xFF00FF00), W(0x12345678), W(0x9ABCDEF0), W(0x12BC56F0)},
    {"bfm r0, l0, l1", W(4, 32, 31, 5), W(8, 3, 0, 30), {}, W(0xF00, 0, 0x7FFFFFFF, 0xC0000000)},
    {"ubit_extract r0, l0, l1, l2", W(8, 0, 31, 8), W(4, 4, 0, 28), W(0xABCD, 0xFFFF, s_nAll, 0xF0000000),
     W(0xBC, 0, 0x7FFFFFFF, 15)},
    {"ibit_extract r0, l0, l1, l2", W(8, 0, 4, 8), W(4, 4, 4, 28), W(0xABCD, 0xFFFF, 0x70, 0xF0000000),
     W(0xFFFFFFBC, 0, 7, s_nAll)},
    {"ubit_insert r0, l0, l1, l2, l2.yyyy", W(8, 8, 4, 0), W(4, 0, 28, 3), W(0x1FF, 0xF000F, 0x3, 0x7),
     W(0xF0FFF, 0xF000F, 0x300F000F, 0xF000F)},
    {"ubit_reverse r0, l0", W(1, 0x12345678, 0, s_nLeast), {}, {}, W(s_nLeast, 0x1E6A2C48, 0, 1)},
    {"icbits r0, l0", W(0, s_nAll, 0x101, 7), {}, {}, W(0, 32, 2, 3)},
    {"ffb r0, l0", W(0, 8, s_nLeast, 6), {}, {}, W(s_nAll, 3, 31, 1)},
    {"ffb_ctl(1) r0, l0", W(0, 8, s_nLeast, 1), {}, {}, W(s_nAll, 28, 0, 31)},
    {"ffb_ctl(2) r0, l0", W(s_nAll, 0xFFFFFFF0, 0, 1), {}, {}, W(s_nAll, 28, s_nAll, 31)},
    {"bitalign r0, l0, l1, l2", W(0x12345678, 1, 1, 1), W(0x9ABCDEF0, 2, 2, s_nLeast), W(8, 0, 32, 31),
     W(0x789ABCDE, 2, 2, 3)},
    {"bytealign r0, l0, l1, l2", W(0x12345678, 1), W(0x9ABCDEF0, 2), W(1, 4), W(0x789ABCDE, 2)},
    {"sad r0, l0, l1, l2", W(0x01020304), W(0x04030201), W(100), W(108)},
    {"sadhi r0, l0, l1, l2", W(0x01020304), W(0x04030201), W(100), W(0x80064)},
    {"msad r0, l0, l1, l2", W(0x01020304), W(0x04000201), W(0), W(3 + 1 + 3)},
    {"sad4 r0, l0, l1, l2", W(1, 2, 3, 4), W(0, 0, 0, 0), W(5, 9, 9, 9), W(15, 15, 15, 15)},
    {"u4lerp r0, l0, l1, l2", W(0x01FF0003), W(0x02FF0000), W(0x01000001), W(0x02FF0002)},
    {"pk_i16toi32 r0, l0, l1",
     W(40000, s_nAll, 5),
     W(0xFFFF0000, 1, 0x8000),
     {},
     W(0x80007FFF, 0x0001FFFF, 0x7FFF0005)},
    {"qsad r0, l0, l1.xxxx, l2", L(0x0807060504030201ull), W(0x04030201), L(1),
     L(0x000C000800040001ull, 0x000A000A000A000Aull)},
};

const SRuleCase s_Floats[] = {
    {"add r0, l0, l1", F(1, -0.0f, s_fInf, 1e-40f), F(2, -0.0f, 1, 1e-40f), {}, F(3, -0.0f, s_fInf, 1e-40f + 1e-40f)},
    {"mad r0, l0, l1, l2", F(1.0000001f, 3, 0, 2), F(1.0000001f, 4, 5, 3), F(-1, 1, -0.0f, 1),
     F(1.0000001f * 1.0000001f - 1, 13, 0, 7)},
    {"fma r0, l0, l1, l2", F(1.0000001f), F(1.0000001f), F(-1), F(std::fma(1.0000001f, 1.0000001f, -1.0f), 0, 0, 0)},
    {"min r0, l0, l1", F(s_fNaN, 1, -1, s_fInf), F(2, s_fNaN, 3, 4), {}, F(2, 1, -1, 4)},
    {"max r0, l0, l1", F(s_fNaN, 1, -1, s_fInf), F(2, s_fNaN, 3, 4), {}, F(2, 1, 3, s_fInf)},
    {"med3 r0, l0, l1, l2", F(3, 1, 2, 5), F(1, 2, 3, 5), F(2, 3, 1, 9), F(2, 2, 2, 5)},
    {"lt r0, l0, l1", F(-0.0f, 1, s_fNaN, -s_fInf), F(0, 2, s_fNaN, s_fInf), {}, W(0, s_nAll, 0, s_nAll)},
    {"ne r0, l0, l1", F(-0.0f, 1, s_fNaN, 3), F(0, 2, s_fNaN, 3), {}, W(0, s_nAll, s_nAll, 0)},
    {"eq r0, l0, l1", F(-0.0f, 1, s_fNaN, 3), F(0, 2, s_fNaN, 3), {}, W(s_nAll, 0, 0, s_nAll)},
    {"ftoi r0, l0", F(-1.9f, 3e9f, s_fNaN, -s_fInf), {}, {}, W(s_nAll, 0x7FFFFFFF, 0, s_nLeast)},
    {"ftou r0, l0", F(-1.9f, 3e9f, s_fNaN, s_fInf), {}, {}, W(0, 3000000000u, 0, s_nAll)},
    {"itof r0, l0", W(s_nLeast, 16777217, s_nAll, 0), {}, {}, F(-2147483648.0f, 16777216, -1, 0)},
    {"utof r0, l0", W(s_nLeast, 16777219, s_nAll, 0), {}, {}, F(2147483648.0f, 16777220, 4294967296.0f, 0)},
    {"ftoi_rpi r0, l0", F(1.5f, -1.5f, 2.4f, -0.6f), {}, {}, W(2, s_nAll, 2, s_nAll)},
    {"round_nearest r0, l0", F(0.5f, 1.5f, -2.5f, -0.2f), {}, {}, F(0, 2, -2, -0.0f)},
    {"round_neginf r0, l0", F(0.5f, -1.5f, 2, -0.0f), {}, {}, F(0, -2, 2, -0.0f)},
    {"round_plusinf r0, l0", F(0.5f, -1.5f, 2, -0.2f), {}, {}, F(1, -1, 2, -0.0f)},
    {"round_z r0, l0", F(1.9f, -1.9f, 1e10f, 0), {}, {}, F(1, -1, 1e10f, 0)},
    {"frc r0, l0", F(1.25f, -1.25f, 2, 0.5f), {}, {}, F(0.25f, 0.75f, 0, 0.5f)},
    {"rcp r0, l0", F(9, 9, 9, 4), {}, {}, F(0.25f, 0.25f, 0.25f, 0.25f)},
    {"rcp_vec r0, l0", F(2, 4, 0, -0.0f), {}, {}, F(0.5f, 0.25f, s_fInf, -s_fInf)},
    {"rsq r0.x_z_, l0.y", F(1, 16), {}, {}, F(0.25f, 0, 0.25f)},
    {"sqrt_vec r0, l0", F(4, 2, 0, 1e-40f), {}, {}, F(2, std::sqrt(2.0f), 0, std::sqrt(1e-40f))},
    {"exp r0.x, l0.x", F(3), {}, {}, F(8)},
    {"log r0.x, l0.x", F(8), {}, {}, F(3)},
    {"exn r0.x, l0.x", F(1), {}, {}, F(2.7182818f)},
    {"pow r0.x, l0.x, l1.x", F(2), F(10), {}, F(1024)},
    {"sin_vec r0, l0", F(0, 1.5707964f), {}, {}, F(0, 1)},
    {"sincos r0, l0", F(9, 9, 9, 0), {}, {}, F(1, 0)},
    {"mod r0, l0, l1", F(5.5f, -5.5f), F(2, 2, 1, 1), {}, F(1.5f, -1.5f)},
    {"dp2 r0, l0, l1", F(1, 2, 100, 100), F(3, 4, 1, 1), {}, F(11, 11, 11, 11)},
    {"dp4 r0.x, l0, l1", F(1, 2, 3, 4), F(5, 6, 7, 8), {}, F(70)},
    {"crs r0, l0, l1", F(1, 0, 0), F(0, 1, 0), {}, F(0, 0, 1)},
    {"len r0.x, l0", F(3, 4, 0, 9), {}, {}, F(5)},
    {"dist r0.x, l0, l1", F(4, 6, 1), F(1, 2, 1), {}, F(5)},
    {"reflect r0, l0, l1", F(1, -1, 0), F(0, 1, 0), {}, F(1, 1, 0)},
    {"lrp r0, l0, l1, l2", F(0.25f), F(8), F(4), F(5)},
    {"cmp_relop(ge) r0, l0, l1, l2", F(1, -1, 0, s_fNaN), F(10, 10, 10, 10), F(20, 20, 20, 20), F(10, 20, 10, 20)},
    {"set_relop(lt) r0, l0, l1", F(1, 2, -1, 0), F(2, 1, 0, 0), {}, F(1, 0, 1, 0)},
    {"mov r0, l1\ncmov r0, l0, l2", F(1, 0, -0.0f, 2), F(5, 6, 7, 8), F(1, 2, 3, 4), F(1, 6, 7, 4)},
    {"cmov_logical r0, l0, l1, l2", W(1, 0, s_nLeast, 0), F(1, 2, 3, 4), F(5, 6, 7, 8), F(1, 6, 3, 8)},
    {"class r0, l0, l1", F(-s_fInf, -0.0f, 1e-40f, 1), W(4, 0x20, 0x80, 0x80), {}, W(s_nAll, s_nAll, s_nAll, 0)},
    {"fldexp r0, l0, l1", F(1.5f, 1), W(4, 0xFFFFFFFF), {}, F(24, 0.5f)},
    {"frexp_mant r0, l0", F(12, -0.0f), {}, {}, F(0.75f, -0.0f)},
    {"frexp_exp r0, l0", F(12, 0, s_fInf, 1), {}, {}, W(4, 0, 0, 1)},
    {"cubeid r0, l0, l1, l2", F(1, 0, 0, -3), F(0, -2, 0, 1), F(0, 0, 4, 1), F(0, 3, 4, 1)},
    {"f_2_u4 r0.x, l0", F(1.4f, 300, -5, 254.6f), {}, {}, W(0xFF00FF01)},
    {"unpack1 r0, l0", W(0x12345678), {}, {}, F(0x56)},
    {"mova_ctl(1) a0, l0\nmov r0, a0", F(1.6f, -1.6f), {}, {}, W(2, 0xFFFFFFFE)},
};

const SRuleCase s_PairCases[] = {
    {"i64add r0, l0, l1", L(0xFFFFFFFFull, ~0ull), L(1, 1), {}, L(0x100000000ull, 0)},
    {"i64sub r0, l0, l1", L(0, 5), L(1, 7), {}, L(~0ull, ~0ull - 1)},
    {"i64mul r0, l0, l1", L(0x100000001ull, ~0ull), L(0x300000002ull, 3), {}, L(0x500000002ull, ~0ull - 2)},
    {"i64shl r0, l0, l1", L(1, 3), W(63, 9, 64, 9), {}, L(1ull << 63, 3)},
    {"i64shr r0, l0, l1", L(1ull << 63, 8), W(63, 0, 2, 0), {}, L(~0ull, 2)},
    {"u64shr r0, l0, l1", L(1ull << 63, 8), W(63, 0, 65, 0), {}, L(1, 4)},
    {"i64lt r0, l0, l1", L(~0ull, 1), L(0, 1), {}, L(~0ull, 0)},
    {"u64lt r0, l0, l1", L(~0ull, 1), L(0, 2), {}, L(0, ~0ull)},
    {"i64div r0, l0, l1", L(1ull << 63, 7), L(~0ull, 0), {}, L(1ull << 63, ~0ull)},
    {"u64mod r0, l0, l1", L(~0ull, 7), L(10, 0), {}, L(5, 7)},
    {"i64add r0._y__, l0, l1", L(0xFFFFFFFFull), L(1), {}, W(0, 1)},
    {"i64add r0.xy, l0.xy, l1.x000", L(0xFFFFFFFFull), W(2, 55), {}, L(0x100000001ull)},
    {"vmad_u64_u32 r0.xy, l0, l1, l2", W(s_nAll), W(s_nAll), L(1), L(0xFFFFFFFE00000002ull)},
    {"dadd r0, l0, l1", D(1.5, -1), D(2.25, 1), {}, D(3.75, 0)},
    {"dmul r0, l0, l1_neg(xyzw)", D(3, 2), D(2, 0.5), {}, D(-6, -1)},
    {"dadd_sat_x2 r0, l0, l1", D(0.25, 3), D(0.125, 3), {}, D(0.75, 1)},
    {"dfma r0, l0, l1, l2", D(1 + 0x1p-52), D(1 + 0x1p-52), D(-1), D(std::fma(1 + 0x1p-52, 1 + 0x1p-52, -1.0))},
    {"dlt r0, l0, l1", D(1, 2), D(2, 1), {}, L(~0ull, 0)},
    {"dmin r0, l0, l1", D(s_fNaN, 2), D(2, 1), {}, D(2, 1)},
    {"f2d r0, l0", F(1.5f, -2), {}, {}, D(1.5, -2)},
    {"d2f r0, l0", D(1.5, -2), {}, {}, F(1.5f, -2, 1.5f, -2)},
    {"dtoi r0.xy, l0", D(-3.9, 1e20), {}, {}, W(0xFFFFFFFD, 0x7FFFFFFF)},
    {"utod r0, l0", W(s_nAll, 7), {}, {}, D(4294967295.0, 7)},
    {"dtoi64 r0, l0", D(-3.9, 1e30), {}, {}, L(~0ull - 2, 0x7FFFFFFFFFFFFFFFull)},
    {"u64tod r0, l0", L(1ull << 63, 3), {}, {}, D(9223372036854775808.0, 3)},
    {"dldexp r0.xy, l0, l1", D(1.5), W(10), {}, D(1536)},
    {"dfrexp r0, l0", D(12), {}, {}, {{0, 0x3FE80000, 4, 0}}},
    {"dmovc r0, l0, l1, l2", L(1ull << 32, 0), D(1, 2), D(3, 4), D(1, 4)},
};

const SRuleCase s_HalfCases[] = {
    {"f2f16_near r0, l0", F(1, 65520, 0x1p-24f, 0x1p-25f), {}, {}, W(0x3C00, 0x7C00, 1, 0)},
    {"f2f16 r0, l0", F(65520, -1.0009f, s_fNaN, s_fInf), {}, {}, W(0x7BFF, 0xBC00, 0x7E00, 0x7C00)},
    {"f2f16_plus_inf r0, l0", F(1e-30f, -1e-30f, 65505, -65505), {}, {}, W(1, 0x8000, 0x7C00, 0xFBFF)},
    {"f162f r0, l0", W(0x3C00, 0x0001, 0xFC00, 0x8000), {}, {}, F(1, 0x1p-24f, -s_fInf, -0.0f)},
    {"f16add r0, l0, l1_neg(xyzw)", W(0x4000, 0x7BFF), W(0x3C00, 0xFBFF), {}, W(0x3C00, 0x7C00)},
    {"f16fma r0, l0, l1, l2", W(0x3C01), W(0x3C01), W(0xBC02), W(0x0010)},
    {"f16lt r0, l0, l1", W(0x3C00, 0x7E00), W(0x4000, 0x7E00), {}, W(s_nAll, 0)},
    {"u16add r0, l0, l1", W(0xFFFF, 0x10001), W(2, 0x20002), {}, W(1, 3)},
    {"i16shr r0, l0, l1", W(0x8000, 4), W(17, 1), {}, W(0xC000, 2)},
    {"i16lt r0, l0, l1", W(0x8000, 1), W(0, 2), {}, W(s_nAll, s_nAll)},
    {"f16toi16 r0, l0", W(0xC500, 0x7BFF, 0x7E00), {}, {}, W(0xFFFB, 0x7FFF, 0)},
    {"pk_f16tof32 r0.x, l0, l1", F(1), F(2), {}, W(0x40003C00)},
};

const float s_fThird = 1.0f / std::sqrt(9.0f);

/// Results over several components.
const SRuleCase s_Vectors[] = {
    {"dp3 r0, l0, l1", F(1, 2, 3, 100), F(4, 5, 6, 1), {}, F(32, 32, 32, 32)},
    {"dp2add r0.xy, l0, l1, l2", F(1, 2, 100, 100), F(3, 4, 1, 1), F(7, 8, 9, 0.5f), F(11.5f, 11.5f)},
    {"nrm r0, l0", F(1, -2, 2, 3), {}, {}, F(s_fThird, -2 * s_fThird, 2 * s_fThird, 3 * s_fThird)},
    {"nrm_precise r0.w, l0", F(0, 0, 0, 1), {}, {}, F(0, 0, 0, s_fInf)},
    {"faceforward r0, l0, l1, l2", F(1, -2, 3, 0), F(1, 0, 0), F(-1, 0, 0), F(1, -2, 3, 0)},
    {"faceforward r0, l0, l1, l2", F(1, -2, 3, 0), F(1, 0, 0), F(1, 0, 0), F(-1, 2, -3, -0.0f)},
    {"dst r0, l0, l1", F(9, 3, 5, 9), F(9, 4, 9, 6), {}, F(1, 12, 5, 6)},
    {"lit r0, l0", F(0.5f, 3, 9, 2), {}, {}, F(1, 0.5f, 9, 1)},
    {"lit r0, l0", F(-0.5f, 3, 9, 2), {}, {}, F(1, 0, 0, 1)},
    {"dxsincos r0.xy, l0, l1, l2", F(9, 9, 9, 0), {}, {}, F(1, 0)},
    {"f2u4 r0, l0", F(1.5f, 2.5f, s_fNaN, s_fInf), {}, {}, W(0xFF000202, 0xFF000202, 0xFF000202, 0xFF000202)},
    {"f16dp3 r0.xw, l0, l1", W(0x3C00, 0x4000, 0x4200, 9), W(0x4400, 0x4500, 0x4600, 9), {}, W(0x5000, 0, 0, 0x5000)},
    {"f16dp4 r0.x, l0, l1", W(0x3C00, 0x3C00, 0x3C00, 0x7BFF), W(1, 1, 1, 0x3C00), {}, W(0x7BFF)},
    {"f16len r0.x, l0", W(0x4200, 0x4400, 0, 0x4400), {}, {}, W(0x4500)},
    {"f16dist r0.x, l0, l1", W(0x4400, 0x4600, 0x3C00), W(0x3C00, 0x4000, 0x3C00), {}, W(0x4500)},
    {"f16nrm r0, l0", W(0x4400, 0, 0xC400, 0), {}, {}, W(0x39A8, 0, 0xB9A8, 0)},
    {"f16faceforward r0, l0, l1, l2", W(0x3C00, 0xC000, 0, 0), W(0x3C00), W(0x3C00), W(0xBC00, 0x4000, 0x8000, 0x8000)},
    {"mqsad_u32_u8 r0, l0, l1, l2", L(0x0807060504030201ull), W(0x04000201), W(1, 0, 0xFFFFFFFF, 5), W(1, 3, 5, 14)},
    {"mova a0, l0\nmov r0, a0", F(1.6f, -1.6f, s_fNaN, 3e9f), {}, {}, W(1, 0xFFFFFFFE, 0, 0x7FFFFFFF)},
    {"set_relop(ne) r0, l0, l1", F(1, s_fNaN, -0.0f, 0), F(1, s_fNaN, 0, 1), {}, F(0, 1, 0, 1)},
    {"cmp_relop(gt) r0, l0, l1, l2", F(1, -1, 0, s_fInf), F(1, 1, 1, 1), F(2, 2, 2, 2), F(1, 2, 2, 1)},
};

const SRuleCase s_Operands[] = {
    {"mov r0, l0.wzyx", W(1, 2, 3, 4), {}, {}, W(4, 3, 2, 1)},
    {"mov r0, l0\nmov r0, r0.yzwx", W(1, 2, 3, 4), {}, {}, W(2, 3, 4, 1)},
    {"mov r0, l0\niadd r0.xyz, r0.zxy, r0.yzx", W(1, 2, 4, 9), {}, {}, W(6, 5, 3, 9)},
    {"mov r0, l0\ni64add r0, r0.zwxy, r0.zwxy", L(1, 2), {}, {}, L(4, 2)},
    {"mov r0.x01_, l0", W(7, 8, 9, 10), {}, {}, {{7, 0, 0x3F800000, 0}}},
    {"mov r0, l0.x01y", W(7, 8, 9, 10), {}, {}, {{7, 0, 0x3F800000, 8}}},
    {"mov r0, l0_neg(xz)", F(1, 2, -3, 4), {}, {}, F(-1, 2, 3, 4)},
    {"mov r0, l0_neg(xyzw)_abs", F(1, -2, 0, s_fInf), {}, {}, F(-1, -2, -0.0f, -s_fInf)},
    {"mov r1, l0\nadd r0, r1_neg(x)_abs, l1",
     F(-1, -2, 3, 4),
     F(0.5f, 0.5f, 0.5f, 0.5f),
     {},
     F(-0.5f, 2.5f, 3.5f, 4.5f)},
    {"mov r0, l0_invert_bias_x2", F(0, 0.25f, 1, 2), {}, {}, F(1, 0.5f, -1, -3)},
    {"mov r0, l0_sign", F(-5, 0, 3, -0.0f), {}, {}, F(-1, 0, 1, -0.0f)},
    {"mov_sat r0, l0", F(-1, 0.5f, 2, s_fNaN), {}, {}, F(0, 0.5f, 1, 0)},
    {"add_x4 r0, l0, l1", F(1, 2), F(1, 1), {}, F(8, 12)},
    {"mul_d8_sat r0, l0, l1", F(4, 80), F(1, 1), {}, F(0.5f, 1)},
    {"iadd r0, l0_neg(xy), l1", W(5, 6, 7), W(1, 1, 1), {}, W(0xFFFFFFFC, 0xFFFFFFFB, 8)},
    {"iadd_sat r0, l0, l1", W(5), W(6), {}, W(11)},
    {"mov r0, r77", {}, {}, {}, W(0)},
    // Zeros moved at the beginning of a kernel have no effect.
    {"mov r0, l0", W(0), {}, {}, W(0)},
    {"mov r0, l0", W(0, 0, 5, 0), {}, {}, W(0, 0, 5, 0)},
    {"mov r0, l0.xxx1", W(0), {}, {}, F(0, 0, 0, 1)},
    {"mov r0, l0_neg(xy)", W(0), {}, {}, F(-0.0f, -0.0f)},
    {"mov r0, l0_invert", W(0), {}, {}, F(1, 1, 1, 1)},
    {"mov r0.x10_, l0", W(0), {}, {}, F(0, 1, 0, 0)},
    {"mov r0, l1\nmov r0.xyz, l0", W(0), W(9, 9, 9, 9), {}, W(0, 0, 0, 9)},
};

template <size_t N>
void Check(const SRuleCase (&cases)[N])
{
    for (const SRuleCase& test : cases)
    {
        const auto literal = [](const char* pszName, const SWords& words)
        {
            std::string str = std::string("dcl_literal ") + pszName;
            for (uint32_t n : words.w)
            {
                str += ", " + std::to_string(n);
            }
            return str + "\n";
        };
        CKernelRun run(std::string(test.pszLines) +
                           "\nishl r100.x, vAbsTidFlat.x, l100.x\niadd r100.x, r100.x, cb1[0].x\n"
                           "uav_raw_store_id(11) mem0, r100.x, r0\n",
                       literal("l0", test.a) + literal("l1", test.b) + literal("l2", test.c) + IndexLiterals());
        run.SetSize(20, 20);
        for (const auto eSet : {KestrelPlatform::EInstructionSet::Baseline, KestrelPlatform::EInstructionSet::Avx2,
                                KestrelPlatform::EInstructionSet::Avx512})
        {
            if (!KestrelPlatform::ChooseInstructionSet(eSet))
            {
                continue;
            }
            run.vOutput.assign(80, 0xCDCDCDCD);
            run.Run();
            for (uint32_t n = 0; n < 4; ++n)
            {
                EXPECT_EQ(run.vOutput[76 + n], test.expected.w[n])
                    << test.pszLines << ", component " << n << ": " << Float(run.vOutput[76 + n]) << " for "
                    << Float(test.expected.w[n]);
            }
        }
    }
}

TEST(Rules, Integers)
{
    Check(s_IntegerCases);
}

TEST(Rules, Floats)
{
    Check(s_Floats);
}

TEST(Rules, Pairs)
{
    Check(s_PairCases);
}

TEST(Rules, Halves)
{
    Check(s_HalfCases);
}

TEST(Rules, Vectors)
{
    Check(s_Vectors);
}

TEST(Rules, Operands)
{
    Check(s_Operands);
}

} // namespace
} // namespace KestrelPlatformTest
