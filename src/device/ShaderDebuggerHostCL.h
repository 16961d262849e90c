#ifndef KESTREL_DEVICE_SHADERDEBUGGERHOSTCL_H
#define KESTREL_DEVICE_SHADERDEBUGGERHOSTCL_H

#include "core/ShaderDebuggerHost.h"
#include "device/ShaderDebuggerDeviceCL.h"

#include <CL/cl.h>

#include <fstream>
#include <string>
#include <vector>

namespace OVK_ShaderDebugger
{

typedef cl_uint memoryResource;
typedef cl_ulong memoryAddress;

/// A range of valid global memory, both ends inclusive.
struct memoryRegion
{
    memoryResource resource;
    memoryAddress first;
    memoryAddress last;
};

/// One argument of the kernel, as far as global memory goes.
struct KernelArgInfo
{
    memoryResource uavNum;     ///< the UAV through which the kernel reaches the buffer
    memoryAddress baseAddress; ///< as the kernel sees it
    memoryAddress size;        ///< bytes; 0 for what isn't global memory and for a null buffer
};

/// Work-items of a group; 0 if no local size was given.
size_t GetWorkGroupSize(unsigned int nNumDim, const size_t* pLocalSize);

/// What a launch means in OpenCL: kernel, context, sizes, a queue of its own on which the patched kernels
/// run, the session's log file and the map of global memory. Used under the lock of the sessions.
class CShaderDebuggerHostCL : public CShaderDebuggerHost
{
public:
    /// Makes device, host and debugger.
    /// \param queue       tells the device, and is used for nothing else
    /// \param strLogFile  appended to; empty for none
    /// \return null if memory runs out, or the host can't have its queue
    static CShaderDebuggerHostCL* CreateShaderDebuggerHostCL(Platform platform, cl_kernel kernel,
                                                             cl_command_queue queue, const std::string& strLogFile);

    /// Takes over the device. A failing OpenCL call leaves the host without context and queue.
    CShaderDebuggerHostCL(cl_kernel kernel, cl_command_queue queue, CShaderDebuggerDeviceCL* pDevice,
                          const std::string& strLogFile);
    ~CShaderDebuggerHostCL() override;

    bool EnterDebuggingMode(const void* pShaderData, size_t nShaderSize, ShaderLinkage* pLinkageData,
                            ThreadID* pDimensions, Mode mode) override;
    bool ExitDebuggingMode() override;
    /// False also for a work-group that is too large for the patched kernel.
    bool ExecuteShader() override;
    void LogMessage(LogType type, const std::string& strMessage) override;
    void GetDeviceName(std::string& strDeviceName) override;
    CShaderDebuggerDeviceCL* GetDevice() const override;

    /// Keeps the launch's sizes: nNumDim values of each array. Absent offsets and local sizes are kept as 0.
    /// \return false, with nothing kept, for no or more than three dimensions, or without a global size
    virtual bool SetEnqueueData(unsigned int nNumDim, const size_t* nGlobalOffset, const size_t* nGlobalSize,
                                const size_t* nLocalSize);
    /// Each pointer may be null. The arrays have three elements and are the host's. \return true
    virtual bool GetEnqueueData(unsigned int* pnNumDim, const size_t** ppnGlobalOffset, const size_t** ppnGlobalSize,
                                const size_t** ppnLocalSize);
    /// The device's kernel binary; empty on failure.
    virtual const std::vector<char>& GetShaderData() const;
    virtual cl_command_queue GetCommandQueue() const { return m_Queue; }
    /// Whether the device isn't one of the older generation.
    virtual bool IsTidewater();

    /// Works out where each global memory argument lies. The debugger must have started.
    virtual bool InitKernelArgInfo(cl_kernel kernel);
    /// Reads global memory as it is at the present stop.
    /// \param buffer       null to ask for the size of the buffer that holds the address
    /// \param pOutputSize  receives the bytes read, fewer than asked for where the buffer ends; may be null
    virtual bool GetGlobalMemory(unsigned int uav, memoryAddress address, size_t bufferSize, void* buffer,
                                 size_t* pOutputSize);
    /// Whether an argument's buffer holds the address, whether or not it can be read.
    bool HasGlobalMemory(unsigned int uav, memoryAddress address) const;
    /// \param regions        receives at most numRegions regions; may be null
    /// \param numRegionsRet  receives the count of all; may be null
    /// \return false if the array is too short
    virtual bool GetValidGlobalMemoryRegions(size_t numRegions, memoryRegion* regions, size_t* numRegionsRet);
    /// The names of all registers with a value.
    virtual bool GetActiveRegisters(std::vector<std::string>* pRegisters) const;

    cl_kernel GetKernel() const { return m_Kernel; }

private:
    bool OpenQueue(cl_command_queue queue);
    bool InitArgument(cl_kernel kernel, unsigned int nArgument, const CShaderDebuggerBuffer& constants,
                      KernelArgInfo& info);
    CShaderDebuggerBuffer* GetArgumentBuffer(size_t nArgument);
    static bool IsIn(const KernelArgInfo& info, unsigned int uav, memoryAddress address);
    bool ReleaseHandles() noexcept;

    std::string m_strLogFile;
    std::ofstream m_LogFile;
    unsigned int m_nNumDim;
    size_t m_nGlobalOffset[3];
    size_t m_nGlobalSize[3];
    size_t m_nLocalSize[3];
    cl_device_id m_Device;    ///< not retained
    cl_context m_Context;     ///< retained
    cl_command_queue m_Queue; ///< owned
    cl_kernel m_Kernel;       ///< the client's, not retained
    std::vector<KernelArgInfo> m_vKernelArgInfo;
};

} // namespace OVK_ShaderDebugger

#endif
