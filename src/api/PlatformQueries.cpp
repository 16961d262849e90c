#include "api/PlatformQueries.h"

#include "OVKKestrel.h"
#include "api/DispatchTable.h"
#include "binary/Elf.h"
#include "modules/CLCall.h"

#include <algorithm>
#include <new>
#include <vector>

namespace Kestrel
{

using OVK_ShaderDebugger::CallCL;
using OVK_ShaderDebugger::QueryCL;
using OVK_ShaderDebugger::QueryTextCL;

namespace
{

const char* const s_OVK_PLATFORM_NAME = "Oberon Vector Kinetics, Inc.";

bool HasExtension(cl_platform_id platform, const char* szExtension)
{
    return GetPlatformInfoString(platform, CL_PLATFORM_EXTENSIONS).find(szExtension) != std::string::npos;
}

bool GetDevicePlatform(cl_device_id device, cl_platform_id& platform)
{
    return QueryCL(g_CLDispatchTable.GetDeviceInfo, device, CL_DEVICE_PLATFORM, platform) == CL_SUCCESS;
}

bool ListPlatforms(std::vector<cl_platform_id>& vPlatforms)
{
    cl_uint nCount = 0;
    if (CallCL(g_CLDispatchTable.GetPlatformIDs, cl_uint(0), nullptr, &nCount) != CL_SUCCESS)
    {
        return false;
    }
    vPlatforms.resize(nCount);
    return CallCL(g_CLDispatchTable.GetPlatformIDs, nCount, vPlatforms.data(), nullptr) == CL_SUCCESS;
}

bool ListDevices(cl_platform_id platform, std::vector<cl_device_id>& vDevices)
{
    const cl_device_type nAll = CL_DEVICE_TYPE_ALL;
    cl_uint nCount = 0;
    if (CallCL(g_CLDispatchTable.GetDeviceIDs, platform, nAll, cl_uint(0), nullptr, &nCount) != CL_SUCCESS)
    {
        return false;
    }
    vDevices.resize(nCount);
    return CallCL(g_CLDispatchTable.GetDeviceIDs, platform, nAll, nCount, vDevices.data(), nullptr) == CL_SUCCESS;
}

} // namespace

bool isValidDevice(cl_device_id deviceToCheck)
{
    std::vector<cl_platform_id> vPlatforms;
    if (!ListPlatforms(vPlatforms))
    {
        return false;
    }
    for (cl_platform_id platform : vPlatforms)
    {
        std::vector<cl_device_id> vDevices;
        if (!ListDevices(platform, vDevices))
        {
            return false;
        }
        if (std::find(vDevices.begin(), vDevices.end(), deviceToCheck) != vDevices.end())
        {
            return true;
        }
    }
    return false;
}

std::string GetPlatformInfoString(cl_platform_id platform, cl_platform_info param_name)
{
    std::string strText;
    QueryTextCL(g_CLDispatchTable.GetPlatformInfo, platform, param_name, strText);
    return strText;
}

bool IsOVKEventCallbackSupported(cl_platform_id platform)
{
    return HasExtension(platform, "cl_ovk_event_callback");
}

bool IsOVKEventCallbackSupported(cl_device_id device)
{
    cl_platform_id platform = nullptr;
    return GetDevicePlatform(device, platform) && IsOVKEventCallbackSupported(platform);
}

bool IsEXTObjectMetadataSupported(cl_platform_id platform)
{
    return HasExtension(platform, "cl_ovk_object_metadata") || HasExtension(platform, "cl_ext_object_metadata") ||
           FindExtensionFunction(platform, "clCreateKeyOVK") != nullptr ||
           FindExtensionFunction(platform, "clCreateKeyEXT") != nullptr;
}

bool IsEXTObjectMetadataSupported(cl_device_id device)
{
    cl_platform_id platform = nullptr;
    return GetDevicePlatform(device, platform) && IsEXTObjectMetadataSupported(platform);
}

cl_int GetPlatform(cl_command_queue queue, cl_platform_id* pPlatform)
{
    if (queue == nullptr)
    {
        return CL_INVALID_COMMAND_QUEUE;
    }
    cl_device_id device = nullptr;
    cl_int nCode = QueryCL(g_CLDispatchTable.GetCommandQueueInfo, queue, CL_QUEUE_DEVICE, device);
    cl_platform_id platform = nullptr;
    if (nCode == CL_SUCCESS)
    {
        nCode = QueryCL(g_CLDispatchTable.GetDeviceInfo, device, CL_DEVICE_PLATFORM, platform);
    }
    if (nCode == CL_SUCCESS && pPlatform != nullptr)
    {
        *pPlatform = platform;
    }
    return nCode;
}

cl_int CheckOVKPlatform(cl_command_queue queue)
{
    cl_platform_id platform = nullptr;
    cl_int nCode = GetPlatform(queue, &platform);
    if (nCode != CL_SUCCESS)
    {
        return nCode;
    }
    try
    {
        std::string strVendor;
        nCode = QueryTextCL(g_CLDispatchTable.GetPlatformInfo, platform, CL_PLATFORM_VENDOR, strVendor);
        if (nCode != CL_SUCCESS)
        {
            return nCode;
        }
        return strVendor == s_OVK_PLATFORM_NAME ? CL_SUCCESS : OVKCLDEBUG_ENQUEUE_WRONG_PLATFORM;
    }
    catch (const std::bad_alloc&)
    {
        return CL_OUT_OF_HOST_MEMORY;
    }
}

bool IsKernelDebuggable(cl_kernel kernel, cl_device_id device)
{
    cl_program program = nullptr;
    if (QueryCL(g_CLDispatchTable.GetKernelInfo, kernel, CL_KERNEL_PROGRAM, program) != CL_SUCCESS ||
        program == nullptr)
    {
        return false;
    }
    std::vector<char> vBinary;
    if (OVK_ShaderDebugger::QueryProgramBinary(g_CLDispatchTable, program, device, vBinary) != CL_SUCCESS)
    {
        return false;
    }
    const CElf elf(vBinary);
    return elf.good() && elf.GetSection(".debugil") != nullptr;
}

} // namespace Kestrel
