#include "tests/e2e/ExampleList.h"
#include "tests/e2e/LibrariesFixture.h"
#include "tests/e2e/SessionChecker.h"

#include <gtest/gtest.h>

using namespace KestrelTest;
using namespace KestrelTool;

namespace
{

/// While it exists, the command intercept is off, so that a session takes the blocking path.
class CFallbackPath
{
public:
    CFallbackPath() : m_Control(GetPlatformControl(GetLibraries()))
    {
        m_Control.SetExtensionEnabled("cl_ovk_object_metadata", 0);
    }
    ~CFallbackPath() { m_Control.Reset(); }

private:
    const SPlatformControl& m_Control;
};

class Examples : public testing::TestWithParam<std::string>
{
protected:
    /// Steps the launch to its end and compares every stop with a plain run.
    void StepAndCompare()
    {
        const CLibraries& libraries = GetLibraries();
        const SPlatformControl& control = GetPlatformControl(libraries);
        CLaunch launch(libraries, ReadLaunchFile(GetExamplePath(GetParam())));

        CTraceModel trace(launch.GetWorkItems());
        trace.StartRecording(control);
        launch.Run();
        trace.StopRecording(control);
        ASSERT_FALSE(trace.GetObservations().empty());
        EXPECT_TRUE(launch.Compare().empty()) << "the plain run's outputs are wrong";

        launch.ResetContents();
        CSessionChecker checker(libraries, launch, trace);
        EXPECT_EQ(RunSession(libraries, launch, checker), CL_SUCCESS);
        for (const std::string& strFinding : checker.GetFindings())
        {
            ADD_FAILURE() << strFinding;
        }
        EXPECT_TRUE(checker.IsFinished());
        EXPECT_GT(checker.GetStops(), 0u);
        for (const SDifference& difference : launch.Compare())
        {
            ADD_FAILURE() << "argument " << difference.nArgument << " element " << difference.nElement << " is "
                          << difference.strGot << ", not " << difference.strExpected;
        }
        for (const SPosition& position : checker.GetUnvisited())
        {
            ADD_FAILURE() << "never stopped at " << position.ToString();
        }
        if (HasFailure())
        {
            std::cout << "replay: " << ReplayCommand() << "\n";
        }
    }
};

/// The same without the command intercept.
class ExamplesBlocking : public Examples
{
};

} // namespace

TEST_P(Examples, EveryStopAgreesWithThePlainRun)
{
    StepAndCompare();
}

INSTANTIATE_TEST_SUITE_P(All, Examples, testing::ValuesIn(ListExamples()), GetExampleTestName);

TEST_P(ExamplesBlocking, EveryStopAgreesWithThePlainRun)
{
    const CFallbackPath fallback;
    StepAndCompare();
}

INSTANTIATE_TEST_SUITE_P(All, ExamplesBlocking, testing::ValuesIn(ListSomeExamples()), GetExampleTestName);
