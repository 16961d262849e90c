#ifndef KESTREL_ENGINE_SHADERDEBUGGERSHADERIL_H
#define KESTREL_ENGINE_SHADERDEBUGGERSHADERIL_H

#include "engine/BlockWalk.h"
#include "engine/KernelCourse.h"
#include "engine/LaneFlow.h"
#include "engine/MemoryAtStop.h"
#include "engine/PatchedRuns.h"
#include "engine/StopHistory.h"
#include "instrument/InstrumentedShaderIL.h"

#include <cstdint>
#include <optional>

namespace OVK_ShaderDebugger
{

class CShaderDebuggerDeviceBuffer;
class CShaderDebuggerIL;

/// The kernel under debug, complete: its top layer decides where the position moves and makes the kernel runs.
///
/// All work-items share one position. A movement has three phases: the first makes the next instruction the current
/// one and puts what is to be observed there on m_ExecuteList, Execute runs patched kernels for that, and the last
/// phase works out the next instruction from how many work-items were active. That count, for each position, is the
/// only thing that steers the position.
///
/// The rest is done by parts of their own, which don't know this class: where the text can lead (CKernelCourse), where
/// the work-items are (CLaneFlow), what a run passes over (CBlockWalk), the stops so far (CStopHistory), the runs
/// (CPatchedRuns), and memory at a stop (CMemoryAtStop).
class CShaderDebuggerShaderIL : public CInstrumentedShaderIL
{
public:
    CShaderDebuggerShaderIL(CShaderDebuggerIL* pDebugger, const void* pShaderData, size_t nShaderSize);
    ~CShaderDebuggerShaderIL() override;

    // The frame and the lines (ShaderDebuggerShaderIL.cpp).
    bool StartDebugging(Mode mode) override;
    void EndDebugging() override;
    bool GetShaderText(std::string& strShader, Mode textType) override;
    bool GetShaderKeyWords(KeyWordsList& keyWords, Mode textType) override;
    Mode GetMode() const override { return DM_Asm; }
    bool SetMode(Mode) override { return true; }
    bool Draw() override;
    InstructionNumber GetInstruction(LineNumber nLineNumber) const override;
    LineNumber GetLine(InstructionNumber nInstructionNumber) const override;
    LineNumber GetCurrentLine() const override;
    LineNumber GetNextLine() const override;
    LineNumber GetPreviousLine() const override;

    // Movements.
    bool Step() override { return StepAsm(); }
    bool Back() override { return BackAsm(); }
    bool Run() override { return RunAsm(); }
    /// Passes the first instruction without a kernel run.
    /// \param nItems  the dispatch's work-items, all of which execute it
    /// \return false for one that needs a run
    bool PassFirst(uint64_t nItems);
    bool RunBack() override { return RunBackAsm(); }
    /// Works off m_ExecuteList: one kernel run for each register of each patch point.
    /// \return false if anything failed; the results of what didn't fail are kept
    bool Execute(bool bUpdateHistory) override;

    /// Stores how many work-items the mask holds as active for a position of the present call.
    virtual void UpdateExecMaskHistory(const ProgramCounter& pc, CShaderDebuggerBuffer* pExecMask);
    /// The same where the mask has been counted already.
    void NoteActiveCount(const ProgramCounter& pc, uint64_t nActive);
    virtual bool PostStep();
    /// Advances the next instruction in program order, into and out of calls. \return false at the end of the kernel
    virtual bool UpdateNextInst();
    virtual bool PostBack();
    /// The register that an instruction writes; g_Reg_NULL if there is none.
    virtual Register GetDestRegister(ProgramCounter nTargetInstruction);
    virtual Register GetCurrentRegister();
    virtual Register GetSrcRegister(InstructionNumber nInstruction, unsigned int nSrcReg);
    virtual Register GetSrcRegister(ProgramCounter nInstruction, unsigned int nSrcReg);
    /// The first line from nLineNumber on that holds an instruction, at most lookAhead lines on (the largest number:
    /// any); g_INVALID_LINE_NUMBER if there is none.
    virtual LineNumber GetNearestLine(LineNumber nLineNumber, LineNumber lookAhead);
    /// Adds the current instruction with its register to m_ExecuteList.
    virtual bool UpdateTargetInstruction(bool bClearExecuteList);

