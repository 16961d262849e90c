#ifndef KESTREL_PLATFORM_OPENCL_C_DRIVER_BARENAMES_H
#define KESTREL_PLATFORM_OPENCL_C_DRIVER_BARENAMES_H

#include <cstddef>
#include <string_view>

namespace KestrelOpenCL
{

/// Looks for `\N` that ends a text or a character, or could once a macro makes a text of it. clang reads past the end
/// of such a text, and never finds the end of such a character, also where a directive has them. \return the offset of
/// the backslash, `std::string_view::npos` if there is none
size_t FindBareName(std::string_view source);

} // namespace KestrelOpenCL

#endif
