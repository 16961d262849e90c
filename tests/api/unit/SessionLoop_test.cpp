#include "tests/api/unit/SessionFixture.h"

namespace
{

const int s_nStep = OVKCLDEBUG_COMMAND_STEP;
const int s_nContinue = OVKCLDEBUG_COMMAND_CONTINUE;
const ovkclDebugEvent s_eStarted = OVKCLDEBUG_EVENT_STARTED;
const ovkclDebugEvent s_eHalted = OVKCLDEBUG_EVENT_HALTED;
const ovkclDebugEvent s_eFinished = OVKCLDEBUG_EVENT_FINISHED;
const ovkclDebugEvent s_eError = OVKCLDEBUG_EVENT_ERROR;

typedef std::vector<std::string> Texts;

/// Both ways of getting control; true is the runtime's intercept.
class SessionLoop : public CSessionFixture, public testing::WithParamInterface<bool>
{
protected:
    void SetUp() override
    {
        CSessionFixture::SetUp();
        if (!GetParam())
        {
            UseFallback();
        }
    }

    /// The expected runs: the named kernels, and on the fallback path the empty kernel before them.
    Texts Runs(Texts vKernels) const
    {
        if (!GetParam())
        {
            vKernels.insert(vKernels.begin(), "dummy");
        }
        return vKernels;
    }

    void SetUpWith(const std::function<void(CScriptedDebugger&)>& more)
    {
        const auto setUp = g_setUpDebugger;
        g_setUpDebugger = [=](CScriptedDebugger& debugger)
        {
            setUp(debugger);
            more(debugger);
        };
    }
};

INSTANTIATE_TEST_SUITE_P(Paths, SessionLoop, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& test)
                         { return test.param ? "Intercept" : "Fallback"; });

TEST_P(SessionLoop, AnswersMoveTheSession)
{
    struct SCase
    {
        const char* szName;
        std::vector<int> vAnswers;
        size_t nStops;
        bool bBreakpoint;
        Events vEvents;
        Texts vDone;
        Texts vRuns;
    };
    const Events none = {s_eStarted, s_eFinished};
    const SCase cases[] = {
        {"steps to the end",
         {s_nStep},
         2,
         false,
         {s_eStarted, s_eHalted, s_eHalted, s_eFinished},
         {"start", "step", "step", "step", "end and update"},
         {}},
        {"a first step that ends the kernel", {s_nStep}, 0, false, none, {"start", "step", "end and update"}, {}},
        {"a continue without breakpoints", {s_nContinue}, 9, false, none, {"start", "end"}, {"k"}},
        {"a breakpoint that isn't reached", {s_nContinue}, 0, true, none, {"start", "run", "end and update"}, {}},
        {"a breakpoint that is reached once",
         {s_nContinue},
         1,
         true,
         {s_eStarted, s_eHalted, s_eFinished},
         {"start", "run", "run", "end and update"},
         {}},
        {"an unknown answer",
         {s_nStep, 77},
         9,
         false,
         {s_eStarted, s_eHalted, s_eFinished},
         {"start", "step", "end"},
         {"k"}},
        {"no answer, in spite of breakpoints", {0}, 9, true, none, {"start", "end"}, {"k"}},
        {"back without a way back halts",
         {OVKCLDEBUG_COMMAND_EXT_STEP_BACK, OVKCLDEBUG_COMMAND_EXT_RUN_BACK, s_nContinue},
         0,
         false,
         {s_eStarted, s_eHalted, s_eHalted, s_eFinished},
         {"start", "back", "run back", "end"},
         {"k"}},
    };
    const auto setUp = g_setUpDebugger;
    for (const SCase& test : cases)
    {
        g_setUpDebugger = [&](CScriptedDebugger& debugger)
        {
            setUp(debugger);
            debugger.nStops = test.nStops;
            if (test.bBreakpoint)
            {
                debugger.lines.insert(7);
            }
        };
        EXPECT_EQ(Debug(test.vAnswers), CL_SUCCESS) << test.szName;
        EXPECT_EQ(m_vEvents, test.vEvents) << test.szName;
        EXPECT_EQ(m_vDone, test.vDone) << test.szName;
        EXPECT_EQ(m_fake.vRuns, Runs(test.vRuns)) << test.szName;
        EXPECT_EQ(m_fake.CountLive("event"), 0u) << test.szName;
    }
    g_setUpDebugger = setUp;
}

TEST_P(SessionLoop, TheUnpatchedKernelRunsWithTheClientsLocalSizeOrNone)
{
    EXPECT_EQ(Debug({s_nContinue}), CL_SUCCESS);
    EXPECT_NE(m_fake.pLastLocalSize, nullptr);
    m_local[0] = 0;
    EXPECT_EQ(Debug({s_nContinue}), CL_SUCCESS);
    EXPECT_EQ(m_fake.pLastLocalSize, nullptr);
}

