// Compares the time line of stops with a launch whose executed lines are all known.
#include "tools/session/debug/TimeLine.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

using namespace KestrelTool;

namespace
{

const CListing s_Loop({"il_cs_2_0", "call 1024", "endmain", "func 1024", ";__OpenCL_k_kernel", "mov r0, r1",
                       "whileloop", "mov r1, r2", "break_logicalnz r0.x", "mov r2, r3", "endloop", "mov r3, r4", "ret",
                       "endfunc", "end"});
/// The lines that are executed, one after the other.
const std::vector<unsigned int> s_Moments = {5, 6, 7, 8, 9, 10, 7, 8, 9, 10, 7, 8, 9, 10, 7, 8, 11, 12};

/// A launch, and the time line of the moves in it.
class CLaunchInMoments
{
public:
    CLaunchInMoments() : m_Code(s_Loop) { m_TimeLine.Begin(s_Moments[0]); }

    size_t GetMoment() const { return m_nMoment; }
    const CTimeLine& GetTimeLine() const { return m_TimeLine; }

    /// \return false if it would lead to the end
    bool Move(ovkclDebugCommand command, const CTimeLine::Lines& stops)
    {
        const bool bBack = command == OVKCLDEBUG_COMMAND_EXT_STEP_BACK || command == OVKCLDEBUG_COMMAND_EXT_RUN_BACK;
        const bool bRun = command == OVKCLDEBUG_COMMAND_CONTINUE || command == OVKCLDEBUG_COMMAND_EXT_RUN_BACK;
        size_t nMoment = m_nMoment;
        do
        {
            if (!bBack && nMoment + 1 == s_Moments.size())
            {
                return false;
            }
            nMoment = bBack ? nMoment - (nMoment != 0 ? 1 : 0) : nMoment + 1;
        } while (bRun && stops.count(s_Moments[nMoment]) == 0 && nMoment != 0);
        m_nMoment = nMoment;
        const std::optional<size_t> place = m_TimeLine.GetPlace();
        m_TimeLine.Arrive(
            m_Code, place,
            {command, bRun ? std::make_shared<const CTimeLine::Lines>(stops) : nullptr, s_Moments[nMoment]});
        m_TimeLine.Show(8);
        return true;
    }

    /// Goes to a place of the time line as a session does. \return false if the moves led elsewhere
    bool GoTo(size_t nPlace)
    {
        const std::optional<size_t> runs =
            nPlace < *m_TimeLine.GetPlace() ? m_TimeLine.CountRunsBack(m_Code, nPlace) : std::nullopt;
        const unsigned int nLine = m_TimeLine.GetLine(nPlace);
        for (size_t n = 0; runs && n < *runs; ++n)
        {
            Move(OVKCLDEBUG_COMMAND_EXT_RUN_BACK, {nLine});
        }
        if (*m_TimeLine.GetPlace() > nPlace)
        {
            Move(OVKCLDEBUG_COMMAND_EXT_RUN_BACK, {});
        }
        for (size_t n = *m_TimeLine.GetPlace() + 1; n <= nPlace; ++n)
        {
            const CTimeLine::SMove move = m_TimeLine.GetMove(n);
            if (!Move(move.command, move.pStops != nullptr ? *move.pStops : CTimeLine::Lines()) ||
                m_TimeLine.GetPlace() != n)
            {
                return false;
            }
        }
        return m_TimeLine.GetPlace() == nPlace;
    }

private:
    CCodeMap m_Code;
    CTimeLine m_TimeLine;
    size_t m_nMoment = 0;
};

const ovkclDebugCommand s_Commands[] = {OVKCLDEBUG_COMMAND_STEP, OVKCLDEBUG_COMMAND_CONTINUE,
                                        OVKCLDEBUG_COMMAND_EXT_STEP_BACK, OVKCLDEBUG_COMMAND_EXT_RUN_BACK};
const CTimeLine::Lines s_Stops[] = {{7}, {9}, {5, 7, 9, 11}, {11}, {6, 8}, {8}, {}};

} // namespace

