#ifndef KESTREL_TESTS_PLATFORM_RUNTIME_ERROROBJECTS_H
#define KESTREL_TESTS_PLATFORM_RUNTIME_ERROROBJECTS_H

#include "Kernels.h"
#include "Runtime.h"

#include <algorithm>
#include <functional>
#include <iterator>

/// Shared by the tests of error codes: one valid object of each kind.

inline constexpr size_t s_nBufferSize = 1024;
inline constexpr size_t s_origin[3] = {0, 0, 0};
inline constexpr size_t s_four[3] = {4, 4, 0};
inline constexpr size_t s_far[3] = {0, 8, 0};
inline constexpr size_t s_outside[3] = {1000, 0, 0};
inline constexpr size_t s_region[3] = {4, 4, 1};
inline constexpr size_t s_empty[3] = {0, 4, 1};
inline constexpr size_t s_one = 1;
inline constexpr size_t s_three = 3;
inline constexpr size_t s_huge = 512;
inline const cl_image_format s_rgba{CL_RGBA, CL_UNSIGNED_INT8};

/// One live object of each kind, and means to make invalid ones.
struct SObjects
{
    SRuntimeEntries& cl = Runtime();
    cl_platform_id platform = nullptr;
    cl_device_id device = nullptr;
    cl_device_id otherDevice = nullptr; ///< not in the context
    cl_context context = nullptr;
    cl_command_queue queue = nullptr;
    cl_mem buffer = nullptr;
    cl_mem subBuffer = nullptr;
    cl_mem image = nullptr;
    cl_mem foreignBuffer = nullptr; ///< of another context
    cl_mem noAccess = nullptr;      ///< CL_MEM_HOST_NO_ACCESS
    cl_sampler sampler = nullptr;
    cl_program program = nullptr; ///< built
    cl_program unbuilt = nullptr;
    cl_kernel kernel = nullptr;      ///< with no argument set
    cl_kernel readyKernel = nullptr; ///< with its arguments, in the tests that launch
    void* pMapped = nullptr;         ///< in those too: where the buffer is mapped
    cl_event event = nullptr;        ///< a user event
    cl_event foreignEvent = nullptr;
    unsigned char bytes[4096] = {};
};

/// A wrong call and its code. The call's result is returned, or the error code that it stored.
struct SErrorCase
{
    const char* m_pszEntryPoint;
    const char* m_pszMistake;
    cl_int m_nExpected;
    std::function<cl_int(SObjects&)> m_call;
};

/// Wraps a call that returns an object, which must be null, and stores its code.
template <class F>
std::function<cl_int(SObjects&)> Created(F call)
{
    return [call](SObjects& o)
    {
        cl_int nError = 99;
        const void* pResult = call(o, &nError);
        EXPECT_EQ(pResult, nullptr);
        return nError;
    };
}

class CErrorsTest : public CRuntimeTest
{
protected:
    void SetUp() override
    {
        CRuntimeTest::SetUp();
        m_otherDevice = FindDevice("Kiln");
        m_foreignContext = cl.clCreateContext(nullptr, 1, &m_otherDevice, nullptr, nullptr, nullptr);
        o.platform = m_platform;
        o.device = m_device;
        o.otherDevice = m_otherDevice;
        o.context = m_context;
        o.queue = m_queue;
        o.buffer = MakeBuffer(s_nBufferSize);
        const cl_buffer_region region{128, 256};
        o.subBuffer = cl.clCreateSubBuffer(o.buffer, 0, CL_BUFFER_CREATE_TYPE_REGION, &region, nullptr);
        o.image = cl.clCreateImage2D(m_context, 0, &s_rgba, 8, 8, 0, nullptr, nullptr);
        o.foreignBuffer = cl.clCreateBuffer(m_foreignContext, 0, 64, nullptr, nullptr);
        o.noAccess = cl.clCreateBuffer(m_context, CL_MEM_HOST_NO_ACCESS, 64, nullptr, nullptr);
        o.sampler = cl.clCreateSampler(m_context, CL_TRUE, CL_ADDRESS_REPEAT, CL_FILTER_LINEAR, nullptr);
        o.program = MakeProgram();
        ASSERT_EQ(cl.clBuildProgram(o.program, 0, nullptr, "", nullptr, nullptr), CL_SUCCESS);
        o.unbuilt = MakeProgram();
        o.kernel = cl.clCreateKernel(o.program, "scale", nullptr);
        o.event = cl.clCreateUserEvent(m_context, nullptr);
        o.foreignEvent = cl.clCreateUserEvent(m_foreignContext, nullptr);
        for (const void* pObject :
             {static_cast<void*>(o.subBuffer), static_cast<void*>(o.image), static_cast<void*>(o.noAccess),
              static_cast<void*>(o.sampler), static_cast<void*>(o.kernel), static_cast<void*>(o.foreignEvent)})
        {
            ASSERT_NE(pObject, nullptr);
        }
    }

