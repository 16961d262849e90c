#include "binary/KernelArgTracking.h"

#include "binary/KernelArgKinds.h"
#include "core/CLLogger.h"
#include "modules/CLCall.h"
#include "modules/CLDispatchTable.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <new>
#include <utility>

#include <boost/thread/lock_guard.hpp>
#include <boost/thread/mutex.hpp>

namespace OVK_ShaderDebugger
{

namespace
{

std::map<cl_kernel, KernelInfo> g_mapKernelToInfo;

/// Guards the map and every record in it. Nothing that is called under it takes it again.
boost::mutex g_mutexKernelToInfo;

typedef boost::lock_guard<boost::mutex> CLock;

std::vector<unsigned char> BytesOf(const void* pValue, size_t nSize)
{
    const auto* pBytes = static_cast<const unsigned char*>(pValue);
    return pBytes != nullptr ? std::vector<unsigned char>(pBytes, pBytes + nSize) : std::vector<unsigned char>();
}

} // namespace

KernelInfo::ArgInfo::ArgInfo(const void* pValue, size_t nSize, ArgType type, unsigned int nResourceId)
    : m_vArgValue(BytesOf(pValue, nSize)), m_nArgSize(nSize), m_ArgType(type), m_nResourceId(nResourceId)
{
}

void KernelInfo::ArgInfo::SetArgData(const void* pValue, size_t nSize)
{
    // The bytes may be those of the last value.
    m_vArgValue = BytesOf(pValue, nSize);
    m_nArgSize = nSize;
}

namespace
{

/// Kinds that can't be read stay unknown: only a session on the kernel fails for it.
void FillArgKinds(cl_program program, cl_kernel kernel, KernelInfo::ArgInfoArrayType& vArguments)
{
    std::string strKernelName;
    std::vector<std::vector<char>> vvBinaries;
    if (GetKernelName(kernel, strKernelName) && GetProgramBinaries(program, &vvBinaries))
    {
        GetKernelArgTypes(strKernelName, vArguments, vvBinaries);
    }
}

/// Records a kernel anew, with what its program tells of its arguments.
/// \return false if the count of arguments can't be queried or memory runs out
bool AddKernelToMap(cl_program program, cl_kernel kernel)
{
    const CLock lock(g_mutexKernelToInfo);
    g_mapKernelToInfo.erase(kernel);

    cl_uint nNumArgs = 0;
    if (!GetNumKernelArgs(kernel, nNumArgs))
    {
        return false;
    }
    try
    {
        KernelInfo info;
        info.GetArgInfo().resize(nNumArgs);
        info.SetHasGPUDevice(ProgramHasGPUDevice(program));
        if (info.GetHasGPUDevice())
        {
            FillArgKinds(program, kernel, info.GetArgInfo());
        }
        g_mapKernelToInfo[kernel] = std::move(info);
    }
    catch (const std::bad_alloc&)
    {
        return false;
    }
    return true;
}

bool RemoveKernelFromMap(cl_kernel kernel)
{
    const CLock lock(g_mutexKernelToInfo);
    return g_mapKernelToInfo.erase(kernel) != 0;
}

/// The record of an argument, under the lock that the caller holds.
cl_int FindArgument(cl_kernel kernel, cl_uint arg_index, const KernelInfo::ArgInfo** ppArgument)
{
    const auto iter = g_mapKernelToInfo.find(kernel);
    if (iter == g_mapKernelToInfo.end())
    {
        return CL_INVALID_KERNEL;
    }
    const KernelInfo::ArgInfoArrayType& vArguments = iter->second.GetArgInfo();
    if (arg_index >= vArguments.size())
    {
        return CL_INVALID_ARG_INDEX;
    }
    *ppArgument = &vArguments[arg_index];
    return CL_SUCCESS;
}

/// 0 if it can't be queried, so that the record stays.
cl_uint GetReferenceCount(cl_kernel kernel)
{
    cl_uint nCount = 0;
    const bool bKnown = g_CLDispatchTable.GetKernelInfo != nullptr &&
                        g_CLDispatchTable.GetKernelInfo(kernel, CL_KERNEL_REFERENCE_COUNT, sizeof(nCount), &nCount,
                                                        nullptr) == CL_SUCCESS;
    return bKnown ? nCount : 0;
}

cl_int ReleaseKernel(cl_kernel kernel)
{
    return CallCL(g_CLDispatchTable.ReleaseKernel, kernel);
}

/// Undoes a call that made several kernels when the record of one couldn't be made; those before it have a record.
void UndoKernels(cl_kernel* kernels, cl_uint nRecorded, cl_uint nCreated)
{
    for (cl_uint j = 0; j < nCreated; ++j)
    {
        if (j < nRecorded)
        {
            CLD_AssertText(RemoveKernelFromMap(kernels[j]), "RemoveKernelFromMap( kernels[j] )");
        }
        ReleaseKernel(kernels[j]);
        kernels[j] = nullptr;
    }
}

/// Gives a text as the OpenCL queries do, but cuts it where its room ends.
void ReturnText(const std::string& strText, size_t param_value_size, void* param_value, size_t* param_value_size_ret)
{
    size_t nGiven = strText.size() + 1;
    if (param_value != nullptr)
    {
        nGiven = std::min(nGiven, param_value_size);
        if (nGiven > 0)
        {
            std::memcpy(param_value, strText.data(), nGiven - 1);
            static_cast<char*>(param_value)[nGiven - 1] = 0;
        }
    }
    if (param_value_size_ret != nullptr)
    {
        *param_value_size_ret = nGiven;
    }
}

cl_int ReturnResourceId(unsigned int nResourceId, size_t param_value_size, void* param_value,
                        size_t* param_value_size_ret)
{
    if (param_value_size_ret != nullptr)
    {
        *param_value_size_ret = sizeof(nResourceId);
    }
    if (param_value == nullptr || param_value_size != sizeof(nResourceId))
    {
        return CL_INVALID_VALUE;
    }
    std::memcpy(param_value, &nResourceId, sizeof(nResourceId));
    return CL_SUCCESS;
}

const char* GetKindText(KernelInfo::ArgInfo::ArgType type)
{
    switch (type)
    {
    case KernelInfo::ArgInfo::ARG_IMAGE:
        return "image";
    case KernelInfo::ArgInfo::ARG_VALUE:
        return "value";
    case KernelInfo::ArgInfo::ARG_GLOBAL_POINTER:
        return "globalpointer";
    case KernelInfo::ArgInfo::ARG_LOCAL_POINTER:
        return "localpointer";
    case KernelInfo::ArgInfo::ARG_COUNTER:
        return "counter";
    default:
        return "unknown";
    }
}

} // namespace

cl_kernel InterceptCreateKernel(cl_program program, const char* kernel_name, cl_int* errcode_ret)
{
    cl_int nCode = s_nMissingEntry;
    cl_kernel kernel = nullptr;
    if (g_CLDispatchTable.CreateKernel != nullptr)
    {
        kernel = g_CLDispatchTable.CreateKernel(program, kernel_name, &nCode);
    }
    if (kernel != nullptr && !AddKernelToMap(program, kernel))
    {
        ReleaseKernel(kernel);
        kernel = nullptr;
        nCode = CL_OUT_OF_HOST_MEMORY;
    }
    if (errcode_ret != nullptr)
    {
        *errcode_ret = nCode;
    }
    return kernel;
}

cl_int InterceptCreateKernelsInProgram(cl_program program, cl_uint num_kernels, cl_kernel* kernels,
                                       cl_uint* num_kernels_ret)
{
    cl_uint nNumKernels = 0;
    cl_int nCode = s_nMissingEntry;
    if (g_CLDispatchTable.CreateKernelsInProgram != nullptr)
    {
        nCode = g_CLDispatchTable.CreateKernelsInProgram(program, num_kernels, kernels, &nNumKernels);
    }
    if (num_kernels_ret != nullptr)
    {
        *num_kernels_ret = nNumKernels;
    }
    if (nCode != CL_SUCCESS || kernels == nullptr)
    {
        return nCode;
    }

    const cl_uint nCreated = std::min(num_kernels, nNumKernels);
    for (cl_uint i = 0; i < nCreated; ++i)
    {
        if (!AddKernelToMap(program, kernels[i]))
        {
            UndoKernels(kernels, i, nCreated);
            return CL_OUT_OF_HOST_MEMORY;
        }
    }
    return CL_SUCCESS;
}

cl_int InterceptRetainKernel(cl_kernel kernel)
{
    return CallCL(g_CLDispatchTable.RetainKernel, kernel);
}

cl_int InterceptReleaseKernel(cl_kernel kernel)
{
    const bool bIsLast = GetReferenceCount(kernel) == 1;
    const cl_int nCode = ReleaseKernel(kernel);
    if (nCode == CL_SUCCESS && bIsLast)
    {
        CLD_AssertText(RemoveKernelFromMap(kernel), "iter != g_mapKernelToInfo.end()");
    }
    return nCode;
}

cl_int InterceptSetKernelArg(cl_kernel kernel, cl_uint arg_index, size_t arg_size, const void* arg_value)
{
    const cl_int nCode = CallCL(g_CLDispatchTable.SetKernelArg, kernel, arg_index, arg_size, arg_value);
    if (nCode != CL_SUCCESS)
    {
        return nCode;
    }

    const CLock lock(g_mutexKernelToInfo);
    const auto iter = g_mapKernelToInfo.find(kernel);
    if (CLD_Assert(iter != g_mapKernelToInfo.end()) && CLD_Assert(arg_index < iter->second.GetArgInfo().size()))
    {
        iter->second.GetArgInfo()[arg_index].SetArgData(arg_value, arg_size);
    }
    return nCode;
}

size_t CountRecordedArgs(cl_kernel kernel)
{
    const CLock lock(g_mutexKernelToInfo);
    const auto iter = g_mapKernelToInfo.find(kernel);
    return iter != g_mapKernelToInfo.end() ? iter->second.GetArgInfo().size() : 0;
}

cl_int ovkclGetKernelArg(cl_kernel kernel, cl_uint arg_index, const void** arg_value_ret, size_t* arg_size_ret)
{
    const CLock lock(g_mutexKernelToInfo);
    const KernelInfo::ArgInfo* pArgument = nullptr;
    const cl_int nCode = FindArgument(kernel, arg_index, &pArgument);
    if (nCode != CL_SUCCESS)
    {
        return nCode;
    }
    if (arg_value_ret != nullptr)
    {
        *arg_value_ret = pArgument->GetArgValue();
    }
    if (arg_size_ret != nullptr)
    {
        *arg_size_ret = pArgument->GetArgSize();
    }
    return CL_SUCCESS;
}

cl_int ovkclGetKernelArgInfo(cl_kernel kernel, cl_uint arg_index, cl_kernel_arg_info param_name,
                             size_t param_value_size, void* param_value, size_t* param_value_size_ret)
{
    const CLock lock(g_mutexKernelToInfo);
    const KernelInfo::ArgInfo* pArgument = nullptr;
    const cl_int nCode = FindArgument(kernel, arg_index, &pArgument);
    if (nCode != CL_SUCCESS)
    {
        return nCode;
    }

    switch (param_name)
    {
    case OVKCL_KERNEL_ARG_ADDRESS_QUALIFIER:
    case OVKCL_KERNEL_ARG_ACCESS_QUALIFIER:
    case OVKCL_KERNEL_ARG_TYPE_NAME:
        return OVKCL_KERNEL_ARG_INFO_NOT_KEPT;
    case OVKCL_KERNEL_ARG_NAME:
        ReturnText(pArgument->GetArgName(), param_value_size, param_value, param_value_size_ret);
        return CL_SUCCESS;
    case OVKCL_KERNEL_ARG_KIND:
        ReturnText(GetKindText(pArgument->GetArgType()), param_value_size, param_value, param_value_size_ret);
        return CL_SUCCESS;
    case OVKCL_KERNEL_ARG_RESOURCE_ID:
        return ReturnResourceId(pArgument->GetArgResourceId(), param_value_size, param_value, param_value_size_ret);
    default:
        return CL_INVALID_VALUE;
    }
}

} // namespace OVK_ShaderDebugger
