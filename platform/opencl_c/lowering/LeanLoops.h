#ifndef KESTREL_PLATFORM_OPENCL_C_LOWERING_LEANLOOPS_H
#define KESTREL_PLATFORM_OPENCL_C_LOWERING_LEANLOOPS_H

namespace llvm
{
class Function;
} // namespace llvm

namespace KestrelOpenCL
{

/// Brings the loops of a kernel into a form that becomes few instructions: products of a counter become sums that go
/// from pass to pass, and values are taken from where a register has them already. Blocks and edges stay as they are.
/// Addresses too (see LeanAddresses.h). Not for kernels whose variables somebody looks at.
void MakeLean(llvm::Function& kernel, bool b64BitAddresses);

} // namespace KestrelOpenCL

#endif
