#include "device/ShaderDebuggerDeviceBufferCL.h"

#include "core/Log.h"
#include "device/ImageFormatCL.h"
#include "device/MappedMemoryCL.h"
#include "modules/CLCall.h"
#include "modules/CLDispatchTable.h"

#include <algorithm>
#include <cstring>
#include <fstream>

namespace OVK_ShaderDebugger
{

using namespace ShaderUtils;

namespace
{

/// Whether a description is that of a memory argument that was set to null.
bool IsNullDescription(const BufferDesc& desc)
{
    return desc.m_Type != BT_Unknown && desc.m_Type != BT_Value && desc.m_Type != BT_LocalBuffer &&
           desc.m_Format == BF_RAW && desc.m_nWidth == 0 && desc.m_nHeight == 0 && desc.m_nDepth == 0 &&
           desc.m_nSize == 0;
}

} // namespace

CShaderDebuggerDeviceBufferCL::CShaderDebuggerDeviceBufferCL(CShaderDebuggerHost* pHost, cl_device_id,
                                                             cl_context context, cl_command_queue queue)
    : CShaderDebuggerDeviceBuffer(pHost), m_Context(context), m_Queue(queue), m_nSize(0), m_isNullBuffer(CLNB_Unknown),
      m_bManageMemory(false), m_bHasImageFormat(false), m_ImageFormat()
{
}

CShaderDebuggerDeviceBufferCL::CShaderDebuggerDeviceBufferCL(CShaderDebuggerHost* pHost, cl_device_id device,
                                                             cl_context context, cl_command_queue queue,
                                                             std::vector<unsigned char>& value, size_t size,
                                                             bool bNullBuffer, BufferDesc desc)
    : CShaderDebuggerDeviceBufferCL(pHost, device, context, queue)
{
    m_Desc = desc;
    m_Value = value;
    m_nSize = size;
    m_isNullBuffer = bNullBuffer ? CLNB_Is_A_Null_Buffer : CLNB_Not_A_Null_Buffer;
    SD_Assert(m_pHost, m_Desc.m_Type == BT_LocalBuffer || value.size() == size);
}

CShaderDebuggerDeviceBufferCL::~CShaderDebuggerDeviceBufferCL()
{
    Destroy();
}

void CShaderDebuggerDeviceBufferCL::SetImageFormat(const cl_image_format& format)
{
    m_bHasImageFormat = true;
    m_ImageFormat = format;
}

bool CShaderDebuggerDeviceBufferCL::HasMemoryType() const
{
    return m_Desc.m_Type != BT_Value && m_Desc.m_Type != BT_LocalBuffer;
}

cl_mem CShaderDebuggerDeviceBufferCL::GetHandle() const
{
    cl_mem mem = nullptr;
    if (SD_Assert(m_pHost, m_Value.size() == sizeof(cl_mem)))
    {
        std::memcpy(&mem, m_Value.data(), sizeof(mem));
    }
    return mem;
}

void CShaderDebuggerDeviceBufferCL::SetHandle(cl_mem mem)
{
    m_Value.resize(sizeof(mem));
    std::memcpy(m_Value.data(), &mem, sizeof(mem));
    m_nSize = m_Value.size();
    m_bManageMemory = mem != nullptr;
}

bool CShaderDebuggerDeviceBufferCL::Create(const BufferDesc& bufferDesc)
{
    NullBufferType isNullBuffer = m_isNullBuffer;
    if (isNullBuffer == CLNB_Unknown)
    {
        isNullBuffer = IsNullDescription(bufferDesc) ? CLNB_Is_A_Null_Buffer : CLNB_Not_A_Null_Buffer;
    }
    const BufferDesc desc = bufferDesc;
    Destroy();
    m_isNullBuffer = isNullBuffer;
    m_Desc = desc;
    // So that a handle, once it is there, can be kept without an allocation.
    m_Value.reserve(sizeof(cl_mem));

    switch (m_Desc.m_Type)
    {
    case BT_Value:
        m_Value.resize(m_Desc.m_nSize);
        m_nSize = m_Desc.m_nSize;
        break;
    case BT_LocalBuffer:
        m_nSize = m_Desc.m_nSize;
        break;
    case BT_Buffer:
        if (!CreateBuffer())
        {
            return false;
        }
        break;
    default:
        if (!CreateImage())
        {
            return false;
        }
        break;
    }
    return Clear();
}

bool CShaderDebuggerDeviceBufferCL::CreateBuffer()
{
    if (m_Desc.m_Format != BF_RAW)
    {
        const size_t nPointSize = GetPointSize(m_Desc.m_Format);
        if (nPointSize == 0)
        {
            return SD_Break(m_pHost, "Unsupported CL buffer format");
        }
        const unsigned int nPoints =
            std::max(m_Desc.m_nWidth, 1u) * std::max(m_Desc.m_nHeight, 1u) * std::max(m_Desc.m_nDepth, 1u);
        m_Desc.m_nSize = nPoints * nPointSize;
    }

    if (m_Desc.m_nSize == 0)
    {
        if (!IsNull())
        {
            return SD_Break(m_pHost, "NULL input for a non-NULL buffer!");
        }
        SetHandle(nullptr);
        return true;
    }
    if (IsNull())
    {
        return SD_Break(m_pHost, "Non-NULL input for a NULL buffer!");
    }

    cl_int nCode = CL_SUCCESS;
    const cl_mem mem = CreateCL(nCode, g_CLDispatchTable.CreateBuffer, m_Context, cl_mem_flags(CL_MEM_READ_WRITE),
                                m_Desc.m_nSize, static_cast<void*>(nullptr));
    if (mem == nullptr)
    {
        return SD_Break(m_pHost, "Could not allocate CL memory");
    }
    SetHandle(mem);
    return true;
}

bool CShaderDebuggerDeviceBufferCL::CreateImage()
{
    if (m_Desc.m_nWidth == 0)
    {
        if (!IsNull())
        {
            return SD_Break(m_pHost, "NULL input for a non-NULL image!");
        }
        SetHandle(nullptr);
        return true;
    }
    if (IsNull())
    {
        return SD_Break(m_pHost, "non-NULL input for a NULL image!");
    }

    cl_image_format format = {};
    if (!BufferFormatToImgFormat(m_Desc.m_Format, format))
    {
        return SD_Break(m_pHost, "Unsupported CL buffer format");
    }
    cl_mem_object_type type = 0;
    if (!GetImageObjectType(m_Desc, type))
    {
        return SD_Break(m_pHost, "Unsupported CL buffer type");
    }

    cl_int nCode = CL_SUCCESS;
    const cl_mem mem = AllocateImage(m_bHasImageFormat ? m_ImageFormat : format, nCode);
    if (mem == nullptr)
    {
        return SD_Break(m_pHost, "Could not allocate CL memory");
    }
    SetHandle(mem);
    return true;
}

cl_mem CShaderDebuggerDeviceBufferCL::AllocateImage(const cl_image_format& format, cl_int& nCode) const
{
    const cl_mem_flags nFlags = CL_MEM_READ_WRITE;
    // The calls of the older versions make no arrays.
    const bool bArray = m_Desc.m_Type != BT_Texture_3D && m_Desc.m_nArraySize > 1;
    if (g_CLDispatchTable.OpenCLLoaded() == OpenCLModule::OpenCL_1_2 || bArray)
    {
        return CreateImageLike(m_Context, nFlags, format, m_Desc, nCode);
    }
    if (m_Desc.m_Type == BT_Texture_3D)
    {
        return CreateCL(nCode, g_CLDispatchTable.CreateImage3D, m_Context, nFlags, &format, size_t(m_Desc.m_nWidth),
                        size_t(m_Desc.m_nHeight), size_t(m_Desc.m_nDepth), size_t(0), size_t(0),
                        static_cast<void*>(nullptr));
    }
    const size_t nHeight = m_Desc.m_Type == BT_Texture_2D ? m_Desc.m_nHeight : 1;
    return CreateCL(nCode, g_CLDispatchTable.CreateImage2D, m_Context, nFlags, &format, size_t(m_Desc.m_nWidth),
                    nHeight, size_t(0), static_cast<void*>(nullptr));
}

bool CShaderDebuggerDeviceBufferCL::Destroy()
{
    bool bReleased = true;
    if (m_bManageMemory)
    {
        const cl_mem mem = GetHandle();
        if (mem == nullptr || CallCL(g_CLDispatchTable.ReleaseMemObject, mem) != CL_SUCCESS)
        {
            bReleased = SD_Break(m_pHost, "Could not release CL memory");
        }
        m_bManageMemory = false;
    }
    m_Value.clear();
    m_nSize = 0;
    m_isNullBuffer = CLNB_Unknown;
    return bReleased;
}

const void* CShaderDebuggerDeviceBufferCL::GetDeviceBuffer() const
{
    SD_Assert(m_pHost, m_Desc.m_Type == BT_LocalBuffer || m_Value.size() == m_nSize);
    return m_Desc.m_Type == BT_LocalBuffer || m_Value.empty() ? nullptr : m_Value.data();
}

size_t CShaderDebuggerDeviceBufferCL::GetArgumentSize() const
{
    SD_Assert(m_pHost, m_Desc.m_Type == BT_LocalBuffer || m_Value.size() == m_nSize);
    return m_nSize;
}

bool CShaderDebuggerDeviceBufferCL::Clear()
{
    return UpdateData(nullptr, 0);
}

bool CShaderDebuggerDeviceBufferCL::DumpBuffer(const std::string& strFilePath) const
{
    if (strFilePath.empty())
    {
        return false;
    }
    return std::ofstream(strFilePath).is_open();
}

} // namespace OVK_ShaderDebugger
