#include "instrument/InstrumentedShaderIL.h"
#include "instrument/PatchPass.h"

#include "core/Log.h"

namespace OVK_ShaderDebugger
{

// A called function is cut at the target in one of its calls only: the call stack tells in which. That call goes to a
// copy of the function, which is cut; all others go to the function as the kernel wrote it. The calling function is
// itself cut after the call. Otherwise it would go on with what the cut function has left, and store it. An outline
// macro is such a function, too.

namespace
{

/// The label of a macro has 14 bits.
constexpr unsigned int s_nMaxMacroLabel = 0x3FFF;

} // namespace

/// Whether the function that an instruction calls may be called again, by this instruction or by another one.
bool CInstrumentedShaderIL::IsRepeatedCall(InstructionNumber nCall) const
{
    if (LoopWith(nCall) != nullptr)
    {
        return true;
    }

    if (m_CallsOf.empty())
    {
        CountCalls();
    }

    const std::optional<InstructionNumber> nCallee = FindCallee(nCall);
    return !nCallee || m_CallsOf[*nCallee] > 1;
}

void CInstrumentedShaderIL::CountCalls() const
{
    for (InstructionNumber n = 0; n < m_Instructions.size(); ++n)
    {
        if (const std::optional<InstructionNumber> nCallee = FindCallee(n))
        {
            ++m_CallsOf[*nCallee];
        }
    }
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
/// \return nothing if there is no label left for a copy
std::vector<CInstrumentedShaderIL::SCut> CInstrumentedShaderIL::FindCuts(const ProgramCounter& target) const
{
    std::vector<SCut> vCuts;
    unsigned int nFunction = m_FunctionInstruction.empty() ? 0 : m_FunctionInstruction.rbegin()->first;
    unsigned int nMacro = 0;

    const std::vector<ProgramCounter> vInnermostFirst(m_CallStack.begin(), m_CallStack.end());

    for (auto it = vInnermostFirst.rbegin(); it != vInnermostFirst.rend(); ++it)
    {
        if (IsInMain(it->m_nPos) && !IsRepeatedCall(it->m_nPos))
        {
            continue;
        }

        const bool bMacro = m_Instructions[it->m_nPos].GetOpCode() == IL_OP_MACROCALL;
        unsigned int& nLabel = bMacro ? nMacro : nFunction;

        do
        {
            ++nLabel;
        } while (nLabel == 0 || m_FunctionInstruction.count(nLabel) != 0 ||
                 (bMacro && m_MacroLabels.count(nLabel) != 0));

        if (!SD_AssertText(GetHost(), !bMacro || nLabel <= s_nMaxMacroLabel, "nLabel <= s_nMaxMacroLabel"))
        {
            return {};
        }

        vCuts.push_back({*it, nLabel});
    }

    vCuts.push_back({target, 0});
    return vCuts;
}

/// An instruction that calls a function or macro, with another label.
void CInstrumentedShaderIL::WriteCallOf(CDest& dest, const CShaderDebuggerInstructionIL& call, unsigned int nLabel)
{
    const unsigned int nLast = call.GetLength() - 1;
    const bool bMacro = call.GetOpCode() == IL_OP_MACROCALL;
    dest.WriteToken(bMacro ? WithLabel(call.GetToken(0), nLabel) : call.GetToken(0));

    for (unsigned int n = 1; n <= nLast; ++n)
    {
        dest.WriteToken(!bMacro && n == nLast ? nLabel : call.GetToken(n));
    }
}

/// The first word of an mcall or mdef, with another label.
unsigned int CInstrumentedShaderIL::WithLabel(unsigned int token, unsigned int nLabel)
{
    IL_OpCode opToken{token};
    opToken.bits.controls = nLabel;
    return opToken.val;
}

/// Gives the loops in copies literals of their own for their passes: a function and the one that calls it may have
/// loops of the same depth, which share a counter, but not the passes.
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

/// The call at a cut: of the copy in the target's pass, in which the innermost loop's counter has come to 0.
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

    WriteCallOf(dest, call, cut.nCopy);

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

/// A function or macro, cut, under another label.
bool CInstrumentedShaderIL::WriteCopy(const SPass& pass, const SCut& cut, unsigned int nLabel)
{
    CSource src(m_pDebugger, pass.src.GetStream(), pass.src.GetTokenCount());
    const InstructionNumber nFunc = StartOfBody(cut.pc.m_nPos);
    const SOutlineMacro* pMacro = MacroAround(nFunc);
    SItem item;

    if (!SD_Assert(GetHost(), pMacro != nullptr || m_Instructions[nFunc].GetOpCode() == IL_OP_FUNC) ||
        !FindBody(src, pMacro, m_Instructions[nFunc], item))
    {
        return false;
    }

    m_FlowControlStack.clear();

    if (pMacro != nullptr)
    {
        pass.dest.WriteToken(WithLabel(item.pTokens[0], nLabel));
        pass.dest.WriteTokens(item.pTokens + 1, item.nLength - 1);
    }
    else
    {
        pass.dest.WriteToken(item.pTokens[0]);
        pass.dest.WriteToken(nLabel);
    }

    SPass copy{src, pass.dest, cut, pass.vTargetRegs};
    copy.pMemory = pass.pMemory;
    copy.nCurrentInstruction = pMacro != nullptr ? nFunc : nFunc + 1;
    copy.bCopy = true;
    bool bPatched = true;

    if (pMacro != nullptr)
    {
        WriteFollowingComment(src, pass.dest);
    }
    else
    {
        bPatched = WriteFunctionHead(src, pass.dest, nFunc);
    }

    WriteLiteralsInForce(pass.dest, nFunc);

    if (bPatched && pMacro == nullptr && cut.pc.m_nPos == nFunc)
    {
        return copy.pMemory != nullptr ? EndMemoryFunction(copy, 0) : EndAtTarget(copy, m_Instructions[nFunc]);
    }

    while (bPatched && !copy.bDone && ReadItem(src, item))
    {
        bPatched = PatchItem(copy, item);
    }

    return bPatched && SD_Assert(GetHost(), copy.bDone);
}

/// Moves a stream after the item that begins a macro, or else the function of a func instruction. The first search
/// notes where all of them begin: a target in many calls has a copy of each function on the way.
bool CInstrumentedShaderIL::FindBody(CSource& src, const SOutlineMacro* pMacro,
                                     const CShaderDebuggerInstructionIL& func, SItem& item)
{
    if (m_BodyStarts.empty())
    {
        CSource all(m_pDebugger, src.GetStream(), src.GetTokenCount());
        SkipHeader(all);

        for (size_t nStart = all.GetTokensRead(); ReadItem(all, item); nStart = all.GetTokensRead())
        {
            if (item.GetOpCode() == IL_OP_MACRODEF)
            {
                m_BodyStarts.insert({{true, IL_OpCode{item.pTokens[0]}.bits.controls}, nStart});
            }
            else if (item.GetOpCode() == IL_OP_FUNC)
            {
                m_BodyStarts.insert({{false, item.pTokens[1]}, nStart});
            }
        }
    }

    const auto it = m_BodyStarts.find(pMacro != nullptr ? std::make_pair(true, pMacro->nLabel)
                                                        : std::make_pair(false, func.GetToken(1)));
    return it != m_BodyStarts.end() && src.SkipTokens(it->second - src.GetTokensRead()) && ReadItem(src, item);
}

/// Declares the literals again that are declared more than once, as they are before a body. Its copy stands after all
/// other text, and would read other values.
void CInstrumentedShaderIL::WriteLiteralsInForce(CDest& dest, InstructionNumber nBody)
{
    for (const auto& literal : m_LiteralDeclarations)
    {
        if (literal.second.size() == 1)
        {
            continue;
        }

        // A read gives the last declaration before it, or the first one if all stand after it.
        const Vec4* pValue = &literal.second.front().value;

        for (const SLiteralDeclaration& declaration : literal.second)
        {
            pValue = declaration.nInst <= nBody ? &declaration.value : pValue;
        }

        WriteInstruction(dest, IL_DCL_LITERAL);
        WriteSourceReg(dest, IL_REGTYPE_LITERAL, literal.first);
        WriteImmediate32_4(dest, pValue->x, pValue->y, pValue->z, pValue->w);
    }
}

} // namespace OVK_ShaderDebugger
