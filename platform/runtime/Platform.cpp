#include "platform/runtime/Platform.h"

#include "platform/runtime/ApiCall.h"
#include "platform/runtime/Dispatch.h"
#include "platform/runtime/Settings.h"

#include <cstdio>
#include <cstring>

namespace KestrelPlatform::Runtime
{

namespace
{

constexpr cl_ulong s_nMiB = 1024 * 1024;

constexpr SDeviceTraits s_deviceTraits[] = {
    {"Quench", CL_DEVICE_TYPE_GPU, 0x0B01, true, false, false, 8192 * s_nMiB, 2048 * s_nMiB},
    {"Kiln", CL_DEVICE_TYPE_GPU, 0x0B02, false, true, false, 2048 * s_nMiB, 512 * s_nMiB},
    {"Host", CL_DEVICE_TYPE_CPU, 0x0B03, true, false, true, 8192 * s_nMiB, 2048 * s_nMiB},
};

cl_int GetPlatformIds(cl_uint nEntries, cl_platform_id* phPlatforms, cl_uint* pnPlatforms)
{
    if ((phPlatforms && nEntries == 0) || (!phPlatforms && !pnPlatforms))
    {
        return CL_INVALID_VALUE;
    }
    if (const std::string strNonsense = GetNonsense(); !strNonsense.empty())
    {
        std::fprintf(stderr, "KESTREL_PLATFORM: %s\n", strNonsense.c_str());
        return CL_PLATFORM_NOT_FOUND_KHR;
    }
    if (phPlatforms)
    {
        phPlatforms[0] = CPlatform::Get().GetId();
    }
    if (pnPlatforms)
    {
        *pnPlatforms = 1;
    }
    return CL_SUCCESS;
}

void* GetExtensionFunction(const char* pszEntryPoint, cl_platform_id hPlatform, const char* pszName)
{
    return ApiCreate<void*>(pszEntryPoint, nullptr,
                            [&](void*& pFunction) -> cl_int
                            {
                                if (!IsPlatform(hPlatform) || !pszName)
                                {
                                    return CL_INVALID_VALUE;
                                }
                                pFunction = FindExtensionFunction(pszName);
                                return CL_SUCCESS;
                            });
}

} // namespace

CPlatform::CPlatform() : CObject(s_eKind)
{
    for (const SDeviceTraits& traits : s_deviceTraits)
    {
        m_vDevices.push_back(MakeObject<CDevice>(traits));
    }
}

CPlatform& CPlatform::Get()
{
    static CPlatform& s_platform = *MakeObject<CPlatform>().Detach();
    return s_platform;
}

std::string CPlatform::GetExtensions()
{
    return "cl_khr_icd " + GetEnabledExtensions();
}

bool IsPlatform(cl_platform_id hPlatform)
{
    return !hPlatform || hPlatform == CPlatform::Get().GetId();
}

} // namespace KestrelPlatform::Runtime

using namespace KestrelPlatform::Runtime;

cl_int CL_API_CALL clGetPlatformIDs(cl_uint num_entries, cl_platform_id* platforms, cl_uint* num_platforms)
{
    return ApiCall(__func__, [&] { return GetPlatformIds(num_entries, platforms, num_platforms); });
}

cl_int CL_API_CALL clIcdGetPlatformIDsKHR(cl_uint num_entries, cl_platform_id* platforms, cl_uint* num_platforms)
{
    return ApiCall(__func__, [&] { return GetPlatformIds(num_entries, platforms, num_platforms); });
}

cl_int CL_API_CALL clGetPlatformInfo(cl_platform_id platform, cl_platform_info param_name, size_t param_value_size,
                                     void* param_value, size_t* param_value_size_ret)
{
    return ApiCall(__func__,
                   [&]() -> cl_int
                   {
                       if (!IsPlatform(platform))
                       {
                           return CL_INVALID_PLATFORM;
                       }
                       const SInfoQuery query{param_value_size, param_value, param_value_size_ret};
                       switch (param_name)
                       {
                       case CL_PLATFORM_PROFILE:
                           return query.String("FULL_PROFILE");
                       case CL_PLATFORM_VERSION:
                           return query.String("OpenCL 1.2 Kestrel (" + std::to_string(GetBuildNumber()) + ".0)");
                       case CL_PLATFORM_NAME:
                           return query.String("Kestrel Software Platform");
                       case CL_PLATFORM_VENDOR:
                           return query.String("Oberon Vector Kinetics, Inc.");
                       case CL_PLATFORM_EXTENSIONS:
                           return query.String(CPlatform::GetExtensions());
                       case CL_PLATFORM_ICD_SUFFIX_KHR:
                           return query.String("OVK");
                       default:
                           return CL_INVALID_VALUE;
                       }
                   });
}

void* CL_API_CALL clGetExtensionFunctionAddress(const char* func_name)
{
    return GetExtensionFunction(__func__, nullptr, func_name);
}

void* CL_API_CALL clGetExtensionFunctionAddressForPlatform(cl_platform_id platform, const char* func_name)
{
    return GetExtensionFunction(__func__, platform, func_name);
}

cl_int CL_API_CALL clUnloadCompiler(void)
{
    // The compiler holds nothing between builds, so there is nothing to unload.
    return ApiCall(__func__, [] { return CL_SUCCESS; });
}

cl_int CL_API_CALL clUnloadPlatformCompiler(cl_platform_id platform)
{
    return ApiCall(__func__, [&] { return platform && IsPlatform(platform) ? CL_SUCCESS : CL_INVALID_PLATFORM; });
}
