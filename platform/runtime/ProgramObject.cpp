#include "platform/runtime/ProgramObject.h"

#include "platform/compiler/ProgramImage.h"
#include "platform/runtime/ApiCall.h"

#include <algorithm>
#include <cstring>

namespace KestrelPlatform::Runtime
{

namespace
{

cl_int CreateFromSource(cl_context hContext, cl_uint nStrings, const char** ppszStrings, const size_t* pnLengths,
                        cl_program& hProgram)
{
    CRef<CContext> pContext = Lookup<CContext>(hContext);
    if (!pContext)
    {
        return CL_INVALID_CONTEXT;
    }
    if (nStrings == 0 || !ppszStrings)
    {
        return CL_INVALID_VALUE;
    }
    std::string strSource;
    for (cl_uint i = 0; i < nStrings; ++i)
    {
        if (!ppszStrings[i])
        {
            return CL_INVALID_VALUE;
        }
        const size_t nLength = pnLengths ? pnLengths[i] : 0;
        strSource.append(ppszStrings[i], nLength != 0 ? nLength : std::strlen(ppszStrings[i]));
    }
    std::vector<SDeviceProgram> vDevices;
    for (const CRef<CDevice>& pDevice : pContext->GetDevices())
    {
        vDevices.emplace_back();
        vDevices.back().m_pDevice = pDevice;
    }
    hProgram = GiveToClient(MakeObject<CProgramObject>(std::move(pContext), std::move(strSource), std::move(vDevices)));
    return CL_SUCCESS;
}

bool LooksLikeImage(const unsigned char* pImage, size_t nSize)
{
    constexpr size_t nIdentSize = 16;
    return nSize > nIdentSize && std::memcmp(pImage,
                                             "\x7f"
                                             "ELF",
                                             4) == 0;
}

cl_int CheckImage(const unsigned char* pImage, size_t nSize)
{
    if (!pImage || nSize == 0)
    {
        return CL_INVALID_VALUE;
    }
    return LooksLikeImage(pImage, nSize) ? CL_SUCCESS : CL_INVALID_BINARY;
}

/// Reads the devices of a program: all of the context, without duplicates.
cl_int ReadProgramDevices(const CContext& context, cl_uint nDevices, const cl_device_id* phDevices,
                          std::vector<CRef<CDevice>>& vDevices)
{
    if (const cl_int nError = ReadDeviceList(nDevices, phDevices, vDevices))
    {
        return nError;
    }
    for (const CRef<CDevice>& pDevice : vDevices)
    {
        if (!context.HasDevice(*pDevice))
        {
            return CL_INVALID_DEVICE;
        }
    }
    return CL_SUCCESS;
}

cl_int CreateFromBinary(cl_context hContext, cl_uint nDevices, const cl_device_id* phDevices, const size_t* pnLengths,
                        const unsigned char** ppImages, cl_int* pnStatus, cl_program& hProgram)
{
    CRef<CContext> pContext = Lookup<CContext>(hContext);
    if (!pContext)
    {
        return CL_INVALID_CONTEXT;
    }
    std::vector<CRef<CDevice>> vDevices;
    if (const cl_int nError = ReadProgramDevices(*pContext, nDevices, phDevices, vDevices))
    {
        return nError;
    }
    if (!pnLengths || !ppImages)
    {
        return CL_INVALID_VALUE;
    }

    cl_int nResult = CL_SUCCESS;
    std::vector<SDeviceProgram> vPrograms;
    for (cl_uint i = 0; i < nDevices; ++i)
    {
        const cl_int nStatus = CheckImage(ppImages[i], pnLengths[i]);
        if (pnStatus)
        {
            pnStatus[i] = nStatus;
        }
        if (nStatus != CL_SUCCESS)
        {
            nResult = nStatus;
            continue;
        }
        SDeviceProgram program;
        program.m_pDevice = vDevices[i];
        program.m_eBinaryType = BinaryType(GetImageType(reinterpret_cast<const char*>(ppImages[i]), pnLengths[i]));
        program.m_pImage = std::make_shared<CProgramImage>(std::vector<char>(ppImages[i], ppImages[i] + pnLengths[i]));
        vPrograms.push_back(std::move(program));
    }
    if (nResult != CL_SUCCESS)
    {
        return nResult;
    }
    hProgram = GiveToClient(MakeObject<CProgramObject>(std::move(pContext), std::nullopt, std::move(vPrograms)));
    return CL_SUCCESS;
}

cl_int GetBinaries(const std::vector<SDeviceProgram>& vPrograms, const SInfoQuery& query)
{
    const size_t nSize = vPrograms.size() * sizeof(unsigned char*);
    if (query.m_pValue && query.m_nSize < nSize)
    {
        return CL_INVALID_VALUE;
    }
    auto* ppImages = static_cast<unsigned char**>(query.m_pValue);
    for (size_t i = 0; ppImages && i < vPrograms.size(); ++i)
    {
        if (ppImages[i] && vPrograms[i].m_pImage)
        {
            const std::vector<char>& vImage = vPrograms[i].m_pImage->GetBytes();
            std::memcpy(ppImages[i], vImage.data(), vImage.size());
        }
    }
    if (query.m_pnSizeRet)
    {
        *query.m_pnSizeRet = nSize;
    }
    return CL_SUCCESS;
}

/// The kernels of the first device that has an executable; null if none has.
const ExecutableKernels* FindExecutable(const std::vector<SDeviceProgram>& vPrograms)
{
    for (const SDeviceProgram& program : vPrograms)
    {
        if (program.m_eStatus == CL_BUILD_SUCCESS && program.m_eBinaryType == CL_PROGRAM_BINARY_TYPE_EXECUTABLE)
        {
            return &program.m_vKernels;
        }
    }
    return nullptr;
}

std::string JoinNames(const ExecutableKernels& vKernels)
{
    std::string strNames;
    for (const auto& pKernel : vKernels)
    {
        strNames += (strNames.empty() ? "" : ";") + pKernel->m_Compiled.strName;
    }
    return strNames;
}

} // namespace

cl_program_binary_type BinaryType(EImageType eType)
{
    switch (eType)
    {
    case EImageType::Object:
        return CL_PROGRAM_BINARY_TYPE_COMPILED_OBJECT;
    case EImageType::Library:
        return CL_PROGRAM_BINARY_TYPE_LIBRARY;
    case EImageType::Executable:
        break;
    }
    return CL_PROGRAM_BINARY_TYPE_EXECUTABLE;
}

std::vector<SDeviceProgram> CProgramObject::GetDevicePrograms() const
{
    std::lock_guard<std::mutex> lock(m_Mutex);
    return m_vDevices;
}

bool CProgramObject::FindDeviceProgram(const CDevice& device, SDeviceProgram& program) const
{
    std::lock_guard<std::mutex> lock(m_Mutex);
    const auto it =
        std::find_if(m_vDevices.begin(), m_vDevices.end(),
                     [&device](const SDeviceProgram& candidate) { return candidate.m_pDevice.Get() == &device; });
    if (it == m_vDevices.end())
    {
        return false;
    }
    program = *it;
    return true;
}

SDeviceProgram* CProgramObject::Find(const CDevice& device)
{
    for (SDeviceProgram& program : m_vDevices)
    {
        if (program.m_pDevice.Get() == &device)
        {
            return &program;
        }
    }
    return nullptr;
}

cl_int CProgramObject::BeginBuild(const std::vector<CRef<CDevice>>& vDevices)
{
    std::lock_guard<std::mutex> lock(m_Mutex);
    std::vector<SDeviceProgram*> vPrograms;
    for (const CRef<CDevice>& pDevice : vDevices)
    {
        vPrograms.push_back(Find(*pDevice));
        if (!vPrograms.back())
        {
            return CL_INVALID_DEVICE;
        }
        if (vPrograms.back()->m_eStatus == CL_BUILD_IN_PROGRESS)
        {
            return CL_INVALID_OPERATION;
        }
    }
    if (m_nKernels != 0)
    {
        return CL_INVALID_OPERATION;
    }
    for (SDeviceProgram* pProgram : vPrograms)
    {
        pProgram->m_eStatus = CL_BUILD_IN_PROGRESS;
    }
    return CL_SUCCESS;
}

void CProgramObject::EndBuild(SDeviceProgram program)
{
    std::lock_guard<std::mutex> lock(m_Mutex);
    *Find(*program.m_pDevice) = std::move(program);
}

void CProgramObject::CountKernel(int nChange)
{
    std::lock_guard<std::mutex> lock(m_Mutex);
    m_nKernels += nChange;
}

cl_int CProgramObject::GetInfo(cl_program_info eInfo, const SInfoQuery& query)
{
    const std::vector<SDeviceProgram> vPrograms = GetDevicePrograms();
    switch (eInfo)
    {
    case CL_PROGRAM_REFERENCE_COUNT:
        return query.Value(GetClientReferences());
    case CL_PROGRAM_CONTEXT:
        return query.Value(HandleOf(m_pContext));
    case CL_PROGRAM_NUM_DEVICES:
        return query.Value(static_cast<cl_uint>(vPrograms.size()));
    case CL_PROGRAM_DEVICES:
    {
        std::vector<cl_device_id> vhDevices;
        for (const SDeviceProgram& program : vPrograms)
        {
            vhDevices.push_back(HandleOf(program.m_pDevice));
        }
        return query.Array(vhDevices);
    }
    case CL_PROGRAM_SOURCE:
        return query.String(m_Source.value_or(""));
    case CL_PROGRAM_BINARY_SIZES:
    {
        std::vector<size_t> vSizes;
        for (const SDeviceProgram& program : vPrograms)
        {
            vSizes.push_back(program.m_pImage ? program.m_pImage->GetBytes().size() : 0);
        }
        return query.Array(vSizes);
    }
    case CL_PROGRAM_BINARIES:
        return GetBinaries(vPrograms, query);
    case CL_PROGRAM_NUM_KERNELS:
    case CL_PROGRAM_KERNEL_NAMES:
    {
        const ExecutableKernels* pKernels = FindExecutable(vPrograms);
        if (!pKernels)
        {
            return CL_INVALID_PROGRAM_EXECUTABLE;
        }
        return eInfo == CL_PROGRAM_NUM_KERNELS ? query.Value<size_t>(pKernels->size())
                                               : query.String(JoinNames(*pKernels));
    }
    default:
        return CL_INVALID_VALUE;
    }
}

cl_int CProgramObject::GetBuildInfo(const CDevice& device, cl_program_build_info eInfo, const SInfoQuery& query) const
{
    SDeviceProgram program;
    if (!FindDeviceProgram(device, program))
    {
        return CL_INVALID_DEVICE;
    }
    switch (eInfo)
    {
    case CL_PROGRAM_BUILD_STATUS:
        return query.Value(program.m_eStatus);
    case CL_PROGRAM_BUILD_OPTIONS:
        return query.String(program.m_strOptions);
    case CL_PROGRAM_BUILD_LOG:
        return query.String(program.m_strLog);
    case CL_PROGRAM_BINARY_TYPE:
        return query.Value(program.m_eBinaryType);
    default:
        return CL_INVALID_VALUE;
    }
}

} // namespace KestrelPlatform::Runtime

