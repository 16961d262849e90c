#include "platform/compiler/ProgramImage.h"
#include "platform/runtime/ApiCall.h"
#include "platform/runtime/CallbackThread.h"
#include "platform/runtime/Counters.h"
#include "platform/runtime/Program.h"

#include <algorithm>
#include <sstream>

namespace KestrelPlatform::Runtime
{

namespace
{

using ProgramNotify = void(CL_CALLBACK*)(cl_program, void*);

/// What went wrong with an instruction, with the line that it stands on if that is known: of the source, or of the IL
/// text of a binary.
std::string DescribeDecodeError(const SCompiledKernel& kernel, const SDecodeError& error,
                                const std::vector<uint32_t>& vSourceLines)
{
    std::string strPlace = "instruction " + std::to_string(error.nInstruction);
    if (error.nInstruction < kernel.vLines.size())
    {
        const uint32_t nLine = kernel.vLines[error.nInstruction];
        const bool bSource = nLine > 0 && nLine <= vSourceLines.size();
        strPlace = "line " + std::to_string(bSource ? vSourceLines[nLine - 1] : nLine);
    }
    return "kernel " + kernel.strName + ": " + strPlace + ": " + error.strMessage + "\n";
}

/// Decodes the kernels of a build. \return false with the reason added to the log
bool DecodeKernels(SBuildResult& build, ExecutableKernels& vKernels, std::string& strLog)
{
    for (SCompiledKernel& compiled : build.vKernels)
    {
        SDecodeError error;
        auto pKernel = std::make_shared<SExecutableKernel>();
        pKernel->m_pDecoded = DecodeProgram(compiled.vTokens.data(), compiled.vTokens.size(), error);
        if (!pKernel->m_pDecoded)
        {
            strLog += DescribeDecodeError(compiled, error, build.vSourceLines);
            return false;
        }
        pKernel->m_compiled = std::move(compiled);
        vKernels.push_back(std::move(pKernel));
    }
    return true;
}

/// The client's options for a build; the code for a wrong one differs by call.
cl_int ReadOptions(const char* pszOptions, cl_int nInvalid, std::string& strOptions, SBuildOptions& options)
{
    strOptions = pszOptions ? pszOptions : "";
    std::string strUnknown;
    if (IsBuildOptionRefused(strOptions) || !ParseBuildOptions(strOptions, options, strUnknown))
        return nInvalid;
    return CL_SUCCESS;
}

/// The devices that a build is for: those of the list, or all of the program.
cl_int ReadBuildDevices(const CProgramObject& program, cl_uint nDevices, const cl_device_id* phDevices,
                        std::vector<CRef<CDevice>>& vDevices)
{
    if ((nDevices == 0) != (phDevices == nullptr))
        return CL_INVALID_VALUE;
    if (phDevices)
        return ReadDeviceList(nDevices, phDevices, vDevices);
    for (const SDeviceProgram& part : program.GetDevicePrograms())
        vDevices.push_back(part.m_pDevice);
    return CL_SUCCESS;
}

void PostNotify(const CRef<CProgramObject>& pProgram, ProgramNotify pNotify, void* pUser)
{
    if (pNotify)
        CCallbackThread::Post([pProgram, pNotify, pUser] { pNotify(HandleOf(pProgram), pUser); });
}

/// BuildForDevice, with a build that an exception ends recorded as failed.
SDeviceProgram BuildOrFail(const CProgramObject& program, const SDeviceProgram& before, const std::string& strOptions,
                           const SBuildOptions& options, cl_program_binary_type eResult)
{
    try
    {
        return BuildForDevice(program.GetSource(), before, strOptions, options, eResult);
    }
    catch (const std::exception& exception)
    {
        SDeviceProgram failed;
        failed.m_pDevice = before.m_pDevice;
        failed.m_eStatus = CL_BUILD_ERROR;
        failed.m_strLog = std::string("error: ") + exception.what() + "\n";
        return failed;
    }
}

/// Builds for each device. The build is done when the call returns, with a callback too.
bool BuildAll(CProgramObject& program, const std::vector<CRef<CDevice>>& vDevices, const std::string& strOptions,
              const SBuildOptions& options, cl_program_binary_type eResult)
{
    bool bOk = true;
    for (const CRef<CDevice>& pDevice : vDevices)
    {
        SDeviceProgram before;
        program.FindDeviceProgram(*pDevice, before);
        SDeviceProgram after = BuildOrFail(program, before, strOptions, options, eResult);
        bOk &= after.m_eStatus == CL_BUILD_SUCCESS;
        program.EndBuild(std::move(after));
    }
    return bOk;
}

bool HasImages(const CProgramObject& program, const std::vector<CRef<CDevice>>& vDevices)
{
    return std::all_of(vDevices.begin(), vDevices.end(),
                       [&program](const CRef<CDevice>& pDevice)
                       {
                           SDeviceProgram part;
                           return !program.FindDeviceProgram(*pDevice, part) || part.m_pImage;
                       });
}

SBuildResult BuildFromImage(const CProgramImage& image, const SBuildOptions& options, const SDeviceTarget& target)
{
    const std::vector<char>& vBytes = image.GetBytes();
    return BuildFromBinary(vBytes.data(), vBytes.size(), options, target);
}

/// What a build call and a compile call are given.
struct SBuildCall
{
    cl_program m_hProgram;
    cl_uint m_nDevices;
    const cl_device_id* m_phDevices;
    const char* m_pszOptions;
    ProgramNotify m_pNotify;
    void* m_pUser;
};

cl_int Build(const SBuildCall& call, cl_program_binary_type eResult, cl_int nInvalidOptions, cl_int nFailure)
{
    const CRef<CProgramObject> pProgram = Lookup<CProgramObject>(call.m_hProgram);
    if (!pProgram)
        return CL_INVALID_PROGRAM;
    if (!call.m_pNotify && call.m_pUser)
        return CL_INVALID_VALUE;
    std::vector<CRef<CDevice>> vDevices;
    if (const cl_int nError = ReadBuildDevices(*pProgram, call.m_nDevices, call.m_phDevices, vDevices))
        return nError;
    std::string strOptions;
    SBuildOptions options;
    if (const cl_int nError = ReadOptions(call.m_pszOptions, nInvalidOptions, strOptions, options))
        return nError;
    if (!pProgram->GetSource() && !HasImages(*pProgram, vDevices))
        return CL_INVALID_BINARY;
    if (const cl_int nError = pProgram->BeginBuild(vDevices))
        return nError;
    Count(PLATFORM_COUNTER_BUILDS, 1);
    const bool bOk = BuildAll(*pProgram, vDevices, strOptions, options, eResult);
    PostNotify(pProgram, call.m_pNotify, call.m_pUser);
    return bOk ? CL_SUCCESS : nFailure;
}

cl_int CheckHeaders(cl_uint nHeaders, const cl_program* phHeaders, const char** ppszNames)
{
    if ((nHeaders == 0) != (phHeaders == nullptr) || (nHeaders == 0) != (ppszNames == nullptr))
        return CL_INVALID_VALUE;
    for (cl_uint i = 0; i < nHeaders; ++i)
        if (!Lookup<CProgramObject>(phHeaders[i]) || !ppszNames[i])
            return CL_INVALID_VALUE;
    return CL_SUCCESS;
}

cl_int Compile(const SBuildCall& call)
{
    const CRef<CProgramObject> pProgram = Lookup<CProgramObject>(call.m_hProgram);
    if (!pProgram)
        return CL_INVALID_PROGRAM;
    if (!pProgram->GetSource())
        return CL_INVALID_OPERATION;
    return Build(call, CL_PROGRAM_BINARY_TYPE_COMPILED_OBJECT, CL_INVALID_COMPILER_OPTIONS, CL_COMPILE_PROGRAM_FAILURE);
}

/// Takes the words out that only a link knows. \return true for a library instead of an executable
bool TakeLinkOptions(const char* pszOptions, std::string& strOthers)
{
    std::istringstream stream(pszOptions ? pszOptions : "");
    bool bLibrary = false;
    for (std::string strWord; stream >> strWord;)
    {
        bLibrary |= strWord == "-create-library";
        if (strWord != "-create-library" && strWord != "-enable-link-options")
            strOthers += strWord + " ";
    }
    return bLibrary;
}

bool IsLinkable(const SDeviceProgram& part)
{
    return part.m_eStatus == CL_BUILD_SUCCESS && (part.m_eBinaryType == CL_PROGRAM_BINARY_TYPE_COMPILED_OBJECT ||
                                                  part.m_eBinaryType == CL_PROGRAM_BINARY_TYPE_LIBRARY);
}

/// One device's part of a linked program. A module of IL is whole in itself, so that one is all that
/// can be linked.
/// \return CL_INVALID_OPERATION if some inputs have an object for the device and some don't,
///         CL_LINK_PROGRAM_FAILURE for several inputs
cl_int LinkForDevice(const std::vector<CRef<CProgramObject>>& vInputs, const CRef<CDevice>& pDevice,
                     cl_program_binary_type eResult, const std::string& strOptions, std::vector<SDeviceProgram>& vParts)
{
    size_t nLinkable = 0;
    SDeviceProgram linked;
    for (const CRef<CProgramObject>& pInput : vInputs)
    {
        SDeviceProgram part;
        if (!pInput->FindDeviceProgram(*pDevice, part) || !IsLinkable(part))
            continue;
        ++nLinkable;
        linked = std::move(part);
    }
    if (nLinkable == 0)
        return CL_SUCCESS;
    if (nLinkable != vInputs.size())
        return CL_INVALID_OPERATION;
    if (nLinkable > 1)
        return CL_LINK_PROGRAM_FAILURE;
    linked.m_eBinaryType = eResult;
    linked.m_strOptions = strOptions;
    vParts.push_back(std::move(linked));
    return CL_SUCCESS;
}

/// What a link call is given.
struct SLinkCall
{
    cl_context m_hContext;
    cl_uint m_nDevices;
    const cl_device_id* m_phDevices;
    const char* m_pszOptions;
    cl_uint m_nInputs;
    const cl_program* m_phInputs;
    ProgramNotify m_pNotify;
    void* m_pUser;
};

cl_int ReadLinkInputs(const SLinkCall& call, const CContext& context, std::vector<CRef<CProgramObject>>& vInputs)
{
    if (call.m_nInputs == 0 || !call.m_phInputs)
        return CL_INVALID_VALUE;
    for (cl_uint i = 0; i < call.m_nInputs; ++i)
    {
        vInputs.push_back(Lookup<CProgramObject>(call.m_phInputs[i]));
        if (!vInputs.back() || &vInputs.back()->GetContext() != &context)
            return CL_INVALID_PROGRAM;
    }
    return CL_SUCCESS;
}

cl_int ReadLinkDevices(const SLinkCall& call, const CContext& context, std::vector<CRef<CDevice>>& vDevices)
{
    if ((call.m_nDevices == 0) != (call.m_phDevices == nullptr))
        return CL_INVALID_VALUE;
    if (!call.m_phDevices)
    {
        vDevices = context.GetDevices();
        return CL_SUCCESS;
    }
    if (const cl_int nError = ReadDeviceList(call.m_nDevices, call.m_phDevices, vDevices))
        return nError;
    const bool bAll = std::all_of(vDevices.begin(), vDevices.end(),
                                  [&context](const CRef<CDevice>& pDevice) { return context.HasDevice(*pDevice); });
    return bAll ? CL_SUCCESS : CL_INVALID_DEVICE;
}

cl_int Link(const SLinkCall& call, cl_program& hProgram)
{
    CRef<CContext> pContext = Lookup<CContext>(call.m_hContext);
    if (!pContext)
        return CL_INVALID_CONTEXT;
    if (!call.m_pNotify && call.m_pUser)
        return CL_INVALID_VALUE;
    std::vector<CRef<CProgramObject>> vInputs;
    if (const cl_int nError = ReadLinkInputs(call, *pContext, vInputs))
        return nError;
    std::vector<CRef<CDevice>> vDevices;
    if (const cl_int nError = ReadLinkDevices(call, *pContext, vDevices))
        return nError;

    std::string strOthers, strOptions;
    SBuildOptions options;
    const bool bLibrary = TakeLinkOptions(call.m_pszOptions, strOthers);
    if (const cl_int nError = ReadOptions(strOthers.c_str(), CL_INVALID_LINKER_OPTIONS, strOptions, options))
        return nError;
    const cl_program_binary_type eResult =
        bLibrary ? CL_PROGRAM_BINARY_TYPE_LIBRARY : CL_PROGRAM_BINARY_TYPE_EXECUTABLE;
    std::vector<SDeviceProgram> vParts;
    for (const CRef<CDevice>& pDevice : vDevices)
        if (const cl_int nError =
                LinkForDevice(vInputs, pDevice, eResult, call.m_pszOptions ? call.m_pszOptions : "", vParts))
            return nError;
    if (vParts.empty())
        return CL_INVALID_OPERATION;
    Count(PLATFORM_COUNTER_BUILDS, 1);
    const CRef<CProgramObject> pProgram =
        MakeObject<CProgramObject>(std::move(pContext), std::nullopt, std::move(vParts));
    hProgram = GiveToClient(pProgram);
    PostNotify(pProgram, call.m_pNotify, call.m_pUser);
    return CL_SUCCESS;
}

} // namespace

SDeviceProgram BuildForDevice(const std::optional<std::string>& source, const SDeviceProgram& before,
                              const std::string& strOptions, const SBuildOptions& options,
                              cl_program_binary_type eResult)
{
    const SDeviceTarget target = before.m_pDevice->GetTarget();
    SBuildResult result =
        source ? BuildFromSource(*source, options, target) : BuildFromImage(*before.m_pImage, options, target);
    SDeviceProgram after;
    after.m_pDevice = before.m_pDevice;
    after.m_strOptions = strOptions;
    after.m_strLog = std::move(result.strLog);
    const bool bOk = result.bOk && DecodeKernels(result, after.m_vKernels, after.m_strLog);
    if (!bOk)
        after.m_vKernels.clear();
    after.m_eStatus = bOk ? CL_BUILD_SUCCESS : CL_BUILD_ERROR;
    after.m_eBinaryType = bOk ? eResult : static_cast<cl_program_binary_type>(CL_PROGRAM_BINARY_TYPE_NONE);
    // A program that was made of an image keeps it, so that it can be built again.
    if (bOk)
        after.m_pImage = std::move(result.pImage);
    else if (!source)
        after.m_pImage = before.m_pImage;
    return after;
}

} // namespace KestrelPlatform::Runtime

