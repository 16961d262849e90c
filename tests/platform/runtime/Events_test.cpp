#include "Runtime.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace
{

/// Collects what callbacks report, and waits for it.
class CRecorder
{
public:
    void Add(cl_int nStatus)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_vStatuses.push_back(nStatus);
        m_changed.notify_all();
    }

    std::vector<cl_int> WaitFor(size_t nCount)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        EXPECT_TRUE(m_changed.wait_for(lock, std::chrono::seconds(20), [&] { return m_vStatuses.size() >= nCount; }));
        return m_vStatuses;
    }

    static void CL_CALLBACK Record(cl_event, cl_int nStatus, void* pUser)
    {
        static_cast<CRecorder*>(pUser)->Add(nStatus);
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<cl_int> m_vStatuses;
};

class CEventsTest : public CRuntimeTest
{
protected:
    void SetUp() override
    {
        CRuntimeTest::SetUp();
        m_gate = cl.clCreateUserEvent(m_context, nullptr);
        m_buffer = MakeBuffer(64);
    }

    void TearDown() override
    {
        cl.clReleaseEvent(m_gate);
        cl.clReleaseMemObject(m_buffer);
        CRuntimeTest::TearDown();
    }

    /// A marker that waits for some events.
    cl_event MarkerAfter(cl_command_queue queue, std::vector<cl_event> vEvents)
    {
        cl_event event = nullptr;
        EXPECT_EQ(cl.clEnqueueMarkerWithWaitList(queue, static_cast<cl_uint>(vEvents.size()), vEvents.data(), &event),
                  CL_SUCCESS);
        return event;
    }

    cl_event m_gate = nullptr;
    cl_mem m_buffer = nullptr;
};

TEST_F(CEventsTest, ACommandPassesThroughItsStatesAndReportsEach)
{
    CRecorder recorder;
    cl_event first = MarkerAfter(m_queue, {m_gate});
    cl_event second = nullptr;
    const cl_uint nPattern = 7;
    ASSERT_EQ(cl.clEnqueueFillBuffer(m_queue, m_buffer, &nPattern, 4, 0, 64, 0, nullptr, &second), CL_SUCCESS);
    EXPECT_EQ(StatusOf(second), CL_QUEUED) << "the marker in front of it can't end yet";
    for (cl_int nStatus : {CL_COMPLETE, CL_RUNNING, CL_SUBMITTED})
    {
        ASSERT_EQ(cl.clSetEventCallback(second, nStatus, CRecorder::Record, &recorder), CL_SUCCESS);
    }
    EXPECT_EQ(cl.clFlush(m_queue), CL_SUCCESS);
    EXPECT_EQ(StatusOf(second), CL_SUBMITTED);
    EXPECT_EQ(recorder.WaitFor(1), std::vector<cl_int>{CL_SUBMITTED});

    EXPECT_EQ(cl.clSetUserEventStatus(m_gate, CL_COMPLETE), CL_SUCCESS);
    EXPECT_EQ(cl.clSetUserEventStatus(m_gate, CL_COMPLETE), CL_INVALID_OPERATION);
    EXPECT_EQ(cl.clWaitForEvents(1, &second), CL_SUCCESS);
    EXPECT_EQ(StatusOf(first), CL_COMPLETE);
    EXPECT_EQ(recorder.WaitFor(3), (std::vector<cl_int>{CL_SUBMITTED, CL_RUNNING, CL_COMPLETE}));
    EXPECT_EQ(ReadAll<cl_uint>(m_buffer, 16), std::vector<cl_uint>(16, 7));

    cl_ulong nLast = 0;
    for (cl_profiling_info eInfo : {CL_PROFILING_COMMAND_QUEUED, CL_PROFILING_COMMAND_SUBMIT,
                                    CL_PROFILING_COMMAND_START, CL_PROFILING_COMMAND_END})
    {
        cl_ulong nTime = 0;
        EXPECT_EQ(cl.clGetEventProfilingInfo(second, eInfo, sizeof(nTime), &nTime, nullptr), CL_SUCCESS);
        EXPECT_GE(nTime, nLast);
        nLast = nTime;
    }
    // A callback registered too late is called at once.
    EXPECT_EQ(cl.clSetEventCallback(second, CL_RUNNING, CRecorder::Record, &recorder), CL_SUCCESS);
    EXPECT_EQ(recorder.WaitFor(4).back(), CL_RUNNING);
    cl.clReleaseEvent(first);
    cl.clReleaseEvent(second);
}

