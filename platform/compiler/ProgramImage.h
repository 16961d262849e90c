#ifndef KESTREL_PLATFORM_COMPILER_PROGRAMIMAGE_H
#define KESTREL_PLATFORM_COMPILER_PROGRAMIMAGE_H

#include "platform/compiler/FrontEnd.h"

#include <memory>
#include <mutex>
#include <vector>

namespace KestrelPlatform
{

/// Writes the ELF image of a program; docs/kernel-binary.md describes it.
///
/// \param vKernels   one for each kernel of the module, in the same order
/// \param bDebugText whether the image gets the IL text, in `.debugil`
std::vector<char> WriteProgramImage(const SModule& module, const std::vector<SCompiledKernel>& vKernels,
                                    bool bDebugText);

/// The ELF image of a built program, made on first use: a debugger builds a program at each stop and never asks for its
/// image. Any thread.
class CProgramImage
{
public:
    explicit CProgramImage(std::vector<char> vBytes) : m_vBytes(std::move(vBytes)) {}

    /// \param module     a module that was linked for the target without a fault
    /// \param bDebugText as for WriteProgramImage
    CProgramImage(SModule module, const SDeviceTarget& target, bool bDebugText)
        : m_pSource(new SSource{std::move(module), target, bDebugText})
    {
    }

    /// Gives the same bytes at each call. Throws std::bad_alloc if memory runs out, and may then be called again.
    const std::vector<char>& GetBytes() const;

private:
    struct SSource
    {
        SModule module;
        SDeviceTarget target;
        bool bDebugText;
    };

    mutable std::mutex m_Mutex;
    mutable std::unique_ptr<const SSource> m_pSource; ///< null once the image is made
    mutable std::vector<char> m_vBytes;
};

} // namespace KestrelPlatform

#endif
