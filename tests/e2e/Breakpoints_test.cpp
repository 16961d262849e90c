#include "tests/e2e/DebugFunctions.h"
#include "tests/e2e/ScriptedClient.h"
#include "tests/e2e/SmallKernel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace KestrelTest;
using namespace KestrelTool;
using testing::ElementsAre;

namespace
{

/// A stop of a run: its kernel runs, the number of active work-items, and the value of the register of interest for
/// each work-item, -1 if it isn't active.
struct SRunStop
{
    std::string strNextLine;
    uint64_t nRuns = 0;
    std::vector<int> vValues;
};

struct SRunPlan
{
    std::vector<std::string> vLines;   ///< texts of lines with a breakpoint; the first line with each text
    std::string strRegister;           ///< looked at
    std::vector<std::string> vTracked; ///< all registers if empty
};

/// Continues from breakpoint to breakpoint without steps.
std::vector<SRunStop> RunThrough(const SLaunchFile& file, const SRunPlan& plan, std::vector<int>* pOutputs = nullptr)
{
    CLaunch launch(GetLibraries(), file);
    const SPlatformControl& control = GetPlatformControl(GetLibraries());
    std::vector<SRunStop> vStops;
    CScriptedClient client(
        [&](CSession& session)
        {
            for (const std::string& strLine : plan.vLines)
            {
                const CListing& listing = session.GetListing();
                unsigned int nLine = 0;
                while (nLine < listing.GetLineCount() && listing.GetLine(nLine) != strLine)
                {
                    ++nLine;
                }
                EXPECT_EQ(GetLibraries().ovkclDebugSetBreakpoint(session.GetContext(), nLine, 0, nullptr), 0)
                    << strLine;
            }
            if (!plan.vTracked.empty())
            {
                EXPECT_EQ(Track(session, plan.vTracked), OVKCLDEBUG_SUCCESS);
            }
            control.ClearCounters();
            return OVKCLDEBUG_COMMAND_CONTINUE;
        },
        [&](CSession& session)
        {
            SRunStop stop;
            stop.nRuns = control.GetCounter(PLATFORM_COUNTER_KERNEL_RUNS);
            stop.strNextLine = session.GetListing().GetLine(session.GetNextLine());
            const SMaskView mask = session.GetMask();
            const SRegisterView view = session.GetRegister(plan.strRegister);
            for (size_t i = 0; i < mask.nItems; ++i)
            {
                const bool bShown = mask.pActive[i] != 0 && view.pWords != nullptr;
                stop.vValues.push_back(bShown ? static_cast<int>(view[i][0]) : -1);
            }
            vStops.push_back(stop);
            control.ClearCounters();
            if (vStops.size() >= 100)
            {
                ADD_FAILURE() << "the run doesn't end";
                GetDebugFunctions().ovkclDebugClearAllBreakpoints(session.GetContext());
            }
            return OVKCLDEBUG_COMMAND_CONTINUE;
        });
    EXPECT_EQ(RunSession(GetLibraries(), launch, client), CL_SUCCESS);
    EXPECT_EQ(client.GetEvents().back(), "finished");
    const std::vector<unsigned char> vBytes = launch.ReadContents(0);
    for (size_t i = 0; pOutputs != nullptr && i < 8; ++i)
    {
        pOutputs->push_back(static_cast<int>(ReadElement(*FindElementType("int"), &vBytes[i * 4])));
    }
    return vStops;
}

const std::string s_strStore = "uav_raw_store_id(10)_addr64 mem0.x, r2.xy, r3.x\n";
const std::string s_strStoreLine = "uav_raw_store_id(10)_addr64 mem0.x, r2.xy, r3.x";

// The registers written by the kernel's frame: r0.x, r1.x and r2.xy. A session starts before it, at the function's
// head.
const uint64_t s_nFrame = 3;

} // namespace