    /// The calls that the current instruction is in: their instructions' positions, the innermost first.
    const CCallPath& GetCallPath() const { return m_CurrentCallStack; }
    /// Whether the last run has also read where work-items leave a skipped stretch, and marked those in the mask.
    bool ReadsLeavers() const { return !GetLeaving().empty(); }
    /// Removes those work-items from a mask.
    static void HideLeavers(CShaderDebuggerBuffer& execMask);
    /// Makes sure that the last run was one of the kernel as it is, so that the working copies hold its outputs. Says
    /// in the last error where they differ from what the session's own runs left.
    /// \return false if the working copies don't hold the outputs
    bool CompleteKernel() { return m_Runs.Complete(m_bRunsDiffer); }
    /// Whether anything up to and including the present stop may have changed global memory.
    bool MayHaveWritten() const { return m_Course.MayHaveWritten(Here()); }
    /// Makes the working copies hold global memory as it is at the present stop, with a run of its own if the last run
    /// didn't leave them so. \return false if that isn't possible
    bool BringMemory() { return m_Memory.BringGlobal(Here()); }
    /// A block of local memory, by its number or by the index of its argument; null if there is none.
    const SLocalBlock* FindLocalBlock(bool bArgument, unsigned int nNumber)
    {
        return m_Memory.FindLocalBlock(bArgument, nNumber);
    }
    /// The local memory of a work-group at the present stop, in which the offsets of blocks count. The bytes stay until
    /// the next movement. Empty if there is no such group, null if the run that is needed fails.
    const std::vector<unsigned char>* BringLocalMemory(unsigned int nGroup)
    {
        return m_Memory.BringLocal(Here(), nGroup);
    }
    /// The next patched kernel is made anew.
    void DropPatchedKernel() { m_Runs.DropPatchedKernel(); }
    /// The registers that work-items may have written up to the present stop, whole, the latest first, as far as a run
    /// can read them at any stop.
    std::vector<Register> FindWritten() const;
    /// Called before a movement. \return false if what an earlier one has overwritten can't be read again
    bool BeginMovement();
    /// After a movement of which a run was broken off: goes to the stop where it began, or on a way back to the
    /// earliest one that it had come to. No run is made for it.
    /// \param[out] bSameStop  whether it is where it began
    /// \return false if there is no stop
    bool ReturnToStop(bool& bSameStop);
    /// Reads the registers again that a movement had read before it was broken off.
    bool RestoreOverwritten();
    /// Reads the mask of the present stop again.
    bool ReadStopMask();
    /// The values of some registers at the present stop, by one run.
    bool ReadValues(const std::vector<Register>& vRegisters, unsigned int nPlane, CShaderDebuggerDeviceBuffer& values)
    {
        return m_Memory.ReadValues(Here(), vRegisters, nPlane, values);
    }

private:
    enum class EValues
    {
        Now,
        Later
    };

    enum class EWalk
    {
        Moved,
        End,
        Failed
    };

    CShaderDebuggerIL* GetDebuggerIL() const;
    SPosition Here() const { return {m_nCurrentInstruction, m_CurrentCallStack}; }
    SPosition Next() const { return {m_nNextInstruction, m_CallStack}; }

    // The position (Stepping.cpp).
    bool StepAsm();
    bool PostStepAsm();
    bool AdvanceFromCurrent();
    bool Resume();
    bool IsFastStep();
    std::optional<uint64_t> CountForFastStep();
    bool EnterInstruction();
    bool EnterFunction();
    bool EnterOnCondition();
    bool ReturnToCaller();
    bool RefuseOp(const char* pszText);
    void MoveToNext();
    bool IsInnermostLoop(const CIL_Loop& loop) const;
    bool IsLastInstruction(const ProgramCounter& pc) const;
    std::optional<uint64_t> GetCount(const ProgramCounter& pc, const CCallPath& path);

