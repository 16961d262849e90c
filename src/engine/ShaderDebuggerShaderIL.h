#ifndef KESTREL_ENGINE_SHADERDEBUGGERSHADERIL_H
#define KESTREL_ENGINE_SHADERDEBUGGERSHADERIL_H

#include "engine/LaneLedger.h"
#include "instrument/InstrumentedShaderIL.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <utility>

namespace OVK_ShaderDebugger
{

class CCLMetadata;
class CShaderDebuggerDeviceBuffer;
class CShaderDebuggerIL;
class CShaderDebuggerResult;

/// The kernel under debug, complete: its top storey decides where the position moves and makes the kernel runs.
///
/// All work-items share one position. A movement has three phases: the first makes the next instruction the current
/// one and puts what is to be observed there on m_ExecuteList, Execute runs patched kernels for that, and the last
/// phase works out the next instruction from how many work-items were active. That count, for each position, is the
/// only thing that steers the position.
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
    /// \param nItems  of the dispatch: all of them execute it
    /// \return false for one that needs a run
    bool PassFirst(uint64_t nItems);
    bool RunBack() override { return RunBackAsm(); }
    /// Works off m_ExecuteList: one kernel run for each register of each patch point.
    /// \return false if anything failed; what didn't fail has been filed
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
    bool ReadsLeavers() const { return !m_Leaving.empty(); }
    static constexpr unsigned char GetLeaverFlag() { return s_nLeaverFlag; }
    /// Takes those out of a mask.
    static void HideLeavers(CShaderDebuggerBuffer& execMask);
    /// The opcode of an instruction; IL_OP_UNKNOWN behind the end.
    ILOpCode OpCodeOf(InstructionNumber nInst) const { return OpCodeAt(nInst); }
    /// Makes sure that the last run was one of the kernel as it is, so that the working copies hold its outputs. Tells
    /// in the last error where they aren't what the session's own runs left.
    /// \return false if they don't hold them
    bool CompleteKernel();
    /// Whether anything up to the present stop, and with it, may have changed global memory.
    bool MayHaveWritten() const { return MayHaveWritten(Here()); }
    /// Makes the working copies hold global memory as it is at the present stop, with a run of its own if the last run
    /// didn't leave them so. \return false if that isn't possible
    bool BringMemory();
    /// A block of local memory, by its number or by the index of its argument; null if there is none.
    const SLocalBlock* FindLocalBlock(bool bArgument, unsigned int nNumber);
    /// The local memory of a work-group at the present stop: the bytes in which a block's offset counts. They stay
    /// until the next movement. Empty if there is no such group, null if the run that is needed fails.
    const std::vector<unsigned char>* BringLocalMemory(unsigned int nGroup);
    /// Whether the last patched kernel stores the values of a register besides the mask.
    bool StoresValues() const { return !m_bMaskOnly; }
    /// The next patched kernel is made anew.
    void DropPatchedKernel() { RestoreShader(true); }
    std::vector<Register> FindWritten() const;
    /// In front of a movement. \return false if what an earlier one has overwritten can't be read again
    bool BeginMovement();
    /// After a movement of which a run was broken off: to the stop where it began, or on a way back to the earliest one
    /// that it had come to. No run is made for it.
    /// \param[out] bSameStop  whether it is where it began
    /// \return false if there is no stop
    bool ReturnToStop(bool& bSameStop);
    /// Reads the registers again that a movement had read before it was given up.
    bool RestoreOverwritten();
    /// Reads the mask of the present stop again.
    bool ReadStopMask();
    bool ReadValues(const std::vector<Register>& vRegisters, unsigned int nPlane, CShaderDebuggerDeviceBuffer& values);
    /// Whether a work-item can leave a kernel, or not come to a function, without a store to the output buffers.
    bool CanMissStores() const { return m_bCanMissStores; }
    unsigned int GetKernelABIConstantBufferSize() const { return m_nKernelABIConstantBufferSize; }

private:
    /// A register that a run has updated, and where.
    struct SFiling
    {
        ProgramCounter pc;
        CCallPath callStack;
        Register reg;
        std::set<InstructionNumber> leaving; ///< the jumps at which it was read, too
    };