TEST(Breakpoints, InStraightCodeARunCostsAKernelRunARegisterAndOneMore)
{
    const SLaunchFile file = MakeSmallKernel("iadd r3.x, r0.x, l0.y\n"
                                             "iadd r4.x, r3.x, l0.y\n"
                                             "iadd r3.x, r3.x, l0.x\n"
                                             "iadd r3.y, r3.x, l0.x\n"
                                             "fence_memory\n" +
                                             s_strStore);
    std::vector<int> vOutputs;
    // The second write of r3.x is of the same register, that of r3.y counts as another one.
    const std::vector<SRunStop> vStops =
        RunThrough(file, {{"iadd r4.x, r3.x, l0.y", s_strStoreLine}, "r3", {}}, &vOutputs);
    ASSERT_EQ(vStops.size(), 2u);
    EXPECT_EQ(vStops[0].nRuns, s_nFrame + 1 + 1);
    EXPECT_THAT(vStops[0].vValues, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8));
    EXPECT_EQ(vStops[1].nRuns, 3u + 1);
    EXPECT_THAT(vStops[1].vValues, ElementsAre(3, 4, 5, 6, 7, 8, 9, 10));
    EXPECT_THAT(vOutputs, ElementsAre(3, 4, 5, 6, 7, 8, 9, 10));
}

TEST(Breakpoints, WithTrackingARunReadsTrackedRegistersOnlyAndElseTheMask)
{
    const SLaunchFile file = MakeSmallKernel("iadd r3.x, r0.x, l0.y\n"
                                             "iadd r4.x, r3.x, l0.y\n"
                                             "iadd r5.x, r3.x, l0.y\n" +
                                             s_strStore);
    const std::vector<SRunStop> vStops = RunThrough(file, {{"iadd r4.x, r3.x, l0.y", s_strStoreLine}, "r3", {"r3"}});
    ASSERT_EQ(vStops.size(), 2u);
    EXPECT_EQ(vStops[0].nRuns, 1u + 1);
    EXPECT_THAT(vStops[0].vValues, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8));
    EXPECT_EQ(vStops[1].nRuns, 1u + 1) << "one for the mask, one for the stop's instruction";
    EXPECT_EQ(vStops[1].vValues, vStops[0].vValues);
}

TEST(Breakpoints, OnTheNextLineTheRunMovesOn)
{
    // The test comes after the first movement: the next instruction is executed even if it has a breakpoint.
    const SLaunchFile file = MakeSmallKernel("mov r3.x, r0.x\n"
                                             "iadd r3.x, r3.x, l0.y\n"
                                             "iadd r3.x, r3.x, l0.x\n" +
                                             s_strStore);
    const std::vector<SRunStop> vStops =
        RunThrough(file, {{"iadd r3.x, r3.x, l0.y", "iadd r3.x, r3.x, l0.x"}, "r3", {}});
    ASSERT_EQ(vStops.size(), 2u);
    EXPECT_EQ(vStops[0].strNextLine, "iadd r3.x, r3.x, l0.y");
    EXPECT_EQ(vStops[1].strNextLine, "iadd r3.x, r3.x, l0.x");
    EXPECT_EQ(vStops[1].nRuns, 2u);
    EXPECT_THAT(vStops[1].vValues, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8));
}

namespace
{

// Work-item n makes n + 1 passes, at most 4.
const std::string s_strLoop = "mov r3.x, l0.z\n"
                              "whileloop\n"
                              "iadd r3.x, r3.x, l0.y\n"
                              "ilt r4.x, r0.x, r3.x\n"
                              "break_logicalnz r4.x\n"
                              "ige r4.x, r3.x, l1.x\n"
                              "break_logicalnz r4.x\n"
                              "mov r5.x, r3.x\n"
                              "endloop\n";
const char s_szLiterals[] = "dcl_literal l1, 4, 5, 1000000, 8\n";

} // namespace

