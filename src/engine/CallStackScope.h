#ifndef KESTREL_ENGINE_CALLSTACKSCOPE_H
#define KESTREL_ENGINE_CALLSTACKSCOPE_H

#include "engine/ShaderDebuggerShaderIL.h"

namespace OVK_ShaderDebugger
{

/// Makes a call path the call stack of the kernel for the length of a run. Internal to this folder.
class CShaderDebuggerShaderIL::CCallStackScope
{
public:
    CCallStackScope(CShaderDebuggerShaderIL& shader, const CallPath& path)
        : m_CallStack(shader.m_CallStack), m_Saved(path)
    {
        m_CallStack.swap(m_Saved);
    }
    ~CCallStackScope() { m_CallStack.swap(m_Saved); }
    CCallStackScope(const CCallStackScope&) = delete;
    CCallStackScope& operator=(const CCallStackScope&) = delete;

private:
    CallPath& m_CallStack;
    CallPath m_Saved;
};

} // namespace OVK_ShaderDebugger

#endif
