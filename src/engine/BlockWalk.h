#ifndef KESTREL_ENGINE_BLOCKWALK_H
#define KESTREL_ENGINE_BLOCKWALK_H

#include "engine/KernelCourse.h"

#include <optional>
#include <set>
#include <vector>

namespace OVK_ShaderDebugger
{

class CIL_FCConstruct;
class CIL_IfElseEndif;
class CIL_Loop;
class IShaderDebugger;

/// What a run to a breakpoint passes over: which blocks need no stop, because the patched kernel of a later position
/// runs through them anyway, and which registers have to be read once the run stops, because they were written on the
/// way.
class CBlockWalk
{
public:
    /// A block, or one part of an if, that a run passes over.
    struct SSkip
    {
        std::vector<Register> vRegisters; ///< what is written inside
        InstructionNumber nFirst = 0;     ///< the instructions passed over
        InstructionNumber nLast = 0;
        bool bReadBefore = false; ///< registers that are still to be read have to be read before it
        bool bLeavesLoop = false; ///< the position is in no pass of the loop after it
    };

    /// \param breakpoints  says where they are; it and the course must outlive this object
    CBlockWalk(const CKernelCourse& course, IShaderDebugger& breakpoints) : m_Course(course), m_Breakpoints(breakpoints)
    {
    }

    /// Whether a run has to walk through the block, or the part of an if, that an instruction opens: there is a
    /// breakpoint inside, at the head of a loop, to which later passes come, or at the end of a switch. Without a
    /// construct the caller has to step.
    bool HasBreakpointInFlowControlBlock(const CIL_FCConstruct* pFlowControl, InstructionNumber nInst) const;
    /// What a run passes over at an instruction of a block that has no breakpoint in the way.
    /// \return nothing, with the reason logged, if the instruction is in no block
    std::optional<SSkip> DescribeSkip(InstructionNumber nInst) const;
    /// The instructions of a function or macro with a breakpoint, and its calls of functions that hold one.
    std::set<InstructionNumber> FindBreakpointsIn(InstructionNumber nBody) const;

    // What has been passed over and not read yet.
    void NoteWritten(const Register& reg, const ProgramCounter& pc) { m_Unread[reg] = pc; }
    void NoteJumps(const std::set<InstructionNumber>& jumps) { m_Jumps.insert(jumps.begin(), jumps.end()); }
    const RegPCMap& GetUnread() const { return m_Unread; }
    /// Jumps by which work-items may have left it.
    const std::set<InstructionNumber>& GetJumps() const { return m_Jumps; }
    /// Called when all of it has been read, or won't be asked for.
    void Forget();

private:
    bool HasBreakpointBetween(InstructionNumber nFrom, InstructionNumber nTo) const;
    bool HasBreakpointIn(const std::set<InstructionNumber>& instructions) const;
    SSkip DescribeLoop(const CIL_Loop& loop, InstructionNumber nInst) const;
    SSkip DescribeIf(const CIL_IfElseEndif& block, InstructionNumber nInst) const;

    const CKernelCourse& m_Course;
    IShaderDebugger& m_Breakpoints;
    RegPCMap m_Unread;
    std::set<InstructionNumber> m_Jumps;
};

} // namespace OVK_ShaderDebugger

#endif
