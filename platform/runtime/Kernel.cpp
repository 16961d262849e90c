#include "platform/runtime/Kernel.h"

#include "platform/runtime/ApiCall.h"
#include "platform/runtime/Image.h"
#include "platform/runtime/Sampler.h"

#include <algorithm>
#include <cstring>

namespace KestrelPlatform::Runtime
{

namespace
{

bool SameArguments(const SCompiledKernel& a, const SCompiledKernel& b)
{
    return std::equal(a.vArguments.begin(), a.vArguments.end(), b.vArguments.begin(), b.vArguments.end(),
                      [](const SKernelArgument& x, const SKernelArgument& y)
                      { return x.eKind == y.eKind && x.nSize == y.nSize; });
}

std::shared_ptr<const SExecutableKernel> FindByName(const SDeviceProgram& part, const std::string& strName)
{
    if (part.m_eStatus != CL_BUILD_SUCCESS || part.m_eBinaryType != CL_PROGRAM_BINARY_TYPE_EXECUTABLE)
    {
        return nullptr;
    }
    for (const auto& pKernel : part.m_vKernels)
    {
        if (pKernel->m_Compiled.strName == strName)
        {
            return pKernel;
        }
    }
    return nullptr;
}

bool HasExecutable(const std::vector<SDeviceProgram>& vParts)
{
    return std::any_of(vParts.begin(), vParts.end(),
                       [](const SDeviceProgram& part) {
                           return part.m_eStatus == CL_BUILD_SUCCESS &&
                                  part.m_eBinaryType == CL_PROGRAM_BINARY_TYPE_EXECUTABLE;
                       });
}

/// Collects the executables of a kernel.
/// \return CL_INVALID_KERNEL_NAME if no device has it, CL_INVALID_KERNEL_DEFINITION if its arguments differ
///         between devices
cl_int CollectExecutables(const std::vector<SDeviceProgram>& vParts, const std::string& strName,
                          CKernel::Executables& executables)
{
    for (const SDeviceProgram& part : vParts)
    {
        std::shared_ptr<const SExecutableKernel> pKernel = FindByName(part, strName);
        if (!pKernel)
        {
            continue;
        }
        if (!executables.empty() && !SameArguments(executables.begin()->second->m_Compiled, pKernel->m_Compiled))
        {
            return CL_INVALID_KERNEL_DEFINITION;
        }
        executables.emplace(part.m_pDevice.Get(), std::move(pKernel));
    }
    return executables.empty() ? CL_INVALID_KERNEL_NAME : CL_SUCCESS;
}

cl_int CreateKernel(cl_program hProgram, const char* pszName, cl_kernel& hKernel)
{
    CRef<CProgramObject> pProgram = Lookup<CProgramObject>(hProgram);
    if (!pProgram)
    {
        return CL_INVALID_PROGRAM;
    }
    const std::vector<SDeviceProgram> vParts = pProgram->GetDevicePrograms();
    if (!HasExecutable(vParts))
    {
        return CL_INVALID_PROGRAM_EXECUTABLE;
    }
    if (!pszName)
    {
        return CL_INVALID_VALUE;
    }
    CKernel::Executables executables;
    if (const cl_int nError = CollectExecutables(vParts, pszName, executables))
    {
        return nError;
    }
    hKernel = GiveToClient(MakeObject<CKernel>(std::move(pProgram), std::move(executables)));
    return CL_SUCCESS;
}

/// The names of all kernels, each once, in the order of the first device that has them.
std::vector<std::string> CollectNames(const std::vector<SDeviceProgram>& vParts)
{
    std::vector<std::string> vNames;
    for (const SDeviceProgram& part : vParts)
    {
        for (const auto& pKernel : part.m_vKernels)
        {
            if (std::find(vNames.begin(), vNames.end(), pKernel->m_Compiled.strName) == vNames.end())
            {
                vNames.push_back(pKernel->m_Compiled.strName);
            }
        }
    }
    return vNames;
}

cl_int CreateKernels(cl_program hProgram, cl_uint nKernels, cl_kernel* phKernels, cl_uint* pnKernels)
{
    const CRef<CProgramObject> pProgram = Lookup<CProgramObject>(hProgram);
    if (!pProgram)
    {
        return CL_INVALID_PROGRAM;
    }
    const std::vector<SDeviceProgram> vParts = pProgram->GetDevicePrograms();
    if (!HasExecutable(vParts))
    {
        return CL_INVALID_PROGRAM_EXECUTABLE;
    }
    const std::vector<std::string> vNames = CollectNames(vParts);
    if (phKernels && nKernels < vNames.size())
    {
        return CL_INVALID_VALUE;
    }
    std::vector<CRef<CKernel>> vKernels;
    for (const std::string& strName : vNames)
    {
        CKernel::Executables executables;
        if (CollectExecutables(vParts, strName, executables) == CL_SUCCESS && phKernels)
        {
            vKernels.push_back(MakeObject<CKernel>(pProgram, std::move(executables)));
        }
    }
    for (size_t i = 0; i < vKernels.size(); ++i)
    {
        phKernels[i] = GiveToClient(vKernels[i]);
    }
    if (pnKernels)
    {
        *pnKernels = static_cast<cl_uint>(phKernels ? vKernels.size() : vNames.size());
    }
    return CL_SUCCESS;
}

cl_int ReadValue(const SKernelArgument& argument, size_t nSize, const void* pValue, SArgumentValue& value)
{
    if (!pValue)
    {
        return CL_INVALID_ARG_VALUE;
    }
    if (nSize != argument.nSize)
    {
        return CL_INVALID_ARG_SIZE;
    }
    const auto* pBytes = static_cast<const unsigned char*>(pValue);
    value.m_vBytes.assign(pBytes, pBytes + nSize);
    return CL_SUCCESS;
}

cl_int ReadLocal(size_t nSize, const void* pValue, SArgumentValue& value)
{
    if (pValue)
    {
        return CL_INVALID_ARG_VALUE;
    }
    if (nSize == 0)
    {
        return CL_INVALID_ARG_SIZE;
    }
    value.m_nLocalBytes = nSize;
    return CL_SUCCESS;
}

cl_int ReadSampler(const CContext& context, size_t nSize, const void* pValue, SArgumentValue& value)
{
    if (!pValue)
    {
        return CL_INVALID_ARG_VALUE;
    }
    if (nSize != sizeof(cl_sampler))
    {
        return CL_INVALID_ARG_SIZE;
    }
    cl_sampler hSampler = nullptr;
    std::memcpy(&hSampler, pValue, sizeof(hSampler));
    const CRef<CSampler> pSampler = Lookup<CSampler>(hSampler);
    if (!pSampler || &pSampler->GetContext() != &context)
    {
        return CL_INVALID_SAMPLER;
    }
    value.m_Sampler = pSampler->GetBinding();
    return CL_SUCCESS;
}

/// An image that the kernel only reads must not be write-only, and the other way round.
bool FitsAccess(const SKernelArgument& argument, const CMemObject& mem)
{
    if (argument.eKind != SKernelArgument::Image)
    {
        return true;
    }
    const cl_mem_flags nRefused = argument.eAccess == SKernelArgument::ReadOnly    ? CL_MEM_WRITE_ONLY
                                  : argument.eAccess == SKernelArgument::WriteOnly ? CL_MEM_READ_ONLY
                                                                                   : 0;
    return (mem.GetFlags() & nRefused) == 0;
}

/// A null object may stand for an image too; it reads as 0.
cl_int ReadMem(const CContext& context, const SKernelArgument& argument, size_t nSize, const void* pValue,
               SArgumentValue& value)
{
    const bool bImage = argument.eKind == SKernelArgument::Image;
    if (nSize != sizeof(cl_mem))
    {
        return CL_INVALID_ARG_SIZE;
    }
    if (!pValue)
    {
        return bImage ? CL_INVALID_ARG_VALUE : CL_SUCCESS;
    }
    std::memcpy(&value.m_hMem, pValue, sizeof(value.m_hMem));
    if (!value.m_hMem)
    {
        return CL_SUCCESS;
    }
    const CRef<CMemObject> pMem = Lookup<CMemObject>(value.m_hMem);
    if (!pMem || &pMem->GetContext() != &context || (pMem->AsImage() != nullptr) != bImage)
    {
        return CL_INVALID_MEM_OBJECT;
    }
    value.m_nMemId = pMem->GetId();
    return FitsAccess(argument, *pMem) ? CL_SUCCESS : CL_INVALID_ARG_VALUE;
}

} // namespace

CKernel::CKernel(CRef<CProgramObject> pProgram, Executables executables)
    : CObject(s_eKind), m_pProgram(std::move(pProgram)), m_Executables(std::move(executables)),
      m_vValues(GetArguments().size())
{
    m_pProgram->CountKernel(1);
}

CKernel::~CKernel()
{
    m_pProgram->CountKernel(-1);
}

std::shared_ptr<const SExecutableKernel> CKernel::GetExecutable(const CDevice& device) const
{
    const auto it = m_Executables.find(&device);
    return it == m_Executables.end() ? nullptr : it->second;
}

const std::vector<SKernelArgument>& CKernel::GetArguments() const
{
    return m_Executables.begin()->second->m_Compiled.vArguments;
}

cl_int CKernel::SetArgument(cl_uint nIndex, size_t nSize, const void* pValue)
{
    if (nIndex >= GetArguments().size())
    {
        return CL_INVALID_ARG_INDEX;
    }
    const SKernelArgument& argument = GetArguments()[nIndex];
    SArgumentValue value;
    value.m_bSet = true;
    cl_int nError = CL_SUCCESS;
    switch (argument.eKind)
    {
    case SKernelArgument::Value:
        nError = ReadValue(argument, nSize, pValue, value);
        break;
    case SKernelArgument::LocalPointer:
        nError = ReadLocal(nSize, pValue, value);
        break;
    case SKernelArgument::Sampler:
        nError = ReadSampler(GetContext(), nSize, pValue, value);
        break;
    case SKernelArgument::GlobalPointer:
    case SKernelArgument::ConstantPointer:
    case SKernelArgument::Image:
    case SKernelArgument::Counter:
        nError = ReadMem(GetContext(), argument, nSize, pValue, value);
        break;
    }
    if (nError != CL_SUCCESS)
    {
        return nError;
    }
    std::lock_guard<std::mutex> lock(m_Mutex);
    m_vValues[nIndex] = std::move(value);
    return CL_SUCCESS;
}

std::vector<SArgumentValue> CKernel::GetArgumentValues() const
{
    std::lock_guard<std::mutex> lock(m_Mutex);
    return m_vValues;
}

} // namespace KestrelPlatform::Runtime

