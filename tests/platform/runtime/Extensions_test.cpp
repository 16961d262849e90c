#include "Runtime.h"

#include <atomic>
#include <mutex>
#include <thread>

namespace
{

constexpr cl_context_properties s_nHookProperty = 0x403D;
constexpr cl_command_queue_properties s_nInterceptBit = 0x8000000000000000ULL;

/// The state of the hook. There is only one, since the hook has no user data.
struct SHook
{
    std::mutex m_mutex;              ///< held by the test across its enqueue calls
    std::vector<cl_event> m_vEvents; ///< where the enqueue calls store their events, in order
    size_t m_nCalls = 0;
    std::vector<cl_command_type> m_vTypes;
    std::vector<std::thread::id> m_vThreads;
    cl_int m_nResult = 0;
    cl_int m_nCode = CL_SUCCESS;
    size_t m_nEarly = 0; ///< calls of the hook before the enqueue call had stored its event
};

SHook* s_pHook = nullptr;

cl_int CL_CALLBACK Hook(cl_event event, cl_int* pnError)
{
    // Read before taking the lock: the call that created the command must be finished already.
    if (s_pHook->m_nCalls < s_pHook->m_vEvents.size())
    {
        s_pHook->m_nEarly += s_pHook->m_vEvents[s_pHook->m_nCalls++] != event;
    }
    std::lock_guard<std::mutex> lock(s_pHook->m_mutex);
    cl_command_type eType = 0;
    EXPECT_EQ(Runtime().clGetEventInfo(event, CL_EVENT_COMMAND_TYPE, sizeof(eType), &eType, nullptr), CL_SUCCESS);
    s_pHook->m_vTypes.push_back(eType);
    s_pHook->m_vThreads.push_back(std::this_thread::get_id());
    *pnError = s_pHook->m_nCode;
    return s_pHook->m_nResult;
}

class CInterceptTest : public CRuntimeTest
{
protected:
    void SetUp() override
    {
        CRuntimeTest::SetUp();
        s_pHook = &m_hook;
        const cl_context_properties properties[] = {s_nHookProperty, reinterpret_cast<cl_context_properties>(&Hook), 0};
        m_hookContext = cl.clCreateContext(properties, 1, &m_device, nullptr, nullptr, nullptr);
        ASSERT_NE(m_hookContext, nullptr);
        cl_int nError = -1;
        m_hookQueue = cl.clCreateCommandQueue(m_hookContext, m_device, s_nInterceptBit, &nError);
        ASSERT_EQ(nError, CL_SUCCESS);
        m_buffer = cl.clCreateBuffer(m_hookContext, 0, 64, nullptr, nullptr);
    }

    void TearDown() override
    {
        cl.clReleaseMemObject(m_buffer);
        cl.clReleaseCommandQueue(m_hookQueue);
        cl.clReleaseContext(m_hookContext);
        CRuntimeTest::TearDown();
    }

    cl_int Fill(cl_command_queue queue, cl_uint nPattern, cl_event* pEvent)
    {
        std::lock_guard<std::mutex> lock(m_hook.m_mutex);
        return cl.clEnqueueFillBuffer(queue, m_buffer, &nPattern, 4, 0, 64, 0, nullptr, pEvent);
    }

    cl_uint FirstWord()
    {
        cl_uint nWord = 0;
        cl_command_queue plain = cl.clCreateCommandQueue(m_hookContext, m_device, 0, nullptr);
        EXPECT_EQ(cl.clEnqueueReadBuffer(plain, m_buffer, CL_TRUE, 0, 4, &nWord, 0, nullptr, nullptr), CL_SUCCESS);
        cl.clReleaseCommandQueue(plain);
        return nWord;
    }

