#ifndef KESTREL_PLATFORM_RUNTIME_KERNEL_H
#define KESTREL_PLATFORM_RUNTIME_KERNEL_H

#include "platform/runtime/MemObject.h"
#include "platform/runtime/ProgramObject.h"

#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace KestrelPlatform::Runtime
{

/// The value that the client has set for one argument. As OpenCL demands, a memory object isn't retained: it is looked
/// up again when the kernel is enqueued.
struct SArgumentValue
{
    bool m_bSet = false;
    std::vector<unsigned char> m_vBytes; ///< of a value
    cl_mem m_hMem = nullptr;             ///< of a pointer, image or counter; may be null
    cl_ulong m_nMemId = 0;               ///< distinguishes the object from a later one with the same handle
    size_t m_nLocalBytes = 0;
    SSamplerBinding m_Sampler;
};

/// A kernel: one executable for each device that its program is built for, and the arguments.
class CKernel : public CObject
{
public:
    using Handle = cl_kernel;
    static constexpr EObjectKind s_eKind = EObjectKind::Kernel;
    using Executables = std::map<const CDevice*, std::shared_ptr<const SExecutableKernel>>;

    /// \param executables not empty, all with the same arguments
    CKernel(CRef<CProgramObject> pProgram, Executables executables);

    CProgramObject& GetProgram() const { return *m_pProgram; }
    CContext& GetContext() const { return m_pProgram->GetContext(); }
    /// The executable of a device; null if the program isn't built for it.
    std::shared_ptr<const SExecutableKernel> GetExecutable(const CDevice& device) const;
    /// The arguments, which are the same on every device.
    const std::vector<SKernelArgument>& GetArguments() const;
    cl_int SetArgument(cl_uint nIndex, size_t nSize, const void* pValue);
    /// The current values.
    std::vector<SArgumentValue> GetArgumentValues() const;

    cl_int GetInfo(cl_kernel_info eInfo, const SInfoQuery& query);
    cl_int GetArgumentInfo(cl_uint nIndex, cl_kernel_arg_info eInfo, const SInfoQuery& query) const;
    /// \param pDevice may be null if the kernel has only one device
    cl_int GetWorkGroupInfo(const CDevice* pDevice, cl_kernel_work_group_info eInfo, const SInfoQuery& query) const;

protected:
    ~CKernel() override;

private:
    const CRef<CProgramObject> m_pProgram;
    const Executables m_Executables;
    mutable std::mutex m_Mutex;
    std::vector<SArgumentValue> m_vValues;
};

} // namespace KestrelPlatform::Runtime

#endif
