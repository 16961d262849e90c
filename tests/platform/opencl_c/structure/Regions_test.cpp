#include "platform/opencl_c/structure/Regions.h"

#include <functional>
#include <random>
#include <set>
#include <sstream>

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

/// Checks that the steps have each block once, and follow the same paths as the function for any conditions.
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

/// Parameters of random graphs.
struct SGraphKind
{
    const char* pszName;
    int nMaxBlocks;
    int nReach;       ///< how many blocks a jump goes forward at most
    int nBackPercent; ///< share of jumps that lead back
    int nSwitchPercent;
    int nEndPercent; ///< share of blocks that return
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
            const bool bWide = Below(4) == 0;
            block.nSwitchBits = bWide ? 64 : 32;
            block.vTargets.push_back(Target());
            for (int nCase = Below(6); nCase > 0; --nCase)
            {
                block.vCases.push_back(nCase + (bWide ? static_cast<int64_t>(Below(3)) << 32 : 0));
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
    const unsigned int nGraphs = GetParam().nMaxBlocks > 100 ? 200 : 1200;
    for (unsigned int nSeed = 1; nSeed <= nGraphs && !HasFatalFailure(); ++nSeed)
    {
        SCOPED_TRACE("seed " + std::to_string(nSeed));
        CheckPaths(RandomGraph(GetParam(), nSeed), 12);
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, RandomGraphs, testing::ValuesIn(s_GraphKinds),
                         [](const auto& test) { return std::string(test.param.pszName); });

namespace
{

struct SShape
{
    const char* pszName;
    const char* pszGraph;
    const char* pszSteps; ///< without blanks at the start of lines
};

const SShape s_Shapes[] = {
    {"ifElse", "a?b:c b>d c>d d.", "block %a\nif %a\nblock %b\nelse\nblock %c\nendif\nblock %d\nreturn\n"},
    {"onlyElse", "a?d:b b>d d.", "block %a\nif not %a\nblock %b\nendif\nblock %d\nreturn\n"},
    {"armsAlike", "a?b:b b.", "block %a\nblock %b\nreturn\n"},
    {"copiesOnBothArms", "a?d:d d*.", "block %a\nedge %a %d\nblock %d\nreturn\n"},
    {"whileLoop", "a>h h?b:x b>h x.",
     "block %a\nloop\nblock %h\nif not %h\nbreak\nendif\nblock %b\nendloop\nblock %x\nreturn\n"},
    {"leavesFromTheMiddle", "a>h h?b:x b?c:l c>x l>h x.",
     "block %a\nloop\nblock %h\nif not %h\nbreak\nendif\nblock %b\nif %b\nblock %c\nbreak\nendif\nblock "
     "%l\nendloop\nblock %x\nreturn\n"},
    {"barrierOnTheWayOut", "a>h h?b:x b?c:l c!>x l>h x.",
     "block %a\nset g0 false\nloop\nblock %h\nif not %h\nbreak\nendif\nblock %b\nif %b\nset g0 "
     "true\nbreak\nendif\nblock %l\nendloop\nif g0\nblock %c\nendif\nblock %x\nreturn\n"},
    {"returnFromALoop", "a>h h?b:y b?c:l c>x l>h y>x x.",
     "block %a\nset g0 true\nloop\nblock %h\nif not %h\nbreak\nendif\nblock %b\nif %b\nblock %c\nset g0 "
     "false\nbreak\nendif\nblock %l\nendloop\nif g0\nblock %y\nendif\nblock %x\nreturn\n"},
    {"returnsMeetAtTheEnd", "a?b:c b. c?d:e d. e.",
     "block %a\nif %a\nblock %b\nelse\nblock %c\nif %c\nblock %d\nelse\nblock %e\nendif\nendif\nreturn\n"},
    {"shortCircuit", "a?b:n b?y:n y>x n>x x.",
     "set g0 true\nblock %a\nif %a\nblock %b\nif %b\nblock %y\nset g0 false\nendif\nendif\nif g0\nblock "
     "%n\nendif\nblock %x\nreturn\n"},
    {"outOfTwoLoops", "a>h h?i:x i?b:l b?x:i l>h x.",
     "block %a\nloop\nblock %h\nif not %h\nbreak\nendif\nset g0 false\nloop\nblock %i\nif not %i\nbreak\nendif\nblock "
     "%b\nif %b\nset g0 true\nbreak\nendif\nendloop\nif g0\nbreak\nendif\nblock %l\nendloop\nblock %x\nreturn\n"},
    {"continues", "h>i i?b:x b?i:l l>i x.",
     "block %h\nloop\nblock %i\nif not %i\nbreak\nendif\nblock %b\nif not %b\nblock %l\nendif\nendloop\nblock "
     "%x\nreturn\n"},
    {"fallsIntoTheNextCase", "a[1:b 2:c 3:d x] b>c c*>x d>x x.",
     "block %a\nedge %a %c\nswitch %a\ncase 1\nblock %b\nedge %b %c\ncase 2\nblock %c\nbreak\ncase 3\nblock "
     "%d\nendswitch\nblock %x\nreturn\n"},
    {"defaultInTheMiddle", "a[1:b 2:d c] b>x c>d d>x x.",
     "block %a\nswitch %a\ncase default\nblock %c\ncase 2\nblock %d\nbreak\ncase 1\nblock %b\nendswitch\nblock "
     "%x\nreturn\n"},
    {"switchInALoop", "a>h h?s:x s[1:c 2:x l] c>h l>h x.",
     "block %a\nloop\nblock %h\nif not %h\nbreak\nendif\nblock %s\nswitch %s\ncase default\nblock "
     "%l\ncontinue\ncase 1\nblock %c\ncontinue\ncase 2\nendswitch\nbreak\nendloop\nblock %x\nreturn\n"},
    {"twoEntries", "a?b:c b>c c?b:x x.",
     "block %a\nif %a\nset g0 true\nelse\nset g0 false\nendif\nloop\nif g0\nblock %b\nendif\nblock %c\nif not "
     "%c\nbreak\nendif\nset g0 true\nendloop\nblock %x\nreturn\n"},
    {"noWayOut", "a?b:c b>b c.", "block %a\nif %a\nloop\nblock %b\nendloop\nendif\nblock %c\nreturn\n"},
    {"deadBlocks", "a>b b. c>b", "block %a\nblock %b\nreturn\n"},
};

std::string WithoutIndent(const std::string& strText)
{
    std::istringstream stream(strText);
    std::string strResult;
    for (std::string strLine; std::getline(stream >> std::ws, strLine);)
    {
        strResult += strLine + "\n";
    }
    return strResult;
}

class Shapes : public testing::TestWithParam<SShape>
{
};

/// A chain that repeats a pattern nTimes.
std::vector<STestBlock> Repeat(int nTimes, const std::function<void(int, std::vector<STestBlock>&)>& add)
{
    std::vector<STestBlock> vBlocks;
    for (int n = 0; n < nTimes; ++n)
    {
        add(n, vBlocks);
    }
    return vBlocks;
}

STestBlock Block(STestBlock::EKind eKind, std::vector<int> vTargets)
{
    STestBlock block;
    block.eKind = eKind;
    block.vTargets = std::move(vTargets);
    return block;
}

} // namespace

TEST_P(Shapes, ComeOutAsWritten)
{
    const std::vector<STestBlock> vBlocks = CTestGraph::Parse(GetParam().pszGraph);
    CTestGraph graph(vBlocks);
    SRegions regions;
    std::string strWhyNot;
    ASSERT_TRUE(BuildRegions(graph.GetFunction(), regions, strWhyNot));
    EXPECT_EQ(WithoutIndent(PrintRegions(regions)), GetParam().pszSteps);
    CheckPaths(vBlocks, 20);
}

INSTANTIATE_TEST_SUITE_P(Graphs, Shapes, testing::ValuesIn(s_Shapes),
                         [](const auto& test) { return std::string(test.param.pszName); });

TEST(WideSwitches, LeadWhereTheyLed)
{
    STestBlock wide = Block(STestBlock::Switch, {1, 2, 3, 2, 1, 3});
    wide.vCases = {1, 0x100000001, -1, 0x7FFFFFFF00000000, 0};
    wide.nSwitchBits = 64;
    std::vector<STestBlock> vBlocks{wide, Block(STestBlock::Jump, {3}), Block(STestBlock::Jump, {3}), {}};
    vBlocks[1].bPhi = vBlocks[2].bPhi = vBlocks[3].bPhi = true;
    CTestGraph before(vBlocks);
    CTestGraph after(vBlocks);
    SRegions regions;
    std::string strWhyNot;
    ASSERT_TRUE(BuildRegions(after.GetFunction(), regions, strWhyNot));
    const auto Index = [](const llvm::BasicBlock& block)
    {
        const auto& vList = block.getParent()->getBasicBlockList();
        int nIndex = 0;
        for (auto it = vList.begin(); &*it != &block; ++it)
        {
            nIndex += it->getName().startswith("switch.low") ? 0 : 1;
        }
        return nIndex;
    };
    for (uint64_t nValue : {1ULL, 0x100000001ULL, ~0ULL, 0x7FFFFFFF00000000ULL, 0ULL, 2ULL, 0x100000000ULL,
                            0x1FFFFFFFFULL, 0xFFFFFFFF00000001ULL, 0x7FFFFFFF00000001ULL, 0x200000001ULL})
    {
        const llvm::BasicBlock* pNext = NextBlock(after.GetFunction().getEntryBlock(), nValue >> 32);
        while (pNext->getName().startswith("switch.low"))
        {
            pNext = NextBlock(*pNext, nValue & 0xFFFFFFFFU);
        }
        EXPECT_EQ(Index(*pNext), Index(*NextBlock(before.GetFunction().getEntryBlock(), nValue))) << nValue;
    }
    CheckPaths(vBlocks, 30);
}

TEST(NarrowSwitches, BecomeBranches)
{
    struct
    {
        std::vector<int64_t> vCases;
        std::vector<int> vTargets; ///< the default's comes first
    } const switches[] = {{{1, 0}, {3, 1, 2}}, {{0, 1}, {3, 3, 1}}, {{1}, {2, 3}},
                          {{0}, {3, 3}},       {{1, 0}, {1, 3, 3}}, {{}, {3}}};
    for (const auto& each : switches)
    {
        STestBlock narrow = Block(STestBlock::Switch, each.vTargets);
        narrow.vCases = each.vCases;
        narrow.nSwitchBits = 1;
        std::vector<STestBlock> vBlocks{narrow, Block(STestBlock::Jump, {3}), Block(STestBlock::Jump, {3}), {}};
        vBlocks[1].bPhi = vBlocks[2].bPhi = vBlocks[3].bPhi = true;
        CTestGraph before(vBlocks);
        CTestGraph after(vBlocks);
        SRegions regions;
        std::string strWhyNot;
        ASSERT_TRUE(BuildRegions(after.GetFunction(), regions, strWhyNot));
        ASSERT_FALSE(llvm::verifyFunction(after.GetFunction(), &llvm::errs()));
        ASSERT_EQ(PrintRegions(regions).find("switch"), std::string::npos);
        for (const uint64_t nValue : {0, 1})
        {
            const auto Index = [&](CTestGraph& graph)
            {
                const llvm::BasicBlock& entry = graph.GetFunction().getEntryBlock();
                const auto& vList = graph.GetFunction().getBasicBlockList();
                return std::distance(vList.begin(), NextBlock(entry, nValue)->getIterator());
            };
            EXPECT_EQ(Index(after), Index(before)) << nValue;
        }
    }
}

TEST(LargeGraphs, NestDeeply)
{
    const int nTimes = 20000;
    // Nested ifs that all end at one place; conditions joined by &&; loops one after the other.
    CheckPaths(Repeat(nTimes,
                      [&](int n, auto& vBlocks)
                      {
                          vBlocks.push_back(n + 1 < nTimes ? Block(STestBlock::Branch, {n + 1, nTimes - 1})
                                                           : Block(STestBlock::Return, {}));
                      }),
               3);
    CheckPaths(Repeat(nTimes,
                      [&](int n, auto& vBlocks)
                      {
                          vBlocks.push_back(n + 1 < nTimes ? Block(STestBlock::Branch, {std::max(1, n), n + 1})
                                                           : Block(STestBlock::Return, {}));
                      }),
               3);
    // Each block branches to two blocks, which meet again.
    CheckPaths(Repeat(nTimes / 3,
                      [&](int n, auto& vBlocks)
                      {
                          vBlocks.push_back(Block(STestBlock::Branch, {3 * n + 1, 3 * n + 2}));
                          vBlocks.push_back(Block(STestBlock::Jump, {3 * n + 3}));
                          vBlocks.push_back(Block(STestBlock::Jump, {3 * n + 3}));
                          if (n + 1 == nTimes / 3)
                          {
                              vBlocks.push_back(Block(STestBlock::Return, {}));
                          }
                      }),
               3);
}

TEST(LargeGraphs, HaveManyCases)
{
    const int nCases = 5000;
    STestBlock first = Block(STestBlock::Switch, {nCases + 1});
    for (int n = 0; n < nCases; ++n)
    {
        first.vTargets.push_back(n + 1);
        first.vCases.push_back(n);
    }
    std::vector<STestBlock> vBlocks{first};
    for (int n = 0; n < nCases; ++n)
    {
        vBlocks.push_back(Block(STestBlock::Jump, {n % 2 ? n + 2 : nCases + 1}));
    }
    vBlocks.push_back(Block(STestBlock::Return, {}));
    CheckPaths(vBlocks, 3);
}

TEST(Refusals, NameTheJump)
{
    CTestGraph graph(CTestGraph::Parse("a>b b."));
    llvm::BasicBlock& entry = graph.GetFunction().getEntryBlock();
    llvm::BasicBlock* pNext = entry.getSingleSuccessor();
    entry.getTerminator()->eraseFromParent();
    llvm::IRBuilder<> builder(&entry);
    builder.CreateIndirectBr(llvm::BlockAddress::get(pNext), 1)->addDestination(pNext);
    SRegions regions;
    std::string strWhyNot;
    EXPECT_FALSE(BuildRegions(graph.GetFunction(), regions, strWhyNot));
    EXPECT_EQ(strWhyNot, "a jump to a computed place");
}