/// No place may stand for two moments, and GoTo must reach each place.
TEST(TimeLine, PlacesAreMoments)
{
    size_t nVisits = 0;
    for (unsigned int nSeed = 0; nSeed < 400; ++nSeed)
    {
        std::mt19937 engine(nSeed);
        CLaunchInMoments launch;
        std::map<size_t, size_t> mapMoments;
        uint64_t nGeneration = 0;
        for (unsigned int n = 0; n < 60; ++n)
        {
            const ovkclDebugCommand command = s_Commands[engine() % 4];
            if (!launch.Move(command, s_Stops[engine() % std::size(s_Stops)]))
            {
                continue;
            }
            const size_t nPlace = *launch.GetTimeLine().GetPlace();
            if (launch.GetTimeLine().GetGeneration() != nGeneration)
            {
                nGeneration = launch.GetTimeLine().GetGeneration();
                mapMoments.erase(mapMoments.lower_bound(nPlace), mapMoments.end());
            }
            const auto [it, bNew] = mapMoments.insert({nPlace, launch.GetMoment()});
            ASSERT_EQ(it->second, launch.GetMoment()) << "seed " << nSeed << ", move " << n;
            nVisits += bNew ? 0 : 1;
        }
        for (const CTimeLine::SStop& stop : std::vector<CTimeLine::SStop>(launch.GetTimeLine().GetStops()))
        {
            ASSERT_TRUE(launch.GoTo(stop.nPlace)) << "seed " << nSeed << ", place " << stop.nPlace;
            EXPECT_EQ(launch.GetMoment(), mapMoments.count(stop.nPlace) != 0 ? mapMoments[stop.nPlace] : 0)
                << "seed " << nSeed << ", place " << stop.nPlace;
        }
        EXPECT_EQ(launch.GetTimeLine().GetGeneration(), nGeneration) << "going along it forgets nothing";
    }
    EXPECT_GT(nVisits, 1000u) << "ways back have to be recognised now and then";
}

TEST(TimeLine, AWayBackIsRecognised)
{
    const struct
    {
        const char* pszName;
        std::vector<std::pair<ovkclDebugCommand, CTimeLine::Lines>> vMoves;
        size_t nPlace;
        size_t nStops;
    } cases[] = {{"a step and one back", {{OVKCLDEBUG_COMMAND_STEP, {}}, {OVKCLDEBUG_COMMAND_EXT_STEP_BACK, {}}}, 0, 2},
                 {"to a breakpoint of a loop's second pass and its first",
                  {{OVKCLDEBUG_COMMAND_CONTINUE, {9}},
                   {OVKCLDEBUG_COMMAND_CONTINUE, {9}},
                   {OVKCLDEBUG_COMMAND_EXT_RUN_BACK, {9}}},
                  1,
                  2},
                 {"to the first stop by a run back that meets no stop",
                  {{OVKCLDEBUG_COMMAND_CONTINUE, {11}}, {OVKCLDEBUG_COMMAND_EXT_RUN_BACK, {12}}},
                  0,
                  2},
                 {"forward again along the same way",
                  {{OVKCLDEBUG_COMMAND_CONTINUE, {9}},
                   {OVKCLDEBUG_COMMAND_CONTINUE, {9}},
                   {OVKCLDEBUG_COMMAND_EXT_RUN_BACK, {9}},
                   {OVKCLDEBUG_COMMAND_CONTINUE, {9}}},
                  2,
                  2},
                 {"into what a run has passed over, which makes a new end",
                  {{OVKCLDEBUG_COMMAND_CONTINUE, {11}}, {OVKCLDEBUG_COMMAND_EXT_STEP_BACK, {}}},
                  2,
                  2}};
    for (const auto& one : cases)
    {
        CLaunchInMoments launch;
        for (const auto& move : one.vMoves)
        {
            launch.Move(move.first, move.second);
        }
        EXPECT_EQ(launch.GetTimeLine().GetPlace(), one.nPlace) << one.pszName;
        EXPECT_EQ(launch.GetTimeLine().GetStops().size(), one.nStops) << one.pszName;
    }
}
