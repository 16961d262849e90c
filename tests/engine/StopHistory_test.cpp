#include "engine/StopHistory.h"

#include "engine/ResultRegister.h"

#include <gtest/gtest.h>

#include <string>

namespace OVK_ShaderDebugger
{

namespace
{

Register Temp(unsigned int nNumber, RegisterMask mask = COMP_All)
{
    return Register(RT_Temp, nNumber, mask);
}

Register Private(unsigned int nAddress, RegisterMask mask = COMP_All)
{
    return Register(RT_PrivateUAVAccess, 8, mask, nAddress);
}

SStanding StandingAt(InstructionNumber nPos)
{
    SStanding at;
    at.pc = ProgramCounter(nPos);
    at.next = ProgramCounter(nPos + 1);
    return at;
}

SFiling Filed(InstructionNumber nPos, const Register& reg)
{
    return {ProgramCounter(nPos), {}, reg, {}};
}

/// A stop after a step, where a run has read what was written.
void StepTo(CStopHistory& history, InstructionNumber nPos, const Register& reg)
{
    history.NoteFiled(Filed(nPos, reg));
    history.NoteWritten({reg});
    history.Push(StandingAt(nPos), false);
    history.Show();
}

std::string Positions(const std::vector<SFiling>& vFilings)
{
    std::string strPositions;
    for (const SFiling& filing : vFilings)
    {
        strPositions += " " + std::to_string(filing.pc.m_nPos);
    }
    return strPositions;
}

std::string Numbers(const std::vector<Register>& vRegisters)
{
    std::string strNumbers;
    for (const Register& reg : vRegisters)
    {
        strNumbers += (reg.reg.type == RT_Temp ? " r" + std::to_string(reg.reg.number)
                                               : " [" + std::to_string(reg.reg.index) + "]");
    }
    return strNumbers;
}

TEST(StopHistory, TellsWhereEachValueComesFrom)
{
    CStopHistory history;
    StepTo(history, 3, Temp(1));
    StepTo(history, 4, Temp(2));
    StepTo(history, 5, Temp(1, COMP_x));
    StepTo(history, 6, Private(16));
    StepTo(history, 7, Private(24, COMP_xy));
    EXPECT_EQ(Positions(history.FindSources(Temp(1))), " 5 3");
    EXPECT_EQ(Positions(history.FindSources(Temp(2))), " 4");
    EXPECT_EQ(Positions(history.FindSources(Private(20, COMP_x))), " 7 6") << "of the same slot";
    EXPECT_EQ(Positions(history.FindSources(Private(32))), "");
    EXPECT_EQ(Numbers(history.FindWritten()), " [16] r1 r2");
    // A run skipped this instruction: its values are those that a run would read here.
    history.NoteWritten({Temp(2)});
    history.Push(StandingAt(8), true);
    EXPECT_EQ(Positions(history.FindSources(Temp(2))), " 8 4");
    EXPECT_EQ(Positions(history.FindSources(Temp(3))), "") << "nobody has written it";
    const SFiling here = history.ReadingHere(Private(24, COMP_x));
    EXPECT_EQ(here.reg, Private(16));
    EXPECT_EQ(here.leaving, std::set<InstructionNumber>{8}) << "of those who take the jump as well";
    EXPECT_EQ(Numbers(history.FindUnshown()), " r2");
    history.Show();
    EXPECT_EQ(Numbers(history.FindUnshown()), "");
    EXPECT_EQ(Positions(history.FindSources(Temp(2))), " 4");
}

TEST(StopHistory, UndoesWhatFollowedAStopOnTheWayBack)
{
    const struct
    {
        size_t nStop;
        const char* pszChanged;
        const char* pszFiled;
        size_t nOfR1;
        bool bAllShown;
        bool bGoneBack; ///< back from the stop where the movement began
    } cases[] = {
        {3, " r4", " 9", 0, true, false},
        {2, " r4 r1", " 9 5", 1, true, true},
        {0, " r4 r1 r3 r2", " 9 5 4", 1, false, true},
    };
    for (const auto& test : cases)
    {
        CStopHistory history;
        StepTo(history, 2, Temp(1));
        history.NoteWritten({Temp(3), Temp(2)});
        history.NoteFiled(Filed(4, Temp(2)));
        history.NoteGap();
        history.Push(StandingAt(4), false); // never shown
        history.Push(StandingAt(4), false);
        history.Show();
        StepTo(history, 5, Temp(1));
        history.BeginMovement();
        history.NoteWritten({Temp(4)});
        history.NoteFiled(Filed(9, Temp(4)));
        const CStopHistory::SUndone undone = history.GoBackTo(test.nStop);
        EXPECT_EQ(history.Count(), test.nStop + 1);
        EXPECT_EQ(Numbers(undone.vChanged), test.pszChanged) << test.nStop;
        EXPECT_EQ(Positions(undone.vFiled), test.pszFiled) << test.nStop;
        EXPECT_EQ(undone.CountFilings(Temp(1, COMP_y)), test.nOfR1) << test.nStop;
        EXPECT_EQ(undone.bAllShown, test.bAllShown) << test.nStop;
        EXPECT_EQ(history.HasGoneBack(), test.bGoneBack) << test.nStop;
        EXPECT_EQ(history.CountKept(), test.nStop + 1);
        StepTo(history, 20, Temp(5));
        EXPECT_EQ(history.CountKept(), test.nStop + 1) << "a new stop isn't one of those";
        EXPECT_FALSE(history.Newest().bGap) << "what was noted went with what was undone";
        EXPECT_EQ(Numbers(history.Newest().vWritten), " r5");
    }
}

TEST(Position, ComesBeforeAnother)
{
    const auto make = [](InstructionNumber nPos, const std::vector<unsigned int>& vPasses,
                         const std::vector<InstructionNumber>& vCalls)
    {
        SPosition position = {ProgramCounter(nPos), {}};
        for (const unsigned int nPass : vPasses)
        {
            position.pc.m_LoopStack.push_back({10, 20, nPass});
        }
        for (const InstructionNumber nCall : vCalls)
        {
            position.callStack.push_front(ProgramCounter(nCall));
        }
        return position;
    };
    const struct
    {
        const char* pszName;
        SPosition earlier;
        SPosition later;
    } cases[] = {
        {"text", make(3, {}, {}), make(4, {}, {})},
        {"pass", make(15, {1}, {}), make(12, {2}, {})},
        {"in a call, and the call", make(90, {}, {5}), make(5, {}, {})},
        {"before a call, and in it", make(4, {}, {}), make(90, {}, {5})},
        {"calls of one function", make(95, {}, {5}), make(90, {}, {6})},
        {"inner calls", make(95, {}, {5, 70}), make(90, {}, {5, 71})},
        {"the outermost decides", make(95, {}, {5, 71}), make(90, {}, {6, 70})},
    };
    for (const auto& test : cases)
    {
        EXPECT_TRUE(IsBefore(test.earlier, test.later)) << test.pszName;
        EXPECT_FALSE(IsBefore(test.later, test.earlier)) << test.pszName;
        EXPECT_FALSE(IsBefore(test.later, test.later)) << test.pszName;
    }
}

} // namespace

} // namespace OVK_ShaderDebugger
