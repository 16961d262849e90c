#include "tests/api/FailingTable.h"
#include "tests/api/PlatformFixture.h"
#include "tests/api/Scripts.h"
#include "tests/support/Stride.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>

namespace
{

/// How many of a session's calls are skipped after each that is made to fail: trying all of them takes minutes.
/// KESTREL_CALL_STRIDE=1 skips none.
size_t Stride()
{
    return ReadStride("KESTREL_CALL_STRIDE", s_bSanitized ? 41 : 7);
}

const unsigned int s_nHangSeconds = 60;

class EveryCall : public CPlatformFixture, public testing::WithParamInterface<SScript>
{
protected:
    void SetUp() override
    {
        CPlatformFixture::SetUp();
        SetIntercept(GetParam().bIntercept);
        Open();
        m_Table = FailingTable::Make(Cl());
        ASSERT_EQ(ovkclDebugSetDispatchTable(&m_Table), CL_SUCCESS);
        m_nOpen = CountObjects();
    }

    void TearDown() override
    {
        alarm(0);
        FailingTable::Fail(0, CL_SUCCESS, false);
        ovkclDebugSetDispatchTable(&Cl());
        CPlatformFixture::TearDown();
    }

    /// One session of the script, in which one call fails. The alarm ends a session that hangs.
    cl_int RunSession(uint64_t nCall, cl_int nFailure, bool bForEver)
    {
        const std::vector<float> vBefore(s_nItems, -1.0f);
        Cl().clEnqueueWriteBuffer(m_queue, m_buffers[2], CL_TRUE, 0, sizeof(float) * s_nItems, vBefore.data(), 0,
                                  nullptr, nullptr);
        alarm(s_nHangSeconds);
        FailingTable::Fail(nCall, nFailure, bForEver);
        const cl_int nCode = Debug(GetParam().pfnClient);
        Cl().clFinish(m_queue);
        m_nCalls = FailingTable::CountCalls();
        FailingTable::Fail(0, CL_SUCCESS, false);
        return nCode;
    }

    void ExpectGoodSession()
    {
        EXPECT_EQ(RunSession(0, CL_SUCCESS, false), CL_SUCCESS);
        EXPECT_EQ(ReadOutput(), ExpectedOutput());
        ASSERT_FALSE(m_vEvents.empty());
        EXPECT_EQ(m_vEvents.back(), OVKCLDEBUG_EVENT_FINISHED);
        EXPECT_TRUE(WaitForObjects(m_nOpen));
    }

    cl_icd_dispatch m_Table;
    uint64_t m_nOpen = 0;
    uint64_t m_nCalls = 0; ///< of the last session
};

} // namespace

/// An accepted launch has its outputs, whatever has failed; a refused one has left the buffers alone. A session that
/// was begun ends with an event. No object is left, and the next session works.
TEST_P(EveryCall, CanFailOnceAndForEver)
{
    ExpectGoodSession();
    const uint64_t nCalls = m_nCalls;
    uint64_t nFaults = 0;
    uint64_t nRefused = 0;
    for (const cl_int nFailure : {CL_OUT_OF_RESOURCES, CL_OUT_OF_HOST_MEMORY})
    {
        for (const bool bForEver : {false, true})
        {
            // Each round tries other calls.
            for (uint64_t nCall = 1 + nFaults % Stride(); nCall <= nCalls && !HasFailure(); nCall += Stride())
            {
                SCOPED_TRACE(std::string(bForEver ? "from call " : "call ") + std::to_string(nCall));
                ++nFaults;
                const cl_int nCode = RunSession(nCall, nFailure, bForEver);
                if (nCode == CL_SUCCESS)
                {
                    EXPECT_EQ(ReadOutput(), ExpectedOutput());
                }
                else
                {
                    ++nRefused;
                }
                if (!m_vEvents.empty())
                {
                    EXPECT_TRUE(m_vEvents.back() == OVKCLDEBUG_EVENT_FINISHED ||
                                m_vEvents.back() == OVKCLDEBUG_EVENT_ERROR)
                        << m_vEvents.back();
                }
                EXPECT_TRUE(WaitForObjects(m_nOpen));
                if (nFaults % 40 == 0)
                {
                    ExpectGoodSession();
                }
            }
        }
    }
    ExpectGoodSession();
    EXPECT_GT(nRefused, 0u);
    std::printf("%llu faults injected, %llu launches refused\n", static_cast<unsigned long long>(nFaults),
                static_cast<unsigned long long>(nRefused));
}

INSTANTIATE_TEST_SUITE_P(Sessions, EveryCall, testing::ValuesIn(GetScripts()),
                         [](const testing::TestParamInfo<SScript>& test) { return std::string(test.param.pszName); });
