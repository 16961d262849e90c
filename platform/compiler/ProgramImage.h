#ifndef KESTREL_PLATFORM_COMPILER_PROGRAMIMAGE_H
#define KESTREL_PLATFORM_COMPILER_PROGRAMIMAGE_H

#include "platform/compiler/FrontEnd.h"

#include <vector>

namespace KestrelPlatform
{

/// Writes the ELF image of a program; docs/kernel-binary.md tells what is in it.
///
/// \param vKernels   one for each kernel of the module, in the same order
/// \param bDebugText whether the image gets the IL text, in `.debugil`
std::vector<char> WriteProgramImage(const SModule& module, const std::vector<SCompiledKernel>& vKernels,
                                    bool bDebugText);

} // namespace KestrelPlatform

#endif
