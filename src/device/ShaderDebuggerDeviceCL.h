#ifndef KESTREL_DEVICE_SHADERDEBUGGERDEVICECL_H
#define KESTREL_DEVICE_SHADERDEBUGGERDEVICECL_H

#include "core/ShaderDebuggerDevice.h"

#include <optional>
#include <string>
#include <vector>

#include <CL/cl.h>

namespace OVK_ShaderDebugger
{

/// One argument's slot in the constant buffer that holds the kernel's arguments.
struct KernelArgCBEntry
{
    unsigned int m_nSize;   ///< bytes
    unsigned int m_nOffset; ///< bytes from the start of the buffer
};

/// The number in "OpenCL 1.2 (1800.0)": the runtime's build. 0 if there is none.
unsigned int GetRuntimeBuildNumber(const std::string& strDeviceVersion);

/// The kind of an argument, as its kernel's record has it: "value", "globalpointer" and so on.
/// \return the code of the record's query; the text is empty on failure
cl_int QueryKernelArgKind(cl_kernel kernel, unsigned int nArgumentIndex, std::string& strKind);

/// The device for one OpenCL kernel on one GPU: it describes and wraps the kernel's arguments, takes the
/// kernel's binary out of the program, and builds patched binaries into kernels.
///
/// All OpenCL calls go through the core's dispatch table; everything is enqueued on a queue of the
/// device's own, in order. An operation that can't go on logs why on the host and gives false, null, 0 or
/// an empty value.
class CShaderDebuggerDeviceCL : public CShaderDebuggerDevice
{
public:
    /// Retains the kernel and its context. On a failure, or on a device that is no GPU, the object stays
    /// inert: nothing that needs the kernel works.
    /// \param queue  tells the device, and is used for nothing else
    CShaderDebuggerDeviceCL(cl_kernel kernel, cl_command_queue queue);
    ~CShaderDebuggerDeviceCL() override;

    bool EnterDebuggingMode() override;
    bool ExitDebuggingMode() override;
    bool GetDeviceBufferDesc(ShaderType shaderType, int nDeviceBufferIndex, BufferDesc& bufferDesc) override;
    /// A description that is the one given last for an image argument makes an image of that argument's
    /// format.
    CShaderDebuggerDeviceBuffer* CreateDeviceBuffer(const BufferDesc& bufferDesc) override;
    unsigned int GetNumDeviceBuffers(ShaderType shaderType) const override;
    /// Not available by name.
    CShaderDebuggerDeviceBuffer* GetDeviceBuffer(ShaderType shaderType, std::string strDeviceBuffer) override;
    CShaderDebuggerDeviceBuffer* GetDeviceBuffer(ShaderType shaderType, unsigned int nDeviceBufferIndex) override;
    /// Not available by name.
    bool SetDeviceBuffer(ShaderType shaderType, std::string strDeviceBuffer,
                         CShaderDebuggerDeviceBuffer* pDeviceBuffer) override;
    bool SetDeviceBuffer(ShaderType shaderType, unsigned int nDeviceBufferIndex,
                         CShaderDebuggerDeviceBuffer* pDeviceBuffer) override;
    /// Not available.
    bool CreateShader(ShaderType shaderType, const void* pShaderData, size_t nShaderSize, void** ppShader) override;
    bool SetShader(ShaderType shaderType, const void* pShader, size_t nShaderSize) override;
    void* GetShader(ShaderType shaderType) override;
    std::string GetShaderFunctionName(ShaderType shaderType) const override;
    bool DisassembleShader(const void* pShaderData, size_t nShaderSize, std::string& strShader) override;

    /// The kernel binary with the debug IL as its only code, both as text and as tokens. Made on the first
    /// call; empty if that fails, and then tried again by the next.
    const std::vector<char>& GetShaderData() const;
    /// One element an argument, in order, while in debugging mode. An element of a counter is zero.
    const std::vector<KernelArgCBEntry>& GetKernelArgCBInfo() const { return m_KernelArgCBInfo; }
    const std::string& GetDeviceName() const { return m_DeviceName; }
    /// Known from EnterDebuggingMode on.
    bool Uses64BitABI() const { return m_bUses64BitABI; }

private:
    /// The image argument that was described last.
    struct SDescribedImage
    {
        BufferDesc desc;
        cl_image_format format;
    };

    CShaderDebuggerDeviceCL();
    bool ReadKernel(cl_kernel kernel);
    bool ReadDevice(cl_command_queue queue);
    void ReadRuntimeBuild() const;
    void BecomeInert();

    bool GetArgumentValueAndTypeFromOriginalKernel(unsigned int nArgumentIndex, std::vector<unsigned char>* pValue,
                                                   size_t* pSize, BufferType* pType, bool* pbNullBuffer) const;
    bool GetImageArgumentType(cl_mem mem, BufferType& type) const;
    bool DescribeMemory(cl_mem mem, BufferDesc& desc);
    bool DescribeImage(cl_mem mem, cl_mem_object_type objectType, BufferDesc& desc);

    bool PrepareShaderData(std::vector<char>& vKernelBinary) const;
    bool GetProgramBinary(cl_program program, cl_device_id device, std::vector<char>* vBinary) const;
    bool InitKernelABIAndArgCBInfo();
    void UnpatchKernelEntry(std::vector<char>& vShader);
    bool BuildProgram(cl_program program) const noexcept;
    bool ReleasePatchedKernel();

    cl_device_id m_Device;
    std::string m_DeviceName;
    cl_context m_Context;                          ///< retained
    cl_command_queue m_Queue;                      ///< owned
    cl_kernel m_OriginalKernel;                    ///< retained
    cl_kernel m_PatchedKernel;                     ///< owned; null before the first SetShader
    std::string m_strKernelName;                   ///< without any wrapper prefix
    std::optional<unsigned int> m_nFunctionNumber; ///< once it is known
    std::vector<KernelArgCBEntry> m_KernelArgCBInfo;
    mutable std::vector<char> m_vKernelBinary;
    bool m_bUses64BitABI;
    SDescribedImage m_DescribedImage;
};

} // namespace OVK_ShaderDebugger

#endif
