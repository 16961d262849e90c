#ifndef KESTREL_PLATFORM_COMPILER_OPENCLBUILDER_H
#define KESTREL_PLATFORM_COMPILER_OPENCLBUILDER_H

#include "platform/compiler/ProgramBuilder.h"

#include <string_view>

namespace KestrelPlatform
{

/// BuildFromSource for OpenCL C. Results come from the cache if it has them, without opening the compiler.
SBuildResult BuildOpenCL(std::string_view source, const SBuildOptions& options, const SDeviceTarget& target,
                         const std::vector<SSourceHeader>& vHeaders);

/// CompileSource for OpenCL C.
SBuildResult CompileOpenCL(std::string_view source, const SBuildOptions& options, const SDeviceTarget& target,
                           const std::vector<SSourceHeader>& vHeaders);

} // namespace KestrelPlatform

#endif
