#include "tools/session/debug/CodeMap.h"
#include "tools/session/debug/Picture.h"
#include "tools/session/debug/Statistics.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

using namespace KestrelTool;

namespace
{

SExtent MakeExtent(size_t nX, size_t nY, size_t nZ)
{
    SExtent extent;
    extent.nDimensions = nZ != 1 ? 3 : nY != 1 ? 2 : 1;
    extent.nGlobal[0] = nX;
    extent.nGlobal[1] = nY;
    extent.nGlobal[2] = nZ;
    return extent;
}

} // namespace

TEST(Picture, FitsAndHoldsEveryWorkItemOnce)
{
    const size_t extents[][3] = {{1, 1, 1},    {70, 1, 1},     {71, 1, 1}, {1000003, 1, 1}, {70, 20, 1},  {71, 21, 1},
                                 {3, 5000, 1}, {1024, 768, 1}, {4, 2, 2},  {33, 17, 9},     {2, 2, 1000}, {1, 1, 64}};
    for (const auto& size : extents)
    {
        const SExtent extent = MakeExtent(size[0], size[1], size[2]);
        const SLayout layout = MakeLayout(extent, 70, 20);
        const std::string strSize =
            std::to_string(size[0]) + " x " + std::to_string(size[1]) + " x " + std::to_string(size[2]);
        EXPECT_LE(layout.nColumns, 70u) << strSize;
        EXPECT_LE((layout.nRows + (layout.nSlices > 1 ? 1 : 0)) * layout.nSlices, 20u) << strSize;
        std::vector<size_t> vItems(layout.Count());
        size_t nNext = 0;
        ForEachRun(extent, layout,
                   [&](size_t nCell, size_t nFirst, size_t nCount)
                   {
                       ASSERT_LT(nCell, vItems.size()) << strSize;
                       EXPECT_EQ(nFirst, nNext) << strSize;
                       nNext = nFirst + nCount;
                       vItems[nCell] += nCount;
                   });
        EXPECT_EQ(nNext, extent.Count()) << strSize;
        for (const size_t nItems : vItems)
        {
            EXPECT_LE(nItems, layout.cell[0] * layout.cell[1] * layout.cell[2]) << strSize;
        }
    }
}

TEST(Picture, ShowsEachWorkItemWhereThereIsRoom)
{
    EXPECT_EQ(MakeLayout(MakeExtent(70, 20, 1), 70, 20).Count(), 1400u);
    EXPECT_EQ(MakeLayout(MakeExtent(1280, 1, 1), 70, 20).cell[0], 1u);
    EXPECT_EQ(MakeLayout(MakeExtent(4, 2, 2), 70, 20).Count(), 16u);
}

TEST(Statistics, AgreeWithWhatIsCountedByHand)
{
    const double fNaN = std::numeric_limits<double>::quiet_NaN();
    const double fInfinity = std::numeric_limits<double>::infinity();
    const SStatistics some = WorkOutStatistics({3, -1, fNaN, 3, 0.0, -0.0, fNaN});
    EXPECT_EQ(some.nCount, 7u);
    EXPECT_EQ(some.nNaN, 2u);
    EXPECT_EQ(some.nDistinct, 4u); // 3, -1, 0, NaN
    EXPECT_EQ(some.fMinimum, -1);
    EXPECT_EQ(some.fMaximum, 3);
    EXPECT_EQ(some.fMean, 1);
    EXPECT_EQ(some.histogram[0], 1u);
    EXPECT_EQ(some.histogram[2], 2u);
    EXPECT_EQ(some.histogram[9], 2u);

    const SStatistics infinite = WorkOutStatistics({fInfinity, 1, 2, -fInfinity});
    EXPECT_EQ(infinite.fMaximum, fInfinity);
    EXPECT_EQ(infinite.fLow, 1);
    EXPECT_EQ(infinite.fHigh, 2);
    EXPECT_TRUE(std::isnan(infinite.fMean));

    EXPECT_TRUE(std::isnan(WorkOutStatistics({}).fMinimum));
    EXPECT_EQ(WorkOutStatistics({5, 5}).histogram[0], 2u);
}

TEST(Statistics, CountManyDistinctValues)
{
    std::mt19937 engine(7);
    std::vector<double> vValues;
    std::set<double> distinct;
    for (int i = 0; i < 50000; ++i)
    {
        vValues.push_back(static_cast<double>(engine() % 20000) - 300);
        distinct.insert(vValues.back());
    }
    EXPECT_EQ(WorkOutStatistics(vValues).nDistinct, distinct.size());
}

TEST(CodeMap, FindsFunctionsCallsAndBlocks)
{
    const CListing listing({"il_cs_2_0",
                            "call 1024",
                            "endmain",
                            "func 1024",
                            ";__OpenCL_k_kernel",
                            "whileloop",
                            "break_logicalnz r0.x",
                            "if_logicalnz r1.x",
                            "call 1025",
                            "else",
                            "mov r0, r1",
                            "endif",
                            "endloop",
                            "ret",
                            "endfunc",
                            "func 1025",
                            ";helper",
                            "mov r2, r3",
                            "ret",
                            "endfunc",
                            "end"});
    const CCodeMap code(listing);
    ASSERT_EQ(code.GetFunctions().size(), 2u);
    EXPECT_EQ(code.GetFirstStop(), 5u);
    EXPECT_EQ(code.FindName("k")->nLabel, 1024u);
    EXPECT_EQ(code.FindName("helper")->vCallLines, std::vector<unsigned int>{8});
    EXPECT_EQ(code.FindFunction(17)->nLabel, 1025u);
    EXPECT_EQ(code.FindFunction(1), nullptr);
    // A line in a called function counts as part of the loop that calls it.
    EXPECT_EQ(code.FindLoopHeads({17}), std::set<unsigned int>{6});
    EXPECT_EQ(code.FindLoopHeads({13}), std::set<unsigned int>{});
    EXPECT_EQ(code.FindInsides({11, 13}), std::set<unsigned int>{8});
    EXPECT_EQ(code.FindInsides({9, 12}), (std::set<unsigned int>{6, 8}));
}