TEST_P(SessionLoop, AStartThatFailsSaysWhyAndTheLaunchIsNotLost)
{
    struct SCase
    {
        const char* szReason;
        const char* szDebuggersReason;
        bool bBinary;
    };
    const std::vector<char> vBinary = m_fake.vProgramBinary;
    for (const SCase& test : {SCase{"Could not start kernel debugging.", "", true},
                              SCase{"There are insufficient free UAVs.", "There are insufficient free UAVs.", true},
                              SCase{"No kernel binary.", "", false}})
    {
        SetUpWith(
            [&](CScriptedDebugger& debugger)
            {
                debugger.bStarts = false;
                debugger.SetLastError(test.szDebuggersReason);
            });
        m_fake.vProgramBinary = test.bBinary ? vBinary : MakeKernelImage("another", "");
        ovkclDebugContext context = nullptr;
        const cl_int nCode = Debug(
            [&](ovkclDebugContext now, ovkclDebugEvent)
            {
                context = now;
                EXPECT_EQ(LastError(now), test.szReason);
                size_t nSize = 0;
                EXPECT_EQ(ovkclDebugGetKernelBinarySize(now, &nSize), OVKCLDEBUG_SUCCESS);
                EXPECT_EQ(nSize != 0, test.bBinary);
                EXPECT_EQ(ovkclDebugClearAllBreakpoints(now), OVKCLDEBUG_ERROR_INVALID_STATE);
                return OVKCLDEBUG_COMMAND_STEP;
            });
        EXPECT_EQ(nCode, GetParam() ? CL_SUCCESS : OVKCLDEBUG_ENQUEUE_FAILED);
        EXPECT_EQ(m_vEvents, Events{s_eError});
        EXPECT_EQ(m_fake.vRuns, GetParam() ? Texts{"k"} : Texts{"dummy"});
        EXPECT_EQ(ovkclDebugUtilGetLastError(context, 0, nullptr, nullptr), OVKCLDEBUG_ERROR_INVALID_CONTEXT);
    }
}

TEST_P(SessionLoop, ArgumentsThatCantBeReadEndTheSessionWithoutAnEvent)
{
    SetUpWith([](CScriptedDebugger& debugger) { debugger.results.erase("cb1"); });
    EXPECT_EQ(Debug({s_nStep}), GetParam() ? CL_SUCCESS : OVKCLDEBUG_ENQUEUE_FAILED);
    EXPECT_EQ(m_vEvents, Events{});
    EXPECT_EQ(m_vDone, (Texts{"start", "end"}));
    EXPECT_EQ(m_fake.vRuns, GetParam() ? Texts{"k"} : Texts{"dummy"});
}

TEST_P(SessionLoop, AnUnpatchedLaunchThatFailsIsReportedAndMadeGoodWherePossible)
{
    for (const char* szEntry : {"clEnqueueNDRangeKernel", "clWaitForEvents"})
    {
        std::string strError;
        const cl_int nCode = Debug(
            [&](ovkclDebugContext context, ovkclDebugEvent eEvent)
            {
                if (eEvent == OVKCLDEBUG_EVENT_STARTED)
                {
                    m_fake.Fail(szEntry, 1, CL_OUT_OF_RESOURCES);
                }
                strError = LastError(context);
                return OVKCLDEBUG_COMMAND_CONTINUE;
            });
        EXPECT_EQ(m_vEvents, (Events{s_eStarted, s_eFinished}));
        EXPECT_NE(strError, "") << szEntry;
        const bool bWait = std::string(szEntry) == "clWaitForEvents";
        if (GetParam())
        {
            EXPECT_EQ(nCode, CL_SUCCESS);
            EXPECT_EQ(m_fake.nLastEventCode, bWait ? CL_OUT_OF_RESOURCES : CL_SUCCESS);
            EXPECT_EQ(m_fake.vRuns, Texts{"k"}) << szEntry;
        }
        else
        {
            EXPECT_EQ(nCode, CL_OUT_OF_RESOURCES);
        }
        EXPECT_EQ(m_fake.CountLive("event"), 0u);
    }
}

TEST_P(SessionLoop, ExceptionsOfTheClientDontPass)
{
    const cl_int nCode = Debug([](ovkclDebugContext, ovkclDebugEvent) -> ovkclDebugCommand { throw std::bad_alloc(); });
    EXPECT_EQ(nCode, GetParam() ? CL_SUCCESS : CL_OUT_OF_HOST_MEMORY);
    EXPECT_EQ(m_fake.vRuns, GetParam() ? Texts{"k"} : Texts{"dummy"});
}

TEST_P(SessionLoop, ASessionCanBeOpenedFromAnothersCallback)
{
    bool bNested = false;
    const auto client = [&](ovkclDebugContext, ovkclDebugEvent eEvent)
    {
        if (eEvent == OVKCLDEBUG_EVENT_STARTED && !bNested)
        {
            bNested = true;
            const size_t nOne = 1;
            EXPECT_EQ(ovkclDebugEnqueueNDRangeKernel(
                          m_queue, m_kernel, 1, nullptr, &nOne, nullptr, 0, nullptr, nullptr,
                          [](ovkclDebugContext, ovkclDebugEvent, void*) { return OVKCLDEBUG_COMMAND_CONTINUE; },
                          nullptr),
                      CL_SUCCESS);
        }
        return OVKCLDEBUG_COMMAND_CONTINUE;
    };
    EXPECT_EQ(Debug(client), CL_SUCCESS);
    m_fake.RunPending();
    EXPECT_EQ(m_vEvents, (Events{s_eStarted, s_eFinished}));
}

} // namespace
