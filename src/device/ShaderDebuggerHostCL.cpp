#include "device/ShaderDebuggerHostCL.h"

#include "OVKKestrel.h"

#include "core/CLLogger.h"
#include "core/ShaderDebuggerVariables.h"
#include "modules/CLCall.h"
#include "modules/CLDispatchTable.h"

#include <algorithm>
#include <ctime>
#include <memory>
#include <new>

namespace OVK_ShaderDebugger
{

namespace
{

const unsigned int s_nMaxDim = 3;

/// Devices of the older generation; any other, a future one too, is of the newer.
const char* const s_OlderDevices[] = {"Ingot",   "Billet",   "Bloom", "Slag",  "Flux",   "Kiln",
                                      "Anvil",   "Forge",    "Lathe", "Swage", "Fuller", "Hardy",
                                      "Bellows", "Crucible", "Tongs", "Rivet", "Sledge", "Chisel"};

std::string GetTimeText()
{
    const time_t now = std::time(nullptr);
    char szText[64] = "\n";
    return ctime_r(&now, szText) != nullptr ? szText : "\n";
}

void CopyValues(const size_t* pValues, unsigned int nCount, size_t (&destination)[s_nMaxDim])
{
    std::fill_n(destination, s_nMaxDim, size_t(0));
    if (pValues != nullptr)
    {
        std::copy_n(pValues, nCount, destination);
    }
}

} // namespace

size_t GetWorkGroupSize(unsigned int nNumDim, const size_t* pLocalSize)
{
    size_t nSize = pLocalSize != nullptr ? pLocalSize[0] : 0;
    for (unsigned int i = 1; i < nNumDim && pLocalSize != nullptr; ++i)
    {
        nSize *= pLocalSize[i];
    }
    return nSize;
}

CShaderDebuggerHostCL* CShaderDebuggerHostCL::CreateShaderDebuggerHostCL(Platform platform, cl_kernel kernel,
                                                                         cl_command_queue queue,
                                                                         const std::string& strLogFile)
{
    std::unique_ptr<CShaderDebuggerDeviceCL> pDevice(new (std::nothrow) CShaderDebuggerDeviceCL(kernel, queue));
    if (pDevice == nullptr)
    {
        return nullptr;
    }
    // From its construction on the host owns the device, a construction that fails half-way included.
    std::unique_ptr<CShaderDebuggerHostCL> pHost(
        new (std::nothrow) CShaderDebuggerHostCL(kernel, queue, pDevice.release(), strLogFile));
    if (pHost == nullptr)
    {
        return nullptr;
    }
    if (pHost->GetCommandQueue() == nullptr || IShaderDebugger::CreateShaderDebugger(platform, pHost.get()) == nullptr)
    {
        return nullptr;
    }
    return pHost.release();
}

CShaderDebuggerHostCL::CShaderDebuggerHostCL(cl_kernel kernel, cl_command_queue queue, CShaderDebuggerDeviceCL* pDevice,
                                             const std::string& strLogFile)
    : CShaderDebuggerHost(pDevice), m_strLogFile(strLogFile), m_nNumDim(0), m_nGlobalOffset(), m_nGlobalSize(),
      m_nLocalSize(), m_Device(nullptr), m_Context(nullptr), m_Queue(nullptr), m_Kernel(kernel)
{
    if (!m_strLogFile.empty())
    {
        m_LogFile.open(m_strLogFile, std::ios::out | std::ios::app);
        m_LogFile << "\n*************************************\n"
                  << "Log started: " << GetTimeText() << "\n"
                  << "\n*************************************\n\n";
    }
    if (!CLD_Assert(kernel != nullptr) || !OpenQueue(queue))
    {
        ReleaseHandles();
    }
}

bool CShaderDebuggerHostCL::OpenQueue(cl_command_queue queue)
{
    cl_context context = nullptr;
    cl_int err = QueryCL(Kestrel::g_CLDispatchTable.GetKernelInfo, m_Kernel, CL_KERNEL_CONTEXT, context);
    if (err == CL_SUCCESS)
    {
        err = CallCL(Kestrel::g_CLDispatchTable.RetainContext, context);
    }
    if (!CLD_Assert(err == CL_SUCCESS))
    {
        return false;
    }
    m_Context = context;

    cl_device_type type = 0;
    err = QueryCL(Kestrel::g_CLDispatchTable.GetCommandQueueInfo, queue, CL_QUEUE_DEVICE, m_Device);
    if (err == CL_SUCCESS)
    {
        err = QueryCL(Kestrel::g_CLDispatchTable.GetDeviceInfo, m_Device, CL_DEVICE_TYPE, type);
    }
    if (err == CL_SUCCESS && type == CL_DEVICE_TYPE_GPU)
    {
        // Without the intercept bit, so that the debugger's own launches don't come back to it.
        m_Queue = CreateCL(err, Kestrel::g_CLDispatchTable.CreateCommandQueue, m_Context, m_Device,
                           cl_command_queue_properties(0));
    }
    return CLD_Assert(err == CL_SUCCESS);
}

bool CShaderDebuggerHostCL::ReleaseHandles() noexcept
{
    bool bReleased = true;
    if (m_Queue != nullptr && CallCL(Kestrel::g_CLDispatchTable.ReleaseCommandQueue, m_Queue) != CL_SUCCESS)
    {
        bReleased = CLD_Break("Error: clReleaseCommandQueue() failed.");
    }
    if (m_Context != nullptr && CallCL(Kestrel::g_CLDispatchTable.ReleaseContext, m_Context) != CL_SUCCESS)
    {
        bReleased = CLD_Break("Error: clReleaseContext() failed.");
    }
    m_Queue = nullptr;
    m_Context = nullptr;
    return bReleased;
}

CShaderDebuggerHostCL::~CShaderDebuggerHostCL()
{
    try
    {
        m_Kernel = nullptr;
        m_Device = nullptr;
        ReleaseHandles();
        if (m_LogFile.is_open())
        {
            m_LogFile << "\n***********************************\n"
                      << "Log ended: " << GetTimeText() << "\n"
                      << "\n***********************************\n\n";
            m_LogFile.close();
        }
    }
    catch (...)
    {
        CLD_Report("~CShaderDebuggerHostCL", "CLD_Break", "\"Exception in ~CShaderDebuggerHostCL()\"");
    }
}

bool CShaderDebuggerHostCL::EnterDebuggingMode(const void* pShaderData, size_t nShaderSize, ShaderLinkage* pLinkageData,
                                               ThreadID* pDimensions, Mode mode)
{
    return CShaderDebuggerHost::EnterDebuggingMode(pShaderData, nShaderSize, pLinkageData, pDimensions, mode);
}

bool CShaderDebuggerHostCL::ExitDebuggingMode()
{
    return CShaderDebuggerHost::ExitDebuggingMode();
}

bool CShaderDebuggerHostCL::SetEnqueueData(unsigned int nNumDim, const size_t* nGlobalOffset, const size_t* nGlobalSize,
                                           const size_t* nLocalSize)
{
    m_nNumDim = 0;
    CopyValues(nullptr, 0, m_nGlobalOffset);
    CopyValues(nullptr, 0, m_nGlobalSize);
    CopyValues(nullptr, 0, m_nLocalSize);
    if (!CLD_Assert(nNumDim != 0) || !CLD_Assert(nNumDim <= s_nMaxDim) || !CLD_Assert(nGlobalSize != nullptr))
    {
        return false;
    }
    m_nNumDim = nNumDim;
    CopyValues(nGlobalOffset, nNumDim, m_nGlobalOffset);
    CopyValues(nGlobalSize, nNumDim, m_nGlobalSize);
    CopyValues(nLocalSize, nNumDim, m_nLocalSize);
    return true;
}

bool CShaderDebuggerHostCL::GetEnqueueData(unsigned int* pnNumDim, const size_t** ppnGlobalOffset,
                                           const size_t** ppnGlobalSize, const size_t** ppnLocalSize)
{
    if (pnNumDim != nullptr)
    {
        *pnNumDim = m_nNumDim;
    }
    if (ppnGlobalOffset != nullptr)
    {
        *ppnGlobalOffset = m_nGlobalOffset;
    }
    if (ppnGlobalSize != nullptr)
    {
        *ppnGlobalSize = m_nGlobalSize;
    }
    if (ppnLocalSize != nullptr)
    {
        *ppnLocalSize = m_nLocalSize;
    }
    return true;
}

bool CShaderDebuggerHostCL::ExecuteShader()
{
    const cl_kernel kernel = static_cast<cl_kernel>(GetDevice()->GetShader(ShaderUtils::ST_Compute));
    size_t nWorkGroupSize = 0;
    if (CallCL(Kestrel::g_CLDispatchTable.GetKernelWorkGroupInfo, kernel, m_Device, CL_KERNEL_WORK_GROUP_SIZE,
               sizeof(nWorkGroupSize), &nWorkGroupSize, nullptr) != CL_SUCCESS)
    {
        return CLD_Break("Error: clGetKernelWorkGroupInfo() failed.");
    }
    const size_t nTargetWorkGroupSize = GetWorkGroupSize(m_nNumDim, m_nLocalSize);
    if (nTargetWorkGroupSize > nWorkGroupSize)
    {
        return CLD_Break("Error: Local group size is too large.");
    }
    const size_t* pLocalSize = nTargetWorkGroupSize != 0 ? m_nLocalSize : nullptr;
    cl_int nCode = CallCL(Kestrel::g_CLDispatchTable.EnqueueNDRangeKernel, m_Queue, kernel, m_nNumDim, m_nGlobalOffset,
                          m_nGlobalSize, pLocalSize, cl_uint(0), nullptr, nullptr);
    if (nCode == CL_SUCCESS)
    {
        nCode = CallCL(Kestrel::g_CLDispatchTable.Finish, m_Queue);
    }
    SetBrokenOff(IsBrokenOff() || nCode == OVKCLDEBUG_EXT_RUN_BROKEN_OFF);
    return nCode == CL_SUCCESS;
}

void CShaderDebuggerHostCL::LogMessage(LogType, const std::string& strMessage)
{
    if (m_LogFile.is_open())
    {
        m_LogFile << strMessage << "\n";
        m_LogFile.flush();
    }
}

void CShaderDebuggerHostCL::GetDeviceName(std::string& strDeviceName)
{
    if (GetDevice() != nullptr)
    {
        strDeviceName = GetDevice()->GetDeviceName();
    }
}

CShaderDebuggerDeviceCL* CShaderDebuggerHostCL::GetDevice() const
{
    return static_cast<CShaderDebuggerDeviceCL*>(m_pDevice);
}

const std::vector<char>& CShaderDebuggerHostCL::GetShaderData() const
{
    return GetDevice()->GetShaderData();
}

bool CShaderDebuggerHostCL::IsTidewater()
{
    std::string strName;
    QueryTextCL(Kestrel::g_CLDispatchTable.GetDeviceInfo, m_Device, CL_DEVICE_NAME, strName);
    return std::find(std::begin(s_OlderDevices), std::end(s_OlderDevices), strName) == std::end(s_OlderDevices);
}

bool CShaderDebuggerHostCL::GetActiveRegisters(std::vector<std::string>* pRegisters) const
{
    if (pRegisters == nullptr)
    {
        return false;
    }
    ThreadID threadID = GetCurrentThread();
    const std::unique_ptr<CShaderDebuggerVariables> pVariables(GetDebugger()->GetVariables(threadID));
    if (pVariables == nullptr)
    {
        return false;
    }
    pRegisters->clear();
    for (const CShaderDebuggerVariable& variable : pVariables->GetVariables())
    {
        pRegisters->push_back(variable.m_strName);
    }
    return true;
}

} // namespace OVK_ShaderDebugger
