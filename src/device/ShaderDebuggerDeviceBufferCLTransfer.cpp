#include "device/ShaderDebuggerDeviceBufferCL.h"

#include "core/CopyBytes.h"
#include "core/Log.h"
#include "core/ShaderDebuggerBuffer.h"
#include "device/MappedMemoryCL.h"
#include "modules/CLCall.h"
#include "modules/CLDispatchTable.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <optional>

namespace OVK_ShaderDebugger
{

using namespace ShaderUtils;

namespace
{

/// Whether an object's flags keep the host from mapping it for one direction.
/// \param nForbidding  the flag that names the other direction alone
/// \return false if the flags can't be read
bool NeedsTemporary(CShaderDebuggerHost* pHost, cl_mem mem, cl_mem_flags nForbidding, bool& bNeedsTemporary)
{
    cl_mem_flags nFlags = 0;
    const cl_int nCode = QueryCL(g_CLDispatchTable.GetMemObjectInfo, mem, CL_MEM_FLAGS, nFlags);
    bNeedsTemporary = (nFlags & (nForbidding | CL_MEM_HOST_NO_ACCESS)) != 0;
    return CheckCL(pHost, nCode, "clGetMemObjectInfo() failed");
}

/// Puts the bytes, or zeros without any, into a mapping. Fewer bytes than there are leave the rest alone.
void FillMapping(const CMappedMemoryCL& mapping, const BufferDesc& desc, const unsigned char* pData, size_t nSize)
{
    if (desc.m_Type == BT_Buffer)
    {
        if (pData != nullptr)
        {
            CopyBytes(mapping.GetData(), pData, std::min(nSize, desc.m_nSize));
        }
        else
        {
            std::memset(mapping.GetData(), 0, desc.m_nSize);
        }
    }
    else if (pData != nullptr)
    {
        CopyImageRows(mapping.GetLayout(), mapping.GetData(), GetDescribedLayout(desc), pData, nSize, GetRowSize(desc));
    }
    else
    {
        ClearImageRows(mapping.GetLayout(), mapping.GetData(), GetRowSize(desc));
    }
}

bool IsImageWithoutCreateImage(const BufferDesc& desc)
{
    return desc.m_Type != BT_Buffer && g_CLDispatchTable.OpenCLLoaded() != OpenCLModule::OpenCL_1_2;
}

} // namespace

CShaderDebuggerBuffer* CShaderDebuggerDeviceBufferCL::GetDataBuffer(CShaderDebuggerBuffer* pDataBuffer)
{
    if (!HasMemoryType())
    {
        SD_Break(m_pHost, "Can't get buffer for value type buffers or local memory buffers");
        return nullptr;
    }
    if (!SD_AssertText(m_pHost, m_Queue != nullptr, "m_Queue != 0"))
    {
        SD_Log(m_pHost, logERROR, "%s", "CShaderDebuggerDeviceBufferCL::GetDataBuffer() failed. m_Queue == 0\n");
        return nullptr;
    }
    const cl_mem mem = GetHandle();
    if (mem == nullptr && !IsNull())
    {
        SD_Log(m_pHost, logERROR, "%s", "CShaderDebuggerDeviceBufferCL::GetDataBuffer() failed. mem == 0\n");
        return nullptr;
    }

    std::unique_ptr<CShaderDebuggerBuffer> pNewBuffer;
    if (pDataBuffer == nullptr)
    {
        pNewBuffer.reset(new (std::nothrow) CShaderDebuggerBuffer(m_pHost));
        pDataBuffer = pNewBuffer.get();
        if (!SD_AssertText(m_pHost, pDataBuffer != nullptr, "pDataBuffer != NULL"))
        {
            SD_Log(m_pHost, logERROR, "%s",
                   "CShaderDebuggerDeviceBufferCL::GetDataBuffer() failed. pDataBuffer == NULL\n");
            return nullptr;
        }
        if (!SD_AssertText(m_pHost, pDataBuffer->Create(m_Desc, nullptr), "pDataBuffer->Create failed"))
        {
            return nullptr;
        }
    }

    if (!IsNull() && !ReadMemory(mem, *pDataBuffer))
    {
        return nullptr;
    }
    static_cast<void>(pNewBuffer.release());
    return pDataBuffer;
}

bool CShaderDebuggerDeviceBufferCL::ReadMemory(cl_mem mem, CShaderDebuggerBuffer& dataBuffer)
{
    bool bNeedsTemporary = false;
    if (!NeedsTemporary(m_pHost, mem, CL_MEM_HOST_WRITE_ONLY, bNeedsTemporary))
    {
        return false;
    }
    if (bNeedsTemporary && IsImageWithoutCreateImage(m_Desc))
    {
        SD_Log(m_pHost, logERROR, "%s",
               "CShaderDebuggerDeviceBufferCL::GetDataBuffer() failed. Expecting OpenCL 1.2.\n");
    }

    // Declared first, so that the object is unmapped before it is released.
    std::optional<CTemporaryMemoryCL> readMem;
    if (bNeedsTemporary)
    {
        readMem.emplace(m_pHost, m_Context, CL_MEM_HOST_READ_ONLY, mem, m_Desc);
        if (readMem->Get() == nullptr || !EnqueueCopy(m_pHost, m_Queue, mem, readMem->Get(), m_Desc))
        {
            return false;
        }
        mem = readMem->Get();
    }

    CMappedMemoryCL mapping(m_pHost, m_Queue, mem, CL_MAP_READ, m_Desc);
    if (mapping.GetData() == nullptr || dataBuffer.GetData() == nullptr)
    {
        return false;
    }
    const SImageLayout described = GetDescribedLayout(m_Desc);
    if (m_Desc.m_Type == BT_Buffer)
    {
        CopyBytes(dataBuffer.GetData(), mapping.GetData(), std::min(dataBuffer.GetSize(), m_Desc.m_nSize));
    }
    else if (described.GetSize() <= dataBuffer.GetSize())
    {
        CopyImageRows(described, dataBuffer.GetData(), mapping.GetLayout(), mapping.GetData(),
                      mapping.GetLayout().GetSize(), GetRowSize(m_Desc));
    }
    else
    {
        return false;
    }
    return mapping.Unmap();
}

bool CShaderDebuggerDeviceBufferCL::Visit(const std::function<void(const unsigned char* pBytes, size_t nSize)>& visit)
{
    const cl_mem mem = m_Desc.m_Type == BT_Buffer ? GetHandle() : nullptr;
    if (!SD_AssertText(m_pHost, mem != nullptr && m_Queue != nullptr, "Visit of what is no buffer"))
    {
        return false;
    }
    CMappedMemoryCL mapping(m_pHost, m_Queue, mem, CL_MAP_READ, m_Desc);
    if (mapping.GetData() == nullptr)
    {
        return false;
    }
    visit(mapping.GetData(), m_Desc.m_nSize);
    return mapping.Unmap();
}

bool CShaderDebuggerDeviceBufferCL::UpdateData(void* pData, size_t bufferSize)
{
    const unsigned char* pBytes = static_cast<const unsigned char*>(pData);
    if (!HasMemoryType())
    {
        return UpdateValue(pBytes, bufferSize);
    }
    if (!SD_AssertText(m_pHost, m_Queue != nullptr, "m_Queue != 0"))
    {
        SD_Log(m_pHost, logERROR, "%s", "CShaderDebuggerDeviceBufferCL::UpdateData() failed. m_Queue == 0\n");
        return false;
    }
    const cl_mem mem = GetHandle();
    SD_AssertText(m_pHost, (mem != nullptr) != IsNull(), "( 0 != mem ) != ( CLNB_Is_A_Null_Buffer == m_isNullBuffer )");
    if (mem == nullptr)
    {
        if (!IsNull())
        {
            SD_Log(m_pHost, logERROR, "%s", "CShaderDebuggerDeviceBufferCL::UpdateData() failed. mem == 0\n");
        }
        return IsNull();
    }
    return WriteMemory(mem, pBytes, bufferSize);
}

bool CShaderDebuggerDeviceBufferCL::UpdateValue(const unsigned char* pData, size_t nSize)
{
    if (pData == nullptr)
    {
        std::fill(m_Value.begin(), m_Value.end(), static_cast<unsigned char>(0));
        return true;
    }
    const size_t bufferSize = nSize;
    SD_Assert(m_pHost, bufferSize == m_Value.size());
    std::copy_n(pData, std::min(nSize, m_Value.size()), m_Value.begin());
    return true;
}

bool CShaderDebuggerDeviceBufferCL::WriteMemory(cl_mem mem, const unsigned char* pData, size_t bufferSize)
{
    bool bNeedsTemporary = false;
    if (!NeedsTemporary(m_pHost, mem, CL_MEM_HOST_READ_ONLY, bNeedsTemporary))
    {
        return false;
    }
    std::optional<CTemporaryMemoryCL> writeMem;
    cl_mem target = mem;
    if (bNeedsTemporary)
    {
        writeMem.emplace(m_pHost, m_Context, CL_MEM_HOST_WRITE_ONLY, mem, m_Desc);
        target = writeMem->Get();
        if (target == nullptr)
        {
            return false;
        }
    }

    const size_t nBufferSize = m_Desc.m_Type == BT_Buffer ? m_Desc.m_nSize : GetDescribedLayout(m_Desc).GetSize();
    {
        CMappedMemoryCL mapping(m_pHost, m_Queue, target, CL_MAP_WRITE, m_Desc);
        if (mapping.GetData() == nullptr)
        {
            return false;
        }
        FillMapping(mapping, m_Desc, pData, bufferSize);
        if (!mapping.Unmap())
        {
            return false;
        }
    }
    if (bNeedsTemporary && !EnqueueCopy(m_pHost, m_Queue, target, mem, m_Desc))
    {
        return false;
    }
    if (!CheckCL(m_pHost, CallCL(g_CLDispatchTable.Finish, m_Queue), "clFinish() failed"))
    {
        return false;
    }
    return pData == nullptr || SD_Assert(m_pHost, bufferSize == nBufferSize);
}

} // namespace OVK_ShaderDebugger
