#include "engine/BufferWords.h"
#include "engine/OpCodeRoles.h"
#include "engine/ShaderDebuggerIL.h"
#include "engine/ShaderDebuggerShaderIL.h"

#include <algorithm>
#include <utility>

namespace OVK_ShaderDebugger
{

// What a run has passed over is walked again by steps, so that a stop inside shows the same as after single steps. That
// happens on the way back, and where a run would stop after something that no work-item has executed. A loop on the
// way is entered in the last pass that matters. The values from its earlier passes are read twice: at the loop's end,
// for the work-items that left in them, and at the head of that pass.

namespace
{

/// More passes than a loop has.
const unsigned int s_nManyPasses = 0x3FFFFFFF;

/// The first value of a loop's counter where the loop is inside another one that isn't in the target's pass.
const uint32_t s_nFreeCounter = 0xFFFFFFFE;

} // namespace

/// Steps until the position goes on at a place, or after it if no work-item comes to it. If that takes no step, what
/// the present stop is still to execute stays.
bool CShaderDebuggerShaderIL::StepTo(const SPosition& target)
{
    ShowPresent();
    return StepOnTo(target);
}

/// The same from a place that isn't shown.
bool CShaderDebuggerShaderIL::StepOnTo(const SPosition& target)
{
    bool bMoved = true;
    while (bMoved && IsBefore(Next(), target))
    {
        if (OpCodeAt(m_nNextInstruction.m_nPos) == IL_OP_WHILE && LeapTo(target, bMoved))
        {
            continue;
        }
        bMoved = bMoved && StepAsm() && Execute(true);
        m_ExecuteList.clear();
        if (bMoved)
        {
            m_History.Show();
            bMoved = PostStepAsm();
        }
    }
    return bMoved;
}

/// Before a pass of a loop, goes to the pass in which the instruction before the target is executed.
/// \param[out] bGood  false if reading failed there; else unchanged
/// \return false, with nothing changed, if that is no later pass
bool CShaderDebuggerShaderIL::LeapTo(const SPosition& target, bool& bGood)
{
    const CIL_Loop* pLoop = CIL_FCConstruct::AsLoop(ConstructOf(m_nNextInstruction.m_nPos));
    if (pLoop == nullptr || !IsInnermostLoop(*pLoop))
    {
        return false;
    }
    SPosition end = Next();
    end.pc.m_LoopStack.pop_back();
    end.pc.m_nPos = pLoop->GetEnd();
    unsigned int nPass = 0;
    if (!IsBefore(target, end))
    {
        const std::optional<ProgramCounter> last = FindLastVisit(Next(), end.pc, {});
        nPass = last.has_value() ? last->m_LoopStack.back().nLoopIteration : 0;
    }
    else
    {
        // The target lies in the loop, or in a call from there.
        const size_t nCalls = m_CallStack.size();
        const size_t nTargetCalls = target.callStack.size();
        const ProgramCounter& inLoop = nTargetCalls > nCalls ? target.callStack.FromOutside(nCalls) : target.pc;
        LoopState state;
        nPass = inLoop.GetLoopState(pLoop->GetStart(), state) ? state.nLoopIteration : 0;
        nPass -= nPass != 0 && inLoop.m_nPos == pLoop->GetStart() && nTargetCalls == nCalls ? 1 : 0;
    }
    const bool bLater = nPass > m_nNextInstruction.m_LoopStack.back().nLoopIteration;
    if (bLater)
    {
        bGood = Leap(*pLoop, end.pc, nPass);
    }
    return bLater;
}

/// Makes the head of a later pass the current instruction.
bool CShaderDebuggerShaderIL::Leap(const CIL_Loop& loop, const ProgramCounter& end, unsigned int nPass)
{
    std::vector<Register> vRegisters = loop.GetRegisters();
    m_Course.AddWrittenByCalls(loop.GetStart(), loop.GetEnd(), vRegisters);
    const bool bOnDemand = GetDebuggerIL()->HasValuesOnDemand();
    const auto isUntracked = [&](const Register& reg) { return !bOnDemand && !GetDebuggerIL()->IsTracked(reg); };
    vRegisters.erase(std::remove_if(vRegisters.begin(), vRegisters.end(), isUntracked), vRegisters.end());
    for (const Register& reg : vRegisters)
    {
        NoteWritten(reg);
    }
    if (bOnDemand)
    {
        vRegisters.clear(); // they are read when they are asked for
    }
    m_History.NoteGap();
    bool bRead = vRegisters.empty() || ReadAtEnd(loop, end, vRegisters);
    m_nNextInstruction.m_LoopStack.back().nLoopIteration = nPass;
    m_Lanes.LeapInto(loop);
    MoveToNext();
    if (m_Course.Stores(loop.GetStart(), loop.GetEnd()))
    {
        m_lastGlobalStore = m_nCurrentInstruction;
    }
    PatchPoint atHead(m_nCurrentInstruction);
    atHead.m_registers.assign(vRegisters.begin(), vRegisters.end());
    if (vRegisters.empty())
    {
        atHead.m_registers.push_back(g_Reg_NULL);
    }
    m_ExecuteList.assign(1, atHead);
    bRead = Execute(true) && bRead;
    m_ExecuteList.clear();
    m_History.Show();
    return bRead && PostStepAsm();
}

/// Reads registers at a loop's end: work-items that leave the loop before a later pass still have their values there.
bool CShaderDebuggerShaderIL::ReadAtEnd(const CIL_Loop& loop, const ProgramCounter& end,
                                        const std::vector<Register>& vRegisters)
{
    for (InstructionNumber n = loop.GetStart(); n < loop.GetEnd(); ++n)
    {
        if (IsReturn(OpCodeAt(n)) || IsConditionalReturn(OpCodeAt(n)))
        {
            m_Leaving.insert(n);
        }
    }
    const CCallPath current = std::exchange(m_CurrentCallStack, m_CallStack);
    PatchPoint atEnd(end);
    atEnd.m_registers.assign(vRegisters.begin(), vRegisters.end());
    m_ExecuteList.assign(1, atEnd);
    const bool bRead = Execute(false);
    m_Leaving.clear();
    m_CurrentCallStack = current;
    return bRead;
}

/// Where an instruction is executed last: in which passes of the loops that lie around it, but not around a certain
/// position. Runs read the counters of these loops.
/// \param what         the instruction in its call; the loops that are also around that position are in given passes
/// \param around       the position
/// \param nBeforePass  if given, a pass of the outermost other loop: only passes before it count
/// \return nothing if no work-item comes there
std::optional<ProgramCounter> CShaderDebuggerShaderIL::FindLastVisit(const SPosition& what,
                                                                     const ProgramCounter& around,
                                                                     std::optional<unsigned int> nBeforePass)
{
    std::vector<const CIL_Loop*> vFree; // the innermost first
    for (const CIL_FCConstruct* p = ConstructOf(what.pc.m_nPos); p != nullptr; p = p->GetParent())
    {
        const CIL_Loop* pLoop = p->AsLoop();
        LoopState state;
        if (pLoop != nullptr && pLoop->IsInsideLoop(what.pc) && !around.GetLoopState(pLoop->GetStart(), state))
        {
            vFree.push_back(pLoop);
        }
    }
    ProgramCounter pc = around;
    pc.m_nPos = what.pc.m_nPos;
    for (auto it = vFree.rbegin(); it != vFree.rend(); ++it)
    {
        pc.AddLoop((*it)->GetStart(), (*it)->GetEnd());
        pc.m_LoopStack.back().nLoopIteration = s_nManyPasses;
    }
    if (vFree.empty())
    {
        return IsVisited({pc, what.callStack}) ? std::optional<ProgramCounter>(pc) : std::nullopt;
    }
    const size_t nOutermost = pc.m_LoopStack.size() - vFree.size();
    if (nBeforePass.has_value())
    {
        pc.m_LoopStack[nOutermost].nLoopIteration = *nBeforePass - 1;
    }
    return ReadLastVisit({pc, what.callStack}, vFree);
}

/// What a run has to read before an instruction, as well as after it, to tell whether work-items come there: after a
/// jump or into an if none may go on, and those that come to an else from the first part don't go into the second.
std::set<InstructionNumber> CShaderDebuggerShaderIL::LeavingAt(InstructionNumber nInst) const
{
    const ILOpCode op = OpCodeAt(nInst);
    return IsJump(op) || IsIf(op) || op == IL_OP_ELSE ? std::set<InstructionNumber>{nInst}
                                                      : std::set<InstructionNumber>();
}

bool CShaderDebuggerShaderIL::IsVisited(const SPosition& what)
{
    const std::set<InstructionNumber> leaving = LeavingAt(what.pc.m_nPos);
    std::unique_ptr<CShaderDebuggerBuffer> pResult;
    std::unique_ptr<CShaderDebuggerBuffer> pExecMask;
    return leaving.empty() ? GetCount(what.pc, what.callStack).value_or(0) != 0
                           : Capture({what.pc, what.callStack, g_Reg_NULL, leaving}, pResult, pExecMask) &&
                                 pExecMask->GetActiveItemCount(0) != 0;
}

std::optional<ProgramCounter> CShaderDebuggerShaderIL::ReadLastVisit(const SPosition& what,
                                                                     const std::vector<const CIL_Loop*>& vFree)
{
    // One run for each register in which the loops are counted.
    std::map<unsigned int, std::unique_ptr<CShaderDebuggerBuffer>> mapCounters;
    std::unique_ptr<CShaderDebuggerBuffer> pExecMask;
    for (const CIL_Loop* pLoop : vFree)
    {
        const Register counter(RT_Temp, pLoop->GetCountRegister(), COMP_All);
        if (mapCounters.count(pLoop->GetCountRegister()) == 0 &&
            !Capture({what.pc, what.callStack, counter, LeavingAt(what.pc.m_nPos)},
                     mapCounters[pLoop->GetCountRegister()], pExecMask))
        {
            return std::nullopt;
        }
    }
    std::optional<ProgramCounter> last;
    const size_t nOutermost = what.pc.m_LoopStack.size() - vFree.size();
    for (size_t i = 0; i < pExecMask->GetItemCount(); ++i)
    {
        ProgramCounter pc = what.pc;
        bool bCame = WordAt(*pExecMask, i) != 0;
        bool bInRange = true;
        bool bOuterFree = false;
        for (size_t n = 0; n < vFree.size(); ++n)
        {
            const CIL_Loop& loop = *vFree[vFree.size() - 1 - n];
            const CShaderDebuggerBuffer& counters = *mapCounters[loop.GetCountRegister()];
            size_t nComponent = 0;
            while (GetComponent(static_cast<unsigned int>(nComponent)) != loop.GetCountComponent())
            {
                ++nComponent;
            }
            const uint32_t nLeft = WordAt(counters, 4 * i + nComponent);
            // The stores clear the mask of work-items for which any pass is left.
            bCame = bCame || nLeft != 0;
            unsigned int& nPass = pc.m_LoopStack[nOutermost + n].nLoopIteration;
            bInRange = bInRange && (n != 0 || nLeft <= nPass);
            nPass = bOuterFree ? s_nFreeCounter - nLeft : nPass - nLeft;
            bOuterFree = nLeft != 0;
        }
        if (bCame && bInRange && (!last.has_value() || *last < pc))
        {
            last = pc;
        }
    }
    return last;
}

/// The last place with a breakpoint, or a call of a function that holds one, in what a run passed over before a stop.
std::optional<SPosition> CShaderDebuggerShaderIL::FindPassedBreakpoint(size_t nStop)
{
    const SStanding& before = m_History.At(nStop - 1).at;
    const SStanding& after = m_History.At(nStop).at;
    const SPosition from = {before.next, before.nextCallStack};
    const SPosition to = {after.pc, after.callStack};
    if (GetDebugger()->HasBreakPointAtInstructionNumber(to.pc.m_nPos))
    {
        return to;
    }
    // The loops around all of it are in a pass that doesn't change.
    ProgramCounter around = from.pc;
    std::optional<unsigned int> nBeforePass;
    const size_t nCalls = from.callStack.size();
    const ProgramCounter inFunction = to.callStack.size() > nCalls    ? to.callStack.FromOutside(nCalls)
                                      : to.callStack.size() == nCalls ? to.pc
                                                                      : ProgramCounter();
    const std::vector<LoopState>& vLoops = inFunction.m_LoopStack;
    size_t nCommon = 0;
    while (nCommon < std::min(vLoops.size(), around.m_LoopStack.size()) &&
           vLoops[nCommon] == around.m_LoopStack[nCommon])
    {
        ++nCommon;
    }
    if (nCommon < std::min(vLoops.size(), around.m_LoopStack.size()) &&
        vLoops[nCommon].nLoopStart == around.m_LoopStack[nCommon].nLoopStart)
    {
        nBeforePass = vLoops[nCommon].nLoopIteration;
    }
    around.m_LoopStack.resize(nCommon);

    std::optional<SPosition> last;
    for (const InstructionNumber n : m_Walk.FindBreakpointsIn(StartOfBody(from.pc.m_nPos)))
    {
        const std::optional<ProgramCounter> visit =
            FindLastVisit({ProgramCounter(n), from.callStack}, around, nBeforePass);
        const SPosition here = {visit.value_or(ProgramCounter()), from.callStack};
        if (visit.has_value() && !IsBefore(here, from) && IsBefore(here, to) &&
            (!last.has_value() || IsBefore(*last, here)))
        {
            last = here;
        }
    }
    return last;
}

} // namespace OVK_ShaderDebugger
