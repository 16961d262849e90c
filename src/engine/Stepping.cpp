#include "core/Log.h"
#include "core/ShaderDebuggerBuffer.h"
#include "engine/OpCodeRoles.h"
#include "engine/ShaderDebuggerIL.h"
#include "engine/ShaderDebuggerShaderIL.h"

namespace OVK_ShaderDebugger
{

void CShaderDebuggerShaderIL::MoveToNext()
{
    m_nCurrentInstruction = m_nNextInstruction;
    m_CurrentCallStack = m_CallStack;
}

bool CShaderDebuggerShaderIL::StepAsm()
{
    if (m_nNextInstruction == m_nCurrentInstruction || m_nNextInstruction.m_nPos >= m_nEndOfShader)
    {
        return false;
    }
    const bool bBehindReturn = IsReturn(OpCodeAt(m_nCurrentInstruction.m_nPos));
    MoveToNext();

    if (IsFastStep(bBehindReturn))
    {
        CShaderDebuggerBuffer* pExecMask = nullptr;
        const bool bRead = GetDebuggerIL()->RetrieveExecMaskBuffer(pExecMask);
        const std::unique_ptr<CShaderDebuggerBuffer> pOwner(pExecMask);
        if (bRead)
        {
            m_ExecuteList.clear();
            UpdateExecMaskHistory(m_nCurrentInstruction, pExecMask);
            PushStop();
            return true;
        }
    }
    UpdateTargetInstruction(true);
    const std::set<Register> rejoining = TakeRejoining(m_nCurrentInstruction.m_nPos);
    if (!rejoining.empty())
    {
        std::deque<Register>& registers = m_ExecuteList.back().m_registers;
        if (registers.front() == g_Reg_NULL)
        {
            registers.clear();
        }
        registers.insert(registers.end(), rejoining.begin(), rejoining.end());
        // Whoever comes back here shows what was written on its way for the first time.
        for (const Register& reg : rejoining)
        {
            NoteWritten(reg);
        }
    }
    return true;
}

/// An instruction that leaves the mask and all wanted registers alone needs no run: the mask of the last run is its
/// mask. Behind a return that isn't so, since the position moves to the call.
bool CShaderDebuggerShaderIL::IsFastStep(bool bBehindReturn)
{
    const CShaderDebuggerInstructionIL& instruction = m_Instructions[m_nCurrentInstruction.m_nPos];
    if (!m_bHasBeenExecuted || !m_bLastRunAtCurrent || bBehindReturn || instruction.IsFlowControlOp())
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
    m_ExecuteList.emplace_back(m_nCurrentInstruction, GetDestRegister(m_nCurrentInstruction));
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
    m_ExecMaskHistory[m_CallStack][pc] = nActive;
}

bool CShaderDebuggerShaderIL::PostStep()
{
    if (!m_Stops.empty())
    {
        m_Stops.back().bShown = true;
    }
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
    if (!AdvanceFromCurrent())
    {
        return false;
    }
    NoteNext();
    return true;
}

bool CShaderDebuggerShaderIL::AdvanceFromCurrent()
{
    const ILOpCode op = OpCodeAt(m_nCurrentInstruction.m_nPos);
    if (IsReturn(op))
    {
        return ReturnToCaller();
    }
    const uint64_t nActive = m_ExecMaskHistory[m_CallStack][m_nCurrentInstruction];
    return nActive == 0 && DecidesFlow(op) ? AdvanceWithNobody() : UpdateNextInst();
}

/// The way on from an instruction that decides the flow, when no work-item is active behind it.
bool CShaderDebuggerShaderIL::AdvanceWithNobody()
{
    const InstructionNumber nPos = m_nCurrentInstruction.m_nPos;
    const ILOpCode op = OpCodeAt(nPos);
    CIL_FCConstruct* pConstruct = ConstructOf(nPos);
    if (IsBreak(op) || IsContinue(op))
    {
        return Resume(pConstruct, IsContinue(op)) || UpdateNextInst();
    }
    if (IsCase(op))
    {
        const CIL_Switch* pSwitch = CIL_FCConstruct::AsSwitch(pConstruct);
        if (!SD_AssertText(GetHost(), pSwitch != nullptr, "pSwitch != NULL"))
        {
            return false;
        }
        m_nNextInstruction.m_nPos = pSwitch->GetNextCase(nPos);
        return true;
    }
    if (op == IL_OP_WHILE || op == IL_OP_ENDLOOP)
    {
        const CIL_Loop* pLoop = CIL_FCConstruct::AsLoop(pConstruct);
        if (!SD_AssertText(GetHost(), pLoop != nullptr, "pLoop != NULL"))
        {
            return false;
        }
        return op == IL_OP_WHILE ? LeaveLoop(*pLoop) : LeaveEndedLoop();
    }
    const CIL_IfElseEndif* pIf = CIL_FCConstruct::AsIfElseEndif(pConstruct);
    if (!SD_AssertText(GetHost(), pIf != nullptr, "pIf != NULL"))
    {
        return false;
    }
    m_nNextInstruction.m_nPos = op == IL_OP_ELSE ? pIf->GetEndIf() : pIf->GetElse();
    return true;
}

bool CShaderDebuggerShaderIL::UpdateNextInst()
{
    ++m_nNextInstruction.m_nPos;
    // A macro's end isn't an instruction.
    if (m_nNextInstruction.m_nPos == m_nOutlineMacroEnd && !m_CallStack.empty())
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
        return pLoop == nullptr || !IsInnermostLoop(*pLoop) || StartPass(*pLoop);
    }
    case IL_OP_END:
    case IL_OP_ENDMAIN:
        // What stands behind the main body are functions, which are only entered by calls.
        m_nNextInstruction.m_nPos = m_nEndOfShader;
        return false;
    case IL_OP_CALL:
        return EnterFunction(instruction.GetToken(1));
    case IL_OP_MACROCALL:
        return m_OutlineMacroLabel == 0 || GetMacroLabel(instruction.GetToken(0)) != m_OutlineMacroLabel ||
               EnterFunction(m_OutlineMacroLabel);
    case IL_OP_ENDFUNC:
    case IL_OP_MACROEND:
        return ReturnToCaller();
    case IL_OP_CALLNZ:
    case IL_OP_CALL_LOGICALZ:
    case IL_OP_CALL_LOGICALNZ:
        return RefuseOp("Conditional calls are unsupported");
    case IL_OP_RET_LOGICALZ:
    case IL_OP_RET_LOGICALNZ:
        return RefuseOp("Conditional returns are unsupported");
    default:
        if (WritesGlobalMemory(nPos))
        {
            m_lastGlobalStore = m_nNextInstruction;
        }
        return true;
    }
}

