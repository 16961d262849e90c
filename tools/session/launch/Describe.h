#ifndef KESTREL_TOOLS_CONVERT_DESCRIBE_H
#define KESTREL_TOOLS_CONVERT_DESCRIBE_H

#include <string>
#include <vector>

namespace KestrelTool
{

/// Describes a kernel binary for people: its sections, and each kernel's arguments and functions.
std::string DescribeBinary(const std::vector<char>& vBinary);

/// The IL text of a binary, optionally with line numbers and source places. Without debug information it is that of
/// each kernel, one after the other.
/// \throws std::runtime_error if it has none
std::string DisassembleBinary(const std::vector<char>& vBinary, bool bNumbers, bool bPlaces = false);

/// A launch file for a kernel, with comments that tell what to fill in.
/// \param strProgram  the path to write into the file
/// \param strKernel   if empty, the first kernel of the binary
/// \throws std::runtime_error if the binary has no such kernel
std::string MakeLaunchFile(const std::vector<char>& vBinary, const std::string& strProgram,
                           const std::string& strKernel);

} // namespace KestrelTool

#endif
