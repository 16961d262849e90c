#ifndef KESTREL_TOOLS_DEBUG_KERNELARGUMENTS_H
#define KESTREL_TOOLS_DEBUG_KERNELARGUMENTS_H

#include <string>
#include <vector>

namespace KestrelTool
{

/// An argument as a kernel's metadata has it.
struct SKernelArgument
{
    std::string strKind; ///< "value", "pointer", "image", ...
    std::string strName;
    std::string strType;
    std::string strMemory;      ///< of a pointer: "uav", "c", "hl", ...
    unsigned int nResource = 0; ///< of a pointer
    unsigned int nConstant = 0; ///< of a value or pointer: element of the constant buffer of arguments
    std::string strAccess;      ///< of a pointer or image
    bool IsGlobal() const { return strKind == "pointer" && (strMemory == "uav" || strMemory == "g"); }
};

/// The lines of a kernel's metadata block; none if the binary has no such kernel.
std::vector<std::string> ReadMetadata(const std::vector<char>& vBinary, const std::string& strKernel);
/// The names of the kernels that a binary has metadata for.
std::vector<std::string> ListKernels(const std::vector<char>& vBinary);
/// The arguments in a block of metadata, in order.
std::vector<SKernelArgument> ReadArguments(const std::vector<std::string>& vMetadata);

} // namespace KestrelTool

#endif
