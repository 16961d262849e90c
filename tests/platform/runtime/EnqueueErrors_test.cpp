#include "ErrorObjects.h"

#include <functional>

/// Errors common to many calls: wrong queues and wait lists of enqueue calls, contexts of calls that create objects,
/// objects and sizes of info queries.
namespace
{

/// A queue, a wait list and a place for an event, valid or not.
struct SCommandArguments
{
    cl_command_queue queue = nullptr;
    cl_uint nWaits = 0;
    const cl_event* pWaits = nullptr;
    cl_event* pEvent = nullptr;
};

/// An enqueue call whose own arguments are right.
struct SEnqueueCall
{
    const char* m_pszEntryPoint;
    std::function<cl_int(SObjects&, const SCommandArguments&)> m_call;
};

/// Wraps a call that returns an address, and stores its code.
template <class F>
std::function<cl_int(SObjects&, const SCommandArguments&)> Mapped(F call)
{
    return [call](SObjects& o, const SCommandArguments& a)
    {
        cl_int nError = 99;
        EXPECT_EQ(call(o, a, &nError), nullptr);
        return nError;
    };
}

// clang-format off
const SEnqueueCall s_enqueueCalls[] = {
    {"clEnqueueReadBuffer", [](SObjects& o, const SCommandArguments& a) { return o.cl.clEnqueueReadBuffer(a.queue, o.buffer, CL_FALSE, 0, 16, o.bytes, a.nWaits, a.pWaits, a.pEvent); }},
    {"clEnqueueWriteBuffer", [](SObjects& o, const SCommandArguments& a) { return o.cl.clEnqueueWriteBuffer(a.queue, o.buffer, CL_FALSE, 0, 16, o.bytes, a.nWaits, a.pWaits, a.pEvent); }},
    {"clEnqueueReadBufferRect", [](SObjects& o, const SCommandArguments& a) { return o.cl.clEnqueueReadBufferRect(a.queue, o.buffer, CL_FALSE, s_origin, s_origin, s_region, 0, 0, 0, 0, o.bytes, a.nWaits, a.pWaits, a.pEvent); }},
    {"clEnqueueWriteBufferRect", [](SObjects& o, const SCommandArguments& a) { return o.cl.clEnqueueWriteBufferRect(a.queue, o.buffer, CL_FALSE, s_origin, s_origin, s_region, 0, 0, 0, 0, o.bytes, a.nWaits, a.pWaits, a.pEvent); }},
    {"clEnqueueCopyBufferRect", [](SObjects& o, const SCommandArguments& a) { return o.cl.clEnqueueCopyBufferRect(a.queue, o.buffer, o.buffer, s_origin, s_far, s_region, 16, 0, 16, 0, a.nWaits, a.pWaits, a.pEvent); }},
    {"clEnqueueCopyBuffer", [](SObjects& o, const SCommandArguments& a) { return o.cl.clEnqueueCopyBuffer(a.queue, o.buffer, o.buffer, 0, 64, 16, a.nWaits, a.pWaits, a.pEvent); }},
    {"clEnqueueFillBuffer", [](SObjects& o, const SCommandArguments& a) { return o.cl.clEnqueueFillBuffer(a.queue, o.buffer, o.bytes, 4, 0, 16, a.nWaits, a.pWaits, a.pEvent); }},
    {"clEnqueueReadImage", [](SObjects& o, const SCommandArguments& a) { return o.cl.clEnqueueReadImage(a.queue, o.image, CL_FALSE, s_origin, s_region, 0, 0, o.bytes, a.nWaits, a.pWaits, a.pEvent); }},
    {"clEnqueueWriteImage", [](SObjects& o, const SCommandArguments& a) { return o.cl.clEnqueueWriteImage(a.queue, o.image, CL_FALSE, s_origin, s_region, 0, 0, o.bytes, a.nWaits, a.pWaits, a.pEvent); }},
    {"clEnqueueCopyImage", [](SObjects& o, const SCommandArguments& a) { return o.cl.clEnqueueCopyImage(a.queue, o.image, o.image, s_origin, s_four, s_region, a.nWaits, a.pWaits, a.pEvent); }},
    {"clEnqueueFillImage", [](SObjects& o, const SCommandArguments& a) { return o.cl.clEnqueueFillImage(a.queue, o.image, o.bytes, s_origin, s_region, a.nWaits, a.pWaits, a.pEvent); }},
    {"clEnqueueCopyImageToBuffer", [](SObjects& o, const SCommandArguments& a) { return o.cl.clEnqueueCopyImageToBuffer(a.queue, o.image, o.buffer, s_origin, s_region, 0, a.nWaits, a.pWaits, a.pEvent); }},
    {"clEnqueueCopyBufferToImage", [](SObjects& o, const SCommandArguments& a) { return o.cl.clEnqueueCopyBufferToImage(a.queue, o.buffer, o.image, 0, s_origin, s_region, a.nWaits, a.pWaits, a.pEvent); }},
    {"clEnqueueMapBuffer", Mapped([](SObjects& o, const SCommandArguments& a, cl_int* pnError) { return o.cl.clEnqueueMapBuffer(a.queue, o.buffer, CL_FALSE, CL_MAP_READ, 0, 16, a.nWaits, a.pWaits, a.pEvent, pnError); })},
    {"clEnqueueMapImage", Mapped([](SObjects& o, const SCommandArguments& a, cl_int* pnError) { size_t nPitch = 0; return o.cl.clEnqueueMapImage(a.queue, o.image, CL_FALSE, CL_MAP_READ, s_origin, s_region, &nPitch, nullptr, a.nWaits, a.pWaits, a.pEvent, pnError); })},
    {"clEnqueueUnmapMemObject", [](SObjects& o, const SCommandArguments& a) { return o.cl.clEnqueueUnmapMemObject(a.queue, o.buffer, o.pMapped, a.nWaits, a.pWaits, a.pEvent); }},
    {"clEnqueueMigrateMemObjects", [](SObjects& o, const SCommandArguments& a) { return o.cl.clEnqueueMigrateMemObjects(a.queue, 1, &o.buffer, 0, a.nWaits, a.pWaits, a.pEvent); }},
    {"clEnqueueNDRangeKernel", [](SObjects& o, const SCommandArguments& a) { return o.cl.clEnqueueNDRangeKernel(a.queue, o.readyKernel, 1, nullptr, &s_one, nullptr, a.nWaits, a.pWaits, a.pEvent); }},
    {"clEnqueueTask", [](SObjects& o, const SCommandArguments& a) { return o.cl.clEnqueueTask(a.queue, o.readyKernel, a.nWaits, a.pWaits, a.pEvent); }},
    {"clEnqueueMarkerWithWaitList", [](SObjects& o, const SCommandArguments& a) { return o.cl.clEnqueueMarkerWithWaitList(a.queue, a.nWaits, a.pWaits, a.pEvent); }},
    {"clEnqueueBarrierWithWaitList", [](SObjects& o, const SCommandArguments& a) { return o.cl.clEnqueueBarrierWithWaitList(a.queue, a.nWaits, a.pWaits, a.pEvent); }},
};

/// A call that creates an object in a context.
struct SCreateCall
{
    const char* m_pszEntryPoint;
    std::function<const void*(SObjects&, cl_context, cl_int*)> m_call;
};

const SCreateCall s_createCalls[] = {
    {"clCreateCommandQueue", [](SObjects& o, cl_context context, cl_int* pnError) { return o.cl.clCreateCommandQueue(context, o.device, 0, pnError); }},
    {"clCreateBuffer", [](SObjects& o, cl_context context, cl_int* pnError) { return o.cl.clCreateBuffer(context, 0, 16, nullptr, pnError); }},
    {"clCreateImage", [](SObjects& o, cl_context context, cl_int* pnError) { cl_image_desc desc{}; desc.image_type = CL_MEM_OBJECT_IMAGE2D; desc.image_width = desc.image_height = 4; return o.cl.clCreateImage(context, 0, &s_rgba, &desc, nullptr, pnError); }},
    {"clCreateImage2D", [](SObjects& o, cl_context context, cl_int* pnError) { return o.cl.clCreateImage2D(context, 0, &s_rgba, 4, 4, 0, nullptr, pnError); }},
    {"clCreateImage3D", [](SObjects& o, cl_context context, cl_int* pnError) { return o.cl.clCreateImage3D(context, 0, &s_rgba, 4, 4, 4, 0, 0, nullptr, pnError); }},
    {"clCreateSampler", [](SObjects& o, cl_context context, cl_int* pnError) { return o.cl.clCreateSampler(context, CL_TRUE, CL_ADDRESS_REPEAT, CL_FILTER_LINEAR, pnError); }},
    {"clCreateProgramWithSource", [](SObjects& o, cl_context context, cl_int* pnError) { const char* pszSource = ";"; return o.cl.clCreateProgramWithSource(context, 1, &pszSource, nullptr, pnError); }},
    {"clCreateProgramWithBinary", [](SObjects& o, cl_context context, cl_int* pnError) { const size_t nSize = 4; const unsigned char* pBytes = o.bytes; return o.cl.clCreateProgramWithBinary(context, 1, &o.device, &nSize, &pBytes, nullptr, pnError); }},
    {"clCreateProgramWithBuiltInKernels", [](SObjects& o, cl_context context, cl_int* pnError) { return o.cl.clCreateProgramWithBuiltInKernels(context, 1, &o.device, "copy", pnError); }},
    {"clLinkProgram", [](SObjects& o, cl_context context, cl_int* pnError) { return o.cl.clLinkProgram(context, 0, nullptr, "", 1, &o.program, nullptr, nullptr, pnError); }},
    {"clCreateUserEvent", [](SObjects& o, cl_context context, cl_int* pnError) { return o.cl.clCreateUserEvent(context, pnError); }},
};

/// An info query of a handle passed as an address: each kind of object accepts only its own.
struct SInfoCall
{
    const char* m_pszEntryPoint;
    cl_int m_nWrongHandle;
    std::function<void*(SObjects&)> m_handle;
    std::function<cl_int(SObjects&, void*, size_t, void*, size_t*)> m_call;
};

#define INFO(name, code, handle, type, ...)                                                                            \
    {#name, code, [](SObjects& o) -> void* { return o.handle; },                                                       \
     [](SObjects& o, void* p, size_t nSize, void* pValue, size_t* pnSize)                                              \
     { return o.cl.name(static_cast<type>(p), __VA_ARGS__, nSize, pValue, pnSize); }}

const SInfoCall s_infoCalls[] = {
    INFO(clGetDeviceInfo, CL_INVALID_DEVICE, device, cl_device_id, CL_DEVICE_NAME),
    INFO(clGetContextInfo, CL_INVALID_CONTEXT, context, cl_context, CL_CONTEXT_DEVICES),
    INFO(clGetCommandQueueInfo, CL_INVALID_COMMAND_QUEUE, queue, cl_command_queue, CL_QUEUE_CONTEXT),
    INFO(clGetMemObjectInfo, CL_INVALID_MEM_OBJECT, buffer, cl_mem, CL_MEM_SIZE),
    INFO(clGetImageInfo, CL_INVALID_MEM_OBJECT, image, cl_mem, CL_IMAGE_FORMAT),
    INFO(clGetSamplerInfo, CL_INVALID_SAMPLER, sampler, cl_sampler, CL_SAMPLER_CONTEXT),
    INFO(clGetProgramInfo, CL_INVALID_PROGRAM, program, cl_program, CL_PROGRAM_SOURCE),
    INFO(clGetProgramBuildInfo, CL_INVALID_PROGRAM, program, cl_program, o.device, CL_PROGRAM_BUILD_STATUS),
    INFO(clGetKernelInfo, CL_INVALID_KERNEL, kernel, cl_kernel, CL_KERNEL_FUNCTION_NAME),
    INFO(clGetKernelArgInfo, CL_INVALID_KERNEL, kernel, cl_kernel, 0, CL_KERNEL_ARG_NAME),
    INFO(clGetKernelWorkGroupInfo, CL_INVALID_KERNEL, kernel, cl_kernel, o.device, CL_KERNEL_WORK_GROUP_SIZE),
    INFO(clGetEventInfo, CL_INVALID_EVENT, event, cl_event, CL_EVENT_CONTEXT),
    INFO(clGetPlatformInfo, CL_INVALID_PLATFORM, platform, cl_platform_id, CL_PLATFORM_NAME),
};
// clang-format on

class CEnqueueErrorsTest : public CErrorsTest
{
protected:
    void SetUp() override
    {
        CErrorsTest::SetUp();
        o.readyKernel = cl.clCreateKernel(o.program, "scale", nullptr);
        const cl_float fScale = 2;
        for (cl_uint n : {0u, 2u})
        {
            cl.clSetKernelArg(o.readyKernel, n, sizeof(o.buffer), &o.buffer);
        }
        cl.clSetKernelArg(o.readyKernel, 1, sizeof(fScale), &fScale);
        o.pMapped = cl.clEnqueueMapBuffer(m_queue, o.buffer, CL_TRUE, CL_MAP_READ, 0, 4, 0, nullptr, nullptr, nullptr);
        FillMemory();
    }

