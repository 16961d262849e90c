#include "device/ShaderDebuggerDeviceCL.h"

#include "binary/ILTranslator.h"
#include "binary/KernelArgTracking.h"
#include "core/ShaderDebuggerBuffer.h"
#include "device/ShaderDebuggerDeviceBufferCL.h"
#include "tests/support/FakeCL.h"
#include "tests/support/FakeHost.h"
#include "tests/support/KernelImage.h"

#include <gtest/gtest.h>

#include <memory>

namespace
{

using namespace OVK_ShaderDebugger;
using namespace ShaderUtils;

const char* const s_szArguments = ";pointer:a:float:1:1:0:uav:12:4:RW:0:0\n"
                                  ";value:n:i32:1:1:16\n"
                                  ";pointer:l:float:1:1:32:l:1:4:RW:0:0\n"
                                  ";image:i:2D:RO:0:1:48\n"
                                  ";counter:c:4:0:1:80\n"
                                  ";pointer:q:float:1:1:96:gds:12:4:RW:0:0\n";
const cl_uint s_nArguments = 6;

class Device : public testing::Test
{
protected:
    void SetUp() override
    {
        m_fake.Reset();
        m_fake.nKernelArguments = s_nArguments;
        m_fake.vProgramBinary = MakeKernelImage("k", s_szArguments);
        m_fake.Install();
        m_kernel = InterceptCreateKernel(CFakeCL::To<cl_program>(&CFakeCL::Owner()), "k", nullptr);
        ASSERT_NE(m_kernel, nullptr);
        m_pQueue = m_fake.New("queue");
    }

    void TearDown() override
    {
        m_pHost.reset();
        EXPECT_EQ(InterceptReleaseKernel(m_kernel), CL_SUCCESS);
        m_fake.Release(m_pQueue);
        for (CFakeCL::SObject* pMem : m_vpMemory)
        {
            m_fake.Release(pMem);
        }
        EXPECT_TRUE(m_fake.IsAllReleased());
        m_fake.Reset();
    }

    CShaderDebuggerDeviceCL& MakeDevice()
    {
        auto* pDevice = new CShaderDebuggerDeviceCL(m_kernel, CFakeCL::To<cl_command_queue>(m_pQueue));
        m_pHost = std::make_unique<CFakeHost>(pDevice);
        return *pDevice;
    }

    CFakeCL::SObject* NewMemory(cl_mem_object_type type)
    {
        CFakeCL::SObject* pMem = m_fake.New("mem");
        pMem->nType = type;
        pMem->nProperties = CL_MEM_READ_WRITE;
        pMem->vBytes.assign(96, 7);
        m_vpMemory.push_back(pMem);
        return pMem;
    }

    void SetMemory(cl_uint nArgument, CFakeCL::SObject* pMem)
    {
        ASSERT_EQ(InterceptSetKernelArg(m_kernel, nArgument, sizeof(pMem), &pMem), CL_SUCCESS);
    }

