#include "platform/compiler/ProgramImage.h"
#include "platform/runtime/ApiCall.h"
#include "platform/runtime/Counters.h"
#include "platform/runtime/DeviceBuild.h"

#include <algorithm>
#include <functional>

namespace KestrelPlatform::Runtime
{

namespace
{

/// The work for one device of a program; see DeviceBuild.h.
using DeviceWork = std::function<SDeviceProgram(const SDeviceProgram& before)>;

/// The devices to build for: those of the list, or all of the program's.
cl_int ReadBuildDevices(const CProgramObject& program, cl_uint nDevices, const cl_device_id* phDevices,
                        std::vector<CRef<CDevice>>& vDevices)
{
    if ((nDevices == 0) != (phDevices == nullptr))
    {
        return CL_INVALID_VALUE;
    }
    if (phDevices)
    {
        return ReadDeviceList(nDevices, phDevices, vDevices);
    }
    for (const SDeviceProgram& part : program.GetDevicePrograms())
    {
        vDevices.push_back(part.m_pDevice);
    }
    return CL_SUCCESS;
}

/// Does the work; an exception counts as a failed build.
SDeviceProgram WorkOrFail(const SDeviceProgram& before, const DeviceWork& work)
{
    try
    {
        return work(before);
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

/// Builds for each device. The build is finished when the call returns, even if there is a callback.
bool WorkForAll(CProgramObject& program, const std::vector<CRef<CDevice>>& vDevices, const DeviceWork& work)
{
    bool bOk = true;
    for (const CRef<CDevice>& pDevice : vDevices)
    {
        SDeviceProgram before;
        program.FindDeviceProgram(*pDevice, before);
        SDeviceProgram after = WorkOrFail(before, work);
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

/// The arguments that build and compile calls share.
struct SBuildCall
{
    CRef<CProgramObject> m_pProgram;
    cl_uint m_nDevices;
    const cl_device_id* m_phDevices;
    ProgramNotify m_pNotify;
    void* m_pUser;
};

/// \param nFailure the call's result if the build for a device fails
cl_int Work(const SBuildCall& call, const DeviceWork& work, cl_int nFailure)
{
    std::vector<CRef<CDevice>> vDevices;
    if (const cl_int nError = ReadBuildDevices(*call.m_pProgram, call.m_nDevices, call.m_phDevices, vDevices))
    {
        return nError;
    }
    if (!call.m_pProgram->GetSource() && !HasImages(*call.m_pProgram, vDevices))
    {
        return CL_INVALID_BINARY;
    }
    if (const cl_int nError = call.m_pProgram->BeginBuild(vDevices))
    {
        return nError;
    }
    Count(PLATFORM_COUNTER_BUILDS, 1);
    const bool bOk = WorkForAll(*call.m_pProgram, vDevices, work);
    PostNotify(call.m_pProgram, call.m_pNotify, call.m_pUser);
    return bOk ? CL_SUCCESS : nFailure;
}

cl_int Build(const SBuildCall& call, const char* pszOptions)
{
    if (!call.m_pProgram)
    {
        return CL_INVALID_PROGRAM;
    }
    if (!call.m_pNotify && call.m_pUser)
    {
        return CL_INVALID_VALUE;
    }
    SBuildOptions options;
    if (const cl_int nError = ReadOptions(pszOptions, ParseBuildOptions, CL_INVALID_BUILD_OPTIONS, options))
    {
        return nError;
    }
    return Work(
        call,
        [&](const SDeviceProgram& before) { return BuildForDevice(call.m_pProgram->GetSource(), before, options); },
        CL_BUILD_PROGRAM_FAILURE);
}

/// Reads the texts that a source may include, with their names.
cl_int ReadHeaders(cl_uint nHeaders, const cl_program* phHeaders, const char** ppszNames,
                   std::vector<SSourceHeader>& vHeaders)
{
    if ((nHeaders == 0) != (phHeaders == nullptr) || (nHeaders == 0) != (ppszNames == nullptr))
    {
        return CL_INVALID_VALUE;
    }
    for (cl_uint i = 0; i < nHeaders; ++i)
    {
        const CRef<CProgramObject> pHeader = Lookup<CProgramObject>(phHeaders[i]);
        if (!pHeader || !ppszNames[i])
        {
            return CL_INVALID_VALUE;
        }
        if (!pHeader->GetSource())
        {
            return CL_INVALID_OPERATION;
        }
        vHeaders.push_back({ppszNames[i], *pHeader->GetSource()});
    }
    return CL_SUCCESS;
}

cl_int Compile(const SBuildCall& call, const char* pszOptions, const std::vector<SSourceHeader>& vHeaders)
{
    if (!call.m_pProgram)
    {
        return CL_INVALID_PROGRAM;
    }
    if (!call.m_pProgram->GetSource())
    {
        return CL_INVALID_OPERATION;
    }
    if (!call.m_pNotify && call.m_pUser)
    {
        return CL_INVALID_VALUE;
    }
    SBuildOptions options;
    if (const cl_int nError = ReadOptions(pszOptions, ParseBuildOptions, CL_INVALID_COMPILER_OPTIONS, options))
    {
        return nError;
    }
    return Work(
        call,
        [&](const SDeviceProgram& before)
        { return CompileForDevice(*call.m_pProgram->GetSource(), before, options, vHeaders); },
        CL_COMPILE_PROGRAM_FAILURE);
}

} // namespace

} // namespace KestrelPlatform::Runtime

using namespace KestrelPlatform::Runtime;

cl_int CL_API_CALL clBuildProgram(cl_program program, cl_uint num_devices, const cl_device_id* device_list,
                                  const char* options, void(CL_CALLBACK* pfn_notify)(cl_program, void*),
                                  void* user_data)
{
    return ApiCall(
        __func__,
        [&] {
            return Build({Lookup<CProgramObject>(program), num_devices, device_list, pfn_notify, user_data}, options);
        });
}

cl_int CL_API_CALL clCompileProgram(cl_program program, cl_uint num_devices, const cl_device_id* device_list,
                                    const char* options, cl_uint num_input_headers, const cl_program* input_headers,
                                    const char** header_include_names, void(CL_CALLBACK* pfn_notify)(cl_program, void*),
                                    void* user_data)
{
    return ApiCall(
        __func__,
        [&]() -> cl_int
        {
            std::vector<KestrelPlatform::SSourceHeader> vHeaders;
            if (const cl_int nError = ReadHeaders(num_input_headers, input_headers, header_include_names, vHeaders))
            {
                return nError;
            }
            return Compile({Lookup<CProgramObject>(program), num_devices, device_list, pfn_notify, user_data}, options,
                           vHeaders);
        });
}