    void TearDown() override
    {
        ExpectMemoryAsFilled();
        cl.clEnqueueUnmapMemObject(m_queue, o.buffer, o.pMapped, 0, nullptr, nullptr);
        cl.clFinish(m_queue);
        cl.clReleaseKernel(o.readyKernel);
        CErrorsTest::TearDown();
    }
};

TEST_F(CEnqueueErrorsTest, QueuesAndWaitLists)
{
    cl_command_queue foreignQueue = cl.clCreateCommandQueue(m_foreignContext, m_otherDevice, 0, nullptr);
    const cl_event good = o.event;
    const cl_event none = nullptr;
    const cl_event noEvent = reinterpret_cast<cl_event>(o.buffer);
    struct SCase
    {
        const char* m_pszMistake;
        cl_int m_nExpected;
        cl_command_queue m_queue;
        cl_uint m_nWaits;
        const cl_event* m_pWaits;
    };
    const SCase cases[] = {
        {"no queue", CL_INVALID_COMMAND_QUEUE, nullptr, 0, nullptr},
        {"a buffer for a queue", CL_INVALID_COMMAND_QUEUE, reinterpret_cast<cl_command_queue>(o.buffer), 0, nullptr},
        {"count without list", CL_INVALID_EVENT_WAIT_LIST, m_queue, 1, nullptr},
        {"list without count", CL_INVALID_EVENT_WAIT_LIST, m_queue, 0, &good},
        {"a null event", CL_INVALID_EVENT_WAIT_LIST, m_queue, 1, &none},
        {"a buffer for an event", CL_INVALID_EVENT_WAIT_LIST, m_queue, 1, &noEvent},
        {"an event of another context", CL_INVALID_CONTEXT, m_queue, 1, &o.foreignEvent},
        {"a queue of another context", CL_INVALID_CONTEXT, foreignQueue, 0, nullptr},
    };
    const std::vector<uint64_t> vBefore = CountAll();
    for (const SEnqueueCall& call : s_enqueueCalls)
    {
        for (const SCase& test : cases)
        {
            SCOPED_TRACE(std::string(call.m_pszEntryPoint) + ", " + test.m_pszMistake);
            const bool bNoObject = std::string(call.m_pszEntryPoint).find("WithWaitList") != std::string::npos;
            if (test.m_queue == foreignQueue && bNoObject)
            {
                continue;
            }
            cl_event event = good;
            EXPECT_EQ(call.m_call(o, {test.m_queue, test.m_nWaits, test.m_pWaits, &event}), test.m_nExpected);
            EXPECT_EQ(event, good) << "no event is stored";
            EXPECT_EQ(CountAll(), vBefore);
        }
    }
    cl.clReleaseCommandQueue(foreignQueue);
}

TEST_F(CEnqueueErrorsTest, ContextsOfWhatIsMade)
{
    const std::vector<uint64_t> vBefore = CountAll();
    for (const SCreateCall& call : s_createCalls)
    {
        for (void* pWrong : {static_cast<void*>(nullptr), static_cast<void*>(o.queue), static_cast<void*>(o.bytes)})
        {
            cl_int nError = 99;
            EXPECT_EQ(call.m_call(o, static_cast<cl_context>(pWrong), &nError), nullptr) << call.m_pszEntryPoint;
            EXPECT_EQ(nError, CL_INVALID_CONTEXT) << call.m_pszEntryPoint;
            EXPECT_EQ(call.m_call(o, static_cast<cl_context>(pWrong), nullptr), nullptr) << call.m_pszEntryPoint;
        }
    }
    EXPECT_EQ(CountAll(), vBefore);
}

TEST_F(CEnqueueErrorsTest, ObjectsAndSizesOfInfoQueries)
{
    for (const SInfoCall& call : s_infoCalls)
    {
        SCOPED_TRACE(call.m_pszEntryPoint);
        void* const pRight = call.m_handle(o);
        // Handles of other kinds, null, and memory that isn't an object. A null platform is valid.
        for (void* pWrong : {static_cast<void*>(nullptr), static_cast<void*>(o.foreignEvent),
                             static_cast<void*>(o.noAccess), static_cast<void*>(o.bytes)})
        {
            const bool bBuffer = call.m_nWrongHandle == CL_INVALID_MEM_OBJECT && pWrong == o.noAccess;
            const bool bEvent = call.m_nWrongHandle == CL_INVALID_EVENT && pWrong == o.foreignEvent;
            const bool bPlatform = call.m_nWrongHandle == CL_INVALID_PLATFORM && !pWrong;
            const bool bImage = std::string(call.m_pszEntryPoint) == "clGetImageInfo";
            if ((bBuffer && !bImage) || bEvent || bPlatform)
            {
                continue;
            }
            EXPECT_EQ(call.m_call(o, pWrong, 0, nullptr, nullptr), call.m_nWrongHandle);
        }
        size_t nSize = 0;
        ASSERT_EQ(call.m_call(o, pRight, 0, nullptr, &nSize), CL_SUCCESS);
        ASSERT_GT(nSize, 1u);
        std::vector<unsigned char> vValue(nSize + 8, 0x77);
        EXPECT_EQ(call.m_call(o, pRight, nSize - 1, vValue.data(), nullptr), CL_INVALID_VALUE);
        EXPECT_EQ(vValue, std::vector<unsigned char>(nSize + 8, 0x77)) << "nothing is stored";
        EXPECT_EQ(call.m_call(o, pRight, nSize + 8, vValue.data(), nullptr), CL_SUCCESS);
        EXPECT_EQ(std::vector<unsigned char>(vValue.end() - 8, vValue.end()), std::vector<unsigned char>(8, 0x77));
    }
}

} // namespace
