#ifndef KESTREL_TOOLS_KERNELTEXT_H
#define KESTREL_TOOLS_KERNELTEXT_H

#include <string>
#include <vector>

namespace KestrelTool
{

/// The lines of IL text in a kernel binary, as the debugger counts them: from 0.
/// \return no lines for a binary that has no such text
std::vector<std::string> ReadKernelText(const std::vector<char>& vBinary);

} // namespace KestrelTool

#endif
