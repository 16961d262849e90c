#include "tests/api/PlatformFixture.h"

#include <map>

namespace
{

class Refusals : public CPlatformFixture
{
};

ovkclDebugCommand StepOn(ovkclDebugContext, ovkclDebugEvent)
{
    return OVKCLDEBUG_COMMAND_STEP;
}

TEST_F(Refusals, LaunchesThatCantBeDebuggedHaveTheirCodes)
{
    Open("");
    EXPECT_EQ(Debug(&StepOn), OVKCLDEBUG_ENQUEUE_NOT_DEBUGGABLE);
    Close();

    Open("-g");
    const cl_command_queue intercepted = m_queue;
    m_queue = Cl().clCreateCommandQueue(m_context, m_device, 0, nullptr);
    EXPECT_EQ(Debug(&StepOn), OVKCLDEBUG_ENQUEUE_NO_INTERCEPT);
    Cl().clReleaseCommandQueue(m_queue);
    m_queue = intercepted;
    EXPECT_EQ(m_vEvents.size(), 0u);
    Close();

    Control().SetExtensionEnabled("cl_ovk_event_callback", 0);
    Open("-g");
    EXPECT_EQ(Debug(&StepOn), OVKCLDEBUG_ENQUEUE_NO_INTERCEPT) << "a platform without the intercept";
    Close();
    Control().SetExtensionEnabled("cl_ovk_event_callback", 1);

    cl_int nCode = CL_SUCCESS;
    m_device = FindDevice("Host");
    m_context = ovkclInterceptCreateContext(nullptr, 1, &m_device, nullptr, nullptr, &nCode);
    m_queue = ovkclInterceptCreateCommandQueue(m_context, m_device, 0, &nCode);
    EXPECT_EQ(Debug(&StepOn), OVKCLDEBUG_ENQUEUE_WRONG_DEVICE);
}

/// Calls of a session whose failure leaves nothing behind. A release that fails would leave its object.
const char* const s_Entries[] = {
    "clGetPlatformInfo",
    "clGetDeviceInfo",
    "clGetCommandQueueInfo",
    "clCreateCommandQueue",
    "clRetainContext",
    "clRetainKernel",
    "clGetKernelInfo",
    "clGetProgramInfo",
    "clGetMemObjectInfo",
    "clCreateBuffer",
    "clEnqueueMapBuffer",
    "clFinish",
    "clCreateProgramWithSource",
    "clCreateProgramWithBinary",
    "clBuildProgram",
    "clCreateKernel",
    "clSetKernelArg",
    "clGetKernelWorkGroupInfo",
    "clEnqueueNDRangeKernel",
    "clWaitForEvents",
    "clGetEventInfo",
};

/// Each call fails once, at many places of a stepping session. In the end an accepted launch has its outputs, and
/// everything is released in any case.
class FailingCalls : public CPlatformFixture, public testing::WithParamInterface<bool>
{
};

INSTANTIATE_TEST_SUITE_P(Paths, FailingCalls, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& test)
                         { return test.param ? "Intercept" : "Fallback"; });

TEST_P(FailingCalls, TheSessionEndsAndNothingLeaks)
{
    SetIntercept(GetParam());
    Open();
    const uint64_t nObjects = CountObjects();
    std::map<cl_int, int> results;
    for (const char* pszEntry : s_Entries)
    {
        for (uint64_t nCall = 1; nCall <= 10; ++nCall)
        {
            const std::vector<float> vBefore(s_nItems, -1.0f);
            Cl().clEnqueueWriteBuffer(m_queue, m_buffers[2], CL_TRUE, 0, sizeof(float) * s_nItems, vBefore.data(), 0,
                                      nullptr, nullptr);
            Control().FailCall(pszEntry, nCall, CL_OUT_OF_RESOURCES, 0);
            const cl_int nCode = Debug(&StepOn);
            Control().ClearFailures();
            Cl().clFinish(m_queue);
            ++results[nCode];
            if (nCode == CL_SUCCESS)
            {
                EXPECT_EQ(ReadOutput(), ExpectedOutput()) << pszEntry << " " << nCall;
            }
            EXPECT_TRUE(WaitForObjects(nObjects)) << pszEntry << " " << nCall;
        }
    }
    EXPECT_GT(results[CL_SUCCESS], 0);
    EXPECT_GT(results.size(), 2u);
}

} // namespace
