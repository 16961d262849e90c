#include <set>

#include "platform/simt/Structure.h"
#include "tests/platform/simt/HostNumbers.h"
#include "tests/platform/simt/RecordedLaunch.h"

/// Every load, store and atomic, compared with the host.
namespace KestrelPlatformTest
{
namespace
{

/// The new value of an atomic, from the old value and its operands.
typedef uint64_t (*PFAtomic)(uint64_t nOld, uint64_t a, uint64_t b, bool bLong);

struct SAtomicRule
{
    const char* pszNames; ///< of the instructions, each without and with a result; after "64" those of 64 bits
    bool bTwoOperands;
    bool bFloats;
    PFAtomic pfHost;
};

int64_t Signed(uint64_t n, bool bLong)
{
    return bLong ? s(n) : i(n);
}

double Real(uint64_t n, bool bLong)
{
    return bLong ? d(n) : f(n);
}

/// Each half whose new value has its top bit set is replaced by that value's low 31 bits.
uint64_t ExchangeHalves(uint64_t nOld, uint64_t a)
{
    uint64_t nResult = 0;
    for (int n = 0; n < 64; n += 32)
    {
        const uint64_t nHalf = (a >> n) & 0xFFFFFFFF;
        nResult |= (nHalf >= 0x80000000 ? nHalf - 0x80000000 : (nOld >> n) & 0xFFFFFFFF) << n;
    }
    return nResult;
}

#define HOST(expression)                                                                                               \
    [](uint64_t nOld, uint64_t a, uint64_t b, bool bLong) -> uint64_t                                                  \
    {                                                                                                                  \
        static_cast<void>(b), static_cast<void>(bLong);                                                                \
        return expression;                                                                                             \
    }

// clang-format off
const SAtomicRule s_Atomics[] = {
    {"uav_add uav_read_add lds_add lds_read_add lds_add64 lds_read_add64", false, false, HOST(nOld + a)},
    {"uav_sub uav_read_sub lds_sub lds_read_sub lds_sub64 lds_read_sub64", false, false, HOST(nOld - a)},
    {"uav_rsub uav_read_rsub lds_rsub lds_read_rsub lds_rsub64 lds_read_rsub64", false, false, HOST(a - nOld)},
    {"uav_min uav_read_min lds_min lds_read_min lds_min64 lds_read_min64", false, false, HOST(Signed(a, bLong) < Signed(nOld, bLong) ? a : nOld)},
    {"uav_max uav_read_max lds_max lds_read_max lds_max64 lds_read_max64", false, false, HOST(Signed(a, bLong) > Signed(nOld, bLong) ? a : nOld)},
    {"uav_umin uav_read_umin lds_umin lds_read_umin lds_umin64 lds_read_umin64", false, false, HOST(std::min(a, nOld))},
    {"uav_umax uav_read_umax lds_umax lds_read_umax lds_umax64 lds_read_umax64", false, false, HOST(std::max(a, nOld))},
    {"uav_and uav_read_and lds_and lds_read_and lds_and64 lds_read_and64", false, false, HOST(nOld & a)},
    {"uav_or uav_read_or lds_or lds_read_or lds_or64 lds_read_or64", false, false, HOST(nOld | a)},
    {"uav_xor uav_read_xor lds_xor lds_read_xor lds_xor64 lds_read_xor64", false, false, HOST((nOld | a) - (nOld & a))},
    {"uav_uinc uav_read_uinc lds_inc lds_read_inc lds_inc64 lds_read_inc64", false, false, HOST(nOld >= a ? 0 : nOld + 1)},
    {"uav_udec uav_read_udec lds_dec lds_read_dec lds_dec64 lds_read_dec64", false, false, HOST(nOld == 0 || nOld > a ? a : nOld - 1)},
    {"lds_mskor lds_read_mskor lds_mskor64 lds_read_mskor64", true, false, HOST((nOld - (nOld & a)) | b)},
    {"uav_read_xchg lds_read_xchg lds_read_xchg64", false, false, HOST(nOld == a ? nOld : a)},
    {"uav_cmp uav_read_cmp_xchg lds_cmp lds_read_cmp_xchg lds_cmp64 lds_read_cmp_xchg64", true, false, HOST(nOld == a ? b : nOld)},
    {"lds_wrap_rtn_b32", true, false, HOST(nOld >= a ? nOld - a : nOld + b)},
    {"lds_condxchg32_rtn_b64", false, false, HOST(ExchangeHalves(nOld, a))},
    {"uav_fmin uav_read_fmin lds_fmin lds_read_fmin lds_fmin64 lds_read_fmin64", false, true, HOST(Real(a, bLong) < Real(nOld, bLong) ? a : nOld)},
    {"uav_fmax uav_read_fmax lds_fmax lds_read_fmax lds_fmax64 lds_read_fmax64", false, true, HOST(Real(a, bLong) > Real(nOld, bLong) ? a : nOld)},
    {"uav_read_fcmp_xchg lds_fcmp lds_read_fcmp_xchg lds_fcmp64 lds_read_fcmp_xchg64", true, true, HOST(Real(nOld, bLong) == Real(a, bLong) ? b : nOld)},
};
// clang-format on

std::vector<std::string> Split(const char* pszNames)
{
    std::vector<std::string> vNames(1);
    for (; *pszNames; ++pszNames)
    {
        if (*pszNames == ' ')
        {
            vNames.emplace_back();
        }
        else
        {
            vNames.back().push_back(*pszNames);
        }
    }
    return vNames;
}

bool Contains(const std::string& str, const char* pszPart)
{
    return str.find(pszPart) != std::string::npos;
}

std::vector<uint64_t> Operands(bool bFloats, bool bLong)
{
    if (!bFloats)
    {
        return {0, 1, 5, 0x7FFFFFFF, 0x80000000, bLong ? ~0ull : 0xFFFFFFFF, bLong ? 0x8000000080000001ull : 6};
    }
    const double values[] = {0.0, -0.0, 1.5, -2.5, INFINITY, -INFINITY, double{NAN}};
    std::vector<uint64_t> vBits;
    for (const double dValue : values)
    {
        vBits.push_back(bLong ? D(dValue) : F(dValue));
    }
    return vBits;
}

/// A work-item for each combination: the old value is in its output, a and b in its input; the returned old value is
/// stored after the new one.
void CheckAtomic(const std::string& strName, const SAtomicRule& rule)
{
    const bool bLocal = Contains(strName, "lds_");
    const bool bLong = Contains(strName, "64");
    const bool bReturns = Contains(strName, "_read_") || Contains(strName, "_rtn_");
    const std::string strId = bLocal ? "_id(1)" : "_id(11)";
    const std::string strAddress = bLocal ? "r102.x" : "r100.y";
    const std::string strCall = strName + strId + (bReturns ? " r0.xy, " : " ") + strAddress + ", r1.xy" +
                                (rule.bTwoOperands ? ", r1.zw\n" : "\n");
    const std::string strBody =
        std::string(IndexLines()) + "ishl r101.x, r100.x, l100.x\niadd r101.x, r101.x, cb1[1].x\n" +
        "uav_raw_load_id(11) r1, r101.x\nishl r102.x, vTidInGrp.x, l0.x\niadd r102.y, r102.x, l0.y\n" +
        (bLocal ? "uav_raw_load_id(11) r2.xy, r100.y\nlds_store_id(1) r102.x, r2.x\nlds_store_id(1) r102.y, r2.y\n" +
                      strCall + "lds_load_id(1) r2.x, r102.x\nlds_load_id(1) r2.y, r102.y\n" +
                      "uav_raw_store_id(11) mem0.xy, r100.y, r2.xy\n"
                : strCall) +
        "iadd r100.y, r100.y, l0.z\nuav_raw_store_id(11) mem0.xy, r100.y, r0.xy\n";
    CKernelRun run(strBody, std::string(IndexLiterals()) + "dcl_literal l0, 3, 4, 8, 0\ndcl_lds_id(1) 2048\n");
    struct SCombination
    {
        uint64_t nOld, a, b;
    };
    std::vector<SCombination> vCombinations;
    const std::vector<uint64_t> vOperands = Operands(rule.bFloats, bLong);
    for (const uint64_t nOld : vOperands)
    {
        for (const uint64_t a : vOperands)
        {
            vCombinations.push_back({nOld, a, vOperands[(vCombinations.size() + 3) % vOperands.size()]});
        }
    }
    for (const SCombination& each : vCombinations)
    {
        for (const uint64_t n : {each.nOld, uint64_t{0x7777777777777777}})
        {
            run.vOutput.insert(run.vOutput.end(), {u(n), u(n >> 32)});
        }
        for (const uint64_t n : {each.a, each.b})
        {
            run.vInput.insert(run.vInput.end(), {u(n), u(n >> 32)});
        }
    }
    run.SetSize(vCombinations.size(), 7);
    EXPECT_EQ(run.Run().nBadAccesses, 0u);
    for (size_t n = 0; n < vCombinations.size(); ++n)
    {
        const SCombination& each = vCombinations[n];
        const uint64_t nNew = rule.pfHost(each.nOld, each.a, each.b, bLong);
        const uint32_t nOldHigh = u(each.nOld >> 32);
        const uint32_t* const pOut = &run.vOutput[n * 4];
        ASSERT_EQ(pOut[0], u(nNew)) << strName << " " << each.nOld << " " << each.a << " " << each.b;
        ASSERT_EQ(pOut[1], bLong ? u(nNew >> 32) : nOldHigh) << strName << " " << each.nOld << " " << each.a;
        ASSERT_EQ(pOut[2], bReturns ? u(each.nOld) : 0) << strName;
        ASSERT_EQ(pOut[3], bReturns ? (bLong ? nOldHigh : u(each.nOld)) : 0) << strName;
    }
}

TEST(MemorySweep, Atomics)
{
    for (const SAtomicRule& rule : s_Atomics)
    {
        for (const std::string& strName : Split(rule.pszNames))
        {
            CheckAtomic(strName, rule);
        }
    }
}

/// r1.x holds the input's address (sixteen bytes 0x80, 0x81, ..), r2.x the output's, r0 the sentinels 0x11 to 0x44.
/// Local memory holds the input's bytes from 0 on. Expected is what the lines leave in r0, or in the output.
struct SAccessCase
{
    const char* pszName;
    const char* pszLines;
    bool bStores;
    uint32_t nExpected[4];
};

const uint32_t s_a = 0x11, s_b = 0x22, s_c = 0x33, s_d = 0x44;

const SAccessCase s_Accesses[] = {
    {"uav_raw_load", "uav_raw_load_id(11) r0._y_w, r1.x\n", false, {s_a, 0x83828180, s_c, 0x87868584}},
    {"uav_arena_load", "uav_arena_load_id(11) r0.x, r1.x\n", false, {0x83828180, s_b, s_c, s_d}},
    {"uav_struct_load",
     "mov r3.xy, l3.yx\niadd r3.y, r1.x, l3.x\nuav_struct_load_id(5) r0.xy, r3.xy\n",
     false,
     {0x8B8A8988, 0x8F8E8D8C, s_c, s_d}},
    {"srv_raw_load", "srv_raw_load_id(2) r0, r1.x\n", false, {0x83828180, 0x87868584, 0x8B8A8988, 0x8F8E8D8C}},
    {"flat_load", "flat_load r0.xy, r1.xy\n", false, {0x83828180, 0x87868584, s_c, s_d}},
    {"load_dword_at_addr", "load_dword_at_addr r0.x, r1.xy, l3.z\n", false, {0x87868584, s_b, s_c, s_d}},
    {"uav_byte_load", "uav_byte_load_id(11) r0.xz, r1.x\n", false, {0xFFFFFF80, s_b, 0xFFFFFF80, s_d}},
    {"uav_ubyte_load", "uav_ubyte_load_id(11) r0.xz, r1.x\n", false, {0x80, s_b, 0x80, s_d}},
    {"uav_short_load", "uav_short_load_id(11) r0.y, r1.x\n", false, {s_a, 0xFFFF8180, s_c, s_d}},
    {"uav_ushort_load", "uav_ushort_load_id(11) r0.y, r1.x\n", false, {s_a, 0x8180, s_c, s_d}},
    {"lds_load", "lds_load_id(1) r0.xy, l3.z\n", false, {0x87868584, 0x8B8A8988, s_c, s_d}},
    {"lds_load_vec", "lds_load_vec_id(1) r0.xyz, l3.z, l3.z\n", false, {0x8B8A8988, 0x8F8E8D8C, 0, s_d}},
    {"lds_load64", "lds_load64_id(1) r0.xy, l3.z\n", false, {0x87868584, 0x8B8A8988, s_c, s_d}},
    {"lds_load_byte", "lds_load_byte_id(1) r0.x, l3.y\n", false, {0xFFFFFF81, s_b, s_c, s_d}},
    {"lds_load_ubyte", "lds_load_ubyte_id(1) r0.x, l3.y\n", false, {0x81, s_b, s_c, s_d}},
    {"lds_load_short", "lds_load_short_id(1) r0.x, l3.y\n", false, {0xFFFF8281, s_b, s_c, s_d}},
    {"lds_load_ushort", "lds_load_ushort_id(1) r0.x, l3.y\n", false, {0x8281, s_b, s_c, s_d}},
    {"uav_raw_store", "uav_raw_store_id(11) mem0.x_zw, r2.x, r0\n", true, {s_a, s_c, s_d, 0}},
    {"uav_arena_store", "uav_arena_store_id(11) r2.x, r0.y\n", true, {s_b, 0, 0, 0}},
    {"uav_struct_store",
     "mov r3.x, l3.y\nmov r3.y, r2.x\nuav_struct_store_id(5) mem0.xy, r3.xy, r0\n",
     true,
     {0, 0, s_a, s_b}},
    {"flat_store", "flat_store r2.xy, r0.z\n", true, {s_c, 0, 0, 0}},
    {"uav_byte_store", "uav_byte_store_id(11) mem0, r2.x, l4.x\n", true, {0x78, 0, 0, 0}},
    {"uav_short_store", "uav_short_store_id(11) mem0, r2.x, l4.x\n", true, {0x5678, 0, 0, 0}},
    {"lds_store",
     "lds_store_id(1) l3.z, l4.x\nlds_load_id(1) r0, l3.x\n",
     false,
     {0x83828180, 0x12345678, 0x8B8A8988, 0x8F8E8D8C}},
    {"lds_store_vec",
     "lds_store_vec_id(1) mem0.xy, l3.z, l3.z, l4\nlds_load_id(1) r0, l3.x\n",
     false,
     {0x83828180, 0x87868584, 0x12345678, 0x9ABCDEF0}},
    {"lds_store64",
     "lds_store64_id(1) l3.z, l4.xy\nlds_load_id(1) r0, l3.x\n",
     false,
     {0x83828180, 0x12345678, 0x9ABCDEF0, 0x8F8E8D8C}},
    {"lds_store_byte",
     "lds_store_byte_id(1) l3.y, l4.x\nlds_load_id(1) r0.x, l3.x\n",
     false,
     {0x83827880, s_b, s_c, s_d}},
    {"lds_store_short",
     "lds_store_short_id(1) l3.y, l4.x\nlds_load_id(1) r0.x, l3.x\n",
     false,
     {0x83567880, s_b, s_c, s_d}},
};

TEST(MemorySweep, LoadsAndStores)
{
    for (const SAccessCase& test : s_Accesses)
    {
        CKernelRun run(
            std::string("mov r1.x, cb1[1].x\nmov r2.x, cb1[0].x\nmov r0, l5\nuav_raw_load_id(11) r9, r1.x\n") +
                "lds_store_vec_id(1) mem0, l3.x, l3.x, r9\n" + test.pszLines +
                (test.bStores ? "" : "uav_raw_store_id(11) mem0, r2.x, r0\n"),
            "dcl_literal l3, 0, 1, 4, 8\ndcl_literal l4, 0x12345678, 0x9ABCDEF0, 0, 0\n"
            "dcl_literal l5, 0x11, 0x22, 0x33, 0x44\ndcl_lds_id(1) 32\n"
            "dcl_typeless_uav_id(5)_stride(8)_length(64)\n");
        run.vInput = {0x83828180, 0x87868584, 0x8B8A8988, 0x8F8E8D8C};
        run.vOutput.assign(4, 0);
        EXPECT_EQ(run.Run().nBadAccesses, 0u) << test.pszName;
        EXPECT_EQ(run.vOutput, std::vector<uint32_t>(test.nExpected, test.nExpected + 4)) << test.pszName;
    }
}

/// An access that is added to the interpreter needs a row here.
TEST(MemorySweep, NoAccessIsLeftOut)
{
    std::set<std::string> setNames;
    for (const SAtomicRule& rule : s_Atomics)
    {
        for (const std::string& strName : Split(rule.pszNames))
        {
            setNames.insert(strName);
        }
    }
    for (const SAccessCase& test : s_Accesses)
    {
        setNames.insert(test.pszName);
    }
    const auto check = [&](const char* pszName, uint32_t nOpCode)
    {
        const bool bMemory =
            KestrelPlatform::GetOpCodeClass(nOpCode & 0xFFFF) == KestrelPlatform::ClassMemory && nOpCode <= 0xFFFF;
        EXPECT_TRUE(!bMemory || setNames.count(pszName)) << pszName;
    };
#define IL_KEYWORD(text, value, format) check(text, value);
#include "il/ILOpCodes.def"
}

} // namespace
} // namespace KestrelPlatformTest
