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

/// The lines of IL text that belong to one kernel, 0-based as in `.debugil`.
struct SLoweredKernel
{
    const llvm::Function* pFunction = nullptr;
    uint32_t nWrapperFirst = 0; ///< the wrapper's `func`
    uint32_t nWrapperLast = 0;  ///< its `endfunc`
    uint32_t nFirst = 0;        ///< the kernel function's `func`
    uint32_t nLast = 0;         ///< its `endfunc`
};

/// Where a source variable, or a part of it, is, while the next instruction to execute is in some range of lines of the
/// IL text.
struct SVariablePlace
{
    enum EKind
    {
        Register,       ///< components of temps: 4 x register + component, one a 32-bit word, the low word first
        Private,        ///< nOffset bytes into the private UAV
        ConstantBuffer, ///< nOffset bytes into constant buffer 1
        Literal,        ///< vComponents are the words of the value
        Local           ///< nOffset bytes into the kernel's local block
    };

    const llvm::DILocalVariable* pVariable = nullptr;
    const llvm::DILocation* pInlinedAt = nullptr;
    const llvm::Function* pKernel = nullptr;
    uint32_t nFirstLine = 0;  ///< of the IL text, 0-based
    uint32_t nLastLine = 0;   ///< the last line for which the place is valid
    uint32_t nByteOffset = 0; ///< of the part in the variable
    uint32_t nByteSize = 0;   ///< of the part; 0 for all of it
    EKind eKind = Register;
    /// A value of less than 32 bits takes a word, and so does each element of a vector of such values.
    std::vector<uint32_t> vComponents;
    uint32_t nOffset = 0;
};

/// Where a variable that a kernel declares in local memory lies. To LLVM such variables are globals.
struct SLocalPlace
{
    const llvm::GlobalVariable* pVariable = nullptr;
    const llvm::Function* pKernel = nullptr;
    uint32_t nOffset = 0; ///< bytes into the kernel's local block
};

/// The lowered kernels of a module. Refers to the llvm::Module, which must live as long.
struct SLowered
{
    KestrelPlatform::SModule module;
    std::vector<SLoweredKernel> vKernels;        ///< in the order of module.vKernels
    std::vector<const llvm::DILocation*> vLines; ///< by line of the IL text; null for no place
    std::vector<SVariablePlace> vVariables;
    std::vector<SLocalPlace> vLocals;
};

/// Lowers a prepared module to IL; see PrepareForLowering.
///
/// \param bDebug whether the source's variables keep places of their own
/// \return false with the reason in the log: the kernel and the limit that it exceeds, or the source line of what can't
/// be translated
bool LowerModule(llvm::Module& module, const KestrelPlatform::SDeviceTarget& target, bool bDebug, SLowered& lowered,
                 std::string& strLog);

} // namespace KestrelOpenCL

#endif