using namespace KestrelPlatform::Runtime;

cl_int CL_API_CALL clBuildProgram(cl_program program, cl_uint num_devices, const cl_device_id* device_list,
                                  const char* options, void(CL_CALLBACK* pfn_notify)(cl_program, void*),
                                  void* user_data)
{
    return ApiCall(__func__,
                   [&]
                   {
                       return Build({program, num_devices, device_list, options, pfn_notify, user_data},
                                    CL_PROGRAM_BINARY_TYPE_EXECUTABLE, CL_INVALID_BUILD_OPTIONS,
                                    CL_BUILD_PROGRAM_FAILURE);
                   });
}

cl_int CL_API_CALL clCompileProgram(cl_program program, cl_uint num_devices, const cl_device_id* device_list,
                                    const char* options, cl_uint num_input_headers, const cl_program* input_headers,
                                    const char** header_include_names, void(CL_CALLBACK* pfn_notify)(cl_program, void*),
                                    void* user_data)
{
    return ApiCall(__func__,
                   [&]() -> cl_int
                   {
                       // IL includes nothing, so the headers are checked and then left alone.
                       if (const cl_int nError = CheckHeaders(num_input_headers, input_headers, header_include_names))
                           return nError;
                       return Compile({program, num_devices, device_list, options, pfn_notify, user_data});
                   });
}

cl_program CL_API_CALL clLinkProgram(cl_context context, cl_uint num_devices, const cl_device_id* device_list,
                                     const char* options, cl_uint num_input_programs, const cl_program* input_programs,
                                     void(CL_CALLBACK* pfn_notify)(cl_program, void*), void* user_data,
                                     cl_int* errcode_ret)
{
    return ApiCreate<cl_program>(__func__, errcode_ret,
                                 [&](cl_program& hProgram)
                                 {
                                     return Link({context, num_devices, device_list, options, num_input_programs,
                                                  input_programs, pfn_notify, user_data},
                                                 hProgram);
                                 });
}
