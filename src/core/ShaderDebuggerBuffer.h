#ifndef KESTREL_CORE_SHADERDEBUGGERBUFFER_H
#define KESTREL_CORE_SHADERDEBUGGERBUFFER_H

#include "core/SUBuffer.h"

namespace OVK_ShaderDebugger
{

class CShaderDebuggerHost;

/// A host copy of a device buffer. Copies are deep.
class CShaderDebuggerBuffer : public ShaderUtils::SUBuffer
{
public:
    /// An empty buffer; the host must not be null.
    explicit CShaderDebuggerBuffer(CShaderDebuggerHost* pHost);
    CShaderDebuggerBuffer(const CShaderDebuggerBuffer& other) = default;
    CShaderDebuggerBuffer& operator=(const CShaderDebuggerBuffer& other) = default;

    CShaderDebuggerHost* GetHost() const { return m_pHost; }

private:
    CShaderDebuggerHost* m_pHost; ///< not owned
};

} // namespace OVK_ShaderDebugger

#endif
