#include "fuzz/CompilerLibrary.h"
#include "fuzz/FuzzKernel.h"
#include "fuzz/Targets.h"
#include "fuzz/TextRoad.h"

#include "binary/ElfUtils.h"
#include "platform/compiler/Assembler.h"
#include "platform/compiler/Disassembler.h"
#include "platform/simt/Structure.h"

#include <algorithm>
#include <cstring>

namespace KestrelFuzz
{

using namespace OVK_ShaderDebugger;

namespace
{

/// How many positions of a kernel are patched; in a longer kernel they are spread evenly.
constexpr InstructionNumber s_nMaxPositions = 64;

/// Whether the software platform accepts a stream: its items, its blocks and its calls.
bool IsStructured(const std::vector<unsigned int>& vTokens, std::string& strReason)
{
    KestrelPlatform::SDecodedStream stream;
    KestrelPlatform::SStructure structure;
    KestrelPlatform::SDecodeError error;
    const bool bTaken = KestrelPlatform::DecodeStream(vTokens.data(), vTokens.size(), stream, error) &&
                        KestrelPlatform::BuildStructure(stream, structure, error);
    strReason = error.strMessage;
    return bTaken;
}

std::string ToText(const std::vector<unsigned int>& vTokens)
{
    std::string strText;
    std::string strError;
    KestrelPlatform::DisassembleIL(vTokens.data(), vTokens.size(), strText, strError);
    return strText + strError;
}

/// A position in the given pass of each loop around it.
ProgramCounter At(const CFuzzShader& shader, InstructionNumber nPosition, unsigned int nPass)
{
    ProgramCounter pc(nPosition);
    for (const CIL_FCConstruct* p = shader.ConstructOf(nPosition); p != nullptr; p = p->GetParent())
    {
        const CIL_Loop* pLoop = p->AsLoop();
        if (pLoop != nullptr && pLoop->IsInsideLoop(nPosition))
        {
            pc.m_LoopStack.insert(pc.m_LoopStack.begin(), {pLoop->GetStart(), pLoop->GetEnd(), nPass});
        }
    }
    return pc;
}

/// Patches every position of a kernel.
class CPatchEverywhere
{
public:
    CPatchEverywhere(CFuzzKernel& kernel) : m_Kernel(kernel), m_Shader(kernel.Shader())
    {
        std::string strReason;
        m_bStructured = IsStructured(m_Shader.m_vTokens, strReason);
        m_nHeader = HeaderPosition();
        m_bMacroLeftOpen = IsMacroLeftOpen();
    }

    void Run()
    {
        PatchAndCheck(g_PC_NULL, {Register(RT_Temp, 0, COMP_x), Register(RT_IndexableTemp, 1, COMP_All, 2)});
        const InstructionNumber nCount = m_Shader.m_nInstructionCount;
        const InstructionNumber nStride = (nCount + s_nMaxPositions - 1) / s_nMaxPositions;
        for (InstructionNumber n = 0; n < nCount; n += nStride)
        {
            PatchAt(n);
            m_Kernel.Host().vLog.clear();
        }
    }

private:
    void PatchAt(InstructionNumber n)
    {
        const auto it = m_Shader.m_RegisterOutput.find(n);
        const Register written = it != m_Shader.m_RegisterOutput.end() ? it->second : g_Reg_NULL;
        m_Shader.m_CallStack.clear();
        PatchAndCheck(At(m_Shader, n, 0), {written});
        EnterCalls(n);
        const ProgramCounter later = At(m_Shader, n, 3);
        PatchAndCheck(later, {written, g_Reg_NULL, Register(RT_Temp, 0, COMP_x)});
        PatchAndCheck(later, {});
    }

    /// The first call path from the main body to the position's function or macro.
    void EnterCalls(InstructionNumber n)
    {
        std::vector<ProgramCounter> vCalls; // innermost first
        for (size_t nDepth = 0; !m_Shader.IsInMain(n) && nDepth < 8; ++nDepth)
        {
            const InstructionNumber nStart = m_Shader.StartOfBody(n);
            InstructionNumber nCall = 0;
            while (nCall < m_Shader.m_nInstructionCount && m_Shader.FindCallee(nCall) != nStart)
            {
                ++nCall;
            }
            if (nCall == m_Shader.m_nInstructionCount)
            {
                break;
            }
            vCalls.push_back(At(m_Shader, nCall, 2));
            n = nCall;
        }
        std::for_each(vCalls.rbegin(), vCalls.rend(),
                      [this](const ProgramCounter& call) { m_Shader.m_CallStack.push_front(call); });
    }

    void PatchAndCheck(const ProgramCounter& target, const std::vector<Register>& vRegs)
    {
        CInputTokenStream<unsigned int> src(&m_Kernel.Host(), m_Shader.m_vTokens.data(), m_Shader.m_vTokens.size());
        COutputTokenStream<unsigned int> dest(&m_Kernel.Host(), m_Shader.m_vTokens.size());
        if (!m_Shader.PatchIL(src, dest, target, vRegs))
        {
            return;
        }
        const std::vector<unsigned int> vPatched(dest.GetStream(), dest.GetStream() + dest.GetTokensWritten());
        const std::string strPlace = "at instruction " + std::to_string(target.m_nPos) + ": ";
        CheckStream(vPatched, strPlace);
        if (!m_bImageTried && m_Shader.m_bIsElf)
        {
            m_bImageTried = true;
            CheckImage(target, vRegs, vPatched, strPlace);
        }
    }

