#include "tests/e2e/DebugFunctions.h"
#include "tests/e2e/ScriptedClient.h"
#include "tests/e2e/SmallKernel.h"
#include "tests/e2e/TraceModel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <set>
#include <thread>

using namespace KestrelTest;
using namespace KestrelTool;

namespace
{

// The result is five times the work-item's number, or the number itself if it is below 3.
const char s_szBody[] = "mov r3.x, r0.x\n"
                        "mov r5.x, l0.z\n"
                        "whileloop\n"
                        "ige r4.x, r5.x, l1.x\n"
                        "break_logicalnz r4.x\n"
                        "iadd r5.x, r5.x, l0.y\n"
                        "ige r4.x, r0.x, l1.y\n"
                        "if_logicalnz r4.x\n"
                        "iadd r3.x, r3.x, r0.x\n"
                        "mov r6.x, r3.x\n"
                        "endif\n"
                        "endloop\n"
                        "uav_raw_store_id(10)_addr64 mem0.x, r2.xy, r3.x\n";
const char s_szLiterals[] = "dcl_literal l1, 4, 3, 0, 0\n";

/// The contexts of open sessions, as their callbacks report them.
class COpenContexts
{
public:
    void Add(ovkclDebugContext context)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Contexts.insert(context);
    }
    void Remove(ovkclDebugContext context)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Contexts.erase(context);
    }
    std::set<ovkclDebugContext> Get()
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        return m_Contexts;
    }

private:
    std::mutex m_Mutex;
    std::set<ovkclDebugContext> m_Contexts;
};

/// Alternates between steps, going back and running to a breakpoint, and compares the loop's counter with the value's
/// register: each pass has added the work-item's number once for those that take part.
class CTurningClient : public ISessionClient
{
public:
    CTurningClient(COpenContexts& contexts, unsigned int nPhase) : m_Contexts(contexts), m_nPhase(nPhase) {}

    ovkclDebugCommand OnStarted(CSession& session) override
    {
        m_Contexts.Add(session.GetContext());
        const CListing& listing = session.GetListing();
        for (unsigned int nLine = 0; nLine < listing.GetLineCount(); ++nLine)
        {
            if (listing.GetLine(nLine) == "mov r6.x, r3.x")
            {
                GetLibraries().ovkclDebugSetBreakpoint(session.GetContext(), nLine, 0, &m_nBreakpoint);
            }
        }
        return OVKCLDEBUG_COMMAND_CONTINUE;
    }

    ovkclDebugCommand OnHalted(CSession& session) override
    {
        ++m_nHalts;
        if (session.GetNextLine() == m_nBreakpoint)
        {
            Check(session);
        }
        switch ((m_nHalts + m_nPhase) % 5)
        {
        case 0:
            return m_nHalts < 40 ? OVKCLDEBUG_COMMAND_EXT_STEP_BACK : OVKCLDEBUG_COMMAND_CONTINUE;
        case 1:
        case 2:
            return OVKCLDEBUG_COMMAND_STEP;
        default:
            return OVKCLDEBUG_COMMAND_CONTINUE;
        }
    }

    void OnFinished(CSession& session) override
    {
        m_bFinished = true;
        m_Contexts.Remove(session.GetContext());
    }

    unsigned int GetBreakpoint() const { return m_nBreakpoint; }
    bool IsFinished() const { return m_bFinished; }
    size_t GetChecked() const { return m_nChecked; }
    const std::string& GetFinding() const { return m_strFinding; }

private:
    void Check(const CSession& session)
    {
        ++m_nChecked;
        const SMaskView mask = session.GetMask();
        const SRegisterView value = session.GetRegister("r3");
        const SRegisterView pass = session.GetRegister("r5");
        for (unsigned int i = 0; i < mask.nItems; ++i)
        {
            const bool bActive = i >= 3;
            if ((mask.pActive[i] != 0) != bActive)
            {
                m_strFinding = "the mask is wrong for work-item " + std::to_string(i);
            }
            if (bActive && value[i][0] != i * (1 + pass[i][0]))
            {
                m_strFinding = "r3 of work-item " + std::to_string(i) + " reads " + std::to_string(value[i][0]);
            }
        }
    }

