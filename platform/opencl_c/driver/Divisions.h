#ifndef KESTREL_PLATFORM_OPENCL_C_DRIVER_DIVISIONS_H
#define KESTREL_PLATFORM_OPENCL_C_DRIVER_DIVISIONS_H

namespace llvm
{
class Function;
class Module;
} // namespace llvm

namespace KestrelOpenCL
{

/// To LLVM, an integer division by zero or one that overflows is undefined behaviour, and code that leads to it is
/// removed. OpenCL C only leaves the result undefined. So while LLVM's passes run, divisions whose divisor isn't known
/// to be safe are calls of functions that LLVM knows nothing about.

/// Turns such divisions into calls.
void HideDivisions(llvm::Module& module);

/// Turns the calls whose divisors are known by now back into divisions; with bAll, all of them, after the last pass.
void ShowDivisions(llvm::Function& function, bool bAll);

} // namespace KestrelOpenCL

#endif
