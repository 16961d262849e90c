#ifndef KESTREL_ENGINE_SHADERDEBUGGERIL_H
#define KESTREL_ENGINE_SHADERDEBUGGERIL_H

#include "core/ShaderDebuggerBase.h"
#include "engine/ArgumentDump.h"
#include "engine/KeptMask.h"
#include "engine/TargetBuffers.h"

#include <map>
#include <memory>
#include <vector>

namespace OVK_ShaderDebugger
{

class CShaderDebuggerResult;
class CShaderDebuggerShaderIL;

/// A debugging session of one kernel. It owns what the session needs: the kernel under debug, the buffers on which
/// kernel runs happen, and the results of those runs. Every operation works on the current kernel, and answers with
/// false, 0 or null when there is none.
class CShaderDebuggerIL : public CShaderDebuggerBase
{
public:
    typedef std::map<std::string, std::unique_ptr<CShaderDebuggerResult>> ResultMap;

    explicit CShaderDebuggerIL(CShaderDebuggerHost* pHost);
    ~CShaderDebuggerIL() override;

    // The session (ShaderDebuggerIL.cpp).
    /// Analyses the kernel, saves its arguments, reads its argument constant buffer, and executes its first
    /// instruction. \return false, with nothing left behind, if any of this fails or a session is open
    bool StartDebugging(const void* pShaderData, size_t nShaderSize, ShaderLinkage* pLinkageData, ThreadID* pDimensions,
                        Mode mode) override;
    void EndDebugging(bool bUpdateOriginalBuffers) override;
    bool HasDeliveredResults() const override { return m_bResultsDelivered; }
    bool RestoreArguments() override;
    bool GetShaderText(std::string& strShader, Mode textType) override;
    bool GetShaderText(const void* pShaderData, size_t nShaderSize, std::string& strShader, Mode textType) override;
    bool GetShaderKeyWords(KeyWordsList& keyWords, Mode textType) override;
    bool GetShaderKeyWords(const void* pShaderData, size_t nShaderSize, KeyWordsList& keyWords, Mode textType) override;
    using CShaderDebuggerBase::GetShaderInfo;
    bool GetShaderInfo(const void* pShaderData, size_t nShaderSize, ShaderInfo& info) override;
    bool Execute() override;
    bool Draw() override;
    /// One stop on. False at the end of the kernel and on a failure; the kernel's outputs are then complete in the
    /// working copies, as far as the device allows.
    bool Step() override;
    bool Back() override;
    bool Run() override;
    bool RunBack() override;
    LineNumber GetCurrentLine() const override;
    LineNumber GetNextLine() const override;
    LineNumber GetPreviousLine() const override;
    ProgramCounter GetCurrentInstruction() const override;

    // Breakpoints by line and by instruction (Breakpoints.cpp).
    bool AddBreakPointAtLineNumber(LineNumber nLineNumber, LineNumber lookAhead, LineNumber* pOutputLine) override;
    bool AddBreakPointAtInstructionNumber(InstructionNumber nInstructionNumber) override;
    bool RemoveBreakPointAtLineNumber(LineNumber nLineNumber) override;
    bool RemoveBreakPointAtInstructionNumber(InstructionNumber nInstructionNumber) override;
    bool ToggleBreakPointAtLineNumber(LineNumber nLineNumber, bool bSnapToNearestLine) override;
    bool ToggleBreakPointAtInstructionNumber(InstructionNumber nInstructionNumber) override;
    bool HasBreakPointAtInstructionNumber(InstructionNumber nInstructionNumber) const override;
    bool HasBreakPointInInstructionRange(InstructionNumber nRangeStart, InstructionNumber nRangeEnd) const override;
    size_type GetBreakPointsAsInstructionNumbers(std::set<unsigned int>* pBreakpoints) const override;

    // Queries (Variables.cpp). Registers and the mask are what the last stop left; memory may take a run, and so may
    // registers with values on demand.
    CShaderDebuggerVariables* GetVariables(ThreadID& threadID) override;
    CShaderDebuggerBuffer* GetRegisterResultsBuffer(VariableID& variableID) override;
    CShaderDebuggerBuffer* GetGlobalResultsBuffer(const VariableID& variableID) override;
    CShaderDebuggerBuffer* GetExecutionMaskBuffer() const override;
    bool CountActive(size_t& nActive) const override;
    void SetValuesOnDemand(bool bOn) override;
    bool HasPrivateUAV(unsigned int nNumber) const override;
    bool GetLocalMemory(bool bArgument, unsigned int nNumber, unsigned int nGroup, const unsigned char** ppBytes,
                        size_t* pnSize) override;

