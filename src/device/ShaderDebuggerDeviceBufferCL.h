#ifndef KESTREL_DEVICE_SHADERDEBUGGERDEVICEBUFFERCL_H
#define KESTREL_DEVICE_SHADERDEBUGGERDEVICEBUFFERCL_H

#include "core/ShaderDebuggerDevice.h"

#include <functional>
#include <vector>

#include <CL/cl.h>

namespace OVK_ShaderDebugger
{

/// A kernel argument, or a buffer of the debugger's own, on the OpenCL device.
///
/// Two kinds: a wrapping object, made from an argument of the client's kernel, reads and writes the
/// client's memory but never owns it; an owning one is made by Create. Neither retains a handle: the
/// device's context and queue, and the client's memory objects, must outlive the object.
class CShaderDebuggerDeviceBufferCL : public CShaderDebuggerDeviceBuffer
{
public:
    enum NullBufferType
    {
        CLNB_Unknown = 0,
        CLNB_Is_A_Null_Buffer = 1,
        CLNB_Not_A_Null_Buffer = 2
    };

    /// An empty object, for Create.
    CShaderDebuggerDeviceBufferCL(CShaderDebuggerHost* pHost, cl_device_id device, cl_context context,
                                  cl_command_queue queue);

    /// Wraps an argument: value and size are what clSetKernelArg got, desc describes it.
    CShaderDebuggerDeviceBufferCL(CShaderDebuggerHost* pHost, cl_device_id device, cl_context context,
                                  cl_command_queue queue, std::vector<unsigned char>& value, size_t size,
                                  bool bNullBuffer, BufferDesc desc);

    ~CShaderDebuggerDeviceBufferCL() override;

    /// The format of images that Create makes, in place of the one that follows from the description:
    /// a description knows the size of a channel, and nothing of how a kernel reads it.
    void SetImageFormat(const cl_image_format& format);

    bool Create(const BufferDesc& bufferDesc) override;
    CShaderDebuggerBuffer* GetDataBuffer(CShaderDebuggerBuffer* pDataBuffer) override;
    bool Visit(const std::function<void(const unsigned char* pBytes, size_t nSize)>& visit) override;
    const void* GetDeviceBuffer() const override;
    bool Clear() override;
    bool DumpBuffer(const std::string& strFilePath) const override;
    /// Returns when the data is in place. For images pData has the layout of the description.
    bool UpdateData(void* pData, size_t bufferSize) override;

    /// Drops what the object holds; Create may follow.
    /// \return false if a release failed
    virtual bool Destroy();
    /// The size that clSetKernelArg is to get.
    virtual size_t GetArgumentSize() const;

private:
    bool HasMemoryType() const;
    bool IsNull() const { return m_isNullBuffer == CLNB_Is_A_Null_Buffer; }
    cl_mem GetHandle() const;
    void SetHandle(cl_mem mem);
    bool CreateBuffer();
    bool CreateImage();
    cl_mem AllocateImage(const cl_image_format& format, cl_int& nCode) const;
    bool ReadMemory(cl_mem mem, CShaderDebuggerBuffer& dataBuffer);
    bool WriteMemory(cl_mem mem, const unsigned char* pData, size_t nSize);
    bool UpdateValue(const unsigned char* pData, size_t nSize);

    cl_context m_Context;
    cl_command_queue m_Queue;
    std::vector<unsigned char> m_Value; ///< the argument's value; empty for local memory
    size_t m_nSize;                     ///< its size
    NullBufferType m_isNullBuffer;
    bool m_bManageMemory; ///< made by Create, to be released
    bool m_bHasImageFormat;
    cl_image_format m_ImageFormat;
};

} // namespace OVK_ShaderDebugger

#endif
