#ifndef KESTREL_PLATFORM_OPENCL_C_LOWERING_KERNELPARAMETERS_H
#define KESTREL_PLATFORM_OPENCL_C_LOWERING_KERNELPARAMETERS_H

#include "platform/compiler/ProgramBuilder.h"

#include <cstdint>
#include <string>
#include <vector>

namespace llvm
{
class Function;
} // namespace llvm

namespace KestrelOpenCL
{

/// A sampler that the source defines, with the number that instructions use for it.
struct SSourceSampler
{
    uint32_t nSampler = 0;
    uint32_t nValue = 0; ///< in the coding of kernel metadata
};

/// One parameter of a kernel, as in the binary's metadata.
struct SKernelParameter
{
    enum EKind
    {
        Value,
        Pointer,
        Image,
        Sampler
    };
    EKind eKind = Value;
    std::string strName;
    std::string strType; ///< token of the element type, or of the image's shape
    uint32_t nElements = 1;
    uint32_t nOffset = 0; ///< in constant buffer 1
    uint32_t nSlot = 0;   ///< size there, in bytes
    unsigned nSpace = 0;  ///< address space, for a pointer
    uint32_t nNumber = 0; ///< of the UAV, resource, sampler, or local memory
    uint32_t nAlignment = 4;
    std::string strAccess; ///< RO, WO, RW
    bool bVolatile = false;
    bool bRestrict = false;
    uint32_t nBytes = 0; ///< size that the host sets, for a value
};

/// The memory and register numbers that a kernel uses, for its metadata.
struct SKernelNeeds
{
    uint32_t nLocalBytes = 0;
    uint32_t nPrivateBytes = 0;
    std::vector<uint32_t> vArrays; ///< number of registers in the arrays of temps 1, 2, ...
    std::vector<SSourceSampler> vSamplers;
    std::vector<uint8_t> vConstants; ///< the program's constants, byte by byte
};

const uint32_t s_nRawUav = 11;    ///< the only raw UAV of the older generation
const uint32_t s_nPrivateUav = 8; ///< private memory, on both generations
const uint32_t s_nLocalId = 1;    ///< the kernel's local block

/// The parameters of a kernel, in order, with their places in constant buffer 1. Read from the `kernel_arg_*` metadata
/// that clang writes.
std::vector<SKernelParameter> ReadParameters(const llvm::Function& kernel,
                                             const KestrelPlatform::SDeviceTarget& target);

/// The metadata block of a kernel, as docs/kernel-binary.md describes it.
std::string WriteMetadata(const std::string& strKernel, uint32_t nWrapper,
                          const std::vector<SKernelParameter>& vParameters, const SKernelNeeds& needs,
                          const KestrelPlatform::SDeviceTarget& target);

} // namespace KestrelOpenCL

#endif