TEST(Breakpoints, InALoopEachPassOfThoseWhoAreLeftIsAStop)
{
    for (const bool bTracking : {false, true})
    {
        SRunPlan plan{{"mov r5.x, r3.x"}, "r3", {}};
        if (bTracking)
        {
            plan.vTracked = {"r3"};
        }
        std::vector<int> vOutputs;
        const std::vector<SRunStop> vStops =
            RunThrough(MakeSmallKernel(s_strLoop + s_strStore, s_szLiterals), plan, &vOutputs);
        ASSERT_EQ(vStops.size(), 3u) << "in the fourth pass all have left";
        if (!bTracking)
        {
            EXPECT_THAT(vStops[0].vValues, ElementsAre(-1, 1, 1, 1, 1, 1, 1, 1));
            EXPECT_THAT(vStops[1].vValues, ElementsAre(-1, -1, 2, 2, 2, 2, 2, 2));
            EXPECT_THAT(vStops[2].vValues, ElementsAre(-1, -1, -1, 3, 3, 3, 3, 3));
        }
        EXPECT_THAT(vOutputs, ElementsAre(1, 2, 3, 4, 4, 4, 4, 4));
    }
}

TEST(Breakpoints, ALoopWithoutOneIsPassedOverAtNoCost)
{
    const SLaunchFile file = MakeSmallKernel(s_strLoop + s_strStore, s_szLiterals);
    const std::vector<SRunStop> vStops = RunThrough(file, {{s_strStoreLine}, "r3", {}});
    ASSERT_EQ(vStops.size(), 1u);
    EXPECT_EQ(vStops[0].nRuns, s_nFrame + 3 + 1) << "r3, r4 and r5, and the mask at the loop's end";
    EXPECT_THAT(vStops[0].vValues, ElementsAre(1, 2, 3, 4, 4, 4, 4, 4));
}

TEST(Breakpoints, AfterALoopOfAMillionPasses)
{
    const SLaunchFile file = MakeSmallKernel("mov r3.x, r0.x\n"
                                             "mov r4.x, l0.z\n"
                                             "whileloop\n"
                                             "ige r5.x, r4.x, l1.z\n"
                                             "break_logicalnz r5.x\n"
                                             "iadd r4.x, r4.x, l0.y\n"
                                             "iadd r3.x, r3.x, l0.x\n"
                                             "endloop\n" +
                                                 s_strStore,
                                             s_szLiterals);
    std::vector<int> vOutputs;
    const std::vector<SRunStop> vStops = RunThrough(file, {{s_strStoreLine}, "r3", {"r3", "r4"}}, &vOutputs);
    ASSERT_EQ(vStops.size(), 1u);
    EXPECT_EQ(vStops[0].nRuns, 2u + 1);
    EXPECT_THAT(vStops[0].vValues, ElementsAre(2000000, 2000001, 2000002, 2000003, 2000004, 2000005, 2000006, 2000007));
    EXPECT_EQ(vOutputs, vStops[0].vValues);
}

namespace
{

const std::string s_strIf = "mov r3.x, r0.x\n"
                            "ilt r4.x, r0.x, l1.x\n"
                            "if_logicalnz r4.x\n"
                            "iadd r3.x, r3.x, l0.x\n"
                            "mov r5.x, r3.x\n"
                            "else\n"
                            "isub r3.x, r3.x, l0.x\n"
                            "mov r6.x, r3.x\n"
                            "endif\n";

} // namespace

