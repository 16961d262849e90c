#include "device/ShaderDebuggerDeviceCL.h"

#include "binary/KernelArgTracking.h"
#include "core/Log.h"
#include "core/ShaderDebuggerHost.h"
#include "device/ImageFormatCL.h"
#include "device/ShaderDebuggerDeviceBufferCL.h"
#include "modules/CLCall.h"
#include "modules/CLDispatchTable.h"

#include <cstring>
#include <memory>
#include <new>

namespace OVK_ShaderDebugger
{

using namespace ShaderUtils;

namespace
{

/// The memory object of an argument value, which must have the size of one.
cl_mem ToHandle(const std::vector<unsigned char>& vValue)
{
    cl_mem mem = nullptr;
    if (vValue.size() == sizeof(mem))
    {
        std::memcpy(&mem, vValue.data(), sizeof(mem));
    }
    return mem;
}

struct SImageType
{
    cl_mem_object_type objectType;
    BufferType type;
    bool bArray;
};

const SImageType s_ImageTypes[] = {
    {CL_MEM_OBJECT_IMAGE1D, BT_Texture_1D, false}, {CL_MEM_OBJECT_IMAGE1D_ARRAY, BT_Texture_1D, true},
    {CL_MEM_OBJECT_IMAGE2D, BT_Texture_2D, false}, {CL_MEM_OBJECT_IMAGE2D_ARRAY, BT_Texture_2D, true},
    {CL_MEM_OBJECT_IMAGE3D, BT_Texture_3D, false},
};

const SImageType* FindImageType(cl_mem_object_type objectType)
{
    for (const SImageType& entry : s_ImageTypes)
    {
        if (entry.objectType == objectType)
        {
            return &entry;
        }
    }
    return nullptr;
}

} // namespace

unsigned int CShaderDebuggerDeviceCL::GetNumDeviceBuffers(ShaderType) const
{
    cl_uint nArguments = 0;
    if (m_OriginalKernel != nullptr)
    {
        QueryCL(g_CLDispatchTable.GetKernelInfo, m_OriginalKernel, CL_KERNEL_NUM_ARGS, nArguments);
    }
    return nArguments;
}

cl_int QueryKernelArgKind(cl_kernel kernel, unsigned int nArgumentIndex, std::string& strKind)
{
    strKind.clear();
    size_t nSize = 0;
    cl_int nCode = ovkclGetKernelArgInfo(kernel, nArgumentIndex, OVKCL_KERNEL_ARG_KIND, 0, nullptr, &nSize);
    if (nCode != CL_SUCCESS)
    {
        return nCode;
    }
    std::vector<char> vKind(nSize + 1, '\0');
    nCode = ovkclGetKernelArgInfo(kernel, nArgumentIndex, OVKCL_KERNEL_ARG_KIND, nSize, vKind.data(), nullptr);
    if (nCode == CL_SUCCESS)
    {
        strKind = vKind.data();
    }
    return nCode;
}

bool CShaderDebuggerDeviceCL::GetImageArgumentType(cl_mem mem, BufferType& type) const
{
    if (mem == nullptr)
    {
        type = BT_Texture_2D;
        return true;
    }
    cl_mem_object_type objectType = 0;
    const cl_int nCode = QueryCL(g_CLDispatchTable.GetMemObjectInfo, mem, CL_MEM_TYPE, objectType);
    if (!CheckCL(m_pHost, nCode, "Error: clGetMemObjectInfo() failed.\n"))
    {
        return false;
    }
    const SImageType* pType = FindImageType(objectType);
    if (!SD_AssertText(m_pHost, pType != nullptr, "Error: unknown image type.\n"))
    {
        return false;
    }
    type = pType->type;
    return true;
}

bool CShaderDebuggerDeviceCL::GetArgumentValueAndTypeFromOriginalKernel(unsigned int nArgumentIndex,
                                                                        std::vector<unsigned char>* pValue,
                                                                        size_t* pSize, BufferType* pType,
                                                                        bool* pbNullBuffer) const
{
    if (m_OriginalKernel == nullptr)
    {
        return false;
    }
    cl_uint nArguments = 0;
    const cl_int nCode = QueryCL(g_CLDispatchTable.GetKernelInfo, m_OriginalKernel, CL_KERNEL_NUM_ARGS, nArguments);
    if (!CheckCL(m_pHost, nCode, "Error: clGetKernelInfo() failed.\n") || nArgumentIndex >= nArguments)
    {
        return false;
    }

    const void* arg_value = nullptr;
    size_t arg_size = 0;
    if (!CheckCL(m_pHost, ovkclGetKernelArg(m_OriginalKernel, nArgumentIndex, &arg_value, &arg_size),
                 "Error: clGetKernelArg() failed.\n"))
    {
        return false;
    }
    std::string strKind;
    if (!CheckCL(m_pHost, QueryKernelArgKind(m_OriginalKernel, nArgumentIndex, strKind),
                 "Error: clGetKernelArgInfo() failed.\n"))
    {
        return false;
    }

    std::vector<unsigned char> vValue;
    if (arg_value != nullptr)
    {
        const unsigned char* pBytes = static_cast<const unsigned char*>(arg_value);
        vValue.assign(pBytes, pBytes + arg_size);
    }
    BufferType type = BT_Unknown;
    *pbNullBuffer = false;
    if (strKind == "value")
    {
        type = BT_Value;
    }
    else if (strKind == "localpointer")
    {
        if (!SD_AssertText(m_pHost, arg_value == nullptr, "arg_value == NULL"))
        {
            return false;
        }
        type = BT_LocalBuffer;
    }
    else if (strKind == "globalpointer" || strKind == "counter" || strKind == "image")
    {
        if (!SD_Assert(m_pHost, arg_size == sizeof(cl_mem)))
        {
            return false;
        }
        // OpenCL takes a null pointer in place of a pointer to a null handle.
        vValue.resize(sizeof(cl_mem));
        type = BT_Buffer;
        if (strKind == "image" && !GetImageArgumentType(ToHandle(vValue), type))
        {
            return false;
        }
        *pbNullBuffer = ToHandle(vValue) == nullptr;
    }
    else
    {
        return SD_Break(m_pHost, "Error: clGetKernelArgInfo() returned an unknown argument type.\n");
    }

    if (pValue != nullptr)
    {
        pValue->swap(vValue);
    }
    if (pSize != nullptr)
    {
        *pSize = arg_size;
    }
    if (pType != nullptr)
    {
        *pType = type;
    }
    return true;
}

bool CShaderDebuggerDeviceCL::GetDeviceBufferDesc(ShaderType shaderType, int nDeviceBufferIndex, BufferDesc& bufferDesc)
{
    bufferDesc = BufferDesc();
    bufferDesc.m_ShaderType = shaderType;
    bufferDesc.m_nArraySize = 1;
    if (nDeviceBufferIndex < 0)
    {
        if (m_pHost == nullptr)
        {
            return false;
        }
        bufferDesc.m_Type = BT_Buffer;
        bufferDesc.m_nWidth = m_pHost->GetBufferWidth();
        bufferDesc.m_nHeight = m_pHost->GetBufferHeight();
        bufferDesc.m_nDepth = m_pHost->GetBufferDepth();
        return true;
    }

    std::vector<unsigned char> value;
    size_t nSize = 0;
    bool bNullBuffer = false;
    if (!GetArgumentValueAndTypeFromOriginalKernel(static_cast<unsigned int>(nDeviceBufferIndex), &value, &nSize,
                                                   &bufferDesc.m_Type, &bNullBuffer))
    {
        return false;
    }
    if (bufferDesc.m_Type == BT_Value || bufferDesc.m_Type == BT_LocalBuffer)
    {
        bufferDesc.m_nSize = bufferDesc.m_Type == BT_Value ? value.size() : nSize;
        return true;
    }
    if (!SD_Assert(m_pHost, value.size() == sizeof(cl_mem)))
    {
        return false;
    }
    if (bNullBuffer)
    {
        bufferDesc.m_Format = BF_RAW;
        return true;
    }
    return DescribeMemory(ToHandle(value), bufferDesc);
}

bool CShaderDebuggerDeviceCL::DescribeMemory(cl_mem mem, BufferDesc& desc)
{
    cl_mem_object_type objectType = 0;
    cl_int nCode = QueryCL(g_CLDispatchTable.GetMemObjectInfo, mem, CL_MEM_TYPE, objectType);
    if (nCode == CL_SUCCESS && objectType == CL_MEM_OBJECT_BUFFER)
    {
        desc.m_Type = BT_Buffer;
        desc.m_Format = BF_RAW;
        desc.m_nDepth = 1;
        nCode = QueryCL(g_CLDispatchTable.GetMemObjectInfo, mem, CL_MEM_SIZE, desc.m_nSize);
    }
    if (!CheckCL(m_pHost, nCode, "Error: clGetMemObjectInfo() failed.\n"))
    {
        return false;
    }
    return objectType == CL_MEM_OBJECT_BUFFER || DescribeImage(mem, objectType, desc);
}

bool CShaderDebuggerDeviceCL::DescribeImage(cl_mem mem, cl_mem_object_type objectType, BufferDesc& desc)
{
    const SImageType* pType = FindImageType(objectType);
    if (pType == nullptr)
    {
        desc.m_Type = BT_Unknown;
        return SD_Break(m_pHost, objectType == CL_MEM_OBJECT_PIPE ? "Pipe Objects are not supported.\n"
                                                                  : "Error: unsupported image format.\n");
    }

    cl_image_format format = {};
    size_t nWidth = 0;
    size_t nHeight = 1;
    size_t nDepth = 1;
    size_t nArraySize = 1;
    size_t nPitch = 0;
    const auto query = [&](cl_image_info parameter, auto& value)
    { return QueryCL(g_CLDispatchTable.GetImageInfo, mem, parameter, value) == CL_SUCCESS; };
    const bool bRead =
        query(CL_IMAGE_FORMAT, format) && query(CL_IMAGE_WIDTH, nWidth) &&
        (pType->type == BT_Texture_1D || (query(CL_IMAGE_HEIGHT, nHeight) && query(CL_IMAGE_ROW_PITCH, nPitch))) &&
        (pType->type != BT_Texture_3D || query(CL_IMAGE_DEPTH, nDepth)) &&
        (!pType->bArray || query(CL_IMAGE_ARRAY_SIZE, nArraySize));
    if (!SD_AssertText(m_pHost, bRead, "Error: clGetImageInfo() failed.\n"))
    {
        return false;
    }

    desc.m_Type = pType->type;
    desc.m_Format = ImgFormatToBufferFormat(format);
    desc.m_nWidth = static_cast<unsigned int>(nWidth);
    desc.m_nHeight = static_cast<unsigned int>(nHeight);
    desc.m_nDepth = static_cast<unsigned int>(nDepth);
    desc.m_nArraySize = static_cast<unsigned int>(nArraySize);
    desc.m_nPitch = static_cast<unsigned int>(nPitch);
    if (!SD_AssertText(m_pHost, desc.m_Format != BF_Unknown, "Error: Image format unknown"))
    {
        return false;
    }
    m_DescribedImage.desc = desc;
    m_DescribedImage.format = format;
    return true;
}

CShaderDebuggerDeviceBuffer* CShaderDebuggerDeviceCL::CreateDeviceBuffer(const BufferDesc& bufferDesc)
{
    if (m_Context == nullptr)
    {
        return nullptr;
    }
    std::unique_ptr<CShaderDebuggerDeviceBufferCL> pBuffer(
        new (std::nothrow) CShaderDebuggerDeviceBufferCL(m_pHost, m_Device, m_Context, m_Queue));
    if (pBuffer == nullptr)
    {
        return nullptr;
    }
    if (bufferDesc == m_DescribedImage.desc)
    {
        pBuffer->SetImageFormat(m_DescribedImage.format);
    }
    return pBuffer->Create(bufferDesc) ? pBuffer.release() : nullptr;
}

CShaderDebuggerDeviceBuffer* CShaderDebuggerDeviceCL::GetDeviceBuffer(ShaderType shaderType,
                                                                      unsigned int nDeviceBufferIndex)
{
    std::vector<unsigned char> value;
    size_t nSize = 0;
    BufferType type = BT_Unknown;
    bool bNullBuffer = false;
    if (!GetArgumentValueAndTypeFromOriginalKernel(nDeviceBufferIndex, &value, &nSize, &type, &bNullBuffer))
    {
        SD_Break(m_pHost, "CShaderDebuggerDeviceCL: GetArgumentValueAndTypeFromOriginalKernel() failed.");
        return nullptr;
    }
    BufferDesc desc;
    if (!GetDeviceBufferDesc(shaderType, static_cast<int>(nDeviceBufferIndex), desc))
    {
        SD_Break(m_pHost, "CShaderDebuggerDeviceCL: GetDeviceBufferDesc() failed.");
        return nullptr;
    }
    if (!SD_Assert(m_pHost, desc.m_Type == type))
    {
        return nullptr;
    }
    return new (std::nothrow)
        CShaderDebuggerDeviceBufferCL(m_pHost, m_Device, m_Context, m_Queue, value, nSize, bNullBuffer, desc);
}

bool CShaderDebuggerDeviceCL::SetDeviceBuffer(ShaderType, unsigned int nDeviceBufferIndex,
                                              CShaderDebuggerDeviceBuffer* pDeviceBuffer)
{
    if (!SD_Assert(m_pHost, pDeviceBuffer) || !SD_Assert(m_pHost, m_PatchedKernel))
    {
        return false;
    }
    cl_uint nArguments = 0;
    cl_int nCode = QueryCL(g_CLDispatchTable.GetKernelInfo, m_PatchedKernel, CL_KERNEL_NUM_ARGS, nArguments);
    if (!CheckCL(m_pHost, nCode, "Error: clGetKernelInfo() failed.\n") || nDeviceBufferIndex >= nArguments)
    {
        return false;
    }
    const CShaderDebuggerDeviceBufferCL* pBuffer = dynamic_cast<CShaderDebuggerDeviceBufferCL*>(pDeviceBuffer);
    if (!SD_Assert(m_pHost, pBuffer))
    {
        return false;
    }
    nCode = CallCL(g_CLDispatchTable.SetKernelArg, m_PatchedKernel, cl_uint(nDeviceBufferIndex),
                   pBuffer->GetArgumentSize(), pBuffer->GetDeviceBuffer());
    return CheckCL(m_pHost, nCode, "Error: clSetKernelArg() failed.\n");
}

} // namespace OVK_ShaderDebugger
