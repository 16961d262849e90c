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

/// Keeps the ledger of where the work-items are, as the position goes from instruction to instruction: what an executed
/// instruction does to those that are active, and where the others wait. It counts work-items and doesn't tell them
/// apart.
class CLaneFlow
{
public:
    /// \param course  must outlive this object
    explicit CLaneFlow(const CKernelCourse& course) : m_Course(course) {}

    /// The ledger before the next instruction.
    CLaneLedger& Ledger() { return m_Ledger; }
    const CLaneLedger& Ledger() const { return m_Ledger; }

    /// An instruction has been executed, and nActive work-items are active after it.
    /// \return false if by the ledger another number should be active
    bool TakeEffect(const SPosition& at, uint64_t nActive);
    /// All instructions from one to another are passed over: a block, or one part of an if.
    /// \return the jumps that may have led work-items out of it
    std::set<InstructionNumber> PassOver(InstructionNumber nFirst, InstructionNumber nLast);
    /// The position goes to a later pass of a loop; work-items that have left the loop by then may be at its end.
    void LeapInto(const CIL_Loop& loop);

    /// Counts how many of the work-items that came to a switch go to which of its labels, for TakeEffect.
    /// \param selectors  four words for each work-item, the first of which is the value that the switch tests
    /// \param execMask   a word for each work-item, 0 for one that didn't come
    void NoteSwitchEntries(const SPosition& at, const CShaderDebuggerBuffer& selectors,
                           const CShaderDebuggerBuffer& execMask);
    void ForgetSwitchEntries() { m_SwitchEntries = SSwitchEntries(); }

    /// A place as a position, seen from another one in the same call: a loop's head belongs to the next pass, its end
    /// to no pass.
    static ProgramCounter PositionOf(const CLaneLedger::SPlace& place, const ProgramCounter& from);

private:
    /// How many of the work-items that came to a switch went to each of its labels.
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
