#ifndef KESTREL_TOOLS_DEBUG_PATCHEDLINES_H
#define KESTREL_TOOLS_DEBUG_PATCHEDLINES_H

#include "tools/session/launch/Listing.h"

#include <cstdint>
#include <vector>

namespace KestrelTool
{

/// The lines of the kernel's text that the instructions of a patched copy come from. Patching only inserts
/// instructions, so an instruction comes from the line of the same function with the same text that is preceded by as
/// many equal ones.
class CPatchedLines
{
public:
    /// \param vImage  the binary that ran; empty for the kernel itself
    CPatchedLines(const CListing& listing, const std::vector<char>& vImage);

    size_t GetCount() const { return m_vLines.size(); }
    /// NoLine for an inserted instruction.
    unsigned int Find(uint32_t nInstruction) const;
    /// For an inserted instruction, the line of the next one in its function that isn't.
    unsigned int FindNext(uint32_t nInstruction) const;

private:
    struct SLine
    {
        unsigned int nLine = CListing::NoLine;
        bool bBeginsFunction = false;
    };

    std::vector<SLine> m_vLines; ///< by instruction
};

} // namespace KestrelTool

#endif
