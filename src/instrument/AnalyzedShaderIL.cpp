#include "instrument/AnalyzedShaderIL.h"

#include "instrument/AnalysisPass.h"

#include "binary/ElfUtils.h"
#include "core/ErrorStrings.h"
#include "core/Log.h"
#include "core/ShaderDebuggerHost.h"

#include <cstring>
#include <limits>

namespace OVK_ShaderDebugger
{

namespace
{

/// The bit of an mdef's modifier word that marks an outline macro.
constexpr IL s_nOutlineBit = 1u << 16;

struct SShaderKind
{
    unsigned int nInVersion;
    ShaderType type;
};

constexpr SShaderKind s_ShaderKinds[] = {
    {IL_SHADER_VERTEX, ShaderUtils::ST_Vertex},     {IL_SHADER_PIXEL, ShaderUtils::ST_Pixel},
    {IL_SHADER_GEOMETRY, ShaderUtils::ST_Geometry}, {IL_SHADER_COMPUTE, ShaderUtils::ST_Compute},
    {IL_SHADER_HULL, ShaderUtils::ST_Hull},         {IL_SHADER_DOMAIN, ShaderUtils::ST_Domain},
};

ShaderType KindOf(IL_Version version)
{
    for (const SShaderKind& kind : s_ShaderKinds)
    {
        if (kind.nInVersion == version.bits.shader_type)
        {
            return kind.type;
        }
    }

    return ShaderUtils::ST_Unknown;
}

} // namespace

CAnalyzedShaderIL::CAnalyzedShaderIL(IShaderDebugger* pDebugger, const void* pShaderData, size_t nShaderSize)
    : CShaderDebuggerShader(pDebugger, pShaderData, nShaderSize)
{
    InitShaderInfo();
}

CAnalyzedShaderIL::~CAnalyzedShaderIL() = default;

/// The device's name stays: it is known before the analysis. \return false without shader data
bool CAnalyzedShaderIL::InitShaderInfo()
{
    CShaderDebuggerShader::InitShaderInfo();
    m_nVersion = 0;
    m_nInstructionCount = 0;
    m_nEndOfShader = 0;
    m_OutlineMacroLabel = 0;
    m_nOutlineMacroEnd = g_Inst_NULL;
    m_vOutlineMacros.clear();
    m_MacroLabels.clear();
    m_CalledMacros.reset();
    m_nNotedMacro = 0;
    m_PassedMacros.clear();
    m_PassedRegisters.clear();
    m_PC_LineNumberMap = PC_LineNumberMap();
    m_Instructions.clear();
    m_FlowControl.clear();
    m_vConstructs.clear();
    m_FunctionScope.clear();
    m_FunctionInstruction.clear();
    m_RegisterOutput.clear();
    m_DeclsFuncScopeMap.clear();
    m_Samplers.clear();
    m_nRuntimeABIConstantBufferSize = s_nNotSet;
    m_nKernelABIConstantBufferSize = s_nNotSet;
    m_bTidewater = false;
    m_b64BitAddressSpace = false;
    m_maxThreadPerGroup.clear();
    m_numThreadPerGroup.clear();
    m_vTempRegisterUsed.assign(NUM_IL_REGISTER_INDICES, false);
    m_vLiteralRegisterUsed.assign(NUM_IL_REGISTER_INDICES, false);
    m_nTempRegisterCount = 0;
    m_nPatchedTempRegisterCount = 0;
    m_nPatchedTempRegisters.clear();
    m_vTempRegisterNumbers.clear();
    m_qUnusedLiteralRegs.clear();
    m_vLiteralRegisterValues.clear();
    m_LiteralDeclarations.clear();
    m_nLiteralRegisterCount = 0;
    m_nPatchedLiteralRegisterCount = 0;
    m_nTempRegisters.fill(0);
    m_nLiteralRegisters.fill(0);
    m_nResultsOutputRegIndex = 0;
    m_nExecMaskOutputRegIndex = 1;
    m_nRawUAVNum = s_nNotSet;
    m_UAVNums.clear();
    m_PrivateUAVNums.clear();
    m_nResultsUAVNum = s_nNotSet;
    m_nExecMaskUAVNum = s_nNotSet;
    m_InputRegisters.clear();
    m_OutputRegMasks.clear();
    m_vTokens.clear();
    m_vItemLengths.clear();
    m_bIsElf = false;
    m_strMetadata.clear();
    m_nCurrentInstruction = ProgramCounter(0);
    return GetShaderData() != nullptr;
}

bool CAnalyzedShaderIL::AnalyzeShader()
{
    if (!InitShaderInfo() || !TakeTokens())
    {
        return false;
    }

    LogTokens("Analyzing shader\n", m_vTokens.data(), m_vTokens.size());
    m_ShaderInfo.textModes = DM_Asm;
    SetMode(DM_Asm);

    CInputTokenStream<unsigned int> src(m_pDebugger, m_vTokens.data(), m_vTokens.size());
    LineNumber nLine = 0;

    if (!ReadHeader(src, nLine))
    {
        return false;
    }

    CAnalysisPass pass(*this, src, nLine);

    if (!pass.Run() || !CheckComputeKernel())
    {
        return false;
    }

    m_nEndOfShader = m_nInstructionCount - 1;
    FindRegistersOfPassedMacros();

    if (!AllocateRegisters(pass.GetMaxLoopDepth()) || !AllocateUAVs())
    {
        return false;
    }

    m_ShaderInfo.debugModes |= DM_Asm;
    return true;
}

/// Takes the IL, and with an ELF image the metadata, out of the shader data.
bool CAnalyzedShaderIL::TakeTokens()
{
    const char* pBytes = static_cast<const char*>(GetShaderData());
    const std::vector<char> vImage(pBytes, pBytes + GetShaderDataSize());
    m_bIsElf = OVK_ElfUtils::ExtractBinaryILFromElf(vImage, &m_vTokens);

    if (m_bIsElf)
    {
        if (!OVK_ElfUtils::ExtractMetadataFromElf(vImage, KernelName(), &m_strMetadata))
        {
            return Malformed("ExtractMetadataFromElf(vImage, strKernelName, &strMetadata)");
        }

        if (!AnalyzeMetadata(m_strMetadata))
        {
            return false;
        }
    }
    else
    {
        m_vTokens.resize(vImage.size() / sizeof(unsigned int));
    }

    if (m_vTokens.empty())
    {
        return Malformed("nTokenCount > 0");
    }

    if (!m_bIsElf)
    {
        std::memcpy(m_vTokens.data(), vImage.data(), m_vTokens.size() * sizeof(unsigned int));
    }

    m_vItemLengths.assign(m_vTokens.size(), 0);
    return true;
}

bool CAnalyzedShaderIL::ReadHeader(CInputTokenStream<unsigned int>& src, LineNumber& nLine)
{
    unsigned int nFirst = 0;

    if (src.PeekToken(nFirst) && ILFormatDecode::GetOp(nFirst) == IL_OP_MACRODEF)
    {
        SkipMacros(src, nLine);
    }

    IL_Lang language = {};
    IL_Version version = {};

    if (!src.ReadToken(language.val) || !src.ReadToken(version.val))
    {
        return Malformed("src.ReadToken(token)");
    }

    ++nLine;
    m_nVersion = version.val & 0xFFFFu;
    m_ShaderInfo.versionMajor = version.bits.major_version;
    m_ShaderInfo.versionMinor = version.bits.minor_version;
    m_ShaderInfo.shaderType = KindOf(version);

    if (language.bits.reserved != 0 || m_nVersion == 0 || m_ShaderInfo.shaderType == ShaderUtils::ST_Unknown)
    {
        return Refuse(ES_CanNotDebug_InvalidShader);
    }

    return true;
}

bool CAnalyzedShaderIL::CheckComputeKernel()
{
    if (!IsCompute())
    {
        return true;
    }

    if (m_maxThreadPerGroup.empty() && m_numThreadPerGroup.empty())
    {
        return Malformed("!m_maxThreadPerGroup.empty() || !m_numThreadPerGroup.empty()");
    }

    if (m_nRuntimeABIConstantBufferSize == s_nNotSet || m_nKernelABIConstantBufferSize == s_nNotSet)
    {
        return Malformed("m_nRuntimeABIConstantBufferSize != numeric_limits<unsigned int>::max() && "
                         "m_nKernelABIConstantBufferSize != numeric_limits<unsigned int>::max()");
    }

    return true;
}

bool CAnalyzedShaderIL::DecodeItem(CInputTokenStream<unsigned int>& src, CShaderDebuggerInstructionIL& item)
{
    const size_t nPosition = src.GetTokensRead();

    if (!item.ReadInstruction(src))
    {
        return false;
    }

    if (src.GetStream() == m_vTokens.data())
    {
        m_vItemLengths[nPosition] = item.GetLength();
    }

    return true;
}

bool CAnalyzedShaderIL::ReadItem(CInputTokenStream<unsigned int>& src, SItem& item) const
{
    const size_t nPosition = src.GetTokensRead();

    if (nPosition >= m_vItemLengths.size() || m_vItemLengths[nPosition] == 0)
    {
        return false;
    }

    item.pTokens = src.GetStreamPos();
    item.nLength = m_vItemLengths[nPosition];
    return src.SkipTokens(item.nLength);
}

void CAnalyzedShaderIL::SkipHeader(CInputTokenStream<unsigned int>& src) const
{
    unsigned int token = 0;
    SItem item;

    while (src.PeekToken(token) && ILFormatDecode::GetOp(token) == IL_OP_MACRODEF)
    {
        while (ReadItem(src, item) && item.GetOpCode() != IL_OP_MACROEND)
        {
        }
    }

    src.SkipTokens(HEADER_TOKENS);
}

bool CAnalyzedShaderIL::SkipMacros(CInputTokenStream<unsigned int>& src, LineNumber& nNumMacroLines)
{
    CShaderDebuggerInstructionIL item(m_pDebugger);
    unsigned int nNext = 0;
    nNumMacroLines = 0;

    do
    {
        while (DecodeItem(src, item))
        {
            ++nNumMacroLines;
            NoteMacroItem(item);

            if (item.GetOpCode() == IL_OP_MACROEND)
            {
                break;
            }
        }
    } while (src.PeekToken(nNext) && ILFormatDecode::GetOp(nNext) == IL_OP_MACRODEF);

    return true;
}

/// Whether any instruction of the stream calls a macro.
bool CAnalyzedShaderIL::IsMacroCalled(unsigned int nLabel)
{
    if (!m_CalledMacros)
    {
        m_CalledMacros.emplace();
        CInputTokenStream<unsigned int> src(m_pDebugger, m_vTokens.data(), m_vTokens.size());
        CShaderDebuggerInstructionIL item(m_pDebugger);
        SkipHeader(src);

        while (DecodeItem(src, item) && item.GetOpCode() != IL_OP_END)
        {
            if (item.GetOpCode() == IL_OP_MACROCALL)
            {
                m_CalledMacros->insert(item.GetOpToken().bits.controls);
            }
        }
    }

    return m_CalledMacros->count(nLabel) != 0;
}

bool CAnalyzedShaderIL::PeekFollowingComment(const CInputTokenStream<unsigned int>& src, std::string& strComment) const
{
    const unsigned int* pTokens = src.GetStreamPos();
    const size_t nLeft = src.GetTokensLeft();

    if (nLeft < 2 || ILFormatDecode::GetOp(pTokens[0]) != IL_OP_COMMENT || pTokens[1] == 0 || pTokens[1] > nLeft - 2)
    {
        return false;
    }

    const char* pText = reinterpret_cast<const char*>(pTokens + 2);
    strComment.assign(pText, strnlen(pText, size_t(pTokens[1]) * sizeof(unsigned int)));
    return true;
}

bool CAnalyzedShaderIL::IsOutlineMacro(IL instMod, const CInputTokenStream<unsigned int>& src) const
{
    std::string strComment;
    return (instMod & s_nOutlineBit) != 0 && PeekFollowingComment(src, strComment) && strComment == KernelName();
}

bool CAnalyzedShaderIL::IsPrivateUAVWrite(const CShaderDebuggerInstructionIL& instruction) const
{
    return ILShaderUtils::IsGlobalStore(instruction.GetOpCode()) &&
           m_PrivateUAVNums.count(IL_UavOpCode{instruction.GetOpToken().val}.bits.id) != 0;
}

bool CAnalyzedShaderIL::MakeWrittenRegister(const CShaderDebuggerInstructionIL& instruction, Register& reg) const
{
    if (!IsPrivateUAVWrite(instruction))
    {
        // A macro's result belongs to this call alone, and can't be read at other places.
        return instruction.GetDestRegType() != IL_REGTYPE_OUTPUT_ARG && instruction.GetDestRegister(reg);
    }

    // The store's address takes the place of an index.
    Register address;
    const bool bHasAddress = instruction.GetSrcRegister(0, address);
    address.mask = address.mask == COMP_All ? static_cast<RegisterMask>(COMP_x) : address.mask;
    const unsigned int nUav = IL_UavOpCode{instruction.GetOpToken().val}.bits.id;
    reg = Register(RegisterID(RT_PrivateUAVAccess, nUav, 0, bHasAddress ? &address : nullptr), COMP_All);
    return true;
}

std::string CAnalyzedShaderIL::KernelName() const
{
    CShaderDebuggerHost* pHost = GetHost();
    return pHost != nullptr ? pHost->GetShaderFunctionName(GetShaderType()) : std::string();
}

Register CAnalyzedShaderIL::WrittenBy(InstructionNumber nInst) const
{
    const auto it = m_RegisterOutput.find(nInst);
    return it != m_RegisterOutput.end() ? it->second : g_Reg_NULL;
}

unsigned int CAnalyzedShaderIL::FunctionOf(InstructionNumber nInst) const
{
    const auto it = m_FunctionScope.find(nInst);
    return it != m_FunctionScope.end() ? it->second : 0;
}

CIL_FCConstruct* CAnalyzedShaderIL::ConstructOf(InstructionNumber nInst) const
{
    const auto it = m_FlowControl.find(nInst);
    return it != m_FlowControl.end() ? it->second : nullptr;
}

bool CAnalyzedShaderIL::Refuse(const std::string& strMessage)
{
    m_ShaderInfo.strDebugErrorAsm = strMessage;
    m_ShaderInfo.strDebugErrorMixed = strMessage;
    m_ShaderInfo.strDebugErrorSource = strMessage;
    SD_Log(GetHost(), logERROR, "%s", strMessage.c_str());
    TellClient(strMessage);
    return false;
}

bool CAnalyzedShaderIL::RefuseInvalid(const char* pszText)
{
    SD_Break(GetHost(), pszText);
    return Refuse(ES_CanNotDebug_InvalidShader);
}

bool CAnalyzedShaderIL::Malformed(const char* pszText)
{
    SD_Break(GetHost(), pszText);
    TellClient(ES_CanNotDebug_InvalidShader);
    return false;
}

void CAnalyzedShaderIL::TellClient(const std::string& strMessage)
{
    if (m_pDebugger != nullptr)
    {
        m_pDebugger->SetLastError(strMessage);
    }
}

void CAnalyzedShaderIL::LogTokens(const char* pszTitle, const unsigned int* pTokens, size_t nTokens) const
{
    CShaderDebuggerHost* pHost = GetHost();

    if (pHost == nullptr || pHost->GetLoggingLevel() < logVERBOSE)
    {
        return;
    }

    std::string strText;
    pHost->DisassembleShader(pTokens, nTokens * sizeof(unsigned int), strText);
    SD_Log(pHost, logVERBOSE, "%s%s", pszTitle, strText.c_str());
}

} // namespace OVK_ShaderDebugger
