#ifndef KESTREL_PLATFORM_OPENCL_C_STRUCTURE_REGIONEMITTER_H
#define KESTREL_PLATFORM_OPENCL_C_STRUCTURE_REGIONEMITTER_H

#include "platform/opencl_c/structure/RegionPlan.h"
#include "platform/opencl_c/structure/Regions.h"

#include <vector>

namespace KestrelOpenCL
{

/// Writes the steps of a planned graph.
///
/// While a node's code is written, the frames tell what stands around it: loops, switches, and the nodes whose code
/// comes after it. A jump goes to one of these: control falls there, or breaks out of the innermost loop or switch, or
/// continues the innermost loop. Where what lies between has to be passed over, that gets a guard: a flag of each
/// work-item that its jumps set. Whether a guard is needed is only known when all jumps are written; so they are
/// written with slots, which Finish fills.
class CRegionEmitter
{
public:
    CRegionEmitter(const CFlowGraph& graph, const CRegionPlan& plan);

    /// Once.
    void Emit(SRegions& regions);

private:
    /// Code that stands after other code, and the jumps to it and past it.
    struct SAfter
    {
        int nNode = 0;
        int nJumpsTo = 0; ///< by weight, as those past it
        int nJumpsPast = 0;
        bool bReachedUnsaid = false; ///< also by a way that has no place for a slot
        int nGuard = -1;
        bool bStartsTrue = false; ///< the guard: jumps past it clear it; else jumps to it set it
    };
    /// A jump out of a loop or switch to where no Break leads: it goes on after the end.
    struct SRoute
    {
        int nTo = 0;
        int nGuard = -1;
    };
    struct SScope
    {
        int nStartSlot = 0;
        std::vector<int> vRoutes;
        bool bLeftByBreak = false; ///< by a jump that needs no route
    };
    struct SFrame
    {
        enum EKind
        {
            After,
            Loop,
            Switch
        };
        EKind eKind = After;
        int nNode = 0;
        int nIndex = 0; ///< of the SAfter or SScope
    };
    /// What a slot does to guards, if they turn out to be needed.
    struct SSlotEntry
    {
        enum EKind
        {
            StartAfter,
            JumpTo,
            JumpPast,
            StartRoute,
            TakeRoute
        };
        EKind eKind = StartAfter;
        int nIndex = 0; ///< of the SAfter or SRoute
    };
    /// A step, or a place for steps.
    struct SDraft
    {
        int nSlot = -1;
        SRegionStep step;
    };
    struct STask
    {
        enum EKind
        {
            Node,
            Terminator,
            Else,
            EndIf,
            After,
            EndAfter,
            EndLoop,
            Case,
            NextCase,
            EndCase,
            EndSwitch
        };
        EKind eKind = Node;
        int nNode = 0;
        int nIndex = 0; ///< of an arm or SAfter
    };
    struct SOpenIf
    {
        bool bThenFalls = false;
        bool bClosed = false; ///< what would be the else-part stands after the end
    };
    enum EWay
    {
        Falls,   ///< control falls to the target
        Breaks,  ///< Break leads there
        Repeats, ///< Continue leads there
        TakesRoute
    };

    void Run(const STask& task);
    void EmitNode(int nNode);
    int PushAfters(const std::vector<int>& vNodes);
    void ScheduleAfters(size_t nCount, int nFirst);
    void EmitAfter(const STask& task);
    void EndAfter(const STask& task);
    void OpenScope(SFrame::EKind eFrame, SRegionStep::EKind eStep, int nNode);
    void CloseScope(SRegionStep::EKind eStep);

    void EmitTerminator(int nNode);
    void EmitBranch(int nNode, int nArm);
    void EmitElse(const STask& task);
    void EmitEndIf(const STask& task);
    void EmitLeavingArm(int nNode, int nArm, int nGuard, bool bValue);
    void EmitArm(int nNode, int nArm);
    void EmitArmStart(int nNode, int nArm);
    bool ArmLeaves(int nNode, int nArm) const;

    void EmitSwitch(int nNode);
    void EmitCase(int nNode, int nArm);
    void EmitNextCase(const STask& task);
    void AddCase(int nNode, int nArm);
    void ScheduleEndOfCase(int nNode, int nCase);
    void EndCase();
    bool IsOwnFallenInto(int nNode, int nArm) const;
    bool IsCaseInside(int nNode, int nArm) const;
    bool IsBareDefault(int nNode, int nArm) const;

    EWay FindWay(int nTo) const;
    void Jump(int nTo, int nFrom);
    void NoteJump(int nTop, int nTo, int nFrom);
    void TakeRoute(int nTo, int nFrom);
    int AddSlot(std::vector<SSlotEntry> vEntries, int nFrom);

    void Push(STask::EKind eKind, int nNode, int nIndex) { m_vTasks.push_back({eKind, nNode, nIndex}); }
    SRegionStep& Add(SRegionStep::EKind eKind, int nNode);
    void AddIf(int nNode, int nGuard, bool bValue);
    bool NeedsCopies(int nNode, int nArm) const;

    void Finish(SRegions& regions);
    void FillSlot(const SDraft& draft, std::vector<SRegionStep>& vSteps) const;

    const CFlowGraph& m_Graph;
    const CRegionPlan& m_Plan;
    std::vector<SFrame> m_vFrames;
    std::vector<int> m_vScopeFrames; ///< loops and switches among the frames
    std::vector<int> m_vLoopFrames;  ///< loops among the frames
    std::vector<STask> m_vTasks;
    std::vector<SOpenIf> m_vOpenIfs;
    std::vector<SAfter> m_vAfters;
    std::vector<SRoute> m_vRoutes;
    std::vector<SScope> m_vScopes;
    std::vector<SDraft> m_vDrafts;
    std::vector<std::vector<SSlotEntry>> m_vSlots;
    std::vector<int> m_vDispatchGuards; ///< by node, the first guard of a dispatcher, one for each arm but the last
    int m_nGuards = 0;
    bool m_bFalls = true; ///< whether control comes to the place that is being written
};

} // namespace KestrelOpenCL

#endif
