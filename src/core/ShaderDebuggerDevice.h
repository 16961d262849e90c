#ifndef KESTREL_CORE_SHADERDEBUGGERDEVICE_H
#define KESTREL_CORE_SHADERDEBUGGERDEVICE_H

#include "core/ShaderDebuggerCommon.h"

#include <cstddef>
#include <functional>
#include <string>

namespace OVK_ShaderDebugger
{

class CShaderDebuggerBuffer;
class CShaderDebuggerDeviceBuffer;
class CShaderDebuggerHost;

/// The debugger's access to a compute API: it knows the kernel and its arguments, and builds and sets shaders. Lives
/// for one session; one thread at a time.
class CShaderDebuggerDevice
{
public:
    explicit CShaderDebuggerDevice(void* pDevice) : m_pHost(nullptr), m_pDevice(pDevice) {}
    CShaderDebuggerDevice(const CShaderDebuggerDevice&) = delete;
    CShaderDebuggerDevice& operator=(const CShaderDebuggerDevice&) = delete;
    virtual ~CShaderDebuggerDevice() = default;

    /// Reads what the device needs of the kernel, before the first run of a patched kernel.
    virtual bool EnterDebuggingMode() = 0;
    virtual bool ExitDebuggingMode() = 0;
    /// A negative index describes the target: BT_Buffer with the extent of the dispatch, format and
    /// size 0, array size 1. An index from 0 on describes that kernel argument.
    virtual bool GetDeviceBufferDesc(ShaderType shaderType, int nDeviceBufferIndex, BufferDesc& bufferDesc) = 0;
    /// A new zeroed object of the description; the caller owns it. Null on failure.
    virtual CShaderDebuggerDeviceBuffer* CreateDeviceBuffer(const BufferDesc& bufferDesc) = 0;
    /// The number of kernel arguments, values and local memory included; 0 if it can't be found.
    virtual unsigned int GetNumDeviceBuffers(ShaderType shaderType) const = 0;
    virtual CShaderDebuggerDeviceBuffer* GetDeviceBuffer(ShaderType shaderType, std::string strDeviceBuffer) = 0;
    /// Wraps a kernel argument in a new object, which the caller owns, but not the memory in it.
    virtual CShaderDebuggerDeviceBuffer* GetDeviceBuffer(ShaderType shaderType, unsigned int nDeviceBufferIndex) = 0;
    virtual bool SetDeviceBuffer(ShaderType shaderType, std::string strDeviceBuffer,
                                 CShaderDebuggerDeviceBuffer* pDeviceBuffer) = 0;
    /// Makes a buffer the argument of the current patched shader. Takes no ownership.
    virtual bool SetDeviceBuffer(ShaderType shaderType, unsigned int nDeviceBufferIndex,
                                 CShaderDebuggerDeviceBuffer* pDeviceBuffer) = 0;
    virtual bool CreateShader(ShaderType shaderType, const void* pShaderData, size_t nShaderSize, void** ppShader) = 0;
    /// Builds a kernel binary and makes it the current patched shader.
    virtual bool SetShader(ShaderType shaderType, const void* pShader, size_t nShaderSize) = 0;
    /// The shader to run: the patched one if there is one, else the client's kernel.
    virtual void* GetShader(ShaderType shaderType) = 0;
    /// The kernel's name.
    virtual std::string GetShaderFunctionName(ShaderType shaderType) const = 0;
    /// IL text of a stream of tokens; nShaderSize in bytes.
    virtual bool DisassembleShader(const void* pShaderData, size_t nShaderSize, std::string& strShader) = 0;

    void* GetDevice() const { return m_pDevice; }
    CShaderDebuggerHost* GetHost() const { return m_pHost; }
    void SetHost(CShaderDebuggerHost* pHost) { m_pHost = pHost; }

protected:
    CShaderDebuggerHost* m_pHost; ///< null until SetHost; not owned
    void* m_pDevice;
};

/// One memory object or argument value on a device.
class CShaderDebuggerDeviceBuffer
{
public:
    explicit CShaderDebuggerDeviceBuffer(CShaderDebuggerHost* pHost) : m_pHost(pHost) {}
    CShaderDebuggerDeviceBuffer(const CShaderDebuggerDeviceBuffer&) = delete;
    CShaderDebuggerDeviceBuffer& operator=(const CShaderDebuggerDeviceBuffer&) = delete;
    virtual ~CShaderDebuggerDeviceBuffer() = default;

    /// Gives the object zeroed memory of the description; drops what it held before.
    virtual bool Create(const BufferDesc& bufferDesc) = 0;
    /// Copies the contents to the host: into the given buffer, or into a new one that the caller
    /// owns. Null on failure.
    virtual CShaderDebuggerBuffer* GetDataBuffer(CShaderDebuggerBuffer* pDataBuffer) = 0;
    /// Calls a function with the mapped contents of a buffer that Create made, without copying them.
    /// \return false if they can't be mapped, and then without a call, or can't be unmapped after it
    virtual bool Visit(const std::function<void(const unsigned char* pBytes, size_t nSize)>& visit) = 0;
    /// What is handed over as the argument's value; null for local memory.
    virtual const void* GetDeviceBuffer() const = 0;
    virtual bool Clear() = 0;
    /// Makes an empty file of that name.
    virtual bool DumpBuffer(const std::string& strFilePath) const = 0;
    /// Writes bufferSize bytes into the contents; null and 0 clear them.
    virtual bool UpdateData(void* pData, size_t bufferSize) = 0;

    void GetDeviceBufferDesc(BufferDesc* pDesc) const
    {
        if (pDesc != nullptr)
        {
            *pDesc = m_Desc;
        }
    }
    BufferFormat GetBufferFormat() const { return m_Desc.m_Format; }
    BufferType GetBufferType() const { return m_Desc.m_Type; }
    BufferUsage GetBufferUsage() const { return m_Desc.m_Usage; }
    ShaderType GetBufferShaderType() const { return m_Desc.m_ShaderType; }
    CShaderDebuggerHost* GetHost() const { return m_pHost; }

protected:
    CShaderDebuggerHost* m_pHost; ///< not owned
    BufferDesc m_Desc;
};

} // namespace OVK_ShaderDebugger

#endif
