#ifndef KESTREL_PLATFORM_OPENCL_C_LOWERING_KERNELWRAPPER_H
#define KESTREL_PLATFORM_OPENCL_C_LOWERING_KERNELWRAPPER_H

#include "platform/opencl_c/lowering/KernelParameters.h"

#include <cstdint>
#include <string>
#include <vector>

namespace KestrelOpenCL
{

/// The wrapper of a kernel: its declarations, and the call of the kernel's function, whose number is the next one.
///
/// \param bLocal whether the kernel uses local memory, be it only through arguments
std::string WriteWrapper(const llvm::Function& kernel, uint32_t nWrapper,
                         const std::vector<SKernelParameter>& vParameters, const SKernelNeeds& needs,
                         const KestrelPlatform::SDeviceTarget& target, bool bLocal);

} // namespace KestrelOpenCL

#endif
