#ifndef KESTREL_PLATFORM_OPENCL_C_STRUCTURE_WIDESWITCHES_H
#define KESTREL_PLATFORM_OPENCL_C_STRUCTURE_WIDESWITCHES_H

namespace llvm
{
class Function;
} // namespace llvm

namespace KestrelOpenCL
{

/// Splits switches over 33 to 64 bits in two: over the high word, then over the low one.
void SplitWideSwitches(llvm::Function& function);

} // namespace KestrelOpenCL

#endif
