#ifndef KESTREL_PLATFORM_OPENCL_C_STRUCTURE_WIDESWITCHES_H
#define KESTREL_PLATFORM_OPENCL_C_STRUCTURE_WIDESWITCHES_H

namespace llvm
{
class Function;
} // namespace llvm

namespace KestrelOpenCL
{

/// Leaves only switches over 2 to 32 bits. A switch over up to 64 bits becomes one over the high word and then one over
/// the low word. A switch over one bit becomes a branch.
void FitSwitches(llvm::Function& function);

} // namespace KestrelOpenCL

#endif
