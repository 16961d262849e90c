#ifndef KESTREL_PLATFORM_OPENCL_C_DRIVER_LINKBUILTINS_H
#define KESTREL_PLATFORM_OPENCL_C_DRIVER_LINKBUILTINS_H

#include <string>

namespace llvm
{
class Module;
}

namespace KestrelOpenCL
{

/// Links the built-in functions that a module calls, directly or indirectly.
///
/// \return false with the reason in the log
bool LinkBuiltins(llvm::Module& module, bool b64BitAddresses, std::string& strLog);

} // namespace KestrelOpenCL

#endif