using namespace KestrelPlatform::Runtime;

cl_kernel CL_API_CALL clCreateKernel(cl_program program, const char* kernel_name, cl_int* errcode_ret)
{
    return ApiCreate<cl_kernel>(__func__, errcode_ret,
                                [&](cl_kernel& hKernel) { return CreateKernel(program, kernel_name, hKernel); });
}

cl_int CL_API_CALL clCreateKernelsInProgram(cl_program program, cl_uint num_kernels, cl_kernel* kernels,
                                            cl_uint* num_kernels_ret)
{
    return ApiCall(__func__, [&] { return CreateKernels(program, num_kernels, kernels, num_kernels_ret); });
}

cl_int CL_API_CALL clRetainKernel(cl_kernel kernel)
{
    return ApiCall(__func__, [&] { return RetainHandle<CKernel>(kernel, CL_INVALID_KERNEL); });
}

cl_int CL_API_CALL clReleaseKernel(cl_kernel kernel)
{
    return ApiCall(__func__, [&] { return ReleaseHandle<CKernel>(kernel, CL_INVALID_KERNEL); });
}

cl_int CL_API_CALL clSetKernelArg(cl_kernel kernel, cl_uint arg_index, size_t arg_size, const void* arg_value)
{
    return ApiCall(__func__,
                   [&]() -> cl_int
                   {
                       const CRef<CKernel> pKernel = Lookup<CKernel>(kernel);
                       return pKernel ? pKernel->SetArgument(arg_index, arg_size, arg_value) : CL_INVALID_KERNEL;
                   });
}
