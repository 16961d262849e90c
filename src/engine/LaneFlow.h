#ifndef KESTREL_ENGINE_LANEFLOW_H
#define KESTREL_ENGINE_LANEFLOW_H

#include "engine/KernelCourse.h"
#include "engine/LaneLedger.h"

#include <cstdint>
#include <map>
#include <set>

namespace OVK_ShaderDebugger
{

class CIL_FCConstruct;
class CIL_Loop;
class CIL_Switch;
class CShaderDebuggerBuffer;

/// Keeps the books on where the work-items are, as the position goes from instruction to instruction: what an executed
/// one does to those who are active, and where the others wait. It counts; who they are it doesn't know.
class CLaneFlow
{
public:
    /// \param course  must outlive this object
    explicit CLaneFlow(const CKernelCourse& course) : m_Course(course) {}

    /// The book in front of the next instruction.
    CLaneLedger& Ledger() { return m_Ledger; }
    const CLaneLedger& Ledger() const { return m_Ledger; }

    /// An instruction has been executed, and after it so many are active.
    /// \return false if by the book there should be another number
    bool TakeEffect(const SPosition& at, uint64_t nActive);
    /// All instructions from one to another are passed over: a block, or one part of an if.
    /// \return the jumps that may have led work-items out of it
    std::set<InstructionNumber> PassOver(InstructionNumber nFirst, InstructionNumber nLast);
    /// The position goes to a later pass of a loop; who has left the loop by then may be at its end.
    void LeapInto(const CIL_Loop& loop);

    /// Counts how many of those who came to a switch go to which of its labels, for TakeEffect.
    /// \param selectors  four words for each work-item, the first of which is what the switch decides by
    /// \param execMask   a word for each work-item, 0 for who didn't come
    void NoteSwitchEntries(const SPosition& at, const CShaderDebuggerBuffer& selectors,
                           const CShaderDebuggerBuffer& execMask);
    void ForgetSwitchEntries() { m_SwitchEntries = SSwitchEntries(); }

    /// A place as a position, seen from another one in the same call: a loop's head is that of the next pass, its end
    /// lies in none.
    static ProgramCounter PositionOf(const CLaneLedger::SPlace& place, const ProgramCounter& from);

private:
    /// How many of those who came to a switch went to each of its labels.
    struct SSwitchEntries
    {
        SPosition at = {g_PC_NULL, {}};
        std::map<InstructionNumber, uint64_t> mapEntries;
    };

    void EnterSwitch(const CIL_Switch& block, const SPosition& at, uint64_t nActive);
    void PassOverPart(const CIL_FCConstruct& construct, InstructionNumber nFirst, InstructionNumber nLast);

    const CKernelCourse& m_Course;
    CLaneLedger m_Ledger;
    SSwitchEntries m_SwitchEntries; ///< of the last switch that was executed
};

} // namespace OVK_ShaderDebugger

#endif
