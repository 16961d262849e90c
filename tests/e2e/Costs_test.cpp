#include "tests/e2e/LibrariesFixture.h"
#include "tests/e2e/ScriptedClient.h"
#include "tests/e2e/SmallKernel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace KestrelTest;
using namespace KestrelTool;
using testing::ElementsAre;

namespace
{

/// The number of kernel runs since the last call.
uint64_t TakeRuns()
{
    const SPlatformControl& control = GetPlatformControl(GetLibraries());
    const uint64_t nRuns = control.GetCounter(PLATFORM_COUNTER_KERNEL_RUNS);
    control.ClearCounters();
    return nRuns;
}

void TrackRegisters(CSession& session, const std::vector<std::string>& vNames)
{
    std::vector<ovkclDebugRegisterLocator> vLocators;
    for (const std::string& strName : vNames)
    {
        ovkclDebugRegisterLocator locator = 0;
        GetLibraries().ovkclDebugUtilStringToDebugRegisterLocator(reinterpret_cast<const cl_char*>(strName.c_str()),
                                                                  &locator);
        vLocators.push_back(locator);
    }
    ASSERT_EQ(GetLibraries().ovkclDebugSetTrackingRegisters(session.GetContext(), vLocators.data(), vLocators.size()),
              OVKCLDEBUG_SUCCESS);
}

/// The kernel runs of every movement of a session that only steps, beginning with the start.
std::vector<uint64_t> StepCosts(const SLaunchFile& file, const std::vector<std::string>& vTracked = {})
{
    CLaunch launch(GetLibraries(), file);
    std::vector<uint64_t> vCosts;
    TakeRuns();
    CScriptedClient client(
        [&](CSession& session)
        {
            vCosts.push_back(TakeRuns());
            if (!vTracked.empty())
            {
                TrackRegisters(session, vTracked);
            }
            return OVKCLDEBUG_COMMAND_STEP;
        },
        [&](CSession&)
        {
            vCosts.push_back(TakeRuns());
            return OVKCLDEBUG_COMMAND_STEP;
        });
    EXPECT_EQ(RunSession(GetLibraries(), launch, client), CL_SUCCESS);
    vCosts.push_back(TakeRuns());
    return vCosts;
}

} // namespace

// The stops of the straight kernel below: the first three instructions of the frame, the body, ret, and
// the call in the main body, which is executed after the last stop. The start dumps the arguments and
// executes the function's entry.

TEST(Costs, AStepIsOneRunAndAnInstructionWithoutADestinationNone)
{
    const SLaunchFile file = MakeSmallKernel("iadd r3.x, r0.x, l0.y\n"
                                             "fence_memory\n"
                                             "uav_raw_store_id(10)_addr64 mem0.x, r2.xy, r3.x\n");
    EXPECT_THAT(StepCosts(file), ElementsAre(2, 1, 1, 1, 1, 0, 1, 1, 1));
}

TEST(Costs, WithTrackingOnlyTrackedRegistersAndFlowControlCost)
{
    const SLaunchFile file = MakeSmallKernel("iadd r3.x, r0.x, l0.y\n"
                                             "iadd r4.x, r0.x, l0.y\n"
                                             "if_logicalnz r0.x\n"
                                             "iadd r4.x, r3.x, l0.y\n"
                                             "endif\n"
                                             "iadd r3.x, r0.x, l0.y\n");
    //                                                  frame    r3 r4 if r4 endif r3 ret call
    EXPECT_THAT(StepCosts(file, {"r3"}), ElementsAre(2, 0, 0, 0, 1, 0, 1, 0, 1, 1, 1, 1));
}

