#include "tests/e2e/DebugFunctions.h"
#include "tests/e2e/ExampleList.h"
#include "tests/e2e/KernelGenerator.h"
#include "tests/e2e/ScriptedClient.h"
#include "tests/e2e/Seeds.h"
#include "tests/e2e/SmallKernel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <random>

using namespace KestrelTest;
using namespace KestrelTool;
using testing::ElementsAre;

namespace
{

const SSeeds s_BackSeeds = {200, 40, 10};

/// Moves back and forth, by steps or between breakpoints, and compares each stop with what it showed when it was first
/// reached.
class CWanderer : public ISessionClient
{
public:
    /// \param setLines  breakpoints to run between; if empty it steps
    CWanderer(uint32_t nSeed, std::set<unsigned int> setLines, std::vector<std::string> vTracked)
        : m_Engine(nSeed), m_setLines(std::move(setLines)), m_vTracked(std::move(vTracked))
    {
        const bool bSteps = m_setLines.empty();
        const unsigned int nFar = bSteps ? 24 : 5;
        for (unsigned int nRound = 0; nRound < (bSteps ? 3 : 2); ++nRound)
        {
            const unsigned int nForward = 2 + m_Engine() % nFar;
            m_vMoves.insert(m_vMoves.end(), nForward, 1);
            m_vMoves.insert(m_vMoves.end(), 1 + m_Engine() % (nForward + 2), -1);
        }
        m_vMoves.insert(m_vMoves.end(), nFar, 1);
    }

    ovkclDebugCommand OnStarted(CSession& session) override
    {
        if (!m_vTracked.empty() && Track(session, m_vTracked) != OVKCLDEBUG_SUCCESS)
        {
            m_vFindings.push_back("registers can't be tracked");
        }
        for (const unsigned int nLine : m_setLines)
        {
            GetLibraries().ovkclDebugSetBreakpoint(session.GetContext(), nLine, 0, nullptr);
        }
        return Move(session);
    }

    ovkclDebugCommand OnHalted(CSession& session) override
    {
        SSnapshot here(session, m_vTracked.empty());
        const auto it = m_mapSeen.find(m_nAt);
        if (it == m_mapSeen.end())
        {
            m_mapSeen.emplace(m_nAt, std::move(here));
        }
        else
        {
            ++m_nCompared;
            const std::string strDifference = here.CompareWith(it->second);
            if (!strDifference.empty() && m_vFindings.size() < 5)
            {
                m_vFindings.push_back("move " + std::to_string(m_nMove) + (m_bBack ? " back" : " forward") +
                                      " to stop " + std::to_string(m_nAt) + " in front of line " +
                                      std::to_string(here.nNextLine) + ": " + strDifference);
            }
        }
        return Move(session);
    }

    void OnFinished(CSession&) override { m_bFinished = true; }

    const std::vector<std::string>& GetFindings() const { return m_vFindings; }
    size_t GetCompared() const { return m_nCompared; }
    bool IsFinished() const { return m_bFinished; }

private:
    ovkclDebugCommand Move(const CSession& session)
    {
        if (m_nMove == m_vMoves.size())
        {
            GetDebugFunctions().ovkclDebugClearAllBreakpoints(session.GetContext());
            return OVKCLDEBUG_COMMAND_CONTINUE;
        }
        m_bBack = m_vMoves[m_nMove++] < 0;
        if (m_bBack)
        {
            m_nAt -= m_nAt != 0;
            return m_setLines.empty() ? OVKCLDEBUG_COMMAND_EXT_STEP_BACK : OVKCLDEBUG_COMMAND_EXT_RUN_BACK;
        }
        ++m_nAt;
        return m_setLines.empty() ? OVKCLDEBUG_COMMAND_STEP : OVKCLDEBUG_COMMAND_CONTINUE;
    }

