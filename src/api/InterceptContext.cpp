#include "api/ApiTrace.h"
#include "api/DispatchTable.h"
#include "api/InterceptProperties.h"
#include "api/PlatformQueries.h"
#include "modules/CLCall.h"

#include <algorithm>
#include <vector>

using namespace Kestrel;
using OVK_ShaderDebugger::CallCL;
using OVK_ShaderDebugger::CreateCL;
using OVK_ShaderDebugger::QueryCL;
using OVK_ShaderDebugger::QueryListCL;

namespace
{

/// The devices that a context of a type gets, which only such a context can tell.
cl_int ListContextDevices(const cl_context_properties* properties, cl_device_type device_type,
                          std::vector<cl_device_id>& vDevices)
{
    cl_int nCode = CL_SUCCESS;
    const cl_context scratch =
        CreateCL(nCode, g_CLDispatchTable.CreateContextFromType, properties, device_type, nullptr, nullptr);
    if (scratch == nullptr)
    {
        return nCode;
    }
    cl_uint nDevices = 0;
    nCode = QueryCL(g_CLDispatchTable.GetContextInfo, scratch, CL_CONTEXT_NUM_DEVICES, nDevices);
    if (nCode == CL_SUCCESS)
    {
        vDevices.resize(nDevices);
        nCode = CallCL(g_CLDispatchTable.GetContextInfo, scratch, CL_CONTEXT_DEVICES, nDevices * sizeof(cl_device_id),
                       vDevices.data(), nullptr);
    }
    const cl_int nReleaseCode = CallCL(g_CLDispatchTable.ReleaseContext, scratch);
    return nCode != CL_SUCCESS ? nCode : nReleaseCode;
}

} // namespace

cl_context ovkclInterceptCreateContext(const cl_context_properties* properties, cl_uint num_devices,
                                       const cl_device_id* devices,
                                       void(CL_CALLBACK* pfn_notify)(const char*, const void*, size_t, void*),
                                       void* user_data, cl_int* errcode_ret)
{
    TraceCall(__func__, properties, num_devices, devices, pfn_notify, user_data, errcode_ret);
    return RunExportedCreate<cl_context>(
        __func__, errcode_ret,
        [&](cl_int& nCode) -> cl_context
        {
            if (devices == nullptr || !std::all_of(devices, devices + num_devices, isValidDevice))
            {
                nCode = CL_INVALID_DEVICE;
                return nullptr;
            }
            const std::vector<cl_context_properties> vProperties =
                AppendCommandIntercept(properties, num_devices != 0 ? devices : nullptr);
            return CreateCL(nCode, g_CLDispatchTable.CreateContext, vProperties.data(), num_devices, devices,
                            pfn_notify, user_data);
        });
}

cl_context ovkclInterceptCreateContextFromType(const cl_context_properties* properties, cl_device_type device_type,
                                               void(CL_CALLBACK* pfn_notify)(const char*, const void*, size_t, void*),
                                               void* user_data, cl_int* errcode_ret)
{
    TraceCall(__func__, properties, device_type, pfn_notify, user_data, errcode_ret);
    return RunExportedCreate<cl_context>(__func__, errcode_ret,
                                         [&](cl_int& nCode) -> cl_context
                                         {
                                             std::vector<cl_device_id> vDevices;
                                             nCode = ListContextDevices(properties, device_type, vDevices);
                                             if (nCode != CL_SUCCESS)
                                             {
                                                 return nullptr;
                                             }
                                             const std::vector<cl_context_properties> vProperties =
                                                 AppendCommandIntercept(properties,
                                                                        vDevices.empty() ? nullptr : vDevices.data());
                                             return CreateCL(nCode, g_CLDispatchTable.CreateContextFromType,
                                                             vProperties.data(), device_type, pfn_notify, user_data);
                                         });
}
