#ifndef KESTREL_TESTS_PLATFORM_RUNTIME_RUNTIME_H
#define KESTREL_TESTS_PLATFORM_RUNTIME_RUNTIME_H

#include "KestrelPlatform.h"
#include "tests/support/Folders.h"

#include <CL/cl.h>
#include <CL/cl_ext.h>
#include <CL/cl_gl.h>
#include <CL/cl_icd.h>

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <string>
#include <vector>

/// The entry points of a runtime, opened like in a client. Calls are written as functions of this struct:
/// `cl.clFinish(queue)`.
struct SRuntimeEntries
{
#define KP_EXPORTED(name) decltype(&::name) name = nullptr;
#define KP_LOADER(name) decltype(&::name) name = nullptr;
#define KP_TABLE_ONLY(name) decltype(&::name) name = nullptr;
#define KP_EXTENSION(name, extension)
#include "platform/runtime/EntryPoints.def"
#undef KP_EXPORTED
#undef KP_LOADER
#undef KP_TABLE_ONLY
#undef KP_EXTENSION

    explicit SRuntimeEntries(const std::string& strPath) : m_pModule(dlopen(strPath.c_str(), RTLD_LAZY | RTLD_LOCAL))
    {
        EXPECT_NE(m_pModule, nullptr) << dlerror();
#define KP_EXPORTED(name) Load(#name, name);
#define KP_LOADER(name) Load(#name, name);
#define KP_TABLE_ONLY(name) Load(#name, name);
#define KP_EXTENSION(name, extension)
#include "platform/runtime/EntryPoints.def"
#undef KP_EXPORTED
#undef KP_LOADER
#undef KP_TABLE_ONLY
#undef KP_EXTENSION
    }

    void* m_pModule;

private:
    template <class T>
    void Load(const char* pszName, T& pEntry)
    {
        pEntry = m_pModule ? reinterpret_cast<T>(dlsym(m_pModule, pszName)) : nullptr;
    }
};

inline const std::string& RuntimePath()
{
    static const std::string s_strPath = KestrelTest::PlatformFile("libOpenCL.so");
    return s_strPath;
}

/// The runtime, opened directly.
inline SRuntimeEntries& Runtime()
{
    static SRuntimeEntries s_entries(RuntimePath());
    return s_entries;
}

inline const SPlatformControl& Control()
{
    using Door = const SPlatformControl* (*)();
    static const SPlatformControl& s_control =
        *reinterpret_cast<Door>(Runtime().clGetExtensionFunctionAddress("kestrelPlatformControl"))();
    return s_control;
}

/// Text of an info query.
template <class F>
std::string InfoString(F&& query)
{
    size_t nSize = 0;
    EXPECT_EQ(query(size_t{0}, nullptr, &nSize), CL_SUCCESS);
    std::string strValue(nSize, '\0');
    EXPECT_EQ(query(nSize, strValue.data(), nullptr), CL_SUCCESS);
    return strValue.substr(0, strValue.find('\0'));
}

/// A context on one device, with a queue. After each test all objects must be released.
class CRuntimeTest : public testing::Test
{
protected:
    explicit CRuntimeTest(const std::string& strDevice = "Quench") : m_strDevice(strDevice) {}

    void SetUp() override
    {
        Control().Reset();
        Control().ClearCounters();
        ASSERT_EQ(cl.clGetPlatformIDs(1, &m_platform, nullptr), CL_SUCCESS);
        m_device = FindDevice(m_strDevice);
        ASSERT_NE(m_device, nullptr);
        cl_int nError = -1;
        m_context = cl.clCreateContext(nullptr, 1, &m_device, nullptr, nullptr, &nError);
        ASSERT_EQ(nError, CL_SUCCESS);
        m_queue = cl.clCreateCommandQueue(m_context, m_device, CL_QUEUE_PROFILING_ENABLE, &nError);
        ASSERT_EQ(nError, CL_SUCCESS);
    }

    void TearDown() override
    {
        Control().Reset();
        EXPECT_EQ(cl.clReleaseCommandQueue(m_queue), CL_SUCCESS);
        EXPECT_EQ(cl.clReleaseContext(m_context), CL_SUCCESS);
        ExpectAllGone();
    }

    static void ExpectAllGone()
    {
        static const char* const s_names[] = {"contexts",       "queues",   "programs", "kernels",
                                              "memory objects", "samplers", "events",   "mappings"};
        for (int n = PLATFORM_COUNTER_CONTEXTS; n < PLATFORM_COUNTER_LAST; ++n)
        {
            EXPECT_EQ(Control().GetCounter(static_cast<EPlatformCounter>(n)), 0u)
                << s_names[n - PLATFORM_COUNTER_CONTEXTS];
        }
    }

    cl_device_id FindDevice(const std::string& strName)
    {
        cl_uint nDevices = 0;
        cl.clGetDeviceIDs(m_platform, CL_DEVICE_TYPE_ALL, 0, nullptr, &nDevices);
        std::vector<cl_device_id> vDevices(nDevices);
        cl.clGetDeviceIDs(m_platform, CL_DEVICE_TYPE_ALL, nDevices, vDevices.data(), nullptr);
        for (cl_device_id device : vDevices)
        {
            if (DeviceString(device, CL_DEVICE_NAME) == strName)
            {
                return device;
            }
        }
        return nullptr;
    }

    std::string DeviceString(cl_device_id device, cl_device_info eInfo)
    {
        return InfoString([&](size_t nSize, void* pValue, size_t* pnSize)
                          { return cl.clGetDeviceInfo(device, eInfo, nSize, pValue, pnSize); });
    }

    std::string PlatformString(cl_platform_info eInfo)
    {
        return InfoString([&](size_t nSize, void* pValue, size_t* pnSize)
                          { return cl.clGetPlatformInfo(m_platform, eInfo, nSize, pValue, pnSize); });
    }

    cl_mem MakeBuffer(size_t nBytes, const void* pContents = nullptr, cl_mem_flags nFlags = CL_MEM_READ_WRITE)
    {
        cl_int nError = -1;
        cl_mem buffer = cl.clCreateBuffer(m_context, nFlags | (pContents ? CL_MEM_COPY_HOST_PTR : 0), nBytes,
                                          const_cast<void*>(pContents), &nError);
        EXPECT_EQ(nError, CL_SUCCESS);
        return buffer;
    }

    template <class T>
    std::vector<T> ReadAll(cl_mem buffer, size_t nCount)
    {
        std::vector<T> vValues(nCount);
        EXPECT_EQ(cl.clEnqueueReadBuffer(m_queue, buffer, CL_TRUE, 0, nCount * sizeof(T), vValues.data(), 0, nullptr,
                                         nullptr),
                  CL_SUCCESS);
        return vValues;
    }

    cl_int StatusOf(cl_event event)
    {
        cl_int nStatus = 99;
        EXPECT_EQ(cl.clGetEventInfo(event, CL_EVENT_COMMAND_EXECUTION_STATUS, sizeof(nStatus), &nStatus, nullptr),
                  CL_SUCCESS);
        return nStatus;
    }

    SRuntimeEntries& cl = Runtime();
    std::string m_strDevice;
    cl_platform_id m_platform = nullptr;
    cl_device_id m_device = nullptr;
    cl_context m_context = nullptr;
    cl_command_queue m_queue = nullptr;
};

#endif