TEST(Breakpoints, InOneBranchOfAnIf)
{
    const SLaunchFile file = MakeSmallKernel(s_strIf + s_strStore, s_szLiterals);
    std::vector<SRunStop> vStops = RunThrough(file, {{"mov r5.x, r3.x"}, "r3", {}});
    ASSERT_EQ(vStops.size(), 1u);
    EXPECT_THAT(vStops[0].vValues, ElementsAre(2, 3, 4, 5, -1, -1, -1, -1));

    vStops = RunThrough(file, {{"mov r6.x, r3.x", s_strStoreLine}, "r3", {}});
    ASSERT_EQ(vStops.size(), 2u);
    EXPECT_THAT(vStops[0].vValues, ElementsAre(-1, -1, -1, -1, 2, 3, 4, 5));
    EXPECT_THAT(vStops[1].vValues, ElementsAre(2, 3, 4, 5, 2, 3, 4, 5)) << "of both branches";

    // Each branch is executed in turn, so each has its stop.
    vStops = RunThrough(file, {{"mov r5.x, r3.x", "mov r6.x, r3.x"}, "r5", {}});
    ASSERT_EQ(vStops.size(), 2u);
    EXPECT_EQ(vStops[0].strNextLine, "mov r5.x, r3.x");
    EXPECT_EQ(vStops[1].strNextLine, "mov r6.x, r3.x");
}

TEST(Breakpoints, InABlockThatNobodyEntersNoStopComes)
{
    std::vector<int> vOutputs;
    const std::string strNobody = "mov r3.x, r0.x\n"
                                  "ilt r4.x, r0.x, l0.z\n"
                                  "if_logicalnz r4.x\n"
                                  "mov r3.x, l0.z\n"
                                  "endif\n";
    std::vector<SRunStop> vStops =
        RunThrough(MakeSmallKernel(strNobody + s_strStore), {{"mov r3.x, l0.z"}, "r3", {}}, &vOutputs);
    EXPECT_TRUE(vStops.empty());
    EXPECT_THAT(vOutputs, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));

    // The same in a loop that has to be left when no work-item is in it any more.
    const std::string strLoop = "mov r3.x, l0.z\n"
                                "whileloop\n"
                                "iadd r3.x, r3.x, l0.y\n"
                                "ilt r4.x, r0.x, l0.z\n"
                                "if_logicalnz r4.x\n"
                                "mov r5.x, r3.x\n"
                                "endif\n"
                                "ige r4.x, r3.x, l1.x\n"
                                "if_logicalnz r4.x\n"
                                "break\n"
                                "endif\n"
                                "endloop\n";
    vOutputs.clear();
    vStops = RunThrough(MakeSmallKernel(strLoop + s_strStore, s_szLiterals), {{"mov r5.x, r3.x"}, "r3", {}}, &vOutputs);
    EXPECT_TRUE(vStops.empty());
    EXPECT_THAT(vOutputs, ElementsAre(4, 4, 4, 4, 4, 4, 4, 4));

    vStops =
        RunThrough(MakeSmallKernel(strLoop + s_strStore, s_szLiterals), {{"mov r5.x, r3.x", s_strStoreLine}, "r3", {}});
    ASSERT_EQ(vStops.size(), 1u) << "the line after it is met all the same";
    EXPECT_THAT(vStops[0].vValues, ElementsAre(4, 4, 4, 4, 4, 4, 4, 4));
}

