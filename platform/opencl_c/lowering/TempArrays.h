#ifndef KESTREL_PLATFORM_OPENCL_C_LOWERING_TEMPARRAYS_H
#define KESTREL_PLATFORM_OPENCL_C_LOWERING_TEMPARRAYS_H

#include "platform/opencl_c/lowering/ValueTypes.h"

#include "llvm/ADT/MapVector.h"

#include <cstdint>
#include <vector>

namespace llvm
{
class AllocaInst;
class Function;
class Value;
} // namespace llvm

namespace KestrelOpenCL
{

/// A variable of the function that lies in an array of temps, `x1[0]` and so on.
struct STempArray
{
    uint32_t nNumber = 0;    ///< of `dcl_indexed_temp_array`
    uint32_t nUnitBytes = 0; ///< of the variable in each register: 4 to 16
    uint32_t nRegisters = 0;
};

typedef llvm::MapVector<const llvm::AllocaInst*, STempArray> TempArrays;

/// Which variables of a kernel can lie in arrays of temps: those whose address only goes into loads, stores, copies and
/// fills of whole words at places that are known but for multiples of some number of words; as many as are small enough
/// together. A place whose offset isn't known takes its register by an index and its component by the known part.
TempArrays FindTempArrays(const llvm::Function& kernel, const CValueTypes& types);

} // namespace KestrelOpenCL

#endif
