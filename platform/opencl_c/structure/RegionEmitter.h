#ifndef KESTREL_PLATFORM_OPENCL_C_STRUCTURE_REGIONEMITTER_H
#define KESTREL_PLATFORM_OPENCL_C_STRUCTURE_REGIONEMITTER_H

#include "platform/opencl_c/structure/RegionPlan.h"
#include "platform/opencl_c/structure/Regions.h"

#include <vector>

namespace KestrelOpenCL
{

/// Writes the steps of a planned graph.
///
/// While a node's code is written, the frames say what surrounds it: loops, switches, and the nodes whose code comes
/// after it. A jump leads to one of these: control falls through to it, breaks out of the innermost loop or switch, or
/// continues the innermost loop. If code in between has to be skipped, that code gets a guard: a flag of each work-item
/// that its jumps set. Whether a guard is needed is known only after all jumps are written. So they are written with
/// slots, which Finish fills.
class CRegionEmitter
{
public:
    CRegionEmitter(const CFlowGraph& graph, const CRegionPlan& plan);

    /// To be called once.
    void Emit(SRegions& regions);

private:
    /// Code that comes after other code, and the jumps to it and past it.
    struct SAfter
    {
        int nNode = 0;
        int nJumpsTo = 0; ///< a sum of weights, like nJumpsPast
        int nJumpsPast = 0;
        bool bReachedUnsaid = false; ///< also reached by a way that has no slot
        int nGuard = -1;
        bool bStartsTrue = false; ///< the guard starts true and jumps past clear it; else jumps to it set it
    };
    /// A jump out of a loop or switch to a place that Break doesn't reach: it continues after the end.
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
    /// What a slot does to a guard, if the guard turns out to be needed.
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
    /// A step, or a slot for steps.
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
        bool bClosed = false; ///< the code for the else-part comes after the end of the if
    };
    enum EWay
    {
        Falls,   ///< control falls through to the target
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
    bool m_bFalls = true; ///< whether control reaches the current place
};

} // namespace KestrelOpenCL

#endif
