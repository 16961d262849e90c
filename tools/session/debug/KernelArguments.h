#ifndef KESTREL_TOOLS_DEBUG_KERNELARGUMENTS_H
#define KESTREL_TOOLS_DEBUG_KERNELARGUMENTS_H

#include <string>
#include <vector>

namespace KestrelTool
{

/// An argument as described by a kernel's metadata.
struct SKernelArgument
{
    std::string strKind; ///< "value", "pointer", "image" or "sampler"
    std::string strName;
    std::string strType;
    std::string strMemory;      ///< for a pointer: "uav", "c", "hl", ...
    unsigned int nResource = 0; ///< for a pointer, image or sampler
    unsigned int nElements = 1; ///< for a value
    unsigned int nConstant = 0; ///< element of the constant buffer of arguments
    std::string strAccess;      ///< for a pointer or image
    bool IsLocal() const { return strKind == "pointer" && (strMemory == "hl" || strMemory == "l"); }
    bool IsGlobal() const { return strKind == "pointer" && (strMemory == "uav" || strMemory == "g"); }
};

/// The lines of a kernel's metadata block; none if the binary has no such kernel.
std::vector<std::string> ReadMetadata(const std::vector<char>& vBinary, const std::string& strKernel);
/// The names of the kernels with metadata in a binary.
std::vector<std::string> ListKernels(const std::vector<char>& vBinary);
/// The label of a kernel's function, from its metadata; 0 for none.
unsigned int ReadLabel(const std::vector<std::string>& vMetadata);
/// The bytes of local memory that the kernel itself declares, according to its metadata.
unsigned int ReadLocalBytes(const std::vector<std::string>& vMetadata);
/// The arguments in the metadata, in order.
std::vector<SKernelArgument> ReadArguments(const std::vector<std::string>& vMetadata);

} // namespace KestrelTool

#endif
