#ifndef KESTREL_PLATFORM_OPENCL_C_STRUCTURE_FLOWGRAPH_H
#define KESTREL_PLATFORM_OPENCL_C_STRUCTURE_FLOWGRAPH_H

#include <string>
#include <vector>

namespace llvm
{
class BasicBlock;
class Function;
} // namespace llvm

namespace KestrelOpenCL
{

/// An edge out of a node.
struct SFlowArm
{
    int nTarget = 0;    ///< the target of the function's edge
    int nTo = 0;        ///< the node that it leads to here: nTarget, or a dispatcher before it
    bool bBack = false; ///< leads to the head of a loop that contains the node
};

/// A block of the function, a dispatcher (no block), or the end of the function (no block, no arms).
struct SFlowNode
{
    llvm::BasicBlock* pBlock = nullptr;
    std::vector<SFlowArm> vArms; ///< no two with the same target
    std::vector<int> vPreds;     ///< one entry for each forward arm that leads here
    int nLoop = -1;              ///< innermost loop that contains the node
    int nDominator = -1;         ///< immediate dominator; -1 for the entry and for unreachable nodes
    int nOrder = -1;             ///< place in a topological order of the forward arms; -1 if unreachable
    // Of the node and all nodes that it dominates:
    int nSize = 1;
    bool bHasBarrier = false;
    bool bHasLoop = false;
};

struct SFlowLoop
{
    int nHead = 0;
    int nParent = -1;
    int nDepth = 0;
};

/// The flow graph of a function, with its loops and dominators. A loop that has several entries gets a dispatcher: a
/// node without a block, through which all arms from outside to the entries lead, and all arms from inside to the first
/// entry. So each loop has one head, which dominates it.
class CFlowGraph
{
public:
    /// \return false, with the reason, for a terminator other than br, switch, ret or unreachable
    bool Build(llvm::Function& function, std::string& strWhyNot);

    const std::vector<SFlowNode>& GetNodes() const { return m_vNodes; }
    const SFlowNode& GetNode(int nNode) const { return m_vNodes[nNode]; }
    const std::vector<SFlowLoop>& GetLoops() const { return m_vLoops; }
    /// The reachable nodes in topological order, the entry first.
    const std::vector<int>& GetOrder() const { return m_vOrder; }
    /// The node that all returns lead to.
    int GetEnd() const { return m_nEnd; }
    bool IsHead(int nNode) const;
    bool IsInLoop(int nNode, int nLoop) const;
    /// The outermost loop that contains nInside but not nOutside, -1 if there is none.
    int OutermostLeft(int nInside, int nOutside) const;

private:
    bool AddBlocks(llvm::Function& function, std::string& strWhyNot);
    void FindLoops();
    void SplitRegion(const std::vector<int>& vRegion, int nParentLoop);
    void AddLoop(std::vector<int> vMembers, int nParentLoop);
    int AddDispatcher(const std::vector<int>& vEntries);
    void OrderNodes();
    void FindDominators();
    int CommonDominator(int nA, int nB) const;

    struct SPendingRegion
    {
        std::vector<int> vNodes;
        int nParentLoop;
    };

    std::vector<SFlowNode> m_vNodes;
    std::vector<SFlowLoop> m_vLoops;
    std::vector<int> m_vOrder;
    int m_nEnd = -1;
    std::vector<SPendingRegion> m_vPending;
    std::vector<std::vector<int>> m_vAllPreds; ///< while searching for loops: includes back arms and unreachable nodes
    std::vector<int> m_vRegion;                ///< by node, the region that is being split
    std::vector<int> m_vComponent;             ///< by node, a mark of the latest component
    int m_nRegions = 0;
    int m_nComponents = 0;
    std::vector<int> m_vDepth; ///< in the tree of dominators
    std::vector<int> m_vJump;  ///< a dominator further up
};

} // namespace KestrelOpenCL

#endif
