#ifndef KESTREL_ENGINE_CALLSTACKSCOPE_H
#define KESTREL_ENGINE_CALLSTACKSCOPE_H

#include "engine/ShaderDebuggerShaderIL.h"

namespace OVK_ShaderDebugger
{

/// Makes a call path the call stack of the kernel for the length of a run, and jumps those at which is read as well.
/// Internal to this folder.
class CShaderDebuggerShaderIL::CCallStackScope
{
public:
    CCallStackScope(CShaderDebuggerShaderIL& shader, const CCallPath& path, const std::set<InstructionNumber>& leaving)
        : m_Shader(shader), m_Path(path), m_Leaving(leaving)
    {
        Swap();
    }
    ~CCallStackScope() { Swap(); }
    CCallStackScope(const CCallStackScope&) = delete;
    CCallStackScope& operator=(const CCallStackScope&) = delete;

private:
    void Swap()
    {
        m_Shader.m_CallStack.swap(m_Path);
        m_Shader.m_Leaving.swap(m_Leaving);
    }

    CShaderDebuggerShaderIL& m_Shader;
    CCallPath m_Path;
    std::set<InstructionNumber> m_Leaving;
};

} // namespace OVK_ShaderDebugger

#endif
