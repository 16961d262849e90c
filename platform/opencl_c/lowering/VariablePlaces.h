#ifndef KESTREL_PLATFORM_OPENCL_C_LOWERING_VARIABLEPLACES_H
#define KESTREL_PLATFORM_OPENCL_C_LOWERING_VARIABLEPLACES_H

#include "platform/opencl_c/lowering/Allocation.h"
#include "platform/opencl_c/lowering/Lowered.h"
#include "platform/opencl_c/lowering/Selector.h"

namespace KestrelOpenCL
{

/// Adds where the variables of a kernel's source are, which `llvm.dbg.declare` names, and its variables in local
/// memory.
///
/// \param lines the kernel's lines, over which all these places hold
void AddVariablePlaces(const llvm::Function& kernel, const CSelector& selector, const SAllocation& allocation,
                       const SLoweredKernel& lines, SLowered& lowered);

} // namespace KestrelOpenCL

#endif