    COpenContexts& m_Contexts;
    unsigned int m_nPhase;
    unsigned int m_nBreakpoint = 0;
    size_t m_nHalts = 0;
    size_t m_nChecked = 0;
    bool m_bFinished = false;
    std::string m_strFinding;
};

/// The findings of a thread that runs sessions of its own, one after the other.
void RunSessions(COpenContexts& contexts, unsigned int nPhase, unsigned int nRounds,
                 std::vector<std::string>& vFindings, size_t& nChecked)
{
    for (unsigned int nRound = 0; nRound < nRounds; ++nRound)
    {
        CLaunch launch(GetLibraries(), MakeSmallKernel(s_szBody, s_szLiterals));
        CTurningClient client(contexts, nPhase + nRound);
        if (RunSession(GetLibraries(), launch, client) != CL_SUCCESS || !client.IsFinished())
        {
            vFindings.push_back("the session failed");
        }
        if (!client.GetFinding().empty())
        {
            vFindings.push_back(client.GetFinding());
        }
        nChecked += client.GetChecked();
        const std::vector<unsigned char> vBytes = launch.ReadContents(0);
        for (unsigned int i = 0; i < 8; ++i)
        {
            if (ReadElement(*FindElementType("int"), &vBytes[i * 4]) != (i < 3 ? i : 5 * i))
            {
                vFindings.push_back("the output of work-item " + std::to_string(i) + " is wrong");
            }
        }
    }
}

/// Makes queries of a session from another thread, for data that is copied out. Only the codes that are allowed while a
/// session is running are accepted.
bool AskFromOutside(ovkclDebugContext context, size_t& nAnswered)
{
    const CLibraries& lib = GetLibraries();
    const SDebugFunctions& debug = GetDebugFunctions();
    ovkclDebugPC nLine = 0;
    size_t nSize = 0;
    unsigned char bytes[8 * 16];
    ovkclDebugRegisterLocator registers[64];
    const ovkclDebugError codes[] = {lib.ovkclDebugGetProgramCounter(context, &nLine),
                                     lib.ovkclDebugGetNumberOfActiveRegisters(context, &nSize),
                                     lib.ovkclDebugGetActiveRegisters(context, registers, 64),
                                     debug.ovkclDebugGetPrivateMemoryValues(context, 0, 16, bytes, &nSize),
                                     debug.ovkclDebugGetNumBreakpoints(context, &nSize),
                                     lib.ovkclDebugGetKernelBinarySize(context, &nSize)};
    nAnswered += static_cast<size_t>(std::count(std::begin(codes), std::end(codes), OVKCLDEBUG_SUCCESS));
    return std::all_of(std::begin(codes), std::end(codes),
                       [](ovkclDebugError nCode)
                       {
                           return nCode == OVKCLDEBUG_SUCCESS || nCode == OVKCLDEBUG_ERROR_INVALID_STATE ||
                                  nCode == OVKCLDEBUG_ERROR_INVALID_CONTEXT;
                       });
}

} // namespace

