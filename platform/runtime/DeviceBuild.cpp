#include "platform/runtime/DeviceBuild.h"

#include "platform/compiler/ProgramImage.h"
#include "platform/runtime/CallbackThread.h"
#include "platform/runtime/Settings.h"
#include "platform/simt/Program.h"

#include <algorithm>

namespace KestrelPlatform::Runtime
{

namespace
{

/// The fault of an instruction, with its line if known: of the source, or of the IL text of a binary.
std::string DescribeDecodeError(const SCompiledKernel& kernel, const SDecodeError& error,
                                const std::vector<uint32_t>& vSourceLines)
{
    std::string strPlace = "instruction " + std::to_string(error.nInstruction);
    if (error.nInstruction < kernel.vLines.size())
    {
        const uint32_t nLine = kernel.vLines[error.nInstruction];
        const bool bSource = nLine > 0 && nLine <= vSourceLines.size();
        strPlace = "line " + std::to_string(bSource ? vSourceLines[nLine - 1] : nLine);
    }
    return "kernel " + kernel.strName + ": " + strPlace + ": " + error.strMessage + "\n";
}

/// Decodes the kernels of a build. \return false, with the reason added to the log
bool DecodeKernels(SBuildResult& build, ExecutableKernels& vKernels, std::string& strLog)
{
    for (SCompiledKernel& compiled : build.vKernels)
    {
        SDecodeError error;
        auto pKernel = std::make_shared<SExecutableKernel>();
        pKernel->m_pDecoded = DecodeProgram(compiled.vTokens.data(), compiled.vTokens.size(), error);
        if (!pKernel->m_pDecoded)
        {
            strLog += DescribeDecodeError(compiled, error, build.vSourceLines);
            return false;
        }
        const uint64_t nLocal =
            std::max<uint64_t>(pKernel->m_pDecoded->GetCode().nLocalBytes, compiled.nStaticLocalBytes);
        if (nLocal > s_nLocalMemorySize)
        {
            strLog += "kernel " + compiled.strName + ": it declares " + std::to_string(nLocal) +
                      " bytes of local memory, and the device has " + std::to_string(s_nLocalMemorySize) + "\n";
            return false;
        }
        pKernel->m_Compiled = std::move(compiled);
        pKernel->m_pImage = build.pImage;
        vKernels.push_back(std::move(pKernel));
    }
    return true;
}

SBuildResult BuildFromImage(const CProgramImage& image, const SBuildOptions& options, const SDeviceTarget& target)
{
    const std::vector<char>& vBytes = image.GetBytes();
    return BuildFromBinary(vBytes.data(), vBytes.size(), options, target);
}

} // namespace

SDeviceProgram TakeResult(SBuildResult result, const CRef<CDevice>& pDevice, const SBuildOptions& options)
{
    SDeviceProgram part;
    part.m_pDevice = pDevice;
    part.m_strOptions = options.strText;
    part.m_strLog = std::move(result.strLog);
    const bool bOk = result.bOk && DecodeKernels(result, part.m_vKernels, part.m_strLog);
    part.m_eStatus = bOk ? CL_BUILD_SUCCESS : CL_BUILD_ERROR;
    if (!bOk)
    {
        part.m_vKernels.clear();
        return part;
    }
    part.m_eBinaryType = BinaryType(result.eType);
    part.m_pImage = std::move(result.pImage);
    return part;
}

SDeviceProgram BuildForDevice(const std::optional<std::string>& source, const SDeviceProgram& before,
                              const SBuildOptions& options)
{
    const SDeviceTarget target = before.m_pDevice->GetTarget();
    SDeviceProgram after = TakeResult(source ? BuildFromSource(*source, options, target)
                                             : BuildFromImage(*before.m_pImage, options, target),
                                      before.m_pDevice, options);
    // A program created from an image keeps it after a failure, so that it can be built again.
    if (after.m_eStatus != CL_BUILD_SUCCESS && !source)
    {
        after.m_pImage = before.m_pImage;
    }
    return after;
}

SDeviceProgram CompileForDevice(const std::string& strSource, const SDeviceProgram& before,
                                const SBuildOptions& options, const std::vector<SSourceHeader>& vHeaders)
{
    return TakeResult(CompileSource(strSource, options, before.m_pDevice->GetTarget(), vHeaders), before.m_pDevice,
                      options);
}

cl_int ReadOptions(const char* pszOptions, OptionReader pRead, cl_int nInvalid, SBuildOptions& options)
{
    const std::string strOptions = pszOptions ? pszOptions : "";
    std::string strUnknown;
    return IsBuildOptionRefused(strOptions) || !pRead(strOptions, options, strUnknown) ? nInvalid : CL_SUCCESS;
}

void PostNotify(const CRef<CProgramObject>& pProgram, ProgramNotify pNotify, void* pUser)
{
    if (pNotify)
    {
        CCallbackThread::Post([pProgram, pNotify, pUser] { pNotify(HandleOf(pProgram), pUser); });
    }
}

} // namespace KestrelPlatform::Runtime
