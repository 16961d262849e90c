#include "platform/runtime/Context.h"

#include "platform/runtime/ApiCall.h"
#include "platform/runtime/CallbackThread.h"
#include "platform/runtime/Platform.h"

#include <algorithm>

namespace KestrelPlatform::Runtime
{

namespace
{

/// The client's list of context properties, checked.
struct SContextProperties
{
    std::vector<cl_context_properties> m_vList;
    InterceptHook m_pInterceptHook = nullptr;
};

cl_int ReadProperty(cl_context_properties nName, cl_context_properties nValue, SContextProperties& properties)
{
    switch (nName)
    {
    case CL_CONTEXT_PLATFORM:
        return nValue && IsPlatform(reinterpret_cast<cl_platform_id>(nValue)) ? CL_SUCCESS : CL_INVALID_PLATFORM;
    case CL_CONTEXT_INTEROP_USER_SYNC:
        return nValue == CL_TRUE || nValue == CL_FALSE ? CL_SUCCESS : CL_INVALID_PROPERTY;
    case s_nContextInterceptHook:
        if (!IsExtensionEnabled("cl_ovk_event_callback"))
        {
            return CL_INVALID_PROPERTY;
        }
        properties.m_pInterceptHook = reinterpret_cast<InterceptHook>(nValue);
        return CL_SUCCESS;
    default:
        return CL_INVALID_PROPERTY;
    }
}

cl_int ReadProperties(const cl_context_properties* pList, SContextProperties& properties)
{
    if (!pList)
    {
        return CL_SUCCESS;
    }
    for (; *pList != 0; pList += 2)
    {
        for (size_t i = 0; i < properties.m_vList.size(); i += 2)
        {
            if (properties.m_vList[i] == pList[0])
            {
                return CL_INVALID_PROPERTY;
            }
        }
        if (const cl_int nError = ReadProperty(pList[0], pList[1], properties))
        {
            return nError;
        }
        properties.m_vList.insert(properties.m_vList.end(), pList, pList + 2);
    }
    properties.m_vList.push_back(0);
    return CL_SUCCESS;
}

std::vector<CRef<CDevice>> WithoutDoubles(const std::vector<CRef<CDevice>>& vDevices)
{
    std::vector<CRef<CDevice>> vUnique;
    for (const CRef<CDevice>& pDevice : vDevices)
    {
        if (std::none_of(vUnique.begin(), vUnique.end(),
                         [&](const CRef<CDevice>& pOther) { return pOther.Get() == pDevice.Get(); }))
        {
            vUnique.push_back(pDevice);
        }
    }
    return vUnique;
}

cl_int CreateContext(const cl_context_properties* pList, const std::vector<CRef<CDevice>>& vDevices,
                     ContextNotify pNotify, void* pUser, cl_context& hContext)
{
    if (!pNotify && pUser)
    {
        return CL_INVALID_VALUE;
    }
    SContextProperties properties;
    if (const cl_int nError = ReadProperties(pList, properties))
    {
        return nError;
    }
    hContext = GiveToClient(MakeObject<CContext>(WithoutDoubles(vDevices), std::move(properties.m_vList),
                                                 properties.m_pInterceptHook, pNotify, pUser));
    return CL_SUCCESS;
}

} // namespace

CContext::CContext(std::vector<CRef<CDevice>> vDevices, std::vector<cl_context_properties> vProperties,
                   InterceptHook pInterceptHook, ContextNotify pNotify, void* pNotifyUser)
    : CObject(s_eKind), m_vDevices(std::move(vDevices)), m_vProperties(std::move(vProperties)),
      m_pInterceptHook(pInterceptHook), m_pNotify(pNotify), m_pNotifyUser(pNotifyUser)
{
}

bool CContext::HasDevice(const CDevice& device) const
{
    return std::any_of(m_vDevices.begin(), m_vDevices.end(),
                       [&device](const CRef<CDevice>& pDevice) { return pDevice.Get() == &device; });
}

bool CContext::Has32BitDevice() const
{
    return std::any_of(m_vDevices.begin(), m_vDevices.end(),
                       [](const CRef<CDevice>& pDevice) { return !pDevice->GetTraits().m_b64BitAddresses; });
}

cl_ulong CContext::GetMaxAllocation() const
{
    cl_ulong nMax = 0;
    for (const CRef<CDevice>& pDevice : m_vDevices)
    {
        nMax = std::max(nMax, pDevice->GetTraits().m_nMaxAllocation);
    }
    return nMax;
}

cl_int CContext::GetInfo(cl_context_info eInfo, const SInfoQuery& query) const
{
    switch (eInfo)
    {
    case CL_CONTEXT_REFERENCE_COUNT:
        return query.Value(GetClientReferences());
    case CL_CONTEXT_NUM_DEVICES:
        return query.Value(static_cast<cl_uint>(m_vDevices.size()));
    case CL_CONTEXT_DEVICES:
        return query.Array(HandlesOf(m_vDevices));
    case CL_CONTEXT_PROPERTIES:
        return query.Array(m_vProperties);
    default:
        return CL_INVALID_VALUE;
    }
}

void CContext::Report(const std::string& strText)
{
    if (!m_pNotify)
    {
        return;
    }
    CCallbackThread::Post([pSelf = CRef<CContext>(this), strText]
                          { pSelf->m_pNotify(strText.c_str(), nullptr, 0, pSelf->m_pNotifyUser); });
}

} // namespace KestrelPlatform::Runtime

