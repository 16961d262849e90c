#include "OVKKestrel.h"
#include "tests/api/WrapTable.h"
#include "tests/api/allocations/AllocationFaults.h"

#include <cstring>
#include <memory>
#include <vector>

namespace AllocationFaults
{

namespace
{

/// The property whose value is the hook.
const cl_context_properties s_nHookProperty = 0x403D;

cl_icd_dispatch s_Real;

template <auto pEntry, typename Function>
struct SOutside;

template <auto pEntry, typename Result, typename... Parameters>
struct SOutside<pEntry, Result(CL_API_CALL*)(Parameters...)>
{
    static void Prepare(const char*) {}

    static Result CL_API_CALL Call(Parameters... parameters)
    {
        const CInside outside(false);
        return (s_Real.*pEntry)(parameters...);
    }
};

typedef cl_int(CL_CALLBACK* PFNHook)(cl_event event, cl_int* errcode_ret);
PFNHook s_pHook = nullptr;

cl_int CL_CALLBACK Hook(cl_event event, cl_int* errcode_ret)
{
    const CInside inside;
    return s_pHook(event, errcode_ret);
}

cl_context CL_API_CALL CreateContext(const cl_context_properties* properties, cl_uint num_devices,
                                     const cl_device_id* devices,
                                     void(CL_CALLBACK* pfn_notify)(const char*, const void*, size_t, void*),
                                     void* user_data, cl_int* errcode_ret)
{
    const CInside outside(false);
    std::vector<cl_context_properties> vProperties;
    for (; properties != nullptr && *properties != 0; properties += 2)
    {
        vProperties.push_back(properties[0]);
        vProperties.push_back(properties[1]);
        if (properties[0] == s_nHookProperty)
        {
            s_pHook = reinterpret_cast<PFNHook>(properties[1]);
            vProperties.back() = reinterpret_cast<cl_context_properties>(&Hook);
        }
    }
    vProperties.push_back(0);
    return s_Real.clCreateContext(vProperties.data(), num_devices, devices, pfn_notify, user_data, errcode_ret);
}

struct SCompletion
{
    void(CL_CALLBACK* pfnNotify)(cl_event, cl_int, void*);
    void* pUser;
};

void CL_CALLBACK Complete(cl_event event, cl_int nStatus, void* pUser)
{
    const std::unique_ptr<SCompletion> pCompletion(static_cast<SCompletion*>(pUser));
    const CInside inside;
    pCompletion->pfnNotify(event, nStatus, pCompletion->pUser);
}

cl_int CL_API_CALL SetEventCallback(cl_event event, cl_int nType,
                                    void(CL_CALLBACK* pfn_notify)(cl_event, cl_int, void*), void* user_data)
{
    const CInside outside(false);
    std::unique_ptr<SCompletion> pCompletion(new SCompletion{pfn_notify, user_data});
    const cl_int nCode = s_Real.clSetEventCallback(event, nType, &Complete, pCompletion.get());
    if (nCode == CL_SUCCESS)
    {
        static_cast<void>(pCompletion.release());
    }
    return nCode;
}

typedef cl_int(CL_API_CALL* PFNSetValue)(void* object, size_t key, void* value);
PFNSetValue s_pSetValue = nullptr;

cl_int CL_API_CALL SetValue(void* object, size_t key, void* value)
{
    const CInside outside(false);
    return s_pSetValue(object, key, value);
}

/// The only one of the vendor's functions that allocates in a session.
void* CL_API_CALL FindExtension(cl_platform_id platform, const char* pszName)
{
    const CInside outside(false);
    void* pFunction = s_Real.clGetExtensionFunctionAddressForPlatform(platform, pszName);
    if (pFunction == nullptr || std::strcmp(pszName, "clObjectSetValueForKeyOVK") != 0)
    {
        return pFunction;
    }
    s_pSetValue = reinterpret_cast<PFNSetValue>(pFunction);
    return reinterpret_cast<void*>(&SetValue);
}

} // namespace

cl_icd_dispatch MakeTable(const cl_icd_dispatch& real)
{
    s_Real = real;
    cl_icd_dispatch table = WrapTable::Wrap<SOutside>(real);
    table.clCreateContext = &CreateContext;
    table.clSetEventCallback = &SetEventCallback;
    table.clGetExtensionFunctionAddressForPlatform = &FindExtension;
    return table;
}

} // namespace AllocationFaults
