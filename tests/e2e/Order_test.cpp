#include "tests/e2e/LibrariesFixture.h"
#include "tests/e2e/SmallKernel.h"
#include "tools/kestrel/Session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace KestrelTest;
using namespace KestrelTool;

namespace
{

/// The work-groups that come first find 0 in a word that all write. How many of them have an odd number, and so go into
/// the if, depends on the order, and each step's run has another one.
std::string MakeCourse()
{
    std::string strBody = "mov r7.xy, cb1[0].xy\n"
                          "uav_raw_load_id(10)_addr64 r6.x, r7.xy\n"
                          "uav_raw_store_id(10)_addr64 mem0.x, r7.xy, l0.y\n"
                          "ieq r5.x, r6.x, l0.z\n"
                          "iand r8.x, vThreadGrpId.x, l0.y\n"
                          "iand r5.x, r5.x, r8.x\n"
                          "if_logicalz r5.x\n";
    for (int n = 0; n < 40; ++n)
    {
        strBody += "iadd r9.x, r9.x, l0.y\n";
    }
    return strBody + "endif\n";
}

/// All work-groups write a word, and the last one's number stays there.
const char* const s_szWinner = "mov r7.xy, cb1[0].xy\n"
                               "mov r5.x, vThreadGrpId.x\n"
                               "uav_raw_store_id(10)_addr64 mem0.x, r7.xy, r5.x\n"
                               "iadd r9.x, r9.x, l0.y\n";

struct CAsking : ISessionClient
{
    ovkclDebugCommand OnStarted(CSession&) override { return OVKCLDEBUG_COMMAND_STEP; }
    ovkclDebugCommand OnHalted(CSession&) override { return OVKCLDEBUG_COMMAND_STEP; }
    void OnFinished(CSession& session) override { strError = session.GetLastError(); }
    void OnError(CSession& session) override { strError = session.GetLastError(); }
    std::string strError;
};

/// What a session of steps says at its end, each of whose runs takes the work-groups in another order.
std::string StepThrough(const std::string& strBody, size_t nGroups)
{
    SLaunchFile file = MakeSmallKernel(strBody);
    file.nLocalSize[0] = 256;
    file.nGlobalSize[0] = nGroups * file.nLocalSize[0];
    file.vArguments[0].vContents.assign(file.nGlobalSize[0] * 4, 0);
    CLaunch launch(GetLibraries(), file);
    CAsking asking;
    const SPlatformControl& control = GetPlatformControl(GetLibraries());
    control.SetSchedule(1);
    EXPECT_EQ(RunSession(GetLibraries(), launch, asking), CL_SUCCESS);
    control.SetSchedule(0);
    return asking.strError;
}

} // namespace

TEST(Order, AKernelThatDependsOnItIsNamedAtTheEnd)
{
    const char* const pszSaid = "on the order in which its work-groups run";
    EXPECT_THAT(StepThrough(MakeCourse(), 16), testing::HasSubstr(pszSaid)) << "who comes to a place";
    EXPECT_THAT(StepThrough(s_szWinner, 256), testing::HasSubstr(pszSaid)) << "what is in memory at the end";
    EXPECT_EQ(StepThrough("iadd r9.x, r9.x, l0.y\n", 16), "") << "one that doesn't";
}
