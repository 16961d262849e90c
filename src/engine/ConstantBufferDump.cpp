#include "binary/CLMetadata.h"
#include "binary/ElfUtils.h"
#include "binary/ILTranslator.h"
#include "core/ErrorStrings.h"
#include "core/Log.h"
#include "core/ShaderDebuggerBuffer.h"
#include "core/ShaderDebuggerDevice.h"
#include "core/ShaderDebuggerHost.h"
#include "core/ShaderDebuggerResult.h"
#include "engine/ShaderDebuggerIL.h"
#include "engine/ShaderDebuggerShaderIL.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

/// Only the device knows the addresses that the arguments got: they are set up at launch, in constant buffer 1. So each
/// session begins with a run of a kernel made for the purpose, which has the client's arguments and copies that buffer
/// to memory.
namespace OVK_ShaderDebugger
{

namespace
{

const char s_szGlobalName[] = "cb1";
const unsigned int s_nMaxGroupSize = 256;
const unsigned int s_nWaveSize = 64;

/// The text from which the runtime tells where a kernel's function begins.
std::string GetFunctionComment(const std::string& strKernelName)
{
    return "__OpenCL_" + strKernelName + "_kernel";
}

IL* CopyImage(const void* pBytes, size_t nSize)
{
    IL* pImage = static_cast<IL*>(std::malloc(nSize));
    if (pImage != nullptr)
    {
        std::memcpy(pImage, pBytes, nSize);
    }
    return pImage;
}

} // namespace

bool CShaderDebuggerIL::CreateCBDumpBuffer()
{
    const CShaderDebuggerShaderIL* pShader = GetCurrentShader();
    if (!SD_AssertText(GetHost(), pShader != nullptr, "pShader != NULL"))
    {
        return false;
    }
    BufferDesc desc;
    desc.m_Type = ShaderUtils::BT_Buffer;
    desc.m_Format = ShaderUtils::BF_RGBA_32F;
    desc.m_Usage = ShaderUtils::BU_Results;
    desc.m_ShaderType = ShaderUtils::ST_Compute;
    // A kernel without arguments still binds the buffer, and there is none of size 0.
    desc.m_nWidth = std::max(pShader->GetKernelABIConstantBufferSize(), 1u);
    desc.m_nHeight = desc.m_nDepth = desc.m_nArraySize = 1;
    m_pCBBuffer.reset(GetHost()->CreateDeviceBuffer(desc));
    CShaderDebuggerResult* pResult = m_pCBBuffer != nullptr ? GetResult(m_GlobalResults, s_szGlobalName) : nullptr;
    if (pResult == nullptr)
    {
        SD_Log(GetHost(), logERROR, "%s", ES_CanNotDebug_OutOfMemory);
        SetLastError(ES_CanNotDebug_OutOfMemory);
        return false;
    }
    pResult->UpdateDataType(ShaderUtils::DT_UInt32, COMP_All);
    return true;
}

bool CShaderDebuggerIL::BindCBDumpBuffer()
{
    if (!SD_AssertText(GetHost(), m_pCBBuffer != nullptr, "NULL != m_pCBBuffer"))
    {
        return false;
    }
    const unsigned int n = static_cast<unsigned int>(m_vpOriginalTargetBuffers.size());
    return GetHost()->SetDeviceBuffer(GetShaderType(), n, m_pCBBuffer.get());
}

/// The arguments of the dump's run. It leaves the output buffers alone: what isn't there yet isn't made for it.
bool CShaderDebuggerIL::SwitchDumpBuffers()
{
    if (!m_bValuesOnDemand)
    {
        return SwitchTargetBuffers();
    }
    const unsigned int n = static_cast<unsigned int>(m_vpOriginalTargetBuffers.size());
    return SwitchPlainBuffers() && GetHost()->SetDeviceBuffer(GetShaderType(), n + 1, m_pCBBuffer.get());
}

bool CShaderDebuggerIL::UpdateCBDumpBuffer()
{
    CShaderDebuggerResult* pResult = FindResult(m_GlobalResults, s_szGlobalName);
    if (pResult == nullptr)
    {
        return false;
    }
    CShaderDebuggerBuffer* pBuf = m_pCBBuffer->GetDataBuffer(nullptr);
    if (!SD_Assert(GetHost(), pBuf))
    {
        return false;
    }
    pResult->UpdateResult(pBuf, nullptr, 0, 0, 0);
    return true;
}

bool CShaderDebuggerShaderIL::DumpKernelABIConstantBuffer()
{
    IL* pDumpCBKernel = nullptr;
    size_t nSize = 0;
    if (!CreateCBDumpShader(&pDumpCBKernel, &nSize))
    {
        SD_Log(GetHost(), logERROR, "Failed to create cb1 dump kernel.");
        return false;
    }
    const std::unique_ptr<IL, void (*)(void*)> pOwned(pDumpCBKernel, &std::free);
    return RunCBDump(pDumpCBKernel, nSize);
}

bool CShaderDebuggerShaderIL::RunCBDump(IL* pDumpCBKernel, size_t nSize)
{
    const struct
    {
        const char* pszMessage;
        std::function<bool()> run;
    } s_Steps[] = {
        {"Failed to switch to cb1 dump kernel.", [&] { return SwitchShaderToPatchedShader(pDumpCBKernel, nSize); }},
        {"Failed to switch target buffer.", [&] { return GetDebuggerIL()->SwitchDumpBuffers(); }},
        {"Failed to set register selector value", [&] { return GetDebuggerIL()->SetRegisterSelectorValue(0); }},
        {"Failed to bind cbdump device buffer.", [&] { return GetDebuggerIL()->BindCBDumpBuffer(); }},
        {"Failed to execute cb1 dump kernel.", [&] { return GetHost()->ExecuteShader(); }},
        {"Failed to update CBDump buffer.", [&] { return GetDebuggerIL()->UpdateCBDumpBuffer(); }},
    };
    for (const auto& step : s_Steps)
    {
        if (!step.run())
        {
            SD_Log(GetHost(), logERROR, "%s", step.pszMessage);
            return false;
        }
    }
    return true;
}

/// Builds the image of the dump kernel, of the kind that the shader data is; the caller frees it.
bool CShaderDebuggerShaderIL::CreateCBDumpShader(IL** ppPatchedKernel, size_t* pSize)
{
    const ShaderDebuggerPerfMarker marker("CreateCBDumpShader");
    if (!SD_AssertText(GetHost(), pSize != nullptr, "pSize != NULL") ||
        !SD_AssertText(GetHost(), ppPatchedKernel != nullptr, "ppPatchedKernel != NULL") || GetShaderData() == nullptr)
    {
        return false;
    }
    std::string strKernelName = "main";
    unsigned int nUniqueID = 0;
    unsigned int nFuncLabel = 0;
    CCLMetadata metadata;
    if (m_bIsElf)
    {
        strKernelName = GetHost()->GetShaderFunctionName(GetShaderType());
        if (m_strMetadata.empty() || !metadata.FromString(m_strMetadata))
        {
            SD_Log(GetHost(), logERROR, "Failed to get metadata from ELF");
            return false;
        }
        nUniqueID = metadata.GetFunctionNumber();
        nFuncLabel = metadata.GetFunctionLabel();
    }
    CSource src(GetDebugger(), m_vTokens.data(), m_vTokens.size());
    CDest dest(GetDebugger(), m_vTokens.size());
    if (!CreateCBDumpShaderIL(src, dest, strKernelName, nUniqueID, nFuncLabel) || dest.HasLostTokens())
    {
        SD_Log(GetHost(), logERROR, "Failed to patch IL");
        return false;
    }
    const size_t nTokenBytes = dest.GetTokensWritten() * sizeof(unsigned int);
    std::vector<char> vImage;
    if (m_bIsElf && !InsertCBDump(dest, strKernelName, metadata, vImage))
    {
        return false;
    }
    LogCBDump(dest);
    *pSize = m_bIsElf ? vImage.size() : nTokenBytes;
    *ppPatchedKernel = CopyImage(m_bIsElf ? static_cast<const void*>(vImage.data()) : dest.GetStream(), *pSize);
    return *ppPatchedKernel != nullptr || RefuseForMemory();
}

/// Puts the tokens and the patched metadata into a copy of the kernel binary.
bool CShaderDebuggerShaderIL::InsertCBDump(const CDest& tokens, const std::string& strKernelName, CCLMetadata& metadata,
                                           std::vector<char>& vImage)
{
    const char* pData = static_cast<const char*>(GetShaderData());
    vImage.assign(pData, pData + GetShaderDataSize());
    if (!OVK_ElfUtils::InsertBinaryILIntoElf(&vImage, tokens.GetStream(),
                                             tokens.GetTokensWritten() * sizeof(unsigned int), m_DeviceName))
    {
        SD_Log(GetHost(), logERROR, "Failed to insert binary into ELF");
        return false;
    }
    std::string strPatchedMetadata;
    if (!PatchMetadata(metadata, &strPatchedMetadata))
    {
        SD_Log(GetHost(), logERROR, "Failed to patch metadata");
        return false;
    }
    SD_Log(GetHost(), logVERBOSE, "%s", strPatchedMetadata.c_str());
    if (!OVK_ElfUtils::InsertMetadataIntoElf(&vImage, strKernelName, strPatchedMetadata))
    {
        SD_Log(GetHost(), logERROR, "Failed to insert metadata into ELF");
        return false;
    }
    return true;
}

bool CShaderDebuggerShaderIL::RefuseForMemory()
{
    m_ShaderInfo.strDebugErrorAsm = m_ShaderInfo.strDebugErrorMixed = m_ShaderInfo.strDebugErrorSource =
        ES_CanNotDebug_OutOfMemory;
    SD_Log(GetHost(), logERROR, "%s", ES_CanNotDebug_OutOfMemory);
    GetDebugger()->SetLastError(ES_CanNotDebug_OutOfMemory);
    return false;
}

void CShaderDebuggerShaderIL::LogCBDump(const CDest& tokens) const
{
    if (GetDebugger()->GetLoggingLevel() <= logTRACE)
    {
        return;
    }
    const ShaderDebuggerPerfMarker marker("CreateCBDumpShader Logging bit");
    std::string strText;
    if (GetHost()->DisassembleShader(tokens.GetStream(), tokens.GetTokensWritten() * sizeof(unsigned int), strText))
    {
        SD_Log(GetHost(), logVERBOSE, "%s", strText.c_str());
    }
}

/// Writes the dump kernel: the macros and the header of the kernel, its declarations, and a body that stores constant
/// buffer 1 element by element. All work-items store the same to the same place.
bool CShaderDebuggerShaderIL::CreateCBDumpShaderIL(CInputTokenStream<unsigned int>& src,
                                                   COutputTokenStream<unsigned int>& dest,
                                                   const std::string& strKernelName, unsigned int nUniqueID,
                                                   unsigned int nFuncLabel)
{
    unsigned int token = 0;
    CopyMacros(src, dest);
    for (unsigned int i = 0; i < 2 && src.ReadToken(token); ++i)
    {
        dest.WriteToken(token);
    }
    InitResourcesAndRegisters(dest, false, ProgramCounter(0));
    WriteInstruction(dest, IL_OP_CALL);
    WriteImmediate32(dest, nUniqueID);
    WriteInstruction(dest, IL_OP_ENDMAIN);

    WriteInstruction(dest, IL_OP_FUNC);
    WriteImmediate32(dest, nUniqueID);
    WriteComment(dest, GetFunctionComment(strKernelName));
    WriteDecls(dest, nUniqueID);
    WriteInstruction(dest, IL_DCL_MAX_THREAD_PER_GROUP);
    WriteImmediate32(dest, s_nMaxGroupSize);
    if (!ovkIsAssemblingWithQRL())
    {
        WriteInstruction(dest, IL_DCL_WAVESIZE, s_nWaveSize);
    }
    WriteCBDump(dest);
    WriteInstruction(dest, IL_OP_CALL);
    WriteImmediate32(dest, nFuncLabel);
    WriteInstruction(dest, IL_OP_RET);
    WriteInstruction(dest, IL_OP_ENDFUNC);
    WriteComment(dest, GetFunctionComment(strKernelName));

    WriteInstruction(dest, IL_OP_FUNC);
    WriteImmediate32(dest, nFuncLabel);
    WriteComment(dest, strKernelName);
    WriteInstruction(dest, IL_OP_RET);
    WriteInstruction(dest, IL_OP_ENDFUNC);
    WriteComment(dest, strKernelName);
    WriteInstruction(dest, IL_OP_END);
    return true;
}

void CShaderDebuggerShaderIL::WriteCBDump(CDest& dest)
{
    const RegisterMask addressMask = m_b64BitAddressSpace ? COMP_xy : COMP_x;
    const Register address(RT_Temp, GetOutputAddressTempRegister(), addressMask);
    const Register value(RT_Temp, GetOutputTempRegister(), COMP_All);
    const Register memory(RT_GENERIC_MEM, 0, COMP_All);
    MovDestSrc(dest, address, Register(RT_CONST_BUFF, s_nArgumentBuffer, addressMask, GetOutputConstantBufferIndex()));
    for (unsigned int i = 0; i < m_nKernelABIConstantBufferSize; ++i)
    {
        MovDestSrc(dest, value, Register(RT_CONST_BUFF, s_nArgumentBuffer, COMP_All, i));
        UavRawStore(dest, GetResultsUAVNum(), memory, address, value, IL_UAV_SC_DECIDE);
        if (m_b64BitAddressSpace)
        {
            WriteInstruction(dest, IL_OP_I64_ADD);
            WriteDestReg(dest, IL_REGTYPE_TEMP, address.reg.number, COMP_xy);
            WriteSourceReg(dest, address);
            WriteSourceReg(dest, Register(RT_LITERAL, GetLiteralRegister16(), COMP_x), EXTD_ZeroFill);
        }
        else
        {
            IAddDestSrcSrc(dest, address, address, Register(RT_LITERAL, GetLiteralRegister16(), COMP_All));
        }
    }
}

} // namespace OVK_ShaderDebugger
