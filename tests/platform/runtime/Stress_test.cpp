#include "Kernels.h"
#include "Runtime.h"

#include <atomic>
#include <random>
#include <thread>

/// Many threads use one context: for the thread sanitizer and the reference counts.
namespace
{

constexpr int s_nThreads = 8;
constexpr int s_nRounds = 60;
constexpr size_t s_nStressItems = 64;

class CStressTest : public CRuntimeTest
{
};

/// The work of one thread: random commands on its own queues and on shared ones; releases its objects in an order of
/// its own.
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
        {
            Round();
        }
    }

    uint64_t Launches() const { return m_nLaunches; }

private:
    void Round()
    {
        switch (m_random() % 6)
        {
        case 0:
            ImageRound();
            break;
        case 1:
            PartsRound();
            break;
        case 2:
            ContextRound();
            break;
        default:
            PipelineRound();
            break;
        }
    }

    /// An image that is filled, mapped and copied to a buffer of its bytes.
    void ImageRound()
    {
        const cl_image_format format{CL_RGBA, CL_UNSIGNED_INT8};
        cl_command_queue own = cl.clCreateCommandQueue(m_context, m_device, 0, nullptr);
        cl_command_queue queue = Flip() ? m_shared : own;
        cl_mem image = cl.clCreateImage2D(m_context, 0, &format, 8, 8, 0, nullptr, nullptr);
        cl_mem buffer = cl.clCreateBuffer(m_context, 0, 256, nullptr, nullptr);
        cl_sampler sampler = cl.clCreateSampler(m_context, CL_TRUE, CL_ADDRESS_REPEAT, CL_FILTER_LINEAR, nullptr);
        const cl_uint colour[] = {1, 2, 3, static_cast<cl_uint>(m_random() % 200)};
        const size_t origin[] = {0, 0, 0};
        const size_t region[] = {8, 8, 1};
        cl_event filled = nullptr;
        cl_event copied = nullptr;
        Expect(cl.clEnqueueFillImage(queue, image, colour, origin, region, 0, nullptr, &filled));
        Expect(cl.clEnqueueCopyImageToBuffer(own, image, buffer, origin, region, 0, 1, &filled, &copied));
        size_t nPitch = 0;
        cl_int nError = -1;
        auto* pTexels = static_cast<unsigned char*>(cl.clEnqueueMapImage(
            queue, image, CL_TRUE, CL_MAP_READ, origin, region, &nPitch, nullptr, 1, &copied, nullptr, &nError));
        ASSERT_EQ(nError, CL_SUCCESS);
        EXPECT_EQ(pTexels[7 * nPitch + 31], colour[3]);
        Expect(cl.clEnqueueUnmapMemObject(queue, image, pTexels, 0, nullptr, nullptr));
        Expect(cl.clReleaseMemObject(image));
        Expect(cl.clReleaseSampler(sampler));
        Release(own, buffer, {filled, copied});
    }

    /// Two parts of one buffer, written by a mapping and by a copy.
    void PartsRound()
    {
        cl_command_queue own = cl.clCreateCommandQueue(m_context, m_device, 0, nullptr);
        cl_mem buffer = cl.clCreateBuffer(m_context, 0, 512, nullptr, nullptr);
        const cl_buffer_region regions[] = {{0, 256}, {256, 256}};
        cl_mem parts[] = {cl.clCreateSubBuffer(buffer, 0, CL_BUFFER_CREATE_TYPE_REGION, &regions[0], nullptr),
                          cl.clCreateSubBuffer(buffer, 0, CL_BUFFER_CREATE_TYPE_REGION, &regions[1], nullptr)};
        cl_int nError = -1;
        auto* pWords = static_cast<cl_uint*>(
            cl.clEnqueueMapBuffer(own, parts[0], CL_TRUE, CL_MAP_WRITE, 0, 256, 0, nullptr, nullptr, &nError));
        ASSERT_EQ(nError, CL_SUCCESS);
        const cl_uint nValue = static_cast<cl_uint>(m_random());
        for (size_t n = 0; n < 64; ++n)
        {
            pWords[n] = nValue;
        }
        cl_event unmapped = nullptr;
        cl_event copied = nullptr;
        Expect(cl.clEnqueueUnmapMemObject(own, parts[0], pWords, 0, nullptr, &unmapped));
        Expect(cl.clEnqueueCopyBuffer(m_shared, parts[0], parts[1], 0, 0, 256, 1, &unmapped, &copied));
        const size_t nFirst = Flip() ? 0 : 1;
        Expect(cl.clReleaseMemObject(parts[nFirst]));
        std::vector<cl_uint> vWords(128);
        Expect(cl.clEnqueueReadBuffer(own, buffer, CL_TRUE, 0, 512, vWords.data(), 1, &copied, nullptr));
        EXPECT_EQ(vWords, std::vector<cl_uint>(128, nValue));
        Expect(cl.clReleaseMemObject(parts[1 - nFirst]));
        Release(own, buffer, {unmapped, copied});
    }

    /// Creates a context with everything that a launch needs, and releases it before the launch has run.
    void ContextRound()
    {
        cl_context context = cl.clCreateContext(nullptr, 1, &m_device, nullptr, nullptr, nullptr);
        cl_command_queue queue = cl.clCreateCommandQueue(context, m_device, 0, nullptr);
        const char* pszSource = "kernel void add(global int* p, int n) { p[get_global_id(0)] += n; }";
        cl_program program = cl.clCreateProgramWithSource(context, 1, &pszSource, nullptr, nullptr);
        Expect(cl.clBuildProgram(program, 0, nullptr, "", nullptr, nullptr));
        cl_kernel kernel = cl.clCreateKernel(program, "add", nullptr);
        cl_mem buffer = cl.clCreateBuffer(context, 0, s_nStressItems * 4, nullptr, nullptr);
        const cl_int nStep = 5;
        cl.clSetKernelArg(kernel, 0, sizeof(buffer), &buffer);
        cl.clSetKernelArg(kernel, 1, sizeof(nStep), &nStep);
        cl_event event = nullptr;
        Expect(cl.clEnqueueNDRangeKernel(queue, kernel, 1, nullptr, &s_nStressItems, nullptr, 0, nullptr, &event));
        ++m_nLaunches;
        Expect(cl.clReleaseContext(context));
        Expect(cl.clReleaseProgram(program));
        Expect(cl.clReleaseKernel(kernel));
        std::vector<cl_int> vValues(s_nStressItems);
        Expect(
            cl.clEnqueueReadBuffer(queue, buffer, CL_TRUE, 0, s_nStressItems * 4, vValues.data(), 0, nullptr, nullptr));
        EXPECT_EQ(vValues, std::vector<cl_int>(s_nStressItems, nStep));
        Release(queue, buffer, {event});
    }

    void PipelineRound()
    {
        cl_command_queue own = cl.clCreateCommandQueue(m_context, m_device, 0, nullptr);
        cl_mem buffer = cl.clCreateBuffer(m_context, 0, s_nStressItems * 4, nullptr, nullptr);
        cl_event gate = cl.clCreateUserEvent(m_context, nullptr);
        cl_event filled = nullptr;
        const cl_float fValue = 2.0f;
        Expect(cl.clEnqueueFillBuffer(own, buffer, &fValue, 4, 0, s_nStressItems * 4, 1, &gate, &filled));
        cl_event scaled = Launch(Flip() ? own : m_shared, buffer, filled);
        if (Flip())
        {
            cl.clSetEventCallback(
                scaled, CL_COMPLETE, [](cl_event, cl_int, void*) {}, nullptr);
        }
        Expect(cl.clSetUserEventStatus(gate, CL_COMPLETE));
        if (Flip())
        {
            ReadByMap(own, buffer, scaled);
        }
        else
        {
            Read(own, buffer, scaled);
        }
        Release(own, buffer, {gate, filled, scaled});
    }

    cl_event Launch(cl_command_queue queue, cl_mem buffer, cl_event after)
    {
        cl_kernel kernel = cl.clCreateKernel(m_program, "scale", nullptr);
        const cl_float fScale = 3.0f;
        cl.clSetKernelArg(kernel, 0, sizeof(buffer), &buffer);
        cl.clSetKernelArg(kernel, 1, sizeof(fScale), &fScale);
        cl.clSetKernelArg(kernel, 2, sizeof(buffer), &buffer);
        cl_event event = nullptr;
        Expect(cl.clEnqueueNDRangeKernel(queue, kernel, 1, nullptr, &s_nStressItems, nullptr, 1, &after, &event));
        cl.clReleaseKernel(kernel);
        ++m_nLaunches;
        return event;
    }

    void Read(cl_command_queue queue, cl_mem buffer, cl_event after)
    {
        std::vector<cl_float> vValues(s_nStressItems);
        Expect(
            cl.clEnqueueReadBuffer(queue, buffer, CL_TRUE, 0, s_nStressItems * 4, vValues.data(), 1, &after, nullptr));
        EXPECT_EQ(vValues, std::vector<cl_float>(s_nStressItems, 6.0f));
    }

    void ReadByMap(cl_command_queue queue, cl_mem buffer, cl_event after)
    {
        cl_int nError = -1;
        const auto* pValues = static_cast<const cl_float*>(cl.clEnqueueMapBuffer(
            queue, buffer, CL_TRUE, CL_MAP_READ, 0, s_nStressItems * 4, 1, &after, nullptr, &nError));
        ASSERT_EQ(nError, CL_SUCCESS);
        EXPECT_EQ(pValues[s_nStressItems - 1], 6.0f);
        Expect(cl.clEnqueueUnmapMemObject(queue, buffer, const_cast<cl_float*>(pValues), 0, nullptr, nullptr));
    }

    void Release(cl_command_queue queue, cl_mem buffer, const std::vector<cl_event>& vEvents)
    {
        const bool bQueueFirst = Flip();
        if (bQueueFirst)
        {
            Expect(cl.clReleaseCommandQueue(queue));
        }
        Expect(cl.clReleaseMemObject(buffer));
        for (cl_event event : vEvents)
        {
            Expect(cl.clReleaseEvent(event));
        }
        if (!bQueueFirst)
        {
            Expect(cl.clReleaseCommandQueue(queue));
        }
    }

    bool Flip() { return (m_random() & 1) != 0; }
    static void Expect(cl_int nError) { EXPECT_EQ(nError, CL_SUCCESS); }

    SRuntimeEntries& cl = Runtime();
    cl_context m_context;
    cl_device_id m_device;
    cl_command_queue m_shared;
    cl_program m_program;
    std::mt19937 m_random;
    uint64_t m_nLaunches = 0;
};

TEST_F(CStressTest, EightThreadsLeaveNothingBehind)
{
    const std::string strSource = ScaleModule(true);
    const char* pszSource = strSource.c_str();
    cl_program program = cl.clCreateProgramWithSource(m_context, 1, &pszSource, nullptr, nullptr);
    ASSERT_EQ(cl.clBuildProgram(program, 0, nullptr, "", nullptr, nullptr), CL_SUCCESS);
    std::vector<std::thread> vThreads;
    std::atomic<uint64_t> nLaunches{0};
    for (unsigned int i = 0; i < s_nThreads; ++i)
    {
        vThreads.emplace_back(
            [&, i]
            {
                CWorker worker(m_context, m_device, m_queue, program, i);
                worker.Run();
                nLaunches += worker.Launches();
            });
    }
    for (std::thread& thread : vThreads)
    {
        thread.join();
    }
    EXPECT_EQ(Control().GetCounter(PLATFORM_COUNTER_KERNEL_RUNS), nLaunches);
    cl.clReleaseProgram(program);
}

} // namespace
