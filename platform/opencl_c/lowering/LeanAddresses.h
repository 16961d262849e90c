#ifndef KESTREL_PLATFORM_OPENCL_C_LOWERING_LEANADDRESSES_H
#define KESTREL_PLATFORM_OPENCL_C_LOWERING_LEANADDRESSES_H

namespace llvm
{
class DominatorTree;
class Function;
} // namespace llvm

namespace KestrelOpenCL
{

/// Takes addresses of one word apart, those in local and private memory and all on the older device: what stays the
/// same in a loop goes in front of it, what several have in common is computed once, and what is known is added at the
/// end. An address of two words is best computed as one multiple of an index at a base, where it is used.
void MakeAddressesLean(llvm::Function& kernel, const llvm::DominatorTree& dominators, bool b64BitAddresses);

} // namespace KestrelOpenCL

#endif
