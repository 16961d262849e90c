#include "tests/api/unit/SessionFixture.h"
#include "tests/support/Folders.h"

#include "core/ShaderDebuggerHost.h"

#include <dlfcn.h>

std::function<void(CScriptedDebugger&)> g_setUpDebugger;

namespace
{

const char* const s_szArguments = ";memory:64bitABI\n"
                                  ";pointer:a:float:1:1:16:uav:12:4:RW:0:0\n"
                                  ";value:n:i32:1:1:0\n";
const cl_ulong s_nAddress = 0x1000;

} // namespace

OVK_ShaderDebugger::IShaderDebugger*
OVK_ShaderDebugger::IShaderDebugger::CreateShaderDebugger(Platform, CShaderDebuggerHost* pHost)
{
    auto* pDebugger = new CScriptedDebugger(pHost);
    pHost->RegisterDebugger(pDebugger);
    g_setUpDebugger(*pDebugger);
    return pDebugger;
}

void CSessionFixture::SetUp()
{
    // The kernel's text is assembled when its binary is prepared.
    static void* const s_pCompiler =
        dlopen(KestrelTest::PlatformFile("libovkocl12cl64.so").c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(s_pCompiler, nullptr);

    m_fake.Reset();
    m_fake.nKernelArguments = 2;
    m_fake.vProgramBinary = MakeKernelImage("k", s_szArguments);
    g_setUpDebugger = [this](CScriptedDebugger& debugger)
    {
        debugger.pDone = &m_vDone;
        m_vDone.clear();
        OVK_ShaderDebugger::CShaderDebuggerBuffer& constants = debugger.AddResult("cb1", 32);
        std::memcpy(constants.GetData() + 16, &s_nAddress, sizeof(s_nAddress));
        debugger.AddResult("m0", 64);
    };
    Open();
}

void CSessionFixture::TearDown()
{
    Close();
    EXPECT_TRUE(m_fake.IsAllReleased());
    EXPECT_TRUE(Kestrel::g_KernelDebugStates.empty());
    m_fake.Reset();
}

void CSessionFixture::Open()
{
    const cl_icd_dispatch_table table = m_fake.Table();
    ASSERT_EQ(ovkclDebugSetDispatchTable(&table), CL_SUCCESS);
    const cl_device_id device = CFakeCL::Device();
    m_context = ovkclInterceptCreateContext(nullptr, 1, &device, nullptr, nullptr, nullptr);
    m_queue = ovkclInterceptCreateCommandQueue(m_context, device, 0, nullptr);
    m_kernel = ovkclInterceptCreateKernel(CFakeCL::To<cl_program>(&CFakeCL::Owner()), "k", nullptr);
    m_pMemory = m_fake.New("mem");
    m_pMemory->nType = CL_MEM_OBJECT_BUFFER;
    m_pMemory->vBytes.resize(64);
    ovkclInterceptSetKernelArg(m_kernel, 0, sizeof(m_pMemory), &m_pMemory);
    const int nValue = 5;
    ovkclInterceptSetKernelArg(m_kernel, 1, sizeof(nValue), &nValue);
    m_fake.vCalls.clear();
}

void CSessionFixture::Close()
{
    ovkclInterceptReleaseKernel(m_kernel);
    m_fake.Release(m_pMemory);
    m_fake.Release(CFakeCL::Of(m_queue));
    m_fake.Release(CFakeCL::Of(m_context));
}

ovkclDebugCommand CL_CALLBACK CSessionFixture::OnEvent(ovkclDebugContext context, ovkclDebugEvent eEvent, void* pUser)
{
    CSessionFixture& fixture = *static_cast<CSessionFixture*>(pUser);
    fixture.m_vEvents.push_back(eEvent);
    return fixture.m_client(context, eEvent);
}

cl_int CSessionFixture::Debug(const std::function<ovkclDebugCommand(ovkclDebugContext, ovkclDebugEvent)>& client,
                              cl_event* pEvent)
{
    m_client = client;
    m_vEvents.clear();
    m_fake.vRuns.clear();
    const size_t global[2] = {4, 2};
    const cl_int nCode =
        ovkclDebugEnqueueNDRangeKernel(m_queue, m_kernel, 2, nullptr, global, m_local[0] != 0 ? m_local : nullptr, 0,
                                       nullptr, pEvent, &CSessionFixture::OnEvent, this);
    m_fake.RunPending();
    return nCode;
}

cl_int CSessionFixture::Debug(const std::vector<int>& vAnswers)
{
    size_t nAnswer = 0;
    return Debug(
        [&](ovkclDebugContext, ovkclDebugEvent)
        {
            const int nNow = vAnswers[nAnswer];
            nAnswer += nAnswer + 1 < vAnswers.size() ? 1 : 0;
            return static_cast<ovkclDebugCommand>(nNow);
        });
}

void CSessionFixture::AtHalt(const std::function<void(ovkclDebugContext)>& queries)
{
    const auto setUp = g_setUpDebugger;
    g_setUpDebugger = [=](CScriptedDebugger& debugger)
    {
        setUp(debugger);
        debugger.nStops = 1;
    };
    EXPECT_EQ(Debug(
                  [&](ovkclDebugContext context, ovkclDebugEvent eEvent)
                  {
                      if (eEvent == OVKCLDEBUG_EVENT_HALTED)
                      {
                          queries(context);
                      }
                      return OVKCLDEBUG_COMMAND_STEP;
                  }),
              CL_SUCCESS);
    EXPECT_EQ(m_vEvents, (Events{OVKCLDEBUG_EVENT_STARTED, OVKCLDEBUG_EVENT_HALTED, OVKCLDEBUG_EVENT_FINISHED}));
    g_setUpDebugger = setUp;
}

std::string CSessionFixture::LastError(ovkclDebugContext context)
{
    size_t nSize = 0;
    EXPECT_EQ(ovkclDebugUtilGetLastError(context, 0, nullptr, &nSize), OVKCLDEBUG_SUCCESS);
    std::string strError(nSize, '\0');
    if (nSize != 0)
    {
        EXPECT_EQ(ovkclDebugUtilGetLastError(context, nSize - 1, &strError[0], nullptr),
                  OVKCLDEBUG_ERROR_BUFFER_TOO_SMALL);
        EXPECT_EQ(ovkclDebugUtilGetLastError(context, nSize, &strError[0], nullptr), OVKCLDEBUG_SUCCESS);
        strError.resize(nSize - 1);
    }
    return strError;
}
