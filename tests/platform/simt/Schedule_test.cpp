#include "platform/simt/Schedule.h"

#include <vector>

#include "tests/platform/simt/RecordedLaunch.h"

namespace KestrelPlatformTest
{
namespace
{

using KestrelPlatform::CSchedule;
using KestrelPlatform::SLaunchResult;

TEST(Schedule, EveryPieceHasItsTurn)
{
    size_t nInOrder = 0;
    for (uint64_t nPieces = 1; nPieces < 200; ++nPieces)
    {
        for (const uint64_t nSeed : {uint64_t(1), uint64_t(2), uint64_t(77), ~uint64_t(0)})
        {
            const CSchedule schedule(nSeed, nPieces);
            std::vector<uint32_t> vTurns(nPieces, 0);
            bool bInOrder = true;
            for (uint64_t n = 0; n < nPieces; ++n)
            {
                ++vTurns[schedule.Piece(n)];
                bInOrder = bInOrder && schedule.Piece(n) == n;
            }
            EXPECT_EQ(vTurns, std::vector<uint32_t>(nPieces, 1)) << nSeed << ", " << nPieces;
            nInOrder += bInOrder ? 1 : 0;
        }
    }
    // Only by chance, and for launches with one piece.
    EXPECT_LT(nInOrder, 20u);
}

TEST(Schedule, AShakenLaunchRunsEveryGroupOnce)
{
    const uint32_t nItems = 10000;
    for (uint64_t nSeed = 0; nSeed < 8; ++nSeed)
    {
        CKernelRun run("ishl r1.x, vAbsTidFlat.x, l0.x\niadd r1.x, r1.x, cb1[0].x\nuav_add_id(11) r1.x, l0.y\n",
                       "dcl_literal l0, 2, 1, 0, 0\n");
        run.SetSize(nItems, 100);
        run.vOutput.assign(nItems, 0);
        run.launch.nSchedule = nSeed;
        EXPECT_EQ(run.Run().eStatus, SLaunchResult::Complete);
        EXPECT_TRUE(run.vOutput == std::vector<uint32_t>(nItems, 1)) << nSeed;
    }
}

} // namespace
} // namespace KestrelPlatformTest
