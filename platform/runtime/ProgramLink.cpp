#include "platform/compiler/ProgramImage.h"
#include "platform/runtime/ApiCall.h"
#include "platform/runtime/Counters.h"
#include "platform/runtime/DeviceBuild.h"

#include <algorithm>

namespace KestrelPlatform::Runtime
{

namespace
{

bool IsLinkable(const SDeviceProgram& part)
{
    // A program made of a binary can be linked as it is.
    const bool bReady = part.m_eStatus == CL_BUILD_SUCCESS || (part.m_eStatus == CL_BUILD_NONE && part.m_pImage);
    return bReady && (part.m_eBinaryType == CL_PROGRAM_BINARY_TYPE_COMPILED_OBJECT ||
                      part.m_eBinaryType == CL_PROGRAM_BINARY_TYPE_LIBRARY);
}

/// The parts of the inputs for a device.
/// \return CL_INVALID_OPERATION if some inputs have an object for the device and some don't
cl_int FindObjects(const std::vector<CRef<CProgramObject>>& vInputs, const CRef<CDevice>& pDevice,
                   std::vector<SDeviceProgram>& vObjects)
{
    for (const CRef<CProgramObject>& pInput : vInputs)
    {
        SDeviceProgram part;
        if (pInput->FindDeviceProgram(*pDevice, part) && IsLinkable(part))
        {
            vObjects.push_back(std::move(part));
        }
    }
    return vObjects.empty() || vObjects.size() == vInputs.size() ? CL_SUCCESS : CL_INVALID_OPERATION;
}

/// Links one device's objects. An IL module is complete, so it can only be linked alone.
SDeviceProgram LinkForDevice(const std::vector<SDeviceProgram>& vObjects, const SBuildOptions& options)
{
    const CRef<CDevice>& pDevice = vObjects.front().m_pDevice;
    const auto IsIL = [](const SDeviceProgram& part) { return !part.m_vKernels.empty(); };
    if (std::none_of(vObjects.begin(), vObjects.end(), IsIL))
    {
        std::vector<const std::vector<char>*> vImages;
        for (const SDeviceProgram& part : vObjects)
        {
            vImages.push_back(&part.m_pImage->GetBytes());
        }
        return TakeResult(LinkImages(vImages, options, pDevice->GetTarget()), pDevice, options);
    }
    if (vObjects.size() > 1)
    {
        SBuildResult refused;
        refused.strLog = "error: a module of IL is a whole program, and can't be linked with another object\n";
        return TakeResult(std::move(refused), pDevice, options);
    }
    SDeviceProgram linked = vObjects.front();
    linked.m_eBinaryType = options.bCreateLibrary ? CL_PROGRAM_BINARY_TYPE_LIBRARY : CL_PROGRAM_BINARY_TYPE_EXECUTABLE;
    linked.m_strOptions = options.strText;
    return linked;
}

/// The arguments of a link call.
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
    {
        return CL_INVALID_VALUE;
    }
    for (cl_uint i = 0; i < call.m_nInputs; ++i)
    {
        vInputs.push_back(Lookup<CProgramObject>(call.m_phInputs[i]));
        if (!vInputs.back() || &vInputs.back()->GetContext() != &context)
        {
            return CL_INVALID_PROGRAM;
        }
    }
    return CL_SUCCESS;
}

cl_int ReadLinkDevices(const SLinkCall& call, const CContext& context, std::vector<CRef<CDevice>>& vDevices)
{
    if ((call.m_nDevices == 0) != (call.m_phDevices == nullptr))
    {
        return CL_INVALID_VALUE;
    }
    if (!call.m_phDevices)
    {
        vDevices = context.GetDevices();
        return CL_SUCCESS;
    }
    if (const cl_int nError = ReadDeviceList(call.m_nDevices, call.m_phDevices, vDevices))
    {
        return nError;
    }
    const bool bAll = std::all_of(vDevices.begin(), vDevices.end(),
                                  [&context](const CRef<CDevice>& pDevice) { return context.HasDevice(*pDevice); });
    return bAll ? CL_SUCCESS : CL_INVALID_DEVICE;
}

cl_int Link(const SLinkCall& call, cl_program& hProgram)
{
    CRef<CContext> pContext = Lookup<CContext>(call.m_hContext);
    if (!pContext)
    {
        return CL_INVALID_CONTEXT;
    }
    if (!call.m_pNotify && call.m_pUser)
    {
        return CL_INVALID_VALUE;
    }
    std::vector<CRef<CProgramObject>> vInputs;
    if (const cl_int nError = ReadLinkInputs(call, *pContext, vInputs))
    {
        return nError;
    }
    std::vector<CRef<CDevice>> vDevices;
    if (const cl_int nError = ReadLinkDevices(call, *pContext, vDevices))
    {
        return nError;
    }

    SBuildOptions options;
    if (const cl_int nError = ReadOptions(call.m_pszOptions, ParseLinkOptions, CL_INVALID_LINKER_OPTIONS, options))
    {
        return nError;
    }
    std::vector<SDeviceProgram> vParts;
    for (const CRef<CDevice>& pDevice : vDevices)
    {
        std::vector<SDeviceProgram> vObjects;
        if (const cl_int nError = FindObjects(vInputs, pDevice, vObjects))
        {
            return nError;
        }
        if (!vObjects.empty())
        {
            vParts.push_back(LinkForDevice(vObjects, options));
        }
    }
    if (vParts.empty())
    {
        return CL_INVALID_OPERATION;
    }
    Count(PLATFORM_COUNTER_BUILDS, 1);
    const bool bOk = std::all_of(vParts.begin(), vParts.end(),
                                 [](const SDeviceProgram& part) { return part.m_eStatus == CL_BUILD_SUCCESS; });
    const CRef<CProgramObject> pProgram =
        MakeObject<CProgramObject>(std::move(pContext), std::nullopt, std::move(vParts));
    hProgram = GiveToClient(pProgram);
    PostNotify(pProgram, call.m_pNotify, call.m_pUser);
    return bOk ? CL_SUCCESS : CL_LINK_PROGRAM_FAILURE;
}

} // namespace

} // namespace KestrelPlatform::Runtime

using namespace KestrelPlatform::Runtime;

cl_program CL_API_CALL clLinkProgram(cl_context context, cl_uint num_devices, const cl_device_id* device_list,
                                     const char* options, cl_uint num_input_programs, const cl_program* input_programs,
                                     void(CL_CALLBACK* pfn_notify)(cl_program, void*), void* user_data,
                                     cl_int* errcode_ret)
{
    // A link that has begun gives a program even if it fails, as the program holds the log.
    cl_program hProgram = nullptr;
    const cl_int nError = ApiCall(__func__,
                                  [&]
                                  {
                                      return Link({context, num_devices, device_list, options, num_input_programs,
                                                   input_programs, pfn_notify, user_data},
                                                  hProgram);
                                  });
    if (errcode_ret)
    {
        *errcode_ret = nError;
    }
    return hProgram;
}