    // The way back (GoingBack.cpp).
    bool BackAsm();
    bool RunBackAsm();
    bool PostBackAsm() const { return !m_ExecutedStepHistory.empty(); }
    void PushStop();
    void ShowPresent();
    void NoteNext();
    void NoteWritten(const Register& reg);
    void NoteFiled(const ProgramCounter& pc, const Register& reg);
    void KeepFiling(const ProgramCounter& pc, const Register& reg);
    bool GoBackTo(size_t nStop, EValues eValues = EValues::Now);
    void StandAt(const SStanding& standing);
    void RestoreChanged(const CStopHistory::SUndone& undone);
    void RestoreResult(const Register& reg, bool bOneWrite);
    void AimResult(const Register& reg);

    // Steps through what was passed over (Rewalk.cpp).
    bool StepTo(const SPosition& target);
    bool StepOnTo(const SPosition& target);
    bool LeapTo(const SPosition& target, bool& bGood);
    bool Leap(const CIL_Loop& loop, const ProgramCounter& end, unsigned int nPass);
    bool ReadAtEnd(const CIL_Loop& loop, const ProgramCounter& end, const std::vector<Register>& vRegisters);
    std::optional<ProgramCounter> FindLastVisit(const SPosition& what, const ProgramCounter& around,
                                                std::optional<unsigned int> nBeforePass);
    std::set<InstructionNumber> LeavingAt(InstructionNumber nInst) const;
    bool IsVisited(const SPosition& what);
    std::optional<ProgramCounter> ReadLastVisit(const SPosition& what, const std::vector<const CIL_Loop*>& vFree);
    std::optional<SPosition> FindPassedBreakpoint(size_t nStop);

    // Runs to a breakpoint (Running.cpp).
    bool RunAsm();
    EWalk WalkOne();
    EWalk WalkInstruction();
    EWalk WalkFlowControl();
    bool LeadsAllOneWay(InstructionNumber nInst) const;
    EWalk WalkWithAll();
    EWalk WalkThroughLoop(const CIL_Loop& loop);
    EWalk SkipBlock();
    void ReadSkipped(bool bGetExecMask);
    bool IsAtBreakpoint() const;
    bool Arrive();

    // Kernel runs (Execution.cpp).
    bool ReadInputRegisters();
    bool ExecutePatchPoint(const PatchPoint& pp, bool bUpdateHistory);
    bool ExecuteRegister(const ProgramCounter& pc, const Register& reg, unsigned int nSelector);
    void NoteSwitchEntries(const ProgramCounter& pc);
    bool Capture(const SFiling& what, std::unique_ptr<CShaderDebuggerBuffer>& pResult,
                 std::unique_ptr<CShaderDebuggerBuffer>& pExecMask);
    bool RetrieveRegisters(const RegPCMap& regPCMap, bool bGetExecMask);
    void DropResults(const RegPCMap& regPCMap);

    /// m_CallStack belongs to m_nNextInstruction, this to m_nCurrentInstruction: the last phase of a movement can then
    /// be repeated, and each time enters or leaves the same function. During kernel runs m_CallStack is the one of
    /// the run's position.
    CCallPath m_CurrentCallStack;
    std::map<CCallPath, std::map<ProgramCounter, uint64_t>> m_ExecMaskHistory; ///< active work-items, for each call
    std::deque<PatchPoint> m_ExecuteList;                                      ///< the plan of the next Execute
    std::set<InstructionNumber> m_Leaving;                                     ///< jumps at which it reads as well
    ProgramCounter m_lastGlobalStore;     ///< the last store to global memory that the position reached
    bool m_bReadInputRegisters = false;   ///< the next Execute reads the input registers
    uint64_t m_nLastActive = 0;           ///< work-items in the mask of the current position, if a run has told
    bool m_bRunsDiffer = false;           ///< two runs counted different numbers of work-items at the same place
    CLaneLedger m_CurrentLedger;          ///< where they are before m_nCurrentInstruction
    std::vector<Register> m_vOverwritten; ///< registers whose results aren't those of the present stop
    CKernelCourse m_Course;
    CLaneFlow m_Lanes; ///< belongs to m_nNextInstruction
    CBlockWalk m_Walk;
    CStopHistory m_History; ///< a stop for each entry of m_ExecutedStepHistory
    CPatchedRuns m_Runs;
    CMemoryAtStop m_Memory;
};

} // namespace OVK_ShaderDebugger

#endif