    SHook m_hook;
    cl_context m_hookContext = nullptr;
    cl_command_queue m_hookQueue = nullptr;
    cl_mem m_buffer = nullptr;
};

TEST_F(CInterceptTest, TheHookRunsOnTheQueuesThreadOnceTheCallIsOver)
{
    m_hook.m_vEvents.assign(200, nullptr);
    for (cl_event& event : m_hook.m_vEvents)
    {
        ASSERT_EQ(Fill(m_hookQueue, 5, &event), CL_SUCCESS);
    }
    ASSERT_EQ(cl.clFinish(m_hookQueue), CL_SUCCESS);
    EXPECT_EQ(m_hook.m_nEarly, 0u);
    for (cl_event event : m_hook.m_vEvents)
    {
        cl.clReleaseEvent(event);
    }
    EXPECT_EQ(m_hook.m_vTypes, std::vector<cl_command_type>(200, CL_COMMAND_FILL_BUFFER));
    for (std::thread::id thread : m_hook.m_vThreads)
    {
        EXPECT_EQ(thread, m_hook.m_vThreads.front());
        EXPECT_NE(thread, std::this_thread::get_id());
    }
    EXPECT_EQ(FirstWord(), 5u) << "a hook that gives 0 lets the command run";
}

struct SHookResult
{
    cl_int m_nCode;
    cl_int m_nStatus;
    cl_int m_nWait;
};

TEST_F(CInterceptTest, ACommandThatTheHookDealsWithEndsWithTheHooksCode)
{
    m_hook.m_nResult = 1;
    for (const SHookResult& result : {SHookResult{CL_SUCCESS, CL_COMPLETE, CL_SUCCESS},
                                      SHookResult{-42, -42, CL_EXEC_STATUS_ERROR_FOR_EVENTS_IN_WAIT_LIST}})
    {
        m_hook.m_nCode = result.m_nCode;
        cl_event event = nullptr;
        ASSERT_EQ(Fill(m_hookQueue, 6, &event), CL_SUCCESS);
        EXPECT_EQ(cl.clWaitForEvents(1, &event), result.m_nWait);
        EXPECT_EQ(StatusOf(event), result.m_nStatus);
        cl.clReleaseEvent(event);
    }
    EXPECT_EQ(FirstWord(), 0u) << "the command itself must not run";
}

TEST_F(CInterceptTest, OnlyQueuesWithTheBitAreIntercepted)
{
    cl_command_queue plain = cl.clCreateCommandQueue(m_hookContext, m_device, 0, nullptr);
    EXPECT_EQ(Fill(plain, 7, nullptr), CL_SUCCESS);
    EXPECT_EQ(cl.clFinish(plain), CL_SUCCESS);
    EXPECT_TRUE(m_hook.m_vTypes.empty());
    cl_command_queue_properties nProperties = 0;
    cl.clGetCommandQueueInfo(m_hookQueue, CL_QUEUE_PROPERTIES, sizeof(nProperties), &nProperties, nullptr);
    EXPECT_EQ(nProperties, s_nInterceptBit);
    cl.clReleaseCommandQueue(plain);
}

TEST_F(CInterceptTest, SwitchedOffNothingOfItIsThere)
{
    Control().SetExtensionEnabled("cl_ovk_event_callback", 0);
    EXPECT_EQ(PlatformString(CL_PLATFORM_EXTENSIONS).find("cl_ovk_event_callback"), std::string::npos);
    cl_int nError = 0;
    EXPECT_EQ(cl.clCreateCommandQueue(m_hookContext, m_device, s_nInterceptBit, &nError), nullptr);
    EXPECT_EQ(nError, CL_INVALID_VALUE);
    const cl_context_properties properties[] = {s_nHookProperty, reinterpret_cast<cl_context_properties>(&Hook), 0};
    EXPECT_EQ(cl.clCreateContext(properties, 1, &m_device, nullptr, nullptr, &nError), nullptr);
    EXPECT_EQ(nError, CL_INVALID_PROPERTY);
}

using CreateKey = size_t(CL_API_CALL*)(cl_platform_id, void(CL_CALLBACK*)(void*), cl_int*);
using GetValue = cl_int(CL_API_CALL*)(void*, size_t, void**);
using SetValue = cl_int(CL_API_CALL*)(void*, size_t, void*);

class CMetadataTest : public CRuntimeTest, public testing::WithParamInterface<const char*>
{
protected:
    void SetUp() override
    {
        CRuntimeTest::SetUp();
        Control().SetExtensionEnabled("cl_ext_object_metadata", 1);
    }

