#include "core/Log.h"
#include "core/ShaderDebuggerBuffer.h"
#include "engine/ShaderDebuggerIL.h"
#include "engine/ShaderDebuggerShaderIL.h"

namespace OVK_ShaderDebugger
{

/// From a position behind which no work-item is active, finds where those that are still alive take part again: walks
/// outward from the construct, and sets the next instruction.
/// \param bNextPass whether a loop on the way goes into its next pass, or is left
/// \return false, with nothing changed, if there is no such place in the function
bool CShaderDebuggerShaderIL::Resume(const CIL_FCConstruct* pConstruct, bool bNextPass)
{
    const InstructionNumber nPos = m_nCurrentInstruction.m_nPos;
    for (; pConstruct != nullptr; pConstruct = pConstruct->GetParent())
    {
        if (const CIL_Loop* pLoop = pConstruct->AsLoop())
        {
            return bNextPass ? StartPass(*pLoop) : LeaveLoop(*pLoop);
        }
        if (const CIL_Switch* pSwitch = pConstruct->AsSwitch())
        {
            m_nNextInstruction.m_nPos = pSwitch->GetNextCase(nPos);
            return true;
        }
        // In an else-part nobody can resume: the if-part has been walked already.
        const CIL_IfElseEndif* pIf = pConstruct->AsIfElseEndif();
        if (pIf != nullptr && !pIf->IsInElse(nPos) && IsDivergent(*pIf))
        {
            m_nNextInstruction.m_nPos = pIf->GetElse();
            return true;
        }
    }
    return false;
}

bool CShaderDebuggerShaderIL::IsInnermostLoop(const CIL_Loop& loop) const
{
    const std::vector<LoopState>& stack = m_nNextInstruction.m_LoopStack;
    return !stack.empty() && stack.back().nLoopStart == loop.GetStart();
}

bool CShaderDebuggerShaderIL::LeaveLoop(const CIL_Loop& loop)
{
    if (IsInnermostLoop(loop))
    {
        m_nNextInstruction.m_LoopStack.pop_back();
    }
    m_nNextInstruction.m_nPos = loop.GetEnd();
    return true;
}

/// Puts the next instruction at the head of the loop's next pass. A loop of which the position has no entry can't be
/// counted, and is left.
bool CShaderDebuggerShaderIL::StartPass(const CIL_Loop& loop)
{
    if (!IsInnermostLoop(loop))
    {
        return LeaveLoop(loop);
    }
    ++m_nNextInstruction.m_LoopStack.back().nLoopIteration;
    m_nNextInstruction.m_nPos = loop.GetStart();
    return true;
}

/// The way on from a loop's end that nobody came to: all who entered have returned, so that the code behind the loop
/// is dead. Those of an enclosing block may be alive.
bool CShaderDebuggerShaderIL::LeaveEndedLoop()
{
    const CIL_FCConstruct* pLoop = ConstructOf(m_nCurrentInstruction.m_nPos);
    return Resume(pLoop->GetParent(), true) || ReturnToCaller();
}

/// Whether some work-items passed an if without entering its if-part, in the pass and call of the current
/// instruction. What can't be found out isn't taken for divergence.
bool CShaderDebuggerShaderIL::IsDivergent(const CIL_IfElseEndif& ifElse)
{
    if (ifElse.GetIf() == 0)
    {
        return false;
    }
    ProgramCounter pc = m_nCurrentInstruction;
    pc.m_nPos = ifElse.GetIf() - 1;
    const std::optional<uint64_t> nThreadsPreIf = GetCount(pc, m_CurrentCallStack);
    pc.m_nPos = ifElse.GetIf();
    const std::optional<uint64_t> nThreadsInIf = GetCount(pc, m_CurrentCallStack);
    return nThreadsPreIf.has_value() && nThreadsInIf.has_value() && *nThreadsPreIf != *nThreadsInIf;
}

/// The count recorded for a position of the current instruction's call.
std::optional<uint64_t> CShaderDebuggerShaderIL::FindCount(const ProgramCounter& pc) const
{
    const auto itCall = m_ExecMaskHistory.find(m_CurrentCallStack);
    if (itCall == m_ExecMaskHistory.end())
    {
        return std::nullopt;
    }
    const auto it = itCall->second.find(pc);
    return it != itCall->second.end() ? std::optional<uint64_t>(it->second) : std::nullopt;
}

std::optional<uint64_t> CShaderDebuggerShaderIL::GetCount(const ProgramCounter& pc, const CallPath& path)
{
    std::map<ProgramCounter, uint64_t>& counts = m_ExecMaskHistory[path];
    const auto it = counts.find(pc);
    if (it != counts.end())
    {
        return it->second;
    }
    std::unique_ptr<CShaderDebuggerBuffer> pResult;
    std::unique_ptr<CShaderDebuggerBuffer> pExecMask;
    if (!Capture(pc, path, g_Reg_NULL, pResult, pExecMask))
    {
        return std::nullopt;
    }
    return counts[pc] = pExecMask->GetActiveItemCount(0);
}

} // namespace OVK_ShaderDebugger
