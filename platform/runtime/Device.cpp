#include "platform/runtime/Device.h"

#include "platform/runtime/ApiCall.h"
#include "platform/runtime/Platform.h"

namespace KestrelPlatform::Runtime
{

namespace
{

bool IsDeviceType(cl_device_type nType)
{
    constexpr cl_device_type nKnown = CL_DEVICE_TYPE_DEFAULT | CL_DEVICE_TYPE_CPU | CL_DEVICE_TYPE_GPU |
                                      CL_DEVICE_TYPE_ACCELERATOR | CL_DEVICE_TYPE_CUSTOM;
    return nType == CL_DEVICE_TYPE_ALL || (nType != 0 && (nType & ~nKnown) == 0);
}

} // namespace

SDeviceTarget CDevice::GetTarget() const
{
    SDeviceTarget target;
    target.strName = m_Traits.m_pszName;
    target.b64BitAddresses = m_Traits.m_b64BitAddresses;
    target.bRawUavOnly = m_Traits.m_bRawUavOnly;
    target.nMaxGroupSize = s_nMaxWorkGroupSize;
    target.nLocalMemoryBytes = s_nLocalMemorySize;
    return target;
}

cl_int ReadDeviceList(cl_uint nDevices, const cl_device_id* phDevices, std::vector<CRef<CDevice>>& vDevices)
{
    if (nDevices == 0 || !phDevices)
    {
        return CL_INVALID_VALUE;
    }
    for (cl_uint i = 0; i < nDevices; ++i)
    {
        CRef<CDevice> pDevice = Lookup<CDevice>(phDevices[i]);
        if (!pDevice)
        {
            return CL_INVALID_DEVICE;
        }
        vDevices.push_back(std::move(pDevice));
    }
    return CL_SUCCESS;
}

cl_int FindDevicesOfType(cl_device_type nType, std::vector<CRef<CDevice>>& vDevices)
{
    if (!IsDeviceType(nType))
    {
        return CL_INVALID_DEVICE_TYPE;
    }
    const std::vector<CRef<CDevice>>& vAll = CPlatform::Get().GetDevices();
    for (const CRef<CDevice>& pDevice : vAll)
    {
        const cl_device_type nDefault = pDevice.Get() == vAll.front().Get() ? CL_DEVICE_TYPE_DEFAULT : 0;
        if ((nType & (pDevice->GetTraits().m_nType | nDefault)) != 0)
        {
            vDevices.push_back(pDevice);
        }
    }
    return vDevices.empty() ? CL_DEVICE_NOT_FOUND : CL_SUCCESS;
}

std::vector<cl_device_id> HandlesOf(const std::vector<CRef<CDevice>>& vDevices)
{
    std::vector<cl_device_id> vhDevices;
    for (const CRef<CDevice>& pDevice : vDevices)
    {
        vhDevices.push_back(HandleOf(pDevice));
    }
    return vhDevices;
}

} // namespace KestrelPlatform::Runtime

using namespace KestrelPlatform::Runtime;

cl_int CL_API_CALL clGetDeviceIDs(cl_platform_id platform, cl_device_type device_type, cl_uint num_entries,
                                  cl_device_id* devices, cl_uint* num_devices)
{
    return ApiCall(__func__,
                   [&]() -> cl_int
                   {
                       if (!IsPlatform(platform))
                       {
                           return CL_INVALID_PLATFORM;
                       }
                       if ((devices && num_entries == 0) || (!devices && !num_devices))
                       {
                           return CL_INVALID_VALUE;
                       }
                       std::vector<CRef<CDevice>> vDevices;
                       if (const cl_int nError = FindDevicesOfType(device_type, vDevices))
                       {
                           return nError;
                       }
                       for (size_t i = 0; devices && i < vDevices.size() && i < num_entries; ++i)
                       {
                           devices[i] = HandleOf(vDevices[i]);
                       }
                       if (num_devices)
                       {
                           *num_devices = static_cast<cl_uint>(vDevices.size());
                       }
                       return CL_SUCCESS;
                   });
}

cl_int CL_API_CALL clGetDeviceInfo(cl_device_id device, cl_device_info param_name, size_t param_value_size,
                                   void* param_value, size_t* param_value_size_ret)
{
    return ApiCall(__func__,
                   [&]() -> cl_int
                   {
                       const CRef<CDevice> pDevice = Lookup<CDevice>(device);
                       if (!pDevice)
                       {
                           return CL_INVALID_DEVICE;
                       }
                       return pDevice->GetInfo(param_name, {param_value_size, param_value, param_value_size_ret});
                   });
}

cl_int CL_API_CALL clCreateSubDevices(cl_device_id in_device, const cl_device_partition_property* properties,
                                      cl_uint num_devices, cl_device_id* out_devices, cl_uint* num_devices_ret)
{
    return ApiCall(__func__,
                   [&]() -> cl_int
                   {
                       // No device can be divided (CL_DEVICE_PARTITION_MAX_SUB_DEVICES), so no property is supported.
                       return Lookup<CDevice>(in_device) ? CL_INVALID_VALUE : CL_INVALID_DEVICE;
                   });
}

// The references of a root device aren't counted.
cl_int CL_API_CALL clRetainDevice(cl_device_id device)
{
    return ApiCall(__func__, [&] { return Lookup<CDevice>(device) ? CL_SUCCESS : CL_INVALID_DEVICE; });
}

cl_int CL_API_CALL clReleaseDevice(cl_device_id device)
{
    return ApiCall(__func__, [&] { return Lookup<CDevice>(device) ? CL_SUCCESS : CL_INVALID_DEVICE; });
}
