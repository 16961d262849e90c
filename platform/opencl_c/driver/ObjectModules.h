#ifndef KESTREL_PLATFORM_OPENCL_C_DRIVER_OBJECTMODULES_H
#define KESTREL_PLATFORM_OPENCL_C_DRIVER_OBJECTMODULES_H

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace llvm
{
class LLVMContext;
class Module;
} // namespace llvm

namespace KestrelOpenCL
{

/// A module as the bytes of an object file.
std::string WriteObject(const llvm::Module& module);

/// Joins objects into one module. Duplicate definitions are errors, and so are bytes that aren't an object for this
/// address width.
///
/// \return null with the reason in the log
std::unique_ptr<llvm::Module> LinkObjects(llvm::LLVMContext& context, const std::vector<std::string_view>& vObjects,
                                          bool b64BitAddresses, std::string& strLog);

} // namespace KestrelOpenCL

#endif