/// After a loop in which ten registers were written: one run for the position and its mask, one more for all registers.
TEST(Costs, ValuesOnDemandAreOneRunForManyAndNoneForNone)
{
    std::string strBody = "mov r4.x, l0.z\nwhileloop\nige r5.x, r4.x, l0.x\nbreak_logicalnz r5.x\n";
    for (int n = 10; n < 20; ++n)
    {
        strBody += "iadd r" + std::to_string(n) + ".x, r4.x, r0.x\n";
    }
    const SLaunchFile file = MakeSmallKernel(strBody + "iadd r4.x, r4.x, l0.y\nendloop\n"
                                                       "mov x1[r0.x].x, r0.x\niadd r3.x, r0.x, l0.y\nmov r3.y, r0.x\n",
                                             "dcl_indexed_temp_array x1[8]\n");
    CLaunch launch(GetLibraries(), file);
    std::vector<uint64_t> vCosts;
    CScriptedClient client(
        [&](CSession& session)
        {
            session.ReadValuesOnDemand();
            const CListing& listing = session.GetListing();
            unsigned int nLine = 0;
            while (listing.GetLine(nLine).find("iadd r3.x") != 0)
            {
                ++nLine;
            }
            session.SetBreakpoints({nLine});
            TakeRuns();
            return OVKCLDEBUG_COMMAND_CONTINUE;
        },
        [&](CSession& session)
        {
            vCosts.push_back(TakeRuns());
            const SRegisterView view = session.GetRegister("r10");
            EXPECT_EQ(session.GetActiveRegisters().size(), 3u + 2u + 10u + 8u + vCosts.size() / 2)
                << "r0 to r2, r4, r5, those of the loop, the array, then r3";
            for (int n = 11; n < 20; ++n)
            {
                EXPECT_NE(session.GetRegister("r" + std::to_string(n)).pWords, nullptr);
            }
            EXPECT_EQ(session.GetRegister("r30").pWords, nullptr);
            for (unsigned int i = 0; i < view.nItems; ++i)
            {
                EXPECT_EQ(view[i][0], i + 1) << "the values stay until the next movement";
                EXPECT_EQ(session.GetRegister("x1[5]")[i][0], i == 5 ? 5u : 0u);
            }
            vCosts.push_back(TakeRuns());
            return vCosts.size() < 4 ? OVKCLDEBUG_COMMAND_STEP : OVKCLDEBUG_COMMAND_CONTINUE;
        });
    EXPECT_EQ(RunSession(GetLibraries(), launch, client), CL_SUCCESS);
    EXPECT_THAT(vCosts, ElementsAre(1, 1, 0, 1));
}

/// Only the next launch begins with values on demand; the one after it begins as usual.
TEST(Costs, ASessionOnDemandOpensWithItsFirstMove)
{
    const SLaunchFile file = MakeSmallKernel("iadd r3.x, r0.x, l0.y\n");
    const ovkclDebugRegisterLocator onDemand = OVKCLDEBUG_EXT_VALUES_ON_DEMAND;
    const ovkclDebugRegisterLocator other = 0;
    const auto& setTracking = GetLibraries().ovkclDebugSetTrackingRegisters;
    EXPECT_EQ(setTracking(nullptr, &other, 1), OVKCLDEBUG_ERROR_INVALID_CONTEXT);
    const SPlatformControl& control = GetPlatformControl(GetLibraries());
    uint64_t nBuffers[2] = {};
    for (const bool bLate : {false, true})
    {
        CLaunch launch(GetLibraries(), file);
        std::vector<uint64_t> vCosts;
        CScriptedClient client(
            [&](CSession& session)
            {
                nBuffers[bLate ? 1 : 0] = control.GetCounter(PLATFORM_COUNTER_MEM_OBJECTS);
                vCosts.push_back(TakeRuns());
                session.SetTrackedRegisters({});
                return OVKCLDEBUG_COMMAND_STEP;
            },
            [&](CSession& session)
            {
                vCosts.push_back(TakeRuns());
                const SRegisterView view = session.GetRegister("r0");
                EXPECT_NE(view.pWords, nullptr) << "the first instruction wrote it, whoever has executed that";
                return OVKCLDEBUG_COMMAND_CONTINUE;
            });
        if (bLate)
        {
            EXPECT_EQ(setTracking(nullptr, &onDemand, 1), OVKCLDEBUG_SUCCESS);
        }
        TakeRuns();
        EXPECT_EQ(RunSession(GetLibraries(), launch, client), CL_SUCCESS);
        EXPECT_THAT(vCosts, bLate ? ElementsAre(1, 2) : ElementsAre(2, 1));
    }
    EXPECT_EQ(nBuffers[0], nBuffers[1] + 2) << "values and mask are made when they are needed";
}

