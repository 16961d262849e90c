#ifndef KESTREL_TOOLS_DEBUG_LINESTEPPER_H
#define KESTREL_TOOLS_DEBUG_LINESTEPPER_H

#include "tools/session/debug/Debugger.h"

namespace KestrelTool
{

/// Steps by source lines where a kernel has them, and by instructions elsewhere. It stops only at the first instruction
/// of a line's code, so that a loop within one line is stepped over as a whole.
class CLineStepper
{
public:
    explicit CLineStepper(CDebugger& debugger) : m_Debugger(debugger) {}

    /// To the next line, into called functions.
    /// \param bFocus  to the next line that the focused work-item reaches
    void Step(size_t nTimes, bool bFocus = false);
    /// To the next line of the same function, or of its caller.
    void Next(size_t nTimes, bool bFocus = false);
    /// To a later line of the same function, or of its caller: not back to the start of a loop.
    void Until();
    /// To after the function's call, inlined or not.
    void Finish();
    void StepBack(size_t nTimes);
    void NextBack(size_t nTimes);

private:
    using SFunction = CCodeMap::SFunction;

    bool HasLines() const;
    std::set<unsigned int> FindStops(bool bInto, bool bBack);
    size_t CountFrames(unsigned int nLine);
    bool IsStop(unsigned int nLine, bool bBack) const;

    CDebugger& m_Debugger;
};

} // namespace KestrelTool

#endif
