#include "engine/StopHistory.h"

#include "engine/ResultRegister.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace OVK_ShaderDebugger
{

size_t CStopHistory::SUndone::CountFilings(const Register& reg) const
{
    return std::count_if(vFiled.begin(), vFiled.end(),
                         [&](const SFiling& filed) { return HaveSameResult(filed.reg, reg); });
}

void CStopHistory::Push(SStanding at, bool bJump)
{
    m_Pending.at = std::move(at);
    m_Pending.bJump = bJump;
    m_Stops.push_back(std::exchange(m_Pending, SStop()));
}

void CStopHistory::ChangeNext(const ProgramCounter& next, const CCallPath& callStack, const CLaneLedger& ledger)
{
    SStanding& at = m_Stops.back().at;
    at.next = next;
    at.nextCallStack = callStack;
    at.nextLedger = ledger;
}

void CStopHistory::NoteWritten(const std::vector<Register>& vRegisters)
{
    m_Pending.vWritten.insert(m_Pending.vWritten.end(), vRegisters.begin(), vRegisters.end());
}

void CStopHistory::NoteFiled(SFiling filing)
{
    SStop& stop = IsNewest(filing.pc) ? m_Stops.back() : m_Pending;
    stop.vFiled.push_back(std::move(filing));
}

void CStopHistory::Show()
{
    if (!m_Stops.empty())
    {
        m_Stops.back().bShown = true;
    }
}

std::vector<Register> CStopHistory::FindUnshown() const
{
    std::vector<Register> vFound;
    for (auto itStop = m_Stops.rbegin(); itStop != m_Stops.rend() && !itStop->bShown; ++itStop)
    {
        for (const Register& written : itStop->vWritten)
        {
            if (!ContainsResult(vFound, written))
            {
                vFound.push_back(written);
            }
        }
    }
    return vFound;
}

std::vector<Register> CStopHistory::FindWritten() const
{
    std::vector<Register> vWritten;
    std::set<RegisterID> found;
    for (auto itStop = m_Stops.rbegin(); itStop != m_Stops.rend(); ++itStop)
    {
        for (auto it = itStop->vWritten.rbegin(); it != itStop->vWritten.rend(); ++it)
        {
            if (found.insert(ResultRegisterOf(*it).reg).second)
            {
                vWritten.push_back(WholeRegister(*it));
            }
        }
    }
    return vWritten;
}

std::vector<SFiling> CStopHistory::FindSources(const Register& reg) const
{
    std::vector<SFiling> vSources;
    bool bWritten = false;
    for (auto itStop = m_Stops.rbegin(); itStop != m_Stops.rend(); ++itStop)
    {
        bWritten = bWritten || ContainsResult(itStop->vWritten, reg);
        std::copy_if(itStop->vFiled.rbegin(), itStop->vFiled.rend(), std::back_inserter(vSources),
                     [&](const SFiling& filed) { return HaveSameResult(filed.reg, reg); });
    }
    const SStop& present = m_Stops.back();
    const bool bReadHere =
        !vSources.empty() && vSources.front().pc == present.at.pc && vSources.front().callStack == present.at.callStack;
    if (!present.bShown && !bReadHere && (bWritten || !vSources.empty()))
    {
        vSources.insert(vSources.begin(), ReadingHere(reg));
    }
    return vSources;
}

SFiling CStopHistory::ReadingHere(const Register& reg) const
{
    const SStop& present = m_Stops.back();
    std::set<InstructionNumber> leaving;
    if (present.bJump)
    {
        leaving.insert(present.at.pc.m_nPos);
    }
    return {present.at.pc, present.at.callStack, WholeRegister(reg), leaving};
}

CStopHistory::SUndone CStopHistory::GoBackTo(size_t nStop)
{
    m_nKept = std::min(m_nKept, nStop + 1);
    SUndone undone;
    undone.vChanged = std::move(m_Pending.vWritten);
    undone.vFiled = std::move(m_Pending.vFiled);
    undone.bAllShown = m_Stops[nStop].bShown;
    m_Pending = SStop();
    while (m_Stops.size() > nStop + 1)
    {
        const SStop& stop = m_Stops.back();
        undone.bAllShown = undone.bAllShown && stop.bShown;
        undone.vChanged.insert(undone.vChanged.end(), stop.vWritten.begin(), stop.vWritten.end());
        undone.vFiled.insert(undone.vFiled.end(), stop.vFiled.rbegin(), stop.vFiled.rend());
        m_Stops.pop_back();
    }
    return undone;
}

void CStopHistory::BeginMovement()
{
    m_nMovementStops = m_nKept = m_Stops.size();
}

} // namespace OVK_ShaderDebugger
