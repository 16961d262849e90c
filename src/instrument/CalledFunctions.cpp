#include "instrument/InstrumentedShaderIL.h"
#include "instrument/PatchPass.h"

#include "core/Log.h"

namespace OVK_ShaderDebugger
{

// A called function is cut short at the target in one of its calls only. The call that is meant, told by the call
// stack, goes to a copy of the function that is cut; all others go to the function as the kernel wrote it. The function
// that makes the call is itself cut behind it, or it would go on, and store, with what a function cut short has left.

/// Whether an instruction may call its function again, or another one does.
bool CInstrumentedShaderIL::IsRepeatedCall(InstructionNumber nCall) const
{
    if (LoopWith(nCall) != nullptr)
    {
        return true;
    }

    const unsigned int nLabel = m_Instructions[nCall].GetToken(1);
    unsigned int nCalls = 0;

    for (const CShaderDebuggerInstructionIL& instruction : m_Instructions)
    {
        nCalls += instruction.GetOpCode() == IL_OP_CALL && instruction.GetToken(1) == nLabel;
    }

    return nCalls > 1;
}

/// The innermost loop around an instruction; null for none.
const CIL_Loop* CInstrumentedShaderIL::LoopWith(InstructionNumber nInst) const
{
    for (const CIL_FCConstruct* p = ConstructOf(nInst); p != nullptr; p = p->GetParent())
    {
        const CIL_Loop* pLoop = CIL_FCConstruct::AsLoop(p);

        if (pLoop != nullptr && pLoop->IsInsideLoop(nInst))
        {
            return pLoop;
        }
    }

    return nullptr;
}

/// The places where functions are cut, from the outside in: each call on the way to the target, and the target. The
/// main body, in which the runtime looks for the call of the kernel's function, stays as it is if that is called once.
/// A call of a macro on the way leaves the target alone, since macros aren't copied.
std::vector<CInstrumentedShaderIL::SCut> CInstrumentedShaderIL::FindCuts(const ProgramCounter& target) const
{
    std::vector<SCut> vCuts;
    unsigned int nLabel = m_FunctionInstruction.empty() ? 0 : m_FunctionInstruction.rbegin()->first;

    for (auto it = m_CallStack.rbegin(); it != m_CallStack.rend(); ++it)
    {
        if (m_Instructions[it->m_nPos].GetOpCode() != IL_OP_CALL)
        {
            return {{target, 0}};
        }

        if (FunctionOf(it->m_nPos) != 0 || IsRepeatedCall(it->m_nPos))
        {
            do
            {
                ++nLabel;
            } while (nLabel == 0 || m_FunctionInstruction.count(nLabel) != 0);

            vCuts.push_back({*it, nLabel});
        }
    }

    vCuts.push_back({target, 0});
    return vCuts;
}

/// Literals of their own for the passes of loops in copies: a function and the one that calls it may have loops of the
/// same depth, which share a counter, but not the passes.
void CInstrumentedShaderIL::WriteCopyLiterals(CDest& dest, const std::vector<SCut>& vCuts)
{
    for (size_t i = 1; i < vCuts.size(); ++i)
    {
        for (const LoopState& state : vCuts[i].pc.m_LoopStack)
        {
            if (!SD_Assert(GetHost(), m_CopyLiterals.size() < m_qUnusedLiteralRegs.size()))
            {
                return;
            }

            const unsigned int nLiteral = m_qUnusedLiteralRegs[m_CopyLiterals.size()];
            m_CopyLiterals[state.nLoopStart] = nLiteral;
            WriteLiteralDeclaration(dest, nLiteral, state.nLoopIteration + 1);
        }
    }
}

/// The call at a cut: of the copy in the pass that is meant, in which the innermost loop's counter has come to 0.
void CInstrumentedShaderIL::WriteCutCall(CDest& dest, const SCut& cut)
{
    const CShaderDebuggerInstructionIL& call = m_Instructions[cut.pc.m_nPos];
    const CIL_Loop* pLoop = LoopWith(cut.pc.m_nPos);
    const bool bOnePass = pLoop != nullptr && IsCounted(*pLoop, cut.pc);

    if (bOnePass)
    {
        WriteInstruction(dest, IL_OP_IF_LOGICALZ);
        WriteSourceReg(dest, Register(RT_Temp, pLoop->GetCountRegister(), pLoop->GetCountComponent()));
    }

    dest.WriteToken(call.GetToken(0));
    dest.WriteToken(cut.nCopy);

    if (!bOnePass)
    {
        return;
    }

    // The loops of the copy have used the same counters, and the loops here are to end.
    for (; pLoop != nullptr; pLoop = EnclosingLoop(*pLoop))
    {
        const Component component = pLoop->GetCountComponent();
        MovDestSrc(dest, Register(RT_Temp, pLoop->GetCountRegister(), component),
                   Register(RT_LITERAL, GetLiteralRegister0(), component));
    }

    WriteInstruction(dest, IL_OP_ELSE);
    call.WriteInstruction(dest);
    WriteInstruction(dest, IL_OP_ENDIF);
}

/// A function, cut, under another label.
bool CInstrumentedShaderIL::WriteCopy(const SPass& pass, const SCut& cut, unsigned int nLabel)
{
    CSource src(m_pDebugger, pass.src.GetStream(), pass.src.GetTokenCount());
    const auto itFunction = m_FunctionInstruction.find(FunctionOf(cut.pc.m_nPos));

    if (!SD_Assert(GetHost(), itFunction != m_FunctionInstruction.end()) || !FindFunction(src, itFunction->first))
    {
        return false;
    }

    const InstructionNumber nFunc = itFunction->second;
    m_FlowControlStack.clear();
    pass.dest.WriteToken(m_Instructions[nFunc].GetToken(0));
    pass.dest.WriteToken(nLabel);

    SPass copy{src, pass.dest, cut, pass.vTargetRegs};
    copy.pMemory = pass.pMemory;
    copy.nCurrentInstruction = nFunc + 1;
    copy.bCopy = true;
    SItem item;
    bool bPatched = WriteFunctionHead(src, pass.dest, nFunc);

    if (bPatched && cut.pc.m_nPos == nFunc)
    {
        return copy.pMemory != nullptr ? EndMemoryFunction(copy, 0) : EndAtTarget(copy, m_Instructions[nFunc]);
    }

    while (bPatched && !copy.bDone && ReadItem(src, item))
    {
        bPatched = PatchItem(copy, item);
    }

    return bPatched && SD_Assert(GetHost(), copy.bDone);
}

/// Moves a stream behind the func instruction with a label.
bool CInstrumentedShaderIL::FindFunction(CSource& src, unsigned int nLabel)
{
    LineNumber nMacroLines = 0;
    unsigned int token = 0;
    SItem item;

    if (src.PeekToken(token) && ILFormatDecode::GetOp(token) == IL_OP_MACRODEF)
    {
        SkipMacros(src, nMacroLines);
    }

    src.SkipTokens(HEADER_TOKENS);

    while (ReadItem(src, item))
    {
        if (item.GetOpCode() == IL_OP_FUNC && item.pTokens[1] == nLabel)
        {
            return true;
        }
    }

    return false;
}

} // namespace OVK_ShaderDebugger
