#ifndef KESTREL_PLATFORM_RUNTIME_CONTEXT_H
#define KESTREL_PLATFORM_RUNTIME_CONTEXT_H

#include "platform/runtime/Device.h"
#include "platform/runtime/Object.h"

#include <string>
#include <vector>

namespace KestrelPlatform::Runtime
{

using ContextNotify = void(CL_CALLBACK*)(const char*, const void*, size_t, void*);

/// A context: its devices, the client's properties, and its error callback.
class CContext : public CObject
{
public:
    using Handle = cl_context;
    static constexpr EObjectKind s_eKind = EObjectKind::Context;

    CContext(std::vector<CRef<CDevice>> vDevices, std::vector<cl_context_properties> vProperties,
             InterceptHook pInterceptHook, ContextNotify pNotify, void* pNotifyUser);

    const std::vector<CRef<CDevice>>& GetDevices() const { return m_vDevices; }
    bool HasDevice(const CDevice& device) const;
    /// True if one of the devices has 32-bit addresses.
    bool Has32BitDevice() const;
    /// The size in bytes of the largest memory object that any of the devices allows.
    cl_ulong GetMaxAllocation() const;
    InterceptHook GetInterceptHook() const { return m_pInterceptHook; }
    cl_int GetInfo(cl_context_info eInfo, const SInfoQuery& query) const;

    /// Passes an error text to the client's callback, on the callback thread.
    void Report(const std::string& strText);

private:
    const std::vector<CRef<CDevice>> m_vDevices;
    const std::vector<cl_context_properties> m_vProperties; ///< as the client passed them, including the final 0
    const InterceptHook m_pInterceptHook;
    const ContextNotify m_pNotify;
    void* const m_pNotifyUser;
};

} // namespace KestrelPlatform::Runtime

#endif
