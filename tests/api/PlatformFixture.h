#ifndef KESTREL_TESTS_API_PLATFORMFIXTURE_H
#define KESTREL_TESTS_API_PLATFORMFIXTURE_H

#include "KestrelPlatform.h"
#include "OVKKestrel.h"
#include "tests/api/PlatformTable.h"
#include "tests/support/Folders.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

/// A launch of examples/vector_add (c = a + b over 16 floats) on the software platform, through the exported functions.
/// Its counters show whether everything has been released.
class CPlatformFixture : public testing::Test
{
protected:
    static constexpr size_t s_nItems = 16;

    void SetUp() override
    {
        ASSERT_NE(Runtime(), nullptr);
        ASSERT_EQ(ovkclDebugSetDispatchTable(&Cl()), CL_SUCCESS);
        Control().Reset();
        Control().ClearFailures();
        m_nObjects = CountObjects();
    }

    void TearDown() override
    {
        Control().ClearFailures();
        Close();
        Control().Reset();
        EXPECT_TRUE(WaitForObjects(m_nObjects)) << CountObjects() << " instead of " << m_nObjects;
    }

    /// The runtime calls back for completed events, and then releases them, on a thread of its own.
    static bool WaitForObjects(uint64_t nObjects)
    {
        for (int i = 0; i < 2000 && CountObjects() != nObjects; ++i)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return CountObjects() == nObjects;
    }

    static cl_icd_dispatch& Cl()
    {
        static cl_icd_dispatch s_table;
        return s_table;
    }

    /// Opens the platform in the folder of KESTREL_TEST_PLATFORM, or the one of this build.
    static void* Runtime()
    {
        const char* pszFolder = std::getenv("KESTREL_TEST_PLATFORM");
        static const std::string s_strFolder = pszFolder != nullptr ? pszFolder : KestrelTest::PlatformFolder();
        static void* const s_pRuntime = OpenPlatform(s_strFolder.c_str(), &Cl());
        return s_pRuntime;
    }

    static const SPlatformControl& Control()
    {
        typedef const SPlatformControl* (*PFNControl)(void);
        return *reinterpret_cast<PFNControl>(Cl().clGetExtensionFunctionAddress("kestrelPlatformControl"))();
    }

    static uint64_t CountObjects()
    {
        uint64_t nObjects = 0;
        for (int i = PLATFORM_COUNTER_CONTEXTS; i < PLATFORM_COUNTER_LAST; ++i)
        {
            nObjects += Control().GetCounter(static_cast<EPlatformCounter>(i));
        }
        return nObjects;
    }

    static cl_device_id FindDevice(const std::string& strName)
    {
        cl_platform_id platform = nullptr;
        Cl().clGetPlatformIDs(1, &platform, nullptr);
        cl_device_id devices[8] = {};
        cl_uint nDevices = 0;
        Cl().clGetDeviceIDs(platform, CL_DEVICE_TYPE_ALL, 8, devices, &nDevices);
        for (cl_uint i = 0; i < nDevices; ++i)
        {
            char szName[64] = {};
            Cl().clGetDeviceInfo(devices[i], CL_DEVICE_NAME, sizeof(szName), szName, nullptr);
            if (strName == szName)
            {
                return devices[i];
            }
        }
        return nullptr;
    }