    /// The index of the language token, which follows any leading macros.
    size_t HeaderPosition() const
    {
        CInputTokenStream<unsigned int> stream(&m_Kernel.Host(), m_Shader.m_vTokens.data(), m_Shader.m_vTokens.size());
        return SkipMacros(stream);
    }

    size_t SkipMacros(CInputTokenStream<unsigned int>& stream) const
    {
        CShaderDebuggerInstructionIL item(&m_Kernel.Host());
        unsigned int nNext = 0;
        while (stream.PeekToken(nNext) && ILFormatDecode::GetOp(nNext) == IL_OP_MACRODEF)
        {
            while (item.ReadInstruction(stream) && item.GetOpCode() != IL_OP_MACROEND)
            {
            }
        }
        return stream.GetTokensRead();
    }

    /// Counts the end instructions from the stream's position on, except those in macros, since a macro of another
    /// kernel doesn't concern this one.
    size_t CountEnds(CInputTokenStream<unsigned int>& stream, const std::string& strPlace, bool& bAtEnd) const
    {
        CShaderDebuggerInstructionIL item(&m_Kernel.Host());
        size_t nEnds = 0;
        bool bInMacro = false;
        while (stream.GetTokensLeft() != 0)
        {
            Require(item.ReadInstruction(stream), "a patched stream decodes", strPlace);
            bInMacro = item.GetOpCode() == IL_OP_MACRODEF || (bInMacro && item.GetOpCode() != IL_OP_MACROEND);
            nEnds += item.GetOpCode() == IL_OP_END && !bInMacro ? 1 : 0;
        }
        bAtEnd = item.GetOpCode() == IL_OP_END;
        return nEnds;
    }

    bool IsMacroLeftOpen() const
    {
        CInputTokenStream<unsigned int> stream(&m_Kernel.Host(), m_Shader.m_vTokens.data(), m_Shader.m_vTokens.size());
        SkipMacros(stream);
        stream.SkipTokens(2);
        CShaderDebuggerInstructionIL item(&m_Kernel.Host());
        bool bInMacro = false;
        while (stream.GetTokensLeft() != 0 && item.ReadInstruction(stream) && item.GetOpCode() != IL_OP_END)
        {
            bInMacro = item.GetOpCode() == IL_OP_MACRODEF || (bInMacro && item.GetOpCode() != IL_OP_MACROEND);
        }
        return bInMacro;
    }

    void CheckStream(const std::vector<unsigned int>& vPatched, const std::string& strPlace)
    {
        CInputTokenStream<unsigned int> stream(&m_Kernel.Host(), vPatched.data(), vPatched.size());
        const size_t nHeader = SkipMacros(stream);
        Require(nHeader == m_nHeader && vPatched.size() >= nHeader + 2 &&
                    std::equal(vPatched.begin(), vPatched.begin() + static_cast<std::ptrdiff_t>(nHeader) + 2,
                               m_Shader.m_vTokens.begin()),
                "a patched stream begins as the kernel does", strPlace);
        stream.SkipTokens(2);
        bool bAtEnd = false;
        const size_t nEnds = CountEnds(stream, strPlace, bAtEnd);
        // A kernel with an unclosed macro has no end of its own.
        Require(bAtEnd && (nEnds == 1 || m_bMacroLeftOpen), "a patched stream ends once, at its end", strPlace);
        std::string strReason;
        if (m_bStructured && !IsStructured(vPatched, strReason))
        {
            Require(false, "a patched stream is one that the platform takes, if the kernel is",
                    strPlace + strReason + "\nkernel:\n" + ToText(m_Shader.m_vTokens) + "patched:\n" +
                        ToText(vPatched));
        }
    }

    /// Takes the patched kernel the way that it reaches the runtime: as text in a kernel binary.
    void CheckImage(const ProgramCounter& target, const std::vector<Register>& vRegs,
                    const std::vector<unsigned int>& vPatched, const std::string& strPlace)
    {
        const auto* pImage = reinterpret_cast<const char*>(m_Shader.CreatePatchedShader(target, vRegs));
        Require(pImage != nullptr, "tokens that were patched go into the kernel binary", strPlace);
        const std::vector<char> vImage(pImage, pImage + m_Shader.GetPatchedShaderSize());
        std::vector<char> vText;
        Require(OVK_ElfUtils::GetDataFromSection(".debugil", vImage, &vText), "a patched image has its text", strPlace);
        std::vector<unsigned int> vTokens;
        KestrelPlatform::SDiagnostic diagnostic;
        Require(KestrelPlatform::AssembleIL(vText.data(), vText.size(), vTokens, diagnostic),
                "the text of a patched image assembles", strPlace + diagnostic.ToString());
        Require(WithoutComments(vTokens) == WithoutComments(vPatched),
                "the text of a patched image is that of the patched tokens", strPlace);
    }

    CFuzzKernel& m_Kernel;
    CFuzzShader& m_Shader;
    bool m_bStructured;
    size_t m_nHeader;
    bool m_bMacroLeftOpen;
    bool m_bImageTried = false;
};

} // namespace

void FuzzPatch(const uint8_t* pData, size_t nSize)
{
    OpenCompilerLibrary();
    CFuzzKernel kernel(pData, nSize);
    if (kernel.Analyze())
    {
        CPatchEverywhere(kernel).Run();
    }
}

} // namespace KestrelFuzz
