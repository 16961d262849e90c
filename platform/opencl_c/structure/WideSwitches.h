#ifndef KESTREL_PLATFORM_OPENCL_C_STRUCTURE_WIDESWITCHES_H
#define KESTREL_PLATFORM_OPENCL_C_STRUCTURE_WIDESWITCHES_H

namespace llvm
{
class Function;
} // namespace llvm

namespace KestrelOpenCL
{

/// Leaves switches over 2 to 32 bits only. Those over more, up to 64, are split in two: over the high word, then over
/// the low one. Those over one bit become branches.
void FitSwitches(llvm::Function& function);

} // namespace KestrelOpenCL

#endif
