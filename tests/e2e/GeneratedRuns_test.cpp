#include "tests/e2e/ContinueChecker.h"
#include "tests/e2e/DebugFunctions.h"
#include "tests/e2e/ExampleList.h"
#include "tests/e2e/KernelGenerator.h"
#include "tests/e2e/Seeds.h"
#include "tests/support/Stride.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>

using namespace KestrelTest;
using namespace KestrelTool;

namespace
{

const SSeeds s_RunSeeds = {240, 25, 10};

bool DirectsFlow(const std::string& strMnemonic)
{
    static const char* const s_Words[] = {"if",   "else",    "end",  "while", "break", "continue", "switch",
                                          "case", "default", "call", "mcall", "ret",   "func"};
    return std::any_of(std::begin(s_Words), std::end(s_Words),
                       [&](const char* pszWord) { return strMnemonic.rfind(pszWord, 0) == 0; });
}

/// The lines of the kernel's function and its callees, after the frame common to all kernels.
std::vector<unsigned int> GetBodyLines(const CListing& listing, bool bFlow)
{
    std::vector<unsigned int> vLines;
    for (unsigned int nLine = listing.GetEntry(); nLine != CListing::NoLine; nLine = listing.GetNextInstruction(nLine))
    {
        const std::string strMnemonic = listing.GetMnemonic(nLine);
        if (strMnemonic != "end" && strMnemonic != "func" && (bFlow || !DirectsFlow(strMnemonic)))
        {
            vLines.push_back(nLine);
        }
    }
    return vLines;
}

struct SOutcome
{
    std::vector<std::string> vFindings;
    size_t nStops = 0;
    size_t nCounted = 0;
};

std::vector<std::vector<unsigned char>> ReadOutputs(const CLaunch& launch)
{
    std::vector<std::vector<unsigned char>> vOutputs;
    for (size_t i = 0; i < launch.GetFile().vArguments.size(); ++i)
    {
        const SArgument::EKind eKind = launch.GetFile().vArguments[i].eKind;
        if (eKind == SArgument::Buffer || eKind == SArgument::Image)
        {
            vOutputs.push_back(launch.ReadContents(i));
        }
    }
    return vOutputs;
}

/// Runs a launch from breakpoint to breakpoint.
/// \param bMaySkip  the rules of stepping may skip code that some work-items still run
SOutcome RunWithBreakpoints(const SLaunchFile& file, bool bMaySkip, CContinueChecker::SPlan plan, uint32_t nSeed,
                            unsigned int nBreakpoints)
{
    const CLibraries& libraries = GetLibraries();
    CLaunch launch(libraries, file);
    CItemHistory history(launch.GetWorkItems());
    history.Record(GetPlatformControl(libraries), [&] { launch.Run(); });
    const std::vector<std::vector<unsigned char>> vOutputs = ReadOutputs(launch);

    launch.ResetContents();
    const CStepRecord record(libraries, launch, history);

    std::mt19937 engine(nSeed);
    const std::vector<unsigned int> vLines = GetBodyLines(record.GetListing(), !bMaySkip);
    for (unsigned int i = 0; i < nBreakpoints; ++i)
    {
        plan.setLines.insert(vLines[engine() % vLines.size()]);
    }
    launch.ResetContents();
    CContinueChecker checker(plan, history, bMaySkip ? nullptr : &record, nSeed);
    const cl_int nCode = RunSession(libraries, launch, checker);

    SOutcome outcome = {checker.GetFindings(), checker.GetStops(), checker.GetCountedRuns()};
    if (nCode != CL_SUCCESS || !checker.IsFinished())
    {
        outcome.vFindings.push_back("the session gave " + std::to_string(nCode));
    }
    if (ReadOutputs(launch) != vOutputs)
    {
        outcome.vFindings.push_back("the outputs differ from a plain launch's");
    }
    if (!outcome.vFindings.empty())
    {
        std::string strLines = "breakpoints on";
        for (const unsigned int nLine : plan.setLines)
        {
            strLines += " " + std::to_string(nLine);
        }
        outcome.vFindings.push_back(strLines);
    }
    return outcome;
}

std::string Join(const std::vector<std::string>& vTexts)
{
    std::string strJoined;
    for (const std::string& strText : vTexts)
    {
        strJoined += strText + "\n";
    }
    return strJoined;
}

} // namespace

/// KESTREL_SEEDS sets the number of kernels, KESTREL_SEED the first one.
TEST(GeneratedRuns, EveryContinueStopsWhereThePlainRunSaysWithItsValues)
{
    const uint32_t nFirst = FromEnvironment("KESTREL_SEED", 1);
    const uint32_t nSeeds = CountSeeds(s_RunSeeds);
    unsigned int nFailed = 0;
    size_t nStops = 0;
    size_t nCounted = 0;
    for (uint32_t nSeed = nFirst; nSeed < nFirst + nSeeds && nFailed < 5; ++nSeed)
    {
        const SGeneratedKernel kernel = CKernelGenerator(nSeed).Generate();
        CContinueChecker::SPlan plan;
        plan.setAddresses = {"r2"};
        plan.bCheckCosts = true;
        plan.nStepPercent = kernel.bMaySkip ? 0 : 20;
        if (nSeed % 3 == 0)
        {
            plan.vTracked = {"r9", "r10", "r12", "x1[0]"};
        }
        const SOutcome outcome = RunWithBreakpoints(kernel.launch, kernel.bMaySkip, plan, nSeed, 1 + nSeed % 4);
        nStops += outcome.nStops;
        nCounted += outcome.nCounted;
        if (!outcome.vFindings.empty())
        {
            ++nFailed;
            ADD_FAILURE() << "seed " << nSeed << (kernel.bMaySkip ? " (stepping may skip)" : "") << "\n"
                          << Join(outcome.vFindings) << (nSeeds == 1 ? kernel.launch.strSource : "")
                          << "replay: KESTREL_SEED=" << nSeed << " KESTREL_SEEDS=1 " << ReplayCommand();
        }
    }
    if (nSeeds > 1)
    {
        EXPECT_GT(nStops, nSeeds) << "most breakpoints weren't met";
        // With only a few kernels there may be none.
        if (nSeeds >= 100)
        {
            EXPECT_GT(nCounted, nSeeds / 10) << "few continues went without deciding flow";
        }
    }
}

namespace
{

class ExampleRuns : public testing::TestWithParam<std::string>
{
};

} // namespace

TEST_P(ExampleRuns, EveryContinueStopsWhereThePlainRunSaysWithItsValues)
{
    const SLaunchFile file = ReadLaunchFile(GetExamplePath(GetParam()));
    const uint32_t nRounds = s_bSanitized ? 1 : 4;
    for (uint32_t nSeed = 1; nSeed <= nRounds; ++nSeed)
    {
        CContinueChecker::SPlan plan;
        plan.bAnyAddress = true;
        plan.nStepPercent = nSeed * 10;
        const SOutcome outcome = RunWithBreakpoints(file, false, plan, nSeed, 1 + nSeed);
        EXPECT_TRUE(outcome.vFindings.empty()) << "round " << nSeed << "\n" << Join(outcome.vFindings);
    }
}

INSTANTIATE_TEST_SUITE_P(All, ExampleRuns, testing::ValuesIn(ListSomeExamples()), GetExampleTestName);