/// The first movement to a breakpoint skips the first instruction without a run; there all work-items are still active.
TEST(Costs, AFirstRunOnDemandIsOneRun)
{
    const SLaunchFile file = MakeSmallKernel("iadd r3.x, r0.x, l0.y\niadd r4.x, r3.x, l0.y\n");
    CLaunch launch(GetLibraries(), file);
    const ovkclDebugRegisterLocator onDemand = OVKCLDEBUG_EXT_VALUES_ON_DEMAND;
    EXPECT_EQ(GetLibraries().ovkclDebugSetTrackingRegisters(nullptr, &onDemand, 1), OVKCLDEBUG_SUCCESS);
    std::vector<uint64_t> vCosts;
    CScriptedClient client(
        [&](CSession& session)
        {
            unsigned int nLine = 0;
            while (session.GetListing().GetLine(nLine).find("iadd r4.x") != 0)
            {
                ++nLine;
            }
            session.SetBreakpoints({nLine});
            TakeRuns();
            return OVKCLDEBUG_COMMAND_CONTINUE;
        },
        [&](CSession& session)
        {
            EXPECT_EQ(session.GetMask().Count(), session.GetMask().nItems) << "at the breakpoint and at the first stop";
            if (vCosts.size() >= 2)
            {
                return OVKCLDEBUG_COMMAND_CONTINUE;
            }
            vCosts.push_back(TakeRuns());
            const SRegisterView view = session.GetRegister("r3");
            EXPECT_NE(view.pWords, nullptr);
            for (unsigned int i = 0; i < view.nItems; ++i)
            {
                EXPECT_EQ(view[i][0], i + 1);
            }
            vCosts.push_back(TakeRuns());
            return OVKCLDEBUG_COMMAND_EXT_RUN_BACK;
        });
    EXPECT_EQ(RunSession(GetLibraries(), launch, client), CL_SUCCESS);
    EXPECT_THAT(vCosts, ElementsAre(1, 1));
    EXPECT_THAT(client.GetEvents(), ElementsAre("started", "halted", "halted", "halted", "finished"));
}

TEST(Costs, ADynamicallyIndexedWriteIsOneRunAnElement)
{
    const SLaunchFile file = MakeSmallKernel("mov x1[3].x, r0.x\n"
                                             "mov x1[r0.x].x, r0.x\n",
                                             "dcl_indexed_temp_array x1[5]\n");
    EXPECT_THAT(StepCosts(file), ElementsAre(2, 1, 1, 1, 1, 5, 1, 1));
}

TEST(Costs, AContinueWithoutBreakpointsRunsTheClientsKernelOnce)
{
    CLaunch launch(GetLibraries(), MakeSmallKernel("uav_raw_store_id(10)_addr64 mem0.x, r2.xy, r0.x\n"));
    uint64_t nBuilds = 0;
    const SPlatformControl& control = GetPlatformControl(GetLibraries());
    CScriptedClient client(
        [&](CSession&)
        {
            TakeRuns();
            nBuilds = control.GetCounter(PLATFORM_COUNTER_BUILDS);
            return OVKCLDEBUG_COMMAND_CONTINUE;
        },
        AlwaysContinue);
    EXPECT_EQ(RunSession(GetLibraries(), launch, client), CL_SUCCESS);
    EXPECT_EQ(TakeRuns(), 1u);
    EXPECT_EQ(control.GetCounter(PLATFORM_COUNTER_BUILDS), 0u) << "nothing was built for it";
    EXPECT_EQ(nBuilds, 0u);
    EXPECT_THAT(client.GetEvents(), ElementsAre("started", "finished"));
    const std::vector<unsigned char> vBytes = launch.ReadContents(0);
    for (unsigned int i = 0; i < 8; ++i)
    {
        EXPECT_EQ(ReadElement(*FindElementType("int"), &vBytes[i * 4]), i);
    }
}

TEST(Costs, NothingIsLeftAlive)
{
    const SPlatformControl& control = GetPlatformControl(GetLibraries());
    const auto count = [&control]
    {
        std::vector<uint64_t> vAlive;
        for (int i = PLATFORM_COUNTER_CONTEXTS; i < PLATFORM_COUNTER_LAST; ++i)
        {
            vAlive.push_back(control.GetCounter(static_cast<EPlatformCounter>(i)));
        }
        return vAlive;
    };
    const std::vector<uint64_t> vBefore = count();
    for (const auto& answer : {AlwaysStep, AlwaysContinue})
    {
        CLaunch launch(GetLibraries(), MakeSmallKernel("uav_raw_store_id(10)_addr64 mem0.x, r2.xy, r0.x\n"));
        CScriptedClient client(AlwaysStep, answer);
        EXPECT_EQ(RunSession(GetLibraries(), launch, client), CL_SUCCESS);
    }
    EXPECT_EQ(count(), vBefore);
}