    std::mt19937 m_Engine;
    std::set<unsigned int> m_setLines;
    std::vector<std::string> m_vTracked;
    std::vector<int> m_vMoves; ///< 1 forward, -1 back
    size_t m_nMove = 0;
    bool m_bBack = false;
    size_t m_nAt = 0; ///< number 0 is the entry, which isn't a stop
    std::map<size_t, SSnapshot> m_mapSeen;
    std::vector<std::string> m_vFindings;
    size_t m_nCompared = 0;
    bool m_bFinished = false;
};

/// Lines for breakpoints: some without control flow, in the kernel's function and in others.
std::set<unsigned int> ChooseLines(const SLaunchFile& file, uint32_t nSeed)
{
    CLaunch launch(GetLibraries(), file);
    std::vector<unsigned int> vLines;
    CScriptedClient client(
        [&](CSession& session)
        {
            const CListing& listing = session.GetListing();
            for (unsigned int nLine = listing.GetNextInstruction(listing.GetEntry()); nLine != CListing::NoLine;
                 nLine = listing.GetNextInstruction(nLine))
            {
                if (!listing.GetWrittenRegister(nLine).empty())
                {
                    vLines.push_back(nLine);
                }
            }
            return OVKCLDEBUG_COMMAND_CONTINUE;
        },
        AlwaysContinue);
    RunSession(GetLibraries(), launch, client);
    std::set<unsigned int> setLines;
    std::mt19937 engine(nSeed);
    std::sample(vLines.begin(), vLines.end(), std::inserter(setLines, setLines.end()), 4, engine);
    return setLines;
}

std::string Wander(const SLaunchFile& file, uint32_t nSeed, bool bRuns, const std::vector<std::string>& vTracked,
                   size_t& nCompared)
{
    CLaunch launch(GetLibraries(), file);
    launch.Run();
    const std::vector<SDifference> vPlain = launch.Compare();
    const std::vector<unsigned char> vOutputs =
        launch.GetFile().vArguments.empty() ? std::vector<unsigned char>() : launch.ReadContents(0);
    launch.ResetContents();

    CWanderer client(nSeed, bRuns ? ChooseLines(file, nSeed) : std::set<unsigned int>(), vTracked);
    const cl_int nCode = RunSession(GetLibraries(), launch, client);
    nCompared += client.GetCompared();
    std::string strFindings;
    for (const std::string& strFinding : client.GetFindings())
    {
        strFindings += strFinding + "\n";
    }
    if (nCode != CL_SUCCESS || !client.IsFinished())
    {
        strFindings += "the session gave " + std::to_string(nCode) + "\n";
    }
    if (launch.Compare().size() != vPlain.size() || (!vOutputs.empty() && launch.ReadContents(0) != vOutputs))
    {
        strFindings += "the outputs differ from a plain launch's\n";
    }
    return strFindings;
}

/// KESTREL_SEEDS sets the number of kernels, KESTREL_SEED the first one.
void WanderInGenerated(bool bRuns)
{
    const uint32_t nFirst = FromEnvironment("KESTREL_SEED", 1);
    const uint32_t nSeeds = CountSeeds(s_BackSeeds);
    unsigned int nFailed = 0;
    size_t nCompared = 0;
    for (uint32_t nSeed = nFirst; nSeed < nFirst + nSeeds && nFailed < 5; ++nSeed)
    {
        const SGeneratedKernel kernel = CKernelGenerator(nSeed).Generate();
        const std::vector<std::string> vTracked =
            nSeed % 4 == 0 ? std::vector<std::string>{"r10", "r12", "x1[0]"} : std::vector<std::string>();
        const std::string strFindings = Wander(kernel.launch, nSeed, bRuns, vTracked, nCompared);
        if (!strFindings.empty())
        {
            ++nFailed;
            ADD_FAILURE() << "seed " << nSeed << (kernel.bMaySkip ? " (stepping may skip)" : "") << "\n"
                          << strFindings << (nSeeds == 1 ? kernel.launch.strSource : "")
                          << "replay: KESTREL_SEED=" << nSeed << " KESTREL_SEEDS=1 " << ReplayCommand();
        }
    }
    EXPECT_GT(nCompared, nSeeds);
}

} // namespace

TEST(Back, EveryStopShowsWhatItShowedTheFirstTime)
{
    WanderInGenerated(false);
}

TEST(Back, EveryBreakpointShowsWhatItShowedTheFirstTime)
{
    WanderInGenerated(true);
}

namespace
{

class ExamplesBack : public testing::TestWithParam<std::string>
{
};

} // namespace

TEST_P(ExamplesBack, EveryStopShowsWhatItShowedTheFirstTime)
{
    const SLaunchFile file = ReadLaunchFile(GetExamplePath(GetParam()));
    size_t nCompared = 0;
    for (uint32_t nSeed = 1; nSeed <= 2; ++nSeed)
    {
        EXPECT_EQ(Wander(file, nSeed, false, {}, nCompared), "");
        EXPECT_EQ(Wander(file, nSeed, true, {}, nCompared), "");
    }
    EXPECT_GT(nCompared, 0u);
}

INSTANTIATE_TEST_SUITE_P(All, ExamplesBack, testing::ValuesIn(ListSomeExamples()), GetExampleTestName);

namespace
{

const char s_szStore[] = "uav_raw_store_id(10)_addr64 mem0.x, r2.xy, r0.x\n";

/// The next line at each stop of a session with the given answers, the first of which is given at the start. When they
/// are used up, the session continues.
std::vector<unsigned int> LinesOf(const std::vector<ovkclDebugCommand>& vAnswers)
{
    CLaunch launch(GetLibraries(), MakeSmallKernel(s_szStore));
    std::vector<unsigned int> vLines;
    size_t nAnswer = 0;
    const auto next = [&] { return nAnswer < vAnswers.size() ? vAnswers[nAnswer++] : OVKCLDEBUG_COMMAND_CONTINUE; };
    CScriptedClient client([&](CSession&) { return next(); },
                           [&](CSession& session)
                           {
                               vLines.push_back(session.GetNextLine());
                               return next();
                           });
    EXPECT_EQ(RunSession(GetLibraries(), launch, client), CL_SUCCESS);
    return vLines;
}

} // namespace

