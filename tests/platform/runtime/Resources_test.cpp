#include "Kernels.h"
#include "Runtime.h"

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <thread>

/// The runtime's use of resources: memory while a launch runs, processor time while nothing runs, and objects in
/// whatever order they are released.
namespace
{

class CResourcesTest : public CRuntimeTest
{
protected:
    cl_kernel MakeKernel(const std::string& strSource, const char* pszName)
    {
        const char* pszSource = strSource.c_str();
        cl_program program = cl.clCreateProgramWithSource(m_context, 1, &pszSource, nullptr, nullptr);
        EXPECT_EQ(cl.clBuildProgram(program, 0, nullptr, "", nullptr, nullptr), CL_SUCCESS);
        cl_kernel kernel = cl.clCreateKernel(program, pszName, nullptr);
        EXPECT_EQ(cl.clReleaseProgram(program), CL_SUCCESS);
        return kernel;
    }
};

/// A line of this process's status, in KiB.
size_t StatusValue(const std::string& strName)
{
    std::ifstream file("/proc/self/status");
    for (std::string strWord; file >> strWord;)
    {
        size_t nValue = 0;
        if (strWord == strName + ":" && file >> nValue)
        {
            return nValue;
        }
    }
    return 0;
}

/// How far the peak of this process's memory rises above the current use while a function runs, in KiB.
template <class F>
size_t PeakGrowth(F run)
{
    std::ofstream("/proc/self/clear_refs") << "5";
    const size_t nBefore = StatusValue("VmRSS");
    EXPECT_LT(StatusValue("VmHWM"), nBefore + 1024) << "the peak can't be reset";
    run();
    const size_t nPeak = StatusValue("VmHWM");
    return nPeak > nBefore ? nPeak - nBefore : 0;
}

TEST_F(CResourcesTest, ALargeLaunchTakesNoMoreMemoryThanASmallOne)
{
    // Work-item n adds 1 to word n / 65536, so that every work-item has an effect, and the buffer stays small.
    cl_kernel kernel = MakeKernel(MakeModule(true, "count", ";pointer:out:u32:1:1:0:uav:12:4:RW:0:0\n",
                                             "dcl_typeless_uav_id(12)_stride(4)_length(4)\n"
                                             "dcl_literal l12, 16, 0, 0, 0\n",
                                             "ushr r1.x, r0.x, l12.x\nishl r1.x, r1.x, l10.x\n"
                                             "i64add r1.xy, cb1[0].xyxy, r1.x000\n"
                                             "uav_add_id(12)_addr64 r1.xy, l11.x\n"),
                                  "count");
    const size_t nSmall = size_t{1} << 16;
    const size_t nLarge = size_t{1} << 24;
    const size_t nLocal = 64;
    const std::vector<cl_uint> vZeros(nLarge / nSmall);
    cl_mem buffer = MakeBuffer(vZeros.size() * 4, vZeros.data());
    ASSERT_EQ(cl.clSetKernelArg(kernel, 0, sizeof(buffer), &buffer), CL_SUCCESS);
    const auto run = [&](size_t nItems)
    {
        EXPECT_EQ(cl.clEnqueueNDRangeKernel(m_queue, kernel, 1, nullptr, &nItems, &nLocal, 0, nullptr, nullptr),
                  CL_SUCCESS);
        EXPECT_EQ(cl.clFinish(m_queue), CL_SUCCESS);
    };
    run(nSmall); // starts the threads, which keep their memory
    const size_t nGrowth = PeakGrowth([&] { run(nLarge); });
    EXPECT_LT(nGrowth, 8192u) << "KiB: half a byte a work-item";
    std::vector<cl_uint> vExpected(vZeros.size(), nSmall);
    vExpected[0] = 2 * nSmall;
    EXPECT_EQ(ReadAll<cl_uint>(buffer, vZeros.size()), vExpected);
    cl.clReleaseMemObject(buffer);
    cl.clReleaseKernel(kernel);
}

double ProcessorSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time)
    { return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

TEST_F(CResourcesTest, NothingSpinsWhileItWaits)
{
    // Queues that have run and are empty, queues held up by an event, a waiting client thread and a pending callback.
    cl_event gate = cl.clCreateUserEvent(m_context, nullptr);
    std::vector<cl_command_queue> vQueues;
    std::vector<cl_event> vEvents;
    for (int n = 0; n < 6; ++n)
    {
        vQueues.push_back(cl.clCreateCommandQueue(m_context, m_device, 0, nullptr));
        EXPECT_EQ(cl.clEnqueueBarrier(vQueues.back()), CL_SUCCESS);
        EXPECT_EQ(cl.clFinish(vQueues.back()), CL_SUCCESS);
        vEvents.push_back(nullptr);
        if (n % 2)
        {
            EXPECT_EQ(cl.clEnqueueMarkerWithWaitList(vQueues.back(), 1, &gate, &vEvents.back()), CL_SUCCESS);
        }
    }
    EXPECT_EQ(cl.clSetEventCallback(
                  vEvents[1], CL_COMPLETE, [](cl_event, cl_int, void*) {}, nullptr),
              CL_SUCCESS);
    cl_kernel kernel = MakeKernel(ScaleModule(true), "scale"); // its launch starts the worker threads
    cl_mem buffer = MakeBuffer(1 << 20);
    const cl_float fScale = 2;
    const size_t nItems = 1 << 18;
    cl.clSetKernelArg(kernel, 0, sizeof(buffer), &buffer);
    cl.clSetKernelArg(kernel, 1, sizeof(fScale), &fScale);
    cl.clSetKernelArg(kernel, 2, sizeof(buffer), &buffer);
    EXPECT_EQ(cl.clEnqueueNDRangeKernel(m_queue, kernel, 1, nullptr, &nItems, nullptr, 0, nullptr, nullptr),
              CL_SUCCESS);
    EXPECT_EQ(cl.clFinish(m_queue), CL_SUCCESS);
    std::thread waiting([&] { EXPECT_EQ(cl.clWaitForEvents(1, &vEvents[3]), CL_SUCCESS); });

    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const double dBefore = ProcessorSeconds();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_LT(ProcessorSeconds() - dBefore, 0.05) << "one spinning thread would take 0.2";

    EXPECT_EQ(cl.clSetUserEventStatus(gate, CL_COMPLETE), CL_SUCCESS);
    waiting.join();
    for (cl_command_queue queue : vQueues)
    {
        EXPECT_EQ(cl.clFinish(queue), CL_SUCCESS);
        EXPECT_EQ(cl.clReleaseCommandQueue(queue), CL_SUCCESS);
    }
    for (cl_event event : vEvents)
    {
        EXPECT_EQ(cl.clReleaseEvent(event), event ? CL_SUCCESS : CL_INVALID_EVENT);
    }
    cl.clReleaseEvent(gate);
    cl.clReleaseMemObject(buffer);
    cl.clReleaseKernel(kernel);
}

/// The objects of one launch, which are released in some order while the launch still waits.
class COneLaunch
{
public:
    static constexpr int s_nObjects = 7;

    COneLaunch(SRuntimeEntries& cl, cl_device_id device) : m_cl(cl)
    {
        m_context = cl.clCreateContext(nullptr, 1, &device, nullptr, nullptr, nullptr);
        m_queue = cl.clCreateCommandQueue(m_context, device, 0, nullptr);
        const std::string strSource = ScaleModule(true);
        const char* pszSource = strSource.c_str();
        m_program = cl.clCreateProgramWithSource(m_context, 1, &pszSource, nullptr, nullptr);
        EXPECT_EQ(cl.clBuildProgram(m_program, 0, nullptr, "", nullptr, nullptr), CL_SUCCESS);
        m_kernel = cl.clCreateKernel(m_program, "scale", nullptr);
        m_buffer = cl.clCreateBuffer(m_context, 0, 256, nullptr, nullptr);
        const cl_float fScale = 2;
        cl.clSetKernelArg(m_kernel, 0, sizeof(m_buffer), &m_buffer);
        cl.clSetKernelArg(m_kernel, 1, sizeof(fScale), &fScale);
        cl.clSetKernelArg(m_kernel, 2, sizeof(m_buffer), &m_buffer);
        m_gate = cl.clCreateUserEvent(m_context, nullptr);
        const size_t nItems = 64;
        EXPECT_EQ(cl.clEnqueueNDRangeKernel(m_queue, m_kernel, 1, nullptr, &nItems, nullptr, 1, &m_gate, &m_event),
                  CL_SUCCESS);
    }

    void Release(int nObject) { EXPECT_EQ(ReleaseOne(nObject), CL_SUCCESS) << "object " << nObject; }

private:
    cl_int ReleaseOne(int nObject)
    {
        switch (nObject)
        {
        case 0:
            return m_cl.clReleaseContext(m_context);
        case 1:
            return m_cl.clReleaseCommandQueue(m_queue);
        case 2:
            return m_cl.clReleaseProgram(m_program);
        case 3:
            return m_cl.clReleaseKernel(m_kernel);
        case 4:
            return m_cl.clReleaseMemObject(m_buffer);
        case 5:
            return m_cl.clReleaseEvent(m_event);
        default:
            return OpenAndRelease();
        }
    }

    cl_int OpenAndRelease()
    {
        EXPECT_EQ(m_cl.clSetUserEventStatus(m_gate, CL_COMPLETE), CL_SUCCESS);
        return m_cl.clReleaseEvent(m_gate);
    }

    SRuntimeEntries& m_cl;
    cl_context m_context = nullptr;
    cl_command_queue m_queue = nullptr;
    cl_program m_program = nullptr;
    cl_kernel m_kernel = nullptr;
    cl_mem m_buffer = nullptr;
    cl_event m_event = nullptr;
    cl_event m_gate = nullptr;
};

TEST_F(CResourcesTest, AnyOrderOfReleaseWillDo)
{
    std::vector<int> vOrder(COneLaunch::s_nObjects);
    for (int n = 0; n < COneLaunch::s_nObjects; ++n)
    {
        vOrder[static_cast<size_t>(n)] = n;
    }
    int nOrder = 0;
    do
    {
        // Every 23rd of the 5,040 orders: each object is first in some and last in some.
        if (nOrder++ % 23 != 0)
        {
            continue;
        }
        COneLaunch launch(cl, m_device);
        for (const int nObject : vOrder)
        {
            launch.Release(nObject);
        }
        ASSERT_FALSE(HasFailure()) << "order " << nOrder;
    } while (std::next_permutation(vOrder.begin(), vOrder.end()));
    EXPECT_EQ(Control().GetCounter(PLATFORM_COUNTER_KERNELS), 0u);
    EXPECT_EQ(Control().GetCounter(PLATFORM_COUNTER_EVENTS), 0u);
}

} // namespace
