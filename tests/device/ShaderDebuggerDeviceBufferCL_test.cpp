#include "device/ShaderDebuggerDeviceBufferCL.h"

#include "core/ShaderDebuggerBuffer.h"
#include "tests/support/FakeCL.h"
#include "tests/support/FakeHost.h"

#include <gtest/gtest.h>

#include <memory>
#include <numeric>

namespace
{

using namespace OVK_ShaderDebugger;
using namespace ShaderUtils;

BufferDesc RawBuffer(size_t nSize)
{
    BufferDesc desc;
    desc.m_Type = BT_Buffer;
    desc.m_Format = BF_RAW;
    desc.m_nDepth = nSize != 0 ? 1 : 0;
    desc.m_nSize = nSize;
    desc.m_nArraySize = 1;
    return desc;
}

BufferDesc Image(BufferType type, unsigned int nWidth, unsigned int nHeight, unsigned int nDepth,
                 unsigned int nArraySize, size_t nPitch)
{
    BufferDesc desc;
    desc.m_Type = type;
    desc.m_Format = BF_RGBA_8;
    desc.m_nWidth = nWidth;
    desc.m_nHeight = nHeight;
    desc.m_nDepth = nDepth;
    desc.m_nArraySize = nArraySize;
    desc.m_nPitch = nPitch;
    return desc;
}

std::vector<unsigned char> Count(size_t nSize)
{
    std::vector<unsigned char> vBytes(nSize);
    std::iota(vBytes.begin(), vBytes.end(), static_cast<unsigned char>(1));
    return vBytes;
}

class DeviceBuffer : public testing::Test
{
protected:
    void SetUp() override
    {
        m_fake.Reset();
        m_fake.Install();
    }
    void TearDown() override
    {
        EXPECT_TRUE(m_fake.IsAllReleased());
        m_fake.Reset();
    }

    std::unique_ptr<CShaderDebuggerDeviceBufferCL> Empty()
    {
        return std::make_unique<CShaderDebuggerDeviceBufferCL>(&m_host, CFakeCL::Device(), nullptr,
                                                               reinterpret_cast<cl_command_queue>(1));
    }

    static CFakeCL::SObject* Object(const CShaderDebuggerDeviceBufferCL& buffer)
    {
        cl_mem mem = nullptr;
        std::memcpy(&mem, buffer.GetDeviceBuffer(), sizeof(mem));
        return CFakeCL::Of(mem);
    }

    /// Sets an object's flags, since a working copy can't be created with these.
    static void SetFlags(const CShaderDebuggerDeviceBufferCL& buffer, cl_ulong nFlags)
    {
        Object(buffer)->nProperties = nFlags;
    }

