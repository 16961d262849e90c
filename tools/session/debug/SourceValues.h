#ifndef KESTREL_TOOLS_DEBUG_SOURCEVALUES_H
#define KESTREL_TOOLS_DEBUG_SOURCEVALUES_H

#include "tools/session/debug/Debugger.h"
#include "tools/session/debug/SourceValue.h"

namespace KestrelTool
{

/// The variables in scope at the next instruction, with their values at the stop.
class CSourceValues
{
public:
    explicit CSourceValues(CDebugger& debugger) : m_Debugger(debugger) {}

    /// The variables of the selected function, then global ones. If a name occurs more than once, the one that the
    /// source refers to comes first.
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
