#include "core/ShaderDebuggerShader.h"

#include "core/Log.h"

#include <cstdlib>
#include <cstring>

namespace OVK_ShaderDebugger
{

CShaderDebuggerShader::CShaderDebuggerShader(IShaderDebugger* pDebugger, const void* pShaderData, size_t nShaderSize)
    : m_bIsDebugging(false), m_pShaderData(nullptr), m_nShaderDataSize(nShaderSize), m_pDebugger(pDebugger)
{
    SD_AssertText(nullptr, pDebugger != nullptr, "m_pDebugger");
    if (nShaderSize == 0)
    {
        return;
    }
    m_pShaderData = std::malloc(nShaderSize);
    if (SD_AssertText(GetHost(), m_pShaderData != nullptr, "m_pShaderData") && pShaderData != nullptr)
    {
        std::memcpy(m_pShaderData, pShaderData, nShaderSize);
    }
}

CShaderDebuggerShader::~CShaderDebuggerShader()
{
    CShaderDebuggerShader::EndDebugging();
    std::free(m_pShaderData);
}

bool CShaderDebuggerShader::StartDebugging(Mode mode)
{
    if (!SD_Assert(GetHost(), !IsDebugging()) || !SD_Assert(GetHost(), IsShaderDebuggable(mode)))
    {
        return false;
    }
    m_bIsDebugging = true;
    m_nCurrentInstruction = m_nCurrentLine = m_nNextInstruction = m_nNextLine = ProgramCounter(0);
    m_CallStack.clear();
    m_ExecutedStepHistory = std::stack<ProgramCounter>();
    return SetMode(mode);
}

void CShaderDebuggerShader::EndDebugging()
{
    m_bIsDebugging = false;
}

bool CShaderDebuggerShader::GetShaderInfo(ShaderInfo& info) const
{
    info = m_ShaderInfo;
    return true;
}

} // namespace OVK_ShaderDebugger
