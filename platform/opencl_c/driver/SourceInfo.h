#ifndef KESTREL_PLATFORM_OPENCL_C_DRIVER_SOURCEINFO_H
#define KESTREL_PLATFORM_OPENCL_C_DRIVER_SOURCEINFO_H

#include <string>

namespace llvm
{
class Function;
}

namespace KestrelOpenCL
{

/// The metadata lines that tell how a kernel's source reads: its arguments' types, names and qualifiers, its
/// attributes, its formats of printf. Each with its "\n"; docs/kernel-binary.md tells what is in them.
std::string SourceInfoLines(const llvm::Function& kernel);

} // namespace KestrelOpenCL

#endif
