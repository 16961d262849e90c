#include <algorithm>
#include <set>

#include "tests/platform/simt/RecordedLaunch.h"

/// The bytes and cache lines of memory accesses in a profile.
namespace KestrelPlatformTest
{
namespace
{

struct SProfiledAccess
{
    const char* pszName;
    uint32_t nGlobal;
    uint32_t nLocal;
    uint32_t nWords;                    ///< of the store
    bool bHalf;                         ///< only every other work-item takes part
    uint32_t (*pfOffset)(uint32_t nId); ///< in bytes, as the text computes it
    const char* pszOffset;              ///< puts it into r1.x
};

const SProfiledAccess s_ProfiledAccesses[] = {
    {"side by side", 200, 100, 1, false, [](uint32_t n) { return n * 4; }, "ishl r1.x, r100.x, l1.x\n"},
    {"four words each", 300, 300, 4, false, [](uint32_t n) { return n * 16; }, "ishl r1.x, r100.x, l1.y\n"},
    {"a line each", 256, 64, 1, false, [](uint32_t n) { return n * 64; }, "ishl r1.x, r100.x, l1.z\n"},
    {"more than a line apart", 192, 192, 4, false, [](uint32_t n) { return n * 68; }, "imul r1.x, r100.x, l3.x\n"},
    {"across lines", 64, 64, 4, false, [](uint32_t n) { return n * 64 + 56; },
     "ishl r1.x, r100.x, l1.z\niadd r1.x, r1.x, l2.x\n"},
    {"all in one place", 128, 128, 1, false, [](uint32_t) { return 8u; }, "mov r1.x, l2.y\n"},
    {"scattered", 512, 256, 1, false, [](uint32_t n) { return (n * 2654435761u & 0x3FF) * 4; },
     "umul r1.x, r100.x, l2.z\niand r1.x, r1.x, l2.w\nishl r1.x, r1.x, l1.x\n"},
    {"backwards, every other one", 256, 32, 1, true, [](uint32_t n) { return (1023 - n) * 4; },
     "inegate r1.x, r100.x\niadd r1.x, r1.x, l2.w\nishl r1.x, r1.x, l1.x\n"},
};

struct SExpected
{
    uint64_t nBytes = 0;
    uint64_t nWaves = 0;
    uint64_t nLines = 0;
};

SExpected Model(const SProfiledAccess& access)
{
    SExpected expected;
    for (uint32_t nGroup = 0; nGroup < access.nGlobal; nGroup += access.nLocal)
    {
        for (uint32_t nWave = nGroup; nWave < nGroup + access.nLocal; nWave += 64)
        {
            std::set<uint32_t> lines;
            for (uint32_t n = nWave; n < std::min(nWave + 64, nGroup + access.nLocal); ++n)
            {
                for (uint32_t nByte = 0; nByte < access.nWords * 4 && (!access.bHalf || n % 2 == 1);
                     ++nByte, ++expected.nBytes)
                {
                    lines.insert((CKernelRun::s_nOutput + access.pfOffset(n) + nByte) / 64);
                }
            }
            ++expected.nWaves;
            expected.nLines += lines.size();
        }
    }
    return expected;
}

TEST(Profile, TellsBytesAndLinesOfAccesses)
{
    for (const SProfiledAccess& access : s_ProfiledAccesses)
    {
        SCOPED_TRACE(access.pszName);
        const std::string strMask = access.nWords == 4 ? "" : ".x";
        CKernelRun run(std::string(IndexLines()) + access.pszOffset + "iadd r1.x, r1.x, cb1[0].x\n" +
                           (access.bHalf ? "iand r2.x, r100.x, l1.w\nif_logicalnz r2.x\n" : "") +
                           "uav_raw_store_id(11) mem0" + (access.nWords == 4 ? ".xyzw" : ".x") + ", r1.x, r100\n" +
                           "uav_raw_load_id(11) r3" + strMask + ", r1.x\n" + (access.bHalf ? "endif\n" : ""),
                       std::string(IndexLiterals()) + "dcl_literal l1, 2, 4, 6, 1\ndcl_literal l2, 56, 8, 2654435761, "
                                                      "1023\ndcl_literal l3, 68, 0, 0, 0\ndcl_raw_uav_id(11)\n");
        run.SetSize(access.nGlobal, access.nLocal);
        run.vOutput.assign(16384, 0);
        run.launch.bKeepProfile = true;
        const KestrelPlatform::SLaunchResult result = run.Run();
        EXPECT_EQ(result.nBadAccesses, 0u);
        SPlatformProfile sum = {};
        for (const SPlatformProfile& row : result.vProfile)
        {
            // The load accesses the same memory as the store.
            sum.nStored[0] += row.nStored[0];
            sum.nLoaded[0] += row.nLoaded[0];
            sum.nAccesses += row.nAccesses;
            sum.nLines += row.nLines;
        }
        const SExpected expected = Model(access);
        EXPECT_EQ(sum.nStored[0], expected.nBytes);
        EXPECT_EQ(sum.nLoaded[0], expected.nBytes);
        EXPECT_EQ(sum.nAccesses, expected.nWaves * 2);
        EXPECT_EQ(sum.nLines, expected.nLines * 2);
    }
}

} // namespace
} // namespace KestrelPlatformTest