TEST(Back, AtTheFirstStopTheSessionHaltsWhereItIs)
{
    const auto step = OVKCLDEBUG_COMMAND_STEP;
    const auto back = OVKCLDEBUG_COMMAND_EXT_STEP_BACK;
    const auto runBack = OVKCLDEBUG_COMMAND_EXT_RUN_BACK;
    const std::vector<unsigned int> vSteps = LinesOf({step, step, step});
    ASSERT_EQ(vSteps.size(), 3u);
    const unsigned int nFirst = LinesOf({back})[0];
    ASSERT_LT(nFirst, vSteps[0]);
    EXPECT_THAT(LinesOf({back, back, runBack, step}), ElementsAre(nFirst, nFirst, nFirst, vSteps[0]));
    EXPECT_THAT(LinesOf({runBack, step}), ElementsAre(nFirst, vSteps[0]));
    EXPECT_THAT(LinesOf({step, step, step, runBack, back, step, step}),
                ElementsAre(vSteps[0], vSteps[1], vSteps[2], nFirst, nFirst, vSteps[0], vSteps[1]));
}

TEST(Back, GoingBackOverTheFirstWriteTakesTheRegistersValueAway)
{
    CLaunch launch(GetLibraries(), MakeSmallKernel("iadd r3.x, r0.x, l0.y\niadd r3.x, r3.x, l0.y\n"));
    size_t nHalt = 0;
    std::vector<bool> vHasValue;
    CScriptedClient client(AlwaysStep,
                           [&](CSession& session)
                           {
                               vHasValue.push_back(session.GetRegister("r3").pWords != nullptr);
                               ++nHalt;
                               return nHalt < 5    ? OVKCLDEBUG_COMMAND_STEP
                                      : nHalt < 7  ? OVKCLDEBUG_COMMAND_EXT_STEP_BACK
                                      : nHalt == 7 ? OVKCLDEBUG_COMMAND_STEP
                                                   : OVKCLDEBUG_COMMAND_CONTINUE;
                           });
    EXPECT_EQ(RunSession(GetLibraries(), launch, client), CL_SUCCESS);
    EXPECT_THAT(vHasValue, ElementsAre(false, false, false, true, true, true, false, true));
}

TEST(Back, AStopThatARunWalkedOverKeepsWhatItShowsFromThenOn)
{
    // Every other stop shows r3 as written by an earlier instruction.
    std::string strBody = "mov r3.x, r0.x\nmov r4.x, r0.x\n";
    for (int n = 0; n < 5; ++n)
    {
        strBody += "iadd r3.x, r3.x, l0.y\nmov r4.x, r3.x\n";
    }
    CLaunch launch(GetLibraries(), MakeSmallKernel(strBody));
    const auto step = OVKCLDEBUG_COMMAND_STEP;
    const auto back = OVKCLDEBUG_COMMAND_EXT_STEP_BACK;
    const std::vector<ovkclDebugCommand> vAnswers = {
        back, back, step, back, back, back, step, back, OVKCLDEBUG_COMMAND_CONTINUE};
    std::vector<uint32_t> vValues;
    CScriptedClient client(AlwaysStep,
                           [&](CSession& session)
                           {
                               const SRegisterView values = session.GetRegister("r3");
                               if (values.pWords == nullptr)
                               {
                                   return OVKCLDEBUG_COMMAND_STEP;
                               }
                               vValues.push_back(values.pWords[0]);
                               if (vValues.size() == 1)
                               {
                                   GetLibraries().ovkclDebugSetBreakpoint(session.GetContext(),
                                                                          session.GetNextLine() + 7, 0, nullptr);
                                   return OVKCLDEBUG_COMMAND_CONTINUE;
                               }
                               GetLibraries().ovkclDebugClearAllBreakpoints(session.GetContext());
                               return vValues.size() - 2 < vAnswers.size() ? vAnswers[vValues.size() - 2] : step;
                           });
    EXPECT_EQ(RunSession(GetLibraries(), launch, client), CL_SUCCESS);
    EXPECT_THAT(vValues, ElementsAre(0u, 3u, 3u, 2u, 3u, 2u, 2u, 1u, 2u, 1u));
}

