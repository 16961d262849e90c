#include "tests/e2e/ContinueChecker.h"

#include "tests/e2e/DebugFunctions.h"

#include <algorithm>
#include <numeric>
#include <optional>

namespace KestrelTest
{

using KestrelTool::CSession;
using KestrelTool::SMaskView;
using KestrelTool::SRegisterView;

namespace
{

const size_t s_nMaxStops = 2000;
const size_t s_nMaxFindings = 5;
const uint32_t s_nPageSize = 4096;

std::string WithoutIndex(const std::string& strName)
{
    return strName.substr(0, strName.find_first_of("[. "));
}

} // namespace

CContinueChecker::CContinueChecker(SPlan plan, const CItemHistory& history, const CStepRecord* pRecord, uint32_t nSeed)
    : m_Plan(std::move(plan)), m_History(history), m_pRecord(pRecord), m_Engine(nSeed),
      m_vProgress(history.GetItems(), 0)
{
}

void CContinueChecker::Report(const std::string& strText)
{
    if (m_vFindings.size() < s_nMaxFindings)
    {
        m_vFindings.push_back("stop " + std::to_string(m_nStops) + ": " + strText);
    }
}

ovkclDebugCommand CContinueChecker::OnStarted(CSession& session)
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
    if (!m_Plan.vTracked.empty() && Track(session, m_Plan.vTracked) != OVKCLDEBUG_SUCCESS)
    {
        Report("registers can't be tracked");
    }
    return Answer(session);
}

ovkclDebugCommand CContinueChecker::Answer(const CSession& session)
{
    if (m_nStops >= s_nMaxStops)
    {
        Report("the run doesn't end");
        GetDebugFunctions().ovkclDebugClearAllBreakpoints(session.GetContext());
        return OVKCLDEBUG_COMMAND_CONTINUE;
    }
    GetPlatformControl(GetLibraries()).ClearCounters();
    m_bStepped = m_Engine() % 100 < m_Plan.nStepPercent;
    return m_bStepped ? OVKCLDEBUG_COMMAND_STEP : OVKCLDEBUG_COMMAND_CONTINUE;
}

ovkclDebugCommand CContinueChecker::OnHalted(CSession& session)
{
    ++m_nStops;
    if (m_pRecord != nullptr)
    {
        CheckRecordedStop(session);
    }
    else
    {
        CheckAnyPlace(session);
    }
    return Answer(session);
}

void CContinueChecker::CheckRecordedStop(const CSession& session)
{
    CStepRecord::SExpected step;
    step.nStop = m_nAt + 1;
    const std::optional<CStepRecord::SExpected> expected =
        m_bStepped ? step : m_pRecord->Continue(m_nAt, m_Plan.setLines);
    if (!expected || expected->nStop >= m_pRecord->GetStops().size())
    {
        Report("halted in front of line " + std::to_string(session.GetNextLine()) + " instead of running to the end");
        return;
    }
    const CStepRecord::SStop& stop = m_pRecord->GetStops()[expected->nStop];
    if (session.GetNextLine() != stop.nNextLine)
    {
        Report("halted in front of line " + std::to_string(session.GetNextLine()) + ", not of " +
               std::to_string(stop.nNextLine) + ", after line " +
               std::to_string(m_pRecord->GetStops()[m_nAt].nNextLine) + (m_bStepped ? " by a step" : ""));
    }
    const SMaskView mask = session.GetMask();
    if (std::vector<bool>(mask.pActive, mask.pActive + mask.nItems) != stop.vMask)
    {
        Report("the mask in front of line " + std::to_string(stop.nNextLine) + " differs");
    }
    const std::string strDifference = CompareValues(session, stop.vProgress);
    if (!strDifference.empty())
    {
        Report(strDifference + " in front of line " + std::to_string(stop.nNextLine));
    }
    if (m_Plan.bCheckCosts && !m_bStepped)
    {
        CheckRuns(*expected);
    }
    m_nAt = expected->nStop;
}

/// A run takes one kernel run for each register written in the skipped code, at least one for the mask, and those for
/// the stop's own instruction.
void CContinueChecker::CheckRuns(const CStepRecord::SExpected& expected)
{
    if (!expected.setWritten)
    {
        return;
    }
    ++m_nCounted;
    const size_t nRead =
        static_cast<size_t>(std::count_if(expected.setWritten->begin(), expected.setWritten->end(),
                                          [this](const std::string& strName) { return IsTracked(strName); }));
    const size_t nWanted = std::max<size_t>(nRead, 1) + expected.nAtStop;
    const uint64_t nRuns = GetPlatformControl(GetLibraries()).GetCounter(PLATFORM_COUNTER_KERNEL_RUNS);
    if (nRuns != nWanted)
    {
        Report("the continue from line " + std::to_string(m_pRecord->GetStops()[m_nAt].nNextLine) + " to " +
               std::to_string(m_pRecord->GetStops()[expected.nStop].nNextLine) + " cost " + std::to_string(nRuns) +
               " kernel runs, not " + std::to_string(nWanted));
    }
}

