#include "device/ShaderDebuggerHostCL.h"

#include "binary/KernelArgTracking.h"
#include "core/CLLogger.h"
#include "core/ShaderDebuggerBuffer.h"
#include "modules/CLCall.h"
#include "modules/CLDispatchTable.h"

#include <algorithm>
#include <cstring>

namespace OVK_ShaderDebugger
{

namespace
{

/// The size of the memory object that a pointer argument was set to; 0 for a null handle.
bool GetArgumentMemorySize(cl_kernel kernel, unsigned int nArgument, memoryAddress& size)
{
    const void* pValue = nullptr;
    size_t nValueSize = 0;
    if (ovkclGetKernelArg(kernel, nArgument, &pValue, &nValueSize) != CL_SUCCESS || nValueSize != sizeof(cl_mem))
    {
        return false;
    }
    cl_mem mem = nullptr;
    if (pValue != nullptr)
    {
        std::memcpy(&mem, pValue, sizeof(mem));
    }
    size_t nSize = 0;
    if (mem != nullptr && QueryCL(Kestrel::g_CLDispatchTable.GetMemObjectInfo, mem, CL_MEM_SIZE, nSize) != CL_SUCCESS)
    {
        return false;
    }
    size = nSize;
    return true;
}

VariableID ByName(const std::string& strName)
{
    VariableID variableID;
    variableID.type = VID_ByName;
    variableID.strName = strName;
    return variableID;
}

} // namespace

bool CShaderDebuggerHostCL::InitKernelArgInfo(cl_kernel kernel)
{
    m_vKernelArgInfo.clear();
    cl_uint nArguments = 0;
    if (QueryCL(Kestrel::g_CLDispatchTable.GetKernelInfo, kernel, CL_KERNEL_NUM_ARGS, nArguments) != CL_SUCCESS)
    {
        return false;
    }
    if (nArguments == 0)
    {
        return true;
    }
    m_vKernelArgInfo.resize(nArguments);

    const CShaderDebuggerBuffer* pConstants = GetGlobalResultsBuffer(ByName("cb1"));
    if (pConstants == nullptr || pConstants->GetSubResource(0) == nullptr)
    {
        return false;
    }
    for (unsigned int i = 0; i < nArguments; ++i)
    {
        if (!InitArgument(kernel, i, *pConstants, m_vKernelArgInfo[i]))
        {
            return false;
        }
    }
    return true;
}

bool CShaderDebuggerHostCL::InitArgument(cl_kernel kernel, unsigned int nArgument,
                                         const CShaderDebuggerBuffer& constants, KernelArgInfo& info)
{
    std::string strKind;
    if (QueryKernelArgKind(kernel, nArgument, strKind) != CL_SUCCESS)
    {
        return false;
    }
    if (strKind != "globalpointer")
    {
        return true;
    }
    if (ovkclGetKernelArgInfo(kernel, nArgument, OVKCL_KERNEL_ARG_RESOURCE_ID, sizeof(info.uavNum), &info.uavNum,
                              nullptr) != CL_SUCCESS ||
        !GetArgumentMemorySize(kernel, nArgument, info.size))
    {
        return false;
    }

    const std::vector<KernelArgCBEntry>& vSlots = GetDevice()->GetKernelArgCBInfo();
    const size_t nAddressSize = GetDevice()->Uses64BitABI() ? 8 : 4;
    const size_t nConstants = constants.GetSubResourceSize();
    if (nArgument >= vSlots.size() || nConstants < nAddressSize ||
        vSlots[nArgument].m_nOffset > nConstants - nAddressSize)
    {
        return false;
    }
    std::memcpy(&info.baseAddress, constants.GetSubResource(0) + vSlots[nArgument].m_nOffset, nAddressSize);
    return true;
}

CShaderDebuggerBuffer* CShaderDebuggerHostCL::GetArgumentBuffer(size_t nArgument)
{
    return GetGlobalResultsBuffer(ByName("m" + std::to_string(nArgument)));
}

bool CShaderDebuggerHostCL::IsIn(const KernelArgInfo& info, unsigned int uav, memoryAddress address)
{
    return info.size != 0 && info.uavNum == uav && address >= info.baseAddress &&
           address - info.baseAddress < info.size;
}

bool CShaderDebuggerHostCL::GetGlobalMemory(unsigned int uav, memoryAddress address, size_t bufferSize, void* buffer,
                                            size_t* pOutputSize)
{
    for (size_t i = 0; i < m_vKernelArgInfo.size(); ++i)
    {
        const KernelArgInfo& info = m_vKernelArgInfo[i];
        if (!IsIn(info, uav, address))
        {
            continue;
        }
        if (buffer == nullptr && pOutputSize == nullptr)
        {
            continue;
        }

        size_t nOutput = info.size;
        if (buffer != nullptr)
        {
            const CShaderDebuggerBuffer* pBuffer = GetArgumentBuffer(i);
            if (pBuffer == nullptr || pBuffer->GetData() == nullptr || pBuffer->GetSize() != info.size)
            {
                if (m_LogFile.is_open())
                {
                    m_LogFile << "Failed to retrieve Global buffer.\n";
                }
                return false;
            }
            const memoryAddress offset = address - info.baseAddress;
            nOutput = std::min<memoryAddress>(bufferSize, info.size - offset);
            std::memcpy(buffer, pBuffer->GetData() + offset, nOutput);
        }
        if (pOutputSize != nullptr)
        {
            *pOutputSize = nOutput;
        }
        return true;
    }
    return false;
}

bool CShaderDebuggerHostCL::HasGlobalMemory(unsigned int uav, memoryAddress address) const
{
    return std::any_of(m_vKernelArgInfo.begin(), m_vKernelArgInfo.end(),
                       [&](const KernelArgInfo& info) { return IsIn(info, uav, address); });
}

bool CShaderDebuggerHostCL::GetValidGlobalMemoryRegions(size_t numRegions, memoryRegion* regions, size_t* numRegionsRet)
{
    size_t nCount = 0;
    for (const KernelArgInfo& info : m_vKernelArgInfo)
    {
        if (info.size == 0)
        {
            continue;
        }
        if (regions != nullptr && nCount < numRegions)
        {
            regions[nCount] = {info.uavNum, info.baseAddress, info.baseAddress + info.size - 1};
        }
        ++nCount;
    }
    if (numRegionsRet != nullptr)
    {
        *numRegionsRet = nCount;
    }
    return regions == nullptr || nCount <= numRegions;
}

} // namespace OVK_ShaderDebugger