namespace
{

struct SPassedLine
{
    const char* pszLine;
    unsigned int nCounted; ///< what the inner loop of the pass before the stop has counted in r6
};

const SPassedLine s_PassedLines[] = {{"iadd r6.x, r6.x, l0.y", 1},
                                     {"if_logicalz r5.x", 2},
                                     {"break", 2},
                                     {"else", 1},
                                     {"mov r7.x, r4.x", 1},
                                     {"endif", 1},
                                     {"endloop", 2}};

unsigned int FindLine(CSession& session, const std::string& strLine)
{
    unsigned int nLine = 0;
    while (session.GetListing().GetLine(nLine) != strLine)
    {
        ++nLine;
    }
    return nLine;
}

/// Runs to the nth visit of a line, and back to the last visit of another one, which the runs have passed over.
void RunBackTo(const SPassedLine& line, const std::string& strFrom, size_t nVisit, unsigned int nCounted)
{
    CLaunch launch(GetLibraries(),
                   MakeSmallKernel("whileloop\niadd r3.x, r3.x, l0.y\nmov r4.x, l0.z\nwhileloop\n"
                                   "iadd r4.x, r4.x, l0.y\niadd r6.x, r6.x, l0.y\nilt r5.x, r4.x, l0.x\n"
                                   "if_logicalz r5.x\nbreak\nelse\nmov r7.x, r4.x\nendif\nendloop\n"
                                   "ige r5.x, r3.x, l0.x\nbreak_logicalnz r5.x\nendloop\nmov r8.x, r6.x\n"));
    size_t nHalts = 0;
    CScriptedClient client(
        [&](CSession& session)
        {
            GetLibraries().ovkclDebugSetBreakpoint(session.GetContext(), FindLine(session, strFrom), 0, nullptr);
            return OVKCLDEBUG_COMMAND_CONTINUE;
        },
        [&](CSession& session)
        {
            if (++nHalts == nVisit)
            {
                GetDebugFunctions().ovkclDebugClearAllBreakpoints(session.GetContext());
                GetLibraries().ovkclDebugSetBreakpoint(session.GetContext(), FindLine(session, line.pszLine), 0,
                                                       nullptr);
                return static_cast<ovkclDebugCommand>(OVKCLDEBUG_COMMAND_EXT_RUN_BACK);
            }
            if (nHalts > nVisit)
            {
                EXPECT_EQ(session.GetListing().GetLine(session.GetNextLine()), line.pszLine);
                EXPECT_EQ(session.GetRegister("r6")[0][0], nCounted);
                GetDebugFunctions().ovkclDebugClearAllBreakpoints(session.GetContext());
            }
            return OVKCLDEBUG_COMMAND_CONTINUE;
        });
    EXPECT_EQ(RunSession(GetLibraries(), launch, client), CL_SUCCESS);
    EXPECT_EQ(nHalts, nVisit + 1);
}

} // namespace

TEST(Back, FindsTheLastVisitOfEachLineThatARunPassedOver)
{
    for (const SPassedLine& line : s_PassedLines)
    {
        SCOPED_TRACE(line.pszLine);
        RunBackTo(line, "mov r4.x, l0.z", 2, line.nCounted);
        // After both loops the last visit is in the second pass of the outer one.
        RunBackTo(line, "mov r8.x, r6.x", 1, line.nCounted + 2);
    }
}

TEST(Back, AnUnknownAnswerEndsTheSessionAsAContinueWithoutBreakpoints)
{
    for (const unsigned int nAnswer : {0u, 3u, 0xFFu, 0x102u, 0xFFFFFFFFu})
    {
        SCOPED_TRACE(nAnswer);
        CLaunch launch(GetLibraries(), MakeSmallKernel(s_szStore));
        size_t nHalts = 0;
        CScriptedClient client(
            [&](CSession& session)
            {
                // This breakpoint must not be reached.
                GetLibraries().ovkclDebugSetBreakpoint(session.GetContext(), 0, 100, nullptr);
                return OVKCLDEBUG_COMMAND_STEP;
            },
            [&](CSession&)
            {
                GetPlatformControl(GetLibraries()).ClearCounters();
                return ++nHalts < 3 ? OVKCLDEBUG_COMMAND_STEP : static_cast<ovkclDebugCommand>(nAnswer);
            });
        EXPECT_EQ(RunSession(GetLibraries(), launch, client), CL_SUCCESS);
        EXPECT_EQ(GetPlatformControl(GetLibraries()).GetCounter(PLATFORM_COUNTER_KERNEL_RUNS), 1u);
        EXPECT_THAT(client.GetEvents(), ElementsAre("started", "halted", "halted", "halted", "finished"));
        const std::vector<unsigned char> vBytes = launch.ReadContents(0);
        for (unsigned int i = 0; i < 8; ++i)
        {
            EXPECT_EQ(ReadElement(*FindElementType("int"), &vBytes[i * 4]), i);
        }
    }
}