/// The position may have skipped places that some work-items reached. Of the places that fit, the earliest one is
/// taken, so that a later one isn't confused with it.
void CContinueChecker::CheckAnyPlace(CSession& session)
{
    const SMaskView mask = session.GetMask();
    const std::vector<bool> vMask(mask.pActive, mask.pActive + mask.nItems);
    std::string strDifference = "nobody is there in the plain run with this mask";
    std::optional<std::vector<size_t>> earliest;
    const auto total = [](const std::vector<size_t>& vProgress)
    { return std::accumulate(vProgress.begin(), vProgress.end(), size_t(0)); };
    for (const SPosition& position :
         m_History.GetPositions(session.GetListing().GetInstructionNumber(session.GetNextLine())))
    {
        if (m_History.GetActive(position) != vMask)
        {
            continue;
        }
        std::vector<size_t> vProgress = m_vProgress;
        bool bAfter = true;
        for (size_t i = 0; i < vMask.size(); ++i)
        {
            if (vMask[i])
            {
                vProgress[i] = static_cast<size_t>(m_History.FindProgress(i, position));
                bAfter = bAfter && (m_nStops == 1 || vProgress[i] > m_vProgress[i]);
            }
        }
        if (!bAfter || (earliest && total(*earliest) <= total(vProgress)))
        {
            continue;
        }
        const std::string strHere = CompareValues(session, vProgress);
        strDifference = strHere.empty() ? strDifference : strHere;
        if (strHere.empty())
        {
            earliest = vProgress;
        }
    }
    if (!earliest)
    {
        Report("in front of line " + std::to_string(session.GetNextLine()) + ": " + strDifference);
        return;
    }
    m_vProgress = *earliest;
}

bool CContinueChecker::IsTracked(const std::string& strName) const
{
    return m_Plan.vTracked.empty() || std::any_of(m_Plan.vTracked.begin(), m_Plan.vTracked.end(),
                                                  [&](const std::string& strTracked)
                                                  { return WithoutIndex(strTracked) == WithoutIndex(strName); });
}

/// A session works on copies of the buffers, whose addresses differ from the client's by whole pages.
bool CContinueChecker::Agrees(const std::string& strName, uint32_t nGot, uint32_t nWanted) const
{
    const bool bAddress = m_Plan.bAnyAddress || m_Plan.setAddresses.count(strName) != 0;
    return nGot == nWanted || (bAddress && (nGot - nWanted) % s_nPageSize == 0);
}

std::string CContinueChecker::CompareValues(const CSession& session, const std::vector<size_t>& vProgress) const
{
    const SMaskView mask = session.GetMask();
    std::map<std::string, SRegisterView> mapViews;
    for (size_t i = 0; i < mask.nItems; ++i)
    {
        if (mask.pActive[i] == 0)
        {
            continue;
        }
        for (const std::string& strName : m_History.GetWritten(i, vProgress[i]))
        {
            if (!IsTracked(strName))
            {
                continue;
            }
            if (mapViews.count(strName) == 0)
            {
                mapViews[strName] = session.GetRegister(strName);
            }
            const SRegisterView& view = mapViews[strName];
            if (view.pWords == nullptr || view.nItems != mask.nItems)
            {
                return strName + " has no value";
            }
            const Words& wanted = *m_History.FindValue(i, strName, vProgress[i]);
            for (size_t n = 0; n < wanted.size(); ++n)
            {
                if (!Agrees(strName, view[i][n], wanted[n]))
                {
                    return strName + " of work-item " + std::to_string(i) + " reads " + std::to_string(view[i][n]) +
                           " in component " + std::to_string(n) + ", not " + std::to_string(wanted[n]);
                }
            }
        }
    }
    return std::string();
}

void CContinueChecker::OnFinished(CSession&)
{
    m_bFinished = true;
    if (m_pRecord == nullptr || m_nStops >= s_nMaxStops)
    {
        return;
    }
    const std::optional<CStepRecord::SExpected> expected = m_pRecord->Continue(m_nAt, m_Plan.setLines);
    if (!m_bStepped && expected)
    {
        Report("ran to the end and not to line " + std::to_string(m_pRecord->GetStops()[expected->nStop].nNextLine));
    }
    if (m_bStepped && m_nAt + 1 < m_pRecord->GetStops().size())
    {
        Report("a step ended the session at line " + std::to_string(m_pRecord->GetStops()[m_nAt].nNextLine));
    }
}

void CContinueChecker::OnError(CSession& session)
{
    Report("debugging could not begin: " + session.GetLastError());
}

} // namespace KestrelTest
