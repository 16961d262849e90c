#include "platform/opencl_c/structure/RegionEmitter.h"

#include "llvm/IR/BasicBlock.h"
#include "llvm/IR/Instructions.h"

#include <algorithm>

// How CRegionEmitter writes switches.

namespace KestrelOpenCL
{

void CRegionEmitter::EmitSwitch(int nNode)
{
    const auto& vArms = m_Graph.GetNode(nNode).vArms;
    const int nArms = static_cast<int>(vArms.size());
    for (int nArm = 0; nArm < nArms; ++nArm)
    {
        // The copies into this case come before the switch: a case that falls into it must not run them.
        if (IsOwnFallenInto(nNode, nArm))
        {
            EmitArmStart(nNode, nArm);
        }
    }
    OpenScope(SFrame::Switch, SRegionStep::Switch, nNode);
    Push(STask::EndSwitch, nNode, 0);
    for (int nArm = nArms; nArm-- > 0;)
    {
        if (IsBareDefault(nNode, nArm))
        {
            m_vScopes[m_vFrames.back().nIndex].bLeftByBreak = true;
            const SFrame& below = m_vFrames[m_vFrames.size() - 2];
            ++m_vAfters[below.nIndex].nJumpsTo;
            m_vAfters[below.nIndex].bReachedUnsaid = true;
        }
        else if (!IsOwnFallenInto(nNode, nArm))
        {
            Push(STask::Case, nNode, nArm);
        }
    }
}

/// Whether the arm is a default that only continues after the switch.
bool CRegionEmitter::IsBareDefault(int nNode, int nArm) const
{
    const auto* pSwitch = llvm::cast<llvm::SwitchInst>(m_Graph.GetNode(nNode).pBlock->getTerminator());
    const SFlowArm& arm = m_Graph.GetNode(nNode).vArms[nArm];
    const size_t nFrames = m_vFrames.size();
    return m_Graph.GetNode(arm.nTarget).pBlock == pSwitch->getDefaultDest() && arm.nTo == arm.nTarget &&
           !NeedsCopies(nNode, nArm) && nFrames > 1 && m_vFrames[nFrames - 2].eKind == SFrame::After &&
           m_vFrames[nFrames - 2].nNode == arm.nTo;
}

/// Whether another case of this switch falls into the arm's target.
bool CRegionEmitter::IsOwnFallenInto(int nNode, int nArm) const
{
    const SFlowArm& arm = m_Graph.GetNode(nNode).vArms[nArm];
    return !arm.bBack && m_Plan.IsFallenInto(arm.nTo) && m_Graph.GetNode(arm.nTo).nDominator == nNode;
}

bool CRegionEmitter::IsCaseInside(int nNode, int nArm) const
{
    const SFlowArm& arm = m_Graph.GetNode(nNode).vArms[nArm];
    return !arm.bBack && m_Plan.IsInline(arm.nTo);
}

void CRegionEmitter::AddCase(int nNode, int nArm)
{
    const llvm::BasicBlock* pTarget = m_Graph.GetNode(m_Graph.GetNode(nNode).vArms[nArm].nTarget).pBlock;
    const auto* pSwitch = llvm::cast<llvm::SwitchInst>(m_Graph.GetNode(nNode).pBlock->getTerminator());
    SRegionStep& step = Add(SRegionStep::Case, nNode);
    step.bValue = pSwitch->getDefaultDest() == pTarget;
    for (const auto& entry : pSwitch->cases())
    {
        if (entry.getCaseSuccessor() == pTarget)
        {
            step.vCases.push_back(entry.getCaseValue());
        }
    }
    m_bFalls = true;
}

void CRegionEmitter::EmitCase(int nNode, int nArm)
{
    AddCase(nNode, nArm);
    ScheduleEndOfCase(nNode, IsCaseInside(nNode, nArm) ? m_Graph.GetNode(nNode).vArms[nArm].nTo : -1);
    EmitArm(nNode, nArm);
}

/// \param nCase the node at which the body begins, -1 if it is only a jump
void CRegionEmitter::ScheduleEndOfCase(int nNode, int nCase)
{
    const int nNext = nCase < 0 ? -1 : m_Plan.GetNextCase(nCase);
    if (nNext < 0)
    {
        Push(STask::EndCase, nNode, 0);
        return;
    }
    Push(STask::NextCase, nNode, PushAfters({nNext}));
}

void CRegionEmitter::EmitNextCase(const STask& task)
{
    m_vFrames.pop_back();
    const int nCase = m_vAfters[task.nIndex].nNode;
    const auto& vArms = m_Graph.GetNode(task.nNode).vArms;
    const auto it = std::find_if(vArms.begin(), vArms.end(), [&](const SFlowArm& arm) { return arm.nTo == nCase; });
    AddCase(task.nNode, static_cast<int>(it - vArms.begin()));
    ScheduleEndOfCase(task.nNode, nCase);
    Push(STask::Node, nCase, 0);
}

void CRegionEmitter::EndCase()
{
    if (m_bFalls)
    {
        const SFrame& frame = m_vFrames.back();
        m_vScopes[frame.nIndex].bLeftByBreak = true;
        Add(SRegionStep::Break, frame.nNode);
        m_bFalls = false;
    }
}

} // namespace KestrelOpenCL
