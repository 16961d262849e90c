#ifndef KESTREL_PLATFORM_OPENCL_C_DWARF_PLACEEXPRESSIONS_H
#define KESTREL_PLATFORM_OPENCL_C_DWARF_PLACEEXPRESSIONS_H

#include "platform/opencl_c/lowering/Lowered.h"

#include <cstdint>
#include <string>
#include <vector>

namespace KestrelOpenCL
{

/// Where a variable is in a stretch of lines, as a location of DWARF; docs/kernel-binary.md tells the numbers.
struct SLocationRange
{
    uint32_t nFirst = 0;
    uint32_t nEnd = 0; ///< the line after the last
    std::string strExpression;
};

/// Joins the places of one variable, or of its parts, by the lines for which they hold.
///
/// \return ascending, with different expressions one after the other; lines at which nothing is known are left out
std::vector<SLocationRange> JoinPlaces(const std::vector<const SVariablePlace*>& vPlaces);

/// The location of a variable in local memory.
std::string LocalExpression(uint32_t nOffset);

} // namespace KestrelOpenCL

#endif