namespace
{

/// Runs sessions on nThreads threads at the same time, and nAsking more threads that query any open session.
void RunInParallel(size_t nThreads, unsigned int nRounds, size_t nAsking)
{
    GetDebugFunctions();
    COpenContexts contexts;
    std::vector<std::vector<std::string>> vFindings(nThreads);
    std::vector<size_t> vChecked(nThreads);
    std::vector<std::atomic<size_t>> vAnswered(nAsking);
    std::atomic<bool> bDone = false;
    std::atomic<bool> bAllRight = true;
    std::vector<std::thread> vAsking;
    for (size_t i = 0; i < nAsking; ++i)
    {
        vAsking.emplace_back(
            [&, i]
            {
                while (!bDone)
                {
                    for (const ovkclDebugContext context : contexts.Get())
                    {
                        size_t nAnswered = 0;
                        bAllRight = AskFromOutside(context, nAnswered) && bAllRight;
                        vAnswered[i] += nAnswered;
                    }
                    std::this_thread::yield();
                }
            });
    }
    std::vector<std::thread> vThreads;
    for (size_t i = 0; i < nThreads; ++i)
    {
        vThreads.emplace_back(
            [&, i] { RunSessions(contexts, static_cast<unsigned int>(3 * i), nRounds, vFindings[i], vChecked[i]); });
    }
    std::vector<std::string> vExtraFindings;
    size_t nExtraChecked = 0;
    // On a busy machine the sessions may all be over before a querying thread runs.
    const auto hasMetNone = [](const std::atomic<size_t>& nAnswered) { return nAnswered == 0; };
    for (unsigned int n = 0; n < 2000 && std::any_of(vAnswered.begin(), vAnswered.end(), hasMetNone); ++n)
    {
        RunSessions(contexts, n, 1, vExtraFindings, nExtraChecked);
    }
    for (std::thread& thread : vThreads)
    {
        thread.join();
    }
    bDone = true;
    for (std::thread& thread : vAsking)
    {
        thread.join();
    }
    for (size_t i = 0; i < nThreads; ++i)
    {
        EXPECT_EQ(vFindings[i], std::vector<std::string>()) << "thread " << i;
        EXPECT_GT(vChecked[i], 2 * nRounds);
    }
    EXPECT_EQ(vExtraFindings, std::vector<std::string>());
    EXPECT_TRUE(bAllRight);
    for (size_t i = 0; i < nAsking; ++i)
    {
        EXPECT_GT(vAnswered[i], 0u) << "asking thread " << i << " has met no session";
    }
}

/// KESTREL_THREAD_ROUNDS=50 makes a long test.
unsigned int CountRounds()
{
    const char* pszValue = std::getenv("KESTREL_THREAD_ROUNDS");
    return pszValue != nullptr ? std::max(std::atoi(pszValue), 1) : 3;
}

} // namespace

TEST(Threads, TwoSessionsAndAThirdThreadThatAsksBoth)
{
    RunInParallel(2, 3, 1);
}

// Every kernel run has another schedule, so the platform's threads vary too.
TEST(Threads, EightSessionsAndTwoThreadsThatAskThemAll)
{
    const SPlatformControl& control = GetPlatformControl(GetLibraries());
    control.SetSchedule(1);
    RunInParallel(8, CountRounds(), 2);
    control.SetSchedule(0);
}

// A run skips many lines between its stops; no query may see the state at one of them.
TEST(Threads, AQueryWaitsForTheRunInProgress)
{
    CLaunch launch(GetLibraries(), MakeSmallKernel(s_szBody, s_szLiterals));
    std::atomic<ovkclDebugContext> openContext = nullptr;
    std::atomic<bool> bDone = false;
    std::set<unsigned int> setSeen;
    std::thread asking(
        [&]
        {
            while (!bDone)
            {
                ovkclDebugPC nLine = 0;
                if (openContext != nullptr &&
                    GetLibraries().ovkclDebugGetProgramCounter(openContext, &nLine) == OVKCLDEBUG_SUCCESS)
                {
                    setSeen.insert(nLine);
                }
                std::this_thread::yield();
            }
        });
    COpenContexts contexts;
    unsigned int nBreakpoint = 0;
    CTurningClient turning(contexts, 0);
    CScriptedClient client(
        [&](CSession& session)
        {
            openContext = session.GetContext();
            turning.OnStarted(session);
            nBreakpoint = turning.GetBreakpoint();
            return OVKCLDEBUG_COMMAND_CONTINUE;
        },
        [&](CSession& session)
        {
            EXPECT_EQ(session.GetNextLine(), nBreakpoint);
            std::thread([&] { EXPECT_EQ(session.GetNextLine(), nBreakpoint); }).join();
            return OVKCLDEBUG_COMMAND_CONTINUE;
        });
    EXPECT_EQ(RunSession(GetLibraries(), launch, client), CL_SUCCESS);
    bDone = true;
    asking.join();
    setSeen.erase(nBreakpoint);
    EXPECT_EQ(setSeen, std::set<unsigned int>());
}
