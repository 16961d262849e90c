#include "platform/opencl_c/structure/RegionEmitter.h"

#include "llvm/IR/BasicBlock.h"
#include "llvm/IR/Instructions.h"

#include <algorithm>

namespace KestrelOpenCL
{

CRegionEmitter::CRegionEmitter(const CFlowGraph& graph, const CRegionPlan& plan)
    : m_Graph(graph), m_Plan(plan), m_vDispatchGuards(graph.GetNodes().size(), -1)
{
    for (int nNode : graph.GetOrder())
    {
        const SFlowNode& node = graph.GetNode(nNode);
        if (!node.pBlock && !node.vArms.empty())
        {
            m_vDispatchGuards[nNode] = m_nGuards;
            m_nGuards += static_cast<int>(node.vArms.size()) - 1;
        }
    }
}

void CRegionEmitter::Emit(SRegions& regions)
{
    Push(STask::Node, 0, 0);
    while (!m_vTasks.empty())
    {
        const STask task = m_vTasks.back();
        m_vTasks.pop_back();
        Run(task);
    }
    Finish(regions);
}

void CRegionEmitter::Run(const STask& task)
{
    switch (task.eKind)
    {
    case STask::Node:
        return EmitNode(task.nNode);
    case STask::Terminator:
        return EmitTerminator(task.nNode);
    case STask::Else:
        return EmitElse(task);
    case STask::EndIf:
        return EmitEndIf(task);
    case STask::After:
        return EmitAfter(task);
    case STask::EndAfter:
        return EndAfter(task);
    case STask::EndLoop:
        return CloseScope(SRegionStep::EndLoop);
    case STask::Case:
        return EmitCase(task.nNode, task.nIndex);
    case STask::NextCase:
        return EmitNextCase(task);
    case STask::EndCase:
        return EndCase();
    case STask::EndSwitch:
        return CloseScope(SRegionStep::EndSwitch);
    }
}

/// Writes the node and everything that is placed at it or after it.
void CRegionEmitter::EmitNode(int nNode)
{
    const std::vector<int>& vAfters = m_Plan.GetAfters(nNode);
    const std::vector<int>& vLoopAfters = m_Plan.GetLoopAfters(nNode);
    if (m_Graph.IsHead(nNode))
    {
        ScheduleAfters(vLoopAfters.size(), PushAfters(vLoopAfters));
        OpenScope(SFrame::Loop, SRegionStep::Loop, nNode);
        Push(STask::EndLoop, nNode, 0);
    }
    ScheduleAfters(vAfters.size(), PushAfters(vAfters));
    if (m_Graph.GetNode(nNode).pBlock)
    {
        Add(SRegionStep::Block, nNode);
    }
    Push(STask::Terminator, nNode, 0);
}

/// \return the first of the new SAfters, which are in the order of the nodes
int CRegionEmitter::PushAfters(const std::vector<int>& vNodes)
{
    const int nFirst = static_cast<int>(m_vAfters.size());
    std::vector<SSlotEntry> vEntries;
    for (size_t n = 0; n < vNodes.size(); ++n)
    {
        m_vAfters.emplace_back();
        m_vAfters.back().nNode = vNodes[n];
        vEntries.push_back({SSlotEntry::StartAfter, nFirst + static_cast<int>(n)});
    }
    for (size_t n = vNodes.size(); n-- > 0;)
    {
        m_vFrames.push_back({SFrame::After, vNodes[n], nFirst + static_cast<int>(n)});
    }
    if (!vEntries.empty())
    {
        AddSlot(std::move(vEntries), vNodes[0]);
    }
    return nFirst;
}

void CRegionEmitter::ScheduleAfters(size_t nCount, int nFirst)
{
    for (size_t n = nCount; n-- > 0;)
    {
        Push(STask::After, 0, nFirst + static_cast<int>(n));
    }
}

/// By now all jumps to the node and past it have been written.
void CRegionEmitter::EmitAfter(const STask& task)
{
    m_vFrames.pop_back();
    SAfter& after = m_vAfters[task.nIndex];
    const int nNode = after.nNode;
    if (after.nJumpsPast > 0)
    {
        after.nGuard = m_nGuards++;
        after.bStartsTrue = after.bReachedUnsaid || after.nJumpsPast <= after.nJumpsTo;
        AddIf(nNode, after.nGuard, true);
        Push(STask::EndAfter, nNode, 0);
    }
    m_bFalls = true;
    Push(STask::Node, nNode, 0);
}

void CRegionEmitter::EndAfter(const STask& task)
{
    Add(SRegionStep::EndIf, task.nNode);
    m_bFalls = true;
}

void CRegionEmitter::OpenScope(SFrame::EKind eFrame, SRegionStep::EKind eStep, int nNode)
{
    const int nScope = static_cast<int>(m_vScopes.size());
    m_vScopes.emplace_back();
    m_vScopes.back().nStartSlot = AddSlot({}, nNode);
    Add(eStep, nNode);
    m_vScopeFrames.push_back(static_cast<int>(m_vFrames.size()));
    if (eFrame == SFrame::Loop)
    {
        m_vLoopFrames.push_back(static_cast<int>(m_vFrames.size()));
    }
    m_vFrames.push_back({eFrame, nNode, nScope});
}

/// Work-items that left by a route continue here.
void CRegionEmitter::CloseScope(SRegionStep::EKind eStep)
{
    const SFrame frame = m_vFrames.back();
    m_vFrames.pop_back();
    m_vScopeFrames.pop_back();
    if (frame.eKind == SFrame::Loop)
    {
        m_vLoopFrames.pop_back();
    }
    Add(eStep, frame.nNode);
    const std::vector<int> vRoutes = m_vScopes[frame.nIndex].vRoutes;
    bool bOthers = m_vScopes[frame.nIndex].bLeftByBreak;
    m_bFalls = bOthers;
    for (size_t n = 0; n < vRoutes.size(); ++n)
    {
        SRoute& route = m_vRoutes[vRoutes[n]];
        const int nTo = route.nTo;
        if (!bOthers && n + 1 == vRoutes.size())
        {
            Jump(nTo, frame.nNode);
            return;
        }
        route.nGuard = m_nGuards++;
        m_vSlots[m_vScopes[frame.nIndex].nStartSlot].push_back({SSlotEntry::StartRoute, vRoutes[n]});
        AddIf(frame.nNode, route.nGuard, true);
        Jump(nTo, frame.nNode);
        Add(SRegionStep::EndIf, frame.nNode);
        m_bFalls = true;
    }
}

void CRegionEmitter::EmitTerminator(int nNode)
{
    const SFlowNode& node = m_Graph.GetNode(nNode);
    if (node.vArms.empty())
    {
        m_bFalls = false;
    }
    else if (node.vArms.size() == 1)
    {
        EmitArm(nNode, 0);
    }
    else if (node.pBlock && llvm::isa<llvm::SwitchInst>(node.pBlock->getTerminator()))
    {
        EmitSwitch(nNode);
    }
    else
    {
        EmitBranch(nNode, 0);
    }
}

/// Writes the arms from nArm on: a conditional branch has two, a dispatcher one for each entry of its loop.
void CRegionEmitter::EmitBranch(int nNode, int nArm)
{
    const int nLast = static_cast<int>(m_Graph.GetNode(nNode).vArms.size()) - 1;
    const int nFirstGuard = m_vDispatchGuards[nNode];
    for (; nArm < nLast; ++nArm)
    {
        const int nGuard = nFirstGuard < 0 ? -1 : nFirstGuard + nArm;
        if (ArmLeaves(nNode, nArm))
        {
            EmitLeavingArm(nNode, nArm, nGuard, true);
            continue;
        }
        if (nArm + 1 == nLast && ArmLeaves(nNode, nLast))
        {
            EmitLeavingArm(nNode, nLast, nGuard, false);
            return EmitArm(nNode, nArm);
        }
        AddIf(nNode, nGuard, true);
        m_vOpenIfs.emplace_back();
        Push(STask::EndIf, nNode, 0);
        Push(STask::Else, nNode, nArm + 1);
        return EmitArm(nNode, nArm);
    }
    EmitArm(nNode, nLast);
}

/// If nothing leaves the if-part at its end, the rest needs no else.
void CRegionEmitter::EmitElse(const STask& task)
{
    SOpenIf& open = m_vOpenIfs.back();
    open.bThenFalls = m_bFalls;
    open.bClosed = !m_bFalls;
    Add(open.bClosed ? SRegionStep::EndIf : SRegionStep::Else, task.nNode);
    m_bFalls = true;
    EmitBranch(task.nNode, task.nIndex);
}

void CRegionEmitter::EmitEndIf(const STask& task)
{
    const SOpenIf open = m_vOpenIfs.back();
    m_vOpenIfs.pop_back();
    if (!open.bClosed)
    {
        Add(SRegionStep::EndIf, task.nNode);
        m_bFalls = m_bFalls || open.bThenFalls;
    }
}

bool CRegionEmitter::ArmLeaves(int nNode, int nArm) const
{
    const SFlowArm& arm = m_Graph.GetNode(nNode).vArms[nArm];
    return (arm.bBack || !m_Plan.IsInline(arm.nTo)) && FindWay(arm.nTo) != Falls;
}

void CRegionEmitter::EmitLeavingArm(int nNode, int nArm, int nGuard, bool bValue)
{
    AddIf(nNode, nGuard, bValue);
    EmitArm(nNode, nArm);
    Add(SRegionStep::EndIf, nNode);
    m_bFalls = true;
}

void CRegionEmitter::EmitArm(int nNode, int nArm)
{
    EmitArmStart(nNode, nArm);
    const SFlowArm& arm = m_Graph.GetNode(nNode).vArms[nArm];
    if (!arm.bBack && m_Plan.IsInline(arm.nTo))
    {
        Push(STask::Node, arm.nTo, 0);
    }
    else
    {
        Jump(arm.nTo, nNode);
    }
}

/// Writes the copies into phis; for an arm through a dispatcher, also sets where the dispatcher leads.
void CRegionEmitter::EmitArmStart(int nNode, int nArm)
{
    const SFlowArm& arm = m_Graph.GetNode(nNode).vArms[nArm];
    if (NeedsCopies(nNode, nArm))
    {
        Add(SRegionStep::Edge, nNode).pTo = m_Graph.GetNode(arm.nTarget).pBlock;
    }
    if (arm.nTo == arm.nTarget)
    {
        return;
    }
    const auto& vEntries = m_Graph.GetNode(arm.nTo).vArms;
    for (size_t n = 0; n + 1 < vEntries.size(); ++n)
    {
        SRegionStep& step = Add(SRegionStep::SetGuard, nNode);
        step.nGuard = m_vDispatchGuards[arm.nTo] + static_cast<int>(n);
        step.bValue = vEntries[n].nTarget == arm.nTarget;
    }
}

bool CRegionEmitter::NeedsCopies(int nNode, int nArm) const
{
    const SFlowNode& node = m_Graph.GetNode(nNode);
    const llvm::BasicBlock* pTarget = m_Graph.GetNode(node.vArms[nArm].nTarget).pBlock;
    return node.pBlock && pTarget && llvm::isa<llvm::PHINode>(pTarget->front());
}

int CRegionEmitter::AddSlot(std::vector<SSlotEntry> vEntries, int nFrom)
{
    SDraft draft;
    draft.nSlot = static_cast<int>(m_vSlots.size());
    draft.step.pBlock = m_Graph.GetNode(nFrom).pBlock;
    m_vDrafts.push_back(std::move(draft));
    m_vSlots.push_back(std::move(vEntries));
    return static_cast<int>(m_vSlots.size()) - 1;
}

SRegionStep& CRegionEmitter::Add(SRegionStep::EKind eKind, int nNode)
{
    m_vDrafts.emplace_back();
    SRegionStep& step = m_vDrafts.back().step;
    step.eKind = eKind;
    step.pBlock = m_Graph.GetNode(nNode).pBlock;
    return step;
}

void CRegionEmitter::AddIf(int nNode, int nGuard, bool bValue)
{
    SRegionStep& step = Add(SRegionStep::If, nNode);
    step.nGuard = nGuard;
    step.bValue = bValue;
}

void CRegionEmitter::FillSlot(const SDraft& draft, std::vector<SRegionStep>& vSteps) const
{
    for (const SSlotEntry& entry : m_vSlots[draft.nSlot])
    {
        SRegionStep step = draft.step;
        step.eKind = SRegionStep::SetGuard;
        if (entry.eKind == SSlotEntry::StartRoute || entry.eKind == SSlotEntry::StartAfter)
        {
            step.pBlock = nullptr; // the lines after it don't belong to the step's block
        }
        if (entry.eKind == SSlotEntry::StartRoute || entry.eKind == SSlotEntry::TakeRoute)
        {
            step.nGuard = m_vRoutes[entry.nIndex].nGuard;
            step.bValue = entry.eKind == SSlotEntry::TakeRoute;
        }
        else
        {
            const SAfter& after = m_vAfters[entry.nIndex];
            const bool bNeeded =
                entry.eKind == SSlotEntry::StartAfter || (entry.eKind == SSlotEntry::JumpPast) == after.bStartsTrue;
            step.nGuard = bNeeded ? after.nGuard : -1;
            step.bValue = after.bStartsTrue == (entry.eKind == SSlotEntry::StartAfter);
        }
        if (step.nGuard >= 0)
        {
            vSteps.push_back(std::move(step));
        }
    }
}

/// Leaves out empty parts of an if.
void CRegionEmitter::Finish(SRegions& regions)
{
    std::vector<SRegionStep>& vSteps = regions.vSteps;
    const auto Last = [&](SRegionStep::EKind eKind) { return !vSteps.empty() && vSteps.back().eKind == eKind; };
    for (SDraft& draft : m_vDrafts)
    {
        if (draft.nSlot >= 0)
        {
            FillSlot(draft, vSteps);
            continue;
        }
        switch (draft.step.eKind)
        {
        case SRegionStep::If:
            vSteps.push_back(std::move(draft.step));
            break;
        case SRegionStep::Else:
            if (Last(SRegionStep::If))
            {
                vSteps.back().bValue = !vSteps.back().bValue;
                break;
            }
            vSteps.push_back(std::move(draft.step));
            break;
        case SRegionStep::EndIf:
            if (Last(SRegionStep::If) || Last(SRegionStep::Else))
            {
                const bool bNothing = Last(SRegionStep::If);
                vSteps.pop_back();
                if (bNothing)
                {
                    break;
                }
            }
            vSteps.push_back(std::move(draft.step));
            break;
        case SRegionStep::EndSwitch:
            if (Last(SRegionStep::Break))
            {
                vSteps.pop_back();
            }
            vSteps.push_back(std::move(draft.step));
            break;
        default:
            vSteps.push_back(std::move(draft.step));
            break;
        }
    }
    SRegionStep end;
    end.eKind = SRegionStep::Return;
    const auto& vReturns = m_Graph.GetNode(m_Graph.GetEnd()).vPreds;
    end.pBlock = vReturns.size() == 1 ? m_Graph.GetNode(vReturns[0]).pBlock : nullptr;
    vSteps.push_back(std::move(end));
    regions.nGuards = static_cast<unsigned int>(m_nGuards);
}

} // namespace KestrelOpenCL
