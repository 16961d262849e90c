#include "Kernels.h"
#include "Runtime.h"

#include <random>
#include <thread>

/// Many threads on one context, for the thread sanitizer and the reference counts.
namespace
{

constexpr int s_nThreads = 8;
constexpr int s_nRounds = 60;
constexpr size_t s_nItems = 64;

class CStressTest : public CRuntimeTest
{
};

/// One thread's share: random commands on queues of its own and of all, every object released in an
/// order of its own.
class CWorker
{
public:
    CWorker(cl_context context, cl_device_id device, cl_command_queue shared, cl_program program, unsigned int nSeed)
        : m_context(context), m_device(device), m_shared(shared), m_program(program), m_random(nSeed)
    {
    }

    void Run()
    {
        for (int i = 0; i < s_nRounds; ++i)
            Round();
    }

private:
    void Round()
    {
        cl_command_queue own = cl.clCreateCommandQueue(m_context, m_device, 0, nullptr);
        cl_mem buffer = cl.clCreateBuffer(m_context, 0, s_nItems * 4, nullptr, nullptr);
        cl_event gate = cl.clCreateUserEvent(m_context, nullptr);
        cl_event filled = nullptr;
        const cl_float fValue = 2.0f;
        Expect(cl.clEnqueueFillBuffer(own, buffer, &fValue, 4, 0, s_nItems * 4, 1, &gate, &filled));
        cl_event scaled = Launch(Flip() ? own : m_shared, buffer, filled);
        if (Flip())
            cl.clSetEventCallback(
                scaled, CL_COMPLETE, [](cl_event, cl_int, void*) {}, nullptr);
        Expect(cl.clSetUserEventStatus(gate, CL_COMPLETE));
        if (Flip())
            ReadByMap(own, buffer, scaled);
        else
            Read(own, buffer, scaled);
        Release(own, buffer, {gate, filled, scaled});
    }

    cl_event Launch(cl_command_queue queue, cl_mem buffer, cl_event behind)
    {
        cl_kernel kernel = cl.clCreateKernel(m_program, "scale", nullptr);
        const cl_float fScale = 3.0f;
        cl.clSetKernelArg(kernel, 0, sizeof(buffer), &buffer);
        cl.clSetKernelArg(kernel, 1, sizeof(fScale), &fScale);
        cl.clSetKernelArg(kernel, 2, sizeof(buffer), &buffer);
        cl_event event = nullptr;
        Expect(cl.clEnqueueNDRangeKernel(queue, kernel, 1, nullptr, &s_nItems, nullptr, 1, &behind, &event));
        cl.clReleaseKernel(kernel);
        return event;
    }

    void Read(cl_command_queue queue, cl_mem buffer, cl_event behind)
    {
        std::vector<cl_float> vValues(s_nItems);
        Expect(cl.clEnqueueReadBuffer(queue, buffer, CL_TRUE, 0, s_nItems * 4, vValues.data(), 1, &behind, nullptr));
        EXPECT_EQ(vValues, std::vector<cl_float>(s_nItems, 6.0f));
    }

    void ReadByMap(cl_command_queue queue, cl_mem buffer, cl_event behind)
    {
        cl_int nError = -1;
        const auto* pValues = static_cast<const cl_float*>(
            cl.clEnqueueMapBuffer(queue, buffer, CL_TRUE, CL_MAP_READ, 0, s_nItems * 4, 1, &behind, nullptr, &nError));
        ASSERT_EQ(nError, CL_SUCCESS);
        EXPECT_EQ(pValues[s_nItems - 1], 6.0f);
        Expect(cl.clEnqueueUnmapMemObject(queue, buffer, const_cast<cl_float*>(pValues), 0, nullptr, nullptr));
    }

    void Release(cl_command_queue queue, cl_mem buffer, const std::vector<cl_event>& vEvents)
    {
        const bool bQueueFirst = Flip();
        if (bQueueFirst)
            Expect(cl.clReleaseCommandQueue(queue));
        Expect(cl.clReleaseMemObject(buffer));
        for (cl_event event : vEvents)
            Expect(cl.clReleaseEvent(event));
        if (!bQueueFirst)
            Expect(cl.clReleaseCommandQueue(queue));
    }

    bool Flip() { return (m_random() & 1) != 0; }
    static void Expect(cl_int nError) { EXPECT_EQ(nError, CL_SUCCESS); }

    SRuntimeEntries& cl = Runtime();
    cl_context m_context;
    cl_device_id m_device;
    cl_command_queue m_shared;
    cl_program m_program;
    std::mt19937 m_random;
};

TEST_F(CStressTest, EightThreadsLeaveNothingBehind)
{
    const std::string strSource = ScaleModule(true);
    const char* pszSource = strSource.c_str();
    cl_program program = cl.clCreateProgramWithSource(m_context, 1, &pszSource, nullptr, nullptr);
    ASSERT_EQ(cl.clBuildProgram(program, 0, nullptr, "", nullptr, nullptr), CL_SUCCESS);
    std::vector<std::thread> vThreads;
    for (unsigned int i = 0; i < s_nThreads; ++i)
        vThreads.emplace_back([&, i] { CWorker(m_context, m_device, m_queue, program, i).Run(); });
    for (std::thread& thread : vThreads)
        thread.join();
    EXPECT_EQ(Control().GetCounter(PLATFORM_COUNTER_KERNEL_RUNS), static_cast<uint64_t>(s_nThreads * s_nRounds));
    cl.clReleaseProgram(program);
}

} // namespace
