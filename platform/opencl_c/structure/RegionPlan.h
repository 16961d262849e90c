#ifndef KESTREL_PLATFORM_OPENCL_C_STRUCTURE_REGIONPLAN_H
#define KESTREL_PLATFORM_OPENCL_C_STRUCTURE_REGIONPLAN_H

#include "platform/opencl_c/structure/FlowGraph.h"

#include <vector>

namespace KestrelOpenCL
{

/// Where the code of each node of a flow graph goes. A node stands
/// - at the only arm that leads to it, or
/// - after the code of its immediate dominator, where all paths to it have met, or
/// - if its dominator lies in a loop that it isn't part of, after the outermost such loop; a few blocks in front of a
///   jump out of a loop may stay at their arm, as they were written, or
/// - for a case of a switch that another case falls into: after that case.
class CRegionPlan
{
public:
    explicit CRegionPlan(const CFlowGraph& graph);

    /// Stands at the only forward arm that leads to it.
    bool IsInline(int nNode) const { return m_vInline[nNode]; }
    /// What stands after the node's own code, in its innermost loop, in order.
    const std::vector<int>& GetAfters(int nNode) const { return m_vAfters[nNode]; }
    /// What stands after the loop whose head the node is, in order.
    const std::vector<int>& GetLoopAfters(int nNode) const { return m_vLoopAfters[nNode]; }
    /// The case that the one which begins at the node falls into, -1 if there is none.
    int GetNextCase(int nNode) const { return m_vNextCase[nNode]; }
    /// Another case falls into it.
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
