#ifndef KESTREL_PLATFORM_OPENCL_C_DRIVER_BARENAMES_H
#define KESTREL_PLATFORM_OPENCL_C_DRIVER_BARENAMES_H

#include <cstddef>
#include <string_view>

namespace KestrelOpenCL
{

/// Finds a `\N` at the end of a string or character constant, or one that a macro could put there. clang reads past the
/// end of such a string, and never finds the end of such a character constant, even within a directive.
/// \return the offset of the backslash, `std::string_view::npos` if there is none
size_t FindBareName(std::string_view source);

} // namespace KestrelOpenCL

#endif
