#include "platform/opencl_c/driver/EmbeddedFiles.h"

#include <cstddef>

// The assembler includes a file as it is, much faster than a C++ array. Bitcode has to be aligned to words, and text
// has to end with a zero byte.
#define EMBED(name, path)                                                                                              \
    __asm__(".pushsection .rodata\n"                                                                                   \
            ".balign 16\n" #name ":\n"                                                                                 \
            ".incbin \"" path "\"\n" #name "_end:\n"                                                                   \
            ".byte 0\n"                                                                                                \
            ".popsection\n");                                                                                          \
    extern "C" __attribute__((visibility("hidden"))) const char name[];                                                \
    extern "C" __attribute__((visibility("hidden"))) const char name##_end[];

EMBED(kestrel_opencl_c_base_header, BASE_HEADER)
EMBED(kestrel_opencl_c_builtins_64, BUILTINS_64)
EMBED(kestrel_opencl_c_builtins_32, BUILTINS_32)

namespace KestrelOpenCL
{
namespace
{

std::string_view Between(const char* pStart, const char* pEnd)
{
    return {pStart, static_cast<size_t>(pEnd - pStart)};
}

} // namespace

std::string_view BaseHeader()
{
    return Between(kestrel_opencl_c_base_header, kestrel_opencl_c_base_header_end);
}

std::string_view BuiltinBitcode(bool b64BitAddresses)
{
    return b64BitAddresses ? Between(kestrel_opencl_c_builtins_64, kestrel_opencl_c_builtins_64_end)
                           : Between(kestrel_opencl_c_builtins_32, kestrel_opencl_c_builtins_32_end);
}

} // namespace KestrelOpenCL
