#ifndef KESTREL_PLATFORM_RUNTIME_PLATFORM_H
#define KESTREL_PLATFORM_RUNTIME_PLATFORM_H

#include "platform/runtime/Device.h"
#include "platform/runtime/Object.h"

#include <string>
#include <vector>

namespace KestrelPlatform::Runtime
{

/// The only platform, with its three devices. It exists from its first use to the end of the process.
class CPlatform : public CObject
{
public:
    using Handle = cl_platform_id;
    static constexpr EObjectKind s_eKind = EObjectKind::Platform;

    CPlatform();

    static CPlatform& Get();

    const std::vector<CRef<CDevice>>& GetDevices() const { return m_vDevices; }
    cl_platform_id GetId() { return static_cast<cl_platform_id>(GetHandle()); }
    /// The platform's extensions, separated by blanks, without those that are switched off.
    static std::string GetExtensions();

private:
    std::vector<CRef<CDevice>> m_vDevices;
};

/// True for the platform's handle, and for null, which stands for it too.
bool IsPlatform(cl_platform_id hPlatform);

} // namespace KestrelPlatform::Runtime

#endif
