#ifndef KESTREL_ENGINE_BUFFERWORDS_H
#define KESTREL_ENGINE_BUFFERWORDS_H

#include "core/ShaderDebuggerBuffer.h"

#include <cstdint>
#include <cstring>

namespace OVK_ShaderDebugger
{

/// A 32-bit word of a buffer's contents, by its number.
inline uint32_t WordAt(const CShaderDebuggerBuffer& buffer, size_t nWord)
{
    uint32_t nValue = 0;
    std::memcpy(&nValue, buffer.GetData() + nWord * sizeof(nValue), sizeof(nValue));
    return nValue;
}

} // namespace OVK_ShaderDebugger

#endif
