#ifndef KESTREL_PLATFORM_OPENCL_C_LOWERING_CLEANUP_H
#define KESTREL_PLATFORM_OPENCL_C_LOWERING_CLEANUP_H

#include "platform/opencl_c/lowering/MachineCode.h"

namespace KestrelOpenCL
{

/// Removes what the translation of single instructions leaves over: copies whose source still holds the value where the
/// copy is read, results that nobody reads, and copies into variables of results that could be written there directly.
/// Takes nearly linear time in the number of instructions.
void CleanUp(SKernelCode& code);

} // namespace KestrelOpenCL

#endif
