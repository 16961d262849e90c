#ifndef KESTREL_CORE_SHADERDEBUGGERHOST_H
#define KESTREL_CORE_SHADERDEBUGGERHOST_H

#include "core/IShaderDebugger.h"

namespace OVK_ShaderDebugger
{

class CShaderDebuggerDevice;
class CShaderDebuggerDeviceBuffer;

/// Stands between the front end, the debugger and the device, and forwards to the latter two. Owns
/// both. Until a debugger is registered its operations answer as those of a debugger without a
/// shader do.
class CShaderDebuggerHost : public IShaderDebugger
{
public:
    /// Takes over the device and makes itself the device's host.
    explicit CShaderDebuggerHost(CShaderDebuggerDevice* pDevice);
    ~CShaderDebuggerHost() override;
    CShaderDebuggerHost(const CShaderDebuggerHost&) = delete;
    CShaderDebuggerHost& operator=(const CShaderDebuggerHost&) = delete;

    bool StartDebugging(const void* pShaderData, size_t nShaderSize, ShaderLinkage* pLinkageData, ThreadID* pDimensions,
                        Mode mode) override;
    void EndDebugging(bool bUpdateOriginalBuffers) override;
    bool HasDeliveredResults() const override;
    bool RestoreArguments() override;
    bool IsDebugging() const override;
    bool Profile(const void* pShaderData, size_t nShaderSize, ProfileResults& rResults, ShaderLinkage* pLinkageData,
                 ThreadID* pDimensions, Mode mode) override;
    bool GetShaderText(std::string& strShader, Mode textType) override;
    bool GetShaderText(const void* pShaderData, size_t nShaderSize, std::string& strShader, Mode textType) override;
    bool GetShaderKeyWords(KeyWordsList& keyWords, Mode textType) override;
    bool GetShaderKeyWords(const void* pShaderData, size_t nShaderSize, KeyWordsList& keyWords, Mode textType) override;
    bool GetShaderInfo(ShaderInfo& info) const override;
    bool GetShaderInfo(const void* pShaderData, size_t nShaderSize, ShaderInfo& info) override;
    Mode GetMode() const override;
    bool SetMode(Mode mode) override;
    bool Execute() override;
    bool Draw() override;
    bool Step() override;
    bool Back() override;
    bool Run() override;
    bool RunBack() override;
    LineNumber GetCurrentLine() const override;
    LineNumber GetNextLine() const override;
    LineNumber GetPreviousLine() const override;
    ProgramCounter GetCurrentInstruction() const override;
    void SetCurrentThread(ThreadID& threadID) override;
    ThreadID GetCurrentThread() const override;
    bool AddBreakPointAtLineNumber(LineNumber nLineNumber, LineNumber lookAhead, LineNumber* pOutputLine) override;
    bool AddBreakPointAtInstructionNumber(InstructionNumber nInstructionNumber) override;
    bool RemoveBreakPointAtLineNumber(LineNumber nLineNumber) override;
    bool RemoveBreakPointAtInstructionNumber(InstructionNumber nInstructionNumber) override;
    bool RemoveAllBreakPoints() override;
    bool ToggleBreakPointAtLineNumber(LineNumber nLineNumber, bool bSnapToNearestLine) override;
    bool ToggleBreakPointAtInstructionNumber(InstructionNumber nInstructionNumber) override;
    bool HasBreakPointAtLineNumber(LineNumber nLineNumber) const override;
    bool HasBreakPointAtInstructionNumber(InstructionNumber nInstructionNumber) const override;
    bool HasBreakPointInLineRange(LineNumber nRangeStart, LineNumber nRangeEnd) const override;
    bool HasBreakPointInInstructionRange(InstructionNumber nRangeStart, InstructionNumber nRangeEnd) const override;
    size_type GetBreakPointsAsLineNumbers(std::set<unsigned int>* pBreakpoints) const override;
    size_type GetBreakPointsAsInstructionNumbers(std::set<unsigned int>* pBreakpoints) const override;
    bool SetTrackingVariables(const std::set<std::string>& variables) override;
    std::set<std::string> GetTrackingVariables() const override;
    void SetEnableTrackingVariables(bool bEnableTrackingVariables) override;
    bool GetEnableTrackingVariables() const override;
    void SetValuesOnDemand(bool bOn) override;
    bool HasValuesOnDemand() const override;
    bool HasPrivateUAV(unsigned int nNumber) const override;
    CShaderDebuggerVariables* GetVariables(ThreadID& threadID) override;
    CShaderDebuggerBuffer* GetRegisterResultsBuffer(VariableID& variableID) override;
    CShaderDebuggerBuffer* GetGlobalResultsBuffer(const VariableID& variableID) override;
    CShaderDebuggerBuffer* GetExecutionMaskBuffer() const override;
    bool CountActive(size_t& nActive) const override;
    bool GetLocalMemory(bool bArgument, unsigned int nNumber, unsigned int nGroup, const unsigned char** ppBytes,
                        size_t* pnSize) override;
    unsigned int GetBufferWidth() const override;
    unsigned int GetBufferHeight() const override;
    unsigned int GetBufferDepth() const override;
    unsigned int GetBufferArraySize() const override;
    BufferType GetBufferType() const override;
    bool GetLastError(std::string& strLastError) override;
    void SetLastError(const std::string& strLastError) override;
    LogType GetLoggingLevel() const override;
    void SetLoggingLevel(LogType nLevel) override;
    CShaderDebuggerHost* GetHost() override { return this; }

