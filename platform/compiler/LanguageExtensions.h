#ifndef KESTREL_PLATFORM_COMPILER_LANGUAGEEXTENSIONS_H
#define KESTREL_PLATFORM_COMPILER_LANGUAGEEXTENSIONS_H

#include <string_view>

namespace KestrelPlatform
{

/// The extensions of OpenCL C that every device has. The device's list is made of them, and the compiler defines these
/// macros and accepts these pragmas only.
constexpr std::string_view s_LanguageExtensions[] = {
    "cl_khr_byte_addressable_store",   "cl_khr_global_int32_base_atomics",    "cl_khr_global_int32_extended_atomics",
    "cl_khr_local_int32_base_atomics", "cl_khr_local_int32_extended_atomics", "cl_khr_fp64",
    "cl_khr_3d_image_writes"};

} // namespace KestrelPlatform

#endif
