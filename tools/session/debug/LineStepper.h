#ifndef KESTREL_TOOLS_DEBUG_LINESTEPPER_H
#define KESTREL_TOOLS_DEBUG_LINESTEPPER_H

#include "tools/session/debug/Debugger.h"

namespace KestrelTool
{

/// Steps by lines of the source where a kernel has them, and by instructions elsewhere. It stops at the first
/// instruction of a line's code only, so that a loop within one line is passed over as a whole.
class CLineStepper
{
public:
    explicit CLineStepper(CDebugger& debugger) : m_Debugger(debugger) {}

    /// To the next line, into functions.
    /// \param bFocus  to the next one that the work-item in focus comes to
    void Step(size_t nTimes, bool bFocus = false);
    /// To the next line of the same function, or of the caller's.
    void Next(size_t nTimes, bool bFocus = false);
    /// To a later line of the same function, or of the caller's: not back to a loop's beginning.
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
