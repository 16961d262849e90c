#include "core/Log.h"
#include "engine/OpCodeRoles.h"
#include "engine/ShaderDebuggerIL.h"
#include "engine/ShaderDebuggerShaderIL.h"

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
    RegPCMap regPCMap;
    EWalk walk = EWalk::Moved;
    bool bArrived = false;
    while (walk == EWalk::Moved && !bArrived)
    {
        walk = WalkOne(regPCMap);
        if (walk == EWalk::Moved && IsAtBreakpoint())
        {
            bArrived = Arrive(regPCMap);
        }
        if (walk == EWalk::Moved && m_nNextInstruction.m_nPos >= m_nEndOfShader)
        {
            walk = EWalk::End;
        }
    }
    // The last instruction of the kernel runs as a stop does; its last phase reports the end.
    return walk != EWalk::Failed && UpdateTargetInstruction(true);
}

CShaderDebuggerShaderIL::EWalk CShaderDebuggerShaderIL::WalkOne(RegPCMap& regPCMap)
{
    const InstructionNumber nPos = m_nNextInstruction.m_nPos;
    const ILOpCode op = OpCodeAt(nPos);
    if (!ILShaderUtils::IsFlowControlOp(op))
    {
        return WalkInstruction(regPCMap);
    }
    const CIL_FCConstruct* pFlowControl = ConstructOf(nPos);
    if (!ILShaderUtils::IsFlowControlBlockOp(op) || HasBreakpointInFlowControlBlock(pFlowControl, nPos))
    {
        return WalkFlowControl(regPCMap);
    }
    return SkipBlock(regPCMap, pFlowControl);
}

/// An instruction that leaves the mask alone: nothing runs, and as many are active behind it as in front of it.
CShaderDebuggerShaderIL::EWalk CShaderDebuggerShaderIL::WalkInstruction(RegPCMap& regPCMap)
{
    const bool bSameMask = !IsReturn(OpCodeAt(m_nCurrentInstruction.m_nPos));
    const std::optional<uint64_t> nActive = bSameMask ? FindCount(m_nCurrentInstruction) : std::nullopt;
    MoveToNext();
    if (nActive.has_value())
    {
        m_ExecMaskHistory[m_CurrentCallStack][m_nCurrentInstruction] = *nActive;
    }
    if (WritesGlobalMemory(m_nCurrentInstruction.m_nPos))
    {
        m_lastGlobalStore = m_nCurrentInstruction;
    }
    const Register reg = GetCurrentRegister();
    if (reg != g_Reg_NULL)
    {
        regPCMap[reg] = m_nCurrentInstruction;
    }
    PushStop();
    if (!UpdateNextInst())
    {
        return EWalk::End;
    }
    NoteNext();
    return EWalk::Moved;
}

/// Flow control that has to be decided: a step of its own.
CShaderDebuggerShaderIL::EWalk CShaderDebuggerShaderIL::WalkFlowControl(RegPCMap& regPCMap)
{
    ReadSkipped(regPCMap, false);
    return Step() && GetDebugger()->Execute() && PostStepAsm() ? EWalk::Moved : EWalk::Failed;
}

/// Reads what has been skipped at the current instruction. Where nobody is, nothing is left to read: whoever went
/// through the skipped stretch left it by a jump, and what it wrote is noted for the place where that leads to.
void CShaderDebuggerShaderIL::ReadSkipped(RegPCMap& regPCMap, bool bGetExecMask)
{
    RetrieveRegisters(regPCMap, bGetExecMask);
    regPCMap.clear();
}

bool CShaderDebuggerShaderIL::IsAtBreakpoint() const
{
    return m_nNextInstruction.m_nPos < m_nEndOfShader && GetDebugger()->HasBreakPointAtLineNumber(GetNextLine());
}

/// Whether a breakpoint in front of the position is a stop: not if nobody comes there, which only the run in front of
/// it tells. If it isn't, the position has moved on to where somebody may be.
bool CShaderDebuggerShaderIL::Arrive(RegPCMap& regPCMap)
{
    ReadSkipped(regPCMap, true);
    if (!IsAtBreakpoint())
    {
        return false;
    }
    if (IsSomebodyAtNext())
    {
        return true;
    }
    if (!BringsTogether(OpCodeAt(m_nNextInstruction.m_nPos)))
    {
        const CIL_FCConstruct* pFlowControl = ConstructOf(m_nCurrentInstruction.m_nPos);
        const ILOpCode op = OpCodeAt(m_nCurrentInstruction.m_nPos);
        if (pFlowControl != nullptr && (op == IL_OP_ENDIF || op == IL_OP_ENDSWITCH))
        {
            pFlowControl = pFlowControl->GetParent();
        }
        m_nNextInstruction = m_nCurrentInstruction;
        m_CallStack = m_CurrentCallStack;
        if (!Resume(pFlowControl, true) && !ReturnToCaller())
        {
            m_nNextInstruction.m_nPos = m_nEndOfShader;
        }
        // The way back doesn't stop either where nobody was.
        NoteNext();
    }
    return false;
}

bool CShaderDebuggerShaderIL::IsSomebodyAtNext()
{
    if (DecidesFlow(OpCodeAt(m_nCurrentInstruction.m_nPos)) || FindCount(m_nCurrentInstruction).value_or(1) != 0)
    {
        return true;
    }
    if (!BringsTogether(OpCodeAt(m_nNextInstruction.m_nPos)))
    {
        return false;
    }
    return GetCount(m_nNextInstruction, m_CallStack).value_or(1) != 0;
}

} // namespace OVK_ShaderDebugger
