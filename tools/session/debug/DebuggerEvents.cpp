// The events of a debugging session: faults, progress, and the effects of interrupts.

#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/Debugger.h"
#include "tools/session/debug/Outcome.h"
#include "tools/session/launch/PlatformDoor.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

const size_t s_nShownFaults = 8;
/// How long an interrupt waits for a kernel run to end by itself.
const std::chrono::milliseconds s_Patience(30);
/// In seconds; shorter runs end before anybody could interrupt them.
const double s_fShortRun = 0.02;

} // namespace

// ---------------------------------------------------------------------------------------- faults

void CDebugger::CheckFaults(bool bPatched)
{
    m_bLastPatched = bPatched;
    std::optional<SFaults> faults = m_Faults.Check(*m_pListing, bPatched ? m_Runs.GetLastImage() : std::vector<char>());
    if (!faults)
    {
        return;
    }
    if (m_NewFaults)
    {
        faults->vShown.insert(faults->vShown.begin(), m_NewFaults->vShown.begin(), m_NewFaults->vShown.end());
    }
    m_NewFaults = std::move(faults);
}

/// Adds the faults that weren't reported yet, the first ones one by one.
void CDebugger::AddFaults(json& event)
{
    if (!m_NewFaults)
    {
        return;
    }
    event["faults"] = DescribeFaults(*m_NewFaults, s_nShownFaults);
    m_NewFaults.reset();
}

// ---------------------------------------------------------------------------------------- counts of work-items

/// \param nFrom  the line that was next before the command
void CDebugger::CountStop(ovkclDebugCommand command, unsigned int nFrom)
{
    switch (command)
    {
    case OVKCLDEBUG_COMMAND_STEP:
        m_StopCounts.AddStep(m_pListing->GetInstructionNumber(nFrom), CountActive());
        break;
    case OVKCLDEBUG_COMMAND_EXT_STEP_BACK:
        m_StopCounts.GoBack();
        break;
    case OVKCLDEBUG_COMMAND_EXT_RUN_BACK:
        m_StopCounts.RunBack();
        break;
    default:
        m_StopCounts.AddRun();
    }
}

std::string CDebugger::CompareCounts(bool bStepped)
{
    if (m_pControl == nullptr || !m_StopCounts.HasAny())
    {
        return std::string();
    }
    std::vector<uint64_t> vPlain(m_pControl->GetVisits(nullptr, 0));
    m_pControl->GetVisits(vPlain.data(), static_cast<uint32_t>(vPlain.size()));
    m_Runs.CountPlainRuns(nullptr, 0);
    m_pControl->CountVisits(0);
    return m_StopCounts.Compare(vPlain, *m_pListing, bStepped);
}

// ---------------------------------------------------------------------------------------- interrupts, progress

/// Aborts a kernel run that an interrupt would have to wait for, or that takes too long.
void CDebugger::BreakRun()
{
    const auto now = std::chrono::steady_clock::now();
    if (m_nInterrupts != 0)
    {
        m_SeenInterrupt = m_SeenInterrupt ? m_SeenInterrupt : now;
    }
    const bool bInterrupt = m_SeenInterrupt && now - *m_SeenInterrupt >= s_Patience;
    const size_t nMax = m_pSettings->nMaxSeconds;
    const bool bTooLong = nMax != 0 && m_Runs.GetRunningSeconds() >= static_cast<double>(nMax);
    if (!m_bGivenUp && (bInterrupt || bTooLong))
    {
        m_bGivenUp = true;
        m_bTooLong = !bInterrupt;
        m_Runs.Refuse(true);
        m_pControl->BreakRuns(1);
    }
}

/// Called now and then by the thread that waits for the kernel.
void CDebugger::MindInterrupts()
{
    const unsigned int nInterrupts = m_nInterrupts;
    if (m_pControl != nullptr)
    {
        BreakRun();
        return;
    }
    if (m_bGivenUp)
    {
        if (nInterrupts > m_nAnswered)
        {
            m_Sink.OnLeave();
        }
        return;
    }
    if (nInterrupts < 2 || nInterrupts == m_nAnswered)
    {
        return;
    }
    m_bGivenUp = m_Sink.OnAskToGiveUp([this] { return m_Target.HasPosted(); });
    m_nAnswered = m_nInterrupts;
    if (m_bGivenUp)
    {
        m_Runs.Refuse(true);
    }
}

/// Makes a query that may need kernel runs. If runs are long, the session's thread makes it, so that this thread can
/// handle interrupts.
void CDebugger::Ask(const std::function<void()>& query)
{
    if (m_Runs.GetLongestSeconds() < s_fShortRun)
    {
        query();
        return;
    }
    m_SeenInterrupt.reset();
    m_Target.Do(query);
    m_nAnswered = 0;
    if (m_bGivenUp)
    {
        m_Sink.OnProgress(std::string());
        TellBreak(true);
        throw CCommandError(ExplainBreak(true));
    }
}

/// Reports where the work-items were, and allows kernel runs again.
void CDebugger::TellBreak(bool bPatched)
{
    const json places = m_Faults.DescribePlaces(*m_pListing, bPatched ? m_Runs.GetLastImage() : std::vector<char>());
    m_Runs.Refuse(false);
    m_bGivenUp = false;
    if (m_pControl != nullptr)
    {
        m_pControl->BreakRuns(0);
    }
    m_Sink.OnEvent({{"event", "broken off"}, {"places", places}});
}

