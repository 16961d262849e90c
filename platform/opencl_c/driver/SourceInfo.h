#ifndef KESTREL_PLATFORM_OPENCL_C_DRIVER_SOURCEINFO_H
#define KESTREL_PLATFORM_OPENCL_C_DRIVER_SOURCEINFO_H

#include <string>

namespace llvm
{
class Function;
}

namespace KestrelOpenCL
{

/// The metadata lines about a kernel's source: types, names and qualifiers of its arguments, its attributes, and its
/// printf formats. Each ends with "\n"; docs/kernel-binary.md describes them.
std::string SourceInfoLines(const llvm::Function& kernel);

} // namespace KestrelOpenCL

#endif
