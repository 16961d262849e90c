#ifndef KESTREL_PLATFORM_OPENCL_C_DRIVER_EMBEDDEDFILES_H
#define KESTREL_PLATFORM_OPENCL_C_DRIVER_EMBEDDEDFILES_H

#include <string_view>

namespace KestrelOpenCL
{

/// The compiler's own header for OpenCL C: types, limits and constants, no functions. Ends with a zero byte that isn't
/// part of it.
std::string_view BaseHeader();

/// The built-in functions as bitcode, for an address width.
std::string_view BuiltinBitcode(bool b64BitAddresses);

} // namespace KestrelOpenCL

#endif
