#include "platform/simt/PendingAdds.h"

#include <cstring>
#include <numeric>

#include "tests/platform/simt/RecordedLaunch.h"

namespace KestrelPlatformTest
{
namespace
{

using KestrelPlatform::CPendingAdds;
using KestrelPlatform::SLaunchResult;

/// A work-item adds 5 to a word that holds 0x100, does something else, and stores the result of that after it.
struct SOwnAddCase
{
    const char* pszAfter;
    uint32_t nWord;
    uint32_t nLearned;
};

const SOwnAddCase s_OwnAdds[] = {
    {"uav_raw_load_id(11) r0.x, r100.y\n", 0x105, 0x105},
    {"uav_byte_load_id(11) r0.x, r100.y\n", 0x105, 5},
    {"uav_read_add_id(11) r0.x, r100.y, l0.y\n", 0x106, 0x105},
    {"uav_and_id(11) r100.y, l0.y\nuav_raw_load_id(11) r0.x, r100.y\n", 1, 1},
    {"uav_raw_store_id(11) mem0.x, r100.y, l0.z\nuav_raw_load_id(11) r0.x, r100.y\n", 2, 2},
    {"uav_byte_store_id(11) mem0.x, r100.y, l0.z\nuav_raw_load_id(11) r0.x, r100.y\n", 0x102, 0x102},
    // A load that is partly outside goes lane by lane.
    {"iadd r2.x, r100.y, l0.w\nuav_raw_load_id(11) r1, r2.x\nuav_raw_load_id(11) r0.x, r100.y\n", 0x105, 0x105},
};

TEST(PendingAdds, AWorkItemSeesItsOwnAdditions)
{
    for (const SOwnAddCase& test : s_OwnAdds)
    {
        CKernelRun run(IndexLines() +
                           std::string("uav_raw_store_id(11) mem0.x, r100.y, l1.x\n"
                                       "uav_add_id(11) r100.y, l1.y\n") +
                           test.pszAfter + "iadd r3.x, r100.y, l1.z\nuav_raw_store_id(11) mem0.x, r3.x, r0.x\n",
                       IndexLiterals() + std::string("dcl_literal l0, 0, 1, 2, 8\ndcl_literal l1, 0x100, 5, 4, 0\n"));
        run.SetSize(1, 1);
        run.vOutput.assign(4, 0);
        EXPECT_EQ(run.Run().eStatus, SLaunchResult::Complete) << test.pszAfter;
        EXPECT_EQ(run.vOutput[0], test.nWord) << test.pszAfter;
        EXPECT_EQ(run.vOutput[1], test.nLearned) << test.pszAfter;
    }
}

/// The places of a work-item's three additions, in words: close together, on either side of the held ones, too far
/// apart for one instruction, past the end.
TEST(PendingAdds, NothingIsLostWhereverTheWordsLie)
{
    const uint32_t nItems = 20000;
    const uint32_t nMultipliers[] = {0, 1, 7, 997, 65537};
    for (const uint32_t nMultiplier : nMultipliers)
    {
        CKernelRun run("imul r1.x, vAbsTidFlat.x, cb1[2].x\nand r1.x, r1.x, l0.x\nishl r1.x, r1.x, l0.y\n"
                       "iadd r1.x, r1.x, cb1[0].x\nuav_add_id(11) r1.x, l0.z\niadd r2.x, cb1[0].x, l0.w\n"
                       "uav_add_id(11) r2.x, l0.z\nuav_add_id(11) r1.x, vAbsTidFlat.x\n",
                       "dcl_literal l0, 0x1FFF, 2, 1, 0x7FFC\n");
        run.SetSize(nItems, 100);
        run.vOutput.assign(0x1800, 0);
        run.launch.vConstantBuffer1.assign(32, 0);
        run.launch.vConstantBuffer1[8] = nMultiplier;
        const SLaunchResult result = run.Run();
        std::vector<uint32_t> vExpected(0x2000, 0);
        for (uint32_t n = 0; n < nItems; ++n)
        {
            vExpected[n * nMultiplier & 0x1FFF] += n + 1;
            ++vExpected[0x1FFF];
        }
        vExpected.resize(run.vOutput.size());
        EXPECT_TRUE(run.vOutput == vExpected) << nMultiplier;
        EXPECT_GE(result.nBadAccesses, nItems) << nMultiplier;
    }
}

TEST(PendingAdds, ALoopWaitsForThemOnlySoLong)
{
    std::vector<uint32_t> vWords(1024);
    std::iota(vWords.begin(), vWords.end(), 0);
    unsigned char* const pFirst = reinterpret_cast<unsigned char*>(vWords.data());
    CPendingAdds pending(3);
    unsigned char* const pSum = pending.Hold(pFirst + 8, pFirst + 400);
    ASSERT_NE(pSum, nullptr);
    const uint32_t nSum = 50;
    std::memcpy(pSum + 392, &nSum, sizeof nSum);
    EXPECT_TRUE(pending.Meets(pFirst + 400, 1));
    EXPECT_FALSE(pending.Meets(pFirst + 7, 1));
    EXPECT_EQ(vWords[100], 100u);
    for (int n = 0; n < 10000; ++n)
    {
        pending.Pass();
    }
    EXPECT_EQ(vWords[100], 150u);
    EXPECT_FALSE(pending.Meets(pFirst + 400, 1));
    pending.Flush();
    EXPECT_EQ(vWords[100], 150u);
    EXPECT_EQ(pending.Hold(pFirst, pFirst + 4096), nullptr) << "further apart than is held";
}

} // namespace
} // namespace KestrelPlatformTest