    CFakeCL& m_fake = CFakeCL::Get();
    CFakeHost m_host;
};

TEST_F(DeviceBuffer, ABufferIsMadeClearedWrittenAndReadBack)
{
    auto pBuffer = Empty();
    ASSERT_TRUE(pBuffer->Create(RawBuffer(100)));
    EXPECT_EQ(Object(*pBuffer)->vBytes, std::vector<unsigned char>(100, 0));
    EXPECT_EQ(pBuffer->GetArgumentSize(), sizeof(cl_mem));

    std::vector<unsigned char> vBytes = Count(100);
    EXPECT_TRUE(pBuffer->UpdateData(vBytes.data(), vBytes.size()));
    const std::unique_ptr<CShaderDebuggerBuffer> pData(pBuffer->GetDataBuffer(nullptr));
    ASSERT_NE(pData, nullptr);
    EXPECT_EQ(std::vector<unsigned char>(pData->GetData(), pData->GetData() + 100), vBytes);

    EXPECT_FALSE(pBuffer->UpdateData(vBytes.data(), 40)) << "a size that isn't the buffer's";
    EXPECT_EQ(m_host.CountLog(logASSERT, "bufferSize == nBufferSize"), 1u);
    EXPECT_EQ(m_fake.CountCalls("clCreateBuffer"), 1u) << "a mappable buffer needs no temporary";
}

TEST_F(DeviceBuffer, ASizeThatFollowsFromTheDimensions)
{
    BufferDesc desc;
    desc.m_Type = BT_Buffer;
    desc.m_Format = BF_RGBA_32F;
    desc.m_nWidth = 64;
    desc.m_nSize = 5;
    auto pBuffer = Empty();
    ASSERT_TRUE(pBuffer->Create(desc));
    EXPECT_EQ(Object(*pBuffer)->vBytes.size(), 1024u);

    desc.m_nWidth = 3;
    desc.m_nHeight = 2;
    desc.m_Format = BF_R_32;
    ASSERT_TRUE(pBuffer->Create(desc)) << "the first memory goes";
    EXPECT_EQ(Object(*pBuffer)->vBytes.size(), 24u);
    EXPECT_EQ(m_fake.CountLive("mem"), 1u);

    desc.m_Format = BF_Unknown;
    EXPECT_FALSE(pBuffer->Create(desc));
    EXPECT_EQ(m_host.CountLog(logASSERT, "Unsupported CL buffer format"), 1u);
}

TEST_F(DeviceBuffer, NullValueAndLocalArgumentsHaveNoMemoryObject)
{
    auto pNull = Empty();
    ASSERT_TRUE(pNull->Create(RawBuffer(0)));
    EXPECT_EQ(Object(*pNull), nullptr);
    EXPECT_EQ(pNull->GetArgumentSize(), sizeof(cl_mem));
    EXPECT_TRUE(pNull->Clear());
    const std::unique_ptr<CShaderDebuggerBuffer> pZeros(pNull->GetDataBuffer(nullptr));
    ASSERT_NE(pZeros, nullptr);
    EXPECT_EQ(pZeros->GetSize(), 0u);

    BufferDesc local;
    local.m_Type = BT_LocalBuffer;
    local.m_nSize = 256;
    auto pLocal = Empty();
    ASSERT_TRUE(pLocal->Create(local));
    EXPECT_EQ(pLocal->GetDeviceBuffer(), nullptr);
    EXPECT_EQ(pLocal->GetArgumentSize(), 256u);
    EXPECT_EQ(pLocal->GetDataBuffer(nullptr), nullptr);

    BufferDesc value;
    value.m_Type = BT_Value;
    value.m_nSize = 4;
    auto pValue = Empty();
    ASSERT_TRUE(pValue->Create(value));
    std::vector<unsigned char> vBytes = Count(6);
    EXPECT_TRUE(pValue->UpdateData(vBytes.data(), vBytes.size())) << "what doesn't fit is left out";
    EXPECT_EQ(std::memcmp(pValue->GetDeviceBuffer(), vBytes.data(), 4), 0);
    EXPECT_TRUE(pValue->Clear());
    EXPECT_EQ(*static_cast<const unsigned char*>(pValue->GetDeviceBuffer()), 0);
    EXPECT_TRUE(m_fake.vCalls.empty());
}

TEST_F(DeviceBuffer, WhatTheHostMayNotMapGoesThroughATemporary)
{
    auto pBuffer = Empty();
    ASSERT_TRUE(pBuffer->Create(RawBuffer(16)));
    struct SCase
    {
        cl_ulong nFlags;
        size_t nReadTemporaries;
        size_t nWriteTemporaries;
    };
    for (const SCase& test :
         {SCase{CL_MEM_HOST_NO_ACCESS, 1, 1}, SCase{CL_MEM_HOST_READ_ONLY, 0, 1}, SCase{CL_MEM_HOST_WRITE_ONLY, 1, 0}})
    {
        SetFlags(*pBuffer, test.nFlags);
        std::vector<unsigned char> vBytes = Count(16);
        m_fake.vCalls.clear();
        EXPECT_TRUE(pBuffer->UpdateData(vBytes.data(), vBytes.size()));
        EXPECT_EQ(m_fake.CountCalls("clCreateBuffer"), test.nWriteTemporaries) << test.nFlags;
        const std::unique_ptr<CShaderDebuggerBuffer> pData(pBuffer->GetDataBuffer(nullptr));
        ASSERT_NE(pData, nullptr);
        EXPECT_EQ(std::memcmp(pData->GetData(), vBytes.data(), 16), 0);
        EXPECT_EQ(m_fake.CountCalls("clCreateBuffer"), test.nWriteTemporaries + test.nReadTemporaries);
        EXPECT_EQ(m_fake.CountLive("mem"), 1u);
    }
}

struct SImageCase
{
    const char* szName;
    BufferDesc desc;
    cl_mem_object_type type;
};

class DeviceImage : public DeviceBuffer, public testing::WithParamInterface<SImageCase>
{
};

/// The bytes of every element of every slice are transferred, whatever the mapping's pitches, and however the
/// host may access the image.
TEST_P(DeviceImage, ContentsSurviveOtherPitches)
{
    const BufferDesc& desc = GetParam().desc;
    for (const cl_ulong nFlags : {CL_MEM_READ_WRITE, CL_MEM_HOST_NO_ACCESS})
    {
        m_fake.nRowPadding = 12;
        m_fake.nSlicePadding = desc.m_Type == BT_Texture_1D ? 0 : 20;
        auto pBuffer = Empty();
        ASSERT_TRUE(pBuffer->Create(desc));
        EXPECT_EQ(Object(*pBuffer)->nType, GetParam().type);
        SetFlags(*pBuffer, nFlags);

        CShaderDebuggerBuffer source(&m_host);
        ASSERT_TRUE(source.Create(desc, nullptr));
        std::iota(source.GetData(), source.GetData() + source.GetSize(), static_cast<unsigned char>(1));
        ASSERT_TRUE(pBuffer->UpdateData(source.GetData(), source.GetSize()));
        const std::unique_ptr<CShaderDebuggerBuffer> pRead(pBuffer->GetDataBuffer(nullptr));
        ASSERT_NE(pRead, nullptr);
        ASSERT_EQ(pRead->GetSize(), source.GetSize());

        const size_t nRow = desc.m_nWidth * 4;
        const size_t nPitch = desc.m_nPitch != 0 ? desc.m_nPitch : nRow;
        for (size_t nOffset = 0; nOffset < source.GetSize(); nOffset += nPitch)
        {
            EXPECT_EQ(std::memcmp(pRead->GetData() + nOffset, source.GetData() + nOffset, nRow), 0) << nOffset;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, DeviceImage,
    testing::Values(SImageCase{"OneD", Image(BT_Texture_1D, 5, 1, 1, 1, 0), CL_MEM_OBJECT_IMAGE1D},
                    SImageCase{"OneDArray", Image(BT_Texture_1D, 5, 1, 1, 3, 0), CL_MEM_OBJECT_IMAGE1D_ARRAY},
                    SImageCase{"TwoD", Image(BT_Texture_2D, 5, 4, 1, 1, 32), CL_MEM_OBJECT_IMAGE2D},
                    SImageCase{"TwoDArray", Image(BT_Texture_2D, 5, 4, 1, 3, 32), CL_MEM_OBJECT_IMAGE2D_ARRAY},
                    SImageCase{"ThreeD", Image(BT_Texture_3D, 5, 4, 3, 1, 32), CL_MEM_OBJECT_IMAGE3D}),
    [](const testing::TestParamInfo<SImageCase>& test) { return test.param.szName; });

TEST_F(DeviceBuffer, ImagesOfAnotherVersionAreMadeByTheOlderCalls)
{
    m_fake.bVersion20 = true;
    m_fake.Install();
    ASSERT_EQ(g_CLDispatchTable.OpenCLLoaded(), OpenCLModule::OpenCL_2_0);
    struct SCase
    {
        BufferDesc desc;
        const char* szCall;
    };
    for (const SCase& test : {SCase{Image(BT_Texture_1D, 5, 1, 1, 1, 0), "clCreateImage2D"},
                              SCase{Image(BT_Texture_2D, 5, 4, 1, 1, 20), "clCreateImage2D"},
                              SCase{Image(BT_Texture_3D, 5, 4, 3, 1, 20), "clCreateImage3D"},
                              SCase{Image(BT_Texture_2D, 5, 4, 1, 2, 20), "clCreateImage"}})
    {
        m_fake.vCalls.clear();
        auto pBuffer = Empty();
        ASSERT_TRUE(pBuffer->Create(test.desc)) << test.szCall;
        EXPECT_EQ(m_fake.vCalls.front(), test.szCall);

        SetFlags(*pBuffer, CL_MEM_HOST_NO_ACCESS);
        EXPECT_EQ(pBuffer->GetDataBuffer(nullptr), nullptr) << "no temporary image without 1.2";
        EXPECT_FALSE(pBuffer->Clear());
    }
    EXPECT_EQ(m_host.CountLog(logERROR, "Expecting OpenCL 1.2.\n"), 4u);
}

TEST_F(DeviceBuffer, AnImageHasTheFormatOfItsDescriptionOrTheOneThatWasSet)
{
    auto pBuffer = Empty();
    ASSERT_TRUE(pBuffer->Create(Image(BT_Texture_2D, 2, 2, 1, 1, 0)));
    EXPECT_EQ(Object(*pBuffer)->format.image_channel_data_type, cl_channel_type(CL_UNSIGNED_INT8));
    pBuffer->SetImageFormat({CL_BGRA, CL_UNORM_INT8});
    ASSERT_TRUE(pBuffer->Create(Image(BT_Texture_2D, 2, 2, 1, 1, 0)));
    EXPECT_EQ(Object(*pBuffer)->format.image_channel_order, cl_channel_order(CL_BGRA));
    EXPECT_EQ(Object(*pBuffer)->format.image_channel_data_type, cl_channel_type(CL_UNORM_INT8));
}

TEST_F(DeviceBuffer, AWrappingObjectReleasesNothing)
{
    CFakeCL::SObject* pMem = m_fake.New("mem");
    pMem->nType = CL_MEM_OBJECT_BUFFER;
    pMem->vBytes = Count(8);
    std::vector<unsigned char> value(sizeof(cl_mem));
    std::memcpy(value.data(), &pMem, sizeof(pMem));
    {
        CShaderDebuggerDeviceBufferCL buffer(&m_host, CFakeCL::Device(), nullptr, reinterpret_cast<cl_command_queue>(1),
                                             value, value.size(), false, RawBuffer(8));
        const std::unique_ptr<CShaderDebuggerBuffer> pData(buffer.GetDataBuffer(nullptr));
        ASSERT_NE(pData, nullptr);
        EXPECT_EQ(pData->GetData()[7], 8);
        EXPECT_TRUE(buffer.Destroy());
        EXPECT_EQ(buffer.GetArgumentSize(), 0u);
    }
    EXPECT_EQ(m_fake.CountLive("mem"), 1u);
    m_fake.Release(pMem);
}

/// Each call fails once, for each kind of object: the operation reports it and leaves nothing behind.
TEST_F(DeviceBuffer, EveryFailingCallIsReportedAndLeavesNothing)
{
    for (const bool bImage : {false, true})
    {
        const BufferDesc desc = bImage ? Image(BT_Texture_2D, 3, 2, 1, 1, 16) : RawBuffer(32);
        for (size_t nCall = 1;; ++nCall)
        {
            bool bOk = true;
            {
                auto pBuffer = Empty();
                m_fake.Fail("", nCall, CL_OUT_OF_RESOURCES);
                bOk = pBuffer->Create(desc);
                if (bOk)
                {
                    SetFlags(*pBuffer, CL_MEM_HOST_NO_ACCESS);
                    bOk = pBuffer->Clear();
                    const std::unique_ptr<CShaderDebuggerBuffer> pData(pBuffer->GetDataBuffer(nullptr));
                    bOk = bOk && pData != nullptr;
                }
                if (m_fake.IsFailurePending())
                {
                    EXPECT_TRUE(bOk);
                    break;
                }
            }
            const std::string& strFailed = m_fake.vCalls.at(nCall - 1);
            EXPECT_TRUE(!bOk || strFailed == "clReleaseMemObject") << nCall << " " << strFailed;
            EXPECT_TRUE(m_fake.live.empty()) << nCall << " " << strFailed;
            m_fake.vCalls.clear();
        }
        m_fake.Fail("", 0, 0);
    }
}

TEST_F(DeviceBuffer, DumpingMakesAnEmptyFile)
{
    auto pBuffer = Empty();
    EXPECT_FALSE(pBuffer->DumpBuffer(""));
    EXPECT_FALSE(pBuffer->DumpBuffer("/nowhere/at/all"));
    const std::string strFile = testing::TempDir() + "kestrel_dump";
    EXPECT_TRUE(pBuffer->DumpBuffer(strFile));
    EXPECT_EQ(std::remove(strFile.c_str()), 0);
}

} // namespace
