#ifndef KESTREL_PLATFORM_OPENCL_C_DRIVER_LINKBUILTINS_H
#define KESTREL_PLATFORM_OPENCL_C_DRIVER_LINKBUILTINS_H

#include <string>

namespace llvm
{
class Module;
}

namespace KestrelOpenCL
{

/// Takes those built-in functions into the module that it calls, directly or through others.
///
/// \return false with the reason in the log
bool LinkBuiltins(llvm::Module& module, bool b64BitAddresses, std::string& strLog);

} // namespace KestrelOpenCL

#endif
