#ifndef KESTREL_PLATFORM_OPENCL_C_DRIVER_CALLTREE_H
#define KESTREL_PLATFORM_OPENCL_C_DRIVER_CALLTREE_H

#include <string>
#include <vector>

namespace llvm
{
class Function;
class Module;
} // namespace llvm

namespace KestrelOpenCL
{

/// Whether a function is a kernel with a body.
bool IsKernel(const llvm::Function& function);

/// The functions that a module's kernels reach, callees before their callers.
///
/// \param strLog receives an error with the source's line for each function that calls itself, directly or not, for
/// each function that is called but not defined, and for a kernel that would be too large with all calls inlined
/// \return false if there was an error
bool OrderCalls(llvm::Module& module, std::vector<llvm::Function*>& vOrder, std::string& strLog);

} // namespace KestrelOpenCL

#endif
