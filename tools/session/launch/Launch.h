#ifndef KESTREL_TOOLS_LAUNCH_H
#define KESTREL_TOOLS_LAUNCH_H

#include "tools/session/launch/LaunchFile.h"
#include "tools/session/launch/Libraries.h"

#include <string>
#include <vector>

namespace KestrelTool
{

/// Where an output differs from what the launch file expects.
struct SDifference
{
    size_t nArgument;
    size_t nElement;
    std::string strGot;
    std::string strExpected;
};

/// The OpenCL objects of a launch: context, queue, program, kernel and arguments, all created through the debugger's
/// intercept, so that the launch can be debugged or just run, any number of times.
class CLaunch
{
public:
    /// \throws CPlatformError, with the build log if the program doesn't build
    CLaunch(const CLibraries& libraries, SLaunchFile file);
    ~CLaunch();
    CLaunch(const CLaunch&) = delete;
    CLaunch& operator=(const CLaunch&) = delete;

    /// Writes the arguments' contents, as in the file.
    void ResetContents();
    /// Runs the launch without the debugger, to its end.
    void Run();
    /// Runs the launch under the debugger, to its end. \return the enqueue's code
    cl_int Debug(ovkclDebugCallback callback, void* pUserData);

    /// The current contents of a buffer or image argument.
    std::vector<unsigned char> ReadContents(size_t nArgument) const;
    /// The image of the built program; empty if the runtime doesn't provide it.
    std::vector<char> ReadBinary() const;
    /// Saves the arguments for which the file asks for it.
    /// \throws CLaunchFileError for a file that can't be written
    void SaveOutputs() const;
    /// For each argument, its first difference from what the file expects.
    std::vector<SDifference> Compare() const;

    const SLaunchFile& GetFile() const { return m_File; }
    const std::string& GetDeviceName() const { return m_strDeviceName; }
    size_t GetWorkItems() const;
    cl_command_queue GetQueue() const { return m_Queue; }
    cl_device_id GetDevice() const { return m_Device; }
    cl_kernel GetKernel() const { return m_Kernel; }
    /// The memory object of a buffer or image argument.
    cl_mem GetMemory(size_t nArgument) const { return m_vMemory[nArgument]; }

private:
    void Create();
    void Release();
    void CheckArgumentCount() const;
    void RequireCount() const;
    void CheckSizes(cl_int nCode) const;
    void ChooseDevice();
    void BuildProgram();
    cl_program CreateProgram() const;
    void CreateSharedBuffers();
    void CreateArgument(size_t nArgument);
    cl_mem CreateImage(const SArgument& argument);
    cl_mem CreatePart(const SArgument& argument) const;
    cl_sampler CreateSampler(const SArgument& argument);
    void WriteContents(bool bNew);
    void WriteBuffer(cl_mem buffer, const SArgument& argument);
    std::string GetBuildLog() const;
    void Check(cl_int nCode, const char* pszWhat) const;
    const size_t* LocalSize() const { return m_File.bHasLocalSize ? m_File.nLocalSize : nullptr; }
    const size_t* Offset() const { return m_File.bHasOffset ? m_File.nGlobalOffset : nullptr; }

    const CLibraries& m_Lib;
    SLaunchFile m_File;
    std::string m_strDeviceName;
    cl_device_id m_Device = nullptr;
    cl_context m_Context = nullptr;
    cl_command_queue m_Queue = nullptr;
    cl_program m_Program = nullptr;
    cl_kernel m_Kernel = nullptr;
    std::vector<cl_mem> m_vMemory;       ///< by argument; null if it has none
    std::vector<cl_mem> m_vBuffers;      ///< shared buffers, of which arguments are parts
    std::vector<cl_mem> m_vImageBuffers; ///< the buffers behind images on a buffer
    std::vector<cl_sampler> m_vSamplers;
};

} // namespace KestrelTool

#endif
