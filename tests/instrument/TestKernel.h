#ifndef KESTREL_TESTS_INSTRUMENT_TESTKERNEL_H
#define KESTREL_TESTS_INSTRUMENT_TESTKERNEL_H

#include "platform/compiler/Assembler.h"
#include "platform/compiler/Disassembler.h"
#include "platform/compiler/ElfWriter.h"
#include "support/EnginelessShader.h"
#include "support/FakeHost.h"

#include <gtest/gtest.h>

#include <elf.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace OVK_ShaderDebugger
{

/// The metadata of a test kernel. The defaults describe the newer device with one buffer.
struct SKernelSetup
{
    std::string strDevice = "quench";
    bool b64Bit = true;
    std::string strEntries = ";pointer:a:float:1:1:0:uav:10:4:RW:0:0\n"; ///< the lines of arguments and samplers
    unsigned int nRevision = 104;
};

inline SKernelSetup OlderDevice()
{
    SKernelSetup setup;
    setup.strDevice = "kiln";
    setup.b64Bit = false;
    setup.strEntries = ";pointer:a:float:1:1:0:uav:11:4:RW:0:0\n";
    return setup;
}

inline std::string MakeMetadata(const SKernelSetup& setup, const std::string& strName = "k")
{
    return ";ARGSTART:__OpenCL_" + strName + "_kernel\n;version:3:1:" + std::to_string(setup.nRevision) +
           "\n;device:" + setup.strDevice + "\n;uniqueid:1024\n" + (setup.b64Bit ? ";memory:64bitABI\n" : "") +
           setup.strEntries + ";function:1:1024\n;uavid:11\n;ARGEND:__OpenCL_" + strName + "_kernel\n";
}

inline std::vector<unsigned int> Assemble(const std::string& strText)
{
    std::vector<unsigned int> vTokens;
    KestrelPlatform::SDiagnostic diagnostic;
    EXPECT_TRUE(KestrelPlatform::AssembleIL(strText.data(), strText.size(), vTokens, diagnostic))
        << diagnostic.ToString();
    return vTokens;
}

inline std::string Disassemble(const unsigned int* pTokens, size_t nTokens)
{
    std::string strText;
    std::string strError;
    EXPECT_TRUE(KestrelPlatform::DisassembleIL(pTokens, nTokens, strText, strError)) << strError;
    return strText;
}

inline std::string ReadFile(const std::string& strPath)
{
    std::ifstream file(strPath);
    EXPECT_TRUE(file.good()) << strPath;
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

inline std::vector<std::string> SplitLines(const std::string& strText)
{
    std::vector<std::string> vLines;
    std::istringstream text(strText);

    for (std::string strLine; std::getline(text, strLine);)
    {
        vLines.push_back(strLine);
    }

    return vLines;
}

/// A kernel binary with binary IL, as the debugger receives it.
inline std::vector<char> MakeImage(const std::vector<unsigned int>& vTokens, const std::string& strMetadata,
                                   const std::string& strName = "k")
{
    KestrelPlatform::CElfWriter elf;
    const auto AsBytes = [](const std::vector<unsigned int>& v)
    { return std::string_view(reinterpret_cast<const char*>(v.data()), v.size() * sizeof(unsigned int)); };
    elf.AddSection(".debugil", 0, 1, "");
    elf.AddSection(".debugilbin", 0, 4, AsBytes(vTokens));
    const size_t nRodata = elf.AddSection(".rodata", SHF_ALLOC, 1, strMetadata);
    elf.AddSymbol("__OpenCL_" + strName + "_metadata", STT_OBJECT, nRodata, 0, strMetadata.size());
    return elf.Write();
}

/// The lower layers, with all members public for tests.
class CTestShader : public CEnginelessShader
{
public:
    using CEnginelessShader::CEnginelessShader;

    using CAnalyzedShaderIL::m_b64BitAddressSpace;
    using CAnalyzedShaderIL::m_bTidewater;
    using CAnalyzedShaderIL::m_CallStack;
    using CAnalyzedShaderIL::m_DeclsFuncScopeMap;
    using CAnalyzedShaderIL::m_DeviceName;
    using CAnalyzedShaderIL::m_FlowControl;
    using CAnalyzedShaderIL::m_FunctionInstruction;
    using CAnalyzedShaderIL::m_FunctionScope;
    using CAnalyzedShaderIL::m_Instructions;
    using CAnalyzedShaderIL::m_maxThreadPerGroup;
    using CAnalyzedShaderIL::m_nEndOfShader;
    using CAnalyzedShaderIL::m_nKernelABIConstantBufferSize;
    using CAnalyzedShaderIL::m_nLiteralRegisters;
    using CAnalyzedShaderIL::m_nOutlineMacroEnd;
    using CAnalyzedShaderIL::m_nPatchedTempRegisters;
    using CAnalyzedShaderIL::m_nRawUAVNum;
    using CAnalyzedShaderIL::m_nRuntimeABIConstantBufferSize;
    using CAnalyzedShaderIL::m_nTempRegisters;
    using CAnalyzedShaderIL::m_OutlineMacroLabel;
    using CAnalyzedShaderIL::m_PC_LineNumberMap;
    using CAnalyzedShaderIL::m_RegisterOutput;
    using CAnalyzedShaderIL::m_Samplers;
    using CAnalyzedShaderIL::m_vTokens;
    using CInstrumentedShaderIL::WriteComment;
    using CInstrumentedShaderIL::WriteDestReg;
    using CInstrumentedShaderIL::WriteSourceReg;

    const ShaderInfo& Info() const { return m_ShaderInfo; }
};

/// A kernel from IL text, analysed, with its host.
class CTestKernel
{
public:
    explicit CTestKernel(const std::string& strText, const SKernelSetup& setup = SKernelSetup())
        : CTestKernel(Assemble(strText), setup)
    {
        m_vLines = SplitLines(strText);
    }

    explicit CTestKernel(const std::vector<unsigned int>& vTokens, const SKernelSetup& setup = SKernelSetup())
        : m_vImage(MakeImage(vTokens, MakeMetadata(setup))), m_Shader(&m_Host, m_vImage.data(), m_vImage.size())
    {
        m_bAnalyzed = m_Shader.AnalyzeShader();
    }

    bool IsAnalyzed() const { return m_bAnalyzed; }
    CFakeHost& Host() { return m_Host; }
    CTestShader& Shader() { return m_Shader; }

    /// The n-th instruction (from 0) with this text in the kernel. Each line of text is one item.
    InstructionNumber Find(const std::string& strLine, size_t n = 0) const
    {
        for (const auto& entry : m_Shader.m_PC_LineNumberMap.left)
        {
            if (m_vLines.at(entry.second) == strLine && n-- == 0)
            {
                return entry.first;
            }
        }

        ADD_FAILURE() << "no such line: " << strLine;
        return 0;
    }

    /// A position with the passes of the loops around it, outermost first; loops without a given pass are in their
    /// first one.
    ProgramCounter At(InstructionNumber nPos, const std::vector<unsigned int>& vPasses = {}) const
    {
        ProgramCounter pc(nPos);
        const auto it = m_Shader.m_FlowControl.find(nPos);

        for (const CIL_FCConstruct* p = it->second; p != nullptr; p = p->GetParent())
        {
            const CIL_Loop* pLoop = p->AsLoop();

            if (pLoop != nullptr && pLoop->IsInsideLoop(nPos))
            {
                pc.m_LoopStack.insert(pc.m_LoopStack.begin(), {pLoop->GetStart(), pLoop->GetEnd(), 0});
            }
        }

        for (size_t i = 0; i < std::min(vPasses.size(), pc.m_LoopStack.size()); ++i)
        {
            pc.m_LoopStack[i].nLoopIteration = vPasses[i];
        }

        return pc;
    }

    /// The register that the instruction writes; g_Reg_NULL for none.
    Register Written(InstructionNumber nPos) const
    {
        const auto it = m_Shader.m_RegisterOutput.find(nPos);
        return it != m_Shader.m_RegisterOutput.end() ? it->second : g_Reg_NULL;
    }

    bool Patch(const ProgramCounter& target, const std::vector<Register>& vRegs, std::vector<unsigned int>& vPatched)
    {
        CInputTokenStream<unsigned int> src(&m_Host, m_Shader.m_vTokens.data(), m_Shader.m_vTokens.size());
        COutputTokenStream<unsigned int> dest(&m_Host, m_Shader.m_vTokens.size());
        const bool bPatched = m_Shader.PatchIL(src, dest, target, vRegs);
        vPatched.assign(dest.GetStream(), dest.GetStream() + dest.GetTokensWritten());
        return bPatched;
    }

private:
    CFakeHost m_Host;
    std::vector<char> m_vImage;
    CTestShader m_Shader;
    bool m_bAnalyzed = false;
    std::vector<std::string> m_vLines;
};

} // namespace OVK_ShaderDebugger

#endif
