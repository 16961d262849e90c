#ifndef KESTREL_CORE_ISHADERDEBUGGER_H
#define KESTREL_CORE_ISHADERDEBUGGER_H

#include "core/ShaderDebuggerCommon.h"

#include <cstddef>
#include <set>
#include <string>

namespace OVK_ShaderDebugger
{

class CShaderDebuggerBuffer;
class CShaderDebuggerHost;
class CShaderDebuggerVariables;

/// A debugger for one shader at a time. The host implements the same interface by forwarding.
/// Operations answer with false, 0, an empty value or null on failure, and leave the reason in
/// GetLastError where a user must see it. One thread at a time.
class IShaderDebugger
{
public:
    typedef std::set<unsigned int>::size_type size_type;

    /// Makes the debugger of a platform on a host and registers it there. The caller owns it.
    /// \return null for a null host, an unknown platform or exhausted memory
    static IShaderDebugger* CreateShaderDebugger(Platform ePlatform, CShaderDebuggerHost* pHost);

    virtual ~IShaderDebugger() = default;

    /// Begins a debug run of the shader whose data is given. pDimensions holds the dispatch size in
    /// x, y, z and nSubResource; null means zeros.
    virtual bool StartDebugging(const void* pShaderData, size_t nShaderSize, ShaderLinkage* pLinkageData,
                                ThreadID* pDimensions, Mode mode) = 0;
    /// Ends the run; with true, the buffers of the real kernel receive its results.
    virtual void EndDebugging(bool bUpdateOriginalBuffers) = 0;
    /// Whether the last end that was to hand over the results did so. If not, the buffers are as they were.
    virtual bool HasDeliveredResults() const { return true; }
    /// Gives the buffers of the real kernel what they held at the start of the run, which goes on.
    virtual bool RestoreArguments() { return false; }
    virtual bool IsDebugging() const = 0;
    /// A profiling run: always false.
    virtual bool Profile(const void* pShaderData, size_t nShaderSize, ProfileResults& rResults,
                         ShaderLinkage* pLinkageData, ThreadID* pDimensions, Mode mode) = 0;

    virtual bool GetShaderText(std::string& strShader, Mode textType) = 0;
    virtual bool GetShaderText(const void* pShaderData, size_t nShaderSize, std::string& strShader, Mode textType) = 0;
    virtual bool GetShaderKeyWords(KeyWordsList& keyWords, Mode textType) = 0;
    virtual bool GetShaderKeyWords(const void* pShaderData, size_t nShaderSize, KeyWordsList& keyWords,
                                   Mode textType) = 0;
    virtual bool GetShaderInfo(ShaderInfo& info) const = 0;
    /// Facts on a shader given as data, with no run open: this decides whether it can be debugged.
    virtual bool GetShaderInfo(const void* pShaderData, size_t nShaderSize, ShaderInfo& info) = 0;
    virtual Mode GetMode() const = 0;
    virtual bool SetMode(Mode mode) = 0;

    virtual bool Execute() = 0;
    virtual bool Draw() = 0;
    virtual bool Step() = 0;
    virtual bool Back() = 0;
    virtual bool Run() = 0;
    virtual bool RunBack() = 0;

    virtual LineNumber GetCurrentLine() const = 0;
    virtual LineNumber GetNextLine() const = 0;
    virtual LineNumber GetPreviousLine() const = 0;
    virtual ProgramCounter GetCurrentInstruction() const = 0;
    virtual void SetCurrentThread(ThreadID& threadID) = 0;
    virtual ThreadID GetCurrentThread() const = 0;

