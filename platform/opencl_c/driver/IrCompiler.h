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

/// The named metadata of a module for which files of the machine were read.
extern const char* const s_pszReadFiles;

/// Compiles a source with clang, from memory. Built-in functions stay declarations.
///
/// \param strLog receives the compiler's words: the user's file name, line, column and a caret
/// \return null for a source with an error
std::unique_ptr<llvm::Module> CompileToIR(llvm::LLVMContext& context, const SCompileJob& job, std::string& strLog);

/// Makes each kernel of a module a function that is whole in itself: links the built-ins that it calls, inlines all,
/// and simplifies. With "-g" it inlines only, so that every variable of the source keeps its place in memory.
///
/// What calls are left name intrinsics of LLVM, functions `__il_*`, or `printf`.
///
/// \return false with the reason in the log, such as a function that is nowhere defined
bool PrepareForLowering(llvm::Module& module, const SCompileJob& job, std::string& strLog);

} // namespace KestrelOpenCL

#endif
