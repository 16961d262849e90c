#include "instrument/InstrumentedShaderIL.h"

#include "binary/CLMetadata.h"
#include "binary/Elf.h"
#include "binary/ElfUtils.h"
#include "core/Log.h"

#include <cstdlib>
#include <cstring>

namespace OVK_ShaderDebugger
{

IL* CInstrumentedShaderIL::CreatePatchedShader(ProgramCounter nTargetInstruction,
                                               const std::vector<Register>& vTargetRegs)
{
    if (!SD_Assert(GetHost(), nTargetInstruction != g_PC_NULL || !vTargetRegs.empty()) ||
        !IsShaderDebuggable(GetMode()) || GetShaderData() == nullptr)
    {
        return nullptr;
    }

    SD_Log(GetHost(), logVERBOSE, "Patching shader to %u\n", nTargetInstruction.m_nPos);
    CSource src(m_pDebugger, m_vTokens.data(), m_vTokens.size());
    CDest dest(m_pDebugger, m_vTokens.size());

    if (!PatchIL(src, dest, nTargetInstruction, vTargetRegs) || dest.HasLostTokens())
    {
        SD_Log(GetHost(), logERROR, "Failed to patch IL");
        return nullptr;
    }

    std::vector<char> vImage;

    if (!MakeImage(dest, vImage))
    {
        return nullptr;
    }

    IL* pPatchedShader = static_cast<IL*>(std::malloc(vImage.size()));

    if (!SD_Assert(GetHost(), pPatchedShader != nullptr))
    {
        return nullptr;
    }

    std::memcpy(pPatchedShader, vImage.data(), vImage.size());
    std::free(m_pPatchedShader);
    m_pPatchedShader = pPatchedShader;
    m_nPatchedShaderSize = vImage.size();
    LogTokens("", dest.GetStream(), dest.GetTokensWritten());
    return m_pPatchedShader;
}

/// The tokens in an image of the kind that the shader data is.
bool CInstrumentedShaderIL::MakeImage(const CDest& tokens, std::vector<char>& vImage)
{
    const char* pTokens = reinterpret_cast<const char*>(tokens.GetStream());
    const size_t nBytes = tokens.GetTokensWritten() * sizeof(IL);

    if (!m_bIsElf)
    {
        vImage.assign(pTokens, pTokens + nBytes);
        return true;
    }

    if (m_vPreparedElf.empty() && !PrepareElf())
    {
        return false;
    }

    vImage = m_vPreparedElf;

    if (!OVK_ElfUtils::InsertBinaryILIntoElf(&vImage, tokens.GetStream(), nBytes, m_DeviceName))
    {
        SD_Log(GetHost(), logERROR, "Failed to insert binary into ELF");
        return false;
    }

    SD_Log(GetHost(), logVERBOSE, "%s", m_strPatchedMetadata.c_str());
    return true;
}

bool CInstrumentedShaderIL::CreatePlainShader(std::vector<char>& vImage)
{
    const char* pBytes = static_cast<const char*>(GetShaderData());
    vImage.assign(pBytes, pBytes + GetShaderDataSize());
    std::vector<char> vText;

    if (!m_bIsElf || (OVK_ElfUtils::GetDataFromSection(".debugil", vImage, &vText) && !vText.empty()))
    {
        return true;
    }

    return OVK_ElfUtils::InsertBinaryILIntoElf(&vImage, m_vTokens.data(), m_vTokens.size() * sizeof(IL), m_DeviceName);
}

/// Patches what doesn't depend on the target into a copy of the kernel binary, once for all stops: the metadata of this
/// kernel and of its neighbours.
bool CInstrumentedShaderIL::PrepareElf()
{
    const char* pBytes = static_cast<const char*>(GetShaderData());
    CElf elf(std::vector<char>(pBytes, pBytes + GetShaderDataSize()));

    if (!elf.good() || !PatchKernelMetadata(elf))
    {
        return false;
    }

    RemoveLocalMemory(elf);
    return elf.Store(&m_vPreparedElf);
}

bool CInstrumentedShaderIL::PatchKernelMetadata(CElf& elf)
{
    CCLMetadata metadata;

    if (!metadata.FromString(m_strMetadata))
    {
        SD_Log(GetHost(), logERROR, "Failed to get metadata from ELF");
        return false;
    }

    if (m_OutlineMacroLabel != 0)
    {
        metadata.AddFunctionLabel(m_OutlineMacroLabel);
    }

    if (!PatchMetadata(metadata, &m_strPatchedMetadata))
    {
        SD_Log(GetHost(), logERROR, "Failed to patch metadata");
        return false;
    }

    if (!OVK_ElfUtils::InsertMetadataIntoElf(&elf, KernelName(), m_strPatchedMetadata))
    {
        SD_Log(GetHost(), logERROR, "Failed to insert metadata into ELF");
        return false;
    }

    return true;
}

/// The other kernels of the program never run in this image, so they need no local memory.
void CInstrumentedShaderIL::RemoveLocalMemory(CElf& elf)
{
    const char* pBytes = static_cast<const char*>(GetShaderData());
    const std::vector<char> vImage(pBytes, pBytes + GetShaderDataSize());
    std::vector<std::string> vKernelNames;
    OVK_ElfUtils::ListAvailableMetadata(vImage, vKernelNames);

    for (const std::string& strName : vKernelNames)
    {
        if (strName == KernelName())
        {
            continue;
        }

        CCLMetadata metadata;
        std::string strMetadata;

        if (!OVK_ElfUtils::ExtractMetadataFromElf(vImage, strName, &strMetadata) || !metadata.FromString(strMetadata) ||
            !metadata.SetLDSLimit(0) || !OVK_ElfUtils::InsertMetadataIntoElf(&elf, strName, metadata.ToString()))
        {
            SD_Log(GetHost(), logWARNING, "Could not remove LDS declaration in metadata for kernel %s",
                   strName.c_str());
        }
    }
}

} // namespace OVK_ShaderDebugger