    void TearDown() override
    {
        for (cl_mem mem : {o.buffer, o.subBuffer, o.image, o.foreignBuffer, o.noAccess})
        {
            cl.clReleaseMemObject(mem);
        }
        cl.clReleaseSampler(o.sampler);
        cl.clReleaseKernel(o.kernel);
        cl.clReleaseProgram(o.program);
        cl.clReleaseProgram(o.unbuilt);
        cl.clReleaseEvent(o.event);
        cl.clReleaseEvent(o.foreignEvent);
        cl.clReleaseContext(m_foreignContext);
        CRuntimeTest::TearDown();
    }

    cl_program MakeProgram()
    {
        const std::string strSource = ScaleModule(true);
        const char* pszSource = strSource.c_str();
        return cl.clCreateProgramWithSource(m_context, 1, &pszSource, nullptr, nullptr);
    }

    /// Counts everything that a wrong call could leave behind.
    std::vector<uint64_t> CountAll()
    {
        std::vector<uint64_t> vCounts;
        for (int n = 0; n < PLATFORM_COUNTER_LAST; ++n)
        {
            vCounts.push_back(Control().GetCounter(static_cast<EPlatformCounter>(n)));
        }
        return vCounts;
    }

    /// Fills the buffer, the image and the client's memory, so that changes by a wrong call show.
    void FillMemory()
    {
        const cl_uchar nByte = 0xA5;
        const cl_uint colour[] = {1, 2, 3, 4};
        std::fill(std::begin(o.bytes), std::end(o.bytes), static_cast<unsigned char>(0x5A));
        cl.clEnqueueFillBuffer(m_queue, o.buffer, &nByte, 1, 0, s_nBufferSize, 0, nullptr, nullptr);
        const size_t whole[] = {8, 8, 1};
        cl.clEnqueueFillImage(m_queue, o.image, colour, s_origin, whole, 0, nullptr, nullptr);
        EXPECT_EQ(cl.clFinish(m_queue), CL_SUCCESS);
    }

    void ExpectMemoryAsFilled()
    {
        EXPECT_EQ(std::vector<unsigned char>(std::begin(o.bytes), std::end(o.bytes)),
                  std::vector<unsigned char>(sizeof(o.bytes), 0x5A));
        EXPECT_EQ(ReadAll<unsigned char>(o.buffer, s_nBufferSize), std::vector<unsigned char>(s_nBufferSize, 0xA5));
        std::vector<unsigned char> vTexels(8 * 8 * 4);
        const size_t whole[] = {8, 8, 1};
        EXPECT_EQ(cl.clEnqueueReadImage(m_queue, o.image, CL_TRUE, s_origin, whole, 0, 0, vTexels.data(), 0, nullptr,
                                        nullptr),
                  CL_SUCCESS);
        for (size_t n = 0; n < vTexels.size(); ++n)
        {
            EXPECT_EQ(vTexels[n], n % 4 + 1) << "byte " << n;
        }
    }

    /// Checks that each case gives its code, leaves no object behind and changes no memory.
    void CheckCases(const std::vector<SErrorCase>& vCases)
    {
        FillMemory();
        const std::vector<uint64_t> vBefore = CountAll();
        for (const SErrorCase& error : vCases)
        {
            SCOPED_TRACE(std::string(error.m_pszEntryPoint) + ", " + error.m_pszMistake);
            EXPECT_EQ(error.m_call(o), error.m_nExpected);
            EXPECT_EQ(CountAll(), vBefore);
        }
        ExpectMemoryAsFilled();
    }

    SObjects o;
    cl_device_id m_otherDevice = nullptr;
    cl_context m_foreignContext = nullptr;
};

#endif
