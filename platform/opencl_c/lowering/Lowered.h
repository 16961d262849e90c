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
class Function;
class GlobalVariable;
class Module;
} // namespace llvm

namespace KestrelOpenCL
{

/// The lines of the IL text that one kernel takes, 0-based as in `.debugil`.
struct SLoweredKernel
{
    const llvm::Function* pFunction = nullptr;
    uint32_t nWrapperFirst = 0; ///< the wrapper's `func`
    uint32_t nWrapperLast = 0;  ///< its `endfunc`
    uint32_t nFirst = 0;        ///< the kernel function's `func`
    uint32_t nLast = 0;         ///< its `endfunc`
};

/// Where a variable of the source is, or a part of it, while the next instruction to execute stands on one of some
/// lines of the IL text.
struct SVariablePlace
{
    enum EKind
    {
        Register,       ///< components of temps: 4 x register + component, one a 32-bit word, the low word first
        Private,        ///< nOffset bytes into the private UAV
        ConstantBuffer, ///< nOffset bytes into constant buffer 1
        Literal,        ///< vComponents are the words of the value itself
        Local           ///< nOffset bytes into the kernel's local block
    };

    const llvm::DILocalVariable* pVariable = nullptr;
    const llvm::DILocation* pInlinedAt = nullptr;
    const llvm::Function* pKernel = nullptr;
    uint32_t nFirstLine = 0;  ///< of the IL text, 0-based
    uint32_t nLastLine = 0;   ///< the last one for which the place holds
    uint32_t nByteOffset = 0; ///< of the part in the variable
    uint32_t nByteSize = 0;   ///< of the part; 0 for all of it
    EKind eKind = Register;
    /// Values narrower than 32 bits take a word each, and so does each element of a vector of them.
    std::vector<uint32_t> vComponents;
    uint32_t nOffset = 0;
};

/// Where a variable that a kernel declares in local memory is. Such variables are globals to LLVM.
struct SLocalPlace
{
    const llvm::GlobalVariable* pVariable = nullptr;
    const llvm::Function* pKernel = nullptr;
    uint32_t nOffset = 0; ///< bytes into the kernel's local block
};

/// What a module's kernels have become. It refers to the llvm::Module, which must live as long.
struct SLowered
{
    KestrelPlatform::SModule module;
    std::vector<SLoweredKernel> vKernels;        ///< in the order of module.vKernels
    std::vector<const llvm::DILocation*> vLines; ///< by line of the IL text; null for none
    std::vector<SVariablePlace> vVariables;
    std::vector<SLocalPlace> vLocals;
};

/// Turns a prepared module into IL: see PrepareForLowering.
///
/// \param bDebug whether variables of the source keep a place of their own
/// \return false with the reason in the log, which names the kernel and the number of a limit that is passed, or the
/// source's line of what has no translation
bool LowerModule(llvm::Module& module, const KestrelPlatform::SDeviceTarget& target, bool bDebug, SLowered& lowered,
                 std::string& strLog);

} // namespace KestrelOpenCL

#endif
