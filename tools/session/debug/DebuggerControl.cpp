#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/Debugger.h"
#include "tools/session/debug/RuntimeFailures.h"
#include "tools/session/launch/Codes.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace KestrelTool
{

using nlohmann::json;

// ---------------------------------------------------------------------------------------- single moves

bool CDebugger::Launch()
{
    RequireMemory();
    m_mapAddresses.clear();
    m_mapEarlier.clear();
    m_LookedAt.clear();
    m_MemoryLog.Forget();
    m_NewFaults.reset();
    m_Faults.Forget();
    m_StopCounts.Forget();
    m_Runs.CountPlainRuns(nullptr, 0);
    m_bPlatformFailed = false;
    m_SeenInterrupt.reset();
    m_Progress = SProgress();
    m_Progress.nRunsBefore = GetRuns();
    m_Runs.WatchFirstRuns();
    ForgetFailures();
    const CTarget::EState eState = m_Target.Launch();
    EndIfGivenUp(CTarget::Idle, true);
    if (eState != CTarget::AtStart)
    {
        m_Sink.OnEvent({{"event", "error"}, {"error", m_Target.GetReason()}});
        if (IsPlatformFailure(m_Target.GetCode()))
        {
            throw CPlatformError("the launch failed: " + m_Target.GetReason());
        }
        const SRuntimeFailure failure = GetLastFailure();
        if (IsPlatformFailure(failure.nCode))
        {
            throw CPlatformError("the launch can't be debugged: " + m_Target.GetReason() + " " + failure.pszCall +
                                 ": " + NameCode(failure.nCode));
        }
        throw CCommandError("the launch can't be debugged: " + m_Target.GetReason() + ExplainRefusal());
    }
    GetSession().SetAsker([this](const std::function<void()>& query) { Ask(query); });
    TakeLocalSize();
    const CListing& listing = GetSession().GetListing();
    if (listing.GetLineCount() != m_pListing->GetLineCount())
    {
        SetListing(listing);
    }
    if (m_pSettings->vTracked.empty())
    {
        GetSession().ReadValuesOnDemand();
    }
    else
    {
        GetSession().SetTrackedRegisters(m_pSettings->vTracked);
    }
    m_nLine = m_pCode->GetFirstStop();
    m_TimeLine.Begin(m_nLine);
    m_Sink.OnEvent({{"event", "started"},
                    {"kernel", m_Launch.GetFile().strKernel},
                    {"device", m_Launch.GetDeviceName()},
                    {"items", m_Extent.Count()}});
    return true;
}

/// The debugger's reason, which is short; if it has none, one of its limits was exceeded.
std::string CDebugger::ExplainRefusal() const
{
    const size_t nMostBlocks = 1024;
    const unsigned int nMostElements = 65536;
    size_t nDepth = 0;
    for (unsigned int nLine = 0; nLine < m_pListing->GetLineCount(); ++nLine)
    {
        const std::string strMnemonic = m_pListing->GetMnemonic(nLine);
        const bool bOpens =
            strMnemonic.compare(0, 3, "if_") == 0 || strMnemonic == "whileloop" || strMnemonic == "switch";
        const bool bCloses = strMnemonic == "endif" || strMnemonic == "endloop" || strMnemonic == "endswitch";
        nDepth += bOpens ? 1 : 0;
        nDepth -= bCloses && nDepth != 0 ? 1 : 0;
        if (nDepth > nMostBlocks)
        {
            return " Blocks may be nested " + std::to_string(nMostBlocks) + " deep, and are deeper at line " +
                   std::to_string(nLine);
        }
    }
    for (const SKernelArgument& argument : m_vArguments)
    {
        if (argument.nConstant >= nMostElements)
        {
            return " The constant buffer of arguments may have " + std::to_string(nMostElements) + " elements, and " +
                   argument.strName + " lies beyond";
        }
    }
    return std::string();
}

bool CDebugger::IsRun(ovkclDebugCommand command)
{
    return command == OVKCLDEBUG_COMMAND_CONTINUE || command == OVKCLDEBUG_COMMAND_EXT_RUN_BACK;
}

/// Executes one command of the debugger. \param lines  where a run stops in addition to the breakpoints
/// \return false if the launch is over
bool CDebugger::Move(ovkclDebugCommand command, const std::set<unsigned int>& lines)
{
    m_Unseen.clear();
    return Resume(command, IsRun(command) ? FindStops(command, lines) : std::set<unsigned int>());
}

/// Where a run stops, be it without a word.
std::set<unsigned int> CDebugger::FindStops(ovkclDebugCommand command, const std::set<unsigned int>& lines)
{
    std::set<unsigned int> stops = m_pBreakpoints->GetEnabledLines();
    stops.insert(lines.begin(), lines.end());
    const std::set<unsigned int> insides = m_pCode->FindInsides(stops);
    stops.insert(insides.begin(), insides.end());
    if (m_bInterruptible && command == OVKCLDEBUG_COMMAND_CONTINUE)
    {
        const std::set<unsigned int> heads = m_pCode->FindLoopHeads(stops);
        m_Unseen = heads;
        for (const unsigned int nStop : stops)
        {
            m_Unseen.erase(nStop);
        }
        stops.insert(heads.begin(), heads.end());
    }
    return stops;
}

/// \param stops  of a run: where it stops
bool CDebugger::Resume(ovkclDebugCommand command, const std::set<unsigned int>& stops)
{
    const bool bRuns = IsRun(command);
    ++m_nMoves;
    if (bRuns)
    {
        GetSession().SetBreakpoints(stops);
    }
    m_Progress.estimate = bRuns ? EstimateRun(stops) : SRunEstimate();
    m_SeenInterrupt.reset();
    if (m_StopCounts.HasAny())
    {
        m_Runs.CountPlainRuns(m_pControl, static_cast<cl_uint>(m_Launch.GetFile().vArguments.size()));
    }
    const bool bPatched = command != OVKCLDEBUG_COMMAND_CONTINUE || !stops.empty();
    const CTarget::EState eFrom = m_Target.GetState();
    const std::optional<size_t> place = m_TimeLine.GetPlace();
    if (command == OVKCLDEBUG_COMMAND_EXT_STEP_BACK || command == OVKCLDEBUG_COMMAND_EXT_RUN_BACK)
    {
        m_TimeLine.Lose();
    }
    const CTarget::EState eState = m_Target.Resume(command);
    EndIfGivenUp(eFrom, bPatched);
    if (eState != CTarget::AtStop)
    {
        CheckFaults(bPatched);
        SendFinished(CompareCounts(command == OVKCLDEBUG_COMMAND_STEP));
        return false;
    }
    const unsigned int nFrom = m_nLine;
    m_nLine = GetSession().GetNextLine();
    m_TimeLine.Arrive(*m_pCode, place,
                      {command, bRuns ? std::make_shared<const CTimeLine::Lines>(stops) : nullptr, m_nLine});
    CountStop(command, nFrom);
    CheckFaults(true);
    ShowProgress();
    return true;
}

SRunEstimate CDebugger::EstimateRun(const std::set<unsigned int>& stops)
{
    if (stops.empty())
    {
        return {GetRuns() + 1, true};
    }
    // When a session opens, its first instruction has been executed already.
    const unsigned int nFrom = m_Target.GetState() == CTarget::AtStart ? m_nLine + 1 : m_nLine;
    unsigned int nStop = 0;
    const size_t nRuns = EstimateRuns(*m_pListing, *m_pCode, nFrom, stops, m_pSettings->vTracked, nStop);
    const bool bUnseen = m_Unseen.count(nStop) != 0;
    return nRuns != 0 ? SRunEstimate{GetRuns() + nRuns, !bUnseen} : SRunEstimate();
}

CDebugger::EReason CDebugger::TakeHits()
{
    CBreakpoints::SHits hits = m_pBreakpoints->Arrive(m_nLine, *this);
    if (hits.vIds.empty())
    {
        return EReason::Moved;
    }
    m_vCommands = hits.vCommands;
    m_nFocus = hits.nItem.value_or(m_nFocus);
    m_Hits = std::move(hits);
    return EReason::Breakpoint;
}

CDebugger::EReason CDebugger::RunTo(ovkclDebugCommand command, const std::set<unsigned int>& lines)
{
    const bool bBack = command == OVKCLDEBUG_COMMAND_EXT_RUN_BACK;
    while (true)
    {
        const unsigned int nFrom = m_nLine;
        if (!Move(command, lines))
        {
            return EReason::None;
        }
        if (bBack && nFrom == m_nLine && m_nLine == m_pCode->GetFirstStop())
        {
            return EReason::FirstStop;
        }
        if (TakeHits() == EReason::Breakpoint)
        {
            return EReason::Breakpoint;
        }
        if (lines.count(m_nLine) != 0)
        {
            return EReason::Reached;
        }
        if (bBack && m_nLine == m_pCode->GetFirstStop())
        {
            return EReason::FirstStop;
        }
        if (IsInterrupted())
        {
            return EReason::Interrupted;
        }
    }
}

CDebugger::EReason CDebugger::StepOnce()
{
    return Move(OVKCLDEBUG_COMMAND_STEP, {}) ? TakeHits() : EReason::None;
}

/// Runs from a callee's entry to after its call.
CDebugger::EReason CDebugger::RunOverCall(const CCodeMap::SFunction& callee, const CCodeMap::SFunction* pCaller)
{
    std::set<unsigned int> calls;
    for (const unsigned int nCall : callee.vCallLines)
    {
        if (pCaller == nullptr || m_pCode->FindFunction(nCall) == pCaller)
        {
            calls.insert(nCall);
        }
    }
    const EReason eReason = RunTo(OVKCLDEBUG_COMMAND_CONTINUE, calls);
    return eReason == EReason::Reached ? StepOnce() : eReason;
}

/// Runs to the first of some lines. A call counts as finished when the function has returned.
CDebugger::EReason CDebugger::RunToLines(const std::set<unsigned int>& lines, const CCodeMap::SFunction* pFunction)
{
    const EReason eReason = RunTo(OVKCLDEBUG_COMMAND_CONTINUE, lines);
    const bool bReturned = pFunction != nullptr && std::find(pFunction->vCallLines.begin(), pFunction->vCallLines.end(),
                                                             m_nLine) != pFunction->vCallLines.end();
    return eReason == EReason::Reached && bReturned ? StepOnce() : eReason;
}

CDebugger::EReason CDebugger::NextOnce()
{
    const CCodeMap::SFunction* pCaller = m_pCode->FindFunction(m_nLine);
    EReason eReason = StepOnce();
    while (eReason == EReason::Moved)
    {
        const CCodeMap::SFunction* pFunction = m_pCode->FindFunction(m_nLine);
        if (pFunction == nullptr || pFunction == pCaller || pFunction->nEntry != m_nLine)
        {
            break;
        }
        eReason = RunOverCall(*pFunction, pCaller);
    }
    return eReason;
}

CDebugger::EReason CDebugger::BackOnce()
{
    const unsigned int nFrom = m_nLine;
    if (!Move(OVKCLDEBUG_COMMAND_EXT_STEP_BACK, {}))
    {
        return EReason::None;
    }
    return nFrom == m_nLine ? EReason::FirstStop : EReason::Moved;
}

/// At a call that has returned: runs back to before it.
CDebugger::EReason CDebugger::BackOverCall()
{
    EReason eReason = BackOnce();
    const CCodeMap::SFunction* pCallee = m_pCode->FindFunction(m_nLine);
    if (eReason == EReason::Moved && pCallee != nullptr)
    {
        eReason =
            m_nLine == pCallee->nEntry ? EReason::Reached : RunTo(OVKCLDEBUG_COMMAND_EXT_RUN_BACK, {pCallee->nEntry});
        eReason = eReason == EReason::Reached ? BackOnce() : eReason;
    }
    return eReason;
}

// ---------------------------------------------------------------------------------------- commands

void CDebugger::RequireNoInterrupt() const
{
    if (IsInterrupted())
    {
        throw CCommandError("interrupted");
    }
}

void CDebugger::BeginCommand(bool bSingleStep)
{
    RequireLive();
    RequireNoInterrupt();
    // Reuses the memory of the values kept before.
    std::map<std::string, std::vector<uint32_t>> mapKept;
    mapKept.swap(m_mapEarlier);
    if (m_Target.GetState() == CTarget::AtStop)
    {
        for (const std::string& strRegister : m_LookedAt)
        {
            const SRegisterView view = GetSession().GetRegister(strRegister);
            std::vector<uint32_t>& vWords = m_mapEarlier[strRegister] = std::move(mapKept[strRegister]);
            vWords.clear();
            if (view.pWords != nullptr)
            {
                vWords.assign(view.pWords, view.pWords + 4 * view.nItems);
            }
        }
    }
    m_LookedAt.clear();
    m_MemoryLog.GoOn();
    m_nEarlierLine = m_nLine;
    m_bSingleStep = bSingleStep && m_Target.GetState() == CTarget::AtStop;
    m_nFrame = 0;
    m_Hits = CBreakpoints::SHits();
    m_vCommands.clear();
    m_Progress = SProgress();
    m_Progress.nRunsBefore = GetRuns();
    m_LastProgress = std::chrono::steady_clock::now();
}

/// Moves nTimes, or until something stops it, and reports the last stop.
template <typename MoveOnce>
void CDebugger::Repeat(size_t nTimes, const char* pszReason, MoveOnce moveOnce)
{
    EReason eReason = EReason::Moved;
    for (size_t n = 0; n < nTimes && eReason == EReason::Moved; ++n)
    {
        m_Progress.nMove = n + 1;
        m_Progress.nMoves = nTimes;
        eReason = moveOnce();
        if (eReason == EReason::Moved && n + 1 < nTimes && IsInterrupted())
        {
            eReason = EReason::Interrupted;
        }
    }
    if (eReason != EReason::None)
    {
        SendStop(eReason, pszReason);
    }
}

void CDebugger::Run()
{
    RequireNoInterrupt();
    Kill();
    Launch();
    BeginCommand(false);
    if (TakeHits() == EReason::Breakpoint)
    {
        SendStop(EReason::Breakpoint, "breakpoint");
        return;
    }
    Repeat(1, "breakpoint", [this] { return RunTo(OVKCLDEBUG_COMMAND_CONTINUE, {}); });
}

void CDebugger::Start()
{
    RequireNoInterrupt();
    Kill();
    Launch();
    BeginCommand(false);
    TakeHits();
    SendStop(m_Hits.vIds.empty() ? EReason::Moved : EReason::Breakpoint, "entry");
}

/// Continues from breakpoint to breakpoint, forward or back.
void CDebugger::GoOn(size_t nTimes, ovkclDebugCommand command)
{
    BeginCommand(false);
    size_t nLeft = nTimes;
    Repeat(1, "breakpoint",
           [&]
           {
               EReason eReason = EReason::Breakpoint;
               m_Progress.nMoves = nTimes;
               while (nLeft-- != 0 && eReason == EReason::Breakpoint)
               {
                   m_Progress.nMove = nTimes - nLeft;
                   m_vCommands.clear();
                   eReason = RunTo(command, {});
                   if (eReason == EReason::Breakpoint && IsInterrupted())
                   {
                       break; // it stopped at one, which will do
                   }
               }
               return eReason;
           });
}

void CDebugger::Continue(size_t nTimes)
{
    GoOn(nTimes, OVKCLDEBUG_COMMAND_CONTINUE);
}

bool CDebugger::IsFocusActive()
{
    return GetActive().pActive[m_nFocus] != 0;
}

/// Moves until the focused work-item takes part.
template <typename MoveOnce>
CDebugger::EReason CDebugger::MoveFocus(MoveOnce moveOnce)
{
    EReason eReason = moveOnce();
    while (eReason == EReason::Moved && !IsFocusActive())
    {
        eReason = IsInterrupted() ? EReason::Interrupted : moveOnce();
    }
    return eReason;
}

void CDebugger::Step(size_t nTimes, bool bFocus)
{
    BeginCommand(nTimes == 1 && !bFocus);
    const auto step = [this] { return StepOnce(); };
    Repeat(nTimes, "step", [&] { return bFocus ? MoveFocus(step) : StepOnce(); });
}

void CDebugger::Next(size_t nTimes, bool bFocus)
{
    BeginCommand(false);
    const auto next = [this] { return NextOnce(); };
    Repeat(nTimes, "next", [&] { return bFocus ? MoveFocus(next) : NextOnce(); });
}

void CDebugger::Finish()
{
    BeginCommand(false);
    const CCodeMap::SFunction* pFunction = m_pCode->FindFunction(m_nLine);
    if (pFunction == nullptr || pFunction->vCallLines.empty() || pFunction->nLabel == m_nLabel)
    {
        throw CCommandError("finish has no meaning here: nothing has called this function but the launch");
    }
    Repeat(1, "finish", [&] { return RunOverCall(*pFunction, nullptr); });
}

void CDebugger::Until()
{
    BeginCommand(false);
    const CCodeMap::SFunction* pFunction = m_pCode->FindFunction(m_nLine);
    std::set<unsigned int> lines;
    for (unsigned int nLine = m_nLine + 1; pFunction != nullptr && nLine <= pFunction->nEnd; ++nLine)
    {
        if (m_pListing->IsInstruction(nLine))
        {
            lines.insert(nLine);
        }
    }
    if (pFunction != nullptr)
    {
        lines.insert(pFunction->vCallLines.begin(), pFunction->vCallLines.end());
    }
    Repeat(1, "until", [&] { return RunToLines(lines, pFunction); });
}

void CDebugger::Advance(std::set<unsigned int> lines)
{
    BeginCommand(false);
    const CCodeMap::SFunction* pFunction = m_pCode->FindFunction(m_nLine);
    if (pFunction != nullptr && pFunction->nLabel != m_nLabel)
    {
        lines.insert(pFunction->vCallLines.begin(), pFunction->vCallLines.end());
    }
    Repeat(1, "advance", [&] { return RunToLines(lines, pFunction); });
}

void CDebugger::RunToAny(size_t nTimes, const char* pszReason, bool bBack,
                         const std::function<std::set<unsigned int>()>& findLines, bool bFocus)
{
    BeginCommand(false);
    Repeat(nTimes, pszReason,
           [&]
           {
               const std::set<unsigned int> lines = findLines();
               const CCodeMap::SFunction* pFunction = m_pCode->FindFunction(m_nLine);
               EReason eReason = EReason::Reached;
               do // skips lines where no work-item takes part
               {
                   eReason = bBack ? RunTo(OVKCLDEBUG_COMMAND_EXT_RUN_BACK, lines) : RunToLines(lines, pFunction);
               } while (eReason == EReason::Reached && (CountActive() == 0 || (bFocus && !IsFocusActive())) &&
                        !IsInterrupted());
               return eReason == EReason::Reached ? EReason::Moved : eReason;
           });
}

void CDebugger::StepBack(size_t nTimes)
{
    BeginCommand(false);
    Repeat(nTimes, "step",
           [this]
           {
               const EReason eReason = BackOnce();
               return eReason == EReason::Moved ? TakeHits() : eReason;
           });
}

void CDebugger::NextBack(size_t nTimes)
{
    BeginCommand(false);
    Repeat(nTimes, "next",
           [this]
           {
               const CCodeMap::SFunction* pFunction = m_pCode->FindFunction(m_nLine);
               EReason eReason = BackOnce();
               const auto isReturned = [&]
               {
                   const std::string strMnemonic = m_pListing->GetMnemonic(m_nLine);
                   return m_pCode->FindFunction(m_nLine) == pFunction &&
                          (strMnemonic == "call" || strMnemonic.compare(0, 6, "mcall(") == 0);
               };
               while (eReason == EReason::Moved && isReturned())
               {
                   eReason = BackOverCall();
               }
               return eReason == EReason::Moved ? TakeHits() : eReason;
           });
}

void CDebugger::ContinueBack(size_t nTimes)
{
    GoOn(nTimes, OVKCLDEBUG_COMMAND_EXT_RUN_BACK);
}

void CDebugger::Kill()
{
    m_Target.Drop();
}

} // namespace KestrelTool
