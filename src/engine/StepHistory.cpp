#include "core/ShaderDebuggerBuffer.h"
#include "core/ShaderDebuggerHost.h"
#include "core/ShaderDebuggerResult.h"
#include "engine/BufferWords.h"
#include "engine/OpCodeRoles.h"
#include "engine/PrivateAccess.h"
#include "engine/ResultRestorer.h"
#include "engine/ShaderDebuggerIL.h"
#include "engine/ShaderDebuggerShaderIL.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace OVK_ShaderDebugger
{

namespace
{

bool HaveSameResult(const Register& lhs, const Register& rhs)
{
    return CShaderDebuggerIL::GetResultRegister(lhs).reg == CShaderDebuggerIL::GetResultRegister(rhs).reg;
}

bool Contains(const std::vector<Register>& vRegisters, const Register& reg)
{
    return std::any_of(vRegisters.begin(), vRegisters.end(),
                       [&](const Register& entry) { return HaveSameResult(entry, reg); });
}

template <typename Filings>
size_t CountFilings(const Filings& vFiled, const Register& reg)
{
    return std::count_if(vFiled.begin(), vFiled.end(),
                         [&](const auto& filed) { return HaveSameResult(filed.reg, reg); });
}

} // namespace

/// Notes the current instruction as a stop, unless it is the newest already.
void CShaderDebuggerShaderIL::PushStop()
{
    if (!m_ExecutedStepHistory.empty() && m_ExecutedStepHistory.top() == m_nCurrentInstruction)
    {
        return;
    }
    NoteWritten(GetCurrentRegister());
    for (const Register& reg : RegistersPassedBy(m_nCurrentInstruction.m_nPos))
    {
        NoteWritten(reg);
    }
    m_Pending.pc = m_nCurrentInstruction;
    m_Pending.callStack = m_CurrentCallStack;
    m_Pending.next = m_nNextInstruction;
    m_Pending.nextCallStack = m_CallStack;
    m_Pending.lastGlobalStore = m_lastGlobalStore;
    m_Pending.ledger = m_CurrentLedger;
    m_Pending.nextLedger = m_Ledger;
    m_Stops.push_back(std::move(m_Pending));
    m_Pending = SStop();
    m_ExecutedStepHistory.push(m_nCurrentInstruction);
}

/// Keeps where the position goes on from the newest stop: behind it a run may skip a block that a step enters.
void CShaderDebuggerShaderIL::NoteNext()
{
    if (!m_Stops.empty() && m_Stops.back().pc == m_nCurrentInstruction)
    {
        m_Stops.back().next = m_nNextInstruction;
        m_Stops.back().nextCallStack = m_CallStack;
        m_Stops.back().nextLedger = m_Ledger;
    }
}

/// The next stop differs from the one before by a write of the register.
void CShaderDebuggerShaderIL::NoteWritten(const Register& reg)
{
    if (reg == g_Reg_NULL)
    {
        return;
    }
    std::deque<Register> expanded;
    ExpandIndexedRegisters(m_nCurrentInstruction, {reg}, &expanded);
    m_Pending.vWritten.insert(m_Pending.vWritten.end(), expanded.begin(), expanded.end());
}

void CShaderDebuggerShaderIL::NoteFiled(const ProgramCounter& pc, const Register& reg)
{
    if (reg == g_Reg_NULL || !GetDebuggerIL()->IsTracked(reg))
    {
        return;
    }
    // A run in which nobody took part has made no result.
    if (GetDebuggerIL()->FindResult(CShaderDebuggerIL::GetResultRegister(reg)) == nullptr)
    {
        return;
    }
    KeepFiling(pc, reg);
}

void CShaderDebuggerShaderIL::KeepFiling(const ProgramCounter& pc, const Register& reg)
{
    const bool bAtNewest = !m_ExecutedStepHistory.empty() && m_ExecutedStepHistory.top() == pc;
    SStop& stop = bAtNewest ? m_Stops.back() : m_Pending;
    stop.vFiled.push_back({pc, m_CurrentCallStack, reg, m_Leaving});
}

/// One instruction back: where a run has passed over some in front of the present stop, the last of those.
bool CShaderDebuggerShaderIL::BackAsm()
{
    if (m_Stops.size() <= 1)
    {
        return false;
    }
    const SPosition present = {m_Stops.back().pc, m_Stops.back().callStack};
    const bool bGap = m_Stops.back().bGap;
    return GoBackTo(m_Stops.size() - 2) && (!bGap || StepTo(present));
}

bool CShaderDebuggerShaderIL::RunBackAsm()
{
    if (m_Stops.size() <= 1 || m_nCurrentInstruction.m_nPos == 0)
    {
        return false;
    }
    size_t nStop = m_Stops.size() - 1;
    bool bFound = false;
    while (!bFound && nStop > 0 && m_Stops[nStop].pc.m_nPos != 0)
    {
        const std::optional<SPosition> passed = m_Stops[nStop].bGap ? FindPassedBreakpoint(nStop) : std::nullopt;
        if (!passed.has_value())
        {
            --nStop;
            bFound = GetDebugger()->HasBreakPointAtLineNumber(GetLine(m_Stops[nStop].next.m_nPos));
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
        // A call, which has been stepped through.
        nStop = m_Stops.size() - 1;
    }
    return GoBackTo(nStop);
}

bool CShaderDebuggerShaderIL::PostBack()
{
    ShowPresent();
    return PostBackAsm();
}

/// What a run only walked over is shown from now on, and what was written on the walk counts as read here.
void CShaderDebuggerShaderIL::ShowPresent()
{
    std::vector<Register> vRead;
    for (auto itStop = m_Stops.rbegin(); itStop != m_Stops.rend() && !itStop->bShown; ++itStop)
    {
        for (const Register& written : itStop->vWritten)
        {
            if (!Contains(vRead, written))
            {
                vRead.push_back(written);
            }
        }
    }
    for (const Register& reg : vRead)
    {
        const SFiling here = ReadingHere(reg);
        NoteFiled(here.pc, here.reg);
    }
    m_Stops.back().bShown = true;
}

/// Makes an earlier stop the present one. The next instruction is the one that it was then, and every register that may
/// have changed since is read again at the positions that wrote it.
/// \param eValues  whether the registers are read at once, or those that were overwritten when they are asked for
bool CShaderDebuggerShaderIL::GoBackTo(size_t nStop, EValues eValues)
{
    m_nKeptStops = std::min(m_nKeptStops, nStop + 1);
    m_nNextInstruction = m_Stops[nStop].next;
    m_CallStack = m_Stops[nStop].nextCallStack;
    m_Ledger = m_Stops[nStop].nextLedger;

    std::vector<Register> vChanged = std::move(m_Pending.vWritten);
    std::vector<SFiling> vFiled = std::move(m_Pending.vFiled);
    m_Pending = SStop();
    bool bAllShown = m_Stops[nStop].bShown;
    for (size_t n = m_Stops.size() - 1; n > nStop; --n)
    {
        bAllShown = bAllShown && m_Stops[n].bShown;
        vChanged.insert(vChanged.end(), m_Stops[n].vWritten.begin(), m_Stops[n].vWritten.end());
        vFiled.insert(vFiled.end(), m_Stops[n].vFiled.rbegin(), m_Stops[n].vFiled.rend());
        m_Stops.pop_back();
        m_ExecutedStepHistory.pop();
    }
    m_nCurrentInstruction = m_Stops.back().pc;
    m_CurrentCallStack = m_Stops.back().callStack;
    m_lastGlobalStore = m_Stops.back().lastGlobalStore;
    m_CurrentLedger = m_Stops.back().ledger;

    for (const auto& filed : vFiled)
    {
        CShaderDebuggerResult* pResult = GetDebuggerIL()->FindResult(CShaderDebuggerIL::GetResultRegister(filed.reg));
        if (pResult != nullptr && pResult->GetLastStep() == filed.pc)
        {
            pResult->PopLastStep();
        }
    }
    std::vector<Register> vDone;
    if (eValues == EValues::Later)
    {
        // What no run has read since is still as it was.
        for (const auto& filed : vFiled)
        {
            m_vOverwritten.push_back(filed.reg);
        }
        return true;
    }
    for (const Register& reg : vChanged)
    {
        if (!Contains(vDone, reg))
        {
            vDone.push_back(reg);
            RestoreResult(reg, bAllShown && CountFilings(vFiled, reg) == 1);
        }
    }
    for (const auto& filed : vFiled)
    {
        if (!Contains(vDone, filed.reg))
        {
            vDone.push_back(filed.reg);
            // A run that walked over the present stop read the register further on, where some who are active here
            // no longer were.
            m_Stops.back().bShown ? AimResult(filed.reg) : RestoreResult(filed.reg, false);
        }
    }
    return UpdateTargetInstruction(true);
}

/// Where a run delivers a register's values as the present stop shows them, newest first: all that a stop ever shows
/// has been filed. If a run only walked over the present stop nobody has seen its values, and it comes first itself.
std::vector<CShaderDebuggerShaderIL::SFiling> CShaderDebuggerShaderIL::FindSources(const Register& reg) const
{
    std::vector<SFiling> vSources;
    bool bWritten = false;
    for (auto itStop = m_Stops.rbegin(); itStop != m_Stops.rend(); ++itStop)
    {
        bWritten = bWritten || Contains(itStop->vWritten, reg);
        std::copy_if(itStop->vFiled.rbegin(), itStop->vFiled.rend(), std::back_inserter(vSources),
                     [&](const SFiling& filed) { return HaveSameResult(filed.reg, reg); });
    }
    const SStop& present = m_Stops.back();
    const bool bReadHere =
        !vSources.empty() && vSources.front().pc == present.pc && vSources.front().callStack == present.callStack;
    if (!present.bShown && !bReadHere && (bWritten || !vSources.empty()))
    {
        vSources.insert(vSources.begin(), ReadingHere(reg));
    }
    return vSources;
}

/// All components; of private memory the whole slot.
Register CShaderDebuggerShaderIL::WholeRegister(const Register& reg)
{
    Register whole = CShaderDebuggerIL::GetResultRegister(reg);
    whole.mask = COMP_All;
    whole.reg.index = reg.reg.index;
    if (reg.reg.type == RT_PrivateUAVAccess)
    {
        whole.reg.index -= reg.reg.index % s_nPrivateSlotSize;
    }
    return whole;
}

/// The whole register, read at the present stop; at a jump also of those who take it.
CShaderDebuggerShaderIL::SFiling CShaderDebuggerShaderIL::ReadingHere(const Register& reg) const
{
    const SStop& present = m_Stops.back();
    std::set<InstructionNumber> leaving;
    if (IsJump(OpCodeAt(present.pc.m_nPos)))
    {
        leaving.insert(present.pc.m_nPos);
    }
    return {present.pc, present.callStack, WholeRegister(reg), leaving};
}

/// \param bOneWrite whether the newest filing is all that was undone, so that its mask tells who changed
void CShaderDebuggerShaderIL::RestoreResult(const Register& reg, bool bOneWrite)
{
    CShaderDebuggerResult* pResult = GetDebuggerIL()->FindResult(CShaderDebuggerIL::GetResultRegister(reg));
    if (pResult == nullptr || pResult->GetResult() == nullptr)
    {
        return;
    }
    const std::vector<SFiling> vSources = FindSources(reg);
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
    m_nMovementStops = m_nKeptStops = m_Stops.size();
    return bRestored;
}

/// The history is the record: what the movement has added to it goes, and the position is that of the newest stop left.
bool CShaderDebuggerShaderIL::ReturnToStop(bool& bSameStop)
{
    bSameStop = m_nKeptStops == m_nMovementStops;
    if (m_Stops.empty())
    {
        return false;
    }
    RestoreShader(true);
    m_CopiesAt.reset();
    m_bMemoryOnDevice = false;
    m_bComplete = false;
    m_bLastRunAtCurrent = false;
    m_MaskAt.reset();
    m_Leaving.clear();
    m_Skipped.clear();
    GoBackTo(std::min(m_Stops.size(), std::max<size_t>(m_nKeptStops, 1)) - 1, EValues::Later);
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
        if (!Contains(vDone, reg))
        {
            vDone.push_back(reg);
            RestoreResult(reg, false);
        }
    }
    return m_vOverwritten.empty();
}

bool CShaderDebuggerShaderIL::ReadStopMask()
{
    std::unique_ptr<CShaderDebuggerBuffer> pValues;
    std::unique_ptr<CShaderDebuggerBuffer> pExecMask;
    if (m_Stops.empty() || !Capture({m_Stops.back().pc, m_Stops.back().callStack, g_Reg_NULL, {}}, pValues, pExecMask))
    {
        return false;
    }
    GetDebuggerIL()->FileStopMask(m_Stops.back().pc, std::move(pExecMask));
    return true;
}

/// Makes a result's newest position the one where it was read last. A result that was read nowhere goes.
void CShaderDebuggerShaderIL::AimResult(const Register& reg)
{
    CShaderDebuggerResult* pResult = GetDebuggerIL()->FindResult(CShaderDebuggerIL::GetResultRegister(reg));
    if (pResult == nullptr)
    {
        return;
    }
    const std::vector<SFiling> vSources = FindSources(reg);
    if (vSources.empty())
    {
        GetDebuggerIL()->DeleteResult(reg);
        return;
    }
    pResult->SetProgramCounter(vSources.front().pc, vSources.front().reg.mask);
}

} // namespace OVK_ShaderDebugger
