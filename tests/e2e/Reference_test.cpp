#include "tests/e2e/KernelGenerator.h"
#include "tests/e2e/LibrariesFixture.h"
#include "tests/e2e/ReferenceRun.h"
#include "tools/kestrel/Launch.h"

#include <gtest/gtest.h>

#include <cstdlib>

using namespace KestrelTest;
using namespace KestrelTool;

namespace
{

#ifdef KESTREL_BEHIND_LOADER
const uint32_t s_nDefaultSeeds = 5;
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
const uint32_t s_nDefaultSeeds = 40;
#else
const uint32_t s_nDefaultSeeds = 150;
#endif

uint32_t FromEnvironment(const char* pszName, uint32_t nDefault)
{
    const char* pszValue = std::getenv(pszName);
    return pszValue != nullptr ? static_cast<uint32_t>(std::strtoul(pszValue, nullptr, 10)) : nDefault;
}

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
        features.bReturns = features.bReturns || *p == 'R';
        features.bLeaves = features.bLeaves || *p == 'J';
        features.bMemory = features.bMemory || *p == 'G';
        features.bLocal = features.bLocal || *p == 'L';
        features.bMacros = features.bMacros || *p == 'M';
        features.bPrivateInMain = features.bPrivateInMain || *p == 'P';
        features.bOlder = features.bOlder || *p == 'O';
    }
    return features;
}

class Reference : public testing::TestWithParam<SFamily>
{
};

std::vector<std::string> ComparePlainRun(const SLaunchFile& file)
{
    const CLibraries& libraries = GetLibraries();
    const SPlatformControl& control = GetPlatformControl(libraries);
    CLaunch launch(libraries, file);
    CTraceModel trace(launch.GetWorkItems());
    trace.StartRecording(control);
    launch.Run();
    trace.StopRecording(control);

    const CReferenceRun run(file, FindBufferAddress(trace, file.strDevice == "Quench", 64));
    std::vector<std::string> vFindings = CompareTrace(run, trace);
    if (launch.ReadContents(0) != run.GetFinal().vBuffers[0])
    {
        vFindings.push_back("the outputs differ");
    }
    return vFindings;
}

} // namespace

TEST_P(Reference, PlainRunsOfThePlatformAgree)
{
    const uint32_t nFirst = FromEnvironment("KESTREL_SEED", 1);
    const uint32_t nSeeds = FromEnvironment("KESTREL_SEEDS", s_nDefaultSeeds);
    unsigned int nFailed = 0;
    for (uint32_t nSeed = nFirst; nSeed < nFirst + nSeeds && nFailed < 3; ++nSeed)
    {
        const SGeneratedKernel kernel = CKernelGenerator(nSeed, GetParam().features).Generate();
        std::string strText;
        for (const std::string& strFinding : ComparePlainRun(kernel.launch))
        {
            strText += strFinding + "\n";
        }
        if (!strText.empty())
        {
            ++nFailed;
            ADD_FAILURE() << "seed " << nSeed << "\n"
                          << strText << (nSeeds == 1 ? kernel.launch.strSource : "") << "replay: KESTREL_SEED=" << nSeed
                          << " KESTREL_SEEDS=1 " << ReplayCommand();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Families, Reference,
                         testing::Values(SFamily{"Plain", Features("P")}, SFamily{"Returns", Features("R")},
                                         SFamily{"Jumps", Features("J")}, SFamily{"Global", Features("G")},
                                         SFamily{"Local", Features("L")}, SFamily{"Macros", Features("M")},
                                         SFamily{"All", Features("RJGLM")}, SFamily{"AllOlder", Features("RJGLMO")}),
                         [](const testing::TestParamInfo<SFamily>& info) { return info.param.pszName; });
