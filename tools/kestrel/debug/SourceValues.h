#ifndef KESTREL_TOOLS_DEBUG_SOURCEVALUES_H
#define KESTREL_TOOLS_DEBUG_SOURCEVALUES_H

#include "tools/kestrel/debug/Debugger.h"
#include "tools/source/DebugInfo.h"

namespace KestrelTool
{

/// A value of the source, of one work-item.
struct SSourceValue
{
    const SSourceType* pType = nullptr;
    std::vector<unsigned char> vBytes;
    std::vector<bool> vKnown; ///< by byte: what has no place at this stop isn't
    size_t nOffset = 0;       ///< of a part of a variable: its first byte in it

    bool IsKnown() const;
};

/// The variables that are in scope where the next instruction stands, with the values of a stop.
class CSourceValues
{
public:
    explicit CSourceValues(CDebugger& debugger) : m_Debugger(debugger) {}

    /// Those of the selected function, and those outside of all functions; a name may come more than once, the one that
    /// the source means first.
    std::vector<SSourceVariable> List();
    /// \throws CCommandError if a part can't be read
    SSourceValue Read(const SSourceVariable& variable, size_t nItem);
    /// Of "name", "name.member[2]", "pointer->member", "*pointer" and the like, for the work-item in focus.
    /// \return nothing if the text is no such path, or begins with a name that isn't a variable's
    /// \throws CCommandError for a path that leads nowhere
    std::optional<SSourceValue> ReadPath(const std::string& strPath);
    /// As IValueSource's.
    std::optional<SVariableWords> FindWords(const std::string& strPath, bool bHere);
    std::string Format(const SSourceValue& value, EFormat eFormat);

private:
    class CPath;

    void ReadPiece(const SValuePiece& piece, size_t nItem, SSourceValue& value, size_t nOffset);
    SSourceValue Follow(const SSourceValue& pointer, int64_t nIndex);

    CDebugger& m_Debugger;
};

} // namespace KestrelTool

#endif