    CFakeCL& m_fake = CFakeCL::Get();
    cl_kernel m_kernel = nullptr;
    CFakeCL::SObject* m_pQueue = nullptr;
    std::unique_ptr<CFakeHost> m_pHost;
    std::vector<CFakeCL::SObject*> m_vpMemory;
};

TEST_F(Device, EachKindOfArgumentHasItsDescriptionAndItsValue)
{
    CFakeCL::SObject* pBuffer = NewMemory(CL_MEM_OBJECT_BUFFER);
    SetMemory(0, pBuffer);
    const int nValue = 42;
    InterceptSetKernelArg(m_kernel, 1, sizeof(nValue), &nValue);
    InterceptSetKernelArg(m_kernel, 2, 256, nullptr);
    SetMemory(3, nullptr);
    SetMemory(4, pBuffer);
    CShaderDebuggerDeviceCL& device = MakeDevice();
    EXPECT_EQ(device.GetNumDeviceBuffers(ST_Compute), s_nArguments);

    struct SCase
    {
        BufferType type;
        BufferFormat format;
        unsigned int nDepth;
        size_t nSize;
        size_t nArgumentSize;
    };
    const SCase cases[] = {
        {BT_Buffer, BF_RAW, 1, 96, sizeof(cl_mem)}, {BT_Value, BF_Unknown, 0, 4, 4},
        {BT_LocalBuffer, BF_Unknown, 0, 256, 256},  {BT_Texture_2D, BF_RAW, 0, 0, sizeof(cl_mem)},
        {BT_Buffer, BF_RAW, 1, 96, sizeof(cl_mem)},
    };
    for (int i = 0; i < 5; ++i)
    {
        BufferDesc desc;
        ASSERT_TRUE(device.GetDeviceBufferDesc(ST_Compute, i, desc)) << i;
        BufferDesc expected;
        expected.m_ShaderType = ST_Compute;
        expected.m_nArraySize = 1;
        expected.m_Type = cases[i].type;
        expected.m_Format = cases[i].format;
        expected.m_nDepth = cases[i].nDepth;
        expected.m_nSize = cases[i].nSize;
        EXPECT_TRUE(desc == expected) << i;

        const std::unique_ptr<CShaderDebuggerDeviceBuffer> pWrapped(device.GetDeviceBuffer(ST_Compute, i));
        ASSERT_NE(pWrapped, nullptr) << i;
        EXPECT_EQ(static_cast<CShaderDebuggerDeviceBufferCL&>(*pWrapped).GetArgumentSize(), cases[i].nArgumentSize);
    }

    BufferDesc desc;
    EXPECT_FALSE(device.GetDeviceBufferDesc(ST_Compute, 5, desc)) << "a kind that isn't known";
    EXPECT_EQ(m_pHost->CountLog(logASSERT, "returned an unknown argument type."), 1u);
    EXPECT_FALSE(device.GetDeviceBufferDesc(ST_Compute, s_nArguments, desc));
    EXPECT_EQ(device.GetDeviceBuffer(ST_Compute, s_nArguments), nullptr);
}

TEST_F(Device, ArgumentsOfTheWrongSizeAreRefused)
{
    const int nValue = 0;
    InterceptSetKernelArg(m_kernel, 0, sizeof(nValue), &nValue);
    const char szBytes[16] = {};
    InterceptSetKernelArg(m_kernel, 2, sizeof(szBytes), szBytes);
    CShaderDebuggerDeviceCL& device = MakeDevice();
    BufferDesc desc;
    EXPECT_FALSE(device.GetDeviceBufferDesc(ST_Compute, 0, desc));
    EXPECT_EQ(m_pHost->CountLog(logASSERT, "arg_size == sizeof(cl_mem)"), 1u);
    EXPECT_FALSE(device.GetDeviceBufferDesc(ST_Compute, 2, desc));
    EXPECT_EQ(m_pHost->CountLog(logASSERT, "arg_value == NULL"), 1u);
}

TEST_F(Device, TheTargetHasTheExtentOfTheDispatch)
{
    CShaderDebuggerDeviceCL& device = MakeDevice();
    BufferDesc desc;
    desc.m_nSize = 3;
    ASSERT_TRUE(device.GetDeviceBufferDesc(ST_Compute, -1, desc));
    BufferDesc expected;
    expected.m_Type = BT_Buffer;
    expected.m_ShaderType = ST_Compute;
    expected.m_nArraySize = 1;
    EXPECT_TRUE(desc == expected) << "a host without a dispatch";
}

TEST_F(Device, AnImageIsDescribedAndItsCopyReadsAsItDoes)
{
    CFakeCL::SObject* pImage = NewMemory(CL_MEM_OBJECT_IMAGE2D_ARRAY);
    pImage->format = {CL_BGRA, CL_UNORM_INT8};
    pImage->size[0] = 3;
    pImage->size[1] = 2;
    pImage->nArraySize = 2;
    pImage->nRowPitch = 24;
    pImage->nSlicePitch = 48;
    SetMemory(3, pImage);
    CShaderDebuggerDeviceCL& device = MakeDevice();
    BufferDesc desc;
    ASSERT_TRUE(device.GetDeviceBufferDesc(ST_Compute, 3, desc));
    BufferDesc expected;
    expected.m_Type = BT_Texture_2D;
    expected.m_Format = BF_RGBA_8;
    expected.m_ShaderType = ST_Compute;
    expected.m_nWidth = 3;
    expected.m_nHeight = 2;
    expected.m_nDepth = 1;
    expected.m_nArraySize = 2;
    expected.m_nPitch = 24;
    EXPECT_TRUE(desc == expected);

    const std::unique_ptr<CShaderDebuggerDeviceBuffer> pCopy(device.CreateDeviceBuffer(desc));
    ASSERT_NE(pCopy, nullptr);
    cl_mem mem = nullptr;
    std::memcpy(&mem, pCopy->GetDeviceBuffer(), sizeof(mem));
    EXPECT_EQ(CFakeCL::Of(mem)->format.image_channel_order, cl_channel_order(CL_BGRA));
    EXPECT_EQ(CFakeCL::Of(mem)->format.image_channel_data_type, cl_channel_type(CL_UNORM_INT8));

    for (const cl_mem_object_type type : {CL_MEM_OBJECT_PIPE, CL_MEM_OBJECT_IMAGE1D_BUFFER})
    {
        pImage->nType = type;
        EXPECT_FALSE(device.GetDeviceBufferDesc(ST_Compute, 3, desc));
    }
    EXPECT_EQ(m_pHost->CountLog(logASSERT, "Error: unknown image type."), 2u);
}

TEST_F(Device, MoreThanTheClientsArgumentsCanBeSetOnAPatchedKernelOnly)
{
    CShaderDebuggerDeviceCL& device = MakeDevice();
    BufferDesc desc;
    desc.m_Type = BT_Value;
    desc.m_nSize = 4;
    const std::unique_ptr<CShaderDebuggerDeviceBuffer> pValue(device.CreateDeviceBuffer(desc));
    ASSERT_NE(pValue, nullptr);
    EXPECT_FALSE(device.SetDeviceBuffer(ST_Compute, 0, pValue.get())) << "no patched kernel yet";
    EXPECT_EQ(device.GetShader(ST_Compute), m_kernel);

    m_fake.nKernelArguments = s_nArguments + 3;
    ASSERT_TRUE(device.SetShader(ST_Compute, "patched", 7));
    auto* pPatched = static_cast<CFakeCL::SObject*>(device.GetShader(ST_Compute));
    EXPECT_EQ(pPatched->strName, "k");
    unsigned int nSelector = 0x01020304;
    EXPECT_TRUE(pValue->UpdateData(&nSelector, sizeof(nSelector)));
    EXPECT_TRUE(device.SetDeviceBuffer(ST_Compute, s_nArguments + 2, pValue.get()));
    EXPECT_EQ(std::memcmp(pPatched->vArguments.back().data(), &nSelector, 4), 0);
    EXPECT_FALSE(device.SetDeviceBuffer(ST_Compute, s_nArguments + 3, pValue.get()));
    EXPECT_FALSE(device.SetDeviceBuffer(ST_Compute, 0, nullptr));
}

TEST_F(Device, BuildOptionsAreTriedUntilOneIsTaken)
{
    CShaderDebuggerDeviceCL& device = MakeDevice();
    ASSERT_TRUE(device.SetShader(ST_Compute, "patched", 7));
    EXPECT_EQ(m_fake.vBuildOptions, std::vector<std::string>{"-ignore-env -use-debugil -just-kernel=k"});

    m_fake.vBuildOptions.clear();
    m_fake.strRefusedOption = "-just-kernel";
    ASSERT_TRUE(device.SetShader(ST_Compute, "patched", 7));
    EXPECT_EQ(m_fake.vBuildOptions, (std::vector<std::string>{"-ignore-env -use-debugil -just-kernel=k",
                                                              "-use-debugil -just-kernel=k", "-use-debugil"}));
    EXPECT_EQ(m_fake.CountLive("kernel"), 2u) << "the client's and the newest";

    m_fake.strRefusedOption = "-use-debugil";
    EXPECT_FALSE(device.SetShader(ST_Compute, "patched", 7));
    EXPECT_EQ(device.GetShader(ST_Compute), m_kernel) << "a failed build leaves no patched kernel";
    EXPECT_EQ(m_fake.CountLive("program"), 0u);
}

TEST_F(Device, AFailingCallOfTheBuildLeavesNothing)
{
    for (const char* szEntry : {"clCreateProgramWithBinary", "clCreateKernel", "clReleaseProgram"})
    {
        CShaderDebuggerDeviceCL& device = MakeDevice();
        m_fake.Fail(szEntry, 1, CL_OUT_OF_RESOURCES);
        EXPECT_FALSE(device.SetShader(ST_Compute, "patched", 7)) << szEntry;
        EXPECT_EQ(m_fake.CountLive("program"), 0u) << szEntry;
        m_pHost.reset();
        EXPECT_EQ(m_fake.CountLive("kernel"), 1u) << szEntry;
    }
}

TEST_F(Device, ADeviceThatCantBeSetUpIsInert)
{
    m_fake.nDeviceType = CL_DEVICE_TYPE_CPU;
    for (const char* szEntry : {"", "clRetainKernel", "clGetKernelInfo", "clRetainContext", "clGetCommandQueueInfo"})
    {
        if (*szEntry != '\0')
        {
            m_fake.nDeviceType = CL_DEVICE_TYPE_GPU;
            m_fake.Fail(szEntry, 1, CL_OUT_OF_RESOURCES);
        }
        CShaderDebuggerDeviceCL& device = MakeDevice();
        BufferDesc desc;
        desc.m_Type = BT_Value;
        desc.m_nSize = 4;
        EXPECT_EQ(device.CreateDeviceBuffer(desc), nullptr) << szEntry;
        EXPECT_EQ(device.GetNumDeviceBuffers(ST_Compute), 0u);
        EXPECT_TRUE(device.GetShaderData().empty());
        EXPECT_FALSE(device.EnterDebuggingMode());
        EXPECT_FALSE(device.SetShader(ST_Compute, "patched", 7));
        EXPECT_EQ(device.GetShader(ST_Compute), nullptr);
        EXPECT_EQ(m_fake.CountLive("queue"), 1u);
        m_pHost.reset();
        EXPECT_EQ(CFakeCL::Owner().nRefs, 1) << szEntry;
    }
}

TEST_F(Device, AMissingEntryIsNeverCalled)
{
    cl_icd_dispatch_table table = {};
    table.clReleaseKernel = m_fake.Table().clReleaseKernel;
    SetCLDispatchTable(table);
    CShaderDebuggerDeviceCL& device = MakeDevice();
    EXPECT_TRUE(device.GetShaderData().empty());
    m_pHost.reset();
    m_fake.Install();
}

TEST(RuntimeBuildNumber, StandsInTheLastBrackets)
{
    struct SCase
    {
        const char* szVersion;
        unsigned int nBuild;
    };
    for (const SCase& test : {SCase{"OpenCL 1.2 (1800.0)", 1800}, SCase{"OpenCL 1.2 (1499.9)", 1499},
                              SCase{"OpenCL 1.2", 0}, SCase{"OpenCL 1.2 ()", 0}, SCase{"OpenCL )1.2(", 0},
                              SCase{"(7) (123)", 123}, SCase{"(abc)", 0}, SCase{"(-5)", 0}, SCase{"", 0}})
    {
        EXPECT_EQ(GetRuntimeBuildNumber(test.szVersion), test.nBuild) << test.szVersion;
    }
}

TEST_F(Device, OldRuntimesTakeILThroughTheLowLevelAssembler)
{
    ovkSetAssemblingWithQRLAllowed(false);
    MakeDevice();
    EXPECT_FALSE(ovkIsAssemblingWithQRL());
    m_fake.strDeviceVersion = "OpenCL 1.2 (1500.0)";
    MakeDevice();
    EXPECT_FALSE(ovkIsAssemblingWithQRL());
    m_fake.strDeviceVersion = "OpenCL 1.2 (1499.9)";
    MakeDevice();
    EXPECT_TRUE(ovkIsAssemblingWithQRL());
    ovkSetAssemblingWithQRLAllowed(false);
}

} // namespace
