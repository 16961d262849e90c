#include "device/ShaderDebuggerDeviceCL.h"

#include "binary/CLMetadata.h"
#include "binary/CLMetadataEntries.h"
#include "binary/ElfUtils.h"
#include "binary/ILTranslator.h"
#include "binary/KernelArgTracking.h"
#include "core/Log.h"
#include "modules/CLCall.h"
#include "modules/CLDispatchTable.h"

#include <cstdlib>

namespace OVK_ShaderDebugger
{

namespace
{

// Older runtimes take IL through the low-level runtime's assembler only.
const unsigned int s_nFirstBuildWithCompilerLibrary = 1500;

template <class Entry>
bool AppendSlot(const CCLMetadataEntry* pEntry, std::vector<KernelArgCBEntry>& vSlots)
{
    const Entry* pTyped = dynamic_cast<const Entry*>(pEntry);
    if (pTyped == nullptr)
    {
        return false;
    }
    vSlots.push_back({pTyped->GetConstantBufferEntrySize(), pTyped->GetConstantBufferOffset()});
    return true;
}

} // namespace

unsigned int GetRuntimeBuildNumber(const std::string& strDeviceVersion)
{
    const size_t nOpen = strDeviceVersion.rfind('(');
    const size_t nClose = strDeviceVersion.rfind(')');
    if (nOpen == std::string::npos || nClose == std::string::npos || nClose < nOpen + 2)
    {
        return 0;
    }
    const long nBuild = std::atol(strDeviceVersion.substr(nOpen + 1, nClose - nOpen - 1).c_str());
    return nBuild > 0 ? static_cast<unsigned int>(nBuild) : 0;
}

CShaderDebuggerDeviceCL::CShaderDebuggerDeviceCL()
    : CShaderDebuggerDevice(nullptr), m_Device(nullptr), m_Context(nullptr), m_Queue(nullptr),
      m_OriginalKernel(nullptr), m_PatchedKernel(nullptr), m_bUses64BitABI(false), m_DescribedImage()
{
}

// Delegates, so that the destructor releases what is held if memory runs out below.
CShaderDebuggerDeviceCL::CShaderDebuggerDeviceCL(cl_kernel kernel, cl_command_queue queue) : CShaderDebuggerDeviceCL()
{
    if (!SD_Assert(m_pHost, kernel != nullptr) || !ReadKernel(kernel) || !ReadDevice(queue))
    {
        BecomeInert();
        return;
    }
    QueryTextCL(g_CLDispatchTable.GetDeviceInfo, m_Device, CL_DEVICE_NAME, m_DeviceName);
    ReadRuntimeBuild();

    cl_int err = CL_SUCCESS;
    m_Queue = CreateCL(err, g_CLDispatchTable.CreateCommandQueue, m_Context, m_Device, cl_command_queue_properties(0));
    SD_Assert(m_pHost, err == CL_SUCCESS);
}

bool CShaderDebuggerDeviceCL::ReadKernel(cl_kernel kernel)
{
    cl_int err = CallCL(g_CLDispatchTable.RetainKernel, kernel);
    if (!SD_Assert(m_pHost, err == CL_SUCCESS))
    {
        return false;
    }
    m_OriginalKernel = kernel;

    err = QueryTextCL(g_CLDispatchTable.GetKernelInfo, kernel, CL_KERNEL_FUNCTION_NAME, m_strKernelName);
    if (!CheckCL(m_pHost, err, "Error: clGetKernelInfo() failed.\n"))
    {
        return false;
    }
    cl_context context = nullptr;
    err = QueryCL(g_CLDispatchTable.GetKernelInfo, kernel, CL_KERNEL_CONTEXT, context);
    if (err == CL_SUCCESS)
    {
        err = CallCL(g_CLDispatchTable.RetainContext, context);
    }
    if (!SD_Assert(m_pHost, err == CL_SUCCESS))
    {
        return false;
    }
    m_Context = context;
    return true;
}

bool CShaderDebuggerDeviceCL::ReadDevice(cl_command_queue queue)
{
    cl_int err = QueryCL(g_CLDispatchTable.GetCommandQueueInfo, queue, CL_QUEUE_DEVICE, m_Device);
    cl_device_type type = 0;
    if (err == CL_SUCCESS)
    {
        err = QueryCL(g_CLDispatchTable.GetDeviceInfo, m_Device, CL_DEVICE_TYPE, type);
    }
    return SD_Assert(m_pHost, err == CL_SUCCESS) && type == CL_DEVICE_TYPE_GPU;
}

void CShaderDebuggerDeviceCL::ReadRuntimeBuild() const
{
    std::string strVersion;
    QueryTextCL(g_CLDispatchTable.GetDeviceInfo, m_Device, CL_DEVICE_VERSION, strVersion);
    const unsigned int nBuild = GetRuntimeBuildNumber(strVersion);
    if (nBuild > 0 && nBuild < s_nFirstBuildWithCompilerLibrary)
    {
        ovkSetAssemblingWithQRLAllowed(true);
    }
}

void CShaderDebuggerDeviceCL::BecomeInert()
{
    if (m_Context != nullptr)
    {
        CallCL(g_CLDispatchTable.ReleaseContext, m_Context);
        m_Context = nullptr;
    }
    if (m_OriginalKernel != nullptr)
    {
        CallCL(g_CLDispatchTable.ReleaseKernel, m_OriginalKernel);
        m_OriginalKernel = nullptr;
    }
    m_Device = nullptr;
}

CShaderDebuggerDeviceCL::~CShaderDebuggerDeviceCL()
{
    if (m_Context != nullptr)
    {
        CheckCL(m_pHost, CallCL(g_CLDispatchTable.ReleaseContext, m_Context), "Error: clReleaseContext() failed.\n");
        m_Context = nullptr;
    }
    if (m_Queue != nullptr)
    {
        CheckCL(m_pHost, CallCL(g_CLDispatchTable.ReleaseCommandQueue, m_Queue),
                "Error: clReleaseCommandQueue() failed.\n");
        m_Queue = nullptr;
    }
    if (m_OriginalKernel != nullptr)
    {
        CheckCL(m_pHost, CallCL(g_CLDispatchTable.ReleaseKernel, m_OriginalKernel),
                "Error: clReleaseKernel() failed.\n");
        m_OriginalKernel = nullptr;
    }
    ReleasePatchedKernel();
}

bool CShaderDebuggerDeviceCL::EnterDebuggingMode()
{
    return InitKernelABIAndArgCBInfo();
}

bool CShaderDebuggerDeviceCL::ExitDebuggingMode()
{
    m_KernelArgCBInfo.clear();
    return true;
}

bool CShaderDebuggerDeviceCL::InitKernelABIAndArgCBInfo()
{
    std::string strMetadata;
    if (!OVK_ElfUtils::ExtractMetadataFromElf(GetShaderData(), GetShaderFunctionName(ShaderUtils::ST_Compute),
                                              &strMetadata))
    {
        SD_Log(m_pHost, logERROR, "%s", "Failed to get metadata from ELF");
        return false;
    }
    CCLMetadata metadata;
    if (!metadata.FromString(strMetadata))
    {
        return false;
    }

    m_bUses64BitABI = metadata.Uses64BitABI();
    m_KernelArgCBInfo.clear();
    for (const CCLMetadataEntry* pEntry : metadata.GetEntriesByArgument(CountRecordedArgs(m_OriginalKernel)))
    {
        if (!AppendSlot<CCLMetadataImageEntry>(pEntry, m_KernelArgCBInfo) &&
            !AppendSlot<CCLMetadataValueEntry>(pEntry, m_KernelArgCBInfo) &&
            !AppendSlot<CCLMetadataPointerEntry>(pEntry, m_KernelArgCBInfo))
        {
            // A counter and a sampler have no slot, but the element has to be there: they go by argument index.
            m_KernelArgCBInfo.push_back({0, 0});
        }
    }
    return true;
}

CShaderDebuggerDeviceBuffer* CShaderDebuggerDeviceCL::GetDeviceBuffer(ShaderType, std::string)
{
    SD_Break(m_pHost, "not implemented");
    return nullptr;
}

bool CShaderDebuggerDeviceCL::SetDeviceBuffer(ShaderType, std::string, CShaderDebuggerDeviceBuffer*)
{
    return SD_Break(m_pHost, "not implemented");
}

bool CShaderDebuggerDeviceCL::CreateShader(ShaderType, const void*, size_t, void**)
{
    return SD_Break(m_pHost, "shouldn't be using this function");
}

std::string CShaderDebuggerDeviceCL::GetShaderFunctionName(ShaderType) const
{
    return m_strKernelName;
}

} // namespace OVK_ShaderDebugger
