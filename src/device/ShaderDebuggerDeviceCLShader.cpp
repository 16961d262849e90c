#include "device/ShaderDebuggerDeviceCL.h"

#include "binary/ElfUtils.h"
#include "binary/ILTranslator.h"
#include "core/Log.h"
#include "modules/CLCall.h"
#include "modules/CLDispatchTable.h"

namespace OVK_ShaderDebugger
{

const std::vector<char>& CShaderDebuggerDeviceCL::GetShaderData() const
{
    std::vector<char> vKernelBinary;
    if (m_vKernelBinary.empty() && PrepareShaderData(vKernelBinary))
    {
        m_vKernelBinary.swap(vKernelBinary);
    }
    return m_vKernelBinary;
}

bool CShaderDebuggerDeviceCL::PrepareShaderData(std::vector<char>& vKernelBinary) const
{
    const auto failed = [this](const char* pszStep)
    {
        SD_Log(m_pHost, logERROR, "GetShaderData(), %s() failed.", pszStep);
        return false;
    };

    cl_program program = nullptr;
    if (m_OriginalKernel == nullptr ||
        QueryCL(g_CLDispatchTable.GetKernelInfo, m_OriginalKernel, CL_KERNEL_PROGRAM, program) != CL_SUCCESS)
    {
        return failed("GetKernelInfo");
    }
    if (!GetProgramBinary(program, m_Device, &vKernelBinary))
    {
        return failed("GetProgramBinary");
    }
    if (!OVK_ElfUtils::PatchKernelEntry(m_strKernelName, &vKernelBinary))
    {
        return failed("PatchKernelEntry");
    }
    // What stays is the debug IL alone, so that it is what the runtime compiles.
    for (const char* pszSection : {".ovkil", ".llvmir", ".text"})
    {
        if (!OVK_ElfUtils::RemoveElfSection(&vKernelBinary, pszSection))
        {
            return failed("RemoveElfSection");
        }
    }
    if (!OVK_ElfUtils::AddILBinarySection(&vKernelBinary, "debugil", "debugilbin", false, m_DeviceName))
    {
        return failed("AddILBinarySection");
    }
    return true;
}

bool CShaderDebuggerDeviceCL::GetProgramBinary(cl_program program, cl_device_id device,
                                               std::vector<char>* vBinary) const
{
    return QueryProgramBinary(g_CLDispatchTable, program, device, *vBinary) == CL_SUCCESS;
}

bool CShaderDebuggerDeviceCL::ReleasePatchedKernel()
{
    if (m_PatchedKernel == nullptr)
    {
        return true;
    }
    const cl_int nCode = CallCL(g_CLDispatchTable.ReleaseKernel, m_PatchedKernel);
    m_PatchedKernel = nullptr;
    return CheckCL(m_pHost, nCode, "Error: clReleaseKernel() failed.\n");
}

bool CShaderDebuggerDeviceCL::BuildProgram(cl_program program) const noexcept
try
{
    const std::string strJustKernel = "-use-debugil -just-kernel=" + m_strKernelName;
    cl_int nCode = CL_SUCCESS;
    for (const std::string& strOptions : {"-ignore-env " + strJustKernel, strJustKernel, std::string("-use-debugil")})
    {
        nCode = CallCL(g_CLDispatchTable.BuildProgram, program, cl_uint(1), &m_Device, strOptions.c_str(), nullptr,
                       nullptr);
        if (nCode == CL_SUCCESS)
        {
            return true;
        }
    }
    return CheckCL(m_pHost, nCode, "Error: clBuildProgram() failed.\n");
}
catch (...)
{
    return SD_Break(m_pHost, "Error: no memory for clBuildProgram().\n");
}

/// All shaders are of one kernel and have its number, so that the metadata is read for the first only.
void CShaderDebuggerDeviceCL::UnpatchKernelEntry(std::vector<char>& vShader)
{
    unsigned int nFunctionNumber = 0;
    if (!m_nFunctionNumber && OVK_ElfUtils::GetKernelFunctionNumber(m_strKernelName, vShader, &nFunctionNumber))
    {
        m_nFunctionNumber = nFunctionNumber;
    }
    if (m_nFunctionNumber)
    {
        OVK_ElfUtils::UnpatchKernelEntry(*m_nFunctionNumber, &vShader);
    }
}

bool CShaderDebuggerDeviceCL::SetShader(ShaderType, const void* pShader, size_t nShaderSize)
{
    if (!ReleasePatchedKernel() || m_Context == nullptr || pShader == nullptr)
    {
        return false;
    }
    const char* pBytes = static_cast<const char*>(pShader);
    std::vector<char> vShader(pBytes, pBytes + nShaderSize);
    UnpatchKernelEntry(vShader);

    const size_t nLength = vShader.size();
    const unsigned char* pBinary = reinterpret_cast<const unsigned char*>(vShader.data());
    cl_int status = CL_SUCCESS;
    const cl_program program = CreateCL(status, g_CLDispatchTable.CreateProgramWithBinary, m_Context, cl_uint(1),
                                        &m_Device, &nLength, &pBinary, static_cast<cl_int*>(nullptr));
    if (!CheckCL(m_pHost, status, "Error: clCreateProgramWithBinary() failed.\n"))
    {
        return false;
    }
    if (BuildProgram(program))
    {
        m_PatchedKernel = CreateCL(status, g_CLDispatchTable.CreateKernel, program, m_strKernelName.c_str());
        CheckCL(m_pHost, status, "Error: clCreateKernel() failed.\n");
    }
    // The kernel keeps the program alive.
    const cl_int nCode = CallCL(g_CLDispatchTable.ReleaseProgram, program);
    return CheckCL(m_pHost, nCode, "Error: clReleaseProgram() failed.\n") && m_PatchedKernel != nullptr;
}

void* CShaderDebuggerDeviceCL::GetShader(ShaderType)
{
    return m_PatchedKernel != nullptr ? m_PatchedKernel : m_OriginalKernel;
}

bool CShaderDebuggerDeviceCL::DisassembleShader(const void* pShaderData, size_t nShaderSize, std::string& strShader)
{
    return pShaderData != nullptr &&
           ovkDisassembleIL(static_cast<const unsigned char*>(pShaderData), nShaderSize, &strShader, "");
}

} // namespace OVK_ShaderDebugger
