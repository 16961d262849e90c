#include "core/Log.h"
#include "core/ShaderDebuggerBuffer.h"
#include "engine/OpCodeRoles.h"
#include "engine/ShaderDebuggerIL.h"
#include "engine/ShaderDebuggerShaderIL.h"

#include <algorithm>

namespace OVK_ShaderDebugger
{

void CShaderDebuggerShaderIL::MoveToNext()
{
    m_nCurrentInstruction = m_nNextInstruction;
    m_CurrentCallStack = m_CallStack;
    m_CurrentLedger = m_Lanes.Ledger();
}

bool CShaderDebuggerShaderIL::StepAsm()
{
    if (m_nNextInstruction == m_nCurrentInstruction || m_nNextInstruction.m_nPos >= m_nEndOfShader)
    {
        return false;
    }
    const bool bCopiesAtStop = m_Runs.HasCopiesOf(Here());
    MoveToNext();

    const std::optional<uint64_t> nActive = IsFastStep() ? CountForFastStep() : std::nullopt;
    if (!nActive || !(m_Lanes.Ledger().GetActive() == SLaneCount{*nActive, false}))
    {
        return UpdateTargetInstruction(true);
    }
    m_ExecuteList.clear();
    NoteActiveCount(m_nCurrentInstruction, *nActive);
    PushStop();
    if (bCopiesAtStop && !m_Course.MayWrite(m_nCurrentInstruction.m_nPos))
    {
        m_Runs.KeepCopiesFor(Here());
    }
    return true;
}

/// How many work-items the last run's mask has. Nothing if it can't be read.
std::optional<uint64_t> CShaderDebuggerShaderIL::CountForFastStep()
{
    if (GetDebuggerIL()->HasValuesOnDemand())
    {
        // It has been counted where it was read, and it is the mask that the stop shows.
        return GetDebuggerIL()->BringExecMask(m_nCurrentInstruction) ? std::optional(m_nLastActive) : std::nullopt;
    }
    CShaderDebuggerBuffer* pExecMask = nullptr;
    const bool bRead = GetDebuggerIL()->RetrieveExecMaskBuffer(pExecMask);
    const std::unique_ptr<CShaderDebuggerBuffer> pOwner(pExecMask);
    return bRead ? std::optional<uint64_t>(pExecMask->GetActiveItemCount(0)) : std::nullopt;
}

/// An instruction that leaves the mask and all wanted registers alone needs no run: the last run's mask is its mask, if
/// that was a run at the instruction before. After a return more may be active than were there.
bool CShaderDebuggerShaderIL::IsFastStep()
{
    const CShaderDebuggerInstructionIL& instruction = m_Instructions[m_nCurrentInstruction.m_nPos];
    if (!m_Runs.HasPresentMask() || instruction.IsFlowControlOp())
    {
        return false;
    }
    // A platform that finds faults finds those of a step in its run.
    const ILOpCode op = instruction.GetOpCode();
    if (GetDebuggerIL()->HasValuesOnDemand() && (ILShaderUtils::AccessesMemory(op) || op == IL_OP_FENCE))
    {
        return false;
    }
    const std::vector<Register>& vPassedBy = RegistersPassedBy(m_nCurrentInstruction.m_nPos);
    if (std::any_of(vPassedBy.begin(), vPassedBy.end(),
                    [this](const Register& reg) { return GetDebuggerIL()->IsTracked(reg); }))
    {
        return false;
    }
    const Register destReg = GetCurrentRegister();
    if (!instruction.HasDestReg() && destReg == g_Reg_NULL)
    {
        return true;
    }
    return !GetDebuggerIL()->IsTracked(destReg);
}

bool CShaderDebuggerShaderIL::UpdateTargetInstruction(bool bClearExecuteList)
{
    if (bClearExecuteList)
    {
        m_ExecuteList.clear();
    }
    PatchPoint pp(m_nCurrentInstruction);
    if (GetDebuggerIL()->HasValuesOnDemand())
    {
        pp.m_registers.push_back(g_Reg_NULL);
        m_ExecuteList.push_back(pp);
        return true;
    }
    const Register dest = GetDestRegister(m_nCurrentInstruction);
    for (const Register& reg : RegistersPassedBy(m_nCurrentInstruction.m_nPos))
    {
        if (GetDebuggerIL()->IsTracked(reg))
        {
            pp.m_registers.push_back(reg);
        }
    }
    if (dest != g_Reg_NULL || pp.m_registers.empty())
    {
        pp.m_registers.push_front(dest);
    }
    m_ExecuteList.push_back(pp);
    return true;
}

void CShaderDebuggerShaderIL::UpdateExecMaskHistory(const ProgramCounter& pc, CShaderDebuggerBuffer* pExecMask)
{
    if (SD_Assert(GetHost(), pExecMask))
    {
        NoteActiveCount(pc, pExecMask->GetActiveItemCount(0));
    }
}

void CShaderDebuggerShaderIL::NoteActiveCount(const ProgramCounter& pc, uint64_t nActive)
{
    m_nLastActive = nActive;
    const auto noted = m_ExecMaskHistory[m_CallStack].insert({pc, nActive});
    m_bRunsDiffer = m_bRunsDiffer || noted.first->second != nActive;
    noted.first->second = nActive;
}

bool CShaderDebuggerShaderIL::PostStep()
{
    m_History.Show();
    return PostStepAsm();
}

bool CShaderDebuggerShaderIL::PostStepAsm()
{
    if (m_nCurrentInstruction.m_nPos >= m_nEndOfShader)
    {
        return false;
    }
    m_nNextInstruction = m_nCurrentInstruction;
    m_CallStack = m_CurrentCallStack;
    m_Lanes.Ledger() = m_CurrentLedger;
    if (!AdvanceFromCurrent())
    {
        return false;
    }
    NoteNext();
    return true;
}

/// Goes on with the work-items that are active after the current instruction, or else to where others wait.
bool CShaderDebuggerShaderIL::AdvanceFromCurrent()
{
    const auto& counts = m_ExecMaskHistory[m_CallStack];
    const auto it = counts.find(m_nCurrentInstruction);
    if (it != counts.end())
    {
        m_bRunsDiffer = !m_Lanes.TakeEffect(Here(), it->second) || m_bRunsDiffer;
    }
    return m_Lanes.Ledger().GetActive().IsNobody() ? Resume() : UpdateNextInst();
}

/// From the current instruction, after which no work-item is active, sets the next instruction to the place where
/// others go on: further on in the function, or at the call that it came from.
/// \return false at the end of the kernel
bool CShaderDebuggerShaderIL::Resume()
{
    m_Lanes.Ledger().Replace({});
    while (const std::optional<CLaneLedger::SPlace> place = m_Lanes.Ledger().FindNext(m_nCurrentInstruction.m_nPos))
    {
        const ProgramCounter pc = CLaneFlow::PositionOf(*place, m_nCurrentInstruction);
        if (place->count.IsSomebody() || GetCount(pc, m_CurrentCallStack).value_or(1) != 0)
        {
            m_Lanes.Ledger().Close(place->nBlock + 1);
            m_nNextInstruction = pc;
            return true;
        }
        m_Lanes.Ledger().Take(place->nBlock, place->nInst);
    }
    if (ReturnToCaller())
    {
        return true;
    }
    m_nNextInstruction.m_nPos = m_nEndOfShader;
    return false;
}

bool CShaderDebuggerShaderIL::UpdateNextInst()
{
    ++m_nNextInstruction.m_nPos;
    // A macro's end isn't an instruction.
    const SOutlineMacro* pMacro = MacroAround(m_nNextInstruction.m_nPos - 1);
    if (pMacro != nullptr && pMacro->nEnd == m_nNextInstruction.m_nPos)
    {
        return ReturnToCaller();
    }
    return EnterInstruction();
}

/// Acts on the instruction that has just become the next one.
bool CShaderDebuggerShaderIL::EnterInstruction()
{
    const InstructionNumber nPos = m_nNextInstruction.m_nPos;
    if (nPos > m_nEndOfShader)
    {
        return false;
    }
    const CShaderDebuggerInstructionIL& instruction = m_Instructions[nPos];
    switch (instruction.GetOpCode())
    {
    case IL_OP_WHILE:
    {
        const CIL_Loop* pLoop = CIL_FCConstruct::AsLoop(ConstructOf(nPos));
        if (!SD_AssertText(GetHost(), pLoop != nullptr, "pLoop != NULL") ||
            !SD_Assert(GetHost(), pLoop->GetStart() == m_nNextInstruction.m_nPos))
        {
            return false;
        }
        m_nNextInstruction.AddLoop(pLoop->GetStart(), pLoop->GetEnd());
        return true;
    }
    case IL_OP_ENDLOOP:
    {
        const CIL_Loop* pLoop = CIL_FCConstruct::AsLoop(ConstructOf(nPos));
        if (pLoop != nullptr && IsInnermostLoop(*pLoop))
        {
            ++m_nNextInstruction.m_LoopStack.back().nLoopIteration;
            m_nNextInstruction.m_nPos = pLoop->GetStart();
        }
        return true;
    }
    case IL_OP_END:
    case IL_OP_ENDMAIN:
        // After the main body come functions, which are only entered by calls.
        m_nNextInstruction.m_nPos = m_nEndOfShader;
        return false;
    case IL_OP_CALL:
        return EnterFunction();
    case IL_OP_CALLNZ:
    case IL_OP_CALL_LOGICALZ:
    case IL_OP_CALL_LOGICALNZ:
        return EnterOnCondition();
    case IL_OP_MACROCALL:
        return !FindCallee(nPos).has_value() || EnterFunction();
    case IL_OP_ENDFUNC:
    case IL_OP_MACROEND:
        return ReturnToCaller();
    default:
        if (m_Course.WritesGlobalMemory(nPos))
        {
            m_lastGlobalStore = m_nNextInstruction;
        }
        return true;
    }
}

/// Enters what the next instruction calls.
bool CShaderDebuggerShaderIL::EnterFunction()
{
    const std::optional<InstructionNumber> nCallee = FindCallee(m_nNextInstruction.m_nPos);
    // More open calls than there are instructions is recursion, which the language doesn't have.
    if (!nCallee || m_CallStack.size() > m_nInstructionCount)
    {
        return RefuseOp("The called function can't be entered");
    }
    m_CallStack.push_front(m_nNextInstruction);
    m_Lanes.Ledger().EnterCall();
    m_nNextInstruction = ProgramCounter(*nCallee);
    return EnterInstruction();
}

/// Enters what the next instruction calls if its condition holds for any work-item, which a run at the function's start
/// tells. The others wait at the call, where all meet again.
bool CShaderDebuggerShaderIL::EnterOnCondition()
{
    CCallPath path = m_CallStack;
    path.push_front(m_nNextInstruction);
    const std::optional<InstructionNumber> nCallee = FindCallee(m_nNextInstruction.m_nPos);
    const std::optional<uint64_t> nEntering =
        nCallee ? GetCount(ProgramCounter(*nCallee), path) : std::optional<uint64_t>();
    if (nEntering == uint64_t(0))
    {
        return true;
    }
    if (!EnterFunction())
    {
        return false;
    }
    m_Lanes.Ledger().Replace(nEntering ? SLaneCount{*nEntering, false} : SLaneCount{0, true});
    return true;
}

bool CShaderDebuggerShaderIL::ReturnToCaller()
{
    if (m_CallStack.empty())
    {
        return false;
    }
    m_Lanes.Ledger().LeaveCall();
    m_nNextInstruction = m_CallStack.front();
    m_CallStack.pop_front();
    return true;
}

/// Ends the stepping at an instruction that it has no model of, with the reason where the client can read it.
bool CShaderDebuggerShaderIL::RefuseOp(const char* pszText)
{
    SD_Break(GetHost(), pszText);
    const InstructionNumber nPos = m_nNextInstruction.m_nPos;
    GetDebugger()->SetLastError(std::string(pszText) + ": instruction " + m_Instructions[nPos].GetOpCodeName() +
                                " on line " + std::to_string(GetLine(nPos)) + ". The debugging ends here.");
    m_nNextInstruction.m_nPos = m_nEndOfShader;
    return false;
}

bool CShaderDebuggerShaderIL::IsInnermostLoop(const CIL_Loop& loop) const
{
    const std::vector<LoopState>& stack = m_nNextInstruction.m_LoopStack;
    return !stack.empty() && stack.back().nLoopStart == loop.GetStart();
}

/// Whether the end of the main body follows, so that there is no stop after an instruction.
bool CShaderDebuggerShaderIL::IsLastInstruction(const ProgramCounter& pc) const
{
    return m_CallStack.empty() && OpCodeAt(pc.m_nPos) != IL_OP_UNKNOWN && OpCodeAt(pc.m_nPos + 1) == IL_OP_ENDMAIN;
}

/// The recorded count, or else the one that a run of its own gives.
std::optional<uint64_t> CShaderDebuggerShaderIL::GetCount(const ProgramCounter& pc, const CCallPath& path)
{
    std::map<ProgramCounter, uint64_t>& counts = m_ExecMaskHistory[path];
    const auto it = counts.find(pc);
    if (it != counts.end())
    {
        return it->second;
    }
    std::unique_ptr<CShaderDebuggerBuffer> pResult;
    std::unique_ptr<CShaderDebuggerBuffer> pExecMask;
    if (!Capture({pc, path, g_Reg_NULL, {}}, pResult, pExecMask))
    {
        return std::nullopt;
    }
    return counts[pc] = pExecMask->GetActiveItemCount(0);
}

} // namespace OVK_ShaderDebugger
