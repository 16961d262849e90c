#include "Kernels.h"
#include "TestSession.h"

namespace OVK_ShaderDebugger
{

namespace
{

class SteppedKernel : public testing::TestWithParam<SKernelCase>
{
};

void CompareStop(CTestSession& session, const CTrace& trace, Registers& shown)
{
    const SPlace place = session.Place();
    const SExecuted* pExecuted = trace.Find(place);
    const std::vector<uint32_t> vMask = session.Mask();
    const std::vector<uint32_t> vExpected =
        pExecuted != nullptr ? pExecuted->vMask : std::vector<uint32_t>(CTestSession::s_nItems, 0);
    EXPECT_EQ(vMask, vExpected) << "mask at " << place;
    if (pExecuted != nullptr && !pExecuted->strRegister.empty())
    {
        std::vector<uint32_t>& vShown = shown[pExecuted->strRegister];
        const std::vector<uint32_t> vRead = session.Read(pExecuted->strRegister);
        ASSERT_EQ(vRead.size(), pExecuted->vValues.size()) << "at " << place;
        if (vShown.empty())
        {
            vShown = vRead;
        }
        for (size_t n = 0; n < vShown.size(); ++n)
        {
            vShown[n] = pExecuted->vMask[n / 4] != 0 ? pExecuted->vValues[n] : vShown[n];
        }
    }
    for (const auto& entry : shown)
    {
        EXPECT_EQ(session.Read(entry.first), entry.second) << entry.first << " at " << place;
    }
}

TEST_P(SteppedKernel, ShowsWhatThePlainRunDoes)
{
    CTestSession session(GetParam().strBody, GetParam().strFunctions);
    const CTrace trace = session.Trace();
    ASSERT_FALSE(trace.vExecuted.empty());
    ASSERT_TRUE(session.Start()) << session.Device().strShaderError;
    const CSimtDevice::Bytes before = session.Buffer();
    Registers shown;
    unsigned int nStops = 0;
    do
    {
        CompareStop(session, trace, shown);
        EXPECT_EQ(session.Buffer(), before);
        // The start also dumps the arguments. The next position is known without a run, and so is the mask after a
        // macro's last instruction.
        const bool bSlots = session.Shader().GetCurrentRegister().reg.type == RT_PrivateUAVAccess;
        const bool bMacro = session.Shader().OpCodeAt(session.Place().nInstruction) == IL_OP_MACROCALL &&
                            session.Shader().GetCurrentRegister() == g_Reg_NULL;
        // The condition of a conditional call is evaluated at the start of the function.
        const ILOpCode next = session.Shader().OpCodeAt(session.Place().nInstruction + 1);
        const bool bAsks = next == IL_OP_CALL_LOGICALZ || next == IL_OP_CALL_LOGICALNZ;
        EXPECT_EQ(session.TakeRuns(), (nStops == 0 ? 2u
                                       : bSlots    ? 3u
                                       : bMacro    ? 0u
                                                   : 1u) +
                                          (bAsks ? 1 : 0))
            << "at " << session.Place();
    } while (!HasFailure() && ++nStops < 1000 && session.Debugger().Step());
    ASSERT_LT(nStops, 1000u);
    EXPECT_EQ(session.Place().nInstruction, 0u) << "the call of the kernel's function comes last";
    session.TakeRuns();
    EXPECT_FALSE(session.Debugger().Step());
    EXPECT_EQ(session.TakeRuns(), 0u) << "past the end";
    session.Debugger().EndDebugging(true);
    EXPECT_EQ(session.Buffer(), session.Expected());
}

TEST_P(SteppedKernel, GoesBackToWhatItShowed)
{
    CTestSession session(GetParam().strBody, GetParam().strFunctions);
    ASSERT_TRUE(session.Start());
    struct SShown
    {
        ProgramCounter pc;
        std::vector<uint32_t> vMask;
        Registers registers;
    };
    std::vector<SShown> vShown;
    const auto note = [&] {
        return SShown{session.Debugger().GetCurrentInstruction(), session.Mask(), session.ReadAll()};
    };
    do
    {
        vShown.push_back(note());
    } while (session.Debugger().Step());
    // The last step ends the kernel, so go back and forth before it.
    for (const size_t nBack : {size_t(1), size_t(3), vShown.size() - 2})
    {
        const size_t nLast = vShown.size() - 1;
        const bool bAtLast = session.Debugger().GetCurrentInstruction() == vShown[nLast].pc;
        if (!bAtLast)
        {
            ASSERT_TRUE(session.Debugger().Back());
        }
        for (size_t n = 1; n <= std::min(nBack, nLast); ++n)
        {
            ASSERT_TRUE(session.Debugger().Back());
            const SShown now = note();
            EXPECT_EQ(now.pc, vShown[nLast - n].pc);
            EXPECT_EQ(now.vMask, vShown[nLast - n].vMask) << "back at " << session.Place();
            EXPECT_EQ(now.registers, vShown[nLast - n].registers) << "back at " << session.Place();
        }
        for (size_t n = nLast - std::min(nBack, nLast) + 1; n <= nLast; ++n)
        {
            ASSERT_TRUE(session.Debugger().Step());
            const SShown now = note();
            EXPECT_EQ(now.pc, vShown[n].pc);
            EXPECT_EQ(now.registers, vShown[n].registers) << "again at " << session.Place();
        }
        if (HasFailure())
        {
            return;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Kernels, SteppedKernel, testing::ValuesIn(s_Kernels),
                         [](const auto& test) { return std::string(test.param.pszName); });

struct SStopCase
{
    InstructionNumber nPos; ///< in the function's body
    int nPass;              ///< -1 outside a loop
    unsigned int nCount;
};

/// One work-item takes the break in the first pass, one in the second, two in the third.
TEST(Stepping, WalksADivergentLoopByItsCounts)
{
    CTestSession session("mov r3, l20\nwhileloop\nuge r2, r3, vTidInGrp.xxxx\nif_logicalnz r2.x\nbreak\nendif\n"
                         "iadd r3, r3, l21\nendloop\nmov r1, r3\n",
                         "", 4);
    const SStopCase stops[] = {{0, -1, 4}, {1, 0, 4}, {2, 0, 4},  {3, 0, 1}, {4, 0, 0}, {5, 0, 3}, {6, 0, 3},
                               {1, 1, 3},  {2, 1, 3}, {3, 1, 1},  {4, 1, 0}, {5, 1, 2}, {6, 1, 2}, {1, 2, 2},
                               {2, 2, 2},  {3, 2, 1}, {4, 2, 0},  {5, 2, 1}, {6, 2, 1}, {1, 3, 1}, {2, 3, 1},
                               {3, 3, 1},  {4, 3, 0}, {7, -1, 4}, {8, -1, 4}};
    ASSERT_TRUE(session.Start());
    for (const SStopCase& stop : stops)
    {
        ASSERT_TRUE(session.Debugger().Step());
        const ProgramCounter pc = session.Debugger().GetCurrentInstruction();
        EXPECT_EQ(pc.m_nPos, stop.nPos + CTestSession::s_nBody);
        ASSERT_EQ(pc.m_LoopStack.size(), stop.nPass < 0 ? 0u : 1u);
        EXPECT_TRUE(stop.nPass < 0 || pc.m_LoopStack[0].nLoopIteration == unsigned(stop.nPass));
        EXPECT_EQ(session.Active(), stop.nCount) << "at " << session.Place();
    }
}

TEST(Stepping, EntersAnOutlineMacroAfterOtherMacros)
{
    CTestSession session(s_Id + "ult r2, r0, l23\nif_logicalnz r2.x\nmcall(3)_in(0)\nendif\n",
                         "mdef(4)_outline\n;other\nmov r7, l22\nmend\nmdef(5)_outline\n;another\nmend\n"
                         "mdef(3)_outline\n;k\niadd r3, r0, l22\nmend\n");
    ASSERT_TRUE(session.Start());
    unsigned int nVisits = 0;
    while (session.Debugger().Step())
    {
        if (session.Shader().GetCurrentRegister() == Register(RT_Temp, 3, COMP_All))
        {
            ++nVisits;
            EXPECT_EQ(session.Mask(), (std::vector<uint32_t>{1, 1, 1, 0, 0, 0, 0, 0}));
            const std::vector<uint32_t> vRead = session.Read("r3");
            ASSERT_EQ(vRead.size(), 32u);
            EXPECT_EQ(vRead[4], 3u);
            EXPECT_EQ(vRead[8], 4u);
        }
    }
    EXPECT_EQ(nVisits, 1u);
}

/// In a macro's first call two work-items are in its block, in the second call four; the same holds for a function that
/// it calls.
TEST(Stepping, ShowsEachCallOfAMacro)
{
    const std::string strBlock = "if_logicalnz r5.x\niadd r3, r3, l21\nendif\n";
    for (const std::string& strFunctions :
         {"mdef(3)_outline\n;k\n" + strBlock + "mend\n",
          "func 1025\n" + strBlock + "ret\nendfunc\nmdef(3)_outline\n;k\ncall 1025\nmend\n"})
    {
        CTestSession session(s_Id + "ult r5, r0, l22\nmcall(3)_in(0)\nuge r5, r0, l24\nmcall(3)_in(0)\n", strFunctions);
        ASSERT_TRUE(session.Start());
        unsigned int nVisits = 0;
        while (session.Debugger().Step())
        {
            const bool bInBlock = session.Shader().GetDestRegister(session.Debugger().GetCurrentInstruction()) ==
                                  Register(RT_Temp, 3, COMP_All);
            const std::vector<uint32_t> vWanted = nVisits == 0 ? std::vector<uint32_t>{1, 1, 0, 0, 0, 0, 0, 0}
                                                               : std::vector<uint32_t>{0, 0, 0, 0, 1, 1, 1, 1};
            EXPECT_TRUE(!bInBlock || session.Mask() == vWanted) << session.Place();
            nVisits += bInBlock;
        }
        EXPECT_EQ(nVisits, 2u) << strFunctions;
    }
}

} // namespace

} // namespace OVK_ShaderDebugger
