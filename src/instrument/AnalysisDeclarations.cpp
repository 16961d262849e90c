#include "instrument/AnalysisPass.h"

#include "core/Log.h"

#include <algorithm>
#include <limits>

namespace OVK_ShaderDebugger
{

namespace
{

/// The largest private array of one work-item. A register that is indexed at run time is read element by element, so an
/// absurd size in a declaration would ask for as many kernel runs.
constexpr unsigned int s_nMaxPrivateBytes = 1u << 24;
constexpr unsigned int s_nMaxArrayElements = s_nMaxPrivateBytes / 16;

/// The size of the slots in which a private UAV is read; sizes are below s_nMaxPrivateBytes.
constexpr unsigned int RoundUpTo16(unsigned int n)
{
    return (n + 15) & ~15u;
}

} // namespace

const CAnalysisPass::SHandlerRow CAnalysisPass::s_DeclarationRows[] = {
    {IL_DCL_LITERAL, &CAnalysisPass::OnDclLiteral},
    {IL_DCL_RESOURCE, &CAnalysisPass::OnDclResource},
    {IL_DCL_INDEXED_TEMP_ARRAY, &CAnalysisPass::OnDclIndexedTempArray},
    {IL_OP_DCL_UAV, &CAnalysisPass::OnDclUav},
    {IL_OP_DCL_TYPELESS_UAV, &CAnalysisPass::OnDclTypelessUav},
    {IL_OP_DCL_TYPED_UAV, &CAnalysisPass::OnDclTypedUav},
    {IL_DCL_LDS, &CAnalysisPass::OnDclLocal},
    {IL_DCL_MAX_THREAD_PER_GROUP, &CAnalysisPass::OnDclMaxThreadPerGroup},
    {IL_OP_DCL_NUM_THREAD_PER_GROUP, &CAnalysisPass::OnDclNumThreadPerGroup},
    {IL_DCL_CONST_BUFFER, &CAnalysisPass::OnDclConstantBuffer},
    {IL_OP_DCL_RAW_UAV, &CAnalysisPass::OnDclRawUav},
    {IL_DCL_OUTPUT, &CAnalysisPass::OnDclOutput},
    {IL_DCL_INPUT, &CAnalysisPass::OnDclInput},
    {IL_OP_UNKNOWN, nullptr},
};

Declarations& CAnalysisPass::CurrentDeclarations()
{
    return m_Shader.m_DeclsFuncScopeMap[m_nCurrentFunction];
}

bool CAnalysisPass::HasLength(const CShaderDebuggerInstructionIL& item, std::uint32_t nLength)
{
    const std::string strText = "instruction.GetLength() == " + std::to_string(nLength);
    return Require(item.GetLength() == nLength, strText.c_str());
}

bool CAnalysisPass::OnDclLiteral(const CShaderDebuggerInstructionIL& item)
{
    Register literal;

    if (!Require(item.GetSrcRegister(0, literal) && literal.reg.type == RT_LITERAL,
                 "instruction.GetSrcRegCount() == 1 && instruction.GetSrcRegister( 0 ).reg.type == RT_LITERAL"))
    {
        return false;
    }

    m_Shader.NoteLiteral(item);
    m_Shader.m_vLiteralRegisterValues[literal.reg.number] =
        m_Shader.m_LiteralDeclarations[literal.reg.number].back().value;
    return true;
}

bool CAnalysisPass::OnDclResource(const CShaderDebuggerInstructionIL& item)
{
    CurrentDeclarations().m_Resources.push_back(item);
    return true;
}

bool CAnalysisPass::OnDclIndexedTempArray(const CShaderDebuggerInstructionIL& item)
{
    const unsigned int nSize = item.GetToken(2);

    if (!Require(nSize <= s_nMaxArrayElements, "instruction.GetToken( 2 ) <= s_nMaxArrayElements"))
    {
        return false;
    }

    CurrentDeclarations().m_IndexedTempRegisterSizes[item.GetSrcRegister(0).reg.number] = nSize;
    return true;
}

bool CAnalysisPass::OnDclUav(const CShaderDebuggerInstructionIL& item)
{
    CurrentDeclarations().m_UAVs.push_back(item);
    return true;
}

bool CAnalysisPass::OnDclTypelessUav(const CShaderDebuggerInstructionIL& item)
{
    return HasLength(item, 3) && NoteUav(item, item.GetToken(2));
}

bool CAnalysisPass::OnDclTypedUav(const CShaderDebuggerInstructionIL& item)
{
    return NoteUav(item, item.GetToken(2));
}

bool CAnalysisPass::NoteUav(const CShaderDebuggerInstructionIL& item, unsigned int nPrivateSize)
{
    const unsigned int nUav = ILFormatDecode::GetTypedUavId(item.GetToken(0));
    CurrentDeclarations().m_UAVs.push_back(item);
    m_Shader.m_UAVNums.insert(nUav);

    if (ILFormatDecode::GetUavAccessType(item.GetToken(0)) != IL_UAV_ACCESS_TYPE_PRIVATE)
    {
        return true;
    }

    if (!Require(nPrivateSize <= s_nMaxPrivateBytes, "instruction.GetToken( 2 ) <= s_nMaxPrivateBytes"))
    {
        return false;
    }

    m_Shader.m_PrivateUAVNums.insert(nUav);
    CurrentDeclarations().m_PrivateUAVSizes[nUav] = RoundUpTo16(nPrivateSize);
    return true;
}

bool CAnalysisPass::OnDclLocal(const CShaderDebuggerInstructionIL& item)
{
    if (item.GetLength() == 2)
    {
        unsigned int& nSize = CurrentDeclarations().m_LocalSizes[item.GetOpToken().bits.controls];
        nSize = std::max(nSize, item.GetToken(1));
    }

    return true;
}

bool CAnalysisPass::OnDclMaxThreadPerGroup(const CShaderDebuggerInstructionIL& item)
{
    if (!m_Shader.IsCompute())
    {
        return true;
    }

    return HasLength(item, 2) &&
           Require(m_Shader.m_maxThreadPerGroup.emplace(m_nCurrentFunction, static_cast<int>(item.GetToken(1))).second,
                   "m_maxThreadPerGroup.find(nCurrentFunction) == m_maxThreadPerGroup.end()");
}

bool CAnalysisPass::OnDclNumThreadPerGroup(const CShaderDebuggerInstructionIL& item)
{
    if (!m_Shader.IsCompute())
    {
        return true;
    }

    ThreadID size;
    size.x = static_cast<int>(item.GetToken(1));
    size.y = static_cast<int>(item.GetToken(2));
    size.z = static_cast<int>(item.GetToken(3));
    return HasLength(item, 4) && Require(m_Shader.m_numThreadPerGroup.emplace(m_nCurrentFunction, size).second,
                                         "m_numThreadPerGroup.find(nCurrentFunction) == m_numThreadPerGroup.end()");
}

bool CAnalysisPass::OnDclConstantBuffer(const CShaderDebuggerInstructionIL& item)
{
    if (!m_Shader.IsCompute())
    {
        return true;
    }

    Register buffer;

    if (!Require(item.GetSrcRegister(0, buffer) && buffer.reg.type == RT_CONST_BUFF,
                 "instruction.GetSrcRegCount() == 1 && instruction.GetSrcRegister( 0 ).reg.type == RT_CONST_BUFF"))
    {
        return false;
    }

    // The size of buffer 1 comes from the metadata, so that nothing is to be noted for it.
    if (buffer.reg.number > 1)
    {
        CurrentDeclarations().m_ConstantBufferSizes[buffer.reg.number] = item.GetToken(2);
    }
    else if (buffer.reg.number == 0)
    {
        m_Shader.m_nRuntimeABIConstantBufferSize = item.GetToken(2);
        return HasLength(item, 3);
    }

    return true;
}

bool CAnalysisPass::OnDclRawUav(const CShaderDebuggerInstructionIL& item)
{
    if (!m_Shader.IsCompute())
    {
        return true;
    }

    const unsigned int nRawUAVNum = item.GetOpToken().bits.controls;

    if (!HasLength(item, 1) ||
        !Require(m_Shader.m_nRawUAVNum == s_nNotSet || m_Shader.m_nRawUAVNum == nRawUAVNum,
                 "m_nRawUAVNum == numeric_limits<unsigned int>::max() || nRawUAVNum == m_nRawUAVNum"))
    {
        return false;
    }

    m_Shader.m_nRawUAVNum = nRawUAVNum;
    return true;
}

bool CAnalysisPass::OnDclOutput(const CShaderDebuggerInstructionIL& item)
{
    Register output;

    if (!m_Shader.IsCompute() && item.GetDestRegister(output))
    {
        m_Shader.m_OutputRegMasks[output.reg.number] = output.mask;
    }

    return true;
}

bool CAnalysisPass::OnDclInput(const CShaderDebuggerInstructionIL& item)
{
    Register input;

    if (!m_Shader.IsCompute() && item.GetDestRegister(input) && input.reg.type != RT_Unknown &&
        input.reg.type != RT_Null)
    {
        m_Shader.m_InputRegisters[input.reg] |= input.mask;
    }

    return true;
}

} // namespace OVK_ShaderDebugger