    /// An instruction in a certain pass and call.
    struct SPosition
    {
        ProgramCounter pc;
        CCallPath callStack;
    };

    /// What has to be remembered of a stop to come back to it.
    struct SStop
    {
        ProgramCounter pc;
        CCallPath callStack;
        ProgramCounter next; ///< where the position was to go on, with the call path there
        CCallPath nextCallStack;
        CLaneLedger ledger; ///< where the work-items were in front of the stop, and behind it
        CLaneLedger nextLedger;
        ProgramCounter lastGlobalStore;
        bool bGap = false;              ///< a run has passed over instructions in front of it
        bool bShown = false;            ///< false: a run walked over it
        std::vector<Register> vWritten; ///< registers that may have changed since the stop before
        std::vector<SFiling> vFiled;    ///< results that runs updated since the stop before, oldest first
    };

    /// How many of those who came to a switch went to each of its labels.
    struct SSwitchEntries
    {
        ProgramCounter pc = g_PC_NULL;
        CCallPath callStack;
        std::map<InstructionNumber, uint64_t> mapEntries;
    };

    /// A moment of the dispatch.
    struct SPlace
    {
        ProgramCounter pc;
        CCallPath path;

        bool operator==(const SPlace& other) const { return pc == other.pc && path == other.path; }
    };

    class CCallStackScope;

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

    /// A block that a run passes over.
    struct SSkip
    {
        std::vector<Register> vRegisters;
        InstructionNumber nBlockEnd = 0;
        bool bReadBefore = false;     ///< what was skipped before it has to be read in front of it
        InstructionNumber nFirst = 0; ///< the instructions passed over
        InstructionNumber nLast = 0;
    };

    CShaderDebuggerIL* GetDebuggerIL() const;
    ILOpCode OpCodeAt(InstructionNumber nInst) const;

    // The position (Stepping.cpp).
    bool StepAsm();
    bool PostStepAsm();
    bool AdvanceFromCurrent();
    bool IsFastStep();
    std::optional<uint64_t> CountForFastStep();
    bool EnterInstruction();
    bool EnterFunction();
    bool EnterOnCondition();
    bool ReturnToCaller();
    bool RefuseOp(const char* pszText);
    void MoveToNext();
    bool WritesGlobalMemory(InstructionNumber nInst) const;
    void FindMissedStores();

    // Where the work-items go, and where those who are still alive resume (LaneFlow.cpp).
    void TakeEffect(uint64_t nActive);
    void EnterSwitch(const CIL_Switch& block, uint64_t nActive);
    void NoteSwitchEntries(const ProgramCounter& pc);
    std::optional<CLaneLedger::SPlace> FindTarget(InstructionNumber nJump) const;
    bool Resume();
    ProgramCounter PositionOf(const CLaneLedger::SPlace& place) const;
    bool IsInnermostLoop(const CIL_Loop& loop) const;
    /// The recorded count, or else that of a run of its own.
    std::optional<uint64_t> GetCount(const ProgramCounter& pc, const CCallPath& path);

    // Stops and the way back (StepHistory.cpp, ResultRestorer.cpp).
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
    void RestoreResult(const Register& reg, bool bOneWrite);
    std::vector<SFiling> FindSources(const Register& reg) const;
    SFiling ReadingHere(const Register& reg) const;
    static Register WholeRegister(const Register& reg);
    void AimResult(const Register& reg);

    // Steps through what was passed over (Rewalk.cpp).
    static bool IsBefore(const SPosition& lhs, const SPosition& rhs);
    bool StepTo(const SPosition& target);
    bool StepOnTo(const SPosition& target);
    bool LeapTo(const SPosition& target, bool& bGood);
    bool Leap(const CIL_Loop& loop, const ProgramCounter& end, unsigned int nPass);
    std::optional<ProgramCounter> FindLastVisit(const SPosition& what, const ProgramCounter& around,
                                                std::optional<unsigned int> nBeforePass);
    std::set<InstructionNumber> LeavingAt(InstructionNumber nInst) const;
    bool IsVisited(const SPosition& what);
    std::optional<ProgramCounter> ReadLastVisit(const SPosition& what, const std::vector<const CIL_Loop*>& vFree);
    std::optional<SPosition> FindPassedBreakpoint(size_t nStop);
    std::set<InstructionNumber> FindBreakpointsIn(InstructionNumber nBody) const;

