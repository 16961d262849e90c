#ifndef KESTREL_PLATFORM_OPENCL_C_DRIVER_DIVISIONS_H
#define KESTREL_PLATFORM_OPENCL_C_DRIVER_DIVISIONS_H

namespace llvm
{
class Function;
class Module;
} // namespace llvm

namespace KestrelOpenCL
{

/// To LLVM a division of integers by zero, or one that overflows, may do anything, and what leads to it is thrown away.
/// OpenCL C lets it give any value. So divisions whose divisor isn't known to be harmless are calls of functions that
/// LLVM knows nothing about, as long as its passes run.

/// Turns such divisions into calls.
void HideDivisions(llvm::Module& module);

/// Turns those calls back whose divisors have become known, or all of them, once no pass runs any more.
void ShowDivisions(llvm::Function& function, bool bAll);

} // namespace KestrelOpenCL

#endif