TEST_F(CEventsTest, AFailedEventFailsWhatWaitsForItOnEveryQueueAndNothingElse)
{
    CRecorder recorder;
    cl_command_queue other = cl.clCreateCommandQueue(m_context, m_device, 0, nullptr);
    cl_event first = MarkerAfter(m_queue, {m_gate});
    cl_event second = nullptr;
    const cl_uint nPattern = 9;
    ASSERT_EQ(cl.clEnqueueFillBuffer(other, m_buffer, &nPattern, 4, 0, 64, 1, &first, &second), CL_SUCCESS);
    cl_event unrelated = nullptr;
    ASSERT_EQ(cl.clEnqueueMarker(m_queue, &unrelated), CL_SUCCESS);
    ASSERT_EQ(cl.clSetEventCallback(second, CL_COMPLETE, CRecorder::Record, &recorder), CL_SUCCESS);
    EXPECT_EQ(cl.clSetUserEventStatus(m_gate, -1000), CL_SUCCESS);

    EXPECT_EQ(cl.clWaitForEvents(1, &second), CL_EXEC_STATUS_ERROR_FOR_EVENTS_IN_WAIT_LIST);
    EXPECT_EQ(cl.clWaitForEvents(1, &unrelated), CL_SUCCESS);
    EXPECT_EQ(StatusOf(first), CL_EXEC_STATUS_ERROR_FOR_EVENTS_IN_WAIT_LIST);
    EXPECT_EQ(recorder.WaitFor(1).front(), CL_EXEC_STATUS_ERROR_FOR_EVENTS_IN_WAIT_LIST);
    EXPECT_EQ(ReadAll<cl_uint>(m_buffer, 16), std::vector<cl_uint>(16, 0)) << "the command must not have run";
    cl_uint nValue = 0;
    EXPECT_EQ(cl.clEnqueueReadBuffer(m_queue, m_buffer, CL_TRUE, 0, 4, &nValue, 1, &second, nullptr),
              CL_EXEC_STATUS_ERROR_FOR_EVENTS_IN_WAIT_LIST);
    EXPECT_EQ(cl.clFinish(m_queue), CL_SUCCESS);
    for (cl_event event : {first, second, unrelated})
    {
        cl.clReleaseEvent(event);
    }
    cl.clReleaseCommandQueue(other);
}

TEST_F(CEventsTest, QueuesRunSideBySide)
{
    cl_command_queue other = cl.clCreateCommandQueue(m_context, m_device, 0, nullptr);
    cl_event blocked = MarkerAfter(m_queue, {m_gate});
    EXPECT_EQ(cl.clEnqueueBarrierWithWaitList(other, 0, nullptr, nullptr), CL_SUCCESS);
    EXPECT_EQ(cl.clFinish(other), CL_SUCCESS) << "the first queue is still held up";
    EXPECT_GT(StatusOf(blocked), CL_COMPLETE);
    cl.clSetUserEventStatus(m_gate, CL_COMPLETE);
    EXPECT_EQ(cl.clFinish(m_queue), CL_SUCCESS);
    cl.clReleaseEvent(blocked);
    cl.clReleaseCommandQueue(other);
}

