#include "tests/e2e/KernelGenerator.h"
#include "tests/e2e/KernelShrinker.h"
#include "tests/e2e/LibrariesFixture.h"
#include "tests/e2e/ReferenceChecker.h"
#include "tests/e2e/Seeds.h"
#include "tools/session/launch/Launch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <memory>

using namespace KestrelTest;
using namespace KestrelTool;

namespace
{

const SSeeds s_PlainSeeds = {60, 30, 5};
const SSeeds s_StopSeeds = {37, 8, 3};
const SSeeds s_OnDemandSeeds = {15, 4, 2};

struct SFamily
{
    const char* pszName;
    SKernelFeatures features;
};

SKernelFeatures Features(const char* pszLetters)
{
    SKernelFeatures features;
    for (const char* p = pszLetters; *p != '\0'; ++p)
    {
        features.bReturns = features.bReturns || *p == 'R' || *p == 'I';
        features.bReturnsIf = features.bReturnsIf || *p == 'I';
        features.bLeaves = features.bLeaves || *p == 'J';
        features.bMemory = features.bMemory || *p == 'G';
        features.bLocal = features.bLocal || *p == 'L';
        features.bAllReading = features.bAllReading || *p == 'A';
        features.bMacros = features.bMacros || *p == 'M';
        features.bMore = true;
        features.bCallsIf = features.bCallsIf || *p == 'C';
        features.bPrivateInMain = features.bPrivateInMain || *p == 'P';
        features.bOlder = features.bOlder || *p == 'O';
    }
    return features;
}

class Reference : public testing::TestWithParam<SFamily>
{
};

/// A launch with the results of the machine and of a plain run.
struct SPlainRun
{
    std::unique_ptr<CLaunch> pLaunch;
    std::unique_ptr<CReferenceRun> pRun;
    std::vector<std::string> vFindings;
};

SPlainRun RunPlainly(const SLaunchFile& file)
{
    // A kernel that doesn't end is refused before the platform runs it.
    const CReferenceRun probe(file, 0x10000);
    const CLibraries& libraries = GetLibraries();
    const SPlatformControl& control = GetPlatformControl(libraries);
    SPlainRun plain;
    plain.pLaunch = std::make_unique<CLaunch>(libraries, file);
    CTraceModel trace(plain.pLaunch->GetWorkItems());
    trace.StartRecording(control);
    plain.pLaunch->Run();
    trace.StopRecording(control);
    plain.pRun = std::make_unique<CReferenceRun>(file, FindBufferAddress(trace, file.strDevice == "Quench", 64));
    plain.vFindings = CompareTrace(*plain.pRun, trace);
    if (plain.pLaunch->ReadContents(0) != plain.pRun->GetFinal().vBuffers[0])
    {
        plain.vFindings.push_back("the outputs differ");
    }
    return plain;
}

/// Debugs a launch. \return the checker's findings, and wrong outputs
std::vector<std::string> Debug(const SPlainRun& plain, CReferenceChecker& checker)
{
    plain.pLaunch->ResetContents();
    const cl_int nCode = RunSession(GetLibraries(), *plain.pLaunch, checker);
    std::vector<std::string> vFindings = checker.GetFindings();
    if (nCode != CL_SUCCESS || !checker.IsFinished())
    {
        vFindings.push_back("the session gave " + std::to_string(nCode));
    }
    if (plain.pLaunch->ReadContents(0) != plain.pRun->GetFinal().vBuffers[0])
    {
        vFindings.push_back("the session's outputs differ");
    }
    return vFindings;
}

/// Some of the lines in front of which there were stops.
std::set<unsigned int> ChooseLines(const std::vector<CReferenceChecker::SStop>& vStops, std::mt19937& engine)
{
    std::set<unsigned int> setLines;
    for (size_t i = 0; i < 1 + engine() % 4 && vStops.size() > 1; ++i)
    {
        setLines.insert(vStops[engine() % (vStops.size() - 1)].nNextLine);
    }
    return setLines;
}

struct STotals
{
    size_t nHalts = 0;
    size_t nRunHalts = 0;
};

/// Steps a kernel, steps it back and forth, and runs it between breakpoints. \return findings
std::vector<std::string> CheckStops(const SLaunchFile& file, uint32_t nSeed, STotals* pTotals, bool bOnDemand = false)
{
    const SPlainRun plain = RunPlainly(file);
    if (!plain.vFindings.empty())
    {
        return {"the plain run differs: " + plain.vFindings[0]};
    }
    std::mt19937 engine(nSeed);
    CReferenceChecker::SPlan plan;
    plan.b64Bit = file.strDevice == "Quench";
    plan.bMemory = FromEnvironment("KESTREL_MEMORY", 1) != 0;
    plan.nBackPercent = FromEnvironment("KESTREL_BACK", 1) != 0 && nSeed % 2 == 0 ? 8 : 0;
    plan.bOnDemand = bOnDemand;
    if (nSeed % 5 == 3 && !bOnDemand)
    {
        plan.vTracked = {"r2", "r10", "r11"};
    }
    CReferenceChecker steps(*plain.pRun, plan, nSeed);
    std::vector<std::string> vFindings = Debug(plain, steps);
    if (pTotals != nullptr)
    {
        pTotals->nHalts += steps.GetHalts();
    }
    if (!vFindings.empty())
    {
        return vFindings;
    }
    plan.nBackPercent = FromEnvironment("KESTREL_BACK", 1) != 0 && nSeed % 2 != 0 ? 25 : 0;
    plan.vStops = steps.GetStops();
    plan.setLines = ChooseLines(plan.vStops, engine);
    if (plan.setLines.empty() || FromEnvironment("KESTREL_RUNS", 1) == 0)
    {
        return {};
    }
    CReferenceChecker runs(*plain.pRun, plan, nSeed);
    vFindings = Debug(plain, runs);
    if (pTotals != nullptr)
    {
        pTotals->nRunHalts += runs.GetHalts();
    }
    if (!vFindings.empty())
    {
        std::string strLines = "breakpoints on";
        for (const unsigned int nLine : plan.setLines)
        {
            strLines += " " + std::to_string(nLine);
        }
        vFindings.push_back(strLines);
    }
    return vFindings;
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

/// The kind of a finding, so that shrinking a kernel keeps its fault.
std::string GetKind(const std::string& strFinding)
{
    static const char* const s_Kinds[] = {"plain run",     "stops at",     "the mask",  "reads",
                                          "no value",      "runs to",      "ends",      "private memory",
                                          "global memory", "local memory", "goes back", "outputs"};
    const auto it = std::find_if(std::begin(s_Kinds), std::end(s_Kinds),
                                 [&](const char* pszKind) { return strFinding.find(pszKind) != std::string::npos; });
    return it != std::end(s_Kinds) ? *it : "";
}

/// Shrinks a failing kernel as far as possible. \return the kernel and its findings
template <typename CheckKernel>
std::string MakeSmall(const SLaunchFile& file, uint32_t nSeed, CheckKernel checkKernel)
{
    const std::string strKind = GetKind(checkKernel(file, nSeed)[0]);
    const SLaunchFile small = Shrink(file,
                                     [&](const SLaunchFile& candidate)
                                     {
                                         try
                                         {
                                             const std::vector<std::string> vFindings = checkKernel(candidate, nSeed);
                                             return !vFindings.empty() && GetKind(vFindings[0]) == strKind;
                                         }
                                         catch (const std::exception&)
                                         {
                                             return false; // not a valid kernel any more
                                         }
                                     });
    return Join(checkKernel(small, nSeed)) + small.strSource;
}

template <typename CheckKernel>
void CheckSeeds(const SFamily& family, const SSeeds& seeds, CheckKernel checkKernel)
{
    const uint32_t nFirst = FromEnvironment("KESTREL_SEED", 1);
    const uint32_t nSeeds = CountSeeds(seeds);
    const uint32_t nMaxFailed = FromEnvironment("KESTREL_FAILURES", 3);
    unsigned int nFailed = 0;
    for (uint32_t nSeed = nFirst; nSeed < nFirst + nSeeds && nFailed < nMaxFailed; ++nSeed)
    {
        const SGeneratedKernel kernel = CKernelGenerator(nSeed, family.features).Generate();
        const std::vector<std::string> vFindings = checkKernel(kernel.launch, nSeed);
        if (!vFindings.empty())
        {
            ++nFailed;
            ADD_FAILURE() << "seed " << nSeed << "\n"
                          << Join(vFindings) << "replay: KESTREL_SEED=" << nSeed << " KESTREL_SEEDS=1 "
                          << ReplayCommand();
            if (nSeeds == 1)
            {
                std::cout << kernel.launch.strSource << "made small:\n" << MakeSmall(kernel.launch, nSeed, checkKernel);
            }
        }
    }
}

} // namespace

/// KESTREL_SEEDS sets the number of kernels, KESTREL_SEED the first one.
TEST_P(Reference, PlainRunsOfThePlatformAgree)
{
    SFamily family = GetParam();
    family.features.bAllReading = true;
    CheckSeeds(family, s_PlainSeeds, [](const SLaunchFile& file, uint32_t) { return RunPlainly(file).vFindings; });
}

/// A single kernel is also printed, and shrunk as far as possible.
TEST_P(Reference, EveryStopAgrees)
{
    STotals totals;
    CheckSeeds(GetParam(), s_StopSeeds,
               [&](const SLaunchFile& file, uint32_t nSeed) { return CheckStops(file, nSeed, &totals); });
    std::cout << totals.nHalts << " stops by steps, " << totals.nRunHalts << " by runs\n";
}

TEST_P(Reference, EveryStopAgreesWithValuesOnDemand)
{
    STotals totals;
    CheckSeeds(GetParam(), s_OnDemandSeeds,
               [&](const SLaunchFile& file, uint32_t nSeed) { return CheckStops(file, nSeed, &totals, true); });
    std::cout << totals.nHalts << " stops by steps, " << totals.nRunHalts << " by runs\n";
}

INSTANTIATE_TEST_SUITE_P(Families, Reference,
                         testing::Values(SFamily{"Plain", Features("-")}, SFamily{"PrivateInMain", Features("P")},
                                         SFamily{"CallsIf", Features("C")}, SFamily{"Returns", Features("R")},
                                         SFamily{"ReturnsIf", Features("I")}, SFamily{"Jumps", Features("J")},
                                         SFamily{"Global", Features("G")}, SFamily{"Local", Features("L")},
                                         SFamily{"Macros", Features("M")}, SFamily{"Most", Features("RJGLP")},
                                         SFamily{"MostOlder", Features("RJGLO")}, SFamily{"All", Features("IJGLPMC")},
                                         SFamily{"AllOlder", Features("IJGLMCO")}, SFamily{"Older", Features("O")}),
                         [](const testing::TestParamInfo<SFamily>& test) { return test.param.pszName; });
