#include "tests/api/PlatformFixture.h"

namespace
{

/// The parameter: whether the enqueue returns at once and the runtime calls back, or the enqueue is the session.
class ThinRoad : public CPlatformFixture, public testing::WithParamInterface<bool>
{
protected:
    void SetUp() override
    {
        CPlatformFixture::SetUp();
        SetIntercept(GetParam());
    }
};

INSTANTIATE_TEST_SUITE_P(Paths, ThinRoad, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& test)
                         { return test.param ? "Intercept" : "Fallback"; });

TEST_P(ThinRoad, SteppingToTheEndGivesTheOutputsOfAPlainLaunch)
{
    Open();
    std::vector<ovkclDebugPC> vStops;
    std::vector<float> vDuring;
    ASSERT_EQ(Debug(
                  [&](ovkclDebugContext context, ovkclDebugEvent eEvent)
                  {
                      if (eEvent == OVKCLDEBUG_EVENT_HALTED)
                      {
                          ovkclDebugPC pc = 0;
                          EXPECT_EQ(ovkclDebugGetProgramCounter(context, &pc), OVKCLDEBUG_SUCCESS);
                          vStops.push_back(pc);
                      }
                      return OVKCLDEBUG_COMMAND_STEP;
                  }),
              CL_SUCCESS);
    EXPECT_EQ(m_nWaitCode, CL_SUCCESS);
    EXPECT_EQ(m_vEvents.front(), OVKCLDEBUG_EVENT_STARTED);
    EXPECT_EQ(m_vEvents.back(), OVKCLDEBUG_EVENT_FINISHED);
    EXPECT_GE(vStops.size(), 8u);
    EXPECT_EQ(ReadOutput(), ExpectedOutput());
}

TEST_P(ThinRoad, ContinueWithoutBreakpointsRunsTheClientsKernelOnce)
{
    for (const size_t nLocal : {4, 0})
    {
        Open();
        ASSERT_EQ(Debug([](ovkclDebugContext, ovkclDebugEvent) { return OVKCLDEBUG_COMMAND_CONTINUE; }, nLocal),
                  CL_SUCCESS);
        EXPECT_EQ(m_vEvents, (std::vector<ovkclDebugEvent>{OVKCLDEBUG_EVENT_STARTED, OVKCLDEBUG_EVENT_FINISHED}));
        EXPECT_EQ(ReadOutput(), ExpectedOutput());
        Close();
    }
}

TEST_P(ThinRoad, AnUnknownAnswerEndsTheSessionWithTheOutputsInPlace)
{
    Open();
    size_t nCalls = 0;
    ASSERT_EQ(Debug([&](ovkclDebugContext, ovkclDebugEvent)
                    { return ++nCalls < 4 ? OVKCLDEBUG_COMMAND_STEP : static_cast<ovkclDebugCommand>(77); }),
              CL_SUCCESS);
    EXPECT_EQ(nCalls, 5u);
    EXPECT_EQ(m_vEvents.back(), OVKCLDEBUG_EVENT_FINISHED);
    EXPECT_EQ(ReadOutput(), ExpectedOutput());
}

} // namespace
