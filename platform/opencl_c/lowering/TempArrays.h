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

/// A variable of the function that is kept in an array of temps, such as `x1[0]`.
struct STempArray
{
    uint32_t nNumber = 0;    ///< of `dcl_indexed_temp_array`
    uint32_t nUnitBytes = 0; ///< how many bytes of the variable each register holds: 4 to 16
    uint32_t nRegisters = 0;
};

typedef llvm::MapVector<const llvm::AllocaInst*, STempArray> TempArrays;

/// Finds the variables of a kernel that can be in arrays of temps: those whose address is only used by loads, stores,
/// copies and fills of whole words, at offsets that are constant apart from multiples of some number of words. Takes as
/// many as fit together. An unknown offset selects the register by an index, and its constant part selects the
/// component.
TempArrays FindTempArrays(const llvm::Function& kernel, const CValueTypes& types);

} // namespace KestrelOpenCL

#endif
