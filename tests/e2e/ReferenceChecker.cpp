#include "tests/e2e/ReferenceChecker.h"

#include "tests/e2e/DebugFunctions.h"

#include <algorithm>

namespace KestrelTest
{

using KestrelTool::CSession;
using KestrelTool::SMaskView;
using KestrelTool::SRegisterView;

namespace
{

const size_t s_nMaxFindings = 6;
const size_t s_nMaxHalts = 30000;
const size_t s_nMaxTurns = 8;
const uint64_t s_nPageSize = 4096;

/// Registers whose x and y hold addresses in the buffer.
bool HoldsAddress(const std::string& strName)
{
    return strName == "r2" || strName == "r20" || strName == "r21";
}

std::string ToText(const unsigned int* pWords)
{
    std::string strText;
    for (int i = 0; i < 4; ++i)
    {
        strText += (i != 0 ? ", " : "") + std::to_string(static_cast<int32_t>(pWords[i]));
    }
    return "(" + strText + ")";
}

std::string ToText(const Mask& mask)
{
    std::string strText;
    for (const bool bActive : mask)
    {
        strText += bActive ? '1' : '0';
    }
    return strText;
}

/// \return the first byte that differs in words; empty if none does
std::string Difference(const Bytes& got, const Bytes& wanted)
{
    if (got.size() != wanted.size())
    {
        return std::to_string(got.size()) + " bytes, not " + std::to_string(wanted.size());
    }
    for (size_t i = 0; i < got.size(); ++i)
    {
        if (got[i] != wanted[i])
        {
            return "byte " + std::to_string(i) + " is " + std::to_string(got[i]) + ", not " + std::to_string(wanted[i]);
        }
    }
    return std::string();
}

} // namespace

CReferenceChecker::CReferenceChecker(const CReferenceRun& run, SPlan plan, uint32_t nSeed)
    : m_Run(run), m_Plan(std::move(plan)), m_Engine(nSeed)
{
}

void CReferenceChecker::Report(const std::string& strText)
{
    if (m_vFindings.size() >= s_nMaxFindings)
    {
        return;
    }
    std::string strPlace = "stop " + std::to_string(m_nHalts);
    if (!m_vStops.empty())
    {
        const SMoment& moment = m_Run.GetMoments()[m_vStops.back().nMoment].moment;
        strPlace += " at " + moment.position.ToString() + " (" +
                    m_Run.GetText().GetInstructions()[moment.position.nInstruction].strLine + ")";
    }
    strPlace += m_Answered == OVKCLDEBUG_COMMAND_STEP       ? ""
                : m_Answered == OVKCLDEBUG_COMMAND_CONTINUE ? " by a run"
                                                            : " by a step back";
    m_vFindings.push_back(strPlace + ": " + strText);
}

/// Whether a step must stop there. There are no stops in the main body, nor where no work-item comes.
bool CReferenceChecker::IsExpected(size_t nMoment) const
{
    const SMoment& moment = m_Run.GetMoments()[nMoment].moment;
    return !moment.position.vCalls.empty() && !moment.IsUnreached();
}

ovkclDebugCommand CReferenceChecker::OnStarted(CSession& session)
{
    for (const unsigned int nLine : m_Plan.setLines)
    {
        ovkclDebugPC nTaken = 0;
        if (GetLibraries().ovkclDebugSetBreakpoint(session.GetContext(), nLine, 0, &nTaken) != OVKCLDEBUG_SUCCESS ||
            nTaken != nLine)
        {
            Report("no breakpoint on line " + std::to_string(nLine));
        }
    }
    if (m_Plan.bOnDemand)
    {
        session.ReadValuesOnDemand();
    }
    if (!m_Plan.vTracked.empty() && Track(session, m_Plan.vTracked) != OVKCLDEBUG_SUCCESS)
    {
        Report("registers can't be tracked");
    }
    // When the session opens, the entry of the kernel's function has been executed.
    SStop entry;
    while (!IsExpected(entry.nMoment))
    {
        ++entry.nMoment;
    }
    entry.nNextLine = session.GetListing().GetNextInstruction(session.GetListing().GetEntry());
    m_vStops.push_back(entry);
    return Answer(session);
}

ovkclDebugCommand CReferenceChecker::Answer(const CSession& session)
{
    if (m_bLost || m_nHalts >= s_nMaxHalts)
    {
        m_Answered = OVKCLDEBUG_COMMAND_MAX; // an unknown answer ends the session
        return m_Answered;
    }
    if (!m_Plan.setLines.empty())
    {
        return m_Answered = AnswerRun(session);
    }
    // The entry isn't a stop, so it is impossible to go back from the first one.
    if (m_nBack == 0 && m_vStops.size() > 3 && m_Engine() % 100 < m_Plan.nBackPercent)
    {
        m_nBack = 1 + m_Engine() % std::min<size_t>(m_vStops.size() - 2, 6);
    }
    m_Answered =
        m_nBack != 0 ? static_cast<ovkclDebugCommand>(OVKCLDEBUG_COMMAND_EXT_STEP_BACK) : OVKCLDEBUG_COMMAND_STEP;
    return m_Answered;
}

/// Continues, or goes back: to the previous instruction, or to a breakpoint on one that a run may have skipped.
ovkclDebugCommand CReferenceChecker::AnswerRun(const CSession& session)
{
    if (m_nRunAt < 2 || m_nTurns == s_nMaxTurns || m_Engine() % 100 >= m_Plan.nBackPercent)
    {
        return OVKCLDEBUG_COMMAND_CONTINUE;
    }
    ++m_nTurns;
    const size_t nFar = m_Engine() % std::min<size_t>(m_nRunAt - 1, 20);
    m_nBackTo = m_Engine() % 2 != 0 ? m_Plan.vStops[m_nRunAt - 1 - nFar].nNextLine : 0;
    if (m_nBackTo == 0)
    {
        return static_cast<ovkclDebugCommand>(OVKCLDEBUG_COMMAND_EXT_STEP_BACK);
    }
    GetLibraries().ovkclDebugSetBreakpoint(session.GetContext(), m_nBackTo, 0, nullptr);
    return static_cast<ovkclDebugCommand>(OVKCLDEBUG_COMMAND_EXT_RUN_BACK);
}

ovkclDebugCommand CReferenceChecker::OnHalted(CSession& session)
{
    ++m_nHalts;
    if (Arrive(session))
    {
        Check(session);
    }
    else
    {
        m_bLost = true;
    }
    return Answer(session);
}

bool CReferenceChecker::Arrive(CSession& session)
{
    if (m_Answered == OVKCLDEBUG_COMMAND_CONTINUE)
    {
        return ArriveByRun(session);
    }
    if (m_Answered == OVKCLDEBUG_COMMAND_STEP)
    {
        return ArriveByStep(session);
    }
    if (!m_Plan.setLines.empty())
    {
        return ArriveAgain(session);
    }
    --m_nBack;
    m_vStops.pop_back();
    if (session.GetNextLine() != m_vStops.back().nNextLine)
    {
        Report("went back in front of line " + std::to_string(session.GetNextLine()) + ", not of " +
               std::to_string(m_vStops.back().nNextLine));
        return false;
    }
    return true;
}

bool CReferenceChecker::ArriveByStep(CSession& session)
{
    // The expected next instruction must be the one that was executed.
    const uint32_t nExecuted = session.GetListing().GetInstructionNumber(m_vStops.back().nNextLine);
    const std::vector<CReferenceRun::SMomentState>& vMoments = m_Run.GetMoments();
    size_t nMoment = m_vStops.back().nMoment + 1;
    while (nMoment < vMoments.size() && !IsExpected(nMoment))
    {
        ++nMoment;
    }
    if (nMoment == vMoments.size() || vMoments[nMoment].moment.position.nInstruction != nExecuted)
    {
        const std::string strLine = session.GetListing().GetLine(m_vStops.back().nNextLine);
        Report(nMoment == vMoments.size()
                   ? "stops at " + strLine + ", when all have ended"
                   : "stops at " + strLine + ", but next comes " + vMoments[nMoment].moment.position.ToString() + " (" +
                         m_Run.GetText().GetInstructions()[vMoments[nMoment].moment.position.nInstruction].strLine +
                         ")");
        return false;
    }
    m_vStops.push_back({nMoment, session.GetNextLine()});
    return true;
}

/// The stop before the next breakpoint; a run can end at the first stop after its beginning, at the earliest.
std::optional<size_t> CReferenceChecker::FindNextRun() const
{
    for (size_t n = m_nRunAt + 1; n < m_Plan.vStops.size(); ++n)
    {
        if (m_Plan.setLines.count(m_Plan.vStops[n].nNextLine) != 0)
        {
            return n;
        }
    }
    return std::nullopt;
}

bool CReferenceChecker::ArriveByRun(CSession& session)
{
    const std::optional<size_t> nNext = FindNextRun();
    if (!nNext || session.GetNextLine() != m_Plan.vStops[*nNext].nNextLine)
    {
        Report("runs to line " + std::to_string(session.GetNextLine()) +
               (nNext ? ", steps to " + std::to_string(m_Plan.vStops[*nNext].nNextLine) : ", steps to the end"));
        return false;
    }
    m_nRunAt = *nNext;
    m_vStops.assign(1, m_Plan.vStops[m_nRunAt]);
    return true;
}

/// With breakpoints, a place before the last one.
bool CReferenceChecker::ArriveAgain(const CSession& session)
{
    size_t n = m_nRunAt - 1;
    while (m_nBackTo != 0 && m_Plan.vStops[n].nNextLine != m_nBackTo &&
           m_Plan.setLines.count(m_Plan.vStops[n].nNextLine) == 0)
    {
        --n;
    }
    if (session.GetNextLine() != m_Plan.vStops[n].nNextLine)
    {
        Report("goes back in front of line " + std::to_string(session.GetNextLine()) + ", not of " +
               std::to_string(m_Plan.vStops[n].nNextLine) + ", for a breakpoint on " + std::to_string(m_nBackTo));
        return false;
    }
    if (m_Plan.setLines.count(m_nBackTo) == 0)
    {
        GetDebugFunctions().ovkclDebugClearBreakpoint(session.GetContext(), m_nBackTo);
    }
    m_nRunAt = n;
    m_vStops.assign(1, m_Plan.vStops[m_nRunAt]);
    return true;
}

void CReferenceChecker::OnFinished(CSession& session)
{
    m_bFinished = true;
    if (!m_bLost && session.GetLastError().find("order") != std::string::npos)
    {
        Report("ends with: " + session.GetLastError());
    }
    if (m_bLost || m_vStops.empty())
    {
        return;
    }
    if (!m_Plan.setLines.empty())
    {
        if (const std::optional<size_t> nNext = FindNextRun())
        {
            Report("runs to the end, steps to line " + std::to_string(m_Plan.vStops[*nNext].nNextLine));
        }
        return;
    }
    const std::vector<CReferenceRun::SMomentState>& vMoments = m_Run.GetMoments();
    for (size_t n = m_vStops.back().nMoment + 1; n < vMoments.size(); ++n)
    {
        // The step to the kernel's end isn't a stop.
        const SMoment& moment = vMoments[n].moment;
        const bool bEnds = moment.position.vCalls.size() == 1 &&
                           (moment.strName.compare(0, 3, "ret") == 0 || moment.strName == "endfunc");
        if (IsExpected(n) && !bEnds)
        {
            Report("ends, but next comes " + moment.position.ToString() + " (" +
                   m_Run.GetText().GetInstructions()[moment.position.nInstruction].strLine + ")");
            return;
        }
    }
}

void CReferenceChecker::OnError(CSession& session)
{
    Report("debugging could not begin: " + session.GetLastError());
}

void CReferenceChecker::Check(CSession& session)
{
    const CReferenceRun::SMomentState& expected = m_Run.GetMoments()[m_vStops.back().nMoment];
    // With tracking on, the mask is that of the tracked register read last.
    if (m_Plan.vTracked.empty())
    {
        CheckMask(session, expected.moment);
    }
    CheckRegisters(session, expected.state);
    if (m_Plan.bMemory)
    {
        CheckPrivate(session, expected.state);
        CheckLocal(session, expected.state);
        CheckGlobal(session, expected.state);
    }
}

void CReferenceChecker::CheckMask(const CSession& session, const SMoment& moment)
{
    const size_t nCounted = session.CountActive(); // count before a mask exists
    const SMaskView view = session.GetMask();
    const Mask got(view.pActive, view.pActive + view.nItems);
    if (nCounted != view.Count())
    {
        Report(std::to_string(nCounted) + " work-items are counted, and the mask has " + std::to_string(view.Count()));
    }
    if (got != moment.vAfter)
    {
        Report("the mask is " + ToText(got) + ", not " + ToText(moment.vAfter));
    }
}

void CReferenceChecker::CheckRegisters(const CSession& session, const SReferenceState& state)
{
    const std::vector<std::string>& vTracked = m_Plan.vTracked;
    for (const auto& entry : state.mapRegisters)
    {
        if (!vTracked.empty() && std::find(vTracked.begin(), vTracked.end(), entry.first) == vTracked.end())
        {
            continue;
        }
        const SRegisterView view = session.GetRegister(entry.first);
        if (view.pWords == nullptr || view.nItems != entry.second.size())
        {
            Report("no value of " + entry.first);
            continue;
        }
        CheckRegister(entry.first, view, entry.second);
    }
    for (const std::string& strName : session.GetActiveRegisters())
    {
        if ((strName[0] == 'r' || strName[0] == 'x') && state.mapRegisters.count(strName) == 0)
        {
            const SRegisterView view = session.GetRegister(strName);
            CheckRegister(strName, view, std::vector<Words>(view.nItems, Words{}));
        }
    }
}

void CReferenceChecker::CheckRegister(const std::string& strName, const SRegisterView& view,
                                      const std::vector<Words>& vWanted)
{
    for (size_t i = 0; i < vWanted.size(); ++i)
    {
        if (!Agrees(strName, view[i], vWanted[i]))
        {
            Report(strName + " of work-item " + std::to_string(i) + " reads " + ToText(view[i]) + ", not " +
                   ToText(vWanted[i].data()));
            return;
        }
    }
}

/// A session works on copies of the buffer: an address may differ from the plain run's by the distance of a copy, which
/// is always the same number of pages.
bool CReferenceChecker::Agrees(const std::string& strName, const unsigned int* pGot, const Words& wanted)
{
    const bool bAddress = HoldsAddress(strName) && (wanted[0] != 0 || wanted[1] != 0);
    if (!bAddress)
    {
        return std::equal(wanted.begin(), wanted.end(), pGot);
    }
    const uint64_t nGot = pGot[0] + (m_Plan.b64Bit ? uint64_t(pGot[1]) << 32 : 0);
    const uint64_t nWanted = wanted[0] + (m_Plan.b64Bit ? uint64_t(wanted[1]) << 32 : 0);
    if (nGot == nWanted)
    {
        return true;
    }
    m_setMoves.insert(nGot - nWanted);
    return m_setMoves.size() == 1 && (nGot - nWanted) % s_nPageSize == 0 && (m_Plan.b64Bit || pGot[1] == wanted[1]) &&
           pGot[2] == wanted[2] && pGot[3] == wanted[3];
}

/// On the older device private memory is the array x1.
void CReferenceChecker::CheckPrivate(const CSession& session, const SReferenceState& state)
{
    const size_t nItems = m_Run.GetMoments()[0].moment.vAfter.size();
    const size_t nSize = 64;
    Bytes wanted(nItems * nSize, 0);
    for (size_t i = 0; i < nItems; ++i)
    {
        const auto it = state.mapPrivate.find(8);
        if (it != state.mapPrivate.end())
        {
            std::copy_n(it->second[i].begin(), nSize, &wanted[i * nSize]);
            continue;
        }
        for (size_t nElement = 0; nElement < 4; ++nElement)
        {
            const auto element = state.mapRegisters.find("x1[" + std::to_string(nElement) + "]");
            if (element != state.mapRegisters.end())
            {
                const auto* pBytes = reinterpret_cast<const unsigned char*>(element->second[i].data());
                std::copy_n(pBytes, 16, &wanted[i * nSize + nElement * 16]);
            }
        }
    }
    const std::string strDifference = Difference(session.GetPrivateMemory(nItems, 0, nSize), wanted);
    if (!strDifference.empty())
    {
        Report("private memory: " + strDifference);
    }
}

void CReferenceChecker::CheckLocal(const CSession& session, const SReferenceState& state)
{
    for (size_t nGroup = 0; nGroup < state.vLocal.size(); ++nGroup)
    {
        for (const auto& block : state.vLocal[nGroup])
        {
            const std::string strDifference =
                Difference(session.GetGlobalMemory(OVKCLDEBUG_EXT_LOCAL_BLOCK(block.first),
                                                   OVKCLDEBUG_EXT_LOCAL_ADDRESS(nGroup, 0), block.second.size()),
                           block.second);
            if (!strDifference.empty())
            {
                Report("local memory of group " + std::to_string(nGroup) + ": " + strDifference);
                return;
            }
        }
    }
}

void CReferenceChecker::CheckGlobal(const CSession& session, const SReferenceState& state)
{
    const auto it = state.mapRegisters.find("r2");
    const SRegisterView view = session.GetRegister("r2");
    if (it == state.mapRegisters.end() || view.pWords == nullptr)
    {
        return; // no address is known yet
    }
    const auto address = [&](const unsigned int* pWords)
    { return pWords[0] + (m_Plan.b64Bit ? uint64_t(pWords[1]) << 32 : 0); };
    const uint64_t nBase = address(view[0]) - address(it->second[0].data()) + m_Run.GetAddress();
    const Bytes& wanted = state.vBuffers[0];
    const std::string strDifference =
        Difference(session.GetGlobalMemory(m_Plan.b64Bit ? 10 : 11, nBase, wanted.size()), wanted);
    if (!strDifference.empty())
    {
        Report("global memory: " + strDifference);
    }
}

} // namespace KestrelTest