    /// Makes context, queue, program, buffers and kernel.
    void Open(const std::string& strOptions = "-g", const std::string& strDevice = "Quench")
    {
        cl_int nCode = CL_SUCCESS;
        m_device = FindDevice(strDevice);
        m_context = ovkclInterceptCreateContext(nullptr, 1, &m_device, nullptr, nullptr, &nCode);
        ASSERT_EQ(nCode, CL_SUCCESS);
        m_queue = ovkclInterceptCreateCommandQueue(m_context, m_device, 0, &nCode);
        ASSERT_EQ(nCode, CL_SUCCESS);
        std::ifstream file(KestrelTest::SourceFile("examples/vector_add/vector_add.il"));
        const std::string strSource((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        const char* pszSource = strSource.c_str();
        m_program = Cl().clCreateProgramWithSource(m_context, 1, &pszSource, nullptr, &nCode);
        ASSERT_EQ(nCode, CL_SUCCESS);
        ASSERT_EQ(Cl().clBuildProgram(m_program, 0, nullptr, strOptions.c_str(), nullptr, nullptr), CL_SUCCESS);
        m_kernel = ovkclInterceptCreateKernel(m_program, "vector_add", &nCode);
        ASSERT_EQ(nCode, CL_SUCCESS);
        for (cl_uint i = 0; i < 3; ++i)
        {
            std::vector<float> vValues(s_nItems);
            for (size_t n = 0; n < s_nItems; ++n)
            {
                vValues[n] = i == 0 ? float(n) : i == 1 ? 0.5f : -1.0f;
            }
            m_buffers[i] = Cl().clCreateBuffer(m_context, CL_MEM_READ_WRITE | CL_MEM_COPY_HOST_PTR,
                                               sizeof(float) * s_nItems, vValues.data(), &nCode);
            ASSERT_EQ(nCode, CL_SUCCESS);
            ASSERT_EQ(ovkclInterceptSetKernelArg(m_kernel, i, sizeof(cl_mem), &m_buffers[i]), CL_SUCCESS);
        }
    }

    void Close()
    {
        for (cl_mem& mem : m_buffers)
        {
            if (mem != nullptr)
            {
                Cl().clReleaseMemObject(mem);
                mem = nullptr;
            }
        }
        if (m_kernel != nullptr)
        {
            if (ovkclInterceptReleaseKernel(m_kernel) != CL_SUCCESS)
            {
                Cl().clReleaseKernel(m_kernel);
            }
            m_kernel = nullptr;
        }
        if (m_program != nullptr)
        {
            Cl().clReleaseProgram(m_program);
            m_program = nullptr;
        }
        if (m_queue != nullptr)
        {
            Cl().clReleaseCommandQueue(m_queue);
            m_queue = nullptr;
        }
        if (m_context != nullptr)
        {
            Cl().clReleaseContext(m_context);
            m_context = nullptr;
        }
    }

    typedef std::function<ovkclDebugCommand(ovkclDebugContext, ovkclDebugEvent)> Client;

    /// Debugs one launch and waits for its end. \return the enqueue's code
    cl_int Debug(const Client& client, size_t nLocal = 4)
    {
        m_client = client;
        m_vEvents.clear();
        const size_t nGlobal = s_nItems;
        cl_event event = nullptr;
        const cl_int nCode = Enqueue(nGlobal, nLocal != 0 ? &nLocal : nullptr, event);
        if (event != nullptr)
        {
            m_nWaitCode = Cl().clWaitForEvents(1, &event);
            Cl().clReleaseEvent(event);
        }
        return nCode;
    }

    /// The call into the library, and the client's callback; virtual, so that tests can count what is inside.
    virtual cl_int Enqueue(size_t nGlobal, const size_t* pLocal, cl_event& event)
    {
        return ovkclDebugEnqueueNDRangeKernel(m_queue, m_kernel, 1, nullptr, &nGlobal, pLocal, 0, nullptr, &event,
                                              &CPlatformFixture::OnEvent, this);
    }
    virtual void Note(ovkclDebugEvent eEvent) { m_vEvents.push_back(eEvent); }

    std::vector<float> ReadOutput()
    {
        std::vector<float> vValues(s_nItems, 0.0f);
        Cl().clEnqueueReadBuffer(m_queue, m_buffers[2], CL_TRUE, 0, sizeof(float) * s_nItems, vValues.data(), 0,
                                 nullptr, nullptr);
        return vValues;
    }

    static std::vector<float> ExpectedOutput()
    {
        std::vector<float> vValues(s_nItems);
        for (size_t n = 0; n < s_nItems; ++n)
        {
            vValues[n] = float(n) + 0.5f;
        }
        return vValues;
    }

    void SetIntercept(bool bIntercept) { Control().SetExtensionEnabled("cl_ovk_object_metadata", bIntercept); }

    cl_device_id m_device = nullptr;
    cl_context m_context = nullptr;
    cl_command_queue m_queue = nullptr;
    cl_program m_program = nullptr;
    cl_kernel m_kernel = nullptr;
    cl_mem m_buffers[3] = {};
    std::vector<ovkclDebugEvent> m_vEvents;
    cl_int m_nWaitCode = CL_SUCCESS;

private:
    static ovkclDebugCommand CL_CALLBACK OnEvent(ovkclDebugContext context, ovkclDebugEvent eEvent, void* pUser)
    {
        CPlatformFixture& fixture = *static_cast<CPlatformFixture*>(pUser);
        fixture.Note(eEvent);
        return fixture.m_client(context, eEvent);
    }

    Client m_client;
    uint64_t m_nObjects = 0;
};

#endif
