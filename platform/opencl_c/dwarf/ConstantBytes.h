#ifndef KESTREL_PLATFORM_OPENCL_C_DWARF_CONSTANTBYTES_H
#define KESTREL_PLATFORM_OPENCL_C_DWARF_CONSTANTBYTES_H

#include <string>

namespace llvm
{
class Constant;
class DataLayout;
} // namespace llvm

namespace KestrelOpenCL
{

/// The bytes of a constant as they lie in memory. \return false for one that holds an address
bool GetConstantBytes(const llvm::Constant& constant, const llvm::DataLayout& layout, std::string& strBytes);

} // namespace KestrelOpenCL

#endif