using namespace KestrelPlatform::Runtime;

cl_program CL_API_CALL clCreateProgramWithSource(cl_context context, cl_uint count, const char** strings,
                                                 const size_t* lengths, cl_int* errcode_ret)
{
    return ApiCreate<cl_program>(__func__, errcode_ret,
                                 [&](cl_program& hProgram)
                                 { return CreateFromSource(context, count, strings, lengths, hProgram); });
}

cl_program CL_API_CALL clCreateProgramWithBinary(cl_context context, cl_uint num_devices,
                                                 const cl_device_id* device_list, const size_t* lengths,
                                                 const unsigned char** binaries, cl_int* binary_status,
                                                 cl_int* errcode_ret)
{
    return ApiCreate<cl_program>(
        __func__, errcode_ret,
        [&](cl_program& hProgram)
        { return CreateFromBinary(context, num_devices, device_list, lengths, binaries, binary_status, hProgram); });
}

cl_program CL_API_CALL clCreateProgramWithBuiltInKernels(cl_context context, cl_uint num_devices,
                                                         const cl_device_id* device_list, const char* kernel_names,
                                                         cl_int* errcode_ret)
{
    return ApiCreate<cl_program>(__func__, errcode_ret,
                                 [&](cl_program&) -> cl_int
                                 {
                                     const CRef<CContext> pContext = Lookup<CContext>(context);
                                     if (!pContext)
                                     {
                                         return CL_INVALID_CONTEXT;
                                     }
                                     std::vector<CRef<CDevice>> vDevices;
                                     if (const cl_int nError =
                                             ReadProgramDevices(*pContext, num_devices, device_list, vDevices))
                                     {
                                         return nError;
                                     }
                                     // No device has built-in kernels, so no name is valid.
                                     return CL_INVALID_VALUE;
                                 });
}