    // Runs to a breakpoint (Running.cpp, BlockSkipping.cpp).
    bool RunAsm();
    bool HasBreakpointInFlowControlBlock(const CIL_FCConstruct* pFlowControl, InstructionNumber inst);
    bool HasBreakpointBetween(InstructionNumber nFrom, InstructionNumber nTo);
    std::set<InstructionNumber> FindCalled(InstructionNumber nFirst, InstructionNumber nEnd) const;
    EWalk WalkOne(RegPCMap& regPCMap);
    EWalk WalkInstruction(RegPCMap& regPCMap);
    EWalk WalkFlowControl(RegPCMap& regPCMap);
    bool LeadsAllOneWay(InstructionNumber nInst) const;
    EWalk WalkWithAll();
    EWalk WalkThroughLoop(RegPCMap& regPCMap, const CIL_Loop& loop);
    EWalk SkipBlock(RegPCMap& regPCMap, const CIL_FCConstruct* pFlowControl);
    void AddWrittenBy(const std::set<InstructionNumber>& instructions, std::vector<Register>& vRegisters);
    static void AddNew(const std::vector<Register>& vNew, std::vector<Register>& vRegisters);
    void ReadSkipped(RegPCMap& regPCMap, bool bGetExecMask);
    bool IsAtBreakpoint() const;
    bool Arrive(RegPCMap& regPCMap);
    bool DescribeSkip(const CIL_FCConstruct* pFlowControl, InstructionNumber inst, SSkip& skip);
    bool DescribeSkip(const CIL_Loop& loop, InstructionNumber inst, SSkip& skip);
    bool DescribeSkip(const CIL_Switch& block, InstructionNumber inst, SSkip& skip);
    bool DescribeSkip(const CIL_IfElseEndif& block, InstructionNumber inst, SSkip& skip);
    void PassOver(const SSkip& skip);

    // The end (Completion.cpp).
    bool IsLastInstruction(const ProgramCounter& pc) const;
    bool RunPlainKernel();

    // Memory at a stop (MemoryAtStop.cpp).
    SPlace Here() const { return {m_nCurrentInstruction, m_CurrentCallStack}; }
    bool IsCutExactly(const SPlace& place) const;
    bool IsInRepeatedText(InstructionNumber nInst) const;
    bool MayWrite(InstructionNumber nInst) const;
    bool MayHaveWritten(const SPlace& place) const;
    bool MayStillWrite(const SPlace& place) const;
    std::set<InstructionNumber> FindAround(const SPlace& place, bool bBefore) const;
    void AddWithCalled(InstructionNumber nFirst, InstructionNumber nEnd, std::set<InstructionNumber>& found) const;
    const std::vector<SLocalBlock>& LocalBlocks();
    void AddDeclaredBlocks(std::vector<SLocalBlock>& vBlocks) const;
    void AddArgumentBlocks(std::vector<SLocalBlock>& vBlocks) const;
    bool RunMemoryKernel(unsigned int nGroup, CShaderDebuggerDeviceBuffer* pLocal);

    // Kernel runs (Execution.cpp).
    bool ReadInputRegisters();
    bool ExecutePatchPoint(const PatchPoint& pp, bool bUpdateHistory);
    bool RunKernel(unsigned int nSelector);
    bool Capture(const SFiling& what, std::unique_ptr<CShaderDebuggerBuffer>& pResult,
                 std::unique_ptr<CShaderDebuggerBuffer>& pExecMask);
    bool RetrieveRegisters(const RegPCMap& regPCMap, bool bGetExecMask);
    void DropResults(const RegPCMap& regPCMap);
    bool ExpandIndexedRegisters(const ProgramCounter& pc, const std::deque<Register>& registers,
                                std::deque<Register>* newRegisters);
    void AddSlots(const ProgramCounter& pc, const Register& reg, std::deque<Register>& registers) const;
    const unsigned int* FindDeclaredSize(InstructionNumber nInst, const Register& reg) const;
    IL* GetPatchedShader(ProgramCounter nTargetInstruction, const std::vector<Register>& vTargetRegs);
    bool SwitchShaderToPatchedShader(IL* pPatchedShader, size_t nPatchedShaderSize);
    bool SwitchShader(ProgramCounter pc, const std::vector<Register>& vTargetRegs);
    bool RestoreShader(bool bForceShaderRelease);

