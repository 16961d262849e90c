#ifndef KESTREL_TOOLS_DEBUG_SOURCEVALUES_H
#define KESTREL_TOOLS_DEBUG_SOURCEVALUES_H

#include "tools/session/debug/Debugger.h"
#include "tools/session/debug/SourceValue.h"

namespace KestrelTool
{

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
    std::string Format(const SSourceValue& value, EFormat eFormat);

private:
    void ReadPiece(const SValuePiece& piece, size_t nItem, SSourceValue& value, size_t nOffset);

    CDebugger& m_Debugger;
};

} // namespace KestrelTool

#endif
