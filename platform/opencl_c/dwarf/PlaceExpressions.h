#ifndef KESTREL_PLATFORM_OPENCL_C_DWARF_PLACEEXPRESSIONS_H
#define KESTREL_PLATFORM_OPENCL_C_DWARF_PLACEEXPRESSIONS_H

#include "platform/opencl_c/lowering/Lowered.h"

#include <cstdint>
#include <string>
#include <vector>

namespace KestrelOpenCL
{

/// A variable's location in a range of lines, as a DWARF expression; docs/kernel-binary.md explains the numbers.
struct SLocationRange
{
    uint32_t nFirst = 0;
    uint32_t nEnd = 0; ///< the line after the last
    std::string strExpression;
};

/// Joins the places of one variable, or of its parts, by the lines for which they are valid.
///
/// \return ascending ranges, neighbours with different expressions; lines where nothing is known are left out
std::vector<SLocationRange> JoinPlaces(const std::vector<const SVariablePlace*>& vPlaces);

/// The location of a variable in local memory.
std::string LocalExpression(uint32_t nOffset);

} // namespace KestrelOpenCL

#endif
