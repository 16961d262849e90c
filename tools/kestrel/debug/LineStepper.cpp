#include "tools/kestrel/debug/LineStepper.h"

#include <algorithm>
#include <iterator>

namespace KestrelTool
{

/// Whether the stop's function has lines of a source.
bool CLineStepper::HasLines() const
{
    const SFunction* pFunction = m_Debugger.GetCode().FindFunction(m_Debugger.GetLine());
    for (unsigned int nLine = pFunction != nullptr ? pFunction->nHead : 0;
         pFunction != nullptr && nLine <= pFunction->nEnd; ++nLine)
    {
        if (!m_Debugger.GetListing().GetPlace(nLine).empty())
        {
            return true;
        }
    }
    return false;
}

/// Whether an instruction is the first one of a line's code, or of a part of it.
bool CLineStepper::BeginsLine(unsigned int nLine) const
{
    const CListing& listing = m_Debugger.GetListing();
    const std::string& strPlace = listing.GetPlace(nLine);
    if (strPlace.empty() || !listing.IsInstruction(nLine))
    {
        return false;
    }
    unsigned int nBefore = nLine;
    while (nBefore != 0 && !listing.IsInstruction(--nBefore))
    {
    }
    return listing.GetPlace(nBefore) != strPlace ||
           m_Debugger.GetCode().FindFunction(nBefore) != m_Debugger.GetCode().FindFunction(nLine);
}

/// Forward the line that one stands in is left. Back its beginning is as good as that of another one.
bool CLineStepper::IsStop(unsigned int nLine, bool bBack) const
{
    const CListing& listing = m_Debugger.GetListing();
    return BeginsLine(nLine) && (bBack || listing.GetPlace(nLine) != listing.GetPlace(m_Debugger.GetLine()));
}

size_t CLineStepper::CountFrames(unsigned int nLine)
{
    return m_Debugger.GetDebugInfo().FindFrames(nLine).size();
}

/// \param bInto  functions that are called from here count too, inlined ones among them
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
        // What calls the kernel comes from nowhere: there is nothing to see behind its end.
        std::copy_if(pHere->vCallLines.begin(), pHere->vCallLines.end(), std::inserter(stops, stops.end()),
                     [this](unsigned int nCall) { return !m_Debugger.GetListing().GetPlace(nCall).empty(); });
    }
    return stops;
}

void CLineStepper::Step(size_t nTimes)
{
    if (!HasLines())
    {
        m_Debugger.Step(nTimes);
        return;
    }
    m_Debugger.RunToAny(nTimes, "step", false, [this] { return FindStops(true, false); });
}

void CLineStepper::Next(size_t nTimes)
{
    if (!HasLines())
    {
        m_Debugger.Next(nTimes);
        return;
    }
    m_Debugger.RunToAny(nTimes, "next", false, [this] { return FindStops(false, false); });
}

void CLineStepper::Finish()
{
    const unsigned int nFrom = m_Debugger.GetLine();
    const size_t nDepth = CountFrames(nFrom);
    const SFunction* pFunction = m_Debugger.GetCode().FindFunction(nFrom);
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
