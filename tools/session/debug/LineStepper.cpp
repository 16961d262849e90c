#include "tools/session/debug/LineStepper.h"

#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/SourceLines.h"

#include <algorithm>
#include <iterator>

namespace KestrelTool
{

/// Whether the stop's function has source lines.
bool CLineStepper::HasLines() const
{
    const SFunction* pFunction = m_Debugger.GetCode().FindFunction(m_Debugger.GetLine());
    return KestrelTool::HasLines(m_Debugger.GetListing(), pFunction);
}

/// Forward, the current line doesn't count. Backward, its beginning counts like that of any other line.
bool CLineStepper::IsStop(unsigned int nLine, bool bBack) const
{
    const CListing& listing = m_Debugger.GetListing();
    return BeginsLine(listing, m_Debugger.GetCode(), nLine) &&
           (bBack || listing.GetPlace(nLine) != listing.GetPlace(m_Debugger.GetLine()));
}

size_t CLineStepper::CountFrames(unsigned int nLine)
{
    return m_Debugger.GetDebugInfo().FindFrames(nLine).size();
}

/// \param bInto  include functions called from here, even inlined ones
std::set<unsigned int> CLineStepper::FindStops(bool bInto, bool bBack)
{
    const SFunction* pHere = m_Debugger.GetCode().FindFunction(m_Debugger.GetLine());
    const size_t nDepth = CountFrames(m_Debugger.GetLine());
    std::set<unsigned int> stops;
    for (unsigned int nLine = 0; nLine < m_Debugger.GetListing().GetLineCount(); ++nLine)
    {
        const bool bHere = m_Debugger.GetCode().FindFunction(nLine) == pHere;
        if (IsStop(nLine, bBack) && (bInto || (bHere && CountFrames(nLine) <= nDepth)))
        {
            stops.insert(nLine);
        }
    }
    if (pHere != nullptr)
    {
        // The caller of the kernel has no source lines, so there is nothing to show after the kernel's end.
        std::copy_if(pHere->vCallLines.begin(), pHere->vCallLines.end(), std::inserter(stops, stops.end()),
                     [this](unsigned int nCall) { return !m_Debugger.GetListing().GetPlace(nCall).empty(); });
    }
    return stops;
}

void CLineStepper::Step(size_t nTimes, bool bFocus)
{
    if (!HasLines())
    {
        m_Debugger.Step(nTimes, bFocus);
        return;
    }
    m_Debugger.RunToAny(
        nTimes, "step", false, [this] { return FindStops(true, false); }, bFocus);
}

void CLineStepper::Next(size_t nTimes, bool bFocus)
{
    if (!HasLines())
    {
        m_Debugger.Next(nTimes, bFocus);
        return;
    }
    m_Debugger.RunToAny(
        nTimes, "next", false, [this] { return FindStops(false, false); }, bFocus);
}

void CLineStepper::Until()
{
    if (!HasLines())
    {
        m_Debugger.Until();
        return;
    }
    const std::optional<SSourceLine> here = ReadSourceLine(m_Debugger.GetListing().GetPlace(m_Debugger.GetLine()));
    const size_t nDepth = CountFrames(m_Debugger.GetLine());
    const auto findStops = [&]
    {
        std::set<unsigned int> stops = FindStops(false, false);
        for (auto it = stops.begin(); it != stops.end();)
        {
            const std::optional<SSourceLine> place = ReadSourceLine(m_Debugger.GetListing().GetPlace(*it));
            const bool bBack = here && place && place->strFile == here->strFile && place->nLine <= here->nLine &&
                               CountFrames(*it) == nDepth;
            it = bBack ? stops.erase(it) : std::next(it);
        }
        return stops;
    };
    m_Debugger.RunToAny(1, "until", false, findStops);
}

void CLineStepper::Finish()
{
    const unsigned int nFrom = m_Debugger.GetLine();
    const size_t nDepth = CountFrames(nFrom);
    const SFunction* pFunction = m_Debugger.GetCode().FindFunction(nFrom);
    const CListing& listing = m_Debugger.GetListing();
    if (nDepth == 1 && HasLines() && pFunction != nullptr &&
        std::all_of(pFunction->vCallLines.begin(), pFunction->vCallLines.end(),
                    [&](unsigned int nCall) { return listing.GetPlace(nCall).empty(); }))
    {
        throw CCommandError("finish has no meaning here: nothing has called this function but the launch");
    }
    if (pFunction == nullptr || nDepth < 2)
    {
        m_Debugger.Finish();
        return;
    }
    std::set<unsigned int> stops(pFunction->vCallLines.begin(), pFunction->vCallLines.end());
    for (unsigned int nLine = pFunction->nHead; nLine <= pFunction->nEnd; ++nLine)
    {
        const size_t nFrames = CountFrames(nLine);
        if (m_Debugger.GetListing().IsInstruction(nLine) && nFrames != 0 && nFrames < nDepth)
        {
            stops.insert(nLine);
        }
    }
    m_Debugger.RunToAny(1, "finish", false, [&] { return stops; });
}

void CLineStepper::StepBack(size_t nTimes)
{
    if (!HasLines())
    {
        m_Debugger.StepBack(nTimes);
        return;
    }
    m_Debugger.RunToAny(nTimes, "step", true, [this] { return FindStops(true, true); });
}

void CLineStepper::NextBack(size_t nTimes)
{
    if (!HasLines())
    {
        m_Debugger.NextBack(nTimes);
        return;
    }
    m_Debugger.RunToAny(nTimes, "next", true, [this] { return FindStops(false, true); });
}

} // namespace KestrelTool
