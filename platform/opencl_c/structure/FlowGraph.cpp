#include "platform/opencl_c/structure/FlowGraph.h"

#include "llvm/ADT/DenseMap.h"
#include "llvm/ADT/DenseSet.h"
#include "llvm/IR/BasicBlock.h"
#include "llvm/IR/CFG.h"
#include "llvm/IR/Function.h"
#include "llvm/IR/InstrTypes.h"
#include "llvm/IR/Instructions.h"

#include <algorithm>

namespace KestrelOpenCL
{

namespace
{

bool HoldsBarrier(const llvm::BasicBlock& block)
{
    return std::any_of(block.begin(), block.end(),
                       [](const llvm::Instruction& instruction)
                       {
                           const auto* pCall = llvm::dyn_cast<llvm::CallBase>(&instruction);
                           return pCall && pCall->isConvergent();
                       });
}

llvm::DenseSet<const llvm::BasicBlock*> FindReached(const llvm::Function& function)
{
    llvm::DenseSet<const llvm::BasicBlock*> setReached;
    std::vector<const llvm::BasicBlock*> vOpen{&function.getEntryBlock()};
    setReached.insert(vOpen[0]);
    while (!vOpen.empty())
    {
        const llvm::BasicBlock* pBlock = vOpen.back();
        vOpen.pop_back();
        for (const llvm::BasicBlock* pNext : llvm::successors(pBlock))
        {
            if (setReached.insert(pNext).second)
            {
                vOpen.push_back(pNext);
            }
        }
    }
    return setReached;
}

bool IsKnownTerminator(const llvm::Instruction& instruction)
{
    return llvm::isa<llvm::BranchInst, llvm::SwitchInst, llvm::ReturnInst, llvm::UnreachableInst>(instruction);
}

} // namespace

bool CFlowGraph::Build(llvm::Function& function, std::string& strWhyNot)
{
    if (!AddBlocks(function, strWhyNot))
    {
        return false;
    }
    FindLoops();
    OrderNodes();
    FindDominators();
    return true;
}

bool CFlowGraph::AddBlocks(llvm::Function& function, std::string& strWhyNot)
{
    // Only reachable blocks, so that unreachable ones don't count as ways into a loop. They keep the function's order,
    // which usually is the source's: it decides where loops begin.
    const llvm::DenseSet<const llvm::BasicBlock*> setReached = FindReached(function);
    llvm::DenseMap<const llvm::BasicBlock*, int> mapNodes;
    std::vector<llvm::BasicBlock*> vBlocks;
    for (llvm::BasicBlock& block : function)
    {
        if (setReached.count(&block))
        {
            mapNodes[&block] = static_cast<int>(vBlocks.size());
            vBlocks.push_back(&block);
        }
    }
    m_nEnd = static_cast<int>(vBlocks.size());
    m_vNodes.resize(vBlocks.size() + 1);
    for (size_t n = 0; n < vBlocks.size(); ++n)
    {
        SFlowNode& node = m_vNodes[n];
        node.pBlock = vBlocks[n];
        node.bHasBarrier = HoldsBarrier(*vBlocks[n]);
        const llvm::Instruction* pTerminator = vBlocks[n]->getTerminator();
        if (!pTerminator || !IsKnownTerminator(*pTerminator))
        {
            strWhyNot = "a jump to a computed place";
            return false;
        }
        llvm::SmallDenseSet<int, 8> setTargets;
        for (const llvm::BasicBlock* pNext : llvm::successors(vBlocks[n]))
        {
            const int nTarget = mapNodes[pNext];
            if (setTargets.insert(nTarget).second)
            {
                node.vArms.push_back({nTarget, nTarget, false});
            }
        }
        if (node.vArms.empty())
        {
            node.vArms.push_back({m_nEnd, m_nEnd, false});
        }
    }
    return true;
}

bool CFlowGraph::IsHead(int nNode) const
{
    const int nLoop = m_vNodes[nNode].nLoop;
    return nLoop >= 0 && m_vLoops[nLoop].nHead == nNode;
}

bool CFlowGraph::IsInLoop(int nNode, int nLoop) const
{
    int nInner = m_vNodes[nNode].nLoop;
    while (nInner >= 0 && m_vLoops[nInner].nDepth > m_vLoops[nLoop].nDepth)
    {
        nInner = m_vLoops[nInner].nParent;
    }
    return nInner == nLoop;
}

int CFlowGraph::OutermostLeft(int nInside, int nOutside) const
{
    int nLeft = -1;
    for (int nLoop = m_vNodes[nInside].nLoop; nLoop >= 0 && !IsInLoop(nOutside, nLoop); nLoop = m_vLoops[nLoop].nParent)
    {
        nLeft = nLoop;
    }
    return nLeft;
}

/// Finds loops from the outside in: the strongly connected components, then those of each without the arms to its head.
void CFlowGraph::FindLoops()
{
    m_vAllPreds.assign(m_vNodes.size(), {});
    std::vector<int> vAll;
    for (size_t n = 0; n < m_vNodes.size(); ++n)
    {
        vAll.push_back(static_cast<int>(n));
        for (const SFlowArm& arm : m_vNodes[n].vArms)
        {
            m_vAllPreds[arm.nTo].push_back(static_cast<int>(n));
        }
    }
    m_vRegion.assign(m_vNodes.size(), 0);
    m_vComponent.assign(m_vNodes.size(), 0);
    m_vPending.push_back({std::move(vAll), -1});
    while (!m_vPending.empty())
    {
        const SPendingRegion region = std::move(m_vPending.back());
        m_vPending.pop_back();
        SplitRegion(region.vNodes, region.nParentLoop);
    }
    m_vAllPreds.clear();
}

/// Tarjan's algorithm on the nodes of a region, with an explicit stack instead of recursion.
void CFlowGraph::SplitRegion(const std::vector<int>& vRegion, int nParentLoop)
{
    struct SVisit
    {
        int nNode;
        size_t nArm;
    };
    ++m_nRegions;
    for (int nNode : vRegion)
    {
        m_vRegion[nNode] = m_nRegions;
    }
    llvm::DenseMap<int, int> mapIndex;
    llvm::DenseMap<int, int> mapLow;
    llvm::DenseSet<int> setOpen;
    std::vector<int> vOpen;
    std::vector<SVisit> vVisits;
    std::vector<std::vector<int>> vComponents;
    int nNext = 0;
    const auto Enter = [&](int nNode)
    {
        mapIndex[nNode] = mapLow[nNode] = nNext++;
        vOpen.push_back(nNode);
        setOpen.insert(nNode);
        vVisits.push_back({nNode, 0});
    };
    const auto Leave = [&](int nNode)
    {
        const int nLow = mapLow[nNode];
        vVisits.pop_back();
        if (!vVisits.empty())
        {
            int& nAbove = mapLow[vVisits.back().nNode];
            nAbove = std::min(nAbove, nLow);
        }
        if (nLow != mapIndex[nNode])
        {
            return;
        }
        std::vector<int> vMembers;
        do
        {
            vMembers.push_back(vOpen.back());
            setOpen.erase(vOpen.back());
            vOpen.pop_back();
        } while (vMembers.back() != nNode);
        const auto& vArms = m_vNodes[nNode].vArms;
        if (vMembers.size() > 1 || std::any_of(vArms.begin(), vArms.end(),
                                               [&](const SFlowArm& arm) { return arm.nTo == nNode && !arm.bBack; }))
        {
            vComponents.push_back(std::move(vMembers));
        }
    };
    for (int nRoot : vRegion)
    {
        if (mapIndex.count(nRoot))
        {
            continue;
        }
        Enter(nRoot);
        while (!vVisits.empty())
        {
            SVisit& visit = vVisits.back();
            const auto& vArms = m_vNodes[visit.nNode].vArms;
            if (visit.nArm == vArms.size())
            {
                Leave(visit.nNode);
                continue;
            }
            const SFlowArm& arm = vArms[visit.nArm++];
            if (arm.bBack || m_vRegion[arm.nTo] != m_nRegions)
            {
                continue;
            }
            if (!mapIndex.count(arm.nTo))
            {
                Enter(arm.nTo);
            }
            else if (setOpen.count(arm.nTo))
            {
                int& nLow = mapLow[visit.nNode];
                nLow = std::min(nLow, mapIndex[arm.nTo]);
            }
        }
    }
    for (std::vector<int>& vMembers : vComponents)
    {
        AddLoop(std::move(vMembers), nParentLoop);
    }
}

void CFlowGraph::AddLoop(std::vector<int> vMembers, int nParentLoop)
{
    ++m_nComponents;
    for (int nNode : vMembers)
    {
        m_vComponent[nNode] = m_nComponents;
    }
    // In the function's order, so that the result doesn't depend on how the component was found.
    std::sort(vMembers.begin(), vMembers.end());
    std::vector<int> vEntries;
    for (int nNode : vMembers)
    {
        const auto& vPreds = m_vAllPreds[nNode];
        if (std::any_of(vPreds.begin(), vPreds.end(), [&](int nPred) { return m_vComponent[nPred] != m_nComponents; }))
        {
            vEntries.push_back(nNode);
        }
    }
    const int nHead = vEntries.size() == 1 ? vEntries[0] : AddDispatcher(vEntries);
    const int nLoop = static_cast<int>(m_vLoops.size());
    m_vLoops.push_back({nHead, nParentLoop, nParentLoop < 0 ? 0 : m_vLoops[nParentLoop].nDepth + 1});
    m_vNodes[nHead].nLoop = nLoop;
    for (int nNode : vMembers)
    {
        m_vNodes[nNode].nLoop = nLoop;
        for (SFlowArm& arm : m_vNodes[nNode].vArms)
        {
            arm.bBack = arm.bBack || arm.nTo == nHead;
        }
    }
    vMembers.erase(std::remove(vMembers.begin(), vMembers.end(), nHead), vMembers.end());
    m_vPending.push_back({std::move(vMembers), nLoop});
}

/// Leads all arms to the first entry, and outside arms to the others, through a new node. Without the arms to the first
/// entry, the cycle has fewer nodes left.
int CFlowGraph::AddDispatcher(const std::vector<int>& vEntries)
{
    const int nNode = static_cast<int>(m_vNodes.size());
    m_vNodes.emplace_back();
    m_vAllPreds.emplace_back();
    m_vRegion.push_back(0);
    m_vComponent.push_back(0);
    for (int nEntry : vEntries)
    {
        std::vector<int> vKept{nNode};
        for (int nPred : m_vAllPreds[nEntry])
        {
            if (nEntry != vEntries[0] && m_vComponent[nPred] == m_nComponents)
            {
                vKept.push_back(nPred);
                continue;
            }
            for (SFlowArm& arm : m_vNodes[nPred].vArms)
            {
                if (arm.nTo == nEntry)
                {
                    arm.nTo = nNode;
                    m_vAllPreds[nNode].push_back(nPred);
                }
            }
        }
        m_vAllPreds[nEntry] = std::move(vKept);
        m_vNodes[nNode].vArms.push_back({nEntry, nEntry, false});
    }
    return nNode;
}

/// Reverse postorder over the forward arms, the first arm of a node first.
void CFlowGraph::OrderNodes()
{
    struct SVisit
    {
        int nNode;
        size_t nArmsLeft;
    };
    std::vector<bool> vSeen(m_vNodes.size());
    std::vector<SVisit> vVisits{{0, m_vNodes[0].vArms.size()}};
    vSeen[0] = true;
    while (!vVisits.empty())
    {
        SVisit& visit = vVisits.back();
        if (visit.nArmsLeft == 0)
        {
            m_vOrder.push_back(visit.nNode);
            vVisits.pop_back();
            continue;
        }
        const SFlowArm& arm = m_vNodes[visit.nNode].vArms[--visit.nArmsLeft];
        if (arm.bBack)
        {
            continue;
        }
        m_vNodes[arm.nTo].vPreds.push_back(visit.nNode);
        if (!vSeen[arm.nTo])
        {
            vSeen[arm.nTo] = true;
            vVisits.push_back({arm.nTo, m_vNodes[arm.nTo].vArms.size()});
        }
    }
    std::reverse(m_vOrder.begin(), m_vOrder.end());
    for (size_t n = 0; n < m_vOrder.size(); ++n)
    {
        m_vNodes[m_vOrder[n]].nOrder = static_cast<int>(n);
    }
}

/// The forward arms have no cycle, and back arms don't change dominators. So one pass is enough: a node's dominator is
/// the nearest common dominator of its predecessors.
void CFlowGraph::FindDominators()
{
    m_vDepth.assign(m_vNodes.size(), 0);
    m_vJump.assign(m_vNodes.size(), 0);
    for (int nNode : m_vOrder)
    {
        SFlowNode& node = m_vNodes[nNode];
        if (node.vPreds.empty())
        {
            continue;
        }
        int nDominator = node.vPreds[0];
        for (int nPred : node.vPreds)
        {
            nDominator = CommonDominator(nDominator, nPred);
        }
        node.nDominator = nDominator;
        m_vDepth[nNode] = m_vDepth[nDominator] + 1;
        // The lengths of jumps follow skew binary numbers, so that any dominator is a logarithmic number of jumps away.
        const int nJump = m_vJump[nDominator];
        const bool bEqual = m_vDepth[nDominator] - m_vDepth[nJump] == m_vDepth[nJump] - m_vDepth[m_vJump[nJump]];
        m_vJump[nNode] = bEqual ? m_vJump[nJump] : nDominator;
    }
    for (size_t n = m_vOrder.size(); n-- > 1;)
    {
        SFlowNode& node = m_vNodes[m_vOrder[n]];
        node.bHasLoop = node.bHasLoop || IsHead(m_vOrder[n]);
        SFlowNode& above = m_vNodes[node.nDominator];
        above.nSize += node.nSize;
        above.bHasBarrier = above.bHasBarrier || node.bHasBarrier;
        above.bHasLoop = above.bHasLoop || node.bHasLoop;
    }
}

int CFlowGraph::CommonDominator(int nA, int nB) const
{
    if (m_vDepth[nA] < m_vDepth[nB])
    {
        std::swap(nA, nB);
    }
    while (m_vDepth[nA] > m_vDepth[nB])
    {
        nA = m_vDepth[m_vJump[nA]] >= m_vDepth[nB] ? m_vJump[nA] : m_vNodes[nA].nDominator;
    }
    while (nA != nB)
    {
        const bool bJump = m_vJump[nA] != m_vJump[nB];
        nA = bJump ? m_vJump[nA] : m_vNodes[nA].nDominator;
        nB = bJump ? m_vJump[nB] : m_vNodes[nB].nDominator;
    }
    return nA;
}

} // namespace KestrelOpenCL
