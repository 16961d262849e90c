#ifndef KESTREL_PLATFORM_OPENCL_C_DRIVER_IRCOMPILER_H
#define KESTREL_PLATFORM_OPENCL_C_DRIVER_IRCOMPILER_H

#include "platform/opencl_c/CompileJob.h"

#include <memory>
#include <string>

namespace llvm
{
class LLVMContext;
class Module;
} // namespace llvm

namespace KestrelOpenCL
{

/// The named metadata of a module that was compiled from files on disk too.
extern const char* const s_pszReadFiles;

/// Compiles a source with clang, from memory. Built-in functions remain declarations.
///
/// \param strLog receives the compiler's messages, with the user's file name, line, column and a caret
/// \return null for a source with an error
std::unique_ptr<llvm::Module> CompileToIR(llvm::LLVMContext& context, const SCompileJob& job, std::string& strLog);

/// Makes each kernel of a module self-contained: links the built-ins that it calls, inlines everything, and simplifies.
/// With "-g" it doesn't simplify, so that every variable of the source keeps its place in memory.
///
/// The remaining calls are LLVM intrinsics, functions `__il_*`, and `printf`.
///
/// \return false with the reason in the log, such as a function without a definition
bool PrepareForLowering(llvm::Module& module, const SCompileJob& job, std::string& strLog);

} // namespace KestrelOpenCL

#endif