    /// A kernel of its own, analysed; the caller owns it. Null when memory runs out.
    virtual CShaderDebuggerShaderIL* CreateShader(const void* pShaderData, size_t nShaderSize);
    /// Runs what the kernel's plan asks for. \param bUpdateHistory whether the positions count as stops
    virtual bool DoExecute(bool bUpdateHistory);

    // The buffers that runs work on.
    virtual bool CreateTargetBuffers();
    /// \param bUpdateOriginalBuffers whether the client's memory takes what the runs left in the working copies
    virtual void DeleteTargetBuffers(bool bUpdateOriginalBuffers);
    CTargetBuffers& GetTargetBuffers() { return m_TargetBuffers; }

    // Filing of what runs left (Results.cpp).
    virtual void UpdateResults(ProgramCounter pc, Register reg);
    /// The same for a register read at the entry of the kernel.
    void UpdateResults(Register inputReg);
    /// New host copies of both output buffers; the caller owns what comes back, also on failure.
    virtual bool RetrieveResultsBuffers(CShaderDebuggerBuffer*& pResultBuffer, CShaderDebuggerBuffer*& pExecMaskBuffer);
    virtual bool RetrieveResultBuffer(CShaderDebuggerBuffer*& pResultBuffer);
    virtual bool RetrieveExecMaskBuffer(CShaderDebuggerBuffer*& pExecMaskBuffer);
    /// Finds or makes a result, which stays the debugger's; null when memory runs out.
    virtual CShaderDebuggerResult* GetResult(ResultMap& results, const std::string& strName);
    virtual CShaderDebuggerResult* GetResult(Register reg);
    virtual CShaderDebuggerResult* FindResult(ResultMap& results, const std::string& strName);
    virtual CShaderDebuggerResult* FindResult(Register reg);

    // The argument constant buffer.
    virtual bool CreateCBDumpBuffer();
    virtual bool UpdateCBDumpBuffer();
    /// Reads it, by a run of its own. \return false, with the reason logged
    bool DumpArguments(CShaderDebuggerShaderIL& shader);

    // Kernel-wide results (Results.cpp).
    virtual bool UpdateGlobalResult(CShaderDebuggerResult* pUpdateResult);
    virtual void SetGlobalResultDirtyFlag(const ProgramCounter& pc);
    const ProgramCounter& GetLastUpdatedGlobalResultPC() const { return m_LastUpdatedGlobalResultPC; }
    static std::string GetGlobalResultName(size_t idx);

    /// The register under which values are filed: an access to private memory is filed by its 16-byte slot.
    static Register GetResultRegister(const Register& reg);
    /// Whether runs for the register are wanted: always, unless tracking is on and its name isn't tracked.
    bool IsTracked(const Register& reg) const;
    /// The same by the name of a result.
    bool IsTracked(const std::string& strName) const;
    /// Removes a register's result, and no query finds it any more.
    void DeleteResult(const Register& reg);
    /// Whether registers are read when they are asked for (ValuesOnDemand.cpp). No run is wanted for one then.
    bool HasValuesOnDemand() const override { return m_bValuesOnDemand; }
    /// Files the mask of the last run unless the stop has one. \return whether it has one now
    bool BringExecMask(const ProgramCounter& pc);
    /// Files the mask of the present stop, read again.
    void FileStopMask(const ProgramCounter& pc, std::unique_ptr<CShaderDebuggerBuffer> pExecMask);
    /// Re-aims the last touched result after a step back. \return false, with none touched, if nothing is found
    bool FindLastResult(const ProgramCounter& pc);

    CShaderDebuggerShaderIL* GetCurrentShader() const;

private:
    /// The result that carries the mask of runs at instructions without a register. Never shown as a variable.
    static const char s_szNoDestination[];

