#include "platform/opencl_c/structure/RegionPlan.h"

#include "llvm/IR/BasicBlock.h"
#include "llvm/IR/Instructions.h"

#include <algorithm>

namespace KestrelOpenCL
{

namespace
{

/// Exits with more blocks than this are moved out of the loop that they follow: within it, work-items that leave in
/// different passes would run them one after another.
const int s_nMaxExitSize = 16;

} // namespace

CRegionPlan::CRegionPlan(const CFlowGraph& graph)
    : m_Graph(graph), m_vInline(graph.GetNodes().size()), m_vFallenInto(graph.GetNodes().size()),
      m_vNextCase(graph.GetNodes().size(), -1), m_vAfters(graph.GetNodes().size()),
      m_vLoopAfters(graph.GetNodes().size())
{
    std::vector<std::vector<int>> vExits(graph.GetLoops().size());
    for (int nNode : graph.GetOrder())
    {
        const SFlowNode& node = graph.GetNode(nNode);
        if (node.nDominator < 0 || nNode == graph.GetEnd())
        {
            continue;
        }
        const int nLeft = graph.OutermostLeft(node.nDominator, nNode);
        if (nLeft >= 0)
        {
            vExits[nLeft].push_back(nNode);
        }
        else if (node.vPreds.size() == 1)
        {
            m_vInline[nNode] = true;
        }
        else
        {
            m_vAfters[node.nDominator].push_back(nNode);
        }
    }
    for (int nNode : graph.GetOrder())
    {
        const llvm::BasicBlock* pBlock = graph.GetNode(nNode).pBlock;
        if (pBlock && llvm::isa<llvm::SwitchInst>(pBlock->getTerminator()))
        {
            PlaceCases(nNode);
        }
    }
    for (size_t n = 0; n < vExits.size(); ++n)
    {
        PlaceLoopExits(static_cast<int>(n), vExits[n]);
    }
    if (graph.GetNode(graph.GetEnd()).nOrder >= 0)
    {
        (graph.IsHead(0) ? m_vLoopAfters : m_vAfters)[0].push_back(graph.GetEnd());
    }
}

/// The arm of a switch whose target dominates the node, -1 if there is none.
int CRegionPlan::CaseAbove(int nSwitch, int nNode) const
{
    while (nNode >= 0 && m_Graph.GetNode(nNode).nDominator != nSwitch)
    {
        nNode = m_Graph.GetNode(nNode).nDominator;
    }
    if (nNode < 0)
    {
        return -1;
    }
    const auto& vArms = m_Graph.GetNode(nSwitch).vArms;
    const bool bCase = std::any_of(vArms.begin(), vArms.end(), [&](const SFlowArm& arm) { return arm.nTo == nNode; });
    return bCase ? nNode : -1;
}

/// The only case that falls into this one, -1 if there is none or more than one.
int CRegionPlan::CaseThatFallsInto(int nSwitch, int nCase) const
{
    int nFrom = -1;
    for (int nPred : m_Graph.GetNode(nCase).vPreds)
    {
        if (nPred == nSwitch)
        {
            continue;
        }
        const int nAbove = CaseAbove(nSwitch, nPred);
        if (nAbove < 0 || (nFrom >= 0 && nFrom != nAbove))
        {
            return -1;
        }
        nFrom = nAbove;
    }
    return nFrom;
}

/// Places cases that others fall into after those. The last place where paths meet is an exception: it comes after the
/// switch.
void CRegionPlan::PlaceCases(int nSwitch)
{
    std::vector<int>& vAfters = m_vAfters[nSwitch];
    const auto& vArms = m_Graph.GetNode(nSwitch).vArms;
    std::vector<int> vStay;
    for (size_t n = 0; n < vAfters.size(); ++n)
    {
        const int nCase = vAfters[n];
        const bool bArm =
            n + 1 < vAfters.size() && m_Graph.GetNode(nCase).pBlock &&
            std::any_of(vArms.begin(), vArms.end(), [&](const SFlowArm& arm) { return arm.nTo == nCase; });
        const int nFrom = bArm ? CaseThatFallsInto(nSwitch, nCase) : -1;
        if (nFrom >= 0 && m_vNextCase[nFrom] < 0 && (m_vInline[nFrom] || m_vFallenInto[nFrom]))
        {
            m_vNextCase[nFrom] = nCase;
            m_vFallenInto[nCase] = true;
        }
        else
        {
            vStay.push_back(nCase);
        }
    }
    vAfters = std::move(vStay);
}

/// Whether the exit is the usual one of a loop: from its head, or from where it jumps back to the head.
bool CRegionPlan::LeavesFromEnds(int nLoop, int nExit) const
{
    const int nHead = m_Graph.GetLoops()[nLoop].nHead;
    const int nFrom = m_Graph.GetNode(nExit).vPreds[0];
    const auto& vArms = m_Graph.GetNode(nFrom).vArms;
    return nFrom == nHead ||
           std::any_of(vArms.begin(), vArms.end(), [&](const SFlowArm& arm) { return arm.bBack && arm.nTo == nHead; });
}

void CRegionPlan::PlaceLoopExits(int nLoop, const std::vector<int>& vExits)
{
    const auto MayStay = [&](int nExit)
    {
        const SFlowNode& node = m_Graph.GetNode(nExit);
        return node.vPreds.size() == 1 && !node.bHasBarrier && !node.bHasLoop && node.nSize <= s_nMaxExitSize &&
               !LeavesFromEnds(nLoop, nExit);
    };
    int nLargest = -1;
    bool bAllMayStay = true;
    for (int nExit : vExits)
    {
        bAllMayStay = bAllMayStay && MayStay(nExit);
        if (nLargest < 0 || m_Graph.GetNode(nExit).nSize >= m_Graph.GetNode(nLargest).nSize)
        {
            nLargest = nExit;
        }
    }
    std::vector<int>& vAfters = m_vLoopAfters[m_Graph.GetLoops()[nLoop].nHead];
    for (int nExit : vExits)
    {
        m_vInline[nExit] = MayStay(nExit) && !(bAllMayStay && nExit == nLargest);
        if (!m_vInline[nExit])
        {
            vAfters.push_back(nExit);
        }
    }
}

} // namespace KestrelOpenCL
