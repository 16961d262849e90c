#include "tests/e2e/ExampleList.h"
#include "tests/e2e/KernelGenerator.h"
#include "tests/e2e/LibrariesFixture.h"
#include "tests/e2e/SmallKernel.h"
#include "tests/support/Stride.h"
#include "tools/session/debug/Debugger.h"
#include "tools/session/launch/Session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace KestrelTest;
using namespace KestrelTool;

namespace
{

// Under sanitizers each step takes many times as long.
const size_t s_nAllSteps = s_bSanitized ? 50 : 1000000;
const uint32_t s_nGenerated = s_bSanitized ? 4 : 20;
const size_t s_nStride = s_bSanitized ? 4 : 1;

/// The first work-groups read 0 from a word that all write. How many of them are odd, and so enter the if, depends on
/// the order, which differs in each step's run.
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

/// Each work-group replaces a word by three times its value plus the group's number, so the result depends on the
/// order.
const char* const s_szChain = "mov r7.xy, cb1[0].xy\n"
                              "uav_raw_load_id(10)_addr64 r6.x, r7.xy\n"
                              "iadd r5.x, r6.x, r6.x\n"
                              "iadd r5.x, r5.x, r6.x\n"
                              "iadd r5.x, r5.x, vThreadGrpId.x\n"
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

/// The messages at the end of a stepping session, each of whose runs has another order of work-groups.
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

/// Each work-group stores its number plus one in a word. The bits in which the old value differs from the one for
/// groups in order decide about one if after the other.
std::string MakeChain()
{
    std::string strBody = "mov r7.xy, cb1[0].xy\n"
                          "uav_raw_load_id(10)_addr64 r6.x, r7.xy\n"
                          "iadd r8.x, vThreadGrpId.x, l0.y\n"
                          "uav_raw_store_id(10)_addr64 mem0.x, r7.xy, r8.x\n"
                          "ixor r6.x, r6.x, vThreadGrpId.x\n";
    for (const char* const pszBit : {"l0.y", "l0.x", "l1.x", "l1.y", "l1.z", "l1.w"})
    {
        strBody += std::string("iand r5.x, r6.x, ") + pszBit + "\nif_logicalnz r5.x\niadd r9.x, r9.x, l0.y\nendif\n";
    }
    return strBody + "iadd r9.x, r9.x, l0.y\niadd r9.x, r9.x, l0.y\n";
}

struct CEnd : IEventSink
{
    void OnEvent(const nlohmann::json& event) override
    {
        bFinished = bFinished || event["event"] == "finished";
        strReason = bFinished ? event.value("reason", "") : "";
    }
    bool bFinished = false;
    std::string strReason;
};

/// The tool's messages after nSteps steps, or after a continue following them.
std::string DebugSteps(const SLaunchFile& file, size_t nSteps)
{
    CEnd end;
    CDebugger debugger(GetLibraries(), file, end);
    debugger.Start();
    debugger.Step(nSteps);
    if (!end.bFinished)
    {
        debugger.Continue(1);
    }
    EXPECT_TRUE(end.bFinished);
    return end.strReason;
}

} // namespace

/// After a continue the session ends with the client's own run. Only the tool compares this run with what the stops
/// showed.
TEST(Order, TheToolHoldsThePlainRunsCountsAgainstThoseOfTheStops)
{
    SLaunchFile file = MakeSmallKernel(MakeChain(), "dcl_literal l1, 4, 8, 16, 32\n");
    file.nLocalSize[0] = 256;
    file.nGlobalSize[0] = 64 * file.nLocalSize[0];
    file.vArguments[0].vContents.assign(file.nGlobalSize[0] * 4, 0);
    const SPlatformControl& control = GetPlatformControl(GetLibraries());
    control.SetSchedule(1);
    EXPECT_THAT(DebugSteps(file, 28),
                testing::StartsWith("The session's stops and a plain run of the kernel disagree"));
    control.SetSchedule(0);

    const std::vector<std::string> vExamples = ListExamples();
    EXPECT_GE(vExamples.size(), 20u);
    for (size_t nExample = 0; nExample < vExamples.size(); nExample += s_nStride)
    {
        const std::string& strName = vExamples[nExample];
        for (const size_t nSteps : {size_t(7), s_nAllSteps})
        {
            EXPECT_EQ(DebugSteps(ReadLaunchFile(GetExamplePath(strName)), nSteps), "") << strName << ", " << nSteps;
        }
    }
    SKernelFeatures features;
    features.bMore = features.bReturns = features.bReturnsIf = features.bLeaves = true;
    features.bMemory = features.bLocal = features.bMacros = features.bCallsIf = true;
    for (uint32_t nSeed = 1; nSeed <= s_nGenerated; ++nSeed)
    {
        EXPECT_EQ(DebugSteps(CKernelGenerator(nSeed, features).Generate().launch, s_nAllSteps), "") << nSeed;
    }
}

TEST(Order, AKernelThatDependsOnItIsNamedAtTheEnd)
{
    const char* const pszSaid = "on the order in which its work-groups run";
    EXPECT_THAT(StepThrough(MakeCourse(), 16), testing::HasSubstr(pszSaid)) << "who comes to a place";
    EXPECT_THAT(StepThrough(s_szChain, 256), testing::HasSubstr(pszSaid)) << "what is in memory at the end";
    EXPECT_EQ(StepThrough("iadd r9.x, r9.x, l0.y\n", 16), "") << "one that doesn't";
}
