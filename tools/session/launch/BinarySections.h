#ifndef KESTREL_TOOLS_LAUNCH_BINARYSECTIONS_H
#define KESTREL_TOOLS_LAUNCH_BINARYSECTIONS_H

#include <cstdint>
#include <string>
#include <vector>

namespace KestrelTool
{

/// The lines of IL text in a kernel binary. The debugger counts them from 0.
/// \return no lines for a binary without such text
std::vector<std::string> ReadKernelText(const std::vector<char>& vBinary);

/// A section of a kernel binary.
struct SSection
{
    std::string strName;
    uint64_t nOffset = 0;
    std::string strContents;
};

/// The sections of a 64-bit ELF image, except those without contents; none for anything else.
std::vector<SSection> ReadSections(const std::vector<char>& vBinary);
/// The contents of a section; empty if the binary has none with this name.
std::string FindSection(const std::vector<char>& vBinary, const char* pszName);
/// What a symbol stands for, by its offset and size in its section; empty if the binary has none with this name.
std::string FindSymbol(const std::vector<char>& vBinary, const std::string& strName);
/// The lines of a text, without their ends.
std::vector<std::string> SplitLines(const std::string& strText);

} // namespace KestrelTool

#endif
