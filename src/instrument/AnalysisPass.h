#ifndef KESTREL_INSTRUMENT_ANALYSISPASS_H
#define KESTREL_INSTRUMENT_ANALYSISPASS_H

#include "instrument/AnalyzedShaderIL.h"

#include <vector>

namespace OVK_ShaderDebugger
{

/// The one pass over the items of a kernel, after its header. It fills the fields of the kernel. Its own state is the
/// open blocks, the function, the macro and the line at the current item. Internal to this folder.
class CAnalysisPass
{
public:
    /// \param nLine the line of the first item. Both objects must outlive the pass.
    CAnalysisPass(CAnalyzedShaderIL& shader, CInputTokenStream<unsigned int>& src, LineNumber nLine);

    /// Reads until the end instruction. \return false, with the reason reported, if the kernel is refused
    bool Run();

    /// How many loops stand inside each other at most.
    unsigned int GetMaxLoopDepth() const { return m_nMaxLoopDepth; }

private:
    /// What an opcode asks for. An instruction has been appended to the kernel's before; a declaration hasn't.
    typedef bool (CAnalysisPass::*Handler)(const CShaderDebuggerInstructionIL&);

    struct SHandlerRow
    {
        ILOpCode op;
        Handler handler;
    };

    static const SHandlerRow s_DeclarationRows[];
    static const SHandlerRow s_FlowControlRows[];
    static Handler FindHandler(ILOpCode op);

    // The items (AnalysisPass.cpp).
    bool TakeItem(CShaderDebuggerInstructionIL& item);
    bool TakeMacroDef(const CShaderDebuggerInstructionIL& item);
    bool IsEntered(const CShaderDebuggerInstructionIL& item);
    bool TakeMacroEnd();
    bool TakeInstruction(CShaderDebuggerInstructionIL& item);
    bool Dispatch(const CShaderDebuggerInstructionIL& item);
    void NoteWrittenRegister(const CShaderDebuggerInstructionIL& instruction);
    void AddToOpenBlocks(const Register& reg);
    void NoteLine();

    // Declarations (AnalysisDeclarations.cpp).
    Declarations& CurrentDeclarations();
    bool HasLength(const CShaderDebuggerInstructionIL& item, std::uint32_t nLength);
    bool OnDclLiteral(const CShaderDebuggerInstructionIL& item);
    bool OnDclResource(const CShaderDebuggerInstructionIL& item);
    bool OnDclIndexedTempArray(const CShaderDebuggerInstructionIL& item);
    bool OnDclUav(const CShaderDebuggerInstructionIL& item);
    bool OnDclTypelessUav(const CShaderDebuggerInstructionIL& item);
    bool OnDclTypedUav(const CShaderDebuggerInstructionIL& item);
    bool OnDclLocal(const CShaderDebuggerInstructionIL& item);
    bool OnDclMaxThreadPerGroup(const CShaderDebuggerInstructionIL& item);
    bool OnDclNumThreadPerGroup(const CShaderDebuggerInstructionIL& item);
    bool OnDclConstantBuffer(const CShaderDebuggerInstructionIL& item);
    bool OnDclRawUav(const CShaderDebuggerInstructionIL& item);
    bool OnDclOutput(const CShaderDebuggerInstructionIL& item);
    bool OnDclInput(const CShaderDebuggerInstructionIL& item);
    bool NoteUav(const CShaderDebuggerInstructionIL& item, unsigned int nPrivateSize);

    // Flow control (AnalysisFlowControl.cpp).
    InstructionNumber Position() const { return m_Shader.m_nInstructionCount; }
    CIL_FCConstruct* Front() const { return m_FCStack.empty() ? nullptr : m_FCStack.back(); }
    void SetConstruct(CIL_FCConstruct* pConstruct);
    template <typename Construct>
    bool Open();
    bool Close();
    bool IsClosed();
    bool OnIf(const CShaderDebuggerInstructionIL& instruction);
    bool OnElse(const CShaderDebuggerInstructionIL& instruction);
    bool OnEndIf(const CShaderDebuggerInstructionIL& instruction);
    bool OnWhile(const CShaderDebuggerInstructionIL& instruction);
    bool OnEndLoop(const CShaderDebuggerInstructionIL& instruction);
    bool OnSwitch(const CShaderDebuggerInstructionIL& instruction);
    bool OnEndSwitch(const CShaderDebuggerInstructionIL& instruction);
    bool OnCase(const CShaderDebuggerInstructionIL& instruction);
    bool OnBreak(const CShaderDebuggerInstructionIL& instruction);
    bool OnContinue(const CShaderDebuggerInstructionIL& instruction);
    bool OnEnd(const CShaderDebuggerInstructionIL& instruction);
    bool OnEndMain(const CShaderDebuggerInstructionIL& instruction);
    bool OnFunc(const CShaderDebuggerInstructionIL& instruction);
    bool OnEndFunc(const CShaderDebuggerInstructionIL& instruction);
    bool OnReturn(const CShaderDebuggerInstructionIL& instruction);
    bool OnUnsupported(const CShaderDebuggerInstructionIL& instruction);
    bool OnOther(const CShaderDebuggerInstructionIL& instruction);

    /// Logs the text of a condition that doesn't hold, and refuses the kernel as malformed.
    bool Require(bool bCondition, const char* pszText) { return bCondition || m_Shader.Malformed(pszText); }
    /// The same with the message also in the kernel's ShaderInfo.
    bool RequireValid(bool bCondition, const char* pszText);

    CAnalyzedShaderIL& m_Shader;
    CInputTokenStream<unsigned int>& m_Src;
    LineNumber m_nLine;
    std::vector<CIL_FCConstruct*> m_FCStack; ///< open blocks, the innermost at the back
    unsigned int m_nLoopDepth = 0;
    unsigned int m_nMaxLoopDepth = 0;
    bool m_bEndEncountered = false;
    bool m_bEndMainEncountered = false;
    bool m_bInFunction = true; ///< the main body counts as function 0
    bool m_bInOutlineMacro = false;
    unsigned int m_nMacroLabel = 0;      ///< of the outline macro that is open
    InstructionNumber m_nMacroStart = 0; ///< its first instruction
    bool m_bOutlineMacroEncountered = false;
    unsigned int m_nCurrentFunction = 0;
};

} // namespace OVK_ShaderDebugger

#endif
