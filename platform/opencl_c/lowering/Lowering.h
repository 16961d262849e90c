#ifndef KESTREL_PLATFORM_OPENCL_C_LOWERING_LOWERING_H
#define KESTREL_PLATFORM_OPENCL_C_LOWERING_LOWERING_H

#include "platform/compiler/FrontEnd.h"
#include "platform/compiler/ProgramBuilder.h"

#include <cstdint>
#include <string>
#include <vector>

namespace llvm
{
class DILocalVariable;
class DILocation;
class Function;
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

/// Where a line of the IL text comes from.
struct SLine
{
    const llvm::DILocation* pLocation = nullptr; ///< null for declarations and what the compiler adds
};

/// Where a variable, or a part of it, is found while the next instruction to execute stands on one of some lines.
struct SVariablePlace
{
    enum EKind
    {
        Registers, ///< vWords: 4 × temp register + component, one for each 32-bit word of the value, low word first
        PrivateMemory,  ///< at byte nOffset of the private UAV
        ConstantBuffer, ///< at byte nOffset of constant buffer nBuffer, contiguous
        Literal,        ///< vWords: the words of the value
        LocalMemory     ///< at byte nOffset of the kernel's local block
    };

    const llvm::DILocalVariable* pVariable = nullptr;
    const llvm::DILocation* pInlinedAt = nullptr;
    const llvm::Function* pKernel = nullptr;
    uint32_t nFirstLine = 0; ///< 0-based, both inclusive
    uint32_t nLastLine = 0;
    uint32_t nByteOffset = 0; ///< of the part in the variable
    uint32_t nByteSize = 0;   ///< of the part; 0 for all of the variable
    EKind eKind = Registers;
    std::vector<uint32_t> vWords; ///< values narrower than 32 bits take a word each; vectors of them a word an element
    uint32_t nOffset = 0;
    uint32_t nBuffer = 1;
};

/// What lowering makes of a module. It refers to the llvm::Module, which must live as long.
struct SLowered
{
    KestrelPlatform::SModule module;
    std::vector<SLoweredKernel> vKernels; ///< in the order of module.vKernels
    std::vector<SLine> vLines;            ///< by line of module.strText
    std::vector<SVariablePlace> vVariables;
};

/// Translates the kernels of a prepared module (all calls inlined but those that lowering knows) into IL.
///
/// \param bDebug variables of the source keep a place of their own, so that they can be read at each line
/// \param strLog receives a line for each fault: a limit with the kernel's name and the number, or a construct that
///               has no translation with its place in the source
/// \return false if there was a fault
bool LowerModule(llvm::Module& module, const KestrelPlatform::SDeviceTarget& target, bool bDebug, SLowered& lowered,
                 std::string& strLog);

} // namespace KestrelOpenCL

#endif