    bool OpenSession(const void* pShaderData, size_t nShaderSize, ShaderLinkage* pLinkageData, ThreadID* pDimensions,
                     Mode mode);
    void CloseSession(bool bUpdateOriginalBuffers);
    bool Open();
    bool OpenToRun();
    template <typename Action>
    bool Move(bool (CShaderDebuggerIL::*open)(), Action move);
    bool EndMovement(bool bMoved);
    bool RestoreMask();
    CKeptMask ReadMask(bool bHideLeavers);
    void FileBits(const ProgramCounter& pc, CKeptMask mask);
    void UpdateMask(const ProgramCounter& pc, const Register& reg);
    bool HasMask() const;
    CShaderDebuggerBuffer* ShowMask(CShaderDebuggerResult& result) const;
    void HideMask();

    enum EFiling
    {
        FILE_Nothing,
        FILE_Mask,
        FILE_Values
    };

    std::unique_ptr<CShaderDebuggerBuffer> ReadExecMask();
    void FileExecMask(CShaderDebuggerResult& result, std::unique_ptr<CShaderDebuggerBuffer> pExecMaskBuffer,
                      bool bAllActive);
    EFiling GetFiling(const Register& reg, bool bAnyActive);
    bool ReadValues(const Register& reg, bool bAllActive, std::unique_ptr<CShaderDebuggerBuffer>& pValues);
    void FileMask(ProgramCounter pc, std::unique_ptr<CShaderDebuggerBuffer> pExecMaskBuffer, bool bAllActive);
    bool FileValues(ProgramCounter pc, const Register& reg, std::unique_ptr<CShaderDebuggerBuffer> pValues,
                    CShaderDebuggerBuffer* pRead);
    static void UpdateResultDataType(CShaderDebuggerResult& result);
    bool IsWriteAcrossSlots(const Register& reg) const;
    bool CreateGlobalResults();
    bool LoadGlobalResult(size_t i, CShaderDebuggerResult& result);
    bool IsOfArgument(const CShaderDebuggerResult* pResult) const;
    void ForgetValues();
    CShaderDebuggerBuffer* BringValues(const std::string& strName);
    std::vector<Register> ChooseRegisters(const std::string& strName);
    size_t GetPlaneSize() const;
    bool RunForValues(const std::vector<Register>& vRegisters);
    bool FileRead(const Register& reg, std::unique_ptr<CShaderDebuggerBuffer> pValues);
    std::unique_ptr<CShaderDebuggerBuffer> CutPlane(const CShaderDebuggerBuffer& read, size_t n) const;
    bool GetASMVariables(CShaderDebuggerVariables* pVariables, ThreadID& threadID);
    bool SetThreadIDUsingResult(ThreadID& threadID);

    CTargetBuffers m_TargetBuffers;
    CArgumentDump m_ArgumentDump;
    /// The memory of a mask that no result holds any more, for the next run's.
    std::unique_ptr<CShaderDebuggerBuffer> m_pSpareExecMask;
    ResultMap m_Results;                         ///< by register name
    ResultMap m_GlobalResults;                   ///< by name
    CShaderDebuggerResult* m_pLastTouchedResult; ///< the result that the last run wrote; in m_Results
    std::vector<bool> m_GlobalResultDirtyFlags;  ///< by argument index: the result isn't the saved contents
    ProgramCounter m_LastUpdatedGlobalResultPC;  ///< the store for which the flags were last set
    bool m_bDeviceEntered;                       ///< the host is in debugging mode
    bool m_bOutputsComplete;                     ///< the working copies hold what the whole kernel has left
    bool m_bResultsDelivered;
    bool m_bValuesOnDemand = false;
    bool m_bOpened = false;                                 ///< the first instruction has been executed
    std::unique_ptr<CShaderDebuggerDeviceBuffer> m_pValues; ///< of the last run for values; kept for the next
    unsigned int m_nValuesHeight = 0;                       ///< its rows
    bool m_bMaskFiled = false;                              ///< by the last movement
    bool m_bMaskStale = false;                              ///< it is that of a movement that was given up
    CKeptMask m_StopMask;                                   ///< with values on demand, the last one that was filed
    CKeptMask m_KeptMask;                                   ///< the one that the last movement has overwritten
    std::set<std::string> m_Asked;                          ///< registers asked for at the present stop
    std::set<std::string> m_AskedBefore;                    ///< at the stop before
    unsigned int m_nValueRuns = 0;                          ///< made for values at the present stop
};

} // namespace OVK_ShaderDebugger

#endif