bool CShaderDebuggerShaderIL::EnterFunction(unsigned int nLabel)
{
    const auto it = m_FunctionInstruction.find(nLabel);
    // More open calls than there are instructions is recursion, which the language doesn't have.
    if (it == m_FunctionInstruction.end() || m_CallStack.size() > m_nInstructionCount)
    {
        return RefuseOp("The called function can't be entered");
    }
    m_CallStack.push_front(m_nNextInstruction);
    m_nNextInstruction = ProgramCounter(it->second);
    return EnterInstruction();
}

bool CShaderDebuggerShaderIL::ReturnToCaller()
{
    if (m_CallStack.empty())
    {
        return false;
    }
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

/// A store, or an atomic, which stores as well.
bool CShaderDebuggerShaderIL::WritesGlobalMemory(InstructionNumber nInst) const
{
    const ILOpCode op = OpCodeAt(nInst);
    return ILShaderUtils::IsGlobalStore(op) || ILShaderUtils::IsGlobalAtomicOp(op);
}

/// A work-item stores to the output buffers where the target's function ends. It misses that if it returns before, or
/// if the function is called inside a block that it doesn't enter.
void CShaderDebuggerShaderIL::FindMissedStores()
{
    InstructionNumber n = 0;
    for (const CShaderDebuggerInstructionIL& instruction : m_Instructions)
    {
        const ILOpCode op = instruction.GetOpCode();
        const bool bInBlock = ConstructOf(n++) != nullptr;
        const bool bLeaves = IsReturn(op) || op == IL_OP_CALL || op == IL_OP_MACROCALL;
        m_bCanMissStores =
            m_bCanMissStores || (bLeaves && bInBlock) || IsConditionalReturn(op) || (IsCall(op) && op != IL_OP_CALL);
    }
}

} // namespace OVK_ShaderDebugger
