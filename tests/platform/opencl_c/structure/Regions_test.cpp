#include "platform/opencl_c/structure/Regions.h"

#include <random>
#include <set>

#include <gtest/gtest.h>

#include "tests/platform/opencl_c/structure/RegionWalk.h"
#include "tests/platform/opencl_c/structure/TestGraph.h"
#include "llvm/IR/Verifier.h"
#include "llvm/Support/raw_ostream.h"

using namespace KestrelOpenCL;
using namespace KestrelTests;

namespace
{

std::set<const llvm::BasicBlock*> Reachable(const llvm::Function& function)
{
    std::set<const llvm::BasicBlock*> setFound{&function.getEntryBlock()};
    std::vector<const llvm::BasicBlock*> vOpen{&function.getEntryBlock()};
    while (!vOpen.empty())
    {
        const llvm::BasicBlock* pBlock = vOpen.back();
        vOpen.pop_back();
        for (const llvm::BasicBlock* pNext : llvm::successors(pBlock))
        {
            if (setFound.insert(pNext).second)
            {
                vOpen.push_back(pNext);
            }
        }
    }
    return setFound;
}

std::string Text(const llvm::Function& function, const SRegions& regions)
{
    std::string strText;
    llvm::raw_string_ostream stream(strText);
    function.print(stream);
    return stream.str() + PrintRegions(regions);
}

/// The steps have each block once, and walk the same paths as the function, whatever the conditions are.
void CheckPaths(const std::vector<STestBlock>& vBlocks, unsigned int nWalks)
{
    CTestGraph graph(vBlocks);
    llvm::Function& function = graph.GetFunction();
    SRegions regions;
    std::string strWhyNot;
    ASSERT_TRUE(BuildRegions(function, regions, strWhyNot)) << strWhyNot;
    ASSERT_FALSE(llvm::verifyFunction(function, &llvm::errs()));
    CRegionWalk regionWalk(regions);
    ASSERT_EQ(regionWalk.GetShapeFault(), "") << Text(function, regions);
    ASSERT_EQ(regionWalk.GetBlocks(), Reachable(function)) << Text(function, regions);
    for (unsigned int nSeed = 0; nSeed < nWalks; ++nSeed)
    {
        const SWalk expected = WalkFunction(function, nSeed, 300);
        const SWalk got = regionWalk.Run(nSeed, 300);
        ASSERT_EQ(got.strFault, "") << "walk " << nSeed << "\n" << Text(function, regions);
        ASSERT_EQ(got.vBlocks, expected.vBlocks) << "walk " << nSeed << "\n" << Text(function, regions);
        ASSERT_EQ(got.bEnded, expected.bEnded) << "walk " << nSeed << "\n" << Text(function, regions);
    }
}

/// What random graphs look like.
struct SGraphKind
{
    const char* pszName;
    int nMaxBlocks;
    int nReach;       ///< jumps go at most so many blocks forward
    int nBackPercent; ///< of jumps lead back
    int nSwitchPercent;
    int nEndPercent; ///< of blocks return
};

const SGraphKind s_GraphKinds[] = {
    {"small", 6, 6, 35, 10, 10},        {"any", 14, 14, 30, 10, 8},     {"forward", 24, 8, 0, 15, 3},
    {"loops", 24, 4, 35, 5, 2},         {"switches", 20, 6, 15, 45, 3}, {"endless", 12, 12, 50, 10, 0},
    {"nearlyStraight", 60, 2, 8, 5, 1}, {"large", 200, 12, 20, 10, 1},  {"manyReturns", 30, 6, 15, 10, 30},
};

std::vector<STestBlock> RandomGraph(const SGraphKind& kind, unsigned int nSeed)
{
    std::mt19937 random(nSeed);
    const auto Below = [&](int n) { return static_cast<int>(random() % static_cast<unsigned int>(n)); };
    const int nBlocks = 2 + Below(kind.nMaxBlocks - 1);
    std::vector<STestBlock> vBlocks(static_cast<size_t>(nBlocks));
    for (int n = 0; n < nBlocks; ++n)
    {
        STestBlock& block = vBlocks[static_cast<size_t>(n)];
        const auto Target = [&]
        {
            const bool bBack = n > 0 && Below(100) < kind.nBackPercent;
            const int nTarget = bBack ? 1 + Below(n) : n + 1 + Below(kind.nReach);
            return std::max(1, std::min(nTarget, nBlocks - 1));
        };
        block.bPhi = Below(2) == 0;
        const int nKind = Below(100);
        if (nKind < kind.nEndPercent || (kind.nBackPercent == 0 && n == nBlocks - 1))
        {
            block.eKind = Below(8) == 0 ? STestBlock::Unreachable : STestBlock::Return;
        }
        else if (nKind < kind.nEndPercent + kind.nSwitchPercent)
        {
            block.eKind = STestBlock::Switch;
            block.bWide = Below(4) == 0;
            block.vTargets.push_back(Target());
            for (int nCase = Below(6); nCase > 0; --nCase)
            {
                block.vCases.push_back(nCase + (block.bWide ? static_cast<int64_t>(Below(3)) << 32 : 0));
                block.vTargets.push_back(Target());
            }
        }
        else if (nKind < 80)
        {
            block.eKind = STestBlock::Branch;
            block.vTargets = {Target(), Target()};
        }
        else
        {
            block.eKind = STestBlock::Jump;
            block.vTargets = {Target()};
        }
    }
    return vBlocks;
}

class RandomGraphs : public testing::TestWithParam<SGraphKind>
{
};

} // namespace

TEST_P(RandomGraphs, WalkTheSamePaths)
{
    const unsigned int nGraphs = GetParam().nMaxBlocks > 100 ? 300 : 2000;
    for (unsigned int nSeed = 1; nSeed <= nGraphs && !HasFatalFailure(); ++nSeed)
    {
        SCOPED_TRACE("seed " + std::to_string(nSeed));
        CheckPaths(RandomGraph(GetParam(), nSeed), 12);
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, RandomGraphs, testing::ValuesIn(s_GraphKinds),
                         [](const auto& info) { return std::string(info.param.pszName); });
