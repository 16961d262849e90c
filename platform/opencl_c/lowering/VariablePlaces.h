#ifndef KESTREL_PLATFORM_OPENCL_C_LOWERING_VARIABLEPLACES_H
#define KESTREL_PLATFORM_OPENCL_C_LOWERING_VARIABLEPLACES_H

#include "platform/opencl_c/lowering/Allocation.h"
#include "platform/opencl_c/lowering/Lowered.h"
#include "platform/opencl_c/lowering/Selector.h"

namespace KestrelOpenCL
{

/// Adds the places of a kernel's source variables, which `llvm.dbg.declare` names, and of its variables in local
/// memory.
///
/// \param lines the kernel's lines; the places are valid in all of them
void AddVariablePlaces(const llvm::Function& kernel, const CSelector& selector, const SAllocation& allocation,
                       const SLoweredKernel& lines, SLowered& lowered);

} // namespace KestrelOpenCL

#endif
