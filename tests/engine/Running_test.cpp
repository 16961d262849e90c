#include "Kernels.h"
#include "TestSession.h"

namespace OVK_ShaderDebugger
{

namespace
{

/// Compares the registers of the active work-items with the plain run's after each execution.
void ExpectTrueValues(CTestSession& session, const CTrace& trace)
{
    const SPlace place = session.Place();
    const std::vector<uint32_t> vMask = session.Mask();
    std::map<std::string, std::vector<std::optional<uint32_t>>> values;
    bool bFound = false;
    for (const SExecuted& executed : trace.vExecuted)
    {
        auto& vValues = values[executed.strRegister];
        vValues.resize(4 * vMask.size());
        for (size_t n = 0; n < executed.vValues.size(); ++n)
        {
            if (executed.vMask[n / 4] != 0)
            {
                vValues[n] = executed.vValues[n];
            }
        }
        bFound = !(executed.place < place) && !(place < executed.place);
        if (bFound)
        {
            break;
        }
    }
    ASSERT_TRUE(bFound) << "the plain run isn't at " << place;
    values.erase("");
    for (const auto& entry : values)
    {
        const std::vector<uint32_t> vRead = session.Read(entry.first);
        ASSERT_FALSE(vRead.empty()) << entry.first << " at " << place;
        for (size_t n = 0; n < vRead.size(); ++n)
        {
            if (vMask[n / 4] != 0 && entry.second[n].has_value())
            {
                EXPECT_EQ(vRead[n], *entry.second[n])
                    << entry.first << " of " << n / 4 << ", component " << n % 4 << " at " << place;
            }
        }
    }
}

class RunKernel : public testing::TestWithParam<SKernelCase>
{
};

/// The kernel's last store. It is in no block, and all work-items that haven't returned reach it.
InstructionNumber LastStore(CTestSession& session)
{
    InstructionNumber n = CTestSession::s_nBody;
    while (session.Shader().OpCodeAt(n + 1) != IL_OP_RET)
    {
        ++n;
    }
    return n;
}

TEST_P(RunKernel, StopsBeforeEachLineWithTheValuesOfThePlainRun)
{
    for (InstructionNumber nLine = CTestSession::s_nBody + 1;; ++nLine)
    {
        CTestSession session(GetParam().strBody, GetParam().strFunctions);
        const CTrace trace = session.Trace();
        ASSERT_TRUE(session.Start());
        const uint32_t nOpCode = session.Shader().OpCodeAt(nLine);
        if (nOpCode == IL_OP_END)
        {
            break;
        }
        const InstructionNumber nLast = LastStore(session);
        if (!session.Debugger().AddBreakPointAtInstructionNumber(nLine) ||
            (nLine != nLast && !session.Debugger().AddBreakPointAtInstructionNumber(nLast)))
        {
            continue;
        }
        size_t nStops = 0;
        size_t nLastStops = 0;
        while (session.Debugger().Run() && !HasFailure() && nStops < 1000)
        {
            const InstructionNumber nNext = session.Shader().GetNextInstruction().m_nPos;
            EXPECT_TRUE(nNext == nLine || nNext == nLast) << nNext;
            nStops += nNext == nLine;
            nLastStops += nNext == nLast;
            ExpectTrueValues(session, trace);
        }
        ASSERT_FALSE(HasFailure()) << "breakpoint at " << nLine;
        EXPECT_EQ(nLastStops, 1u) << "breakpoint at " << nLine;
        const size_t nExpected =
            std::count_if(trace.vExecuted.begin(), trace.vExecuted.end(),
                          [&](const SExecuted& executed) { return executed.place.nInstruction == nLine; });
        if (!ILShaderUtils::IsFlowControlOp(ILOpCode(nOpCode)))
        {
            EXPECT_EQ(nStops, nExpected) << "breakpoint at " << nLine;
        }
        session.Debugger().EndDebugging(true);
        EXPECT_EQ(session.Buffer(), session.Expected()) << "breakpoint at " << nLine;
    }
}

TEST_P(RunKernel, RunsOnFromWhereItHasSteppedTo)
{
    bool bMore = true;
    for (unsigned int nSteps = 1; bMore && !HasFailure(); nSteps += 3)
    {
        CTestSession session(GetParam().strBody, GetParam().strFunctions);
        const CTrace trace = session.Trace();
        ASSERT_TRUE(session.Start());
        const InstructionNumber nLast = LastStore(session);
        for (unsigned int n = 0; bMore && n < nSteps; ++n)
        {
            bMore = session.Debugger().Step() && session.Shader().GetNextInstruction().m_nPos < nLast;
        }
        ASSERT_TRUE(session.Debugger().AddBreakPointAtInstructionNumber(nLast));
        if (bMore)
        {
            ASSERT_TRUE(session.Debugger().Run()) << nSteps;
            EXPECT_EQ(session.Shader().GetNextInstruction().m_nPos, nLast);
            ExpectTrueValues(session, trace);
        }
    }
}

TEST_P(RunKernel, GoesBackToTheStopBeforeAndOverLinesThatItPassed)
{
    for (InstructionNumber nLine = CTestSession::s_nBody + 1;; ++nLine)
    {
        CTestSession session(GetParam().strBody, GetParam().strFunctions);
        const CTrace trace = session.Trace();
        ASSERT_TRUE(session.Start());
        if (session.Shader().OpCodeAt(nLine) == IL_OP_END)
        {
            break;
        }
        if (!session.Debugger().AddBreakPointAtInstructionNumber(nLine) || !session.Debugger().Run())
        {
            continue;
        }
        const SPlace first = session.Place();
        const Registers shown = session.ReadAll();
        if (session.Debugger().Run())
        {
            const Registers shownSecond = session.ReadAll();
            ASSERT_TRUE(session.Debugger().RunBack());
            EXPECT_EQ(session.ReadAll(), shown) << "breakpoint at " << nLine;
            EXPECT_EQ(session.Place().nInstruction, first.nInstruction);
            ASSERT_TRUE(session.Debugger().Run());
            EXPECT_EQ(session.ReadAll(), shownSecond) << "breakpoint at " << nLine;
        }
        for (unsigned int n = 0; n < 6 && session.Debugger().Back() && !HasFailure(); ++n)
        {
            ExpectTrueValues(session, trace);
        }
        ASSERT_FALSE(HasFailure()) << "breakpoint at " << nLine;
    }
}

/// The stops of a run: instruction number in the body, and number of active work-items.
struct SRun
{
    InstructionNumber nNext;
    unsigned int nActive;
};

void ExpectRuns(CTestSession& session, const std::vector<InstructionNumber>& vBreakpoints,
                const std::vector<SRun>& vExpected)
{
    ASSERT_TRUE(session.Start());
    for (const InstructionNumber n : vBreakpoints)
    {
        ASSERT_TRUE(session.Debugger().AddBreakPointAtInstructionNumber(CTestSession::s_nBody + n));
    }
    for (const SRun& expected : vExpected)
    {
        ASSERT_TRUE(session.Debugger().Run());
        EXPECT_EQ(session.Shader().GetNextInstruction().m_nPos, CTestSession::s_nBody + expected.nNext);
        EXPECT_EQ(session.Active(), expected.nActive);
    }
}

const std::string s_LoopHead = "mov r0, vTidInGrp.xxxx\nmov r3, l20\nwhileloop\niadd r3, r3, l21\nuge r2, r3, l23\n"
                               "break_logicalnz r2.x\nult r2, r0, l23\nif_logicalnz r2.x\n";

// Three work-items enter the if and continue with the next pass from there. None is left at the rest of the if-part, so
// the run continues where the others are.
TEST(Running, GoesFromALineThatNobodyComesToToTheOthersOfThePass)
{
    const std::string strAfterALine =
        s_LoopHead + "ult r4, r0, l24\nif_logicalnz r4.x\ncontinue\nendif\niadd r5, r5, l21\nmov r6, r5\n"
                     "else\nmov r7, r3\nendif\nendloop\n";
    CTestSession behindALine(strAfterALine);
    ExpectRuns(behindALine, {13, 15}, {{15, 5}, {15, 5}});
    // Without registers to read, a run takes one kernel run for each of the four control flow instructions, one for the
    // mask before each of the two lines, and the stop's own. The count before the if is known from the break if nothing
    // on the way changes it; otherwise one more run finds it.
    const struct
    {
        const char* pszBlock;
        InstructionNumber nLength;
        unsigned int nMore;
    } blocks[] = {{"if_logicalnz r2.x\nmov r8, r3\nendif\n", 3, 0},
                  {"ult r8, r0, l21\nif_logicalnz r8.x\ncontinue\nendif\n", 4, 1},
                  {"ult r8, r0, l21\nif_logicalnz r8.x\nret\nendif\n", 4, 1}};
    for (const auto& block : blocks)
    {
        std::string strAfterABlock = strAfterALine;
        strAfterABlock.insert(strAfterABlock.find("if_"), block.pszBlock);
        CTestSession unread(strAfterABlock);
        ExpectRuns(unread, {13 + block.nLength, 15 + block.nLength}, {});
        unread.Debugger().SetTrackingVariables({"r7"});
        unread.Debugger().SetEnableTrackingVariables(true);
        unread.TakeRuns();
        ASSERT_TRUE(unread.Debugger().Run());
        EXPECT_EQ(unread.Shader().GetNextInstruction().m_nPos, CTestSession::s_nBody + 15 + block.nLength);
        EXPECT_EQ(unread.TakeRuns(), 4u + 2 + 1 + block.nMore);
    }
    CTestSession behindABlock(s_LoopHead +
                              "ult r4, r0, l22\nif_logicalnz r4.x\ncontinue\nelse\ncontinue\nendif\nmov r6, r5\n"
                              "else\nmov r7, r3\nendif\nendloop\n");
    ExpectRuns(behindABlock, {14, 16}, {{16, 5}, {16, 5}});
}

// The run stops after a block that some work-items have left for good: by a return, a break of the loop, or of the
// switch.
TEST(Running, ShowsWhatThoseWroteWhoLeftAPassedOverBlock)
{
    CTestSession session(
        s_Id + "call 1025\n" + s_Store,
        "func 1025\nmov r3, l20\nwhileloop\nuge r2, r3, l22\nbreak_logicalnz r2.x\niadd r3, r3, l21\n"
        "ult r2, r0, l24\nif_logicalnz r2.x\niadd r7, r0, r3\nult r2, r0, l21\nif_logicalnz r2.x\nret\nendif\n"
        "ult r2, r0, l23\nif_logicalnz r2.x\nbreak\nendif\nendif\niadd r1, r1, r3\nendloop\nswitch r3.x\ncase 1\n"
        "ult r2, r0, l22\nif_logicalnz r2.x\niadd r6, r0, r3\nbreak\nendif\niadd r1, r1, r3\nbreak\nendswitch\n"
        "ret\nendfunc\n");
    const CTrace trace = session.Trace();
    ASSERT_TRUE(session.Start());
    for (const InstructionNumber n : {27, 36, 6})
    {
        ASSERT_TRUE(session.Debugger().AddBreakPointAtInstructionNumber(CTestSession::s_nBody + n));
    }
    for (const SRun& expected : {SRun{27, 5}, SRun{27, 5}, SRun{36, 1}, SRun{6, 8}})
    {
        ASSERT_TRUE(session.Debugger().Run());
        EXPECT_EQ(session.Shader().GetNextInstruction().m_nPos, CTestSession::s_nBody + expected.nNext);
        EXPECT_EQ(session.Active(), expected.nActive);
        ExpectTrueValues(session, trace);
        for (unsigned int n = 0; expected.nNext == 36 && n < 3; ++n)
        {
            ASSERT_TRUE(session.Debugger().Step()) << "to the end of the switch";
        }
        ExpectTrueValues(session, trace);
    }
}

TEST(Running, LeavesNothingToReadAfterAWholeLoop)
{
    CTestSession session(s_Kernels[6].strBody);
    ExpectRuns(session, {13}, {{13, 8}});
    for (unsigned int n = 0; n < 40; ++n)
    {
        session.TakeRuns();
        ASSERT_TRUE(session.Debugger().Step());
        EXPECT_EQ(session.TakeRuns(), 1u) << "at " << session.Place();
    }
}

TEST(Running, GoesBackIntoABlockThatItPassedOver)
{
    CTestSession session("mov r0, vTidInGrp.xxxx\nult r2, r0, l23\nif_logicalnz r2.x\nmov r1, l21\nendif\n"
                         "if_logicalnz r2.x\nmov r1, l22\nmov r1, l23\nendif\n");
    ExpectRuns(session, {7}, {{7, 3}});
    for (const InstructionNumber n : {5, 4, 3, 2, 1, 0})
    {
        ASSERT_TRUE(session.Debugger().Back());
        EXPECT_EQ(session.Place().nInstruction, CTestSession::s_nBody + n);
    }
    for (const InstructionNumber n : {1, 2, 3})
    {
        ASSERT_TRUE(session.Debugger().Step());
        EXPECT_EQ(session.Place().nInstruction, CTestSession::s_nBody + n);
    }
}

INSTANTIATE_TEST_SUITE_P(Kernels, RunKernel, testing::ValuesIn(s_Kernels),
                         [](const auto& test) { return std::string(test.param.pszName); });

} // namespace

} // namespace OVK_ShaderDebugger
