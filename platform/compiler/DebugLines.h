#ifndef KESTREL_PLATFORM_COMPILER_DEBUGLINES_H
#define KESTREL_PLATFORM_COMPILER_DEBUGLINES_H

#include <cstdint>
#include <string>
#include <string_view>

namespace KestrelPlatform
{

/// The section that a program's CDebugLines is made of.
const std::string_view s_LineSection = ".debug_line";

/// Finds the source line of a line of IL text, from a program's `.debug_line` section (DWARF 4, section 6.2). Trusts
/// nothing in the section, and reads it only when asked, which only faults do.
class CDebugLines
{
public:
    explicit CDebugLines(std::string_view section) : m_strSection(section) {}

    /// \param nLine line of the program's IL text, from 0
    /// \return "file:line", "" for a line that has none
    std::string Find(uint64_t nLine) const;

private:
    std::string m_strSection;
};

} // namespace KestrelPlatform

#endif
