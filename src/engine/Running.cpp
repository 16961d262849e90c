#include "core/Log.h"
#include "core/ShaderDebuggerHost.h"
#include "engine/OpCodeRoles.h"
#include "engine/ShaderDebuggerIL.h"
#include "engine/ShaderDebuggerShaderIL.h"

#include <algorithm>
#include <utility>

namespace OVK_ShaderDebugger
{

/// Walks to the next breakpoint without a kernel run for each instruction. It notes which registers are written on the
/// way, and makes runs only where flow control has to be decided, and for those registers where it stops. The current
/// instruction is then the last one before the breakpoint's line.
bool CShaderDebuggerShaderIL::RunAsm()
{
    if (m_nNextInstruction == m_nCurrentInstruction || m_nNextInstruction.m_nPos >= m_nEndOfShader ||
        m_nNextInstruction.m_nPos == 0)
    {
        return false;
    }
    m_Walk.Forget();
    EWalk walk = EWalk::Moved;
    bool bArrived = false;
    while (walk == EWalk::Moved && !bArrived)
    {
        walk = WalkOne();
        if (walk == EWalk::Moved && IsAtBreakpoint())
        {
            bArrived = Arrive();
        }
        if (walk == EWalk::Moved && m_nNextInstruction.m_nPos >= m_nEndOfShader)
        {
            walk = EWalk::End;
        }
        walk = GetHost()->IsBrokenOff() ? EWalk::Failed : walk;
    }
    // A movement that is broken off leaves what it hasn't read as it was.
    if (!GetHost()->IsBrokenOff())
    {
        DropResults(m_Walk.GetUnread());
    }
    if (bArrived && m_Runs.HasMaskOf(Here()))
    {
        m_ExecuteList.clear();
        PushStop();
        return true;
    }
    // The last instruction of the kernel is run as a stop is; its last phase reports the end.
    return walk != EWalk::Failed && UpdateTargetInstruction(true);
}

bool CShaderDebuggerShaderIL::PassFirst(uint64_t nItems)
{
    const auto isForAll = [this](const ProgramCounter& call)
    {
        const ILOpCode op = OpCodeAt(call.m_nPos);
        return op == IL_OP_CALL || op == IL_OP_MACROCALL;
    };
    // A run is needed where memory is accessed, since a platform finds faults in runs, and at flow control, to learn
    // who goes on. All that call a function come to its head.
    const ILOpCode op = OpCodeAt(m_nCurrentInstruction.m_nPos);
    const bool bDecides = ILShaderUtils::IsFlowControlOp(op) && op != IL_OP_FUNC;
    if (bDecides || ILShaderUtils::AccessesMemory(op) || op == IL_OP_FENCE ||
        IsLastInstruction(m_nCurrentInstruction) ||
        !std::all_of(m_CurrentCallStack.begin(), m_CurrentCallStack.end(), isForAll))
    {
        return false;
    }
    m_ExecuteList.clear();
    NoteActiveCount(m_nCurrentInstruction, nItems);
    PushStop();
    return true;
}

CShaderDebuggerShaderIL::EWalk CShaderDebuggerShaderIL::WalkOne()
{
    const InstructionNumber nPos = m_nNextInstruction.m_nPos;
    const ILOpCode op = OpCodeAt(nPos);
    const CIL_FCConstruct* pBlock = ConstructOf(nPos);
    const bool bSkips =
        ILShaderUtils::IsFlowControlBlockOp(op) && !m_Walk.HasBreakpointInFlowControlBlock(pBlock, nPos);
    if (m_Lanes.Ledger().GetActive().IsOpen() && !bSkips && op != IL_OP_ELSE)
    {
        const ProgramCounter next = m_nNextInstruction;
        ReadSkipped(true);
        // Reading may have shown that no work-item comes here.
        if (m_nNextInstruction != next)
        {
            return m_nNextInstruction.m_nPos < m_nEndOfShader ? EWalk::Moved : EWalk::End;
        }
    }
    // All work-items that call a function come to its head.
    const bool bHead = op == IL_OP_FUNC && GetDebuggerIL()->HasValuesOnDemand();
    if (bHead || !ILShaderUtils::IsFlowControlOp(op))
    {
        return WalkInstruction();
    }
    if (GetDebuggerIL()->HasValuesOnDemand() && LeadsAllOneWay(nPos))
    {
        return WalkWithAll();
    }
    const CIL_Loop* pLoop = CIL_FCConstruct::AsLoop(pBlock);
    if (bSkips && pLoop != nullptr && nPos == pLoop->GetStart() &&
        GetDebugger()->HasBreakPointAtInstructionNumber(pLoop->GetEnd()))
    {
        return WalkThroughLoop(*pLoop);
    }
    return bSkips ? SkipBlock() : WalkFlowControl();
}

/// Goes through a loop whose only breakpoint is at its end. The work-items that leave it last tell what a stop there
/// shows, so the last pass is stepped through.
CShaderDebuggerShaderIL::EWalk CShaderDebuggerShaderIL::WalkThroughLoop(const CIL_Loop& loop)
{
    const ProgramCounter next = m_nNextInstruction;
    ReadSkipped(true);
    if (m_nNextInstruction == next)
    {
        SPosition end = Next();
        end.pc.m_LoopStack.pop_back();
        end.pc.m_nPos = loop.GetEnd();
        if (!StepOnTo(end) && m_nNextInstruction.m_nPos < m_nEndOfShader)
        {
            return EWalk::Failed;
        }
    }
    return m_nNextInstruction.m_nPos < m_nEndOfShader ? EWalk::Moved : EWalk::End;
}

/// An instruction that leaves the mask alone: nothing runs, and as many are active after it as before it.
CShaderDebuggerShaderIL::EWalk CShaderDebuggerShaderIL::WalkInstruction()
{
    MoveToNext();
    if (m_Course.WritesGlobalMemory(m_nCurrentInstruction.m_nPos))
    {
        m_lastGlobalStore = m_nCurrentInstruction;
    }
    const Register reg = GetCurrentRegister();
    if (reg != g_Reg_NULL)
    {
        m_Walk.NoteWritten(reg, m_nCurrentInstruction);
    }
    for (const Register& passed : RegistersPassedBy(m_nCurrentInstruction.m_nPos))
    {
        m_Walk.NoteWritten(passed, m_nCurrentInstruction);
    }
    PushStop();
    if (!UpdateNextInst())
    {
        return EWalk::End;
    }
    NoteNext();
    return EWalk::Moved;
}

/// Passes over a block without a breakpoint: the patched kernel of a later position runs through it anyway.
CShaderDebuggerShaderIL::EWalk CShaderDebuggerShaderIL::SkipBlock()
{
    const std::optional<CBlockWalk::SSkip> skip = m_Walk.DescribeSkip(m_nNextInstruction.m_nPos);
    if (!skip)
    {
        return EWalk::Failed;
    }
    if (skip->bReadBefore)
    {
        const ProgramCounter next = m_nNextInstruction;
        ReadSkipped(false);
        // Reading may have shown that no work-item comes to the block.
        if (m_nNextInstruction != next)
        {
            return EWalk::Moved;
        }
    }
    const CIL_Loop* pLoop = CIL_FCConstruct::AsLoop(ConstructOf(skip->nFirst));
    if (skip->bLeavesLoop && IsInnermostLoop(*pLoop))
    {
        m_nNextInstruction.m_LoopStack.pop_back();
    }
    m_nNextInstruction.m_nPos = skip->nLast;
    m_Walk.NoteJumps(m_Lanes.PassOver(skip->nFirst, skip->nLast));
    m_History.NoteGap();
    MoveToNext();
    const bool bMoved = UpdateNextInst();
    for (const Register& reg : skip->vRegisters)
    {
        m_Walk.NoteWritten(reg, m_nNextInstruction);
        NoteWritten(reg);
    }
    if (m_Course.Stores(skip->nFirst, skip->nLast + 1))
    {
        m_lastGlobalStore = m_nCurrentInstruction;
    }
    return bMoved ? EWalk::Moved : EWalk::End;
}

/// Whether an instruction leads all of a known number of work-items the same way: a return to a caller before the end
/// of its function, in no block, or a call from which they are back.
bool CShaderDebuggerShaderIL::LeadsAllOneWay(InstructionNumber nInst) const
{
    const SLaneCount& active = m_Lanes.Ledger().GetActive();
    const bool bReturn = IsReturn(OpCodeAt(nInst)) && OpCodeAt(nInst + 1) == IL_OP_ENDFUNC &&
                         ConstructOf(nInst) == nullptr && !m_CallStack.empty();
    return (bReturn || OpCodeAt(nInst) == IL_OP_CALL) && active.IsSomebody() && !active.bMore;
}

/// Moves on where no flow control has to be decided, without a run.
CShaderDebuggerShaderIL::EWalk CShaderDebuggerShaderIL::WalkWithAll()
{
    MoveToNext();
    m_ExecMaskHistory[m_CallStack].insert({m_nCurrentInstruction, m_Lanes.Ledger().GetActive().nSure});
    PushStop();
    return PostStepAsm() ? EWalk::Moved : EWalk::End;
}

/// Steps over flow control that has to be decided.
CShaderDebuggerShaderIL::EWalk CShaderDebuggerShaderIL::WalkFlowControl()
{
    ReadSkipped(false);
    return Step() && GetDebugger()->Execute() && PostStepAsm() ? EWalk::Moved : EWalk::Failed;
}

/// Reads what has been skipped at the current instruction, and at the jumps by which work-items may have left it: they
/// wait elsewhere with what they have written.
void CShaderDebuggerShaderIL::ReadSkipped(bool bGetExecMask)
{
    if (!GetDebuggerIL()->HasValuesOnDemand())
    {
        m_Leaving = m_Walk.GetJumps();
    }
    const bool bRead = RetrieveRegisters(m_Walk.GetUnread(), bGetExecMask);
    m_Leaving.clear();
    // What can't be read is tried again further on.
    if (bRead)
    {
        m_Walk.Forget();
    }
}

bool CShaderDebuggerShaderIL::IsAtBreakpoint() const
{
    return m_nNextInstruction.m_nPos < m_nEndOfShader && GetDebugger()->HasBreakPointAtLineNumber(GetNextLine());
}

/// Whether the breakpoint at the position is a stop. It isn't if no work-item comes there. That is known only after the
/// run before it, which has then moved the position on to a place where work-items are.
bool CShaderDebuggerShaderIL::Arrive()
{
    ReadSkipped(true);
    if (!IsAtBreakpoint() || m_History.IsEmpty() || m_History.IsNewest(m_nCurrentInstruction) ||
        m_ExecMaskHistory[m_CurrentCallStack][m_nCurrentInstruction] != 0)
    {
        return IsAtBreakpoint();
    }
    // No work-item executed what was passed over last. Those that come to the breakpoint have been at an earlier place.
    const SPosition here = Next();
    return GoBackTo(m_History.Count() - 1) && StepTo(here) && IsAtBreakpoint();
}

} // namespace OVK_ShaderDebugger
