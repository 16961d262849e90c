#include "core/ShaderDebuggerBuffer.h"

#include "core/Log.h"

namespace OVK_ShaderDebugger
{

CShaderDebuggerBuffer::CShaderDebuggerBuffer(CShaderDebuggerHost* pHost) : m_pHost(pHost)
{
    SD_AssertText(pHost, m_pHost != nullptr, "m_pHost != NULL");
}

} // namespace OVK_ShaderDebugger
