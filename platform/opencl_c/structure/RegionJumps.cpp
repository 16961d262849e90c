#include "platform/opencl_c/structure/RegionEmitter.h"

#include <algorithm>

// How CRegionEmitter writes jumps.

namespace KestrelOpenCL
{

namespace
{

/// The head of a loop decides in every pass whether to leave, so setting a guard at its jump would cost most.
const int s_nHeadWeight = 4;

} // namespace

CRegionEmitter::EWay CRegionEmitter::FindWay(int nTo) const
{
    const int nTop = static_cast<int>(m_vFrames.size()) - 1;
    if (!m_vLoopFrames.empty() && m_vFrames[m_vLoopFrames.back()].nNode == nTo)
    {
        return m_vLoopFrames.back() == nTop ? Falls : Repeats;
    }
    const int nScope = m_vScopeFrames.empty() ? -1 : m_vScopeFrames.back();
    for (int n = nTop; n > nScope; --n)
    {
        if (m_vFrames[n].nNode == nTo)
        {
            return Falls;
        }
    }
    for (int n = nScope - 1; n >= 0; --n)
    {
        const SFrame& frame = m_vFrames[n];
        if (frame.eKind == SFrame::After && frame.nNode != nTo)
        {
            continue;
        }
        const bool bEndOfLoop = frame.eKind == SFrame::Loop && frame.nNode == nTo && n == nScope - 1;
        return frame.eKind == SFrame::After || bEndOfLoop ? Breaks : TakesRoute;
    }
    return TakesRoute;
}

void CRegionEmitter::Jump(int nTo, int nFrom)
{
    const EWay eWay = FindWay(nTo);
    m_bFalls = eWay == Falls;
    const int nTop = static_cast<int>(m_vFrames.size()) - 1;
    switch (eWay)
    {
    case Falls:
        NoteJump(nTop, nTo, nFrom);
        break;
    case Breaks:
        m_vScopes[m_vFrames[m_vScopeFrames.back()].nIndex].bLeftByBreak = true;
        NoteJump(m_vScopeFrames.back() - 1, nTo, nFrom);
        Add(SRegionStep::Break, nFrom);
        break;
    case Repeats:
        Add(SRegionStep::Continue, nFrom);
        break;
    case TakesRoute:
        TakeRoute(nTo, nFrom);
        Add(SRegionStep::Break, nFrom);
        break;
    }
}

/// Notes a jump that skips what is between the frame and the target.
void CRegionEmitter::NoteJump(int nTop, int nTo, int nFrom)
{
    std::vector<SSlotEntry> vEntries;
    const int nWeight = m_Graph.IsHead(nFrom) ? s_nHeadWeight : 1;
    int n = nTop;
    for (; n >= 0 && m_vFrames[n].nNode != nTo; --n)
    {
        m_vAfters[m_vFrames[n].nIndex].nJumpsPast += nWeight;
        vEntries.push_back({SSlotEntry::JumpPast, m_vFrames[n].nIndex});
    }
    if (n >= 0 && m_vFrames[n].eKind == SFrame::After)
    {
        m_vAfters[m_vFrames[n].nIndex].nJumpsTo += nWeight;
        vEntries.push_back({SSlotEntry::JumpTo, m_vFrames[n].nIndex});
    }
    if (!vEntries.empty())
    {
        AddSlot(std::move(vEntries), nFrom);
    }
}

void CRegionEmitter::TakeRoute(int nTo, int nFrom)
{
    SScope& scope = m_vScopes[m_vFrames[m_vScopeFrames.back()].nIndex];
    auto it = std::find_if(scope.vRoutes.begin(), scope.vRoutes.end(),
                           [&](int nRoute) { return m_vRoutes[nRoute].nTo == nTo; });
    if (it == scope.vRoutes.end())
    {
        it = scope.vRoutes.insert(it, static_cast<int>(m_vRoutes.size()));
        m_vRoutes.push_back({nTo, -1});
    }
    AddSlot({{SSlotEntry::TakeRoute, *it}}, nFrom);
}

} // namespace KestrelOpenCL