    void* Find(const std::string& strName)
    {
        void* pFunction = cl.clGetExtensionFunctionAddress((strName + GetParam()).c_str());
        EXPECT_EQ(cl.clGetExtensionFunctionAddressForPlatform(m_platform, (strName + GetParam()).c_str()), pFunction);
        return pFunction;
    }
};

int s_nDestroyed = 0;

TEST_P(CMetadataTest, KeepsAValueForEachKeyAndObject)
{
    const auto createKey = reinterpret_cast<CreateKey>(Find("clCreateKey"));
    const auto getValue = reinterpret_cast<GetValue>(Find("clObjectGetValueForKey"));
    const auto setValue = reinterpret_cast<SetValue>(Find("clObjectSetValueForKey"));
    ASSERT_TRUE(createKey && getValue && setValue);
    cl_int nError = -1;
    const size_t nPlain = createKey(m_platform, nullptr, &nError);
    EXPECT_EQ(nError, CL_SUCCESS);
    const size_t nDestroying = createKey(
        m_platform, [](void* pValue) { s_nDestroyed += *static_cast<int*>(pValue); }, &nError);
    EXPECT_TRUE(nPlain != 0 && nDestroying != 0 && nPlain != nDestroying);

    int values[] = {1, 10, 100};
    cl_event event = cl.clCreateUserEvent(m_context, nullptr);
    void* pValue = values;
    EXPECT_EQ(getValue(event, nPlain, &pValue), CL_SUCCESS);
    EXPECT_EQ(pValue, nullptr) << "nothing was set yet";
    EXPECT_EQ(setValue(event, nPlain, &values[0]), CL_SUCCESS);
    EXPECT_EQ(setValue(event, nDestroying, &values[1]), CL_SUCCESS);
    EXPECT_EQ(setValue(m_context, nPlain, &values[2]), CL_SUCCESS);
    EXPECT_EQ(getValue(event, nPlain, &pValue), CL_SUCCESS);
    EXPECT_EQ(pValue, &values[0]);
    s_nDestroyed = 0;
    EXPECT_EQ(setValue(event, nDestroying, &values[2]), CL_SUCCESS);
    EXPECT_EQ(s_nDestroyed, 10) << "the value that was replaced";
    cl.clReleaseEvent(event);
    EXPECT_EQ(s_nDestroyed, 110) << "the value that was there at the end";

    EXPECT_EQ(setValue(event, nPlain, nullptr), CL_INVALID_VALUE) << "the object has gone";
    EXPECT_EQ(getValue(m_context, nDestroying + 100, &pValue), CL_INVALID_VALUE);
    EXPECT_EQ(createKey(reinterpret_cast<cl_platform_id>(m_context), nullptr, &nError), 0u);
    EXPECT_EQ(nError, CL_INVALID_PLATFORM);
    Control().FailCall((std::string("clObjectSetValueForKey") + GetParam()).c_str(), 1, -99, 0);
    EXPECT_EQ(setValue(m_context, nPlain, nullptr), -99);
}

TEST_P(CMetadataTest, SwitchedOffItsAddressesAreGone)
{
    const std::string strExtension =
        std::string(GetParam()) == "OVK" ? "cl_ovk_object_metadata" : "cl_ext_object_metadata";
    EXPECT_NE(PlatformString(CL_PLATFORM_EXTENSIONS).find(strExtension), std::string::npos);
    Control().SetExtensionEnabled(strExtension.c_str(), 0);
    EXPECT_EQ(PlatformString(CL_PLATFORM_EXTENSIONS).find(strExtension), std::string::npos);
    EXPECT_EQ(Find("clCreateKey"), nullptr);
    Control().Reset();
    EXPECT_EQ(Find("clCreateKey") != nullptr, std::string(GetParam()) == "OVK") << "as it is at load";
}

INSTANTIATE_TEST_SUITE_P(Forms, CMetadataTest, testing::Values("OVK", "EXT"));

} // namespace
