#include "binary/KernelArgKinds.h"

#include "binary/CLMetadata.h"
#include "binary/ElfUtils.h"
#include "core/CLLogger.h"
#include "modules/CLDispatchTable.h"

#include <algorithm>

namespace OVK_ShaderDebugger
{

namespace
{

/// A value of fixed size. \return false if the entry is missing or its call fails
template <class Entry, class Object, class Value>
bool Query(Entry pEntry, Object object, cl_uint nParameter, Value& value)
{
    return pEntry != nullptr && pEntry(object, nParameter, sizeof(Value), &value, nullptr) == CL_SUCCESS;
}

/// A list of nCount values.
template <class Entry, class Object, class Value>
bool QueryList(Entry pEntry, Object object, cl_uint nParameter, size_t nCount, std::vector<Value>& vValues)
{
    vValues.assign(nCount, Value());
    return pEntry != nullptr &&
           pEntry(object, nParameter, nCount * sizeof(Value), vValues.data(), nullptr) == CL_SUCCESS;
}

bool GetProgramDevices(cl_program program, std::vector<cl_device_id>& vDevices)
{
    cl_uint nNumDevices = 0;
    return Query(g_CLDispatchTable.GetProgramInfo, program, CL_PROGRAM_NUM_DEVICES, nNumDevices) && nNumDevices != 0 &&
           QueryList(g_CLDispatchTable.GetProgramInfo, program, CL_PROGRAM_DEVICES, nNumDevices, vDevices);
}

bool IsGPU(cl_device_id device)
{
    cl_device_type nType = 0;
    return Query(g_CLDispatchTable.GetDeviceInfo, device, CL_DEVICE_TYPE, nType) && nType == CL_DEVICE_TYPE_GPU;
}

bool IsOneOf(const std::string& strText, std::initializer_list<const char*> texts)
{
    return std::find(texts.begin(), texts.end(), strText) != texts.end();
}

void Fill(KernelInfo::ArgInfo& argument, KernelInfo::ArgInfo::ArgType type, const std::string& strName,
          unsigned int nResourceId)
{
    argument.SetArgType(type);
    argument.SetArgName(strName);
    argument.SetArgResourceId(nResourceId);
}

void FillPointer(KernelInfo::ArgInfo& argument, const CCLMetadataPointerEntry& pointer)
{
    const std::string strMemoryType = pointer.GetMemoryType();
    if (IsOneOf(strMemoryType, {"uav", "g", "c", "hc", "uc"}))
    {
        Fill(argument, KernelInfo::ArgInfo::ARG_GLOBAL_POINTER, pointer.GetArgumentName(), pointer.GetBufferNumber());
    }
    else if (IsOneOf(strMemoryType, {"hl", "l"}))
    {
        Fill(argument, KernelInfo::ArgInfo::ARG_LOCAL_POINTER, pointer.GetArgumentName(), pointer.GetBufferNumber());
    }
    else
    {
        CLD_Break("Pointer argument to unsupported memory type");
    }
}

void FillFromEntry(KernelInfo::ArgInfo& argument, const CCLMetadataEntry* pEntry)
{
    if (const auto* pImage = dynamic_cast<const CCLMetadataImageEntry*>(pEntry))
    {
        Fill(argument, KernelInfo::ArgInfo::ARG_IMAGE, pImage->GetArgumentName(), pImage->GetId());
    }
    else if (const auto* pValue = dynamic_cast<const CCLMetadataValueEntry*>(pEntry))
    {
        Fill(argument, KernelInfo::ArgInfo::ARG_VALUE, pValue->GetArgumentName(), 0);
    }
    else if (const auto* pSampler = dynamic_cast<const CCLMetadataSamplerEntry*>(pEntry))
    {
        // A handle that is handed on as it is.
        Fill(argument, KernelInfo::ArgInfo::ARG_VALUE, pSampler->GetArgumentName(), 0);
    }
    else if (const auto* pPointer = dynamic_cast<const CCLMetadataPointerEntry*>(pEntry))
    {
        FillPointer(argument, *pPointer);
    }
    else if (const auto* pCounter = dynamic_cast<const CCLMetadataCounterEntry*>(pEntry))
    {
        Fill(argument, KernelInfo::ArgInfo::ARG_COUNTER, pCounter->GetArgumentName(), argument.GetArgResourceId());
    }
}

} // namespace

bool GetNumKernelArgs(cl_kernel kernel, cl_uint& nNumArgs)
{
    return Query(g_CLDispatchTable.GetKernelInfo, kernel, CL_KERNEL_NUM_ARGS, nNumArgs);
}

bool GetKernelName(cl_kernel kernel, std::string& strKernelName)
{
    const cl_api_clGetKernelInfo pEntry = g_CLDispatchTable.GetKernelInfo;
    size_t nSize = 0;
    std::vector<char> vName;
    if (pEntry == nullptr || pEntry(kernel, CL_KERNEL_FUNCTION_NAME, 0, nullptr, &nSize) != CL_SUCCESS ||
        !QueryList(pEntry, kernel, CL_KERNEL_FUNCTION_NAME, nSize, vName))
    {
        return false;
    }
    strKernelName.assign(vName.begin(), std::find(vName.begin(), vName.end(), '\0'));
    return true;
}

bool ProgramHasGPUDevice(cl_program program)
{
    std::vector<cl_device_id> vDevices;
    return GetProgramDevices(program, vDevices) && std::any_of(vDevices.begin(), vDevices.end(), IsGPU);
}

bool GetProgramBinaries(cl_program program, std::vector<std::vector<char>>* vvBinaries)
{
    const cl_api_clGetProgramInfo pEntry = g_CLDispatchTable.GetProgramInfo;
    std::vector<cl_device_id> vDevices;
    std::vector<size_t> vSizes;
    if (vvBinaries == nullptr || !GetProgramDevices(program, vDevices) ||
        !QueryList(pEntry, program, CL_PROGRAM_BINARY_SIZES, vDevices.size(), vSizes))
    {
        return false;
    }

    std::vector<std::vector<char>> vvAll;
    std::vector<char*> vPointers;
    for (size_t nSize : vSizes)
    {
        vvAll.emplace_back(nSize);
        vPointers.push_back(nSize == 0 ? nullptr : vvAll.back().data());
    }
    if (pEntry(program, CL_PROGRAM_BINARIES, vPointers.size() * sizeof(char*), vPointers.data(), nullptr) != CL_SUCCESS)
    {
        return false;
    }
    for (size_t nDevice = 0; nDevice < vDevices.size(); ++nDevice)
    {
        if (!vvAll[nDevice].empty() && IsGPU(vDevices[nDevice]))
        {
            vvBinaries->push_back(std::move(vvAll[nDevice]));
        }
    }
    return true;
}

bool GetKernelArgTypes(const std::string& strKernelName, KernelInfo::ArgInfoArrayType& vArgArray,
                       const std::vector<std::vector<char>>& vvBinaries)
{
    std::vector<char> vText;
    CCLMetadata metadata;
    if (!CLD_AssertText(!vvBinaries.empty(), "vvBinaries.size() > 0") ||
        !OVK_ElfUtils::GetDataForSymbol(OVK_ElfUtils::GetKernelSymbolName(strKernelName, "metadata"), vvBinaries[0],
                                        &vText) ||
        !metadata.FromString(std::string(vText.begin(), vText.end())))
    {
        return false;
    }
    const std::string strKernelWrapperName = OVK_ElfUtils::GetKernelSymbolName(strKernelName, "kernel");
    if (!CLD_Assert(strKernelWrapperName == metadata.GetFunctionName()))
    {
        return false;
    }

    const std::vector<const CCLMetadataEntry*> vEntries = metadata.GetEntriesByArgument(vArgArray.size());
    const size_t nKnown = std::min(vEntries.size(), vArgArray.size());
    for (size_t nArgument = 0; nArgument < nKnown; ++nArgument)
    {
        FillFromEntry(vArgArray[nArgument], vEntries[nArgument]);
    }
    return true;
}

} // namespace OVK_ShaderDebugger