TEST_F(CEventsTest, AReleasedQueueStillDoesItsWork)
{
    cl_command_queue other = cl.clCreateCommandQueue(m_context, m_device, 0, nullptr);
    cl_event last = MarkerAfter(other, {m_gate});
    EXPECT_EQ(cl.clReleaseCommandQueue(other), CL_SUCCESS);
    cl.clSetUserEventStatus(m_gate, CL_COMPLETE);
    EXPECT_EQ(cl.clWaitForEvents(1, &last), CL_SUCCESS);
    cl.clReleaseEvent(last);
}

TEST_F(CEventsTest, AUserEventThatNobodyCanSetAnyMoreFails)
{
    cl_event lost = cl.clCreateUserEvent(m_context, nullptr);
    cl_event waiting = MarkerAfter(m_queue, {lost});
    EXPECT_EQ(cl.clReleaseEvent(lost), CL_SUCCESS);
    EXPECT_EQ(cl.clWaitForEvents(1, &waiting), CL_EXEC_STATUS_ERROR_FOR_EVENTS_IN_WAIT_LIST);
    cl.clReleaseEvent(waiting);
}

struct SFinishInCallback
{
    cl_command_queue m_queue;
    cl_event m_gate;
    CRecorder m_recorder;
};

TEST_F(CEventsTest, ACallbackMayWaitForItsQueueAndForOtherCallbacks)
{
    SFinishInCallback state{m_queue, m_gate, {}};
    cl_event first = nullptr;
    ASSERT_EQ(cl.clEnqueueMarker(m_queue, &first), CL_SUCCESS);
    cl_event second = MarkerAfter(m_queue, {m_gate});
    // Waits for a command that ends only after a second callback has set the user event.
    const auto finish = [](cl_event, cl_int, void* pUser)
    {
        auto& s = *static_cast<SFinishInCallback*>(pUser);
        s.m_recorder.Add(Runtime().clFinish(s.m_queue));
    };
    const auto open = [](cl_event, cl_int, void* pUser)
    { Runtime().clSetUserEventStatus(static_cast<SFinishInCallback*>(pUser)->m_gate, CL_COMPLETE); };
    ASSERT_EQ(cl.clSetEventCallback(first, CL_COMPLETE, finish, &state), CL_SUCCESS);
    ASSERT_EQ(cl.clSetEventCallback(first, CL_COMPLETE, open, &state), CL_SUCCESS);
    EXPECT_EQ(state.m_recorder.WaitFor(1), std::vector<cl_int>{CL_SUCCESS});
    cl.clReleaseEvent(first);
    cl.clReleaseEvent(second);
}

TEST_F(CEventsTest, InfoOfEvents)
{
    cl_event event = nullptr;
    ASSERT_EQ(cl.clEnqueueMarker(m_queue, &event), CL_SUCCESS);
    cl_command_queue queue = nullptr;
    cl_context context = nullptr;
    cl_command_type eType = 0;
    EXPECT_EQ(cl.clGetEventInfo(event, CL_EVENT_COMMAND_QUEUE, sizeof(queue), &queue, nullptr), CL_SUCCESS);
    EXPECT_EQ(cl.clGetEventInfo(event, CL_EVENT_CONTEXT, sizeof(context), &context, nullptr), CL_SUCCESS);
    EXPECT_EQ(cl.clGetEventInfo(event, CL_EVENT_COMMAND_TYPE, sizeof(eType), &eType, nullptr), CL_SUCCESS);
    EXPECT_EQ(queue, m_queue);
    EXPECT_EQ(context, m_context);
    EXPECT_EQ(eType, static_cast<cl_command_type>(CL_COMMAND_MARKER));
    EXPECT_EQ(cl.clGetEventInfo(m_gate, CL_EVENT_COMMAND_QUEUE, sizeof(queue), &queue, nullptr), CL_SUCCESS);
    EXPECT_EQ(queue, nullptr);
    EXPECT_EQ(StatusOf(m_gate), CL_SUBMITTED);
    cl.clReleaseEvent(event);
}

} // namespace
