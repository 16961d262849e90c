#include "core/ShaderDebuggerBuffer.h"
#include "core/ShaderDebuggerHost.h"
#include "core/ShaderDebuggerResult.h"
#include "engine/OpCodeRoles.h"
#include "engine/RegisterExpansion.h"
#include "engine/ResultRegister.h"
#include "engine/ResultRestorer.h"
#include "engine/ShaderDebuggerIL.h"
#include "engine/ShaderDebuggerShaderIL.h"

#include <algorithm>
#include <utility>

namespace OVK_ShaderDebugger
{

/// Notes the current instruction as a stop, unless it is the newest already.
void CShaderDebuggerShaderIL::PushStop()
{
    if (m_History.IsNewest(m_nCurrentInstruction))
    {
        return;
    }
    NoteWritten(GetCurrentRegister());
    for (const Register& reg : RegistersPassedBy(m_nCurrentInstruction.m_nPos))
    {
        NoteWritten(reg);
    }
    m_History.Push({m_nCurrentInstruction, m_CurrentCallStack, m_nNextInstruction, m_CallStack, m_CurrentLedger,
                    m_Lanes.Ledger(), m_lastGlobalStore},
                   IsJump(OpCodeAt(m_nCurrentInstruction.m_nPos)));
    m_ExecutedStepHistory.push(m_nCurrentInstruction);
}

/// Keeps where the position goes on from the newest stop: from there a run may skip a block that a step enters.
void CShaderDebuggerShaderIL::NoteNext()
{
    if (m_History.IsNewest(m_nCurrentInstruction))
    {
        m_History.ChangeNext(m_nNextInstruction, m_CallStack, m_Lanes.Ledger());
    }
}

/// Notes that the register was written between the newest stop and the next one.
void CShaderDebuggerShaderIL::NoteWritten(const Register& reg)
{
    if (reg == g_Reg_NULL)
    {
        return;
    }
    const std::deque<Register> expanded = ExpandRegisters(*this, {m_nCurrentInstruction, m_CallStack}, {reg});
    m_History.NoteWritten({expanded.begin(), expanded.end()});
}

void CShaderDebuggerShaderIL::NoteFiled(const ProgramCounter& pc, const Register& reg)
{
    if (reg == g_Reg_NULL || !GetDebuggerIL()->IsTracked(reg))
    {
        return;
    }
    // A run without active work-items has made no result.
    if (GetDebuggerIL()->FindResult(CShaderDebuggerIL::GetResultRegister(reg)) == nullptr)
    {
        return;
    }
    KeepFiling(pc, reg);
}

void CShaderDebuggerShaderIL::KeepFiling(const ProgramCounter& pc, const Register& reg)
{
    m_History.NoteFiled({pc, m_CurrentCallStack, reg, m_Leaving});
}

/// One instruction back: if a run has passed over instructions before the present stop, to the last of those.
bool CShaderDebuggerShaderIL::BackAsm()
{
    if (m_History.Count() <= 1)
    {
        return false;
    }
    const CStopHistory::SStop& stop = m_History.Newest();
    const SPosition present = {stop.at.pc, stop.at.callStack};
    const bool bGap = stop.bGap;
    return GoBackTo(m_History.Count() - 2) && (!bGap || StepTo(present));
}

bool CShaderDebuggerShaderIL::RunBackAsm()
{
    if (m_History.Count() <= 1 || m_nCurrentInstruction.m_nPos == 0)
    {
        return false;
    }
    size_t nStop = m_History.Count() - 1;
    bool bFound = false;
    while (!bFound && nStop > 0 && m_History.At(nStop).at.pc.m_nPos != 0)
    {
        const std::optional<SPosition> passed = m_History.At(nStop).bGap ? FindPassedBreakpoint(nStop) : std::nullopt;
        if (!passed.has_value())
        {
            --nStop;
            bFound = GetDebugger()->HasBreakPointAtLineNumber(GetLine(m_History.At(nStop).at.next.m_nPos));
            continue;
        }
        if (!GoBackTo(nStop - 1) || !StepTo(*passed))
        {
            return false;
        }
        if (IsAtBreakpoint())
        {
            return true;
        }
        // The breakpoint is in a called function, which has now been stepped through.
        nStop = m_History.Count() - 1;
    }
    return GoBackTo(nStop);
}

bool CShaderDebuggerShaderIL::PostBack()
{
    ShowPresent();
    return PostBackAsm();
}

/// Counts stops that a run only walked over as shown from now on. What was written on the way counts as read here.
void CShaderDebuggerShaderIL::ShowPresent()
{
    for (const Register& reg : m_History.FindUnshown())
    {
        const SFiling here = m_History.ReadingHere(reg);
        NoteFiled(here.pc, here.reg);
    }
    m_History.Show();
}

/// Makes an earlier stop the present one. The next instruction is the one that it was then, and every register that may
/// have changed since is read again at the positions that wrote it.
/// \param eValues  whether the registers are read at once, or the overwritten ones only when they are asked for
bool CShaderDebuggerShaderIL::GoBackTo(size_t nStop, EValues eValues)
{
    const CStopHistory::SUndone undone = m_History.GoBackTo(nStop);
    while (m_ExecutedStepHistory.size() > m_History.Count())
    {
        m_ExecutedStepHistory.pop();
    }
    StandAt(m_History.Newest().at);
    for (const SFiling& filed : undone.vFiled)
    {
        CShaderDebuggerResult* pResult = GetDebuggerIL()->FindResult(CShaderDebuggerIL::GetResultRegister(filed.reg));
        if (pResult != nullptr && pResult->GetLastStep() == filed.pc)
        {
            pResult->PopLastStep();
        }
    }
    if (eValues == EValues::Later)
    {
        // What no run has read since still has the values of that stop.
        for (const SFiling& filed : undone.vFiled)
        {
            m_vOverwritten.push_back(filed.reg);
        }
        return true;
    }
    RestoreChanged(undone);
    return UpdateTargetInstruction(true);
}

void CShaderDebuggerShaderIL::StandAt(const SStanding& standing)
{
    m_nCurrentInstruction = standing.pc;
    m_CurrentCallStack = standing.callStack;
    m_CurrentLedger = standing.ledger;
    m_nNextInstruction = standing.next;
    m_CallStack = standing.nextCallStack;
    m_Lanes.Ledger() = standing.nextLedger;
    m_lastGlobalStore = standing.lastGlobalStore;
}

/// Reads every register again that may have changed since the present stop, at the positions that wrote it.
void CShaderDebuggerShaderIL::RestoreChanged(const CStopHistory::SUndone& undone)
{
    std::vector<Register> vDone;
    for (const Register& reg : undone.vChanged)
    {
        if (!ContainsResult(vDone, reg))
        {
            vDone.push_back(reg);
            RestoreResult(reg, undone.bAllShown && undone.CountFilings(reg) == 1);
        }
    }
    for (const SFiling& filed : undone.vFiled)
    {
        if (!ContainsResult(vDone, filed.reg))
        {
            vDone.push_back(filed.reg);
            // A run that walked over the present stop read the register further on, where some work-items that are
            // active here no longer were.
            m_History.Newest().bShown ? AimResult(filed.reg) : RestoreResult(filed.reg, false);
        }
    }
}

/// \param bOneWrite whether only the newest update was undone, so that its mask tells which work-items changed
void CShaderDebuggerShaderIL::RestoreResult(const Register& reg, bool bOneWrite)
{
    CShaderDebuggerResult* pResult = GetDebuggerIL()->FindResult(CShaderDebuggerIL::GetResultRegister(reg));
    if (pResult == nullptr || pResult->GetResult() == nullptr)
    {
        return;
    }
    const std::vector<SFiling> vSources = m_History.FindSources(reg);
    CResultRestorer restorer(*pResult->GetResult(), bOneWrite ? pResult->GetExecMask() : nullptr);
    for (size_t n = 0; n < vSources.size() && (n == 0 || !restorer.IsComplete()); ++n)
    {
        std::unique_ptr<CShaderDebuggerBuffer> pValues;
        std::unique_ptr<CShaderDebuggerBuffer> pExecMask;
        if (!Capture(vSources[n], pValues, pExecMask) ||
            !restorer.Take(*pValues, *pExecMask, vSources[n].reg, n + 1 == vSources.size()))
        {
            if (GetHost()->IsBrokenOff())
            {
                m_vOverwritten.push_back(reg);
                return;
            }
            // No value is better than a wrong one.
            GetDebuggerIL()->DeleteResult(reg);
            return;
        }
        if (n == 0)
        {
            HideLeavers(*pExecMask);
            pResult->UpdateExecMask(pExecMask.release());
        }
    }
    AimResult(reg);
}

bool CShaderDebuggerShaderIL::BeginMovement()
{
    const bool bRestored = RestoreOverwritten();
    m_History.BeginMovement();
    return bRestored;
}

/// Removes from the history what the movement has added, and goes to the newest stop that is left.
bool CShaderDebuggerShaderIL::ReturnToStop(bool& bSameStop)
{
    bSameStop = !m_History.HasGoneBack();
    if (m_History.IsEmpty())
    {
        return false;
    }
    m_Runs.Forget();
    m_Leaving.clear();
    m_Walk.Forget();
    GoBackTo(std::min(m_History.Count(), std::max<size_t>(m_History.CountKept(), 1)) - 1, EValues::Later);
    m_ExecuteList.clear();
    return true;
}

bool CShaderDebuggerShaderIL::RestoreOverwritten()
{
    if (m_vOverwritten.empty())
    {
        return true;
    }
    GetHost()->SetBrokenOff(false);
    std::vector<Register> vDone;
    for (const Register& reg : std::exchange(m_vOverwritten, {}))
    {
        if (!ContainsResult(vDone, reg))
        {
            vDone.push_back(reg);
            RestoreResult(reg, false);
        }
    }
    return m_vOverwritten.empty();
}

bool CShaderDebuggerShaderIL::ReadStopMask()
{
    if (m_History.IsEmpty())
    {
        return false;
    }
    const SStanding& stop = m_History.Newest().at;
    std::unique_ptr<CShaderDebuggerBuffer> pValues;
    std::unique_ptr<CShaderDebuggerBuffer> pExecMask;
    if (!Capture({stop.pc, stop.callStack, g_Reg_NULL, {}}, pValues, pExecMask))
    {
        return false;
    }
    GetDebuggerIL()->FileStopMask(stop.pc, std::move(pExecMask));
    return true;
}

std::vector<Register> CShaderDebuggerShaderIL::FindWritten() const
{
    std::vector<Register> vWritten = m_History.FindWritten();
    vWritten.erase(
        std::remove_if(vWritten.begin(), vWritten.end(), [](const Register& reg) { return !IsCaptured(reg); }),
        vWritten.end());
    return vWritten;
}

/// Makes a result's newest position the one where it was read last. A result that was never read is deleted.
void CShaderDebuggerShaderIL::AimResult(const Register& reg)
{
    CShaderDebuggerResult* pResult = GetDebuggerIL()->FindResult(CShaderDebuggerIL::GetResultRegister(reg));
    if (pResult == nullptr)
    {
        return;
    }
    const std::vector<SFiling> vSources = m_History.FindSources(reg);
    if (vSources.empty())
    {
        GetDebuggerIL()->DeleteResult(reg);
        return;
    }
    pResult->SetProgramCounter(vSources.front().pc, vSources.front().reg.mask);
}

} // namespace OVK_ShaderDebugger
