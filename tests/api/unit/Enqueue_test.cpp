#include "api/CommandIntercept.h"
#include "tests/api/unit/SessionFixture.h"

#include <algorithm>

namespace
{

ovkclDebugCommand CL_CALLBACK Continue(ovkclDebugContext, ovkclDebugEvent, void*)
{
    return OVKCLDEBUG_COMMAND_CONTINUE;
}

class Enqueue : public CSessionFixture
{
protected:
    cl_int Launch(cl_command_queue queue, cl_uint nDimensions = 1, ovkclDebugCallback callback = &Continue,
                  bool bGlobalSize = true)
    {
        const size_t global[4] = {4, 2, 1, 1};
        return ovkclDebugEnqueueNDRangeKernel(queue, m_kernel, nDimensions, nullptr, bGlobalSize ? global : nullptr,
                                              nullptr, 0, nullptr, nullptr, callback, nullptr);
    }

    void ExpectNothingDone()
    {
        EXPECT_EQ(m_fake.CountCalls("clEnqueueNDRangeKernel"), 0u);
        EXPECT_TRUE(Kestrel::g_KernelDebugStates.empty());
    }
};

TEST_F(Enqueue, EachRefusalHasItsCode)
{
    EXPECT_EQ(Launch(m_queue, 1, nullptr), CL_INVALID_VALUE);
    EXPECT_EQ(Launch(m_queue, 1, &Continue, false), CL_INVALID_VALUE);
    EXPECT_TRUE(m_fake.vCalls.empty()) << "before any call of the runtime";
    EXPECT_EQ(Launch(nullptr), CL_INVALID_COMMAND_QUEUE);

    m_fake.strVendor += ".";
    EXPECT_EQ(Launch(m_queue), OVKCLDEBUG_ENQUEUE_WRONG_PLATFORM);
    m_fake.strVendor.pop_back();

    const cl_ulong nProperties = CFakeCL::Of(m_queue)->nProperties;
    EXPECT_EQ(nProperties, 0x8000000000000000ULL);
    CFakeCL::Of(m_queue)->nProperties = CL_QUEUE_PROFILING_ENABLE;
    EXPECT_EQ(Launch(m_queue), OVKCLDEBUG_ENQUEUE_NO_INTERCEPT);
    CFakeCL::Of(m_queue)->nProperties = nProperties;

    for (const cl_device_type type : {CL_DEVICE_TYPE_CPU, CL_DEVICE_TYPE_GPU | CL_DEVICE_TYPE_DEFAULT})
    {
        m_fake.nDeviceType = type;
        EXPECT_EQ(Launch(m_queue), OVKCLDEBUG_ENQUEUE_WRONG_DEVICE);
    }
    m_fake.nDeviceType = CL_DEVICE_TYPE_GPU;

    const std::vector<char> vBinary = m_fake.vProgramBinary;
    for (const std::vector<char>& vOther : {std::vector<char>(), std::vector<char>(8, 'x'), CTestImage().Make64()})
    {
        m_fake.vProgramBinary = vOther;
        EXPECT_EQ(Launch(m_queue), OVKCLDEBUG_ENQUEUE_NOT_DEBUGGABLE);
    }
    m_fake.vProgramBinary = vBinary;

    EXPECT_EQ(Launch(m_queue, 0), OVKCLDEBUG_ENQUEUE_FAILED);
    EXPECT_EQ(Launch(m_queue, 4), OVKCLDEBUG_ENQUEUE_FAILED);
    ExpectNothingDone();
}

TEST_F(Enqueue, UserEventsAreRefusedOnTheFallbackPath)
{
    UseFallback();
    CFakeCL::SObject* pUserEvent = m_fake.New("event");
    pUserEvent->nType = CL_COMMAND_USER;
    const cl_event event = CFakeCL::To<cl_event>(pUserEvent);
    const size_t nOne = 1;
    EXPECT_EQ(ovkclDebugEnqueueNDRangeKernel(m_queue, m_kernel, 1, nullptr, &nOne, nullptr, 1, &event, nullptr,
                                             &Continue, nullptr),
              OVKCLDEBUG_ENQUEUE_FAILED);
    EXPECT_EQ(ovkclDebugEnqueueTask(m_queue, m_kernel, 1, nullptr, nullptr, &Continue, nullptr),
              CL_INVALID_EVENT_WAIT_LIST);
    ExpectNothingDone();
    m_fake.Release(pUserEvent);
}

TEST_F(Enqueue, PlainLaunchesOnAnInterceptedQueueRunAsUsual)
{
    const size_t nOne = 1;
    m_fake.Table().clEnqueueNDRangeKernel(m_queue, m_kernel, 1, nullptr, &nOne, nullptr, 0, nullptr, nullptr);
    m_fake.RunPending();
    EXPECT_EQ(m_fake.vRuns, std::vector<std::string>{"k"});
}

/// A launch that waits for a failing command never reaches the intercept.
TEST_F(Enqueue, ALaunchThatIsAbortedLeavesNoSession)
{
    CFakeCL::SObject* pAwaited = m_fake.New("event");
    const cl_event awaited = CFakeCL::To<cl_event>(pAwaited);
    const size_t nOne = 1;
    EXPECT_EQ(ovkclDebugEnqueueNDRangeKernel(m_queue, m_kernel, 1, nullptr, &nOne, nullptr, 1, &awaited, nullptr,
                                             &Continue, nullptr),
              CL_SUCCESS);
    m_fake.Release(pAwaited);
    EXPECT_EQ(Kestrel::g_KernelDebugStates.size(), 1u);
    m_fake.RunPending(CL_EXEC_STATUS_ERROR_FOR_EVENTS_IN_WAIT_LIST);
    EXPECT_TRUE(Kestrel::g_KernelDebugStates.empty());
    EXPECT_TRUE(m_fake.vRuns.empty());
}

TEST_F(Enqueue, TheEventIsTheClients)
{
    for (const bool bFallback : {false, true})
    {
        if (bFallback)
        {
            UseFallback();
        }
        cl_event event = nullptr;
        EXPECT_EQ(Debug([](ovkclDebugContext, ovkclDebugEvent) { return OVKCLDEBUG_COMMAND_CONTINUE; }, &event),
                  CL_SUCCESS);
        ASSERT_NE(event, nullptr);
        EXPECT_EQ(CFakeCL::Of(event)->nRefs, 1);
        m_fake.Release(CFakeCL::Of(event));
    }
}

TEST_F(Enqueue, ATableThatIsntCompleteTakesTheFallbackPath)
{
    cl_icd_dispatch_table table = m_fake.Table();
    table.clEnqueueNativeKernel = nullptr;
    ASSERT_EQ(ovkclDebugSetDispatchTable(&table), CL_SUCCESS);
    EXPECT_EQ(Debug({OVKCLDEBUG_COMMAND_CONTINUE}), CL_SUCCESS);
    EXPECT_EQ(m_fake.vRuns, (std::vector<std::string>{"dummy", "k"}));
    EXPECT_EQ(CommandInterceptCallback(nullptr, nullptr), 0);
}

/// Each call of the runtime fails once, from the enqueue to the end of the session. In every case the session ends,
/// every object is released, and a successful enqueue has run the kernel.
TEST_F(Enqueue, NothingLeaksWhateverCallFails)
{
    for (const bool bFallback : {false, true})
    {
        for (size_t nCall = 1;; ++nCall)
        {
            ASSERT_LT(nCall, 500u);
            Close();
            ASSERT_TRUE(m_fake.IsAllReleased()) << nCall;
            Open();
            if (bFallback)
            {
                UseFallback();
            }
            m_fake.Fail("", nCall, CL_OUT_OF_RESOURCES);
            const cl_int nCode = Debug({OVKCLDEBUG_COMMAND_CONTINUE});
            const bool bThrough = m_fake.IsFailurePending();
            m_fake.Fail("", 0, 0);
            const std::string strWhere = (bFallback ? "fallback " : "intercept ") + std::to_string(nCall) + " " +
                                         (bThrough ? "" : m_fake.vCalls.at(nCall - 1));
            EXPECT_TRUE(Kestrel::g_KernelDebugStates.empty()) << strWhere;
            EXPECT_EQ(m_fake.live.size(), 4u) << strWhere;
            EXPECT_EQ(CFakeCL::Owner().nRefs, 1) << strWhere;
            if (nCode == CL_SUCCESS)
            {
                // If the platform's extensions can't be queried, it counts as one without the intercept, so the empty
                // kernel may exist.
                EXPECT_EQ(std::count(m_fake.vRuns.begin(), m_fake.vRuns.end(), "k"), 1) << strWhere;
            }
            if (bThrough)
            {
                EXPECT_EQ(nCode, CL_SUCCESS);
                break;
            }
        }
    }
}

} // namespace
