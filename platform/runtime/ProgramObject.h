#ifndef KESTREL_PLATFORM_RUNTIME_PROGRAMOBJECT_H
#define KESTREL_PLATFORM_RUNTIME_PROGRAMOBJECT_H

#include "platform/compiler/ProgramBuilder.h"
#include "platform/runtime/Context.h"
#include "platform/simt/WideLaunch.h"

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace KestrelPlatform::Runtime
{

/// A kernel of a built program, ready to run on one device.
struct SExecutableKernel
{
    SCompiledKernel m_Compiled;
    std::shared_ptr<const KestrelPlatform::CProgram> m_pDecoded;
    std::shared_ptr<const KestrelPlatform::CProgramImage> m_pImage; ///< of the whole program, or null
};

using ExecutableKernels = std::vector<std::shared_ptr<const SExecutableKernel>>;

/// The state of a program for one of its devices. A build replaces it as a whole.
struct SDeviceProgram
{
    CRef<CDevice> m_pDevice;
    cl_build_status m_eStatus = CL_BUILD_NONE;
    cl_program_binary_type m_eBinaryType = CL_PROGRAM_BINARY_TYPE_NONE;
    std::string m_strOptions;
    std::string m_strLog;
    std::shared_ptr<const CProgramImage> m_pImage; ///< as CL_PROGRAM_BINARIES gives it; null for none
    ExecutableKernels m_vKernels;                  ///< of an executable or a compiled object
};

/// A program: its source or images, and what builds have made of them for each device.
class CProgramObject : public CObject
{
public:
    using Handle = cl_program;
    static constexpr EObjectKind s_eKind = EObjectKind::Program;

    /// \param source none for a program created from images
    CProgramObject(CRef<CContext> pContext, std::optional<std::string> source, std::vector<SDeviceProgram> vDevices)
        : CObject(s_eKind), m_pContext(std::move(pContext)), m_Source(std::move(source)),
          m_vDevices(std::move(vDevices))
    {
    }

    CContext& GetContext() const { return *m_pContext; }
    const std::optional<std::string>& GetSource() const { return m_Source; }
    /// The state for each device; a copy, so that a build may run meanwhile.
    std::vector<SDeviceProgram> GetDevicePrograms() const;
    bool FindDeviceProgram(const CDevice& device, SDeviceProgram& program) const;
    cl_int GetInfo(cl_program_info eInfo, const SInfoQuery& query);
    cl_int GetBuildInfo(const CDevice& device, cl_program_build_info eInfo, const SInfoQuery& query) const;

    /// Reserves the program for a build of some of its devices.
    /// \return CL_INVALID_OPERATION if it has kernels or is being built, CL_INVALID_DEVICE for a
    ///         device that isn't one of the program's
    cl_int BeginBuild(const std::vector<CRef<CDevice>>& vDevices);
    /// Stores the result of a build for a device.
    void EndBuild(SDeviceProgram program);

    /// Counts the kernels that use the program, and so prevent a build.
    void CountKernel(int nChange);

private:
    SDeviceProgram* Find(const CDevice& device);

    const CRef<CContext> m_pContext;
    const std::optional<std::string> m_Source;
    mutable std::mutex m_Mutex;
    std::vector<SDeviceProgram> m_vDevices;
    int m_nKernels = 0;
};

/// OpenCL's name for a type of image.
cl_program_binary_type BinaryType(EImageType eType);

} // namespace KestrelPlatform::Runtime

#endif
