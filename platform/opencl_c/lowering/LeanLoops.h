#ifndef KESTREL_PLATFORM_OPENCL_C_LOWERING_LEANLOOPS_H
#define KESTREL_PLATFORM_OPENCL_C_LOWERING_LEANLOOPS_H

namespace llvm
{
class Function;
} // namespace llvm

namespace KestrelOpenCL
{

/// Brings a kernel's loops into a form that takes few instructions: products of a counter become sums that grow with
/// each pass, and values are taken from registers that hold them already. Also simplifies addresses (see
/// LeanAddresses.h). Blocks and edges don't change. Not for kernels whose variables a debugger shows.
void MakeLean(llvm::Function& kernel, bool b64BitAddresses);

} // namespace KestrelOpenCL

#endif
