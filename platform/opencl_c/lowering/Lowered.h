#ifndef KESTREL_PLATFORM_OPENCL_C_LOWERING_LOWERED_H
#define KESTREL_PLATFORM_OPENCL_C_LOWERING_LOWERED_H

#include "platform/compiler/FrontEnd.h"

#include <cstdint>
#include <string>
#include <vector>

namespace llvm
{
class DILocalVariable;
class DILocation;
class Module;
} // namespace llvm

namespace KestrelOpenCL
{

/// Where a variable of the source is, from one line of the IL text to another.
struct SVariablePlace
{
    enum EKind
    {
        Register,       ///< components of temps: 4 x register + component, in order
        Private,        ///< nOffset bytes into the private UAV
        ConstantBuffer, ///< nOffset bytes into constant buffer 1
        Literal         ///< vComponents are the words of the value itself
    };

    const llvm::DILocalVariable* pVariable = nullptr;
    const llvm::DILocation* pInlinedAt = nullptr;
    uint32_t nFirstLine = 0; ///< of the IL text, 0-based
    uint32_t nLastLine = 0;  ///< the last one for which the place holds
    EKind eKind = Register;
    std::vector<uint32_t> vComponents;
    uint32_t nOffset = 0;
};

/// What a module's kernels have become.
struct SLowered
{
    KestrelPlatform::SModule module;
    std::vector<const llvm::DILocation*> vLines; ///< by line of the IL text; null for none
    std::vector<SVariablePlace> vVariables;
};

/// Turns a prepared module into IL: see PrepareForLowering.
///
/// \param bDebug whether variables of the source keep a place of their own
/// \return false with the reason in the log, which names the kernel and the number of a limit that is passed
bool LowerModule(llvm::Module& module, const KestrelPlatform::SDeviceTarget& target, bool bDebug, SLowered& lowered,
                 std::string& strLog);

} // namespace KestrelOpenCL

#endif
