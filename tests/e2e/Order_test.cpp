#include "tests/e2e/LibrariesFixture.h"
#include "tests/e2e/SmallKernel.h"
#include "tools/kestrel/Session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace KestrelTest;
using namespace KestrelTool;

/// The work-groups that come first find 0 in a word that all write. How many of them have an odd number, and so go into
/// the if, depends on the order, and each step's run has another one.
TEST(Order, AKernelWhoseCourseDependsOnItIsNamedAtTheEnd)
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
    SLaunchFile file = MakeSmallKernel(strBody + "endif\n");
    file.nGlobalSize[0] = 4096;
    file.nLocalSize[0] = 256;
    file.vArguments[0].vContents.assign(4096 * 4, 0);
    CLaunch launch(GetLibraries(), file);
    struct CAsking : ISessionClient
    {
        ovkclDebugCommand OnStarted(CSession&) override { return OVKCLDEBUG_COMMAND_STEP; }
        ovkclDebugCommand OnHalted(CSession&) override { return OVKCLDEBUG_COMMAND_STEP; }
        void OnFinished(CSession& session) override { strError = session.GetLastError(); }
        void OnError(CSession& session) override { strError = session.GetLastError(); }
        std::string strError;
    } asking;
    const SPlatformControl& control = GetPlatformControl(GetLibraries());
    control.SetSchedule(1);
    EXPECT_EQ(RunSession(GetLibraries(), launch, asking), CL_SUCCESS);
    control.SetSchedule(0);
    EXPECT_THAT(asking.strError, testing::HasSubstr("depends on the order in which its work-groups run"));
}
