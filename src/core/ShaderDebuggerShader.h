#ifndef KESTREL_CORE_SHADERDEBUGGERSHADER_H
#define KESTREL_CORE_SHADERDEBUGGERSHADER_H

#include "core/CallPath.h"
#include "core/IShaderDebugger.h"

#include <deque>
#include <map>
#include <stack>

namespace OVK_ShaderDebugger
{

/// The table between instructions and text lines. Analysis fills both halves together.
struct PC_LineNumberMap
{
    std::map<InstructionNumber, LineNumber> left;
    std::map<LineNumber, InstructionNumber> right;
};

/// One shader under debug: its private copy of the shader's data and the positions that every shader language has. The
/// subclass knows the language.
class CShaderDebuggerShader
{
public:
    /// Copies nShaderSize bytes. The debugger must not be null and must outlive the shader.
    CShaderDebuggerShader(IShaderDebugger* pDebugger, const void* pShaderData, size_t nShaderSize);
    virtual ~CShaderDebuggerShader();
    CShaderDebuggerShader(const CShaderDebuggerShader&) = delete;
    CShaderDebuggerShader& operator=(const CShaderDebuggerShader&) = delete;

    virtual bool StartDebugging(Mode mode);
    /// Ends the run; positions and history stay readable.
    virtual void EndDebugging();
    virtual bool IsDebugging() const { return m_bIsDebugging; }
    virtual bool IsShaderDebuggable(Mode mode) const { return (m_ShaderInfo.debugModes & mode) != 0; }
    virtual bool GetShaderText(std::string& strShader, Mode textType) = 0;
    virtual bool GetShaderKeyWords(KeyWordsList& keyWords, Mode textType) = 0;
    virtual bool GetShaderInfo(ShaderInfo& info) const;
    virtual ShaderType GetShaderType() const { return m_ShaderInfo.shaderType; }
    virtual Mode GetMode() const = 0;
    virtual bool SetMode(Mode mode) = 0;
    /// First phase of a movement: decides the position and what is to be run there.
    virtual bool Step() = 0;
    virtual bool Back() = 0;
    virtual bool Run() = 0;
    virtual bool RunBack() = 0;
    /// Runs what the first phase asked for.
    virtual bool Execute(bool bUpdateHistory) = 0;
    virtual bool Draw() = 0;
    /// The largest 32-bit value for a line that holds no instruction.
    virtual InstructionNumber GetInstruction(LineNumber nLineNumber) const = 0;
    /// The largest 32-bit value for an instruction that isn't there.
    virtual LineNumber GetLine(InstructionNumber nInstructionNumber) const = 0;
    virtual ProgramCounter GetCurrentInstruction() const { return m_nCurrentInstruction; }
    virtual ProgramCounter GetNextInstruction() const { return m_nNextInstruction; }
    virtual LineNumber GetCurrentLine() const = 0;
    virtual LineNumber GetNextLine() const = 0;
    virtual LineNumber GetPreviousLine() const = 0;

    const void* GetShaderData() const { return m_pShaderData; }
    size_t GetShaderDataSize() const { return m_nShaderDataSize; }
    CShaderDebuggerHost* GetHost() const { return m_pDebugger != nullptr ? m_pDebugger->GetHost() : nullptr; }
    IShaderDebugger* GetDebugger() const { return m_pDebugger; }

protected:
    void InitShaderInfo() { m_ShaderInfo = ShaderInfo(); }

    ShaderInfo m_ShaderInfo; ///< the subclass fills it during analysis
    bool m_bIsDebugging;
    ProgramCounter m_nCurrentInstruction; ///< last executed
    ProgramCounter m_nCurrentLine;
    ProgramCounter m_nNextInstruction; ///< what the next step takes
    ProgramCounter m_nNextLine;
    CCallPath m_CallStack;                            ///< which calls the next instruction is in
    std::stack<ProgramCounter> m_ExecutedStepHistory; ///< positions stopped at, newest on top
    void* m_pShaderData;                              ///< owned, from malloc; null when the size is 0 or memory ran out
    size_t m_nShaderDataSize;
    IShaderDebugger* m_pDebugger; ///< not owned
};

} // namespace OVK_ShaderDebugger

#endif
