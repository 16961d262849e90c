#include "tests/e2e/KernelGenerator.h"
#include "tests/e2e/LibrariesFixture.h"
#include "tests/e2e/Seeds.h"
#include "tests/e2e/SessionChecker.h"

#include <gtest/gtest.h>

#include <cstdlib>

using namespace KestrelTest;
using namespace KestrelTool;

namespace
{

const SSeeds s_StepSeeds = {400, 60, 10};

/// \return differences, preceded by the kernel's text if there are any
std::vector<std::string> StepSeed(uint32_t nSeed)
{
    const CLibraries& libraries = GetLibraries();
    const SPlatformControl& control = GetPlatformControl(libraries);
    const SGeneratedKernel kernel = CKernelGenerator(nSeed).Generate();
    CLaunch launch(libraries, kernel.launch);

    CTraceModel trace(launch.GetWorkItems());
    trace.StartRecording(control);
    launch.Run();
    trace.StopRecording(control);
    const std::vector<unsigned char> vOutputs = launch.ReadContents(0);

    launch.ResetContents();
    CSessionChecker checker(libraries, launch, trace);
    checker.CountRuns();
    const cl_int nCode = RunSession(libraries, launch, checker);
    std::vector<std::string> vFindings = checker.GetFindings();
    if (nCode != CL_SUCCESS || !checker.IsFinished())
    {
        vFindings.push_back("the session gave " + std::to_string(nCode));
    }
    if (launch.ReadContents(0) != vOutputs)
    {
        vFindings.push_back("the outputs differ from a plain launch's");
    }
    if (!kernel.bMaySkip)
    {
        for (const SPosition& position : checker.GetUnvisited())
        {
            vFindings.push_back("never stopped at " + position.ToString());
        }
    }
    return vFindings;
}

} // namespace

/// KESTREL_SEEDS sets the number of kernels, KESTREL_SEED the first one.
TEST(Generated, EveryStopAgreesWithThePlainRun)
{
    const uint32_t nFirst = FromEnvironment("KESTREL_SEED", 1);
    const uint32_t nSeeds = CountSeeds(s_StepSeeds);
    unsigned int nFailed = 0;
    for (uint32_t nSeed = nFirst; nSeed < nFirst + nSeeds && nFailed < 5; ++nSeed)
    {
        const std::vector<std::string> vFindings = StepSeed(nSeed);
        if (!vFindings.empty())
        {
            ++nFailed;
            std::string strText;
            for (const std::string& strFinding : vFindings)
            {
                strText += strFinding + "\n";
            }
            if (nSeeds == 1)
            {
                strText += CKernelGenerator(nSeed).Generate().launch.strSource;
            }
            ADD_FAILURE() << "seed " << nSeed << "\n"
                          << strText << "replay: KESTREL_SEED=" << nSeed << " KESTREL_SEEDS=1 " << ReplayCommand();
        }
    }
}