TEST(Breakpoints, OnTheLinesOfABlockItselfAllAreMet)
{
    const SLaunchFile file = MakeSmallKernel(s_strIf + s_strStore, s_szLiterals);
    const std::vector<SRunStop> vStops = RunThrough(file, {{"if_logicalnz r4.x", "else", "endif"}, "r3", {}});
    ASSERT_EQ(vStops.size(), 3u);
    EXPECT_EQ(vStops[0].strNextLine, "if_logicalnz r4.x");
    EXPECT_THAT(vStops[0].vValues, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
    EXPECT_EQ(vStops[1].strNextLine, "else");
    EXPECT_THAT(vStops[1].vValues, ElementsAre(2, 3, 4, 5, -1, -1, -1, -1));
    EXPECT_EQ(vStops[2].strNextLine, "endif");
    EXPECT_THAT(vStops[2].vValues, ElementsAre(-1, -1, -1, -1, 2, 3, 4, 5));
}

TEST(Breakpoints, AtTheEndOfALoopOnlyTheLastPassIsSteppedThrough)
{
    const SLaunchFile file = MakeSmallKernel("mov r3.x, r0.x\n"
                                             "mov r4.x, l0.z\n"
                                             "whileloop\n"
                                             "ige r5.x, r4.x, l1.z\n"
                                             "break_logicalnz r5.x\n"
                                             "iadd r4.x, r4.x, l0.y\n"
                                             "endloop\n" +
                                                 s_strStore,
                                             "dcl_literal l1, 4, 5, 2000, 8\n");
    const std::vector<SRunStop> vStops = RunThrough(file, {{"endloop", s_strStoreLine}, "r4", {}});
    ASSERT_EQ(vStops.size(), 2u);
    EXPECT_EQ(vStops[0].strNextLine, "endloop");
    EXPECT_THAT(vStops[0].vValues, testing::Each(-1)) << "all have left by the break";
    EXPECT_LT(vStops[0].nRuns, 30u);
    EXPECT_THAT(vStops[1].vValues, testing::Each(2000));
}

TEST(Breakpoints, InACalledFunction)
{
    const std::string strBody = "mov r3.x, r0.x\n"
                                "ilt r4.x, r0.x, l1.x\n"
                                "if_logicalnz r4.x\n"
                                "call 1031\n"
                                "endif\n" +
                                s_strStore;
    const SLaunchFile file = MakeSmallKernel(strBody, s_szLiterals,
                                             "func 1031\n"
                                             ";inner\n"
                                             "iadd r3.x, r3.x, l0.x\n"
                                             "mov r5.x, r3.x\n"
                                             "ret\n"
                                             "endfunc\n");
    std::vector<int> vOutputs;
    std::vector<SRunStop> vStops = RunThrough(file, {{"mov r5.x, r3.x"}, "r3", {}}, &vOutputs);
    ASSERT_EQ(vStops.size(), 1u) << "a block with a call of it holds the breakpoint";
    EXPECT_THAT(vStops[0].vValues, ElementsAre(2, 3, 4, 5, -1, -1, -1, -1));
    EXPECT_THAT(vOutputs, ElementsAre(2, 3, 4, 5, 4, 5, 6, 7));

    // If the block is skipped, the function's registers are read after it.
    vStops = RunThrough(file, {{s_strStoreLine}, "r5", {}});
    ASSERT_EQ(vStops.size(), 1u);
    EXPECT_THAT(vStops[0].vValues, ElementsAre(2, 3, 4, 5, 0, 0, 0, 0));
}

TEST(Breakpoints, AfterACaseThatNobodyComesToTheEndOf)
{
    // Work-items in case 1 leave it by the break in the if. Nobody reaches the line after it, so values skipped there
    // must not be shown for the default's work-items.
    const SLaunchFile file = MakeSmallKernel("mov r3.x, r0.x\n"
                                             "ige r4.x, r0.x, l1.x\n"
                                             "switch r4.x\n"
                                             "case 0\n"
                                             "switch r4.x\n"
                                             "case 1\n"
                                             "mov r3.x, l1.y\n"
                                             "break\n"
                                             "endswitch\n"
                                             "ilt r5.x, r0.x, l1.w\n"
                                             "if_logicalnz r5.x\n"
                                             "break\n"
                                             "endif\n"
                                             "mov r6.x, r3.x\n"
                                             "break\n"
                                             "default\n"
                                             "mov r7.x, r3.x\n"
                                             "break\n"
                                             "endswitch\n" +
                                                 s_strStore,
                                             s_szLiterals);
    const std::vector<SRunStop> vStops = RunThrough(file, {{"mov r7.x, r3.x"}, "r3", {}});
    ASSERT_EQ(vStops.size(), 1u);
    EXPECT_THAT(vStops[0].vValues, ElementsAre(-1, -1, -1, -1, 4, 5, 6, 7));
}
