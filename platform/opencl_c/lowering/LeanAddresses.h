#ifndef KESTREL_PLATFORM_OPENCL_C_LOWERING_LEANADDRESSES_H
#define KESTREL_PLATFORM_OPENCL_C_LOWERING_LEANADDRESSES_H

namespace llvm
{
class DominatorTree;
class Function;
} // namespace llvm

namespace KestrelOpenCL
{

/// Splits addresses of one word (in local and private memory, and all on the older device): parts that are constant in
/// a loop are computed before it, common parts are computed once, and constants are added last. Addresses of two words
/// are left alone: a base plus an index times a constant, computed where it is used, is best for them.
void MakeAddressesLean(llvm::Function& kernel, const llvm::DominatorTree& dominators, bool b64BitAddresses);

} // namespace KestrelOpenCL

#endif
