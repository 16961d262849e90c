#ifndef KESTREL_ENGINE_ARGUMENTDUMP_H
#define KESTREL_ENGINE_ARGUMENTDUMP_H

#include <memory>

namespace OVK_ShaderDebugger
{

class CInstrumentedShaderIL;
class CShaderDebuggerBuffer;
class CShaderDebuggerDeviceBuffer;
class CTargetBuffers;

/// Only the device knows the addresses of the arguments: they are set up at launch, in constant buffer 1. So each
/// session begins with a run of a kernel made for the purpose, which has the client's arguments and copies that buffer
/// to memory.
class CArgumentDump
{
public:
    CArgumentDump();
    ~CArgumentDump();

    /// Makes the buffer for it. \return false if the buffer can't be made
    bool CreateBuffer(const CInstrumentedShaderIL& kernel);
    /// \param bOutputs  whether the run has the output buffers among its arguments; else it leaves them alone, and what
    ///                  isn't there yet isn't made for it
    /// \return false, with the reason logged
    bool Run(CInstrumentedShaderIL& kernel, CTargetBuffers& buffers, bool bOutputs);
    /// What the run has left: four words for each element of the constant buffer. Null if it can't be read.
    std::unique_ptr<CShaderDebuggerBuffer> Read() const;
    void Clear();

private:
    bool Switch(CTargetBuffers& buffers, bool bOutputs);

    std::unique_ptr<CShaderDebuggerDeviceBuffer> m_pBuffer;
};

} // namespace OVK_ShaderDebugger

#endif
