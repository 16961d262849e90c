#ifndef KESTREL_TOOLS_CONVERT_DESCRIBE_H
#define KESTREL_TOOLS_CONVERT_DESCRIBE_H

#include <string>
#include <vector>

namespace KestrelTool
{

/// What a kernel binary holds, for people: its sections, and of each kernel the arguments and the functions.
std::string DescribeBinary(const std::vector<char>& vBinary);

/// The IL text of a binary, with its line numbers and the places in the source if wanted. Without debug information it
/// is that of the first kernel.
/// \throws std::runtime_error if it has none
std::string DisassembleBinary(const std::vector<char>& vBinary, bool bNumbers, bool bPlaces = false);

/// A launch file for a kernel, with comments that say what to fill in.
/// \param strProgram  the path that stands in the file
/// \param strKernel   the first of the binary if empty
/// \throws std::runtime_error if the binary has no such kernel
std::string MakeLaunchFile(const std::vector<char>& vBinary, const std::string& strProgram,
                           const std::string& strKernel);

} // namespace KestrelTool

#endif