/// Reports that the debugger has returned to where the movement began. Ends the session if there was none before.
/// \param eFrom  where the movement began; Idle for a launch
/// \param bPatched  whether the aborted run was of a patched copy
void CDebugger::EndIfGivenUp(CTarget::EState eFrom, bool bPatched)
{
    m_nAnswered = 0;
    if (!m_bGivenUp)
    {
        return;
    }
    m_Sink.OnProgress(std::string());
    const bool bStays = m_Target.GetState() == CTarget::AtStop;
    if (!bStays)
    {
        m_Target.Drop();
    }
    TellBreak(bPatched);
    const std::string strError = ExplainBreak(bStays);
    if (bStays)
    {
        eFrom == CTarget::AtStart ? m_Target.StandAtStart() : void();
        m_nLine = eFrom == CTarget::AtStart ? m_pCode->GetFirstStop() : GetSession().GetNextLine();
        m_StopCounts.RunBack();
        SendStop(EReason::Interrupted, std::string());
    }
    else
    {
        m_Sink.OnEvent({{"event", "error"}, {"error", strError}});
    }
    throw CCommandError(strError);
}

std::string CDebugger::ExplainBreak(bool bStays) const
{
    const std::string strEnd = bStays ? ", and the session is back where it was"
                                      : ", and the session has ended; the breakpoints are still there";
    if (m_pControl == nullptr)
    {
        return "given up" + strEnd;
    }
    return m_bTooLong ? "a kernel run took longer than max-seconds (" + std::to_string(m_pSettings->nMaxSeconds) +
                            ") and was broken off" + strEnd
                      : "interrupted: a kernel run was broken off" + strEnd;
}

/// At most ten times a second, and only if the work takes noticeable time.
void CDebugger::ShowProgress()
{
    MindInterrupts();
    const auto now = std::chrono::steady_clock::now();
    if (now - m_LastProgress < std::chrono::milliseconds(100))
    {
        return;
    }
    m_LastProgress = now;
    const uint64_t nRuns = GetRuns();
    std::string strText = "kernel run " + std::to_string(nRuns - m_Progress.nRunsBefore);
    // An estimate that was exceeded is ignored.
    if (m_Progress.estimate.nEnd >= nRuns)
    {
        strText += (m_Progress.estimate.bWhole ? " of about " : " of at least ") +
                   std::to_string(m_Progress.estimate.nEnd - m_Progress.nRunsBefore);
    }
    if (m_Progress.nMoves > 1)
    {
        strText += ", stop " + std::to_string(m_Progress.nMove) + " of " + std::to_string(m_Progress.nMoves);
    }
    if (m_bGivenUp && m_pControl == nullptr)
    {
        strText = "given up; waiting for " + strText + " to end. Ctrl-C once more leaves kestrel";
    }
    else if (m_nInterrupts != 0)
    {
        strText = "interrupt asked; waiting for " + strText;
    }
    m_Sink.OnProgress(strText);
}

// ---------------------------------------------------------------------------------------- events

void CDebugger::SendStop(EReason eReason, const std::string& strReason)
{
    m_Sink.OnProgress(std::string());
    m_TimeLine.Show(CountActive());
    std::string strWhy = strReason;
    if (eReason == EReason::FirstStop)
    {
        strWhy = "history";
    }
    else if (eReason == EReason::Interrupted)
    {
        strWhy = "interrupt";
    }
    else if (eReason == EReason::Breakpoint)
    {
        strWhy = "breakpoint";
    }
    json event = {{"event", "stopped"},
                  {"reason", strWhy},
                  {"line", m_nLine},
                  {"text", m_pListing->GetLine(m_nLine)},
                  {"function", GetFrames().front().strFunction},
                  {"count", CountActive()},
                  {"items", m_Extent.Count()},
                  {"breakpoints", m_Hits.vIds},
                  {"runs", GetRuns() - m_Progress.nRunsBefore}};
    AddSource(event);
    if (!m_Hits.vNotes.empty())
    {
        event["notes"] = m_Hits.vNotes;
    }
    if (!m_Hits.vComplaints.empty())
    {
        event["complaints"] = m_Hits.vComplaints;
    }
    AddFaults(event);
    m_Sink.OnEvent(event);
}

/// Adds the stop's place in the source, if it has one.
void CDebugger::AddSource(json& event)
{
    const std::vector<SFrame> vFrames = GetFrames();
    if (!vFrames.front().place)
    {
        return;
    }
    const SSourceLine& line = *vFrames.front().place;
    event["source"] = m_pListing->GetPlace(m_nLine);
    event["function"] = vFrames.front().strFunction;
    if (const std::string* pText = m_pSourceText->FindLine(line.strFile, line.nLine))
    {
        event["source_text"] = *pText;
    }
    // Within a line's code, the instruction says more than the line.
    event["inside"] = !BeginsLine(*m_pListing, *m_pCode, m_nLine);
}

/// \param strDoubt  why the stops may have shown something else than the plain run did; empty if there is no doubt
void CDebugger::SendFinished(const std::string& strDoubt)
{
    m_Sink.OnProgress(std::string());
    m_Launch.SaveOutputs();
    json event = DescribeOutputs(m_Launch);
    event["event"] = "finished";
    event["faulty"] = m_Faults.HasAny();
    const std::string strEnd =
        m_Faults.DescribeEnd(*m_pListing, m_bLastPatched ? m_Runs.GetLastImage() : std::vector<char>());
    m_bPlatformFailed = !strEnd.empty();
    if (m_bPlatformFailed)
    {
        event["ended"] = strEnd;
    }
    const std::string& strReason = m_Target.GetReason().empty() ? strDoubt : m_Target.GetReason();
    if (!strReason.empty())
    {
        event["reason"] = strReason;
    }
    AddFaults(event);
    m_bDifference = !event["differences"].empty();
    m_Sink.OnEvent(event);
}

} // namespace KestrelTool
