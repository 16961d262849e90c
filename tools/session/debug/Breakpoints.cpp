#include "tools/session/debug/Breakpoints.h"

#include "tools/session/debug/CommandError.h"

#include <algorithm>

namespace KestrelTool
{

namespace
{

bool Holds(SBreakpoint& breakpoint, IValueSource& source)
{
    if (breakpoint.strCondition.empty())
    {
        return true;
    }
    if (!breakpoint.condition)
    {
        breakpoint.condition.emplace(breakpoint.strCondition, &source);
    }
    breakpoint.condition->Bind(source);
    return breakpoint.condition->HoldsForAny(source);
}

} // namespace

SBreakpoint& CBreakpoints::Add(std::set<unsigned int> lines, bool bTemporary)
{
    m_Breakpoints.emplace_back();
    m_Breakpoints.back().nId = m_nNextId++;
    m_Breakpoints.back().lines = std::move(lines);
    m_Breakpoints.back().bTemporary = bTemporary;
    return m_Breakpoints.back();
}

SBreakpoint& CBreakpoints::Find(unsigned int nId)
{
    for (SBreakpoint& breakpoint : m_Breakpoints)
    {
        if (breakpoint.nId == nId)
        {
            return breakpoint;
        }
    }
    throw CCommandError("there is no breakpoint " + std::to_string(nId));
}

void CBreakpoints::Remove(unsigned int nId)
{
    Find(nId);
    m_Breakpoints.remove_if([&](const SBreakpoint& breakpoint) { return breakpoint.nId == nId; });
}

std::set<unsigned int> CBreakpoints::GetEnabledLines() const
{
    std::set<unsigned int> lines;
    for (const SBreakpoint& breakpoint : m_Breakpoints)
    {
        if (breakpoint.bEnabled)
        {
            lines.insert(breakpoint.lines.begin(), breakpoint.lines.end());
        }
    }
    return lines;
}

bool CBreakpoints::HasLine(unsigned int nLine) const
{
    return std::any_of(m_Breakpoints.begin(), m_Breakpoints.end(),
                       [&](const SBreakpoint& breakpoint) { return breakpoint.lines.count(nLine) != 0; });
}

/// Whether a watched access is about to happen; notes the work-item that makes it.
bool CBreakpoints::Touches(const SWatch& watch, unsigned int nLine, IValueSource& source, SHits& hits)
{
    const std::vector<size_t> vItems = source.FindTouchers(watch, nLine);
    if (!vItems.empty())
    {
        static const char* const s_Verbs[] = {"read", "write", "change"};
        hits.vNotes.push_back(watch.strText + ": work-item " + std::to_string(vItems[0]) +
                              (vItems.size() > 1 ? " and " + std::to_string(vItems.size() - 1) + " more are" : " is") +
                              " about to " + s_Verbs[watch.mapLines.at(nLine).nKind] + " it");
        hits.nItem = vItems[0];
    }
    return !vItems.empty();
}

/// Whether a fault is about to happen; notes the fault and the work-item.
bool CBreakpoints::Fails(const SFaultStop& fault, unsigned int nLine, IValueSource& source, SHits& hits)
{
    const auto [itBegin, itEnd] = fault.mapPlaces.equal_range(nLine);
    for (auto it = itBegin; it != itEnd; ++it)
    {
        const std::vector<size_t> vItems = source.FindFaulty(it->second, nLine);
        if (!vItems.empty())
        {
            hits.vNotes.push_back(fault.strText + ": " + it->second.strMessage);
            hits.nItem = vItems[0];
            return true;
        }
    }
    return false;
}

CBreakpoints::SHits CBreakpoints::Arrive(unsigned int nLine, IValueSource& source)
{
    SHits hits;
    for (SBreakpoint& breakpoint : m_Breakpoints)
    {
        if (breakpoint.lines.count(nLine) == 0 || !breakpoint.bEnabled)
        {
            continue;
        }
        try
        {
            if (breakpoint.pWatch && !Touches(*breakpoint.pWatch, nLine, source, hits))
            {
                continue;
            }
            if (breakpoint.pFault && !Fails(*breakpoint.pFault, nLine, source, hits))
            {
                continue;
            }
            if (!Holds(breakpoint, source))
            {
                continue;
            }
        }
        catch (const CCommandError& error)
        {
            hits.vComplaints.push_back("condition of breakpoint " + std::to_string(breakpoint.nId) + ": " +
                                       error.what());
        }
        ++breakpoint.nHits;
        if (breakpoint.isWanted && !breakpoint.isWanted(breakpoint))
        {
            continue;
        }
        if (breakpoint.nIgnore != 0)
        {
            --breakpoint.nIgnore;
            continue;
        }
        hits.vIds.push_back(breakpoint.nId);
        hits.vCommands.insert(hits.vCommands.end(), breakpoint.vCommands.begin(), breakpoint.vCommands.end());
    }
    m_Breakpoints.remove_if(
        [&](const SBreakpoint& breakpoint) {
            return breakpoint.bTemporary &&
                   std::find(hits.vIds.begin(), hits.vIds.end(), breakpoint.nId) != hits.vIds.end();
        });
    return hits;
}

} // namespace KestrelTool
