#include "tests/e2e/LibrariesFixture.h"
#include "tests/e2e/SessionChecker.h"
#include "tests/support/Folders.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

using namespace KestrelTest;
using namespace KestrelTool;

namespace
{

std::vector<std::string> ListLaunches()
{
    std::vector<std::string> vPaths;
    const std::filesystem::path root = std::filesystem::path(KestrelTest::SourceFile("examples"));
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root))
    {
        if (entry.path().extension() == ".json")
        {
            vPaths.push_back(std::filesystem::relative(entry.path(), root).string());
        }
    }
    std::sort(vPaths.begin(), vPaths.end());
    return vPaths;
}

std::string LaunchPath(const std::string& strName)
{
    return KestrelTest::SourceFile("examples/") + strName;
}

std::string TestName(const testing::TestParamInfo<std::string>& info)
{
    std::string strName = std::filesystem::path(info.param).stem().string();
    std::replace_if(
        strName.begin(), strName.end(), [](unsigned char c) { return !std::isalnum(c); }, '_');
    return strName;
}

/// While it exists, the command intercept is off, so that a session takes the blocking path.
class CFallbackPath
{
public:
    explicit CFallbackPath(bool bOn) : m_Control(GetPlatformControl(GetLibraries())), m_bOn(bOn)
    {
        if (m_bOn)
        {
            m_Control.SetExtensionEnabled("cl_ovk_object_metadata", 0);
        }
    }
    ~CFallbackPath()
    {
        if (m_bOn)
        {
            m_Control.Reset();
        }
    }

private:
    const SPlatformControl& m_Control;
    bool m_bOn;
};

class Examples : public testing::TestWithParam<std::string>
{
protected:
    /// Steps the launch to its end and compares every stop with a plain run.
    void StepAndCompare()
    {
        const CLibraries& libraries = GetLibraries();
        const SPlatformControl& control = GetPlatformControl(libraries);
        CLaunch launch(libraries, ReadLaunchFile(LaunchPath(GetParam())));

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

} // namespace

TEST_P(Examples, EveryStopAgreesWithThePlainRun)
{
    StepAndCompare();
}

TEST_P(Examples, EveryStopAgreesOnTheBlockingPath)
{
    const CFallbackPath fallback(true);
    StepAndCompare();
}

INSTANTIATE_TEST_SUITE_P(All, Examples, testing::ValuesIn(ListLaunches()), TestName);