cl_int CL_API_CALL clRetainProgram(cl_program program)
{
    return ApiCall(__func__, [&] { return RetainHandle<CProgramObject>(program, CL_INVALID_PROGRAM); });
}

cl_int CL_API_CALL clReleaseProgram(cl_program program)
{
    return ApiCall(__func__, [&] { return ReleaseHandle<CProgramObject>(program, CL_INVALID_PROGRAM); });
}

cl_int CL_API_CALL clGetProgramInfo(cl_program program, cl_program_info param_name, size_t param_value_size,
                                    void* param_value, size_t* param_value_size_ret)
{
    return ApiCall(__func__,
                   [&]() -> cl_int
                   {
                       const CRef<CProgramObject> pProgram = Lookup<CProgramObject>(program);
                       if (!pProgram)
                       {
                           return CL_INVALID_PROGRAM;
                       }
                       return pProgram->GetInfo(param_name, {param_value_size, param_value, param_value_size_ret});
                   });
}

cl_int CL_API_CALL clGetProgramBuildInfo(cl_program program, cl_device_id device, cl_program_build_info param_name,
                                         size_t param_value_size, void* param_value, size_t* param_value_size_ret)
{
    return ApiCall(
        __func__,
        [&]() -> cl_int
        {
            const CRef<CProgramObject> pProgram = Lookup<CProgramObject>(program);
            if (!pProgram)
            {
                return CL_INVALID_PROGRAM;
            }
            const CRef<CDevice> pDevice = Lookup<CDevice>(device);
            if (!pDevice)
            {
                return CL_INVALID_DEVICE;
            }
            return pProgram->GetBuildInfo(*pDevice, param_name, {param_value_size, param_value, param_value_size_ret});
        });
}
