// Going along the stops of a launch.

#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/Debugger.h"

#include <exception>
#include <utility>

namespace KestrelTool
{

const CTimeLine::SStop& CDebugger::GetStop(size_t nStop) const
{
    if (nStop >= m_TimeLine.GetStops().size())
    {
        throw CCommandError("there is no stop " + std::to_string(nStop + 1) + "; there are " +
                            std::to_string(m_TimeLine.GetStops().size()));
    }
    return m_TimeLine.GetStops()[nStop];
}

/// Makes the move again that leads to a place from the one before it.
bool CDebugger::Retrace(size_t nPlace)
{
    const CTimeLine::SMove move = m_TimeLine.GetMove(nPlace);
    const bool bLive = Resume(move.command, move.pStops != nullptr ? *move.pStops : std::set<unsigned int>());
    if (bLive && m_TimeLine.GetPlace() != nPlace)
    {
        throw CCommandError("the kernel has taken another way than before");
    }
    return bLive;
}

/// To an earlier place, or to the first one.
bool CDebugger::GoBackTo(size_t nPlace)
{
    const std::set<unsigned int> line = {m_TimeLine.GetLine(nPlace)};
    const std::optional<size_t> runs =
        nPlace != 0 && m_TimeLine.GetPlace() ? m_TimeLine.CountRunsBack(*m_pCode, nPlace) : std::nullopt;
    for (size_t n = 0; runs && *runs <= nPlace && n < *runs; ++n)
    {
        if (!Resume(OVKCLDEBUG_COMMAND_EXT_RUN_BACK, line))
        {
            return false;
        }
    }
    return m_TimeLine.GetPlace() == nPlace || Resume(OVKCLDEBUG_COMMAND_EXT_RUN_BACK, {});
}

/// \return false if an interrupt or the launch's end came in between
bool CDebugger::Travel(size_t nPlace)
{
    m_Unseen.clear();
    const std::optional<size_t> here = m_TimeLine.GetPlace();
    if ((!here || *here > nPlace) && !GoBackTo(nPlace))
    {
        return false;
    }
    while (m_TimeLine.GetPlace() && *m_TimeLine.GetPlace() < nPlace && !IsInterrupted())
    {
        if (!Retrace(*m_TimeLine.GetPlace() + 1))
        {
            return false;
        }
    }
    return m_TimeLine.GetPlace() == nPlace;
}

void CDebugger::GoTo(size_t nStop)
{
    RequireLive();
    const size_t nPlace = GetStop(nStop).nPlace;
    BeginCommand(false);
    const bool bThere = Travel(nPlace);
    if (IsLive())
    {
        SendStop(bThere ? EReason::Moved : EReason::Interrupted, "goto");
    }
}

void CDebugger::GoToPass(unsigned int nLine, size_t nItem, uint64_t nPass)
{
    BeginCommand(false);
    bool bLive = Resume(OVKCLDEBUG_COMMAND_EXT_RUN_BACK, {});
    SetFocus(nItem);
    uint64_t nLeft = nPass + 1;
    while (bLive && nLeft != 0 && !IsInterrupted())
    {
        bLive = Move(OVKCLDEBUG_COMMAND_CONTINUE, {nLine});
        nLeft -= bLive && m_nLine == nLine && IsFocusActive() ? 1 : 0;
    }
    if (bLive)
    {
        SendStop(nLeft == 0 ? EReason::Moved : EReason::Interrupted, "goto");
    }
}

void CDebugger::VisitStops(const std::vector<size_t>& vStops, const std::function<void(size_t nStop)>& look)
{
    RequireLive();
    RequireNoInterrupt();
    const std::optional<size_t> here = m_TimeLine.GetPlace();
    if (!here)
    {
        throw CCommandError("there is no way back to the present stop");
    }
    // What is known of the last stop stays what it is.
    auto lookedAt = std::exchange(m_LookedAt, {});
    auto mapEarlier = std::exchange(m_mapEarlier, {});
    auto memoryLog = std::exchange(m_MemoryLog, {});
    const bool bSingleStep = std::exchange(m_bSingleStep, false);
    const size_t nFrame = std::exchange(m_nFrame, 0);
    std::exception_ptr pError;
    try
    {
        for (const size_t nStop : vStops)
        {
            if (!Travel(GetStop(nStop).nPlace))
            {
                throw CCommandError("interrupted");
            }
            look(nStop);
        }
    }
    catch (const std::exception&)
    {
        pError = std::current_exception();
    }
    ClearInterrupts(); // the way back has to be gone
    const bool bBack = IsLive() && Travel(*here);
    m_LookedAt = std::move(lookedAt);
    m_mapEarlier = std::move(mapEarlier);
    m_MemoryLog = std::move(memoryLog);
    m_bSingleStep = bBack && bSingleStep;
    m_nFrame = nFrame;
    m_Sink.OnProgress(std::string());
    if (IsLive() && !bBack)
    {
        SendStop(EReason::Interrupted, "goto");
    }
    if (pError != nullptr)
    {
        std::rethrow_exception(pError);
    }
}

} // namespace KestrelTool