    /// lookAhead lines may be searched for one that can hold a breakpoint; the line taken comes back
    /// in pOutputLine, which may be null.
    virtual bool AddBreakPointAtLineNumber(LineNumber nLineNumber, LineNumber lookAhead, LineNumber* pOutputLine) = 0;
    virtual bool AddBreakPointAtInstructionNumber(InstructionNumber nInstructionNumber) = 0;
    virtual bool RemoveBreakPointAtLineNumber(LineNumber nLineNumber) = 0;
    virtual bool RemoveBreakPointAtInstructionNumber(InstructionNumber nInstructionNumber) = 0;
    virtual bool RemoveAllBreakPoints() = 0;
    virtual bool ToggleBreakPointAtLineNumber(LineNumber nLineNumber, bool bSnapToNearestLine) = 0;
    virtual bool ToggleBreakPointAtInstructionNumber(InstructionNumber nInstructionNumber) = 0;
    virtual bool HasBreakPointAtLineNumber(LineNumber nLineNumber) const = 0;
    virtual bool HasBreakPointAtInstructionNumber(InstructionNumber nInstructionNumber) const = 0;
    /// The range is open: a breakpoint on one of its two ends doesn't count.
    virtual bool HasBreakPointInLineRange(LineNumber nRangeStart, LineNumber nRangeEnd) const = 0;
    virtual bool HasBreakPointInInstructionRange(InstructionNumber nRangeStart, InstructionNumber nRangeEnd) const = 0;
    /// The count, and a copy if the pointer is set.
    virtual size_type GetBreakPointsAsLineNumbers(std::set<unsigned int>* pBreakpoints) const = 0;
    virtual size_type GetBreakPointsAsInstructionNumbers(std::set<unsigned int>* pBreakpoints) const = 0;

    virtual bool SetTrackingVariables(const std::set<std::string>& variables) = 0;
    virtual std::set<std::string> GetTrackingVariables() const = 0;
    virtual void SetEnableTrackingVariables(bool bEnableTrackingVariables) = 0;
    virtual bool GetEnableTrackingVariables() const = 0;
    /// Whether registers are read when a query asks for them, and not at each stop.
    virtual void SetValuesOnDemand(bool /*bOn*/) {}
    virtual bool HasValuesOnDemand() const { return false; }
    /// Whether the kernel declares a UAV of that number as private memory.
    virtual bool HasPrivateUAV(unsigned int /*nNumber*/) const { return false; }

    /// A new set of values for one work-item; the caller deletes it.
    virtual CShaderDebuggerVariables* GetVariables(ThreadID& threadID) = 0;
    /// A register's values for all work-items; owned by the engine, valid until the next command.
    virtual CShaderDebuggerBuffer* GetRegisterResultsBuffer(VariableID& variableID) = 0;
    /// A kernel-wide result, brought up to date first; owned by the engine.
    virtual CShaderDebuggerBuffer* GetGlobalResultsBuffer(const VariableID& variableID) = 0;
    /// The mask of the last touched result; owned by the engine.
    virtual CShaderDebuggerBuffer* GetExecutionMaskBuffer() const = 0;
    /// How many work-items that mask has. \return false if there is no mask
    virtual bool CountActive(size_t& nActive) const = 0;
    /// A block of a work-group's local memory at the present stop: what the kernel declares under a number, or the
    /// memory of an argument, by its index. The bytes are the engine's, valid until the next command.
    /// \param ppBytes receives null for a group that isn't there; may be null, and then no run is made
    /// \param pnSize receives the block's bytes, 0 if there is no such block
    /// \return false if there is no such block, and if the run that is needed fails
    virtual bool GetLocalMemory(bool /*bArgument*/, unsigned int /*nNumber*/, unsigned int /*nGroup*/,
                                const unsigned char** /*ppBytes*/, size_t* /*pnSize*/)
    {
        return false;
    }

    virtual unsigned int GetBufferWidth() const = 0;
    virtual unsigned int GetBufferHeight() const = 0;
    virtual unsigned int GetBufferDepth() const = 0;
    virtual unsigned int GetBufferArraySize() const = 0;
    virtual BufferType GetBufferType() const = 0;

    /// Copies the last error. \return true if it hasn't been read before
    virtual bool GetLastError(std::string& strLastError) = 0;
    virtual void SetLastError(const std::string& strLastError) = 0;
    virtual LogType GetLoggingLevel() const = 0;
    virtual void SetLoggingLevel(LogType nLevel) = 0;
    virtual CShaderDebuggerHost* GetHost() = 0;
};

} // namespace OVK_ShaderDebugger

#endif
