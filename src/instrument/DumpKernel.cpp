#include "binary/CLMetadata.h"
#include "binary/ElfUtils.h"
#include "binary/ILTranslator.h"
#include "core/ErrorStrings.h"
#include "core/Log.h"
#include "core/ShaderDebuggerHost.h"
#include "instrument/InstrumentedShaderIL.h"

#include <new>

/// Only the device knows the addresses that the arguments got: they are set up at launch, in constant buffer 1. The
/// dump kernel has the client's arguments and copies that buffer to memory.
namespace OVK_ShaderDebugger
{

namespace
{

const unsigned int s_nMaxGroupSize = 256;
const unsigned int s_nWaveSize = 64;

/// The text from which the runtime tells where a kernel's function begins.
std::string GetFunctionComment(const std::string& strKernelName)
{
    return "__OpenCL_" + strKernelName + "_kernel";
}

} // namespace

bool CInstrumentedShaderIL::CreateArgumentDump(std::vector<char>& vImage)
{
    const ShaderDebuggerPerfMarker marker("CreateCBDumpShader");
    if (GetShaderData() == nullptr)
    {
        return false;
    }
    std::string strKernelName = "main";
    CCLMetadata metadata;
    if (m_bIsElf)
    {
        strKernelName = GetHost()->GetShaderFunctionName(GetShaderType());
        if (m_strMetadata.empty() || !metadata.FromString(m_strMetadata))
        {
            SD_Log(GetHost(), logERROR, "Failed to get metadata from ELF");
            return false;
        }
    }
    CSource src(GetDebugger(), m_vTokens.data(), m_vTokens.size());
    CDest dest(GetDebugger(), m_vTokens.size());
    WriteArgumentDump(src, dest, strKernelName, m_bIsElf ? metadata.GetFunctionNumber() : 0,
                      m_bIsElf ? metadata.GetFunctionLabel() : 0);
    if (dest.HasLostTokens())
    {
        SD_Log(GetHost(), logERROR, "Failed to patch IL");
        return false;
    }
    try
    {
        if (m_bIsElf && !InsertArgumentDump(dest, strKernelName, metadata, vImage))
        {
            return false;
        }
        if (!m_bIsElf)
        {
            const char* pTokens = reinterpret_cast<const char*>(dest.GetStream());
            vImage.assign(pTokens, pTokens + dest.GetTokensWritten() * sizeof(IL));
        }
    }
    catch (const std::bad_alloc&)
    {
        return RefuseForMemory();
    }
    LogArgumentDump(dest);
    return true;
}

/// Puts the tokens and the patched metadata into a copy of the kernel binary.
bool CInstrumentedShaderIL::InsertArgumentDump(const CDest& tokens, const std::string& strKernelName,
                                               CCLMetadata& metadata, std::vector<char>& vImage)
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

bool CInstrumentedShaderIL::RefuseForMemory()
{
    m_ShaderInfo.strDebugErrorAsm = m_ShaderInfo.strDebugErrorMixed = m_ShaderInfo.strDebugErrorSource =
        ES_CanNotDebug_OutOfMemory;
    SD_Log(GetHost(), logERROR, "%s", ES_CanNotDebug_OutOfMemory);
    GetDebugger()->SetLastError(ES_CanNotDebug_OutOfMemory);
    return false;
}

void CInstrumentedShaderIL::LogArgumentDump(const CDest& tokens) const
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
void CInstrumentedShaderIL::WriteArgumentDump(CSource& src, CDest& dest, const std::string& strKernelName,
                                              unsigned int nUniqueID, unsigned int nFuncLabel)
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
    WriteArgumentStores(dest);
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
}

void CInstrumentedShaderIL::WriteArgumentStores(CDest& dest)
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
