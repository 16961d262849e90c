#ifndef KESTREL_TESTS_REFERENCE_MACHINE_H
#define KESTREL_TESTS_REFERENCE_MACHINE_H

#include "tests/reference/Lanes.h"

#include <functional>

namespace KestrelTest
{

/// One executed position, directly after its instruction.
struct SMoment
{
    SPosition position;
    std::string strName; ///< of the instruction
    Mask vBefore;        ///< work-items that reached the instruction
    Mask vAfter;         ///< work-items active after it

    bool IsEmpty() const;     ///< none is active after it
    bool IsUnreached() const; ///< and none reached it
};

/// An independent implementation of docs/il.md: runs a kernel in lockstep, all work-items of the dispatch
/// together, and reports each position in the order of execution. Valid for kernels whose work-groups don't
/// see each other's writes.
class CMachine
{
public:
    typedef std::function<void(const SMoment& moment, const SReferenceState& state)> OnMoment;

    CMachine(const CKernelText& text, const SReferenceLaunch& launch);

    /// \throws CReferenceError for an unknown instruction, or a run that takes too long
    void Run(const OnMoment& onMoment);
    const SReferenceState& GetState() const { return m_Lanes.GetState(); }

private:
    /// The work-items that have left a loop, one of its passes, or a switch.
    struct SLeft
    {
        Mask vBroken;
        Mask vContinued;
    };

    void Tell(uint32_t nInstruction, const Mask& before, const Mask& after);
    Mask RunRange(uint32_t nFirst, uint32_t nEnd, Mask active);
    Mask RunOne(uint32_t nInstruction, const Mask& active);
    Mask RunIf(uint32_t nStart, const Mask& active);
    Mask RunLoop(uint32_t nStart, const Mask& active);
    Mask RunSwitch(uint32_t nStart, const Mask& active);
    Mask Jump(uint32_t nInstruction, const Mask& active);
    void Call(uint32_t nInstruction, const Mask& active);
    Mask Holds(const SInstruction& instruction, const Mask& active) const;

    const CKernelText& m_Text;
    CLanes m_Lanes;
    OnMoment m_OnMoment;
    std::vector<Loops> m_vFrames; ///< the open loops of each open call, innermost call at the back
    std::vector<std::pair<uint32_t, Loops>> m_vCalls;
    std::vector<SLeft*> m_vBreakable; ///< loops and switches that are open in the present function
    std::vector<SLeft*> m_vLoops;     ///< the loops among them
    size_t m_nMoments = 0;
};

} // namespace KestrelTest

#endif