using namespace KestrelPlatform::Runtime;

cl_context CL_API_CALL clCreateContext(const cl_context_properties* properties, cl_uint num_devices,
                                       const cl_device_id* devices, ContextNotify pfn_notify, void* user_data,
                                       cl_int* errcode_ret)
{
    return ApiCreate<cl_context>(__func__, errcode_ret,
                                 [&](cl_context& hContext) -> cl_int
                                 {
                                     std::vector<CRef<CDevice>> vDevices;
                                     if (const cl_int nError = ReadDeviceList(num_devices, devices, vDevices))
                                     {
                                         return nError;
                                     }
                                     return CreateContext(properties, vDevices, pfn_notify, user_data, hContext);
                                 });
}

cl_context CL_API_CALL clCreateContextFromType(const cl_context_properties* properties, cl_device_type device_type,
                                               ContextNotify pfn_notify, void* user_data, cl_int* errcode_ret)
{
    return ApiCreate<cl_context>(__func__, errcode_ret,
                                 [&](cl_context& hContext) -> cl_int
                                 {
                                     std::vector<CRef<CDevice>> vDevices;
                                     if (const cl_int nError = FindDevicesOfType(device_type, vDevices))
                                     {
                                         return nError;
                                     }
                                     return CreateContext(properties, vDevices, pfn_notify, user_data, hContext);
                                 });
}

cl_int CL_API_CALL clRetainContext(cl_context context)
{
    return ApiCall(__func__, [&] { return RetainHandle<CContext>(context, CL_INVALID_CONTEXT); });
}

cl_int CL_API_CALL clReleaseContext(cl_context context)
{
    return ApiCall(__func__, [&] { return ReleaseHandle<CContext>(context, CL_INVALID_CONTEXT); });
}

cl_int CL_API_CALL clGetContextInfo(cl_context context, cl_context_info param_name, size_t param_value_size,
                                    void* param_value, size_t* param_value_size_ret)
{
    return ApiCall(__func__,
                   [&]() -> cl_int
                   {
                       const CRef<CContext> pContext = Lookup<CContext>(context);
                       if (!pContext)
                       {
                           return CL_INVALID_CONTEXT;
                       }
                       return pContext->GetInfo(param_name, {param_value_size, param_value, param_value_size_ret});
                   });
}