    /// Calls the device's EnterDebuggingMode, which takes no arguments.
    virtual bool EnterDebuggingMode(const void* pShaderData, size_t nShaderSize, ShaderLinkage* pLinkageData,
                                    ThreadID* pDimensions, Mode mode);
    virtual bool ExitDebuggingMode();
    /// Runs the device's shader once over the whole dispatch, and returns when it has finished.
    virtual bool ExecuteShader() = 0;
    virtual bool GetDeviceBufferDesc(ShaderType shaderType, int nDeviceBufferIndex, BufferDesc& bufferDesc) const;
    virtual CShaderDebuggerDeviceBuffer* CreateDeviceBuffer(const BufferDesc& bufferDesc);
    virtual unsigned int GetNumDeviceBuffers(ShaderType shaderType) const;
    virtual CShaderDebuggerDeviceBuffer* GetDeviceBuffer(ShaderType shaderType, std::string strDeviceBuffer) const;
    virtual CShaderDebuggerDeviceBuffer* GetDeviceBuffer(ShaderType shaderType, unsigned int nIndex) const;
    virtual bool SetDeviceBuffer(ShaderType shaderType, std::string strDeviceBuffer,
                                 CShaderDebuggerDeviceBuffer* pBuffer);
    virtual bool SetDeviceBuffer(ShaderType shaderType, unsigned int nIndex, CShaderDebuggerDeviceBuffer* pBuffer);
    virtual bool CreateShader(ShaderType shaderType, const void* pShaderData, size_t nShaderSize, void** ppShader);
    virtual bool SetShader(ShaderType shaderType, const void* pShaderData, size_t nShaderSize);
    virtual void* GetShader(ShaderType shaderType) const;
    virtual std::string GetShaderFunctionName(ShaderType shaderType) const;
    virtual bool DisassembleShader(const void* pShaderData, size_t nShaderSize, std::string& strShader);
    virtual void LogMessage(LogType type, const std::string& strMessage);
    virtual void GetDeviceName(std::string& strDeviceName);
    virtual CShaderDebuggerDevice* GetDevice() const { return m_pDevice; }

    /// Whether the client has broken a run off, through its dispatch table, since this was last cleared.
    bool IsBrokenOff() const { return m_bBrokenOff; }
    void SetBrokenOff(bool bBrokenOff) { m_bBrokenOff = bBrokenOff; }

    IShaderDebugger* GetDebugger() const { return m_pDebugger; }
    /// Takes over the debugger. There must be none yet, and the argument must not be null.
    void RegisterDebugger(IShaderDebugger* pDebugger);

protected:
    IShaderDebugger* m_pDebugger;
    CShaderDebuggerDevice* m_pDevice;

private:
    bool m_bBrokenOff = false;
};

} // namespace OVK_ShaderDebugger

#endif
