#ifndef KESTREL_PLATFORM_RUNTIME_DEVICE_H
#define KESTREL_PLATFORM_RUNTIME_DEVICE_H

#include "platform/compiler/ProgramBuilder.h"
#include "platform/runtime/InfoQuery.h"
#include "platform/runtime/Object.h"

namespace KestrelPlatform::Runtime
{

/// The properties that differ between devices.
struct SDeviceTraits
{
    const char* m_pszName;
    cl_device_type m_nType;
    cl_uint m_nVendorId;
    bool m_b64BitAddresses;
    bool m_bRawUavOnly;
    bool m_bNativeKernels;
    cl_ulong m_nGlobalMemory;
    cl_ulong m_nMaxAllocation;
};

constexpr cl_uint s_nMaxWorkDimensions = 3;
constexpr size_t s_nMaxWorkGroupSize = 256;
constexpr cl_ulong s_nLocalMemorySize = 32768;
constexpr cl_ulong s_nMaxConstantBufferSize = 65536;
constexpr cl_uint s_nMaxConstantArguments = 8;
constexpr size_t s_nMaxParameterSize = 1024;
/// A sub-buffer's origin, and the start of every memory object, is a multiple of this many bytes.
constexpr size_t s_nBaseAlignment = 128;
constexpr size_t s_nMaxImageWidth = 16384;
constexpr size_t s_nMaxImageDepth = 2048;
constexpr size_t s_nMaxImageArraySize = 2048;
constexpr size_t s_nMaxImageBufferSize = 65536;
/// The size in bytes of the buffer for a launch's printf output.
constexpr size_t s_nPrintfBufferSize = size_t{1024} * 1024;

/// A device, created once and never destroyed.
class CDevice : public CObject
{
public:
    using Handle = cl_device_id;
    static constexpr EObjectKind s_eKind = EObjectKind::Device;

    explicit CDevice(const SDeviceTraits& traits) : CObject(s_eKind), m_Traits(traits) {}

    const SDeviceTraits& GetTraits() const { return m_Traits; }
    /// The device as the compiler sees it.
    SDeviceTarget GetTarget() const;
    cl_int GetInfo(cl_device_info eInfo, const SInfoQuery& query) const;

private:
    const SDeviceTraits& m_Traits;
};

/// Reads a client's list of devices: at least one entry, each of them a device.
/// \return CL_INVALID_VALUE for a list that is null or empty, CL_INVALID_DEVICE for a wrong entry
cl_int ReadDeviceList(cl_uint nDevices, const cl_device_id* phDevices, std::vector<CRef<CDevice>>& vDevices);

/// The devices of a type; the first device of all is the default one.
/// \return CL_INVALID_DEVICE_TYPE, or CL_DEVICE_NOT_FOUND if there is none
cl_int FindDevicesOfType(cl_device_type nType, std::vector<CRef<CDevice>>& vDevices);

/// The handles of devices.
std::vector<cl_device_id> HandlesOf(const std::vector<CRef<CDevice>>& vDevices);

} // namespace KestrelPlatform::Runtime

#endif
