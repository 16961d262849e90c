#ifndef KESTREL_CORE_SHADERDEBUGGERBASE_H
#define KESTREL_CORE_SHADERDEBUGGERBASE_H

#include "core/IShaderDebugger.h"

namespace OVK_ShaderDebugger
{

class CShaderDebuggerShader;

/// The part of a debugger that doesn't depend on the shader language: the run flag, the breakpoints, the current
/// work-item, the tracked names, the dispatch size, the last error. Breakpoints, tracking and the logging level survive
/// a run.
class CShaderDebuggerBase : public IShaderDebugger
{
public:
    explicit CShaderDebuggerBase(CShaderDebuggerHost* pHost);
    ~CShaderDebuggerBase() override = default;
    CShaderDebuggerBase(const CShaderDebuggerBase&) = delete;
    CShaderDebuggerBase& operator=(const CShaderDebuggerBase&) = delete;

    /// Prepares the fields; the subclass calls it first and carries on. False while a run is open.
    bool StartDebugging(const void* pShaderData, size_t nShaderSize, ShaderLinkage* pLinkageData, ThreadID* pDimensions,
                        Mode mode) override;
    void EndDebugging(bool bUpdateOriginalBuffers) override;
    bool IsDebugging() const override { return m_bIsDebugging; }
    bool Profile(const void* pShaderData, size_t nShaderSize, ProfileResults& rResults, ShaderLinkage* pLinkageData,
                 ThreadID* pDimensions, Mode mode) override;
    bool GetShaderText(std::string& strShader, Mode textType) override;
    using IShaderDebugger::GetShaderText;
    bool GetShaderInfo(ShaderInfo& info) const override;
    using IShaderDebugger::GetShaderInfo;
    Mode GetMode() const override;
    bool SetMode(Mode mode) override;
    bool Draw() override;
    void SetCurrentThread(ThreadID& threadID) override { m_CurrentThread = threadID; }
    ThreadID GetCurrentThread() const override { return m_CurrentThread; }
    bool AddBreakPointAtLineNumber(LineNumber nLineNumber, LineNumber lookAhead, LineNumber* pOutputLine) override;
    bool RemoveBreakPointAtLineNumber(LineNumber nLineNumber) override;
    bool RemoveAllBreakPoints() override;
    bool ToggleBreakPointAtLineNumber(LineNumber nLineNumber, bool bSnapToNearestLine) override;
    bool HasBreakPointAtLineNumber(LineNumber nLineNumber) const override;
    bool HasBreakPointInLineRange(LineNumber nRangeStart, LineNumber nRangeEnd) const override;
    size_type GetBreakPointsAsLineNumbers(std::set<unsigned int>* pBreakpoints) const override;
    bool SetTrackingVariables(const std::set<std::string>& variables) override;
    std::set<std::string> GetTrackingVariables() const override { return m_TrackingVariables; }
    void SetEnableTrackingVariables(bool bEnable) override { m_bEnableTrackingVariables = bEnable; }
    bool GetEnableTrackingVariables() const override { return m_bEnableTrackingVariables; }
    unsigned int GetBufferWidth() const override { return m_dwWidth; }
    unsigned int GetBufferHeight() const override { return m_dwHeight; }
    unsigned int GetBufferDepth() const override { return m_dwDepth; }
    unsigned int GetBufferArraySize() const override { return m_dwArraySize; }
    BufferType GetBufferType() const override { return m_BufferType; }
    bool GetLastError(std::string& strLastError) override;
    void SetLastError(const std::string& strLastError) override;
    LogType GetLoggingLevel() const override { return m_nLoggingLevel; }
    void SetLoggingLevel(LogType nLevel) override { m_nLoggingLevel = nLevel; }
    CShaderDebuggerHost* GetHost() override { return m_pHost; }

    virtual ShaderType GetShaderType() const;
    /// Deletes the old shader and takes over the new one.
    virtual void SetCurrentShader(CShaderDebuggerShader* pShader);

    CShaderDebuggerShader* GetCurrentShader() const { return m_pCurrentShader; }
    bool IsProfiling() const { return m_bIsProfiling; }

protected:
    /// The tracked names without a copy, for the engine.
    const std::set<std::string>& TrackedNames() const { return m_TrackingVariables; }

    bool m_bIsDebugging; ///< a run is open; only the subclass sets it
    bool m_bIsProfiling;
    std::set<unsigned int> m_Breakpoints;    ///< by line number
    CShaderDebuggerHost* m_pHost;            ///< not owned
    CShaderDebuggerShader* m_pCurrentShader; ///< owned; the subclass's EndDebugging deletes it
    ThreadID m_CurrentThread;                ///< x and y of -1: none chosen
    bool m_bEnableTrackingVariables;
    std::set<std::string> m_TrackingVariables;
    unsigned int m_dwWidth;
    unsigned int m_dwHeight;
    unsigned int m_dwDepth;
    unsigned int m_dwArraySize;
    BufferType m_BufferType;
    LogType m_nLoggingLevel;
    bool m_bNewError; ///< m_strLastError hasn't been read
    std::string m_strLastError;
};

} // namespace OVK_ShaderDebugger

#endif