    // The argument constant buffer (ConstantBufferDump.cpp).
    bool DumpKernelABIConstantBuffer();
    bool CreateCBDumpShader(IL** ppPatchedKernel, size_t* pSize);
    bool CreateCBDumpShaderIL(CInputTokenStream<unsigned int>& src, COutputTokenStream<unsigned int>& dest,
                              const std::string& strKernelName, unsigned int nUniqueID, unsigned int nFuncLabel);
    void WriteCBDump(CDest& dest);
    bool InsertCBDump(const CDest& tokens, const std::string& strKernelName, CCLMetadata& metadata,
                      std::vector<char>& vImage);
    bool RunCBDump(IL* pDumpCBKernel, size_t nSize);
    bool RefuseForMemory();
    void LogCBDump(const CDest& tokens) const;

    /// m_CallStack belongs to m_nNextInstruction, this to m_nCurrentInstruction: the last phase of a movement can then
    /// be repeated, and each time enters or leaves the same function. During kernel runs m_CallStack is the one of
    /// the run's position.
    CCallPath m_CurrentCallStack;
    std::map<CCallPath, std::map<ProgramCounter, uint64_t>> m_ExecMaskHistory; ///< active work-items, for each call
    std::deque<PatchPoint> m_ExecuteList;                                      ///< the plan of the next Execute
    ProgramCounter m_lastGlobalStore; ///< the last store to global memory that the position reached
    bool m_bReadInputRegisters;       ///< the next Execute reads the input registers
    bool m_bHasBeenExecuted;          ///< a run has succeeded since the session began
    bool m_bLastRunAtCurrent;         ///< the output buffers hold the mask of the current position
    uint64_t m_nLastActive = 0;       ///< work-items in it, where a run has told
    bool m_bCanMissStores;
    bool m_bRunsDiffer;         ///< two runs of the session had other work-items at the same place
    bool m_bComplete;           ///< the last run was one of the kernel as it is
    ProgramCounter m_PatchedPC; ///< target of m_pPatchedShader, with the next three; g_PC_NULL for none
    std::vector<Register> m_PatchedRegs;
    CCallPath m_PatchedCallStack;
    std::set<InstructionNumber> m_PatchedLeaving;
    std::optional<SPlace> m_MaskAt;                                   ///< where the last run was one for the mask alone
    std::optional<SPlace> m_CopiesAt;                                 ///< the stop whose memory the working copies hold
    std::optional<SPlace> m_MemoryAt;                                 ///< the stop of the next two
    std::vector<char> m_vMemoryImage;                                 ///< its memory kernel
    bool m_bMemoryOnDevice = false;                                   ///< the device holds it, built
    std::map<unsigned int, std::vector<unsigned char>> m_LocalMemory; ///< by group; empty for one that isn't there
    std::optional<std::vector<SLocalBlock>> m_LocalBlocks;            ///< found when first asked for
    std::deque<SStop> m_Stops;            ///< one for each entry of m_ExecutedStepHistory, newest at the back
    SStop m_Pending;                      ///< what the next stop takes over: registers written and filed since the last
    CLaneLedger m_Ledger;                 ///< belongs to m_nNextInstruction: where the work-items are in front of it
    CLaneLedger m_CurrentLedger;          ///< the same of m_nCurrentInstruction
    SSwitchEntries m_SwitchEntries;       ///< of the last switch that was executed
    size_t m_nMovementStops = 0;          ///< stops when the last movement began
    size_t m_nKeptStops = 0;              ///< those of them that it hasn't gone back from
    std::vector<Register> m_vOverwritten; ///< those whose results aren't of the present stop
    std::set<InstructionNumber> m_Skipped; ///< jumps out of what a run has passed over and not read yet
};

} // namespace OVK_ShaderDebugger

#endif
