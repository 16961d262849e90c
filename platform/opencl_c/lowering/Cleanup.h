#ifndef KESTREL_PLATFORM_OPENCL_C_LOWERING_CLEANUP_H
#define KESTREL_PLATFORM_OPENCL_C_LOWERING_CLEANUP_H

#include "platform/opencl_c/lowering/Machine.h"

namespace KestrelOpenCL
{

/// Takes out what translating one instruction at a time leaves behind: copies of registers that still hold the same
/// value where the copy is read, results that nobody reads, and copies into variables of results that could have been
/// written there at once. Near linear in the number of instructions.
void CleanUp(SKernelCode& code);

} // namespace KestrelOpenCL

#endif
