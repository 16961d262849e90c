#ifndef KESTREL_TESTS_API_UNIT_SCRIPTEDDEBUGGER_H
#define KESTREL_TESTS_API_UNIT_SCRIPTEDDEBUGGER_H

#include "core/ShaderDebuggerBase.h"
#include "core/ShaderDebuggerBuffer.h"
#include "core/ShaderDebuggerHost.h"
#include "core/ShaderDebuggerVariables.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

/// A debugger that stops a given number of times, records what it is asked for, and returns what a test has put into
/// it.
class CScriptedDebugger : public OVK_ShaderDebugger::CShaderDebuggerBase
{
public:
    explicit CScriptedDebugger(OVK_ShaderDebugger::CShaderDebuggerHost* pHost)
        : CShaderDebuggerBase(pHost), m_pTestHost(pHost)
    {
    }

    bool StartDebugging(const void*, size_t, OVK_ShaderDebugger::ShaderLinkage*, OVK_ShaderDebugger::ThreadID*,
                        OVK_ShaderDebugger::Mode) override
    {
        pDone->push_back("start");
        return bStarts && m_pTestHost->EnterDebuggingMode(nullptr, 0, nullptr, nullptr, OVK_ShaderDebugger::DM_Asm);
    }
    void EndDebugging(bool bUpdate) override { pDone->push_back(bUpdate ? "end and update" : "end"); }
    bool Step() override { return Move("step"); }
    bool Back() override { return Move("back") && false; }
    bool Run() override { return Move("run"); }
    bool RunBack() override { return Move("run back") && false; }
    OVK_ShaderDebugger::LineNumber GetNextLine() const override { return 33; }
    bool AddBreakPointAtLineNumber(OVK_ShaderDebugger::LineNumber nLine, OVK_ShaderDebugger::LineNumber lookAhead,
                                   OVK_ShaderDebugger::LineNumber* pTaken) override
    {
        *pTaken = nLine + lookAhead;
        return lines.insert(*pTaken).second;
    }
    bool RemoveBreakPointAtLineNumber(OVK_ShaderDebugger::LineNumber nLine) override { return lines.erase(nLine) != 0; }
    bool RemoveAllBreakPoints() override
    {
        lines.clear();
        return true;
    }
    size_type GetBreakPointsAsLineNumbers(std::set<unsigned int>* pLines) const override
    {
        if (pLines != nullptr)
        {
            *pLines = lines;
        }
        return lines.size();
    }
    OVK_ShaderDebugger::CShaderDebuggerVariables* GetVariables(OVK_ShaderDebugger::ThreadID&) override
    {
        auto* pVariables = new OVK_ShaderDebugger::CShaderDebuggerVariables;
        float fValues[4] = {};
        for (const std::string& strName : vActive)
        {
            pVariables->AddVariable(strName, OVK_ShaderDebugger::COMP_All, 4, fValues, ShaderUtils::DT_Float32);
        }
        return pVariables;
    }
    OVK_ShaderDebugger::CShaderDebuggerBuffer*
    GetRegisterResultsBuffer(OVK_ShaderDebugger::VariableID& variableID) override
    {
        return Find(variableID.strName);
    }
    OVK_ShaderDebugger::CShaderDebuggerBuffer*
    GetGlobalResultsBuffer(const OVK_ShaderDebugger::VariableID& variableID) override
    {
        return Find(variableID.strName);
    }
    OVK_ShaderDebugger::CShaderDebuggerBuffer* GetExecutionMaskBuffer() const override
    {
        const auto found = results.find("mask");
        return found != results.end() ? found->second.get() : nullptr;
    }

    bool CountActive(size_t& /*nActive*/) const override { return false; }

    // Queries of a session that these tests don't cover.
    using CShaderDebuggerBase::GetShaderInfo;
    using CShaderDebuggerBase::GetShaderText;
    bool GetShaderText(const void*, size_t, std::string&, OVK_ShaderDebugger::Mode) override { return false; }
    bool GetShaderKeyWords(OVK_ShaderDebugger::KeyWordsList&, OVK_ShaderDebugger::Mode) override { return false; }
    bool GetShaderKeyWords(const void*, size_t, OVK_ShaderDebugger::KeyWordsList&, OVK_ShaderDebugger::Mode) override
    {
        return false;
    }
    bool GetShaderInfo(const void*, size_t, OVK_ShaderDebugger::ShaderInfo&) override { return false; }
    bool Execute() override { return false; }
    OVK_ShaderDebugger::LineNumber GetCurrentLine() const override { return 0; }
    OVK_ShaderDebugger::LineNumber GetPreviousLine() const override { return 0; }
    OVK_ShaderDebugger::ProgramCounter GetCurrentInstruction() const override { return {}; }
    bool AddBreakPointAtInstructionNumber(OVK_ShaderDebugger::InstructionNumber) override { return false; }
    bool RemoveBreakPointAtInstructionNumber(OVK_ShaderDebugger::InstructionNumber) override { return false; }
    bool ToggleBreakPointAtInstructionNumber(OVK_ShaderDebugger::InstructionNumber) override { return false; }
    bool HasBreakPointAtInstructionNumber(OVK_ShaderDebugger::InstructionNumber) const override { return false; }
    bool HasBreakPointInInstructionRange(OVK_ShaderDebugger::InstructionNumber,
                                         OVK_ShaderDebugger::InstructionNumber) const override
    {
        return false;
    }
    size_type GetBreakPointsAsInstructionNumbers(std::set<unsigned int>*) const override { return 0; }

    /// A result that consists of bytes.
    OVK_ShaderDebugger::CShaderDebuggerBuffer& AddResult(const std::string& strName, size_t nSize)
    {
        OVK_ShaderDebugger::BufferDesc desc;
        desc.m_Type = ShaderUtils::BT_Buffer;
        desc.m_Format = ShaderUtils::BF_RAW;
        desc.m_nDepth = 1;
        desc.m_nArraySize = 1;
        desc.m_nSize = nSize;
        auto pBuffer = std::make_unique<OVK_ShaderDebugger::CShaderDebuggerBuffer>(m_pTestHost);
        pBuffer->Create(desc, nullptr);
        return *(results[strName] = std::move(pBuffer));
    }

    bool bStarts = true;
    size_t nStops = 0; ///< movements that stop again
    std::set<unsigned int> lines;
    std::vector<std::string> vActive;
    std::map<std::string, std::unique_ptr<OVK_ShaderDebugger::CShaderDebuggerBuffer>> results;
    std::vector<std::string>* pDone = nullptr; ///< receives the movements, and how the run was ended

private:
    bool Move(const char* pszWhat)
    {
        pDone->push_back(pszWhat);
        return nStops != 0 && nStops-- != 0;
    }

    OVK_ShaderDebugger::CShaderDebuggerBuffer* Find(const std::string& strName)
    {
        const auto found = results.find(strName);
        return found != results.end() ? found->second.get() : nullptr;
    }

    OVK_ShaderDebugger::CShaderDebuggerHost* m_pTestHost;
};

#endif
