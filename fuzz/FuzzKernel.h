#ifndef KESTREL_FUZZ_FUZZKERNEL_H
#define KESTREL_FUZZ_FUZZKERNEL_H

#include "tests/support/EnginelessShader.h"
#include "tests/support/FakeHost.h"

#include <string>
#include <vector>

namespace KestrelFuzz
{

/// The lower layers of a kernel under debug, without an engine. What properties are checked on is public.
class CFuzzShader : public CEnginelessShader
{
public:
    using CEnginelessShader::CEnginelessShader;

    using CAnalyzedShaderIL::ConstructOf;
    using CAnalyzedShaderIL::FindCallee;
    using CAnalyzedShaderIL::FunctionOf;
    using CAnalyzedShaderIL::IsCompute;
    using CAnalyzedShaderIL::IsInMain;
    using CAnalyzedShaderIL::m_bIsElf;
    using CAnalyzedShaderIL::m_bTidewater;
    using CAnalyzedShaderIL::m_CallStack;
    using CAnalyzedShaderIL::m_FunctionInstruction;
    using CAnalyzedShaderIL::m_Instructions;
    using CAnalyzedShaderIL::m_nEndOfShader;
    using CAnalyzedShaderIL::m_nInstructionCount;
    using CAnalyzedShaderIL::m_nOutlineMacroEnd;
    using CAnalyzedShaderIL::m_nPatchedLiteralRegisterCount;
    using CAnalyzedShaderIL::m_nPatchedTempRegisterCount;
    using CAnalyzedShaderIL::m_nPatchedTempRegisters;
    using CAnalyzedShaderIL::m_OutlineMacroLabel;
    using CAnalyzedShaderIL::m_PC_LineNumberMap;
    using CAnalyzedShaderIL::m_RegisterOutput;
    using CAnalyzedShaderIL::m_UAVNums;
    using CAnalyzedShaderIL::m_vTokens;
    using CAnalyzedShaderIL::StartOfBody;
};

/// The bytes of an input as a kernel. The whole words are the token stream. The number of remaining bytes chooses what
/// contains it: 0 a binary for the newer device, 1 one for the older device, 2 one for the newer device with samplers
/// and a second kernel, 3 no binary, only the tokens.
class CFuzzKernel
{
public:
    CFuzzKernel(const uint8_t* pData, size_t nSize);
    /// A kernel binary around the tokens, with this metadata for the kernel "k".
    CFuzzKernel(const std::vector<unsigned int>& vTokens, const std::string& strMetadata);

    bool Analyze() { return m_Shader.AnalyzeShader(); }
    CFuzzShader& Shader() { return m_Shader; }
    OVK_ShaderDebugger::CFakeHost& Host() { return m_Host; }

private:
    OVK_ShaderDebugger::CFakeHost m_Host;
    std::vector<char> m_vImage;
    CFuzzShader m_Shader;
};

/// The whole words in some bytes.
std::vector<unsigned int> ToWords(const uint8_t* pData, size_t nSize);

/// A stream as hexadecimal words, for messages.
std::string ToHex(const std::vector<unsigned int>& vTokens);

} // namespace KestrelFuzz

#endif
