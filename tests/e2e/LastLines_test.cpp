#include "tests/e2e/ExampleList.h"
#include "tests/e2e/KernelGenerator.h"
#include "tests/e2e/LibrariesFixture.h"
#include "tests/support/Stride.h"
#include "tools/session/debug/Debugger.h"
#include "tools/session/debug/RunTrace.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace KestrelTest;
using namespace KestrelTool;

namespace
{

const uint32_t s_nGenerated = s_bSanitized ? 3 : 20;
const size_t s_nStride = s_bSanitized ? 6 : 1;
const size_t s_nMostSteps = 150;

struct CNobody : IEventSink
{
    void OnEvent(const nlohmann::json&) override {}
};

/// Where nothing has been written to registers yet, no run is there to be traced.
struct SCompared
{
    size_t nStops = 0;
    size_t nUntraced = 0;
};

/// Steps through a launch. Each step tells who took part in the instruction before, and that is where they were last.
/// That is compared with what a trace tells at one of nEach stops.
void CompareLastLines(const SLaunchFile& file, size_t nEach, SCompared& compared)
{
    CNobody nobody;
    CDebugger debugger(GetLibraries(), file, nobody);
    debugger.Start();
    std::vector<unsigned int> vExpected(debugger.GetExtent().Count(), CListing::NoLine);
    for (size_t nStep = 0; debugger.IsLive() && nStep < s_nMostSteps && !testing::Test::HasFailure(); ++nStep)
    {
        const unsigned int nLine = debugger.GetLine();
        debugger.Step(1);
        if (!debugger.IsLive())
        {
            return;
        }
        const SMaskView mask = debugger.GetActive();
        const bool bCounted = CRunTrace::IsCounted(debugger.GetListing().GetMnemonic(nLine));
        for (size_t n = 0; bCounted && n < vExpected.size(); ++n)
        {
            vExpected[n] = mask.pActive[n] != 0 ? nLine : vExpected[n];
        }
        if (nStep % nEach == 0)
        {
            const std::vector<unsigned int> vLines = debugger.FindLastLines();
            EXPECT_TRUE(vLines.empty() || vLines == vExpected)
                << "step " << nStep << " to line " << debugger.GetLine() << ": " << testing::PrintToString(vLines)
                << ", not " << testing::PrintToString(vExpected);
            compared.nUntraced += vLines.empty() ? 1 : 0;
            ++compared.nStops;
        }
    }
}

} // namespace

TEST(LastLines, AreThoseOfTheStepsBefore)
{
    SCompared compared;
    const std::vector<std::string> vExamples = ListExamples();
    for (size_t nExample = 0; nExample < vExamples.size(); nExample += s_nStride)
    {
        SCOPED_TRACE(vExamples[nExample]);
        // A stop in a macro's copy is at none of the text's lines.
        if (vExamples[nExample].find("macro") == std::string::npos)
        {
            CompareLastLines(ReadLaunchFile(GetExamplePath(vExamples[nExample])), 3, compared);
        }
    }
    SKernelFeatures features;
    features.bMore = features.bReturns = features.bReturnsIf = features.bLeaves = true;
    features.bMemory = features.bLocal = features.bCallsIf = true;
    for (uint32_t nSeed = 1; nSeed <= s_nGenerated; ++nSeed)
    {
        SCOPED_TRACE(nSeed);
        CompareLastLines(CKernelGenerator(nSeed, features).Generate().launch, 5, compared);
    }
    EXPECT_GT(compared.nStops, s_bSanitized ? 60u : 800u);
    EXPECT_LT(compared.nUntraced, compared.nStops / 10);
    RecordProperty("stops", static_cast<int>(compared.nStops));
    RecordProperty("untraced", static_cast<int>(compared.nUntraced));
}
