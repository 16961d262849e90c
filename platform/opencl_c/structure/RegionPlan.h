#ifndef KESTREL_PLATFORM_OPENCL_C_STRUCTURE_REGIONPLAN_H
#define KESTREL_PLATFORM_OPENCL_C_STRUCTURE_REGIONPLAN_H

#include "platform/opencl_c/structure/FlowGraph.h"

#include <vector>

namespace KestrelOpenCL
{

/// Decides where the code of each node of a flow graph goes:
/// - at the only arm that leads to it, or
/// - after the code of its immediate dominator, where all paths to it have met, or
/// - after a loop: if its dominator is in a loop that doesn't contain the node, after the outermost such loop. A few
/// blocks
///   before a jump out of a loop may stay at their arm, as in the source. Or
/// - after the case of a switch that falls into it.
class CRegionPlan
{
public:
    explicit CRegionPlan(const CFlowGraph& graph);

    /// Whether it stands at the only forward arm that leads to it.
    bool IsInline(int nNode) const { return m_vInline[nNode]; }
    /// The nodes placed after the node's own code, within its innermost loop, in order.
    const std::vector<int>& GetAfters(int nNode) const { return m_vAfters[nNode]; }
    /// The nodes placed after the loop whose head this is, in order.
    const std::vector<int>& GetLoopAfters(int nNode) const { return m_vLoopAfters[nNode]; }
    /// The case that the case at this node falls into, -1 if there is none.
    int GetNextCase(int nNode) const { return m_vNextCase[nNode]; }
    /// Whether another case falls into it.
    bool IsFallenInto(int nNode) const { return m_vFallenInto[nNode]; }

private:
    void PlaceCases(int nSwitch);
    int CaseThatFallsInto(int nSwitch, int nCase) const;
    int CaseAbove(int nSwitch, int nNode) const;
    void PlaceLoopExits(int nLoop, const std::vector<int>& vExits);
    bool LeavesFromEnds(int nLoop, int nExit) const;

    const CFlowGraph& m_Graph;
    std::vector<bool> m_vInline;
    std::vector<bool> m_vFallenInto;
    std::vector<int> m_vNextCase;
    std::vector<std::vector<int>> m_vAfters;
    std::vector<std::vector<int>> m_vLoopAfters;
};

} // namespace KestrelOpenCL

#endif
