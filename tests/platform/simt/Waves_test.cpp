#include "tests/platform/simt/RecordedLaunch.h"

namespace KestrelPlatformTest
{
namespace
{

using namespace KestrelPlatform;

/// Each work-item's r0 after the body. r100.x holds its linear index.
std::vector<uint32_t> RunBody(const std::string& strBody, size_t nItems, size_t nLocal)
{
    CKernelRun run(std::string(IndexLines()) + strBody + "uav_raw_store_id(11) mem0, r100.y, r0\n",
                   std::string(IndexLiterals()) + "dcl_literal l0, 0, 1, 2, 3\ndcl_literal l1, 5, 7, 66, 63\n");
    run.SetSize(nItems, nLocal);
    run.vOutput.assign(nItems * 4, 0xCDCDCDCD);
    EXPECT_EQ(run.Run().nBadAccesses, 0u);
    return run.vOutput;
}

/// Group sizes of one short wave, of several groups in a block, of whole waves, and of several blocks.
const uint32_t s_nLocalSizes[] = {5, 24, 64, 100, 256, 700};

TEST(Waves, Numbers)
{
    for (const uint32_t nLocal : s_nLocalSizes)
    {
        const std::vector<uint32_t> vOut = RunBody("lane_id r0.x\nwave_id r0.y\n", nLocal * 3, nLocal);
        for (uint32_t n = 0; n < nLocal * 3; ++n)
        {
            ASSERT_EQ(vOut[n * 4], n % nLocal % 64) << nLocal;
            ASSERT_EQ(vOut[n * 4 + 1], n % nLocal / 64) << nLocal;
        }
    }
}

TEST(Waves, BallotsAndCounts)
{
    // Every third work-item isn't active; of the others, the odd ones vote yes.
    const std::string strBody = "umod r1.x, r100.x, l0.w\nand r1.y, r100.x, l0.y\nif_logicalnz r1.x\n"
                                "ballot r0, r1.yyyy\nmbcnt r0.z, r0.xyyy\nendif\n";
    for (const uint32_t nLocal : s_nLocalSizes)
    {
        const uint32_t nItems = nLocal * 3;
        const std::vector<uint32_t> vOut = RunBody(strBody, nItems, nLocal);
        for (uint32_t n = 0; n < nItems; ++n)
        {
            const uint32_t nGroup = n / nLocal * nLocal;
            const uint32_t nWave = nGroup + (n - nGroup) / 64 * 64;
            uint64_t nBits = 0;
            uint32_t nBelow = 0;
            for (uint32_t i = nWave; i < std::min(nWave + 64, nGroup + nLocal); ++i)
            {
                const bool bVotes = i % 3 != 0 && i % 2 == 1;
                nBits |= bVotes ? 1ull << (i - nWave) : 0;
                nBelow += bVotes && i < n ? 1 : 0;
            }
            const bool bIn = n % 3 != 0;
            ASSERT_EQ(vOut[n * 4], bIn ? static_cast<uint32_t>(nBits) : 0) << nLocal << " " << n;
            ASSERT_EQ(vOut[n * 4 + 1], bIn ? static_cast<uint32_t>(nBits >> 32) : 0) << nLocal << " " << n;
            ASSERT_EQ(vOut[n * 4 + 2], bIn ? nBelow : 0) << nLocal << " " << n;
            ASSERT_EQ(vOut[n * 4 + 3], bIn ? static_cast<uint32_t>(nBits >> 32) : 0) << nLocal << " " << n;
        }
    }
}

TEST(Waves, ReadOtherLanes)
{
    // The lowest active lane is 2; lane 5 is read by a constant, lane "own + 1" differs for each, lane 66 doesn't
    // exist.
    const std::string strBody =
        "mov r1.x, r100.x\nlane_id r2.x\nult r3.x, r2.x, l0.z\niadd r2.y, r2.x, l0.y\n"
        "if_logicalz r3.x\nreadfirstlane r0.x, r1.xxxx\nendif\n"
        "readlane r0.y, r1.xxxx, l1.x\nreadlane r0.z, r1.xxxx, r2.y\nreadlane r0.w, r1.x, l1.z\n";
    for (const uint32_t nLocal : {24u, 100u, 256u})
    {
        const std::vector<uint32_t> vOut = RunBody(strBody, nLocal * 2, nLocal);
        for (uint32_t n = 0; n < nLocal * 2; ++n)
        {
            const uint32_t nGroup = n / nLocal * nLocal;
            const uint32_t nWave = nGroup + (n - nGroup) / 64 * 64;
            const uint32_t nEnd = std::min(nWave + 64, nGroup + nLocal);
            ASSERT_EQ(vOut[n * 4], n < nWave + 2 ? 0 : nWave + 2) << nLocal << " " << n;
            ASSERT_EQ(vOut[n * 4 + 1], nWave + 5) << nLocal << " " << n;
            ASSERT_EQ(vOut[n * 4 + 2], n + 1 < nEnd ? n + 1 : 0) << nLocal << " " << n;
            ASSERT_EQ(vOut[n * 4 + 3], 0u) << nLocal << " " << n;
        }
    }
}

} // namespace
} // namespace KestrelPlatformTest
