#include "instrument/InstrumentedShaderIL.h"
#include "instrument/PatchPass.h"

#include "core/Log.h"

namespace OVK_ShaderDebugger
{

namespace
{

/// A return or a function's end; it is written after the stores, since nothing after it would run.
bool IsReturnLike(ILOpCode op)
{
    return op == IL_OP_ENDFUNC || op == IL_OP_RET || op == IL_OP_RET_DYN;
}

bool IsConditionalReturn(ILOpCode op)
{
    return op == IL_OP_RET_LOGICALZ || op == IL_OP_RET_LOGICALNZ;
}

/// Jumps that take all: after other jumps those go on for which the condition doesn't hold.
bool IsUnconditional(ILOpCode op)
{
    return op == IL_OP_BREAK || op == IL_OP_CONTINUE || op == IL_OP_RET || op == IL_OP_RET_DYN;
}

unsigned int ControlsOf(unsigned int token)
{
    return IL_OpCode{token}.bits.controls;
}

} // namespace

bool CInstrumentedShaderIL::PatchIL(CSource& src, CDest& dest, ProgramCounter nTargetInstruction,
                                    const std::vector<Register>& vTargetRegs)
{
    if (!SD_Assert(GetHost(), nTargetInstruction != g_PC_NULL || !vTargetRegs.empty()) ||
        !SD_AssertText(GetHost(), IsStopPosition(nTargetInstruction), "IsStopPosition(nTargetInstruction)"))
    {
        return false;
    }

    return PatchAll(src, dest, nTargetInstruction, vTargetRegs, nullptr);
}

bool CInstrumentedShaderIL::PatchAll(CSource& src, CDest& dest, const ProgramCounter& target,
                                     const std::vector<Register>& vTargetRegs, SMemoryPatch* pMemory)
{
    m_FlowControlStack.clear();
    m_CopyLiterals.clear();
    const std::vector<SCut> vCuts = FindCuts(target);

    if (vCuts.empty())
    {
        return false;
    }

    SPass pass{src, dest, vCuts.front(), vTargetRegs};
    pass.pMemory = pMemory;
    pass.pCuts = &vCuts;
    SItem item;
    bool bPatched = PatchHeader(pass);

    while (bPatched && !pass.bDone && ReadItem(src, item))
    {
        bPatched = PatchItem(pass, item);
    }

    for (size_t i = 1; bPatched && i < vCuts.size(); ++i)
    {
        bPatched = WriteCopy(pass, vCuts[i], vCuts[i - 1].nCopy);
    }

    WriteInstruction(dest, IL_OP_END);
    return bPatched && pass.bDone;
}

/// A position of the kernel, or its entry. The ends of the kernel and of its main body are none: a stop there would
/// show nothing that the instruction before doesn't.
bool CInstrumentedShaderIL::IsStopPosition(const ProgramCounter& target) const
{
    if (target == g_PC_NULL)
    {
        return true;
    }

    if (target.m_nPos >= m_Instructions.size())
    {
        return false;
    }

    const ILOpCode op = m_Instructions[target.m_nPos].GetOpCode();
    return op != IL_OP_END && op != IL_OP_ENDMAIN;
}

bool CInstrumentedShaderIL::PatchHeader(SPass& pass)
{
    unsigned int token = 0;

    // The macros before the header; the header itself is no item.
    CopyMacros(pass.src, pass.dest);

    for (size_t i = 0; i < HEADER_TOKENS; ++i)
    {
        if (!pass.src.ReadToken(token))
        {
            return SD_Break(GetHost(), "src.ReadToken(token)");
        }

        pass.dest.WriteToken(token);
    }

    return true;
}

bool CInstrumentedShaderIL::PatchItem(SPass& pass, const SItem& item)
{
    switch (item.GetOpCode())
    {
    case IL_OP_COMMENT:
        pass.dest.WriteTokens(item.pTokens, item.nLength);
        return true;

    case IL_OP_MACRODEF:
        return PatchMacroDef(pass, item);

    case IL_OP_MACROEND:
        pass.dest.WriteTokens(item.pTokens, item.nLength);
        pass.bInOutlineMacro = false;
        return true;

    default:
        break;
    }

    if (!ILShaderUtils::IsDCL(item.GetOpCode()))
    {
        return PatchInstruction(pass, item);
    }

    if (!IsReplacedDeclaration(item))
    {
        pass.dest.WriteTokens(item.pTokens, item.nLength);
    }

    return true;
}

/// Whether the preamble, or the start of each function, has declarations of its own in place of this one.
bool CInstrumentedShaderIL::IsReplacedDeclaration(const SItem& item) const
{
    const unsigned int nControls = ControlsOf(item.pTokens[0]);

    switch (item.GetOpCode())
    {
    case IL_DCL_OUTPUT:
        return true;

    case IL_DCL_CONST_BUFFER:
    case IL_DCL_RESOURCE:
    case IL_OP_DCL_UAV:
    case IL_OP_DCL_TYPELESS_UAV:
    case IL_OP_DCL_TYPED_UAV:
    case IL_OP_DCL_RAW_UAV: // the analysis accepts only one
        return IsCompute();

    case IL_OP_DCL_ARENA_UAV:
        return IsCompute() && nControls == ARENA_UAV;

    default:
        return false;
    }
}

bool CInstrumentedShaderIL::PatchMacroDef(SPass& pass, const SItem& item)
{
    if (!SD_AssertText(GetHost(), !pass.bInOutlineMacro, "!bInOutlineMacro"))
    {
        return false;
    }

    pass.dest.WriteTokens(item.pTokens, item.nLength);

    const SOutlineMacro* pMacro = MacroAround(pass.nCurrentInstruction);

    if (pMacro == nullptr || pMacro->nFirst != pass.nCurrentInstruction ||
        ControlsOf(item.pTokens[0]) != pMacro->nLabel)
    {
        SItem inMacro;

        do
        {
            if (!ReadItem(pass.src, inMacro))
            {
                return true;
            }

            pass.dest.WriteTokens(inMacro.pTokens, inMacro.nLength);
        } while (inMacro.GetOpCode() != IL_OP_MACROEND);

        return true;
    }

    pass.bInOutlineMacro = true;
    WriteFollowingComment(pass.src, pass.dest);

    // Elsewhere a call of the macro must leave the counters of the caller's loops and the mask alone.
    if (MacroAround(pass.cut.pc.m_nPos) == pMacro)
    {
        WriteMacroPreamble(pass.dest, pass.cut.pc);
    }

    return true;
}

/// Whether an instruction is copied without further questions, as most of a kernel is.
bool CInstrumentedShaderIL::IsKept(const SPass& pass, const CShaderDebuggerInstructionIL& instruction) const
{
    const InstructionNumber nInst = pass.nCurrentInstruction;
    return nInst != pass.cut.pc.m_nPos && nInst != 0 && pass.pMemory == nullptr && m_Leaving.empty() &&
           !instruction.IsFlowControlOp() && instruction.GetDestRegType() != IL_REGTYPE_OUTPUT;
}

bool CInstrumentedShaderIL::PatchInstruction(SPass& pass, const SItem& item)
{
    const InstructionNumber nCurrentInstruction = pass.nCurrentInstruction;
    const ProgramCounter& pc = pass.cut.pc;

    if (!SD_AssertText(GetHost(),
                       nCurrentInstruction < m_Instructions.size() &&
                           m_Instructions[nCurrentInstruction].GetOpCode() == item.GetOpCode(),
                       "m_Instructions[nCurrentInstruction].GetOpCode() == instruction.GetOpCode()"))
    {
        return false;
    }

    const CShaderDebuggerInstructionIL& instruction = m_Instructions[nCurrentInstruction];

    if (IsKept(pass, instruction))
    {
        pass.dest.WriteTokens(item.pTokens, item.nLength);
        ++pass.nCurrentInstruction;
        return true;
    }

    if (nCurrentInstruction == 0 && pc == g_PC_NULL)
    {
        return EndAtEntry(pass);
    }

    if (nCurrentInstruction == 0)
    {
        InitResourcesAndRegisters(pass.dest, true, pc);
        WriteCopyLiterals(pass.dest, *pass.pCuts);
    }

    const bool bAtTarget = nCurrentInstruction == pc.m_nPos;

    if (pass.pMemory != nullptr && nCurrentInstruction == pass.pMemory->nMainCut)
    {
        return EndMainAtCall(pass);
    }

    if (bAtTarget && !pass.cut.IsTarget())
    {
        return pass.pMemory != nullptr ? EndMemoryAtCall(pass) : EndAtCall(pass);
    }

    if (pass.pMemory != nullptr && bAtTarget)
    {
        return EndMemoryAtTarget(pass, item);
    }

    if (pass.pMemory != nullptr && IsInMain(nCurrentInstruction) &&
        (IsReturnLike(instruction.GetOpCode()) || IsConditionalReturn(instruction.GetOpCode())))
    {
        WriteWhatIsAskedFor(pass);
    }

    const bool bLeaving = pass.cut.IsTarget() && m_Leaving.count(nCurrentInstruction) != 0;

    if (bLeaving)
    {
        WriteCaptureOfLeavers(pass, instruction);
    }

    if (bAtTarget && instruction.GetOpCode() == IL_OP_SWITCH)
    {
        // Before the switch all work-items that come to it are together.
        WriteSelectorCapture(pass.dest, instruction);
        WriteRegsToOutputTempReg(pass.dest, pass.vTargetRegs);
        WriteExecMaskTempReg(pass.dest, true);
    }

    if (instruction.IsFlowControlOp())
    {
        if (!SD_AssertText(
                GetHost(), PatchFlowControlInstruction(pass.src, pass.dest, nCurrentInstruction, pc, instruction),
                "PatchFlowControlInstruction( src, dest, nCurrentInstruction, nTargetInstruction, instruction )"))
        {
            return false;
        }
    }
    else if (bAtTarget)
    {
        PatchTarget(pass, instruction);
    }
    else if (instruction.GetDestRegType() != IL_REGTYPE_OUTPUT)
    {
        pass.dest.WriteTokens(item.pTokens, item.nLength);
    }

    if (bLeaving && !IsUnconditional(instruction.GetOpCode()))
    {
        WriteExecMaskTempReg(pass.dest, false);
    }

    ++pass.nCurrentInstruction;
    return !bAtTarget || EndAtTarget(pass, instruction);
}

/// Writes the target if it takes effect before the registers are read. A store without a destination doesn't, but in a
/// loop the earlier passes need it.
void CInstrumentedShaderIL::PatchTarget(SPass& pass, const CShaderDebuggerInstructionIL& instruction)
{
    if (instruction.GetDestRegType() == IL_REGTYPE_OUTPUT)
    {
        SD_Log(GetHost(), logWARNING, "This won't work if doing a continue. Needs fixing in future.");
        return;
    }

    if (instruction.GetOpCode() == IL_OP_MACROCALL || IsPrivateUAVWrite(instruction) || instruction.HasDestReg() ||
        LoopWith(pass.cut.pc.m_nPos) != nullptr)
    {
        instruction.WriteInstruction(pass.dest);
    }
}

/// Copies a switch's selector into the output temp, in place of a register: it tells which label each work-item goes
/// to.
void CInstrumentedShaderIL::WriteSelectorCapture(CDest& dest, const CShaderDebuggerInstructionIL& instruction)
{
    WriteInstruction(dest, IL_OP_MOV);
    WriteDestReg(dest, Register(RT_Temp, GetOutputTempRegister(), COMP_All));

    for (unsigned int n = 1; n < instruction.GetLength(); ++n)
    {
        dest.WriteToken(instruction.GetToken(n));
    }
}

/// The capture before a jump, with the stores if it is a return: who returns there never comes to those at the end.
void CInstrumentedShaderIL::WriteCaptureOfLeavers(const SPass& pass, const CShaderDebuggerInstructionIL& instruction)
{
    WriteRegsToOutputTempReg(pass.dest, pass.vTargetRegs);
    MovDestSrc(pass.dest, Register(RT_Temp, GetExecMaskTempRegister(), COMP_All),
               Register(RT_LITERAL, GetLiteralRegister2(), COMP_All));
    WriteOutputsOfReturning(pass.dest, instruction.GetTokens(), instruction.GetLength(), pass.cut.pc.m_nPos);
}

/// The stores of the work-items that a return takes; nothing before any other instruction.
void CInstrumentedShaderIL::WriteOutputsOfReturning(CDest& dest, const unsigned int* pTokens, unsigned int nLength,
                                                    InstructionNumber nTarget)
{
    const ILOpCode op = ILFormatDecode::GetOp(pTokens[0]);

    if (op == IL_OP_RET || op == IL_OP_RET_DYN)
    {
        WriteOutputs(dest, nTarget);
    }
    else if (IsConditionalReturn(op))
    {
        // The work-items that stay still need their flag for the stores at the end.
        IL_OpCode opToken{pTokens[0]};
        opToken.bits.code = op == IL_OP_RET_LOGICALZ ? IL_OP_IF_LOGICALZ : IL_OP_IF_LOGICALNZ;
        dest.WriteToken(opToken.val);
        dest.WriteTokens(pTokens + 1, nLength - 1);
        WriteOutputs(dest, nTarget);
        WriteInstruction(dest, IL_OP_ENDIF);
    }
}

bool CInstrumentedShaderIL::EndAtEntry(SPass& pass)
{
    CopyInputRegs(pass.dest, pass.vTargetRegs);
    WriteExecMaskTempReg(pass.dest, true);
    WriteOutputs(pass.dest, 0);
    WriteInstruction(pass.dest, IL_OP_RET_DYN);
    pass.bDone = true;
    return true;
}

bool CInstrumentedShaderIL::EndAtTarget(SPass& pass, const CShaderDebuggerInstructionIL& instruction)
{
    const InstructionNumber nTarget = pass.cut.pc.m_nPos;
    const bool bReturnLike = IsReturnLike(instruction.GetOpCode());
    pass.bDone = true;

    if (!bReturnLike)
    {
        WriteFollowingComment(pass.src, pass.dest);
    }

    if (instruction.GetOpCode() != IL_OP_SWITCH)
    {
        WriteRegsToOutputTempReg(pass.dest, pass.vTargetRegs);
        WriteExecMaskTempReg(pass.dest, true);
    }

    if (bReturnLike && LoopWith(nTarget) != nullptr)
    {
        // A work-item that returns in an earlier pass mustn't come here again.
        WriteOutputs(pass.dest, nTarget);
        instruction.WriteInstruction(pass.dest);
    }

    FinalizeFlowControl(pass.src, pass.dest, pass.cut);
    WriteOutputs(pass.dest, nTarget);
    WriteInstruction(pass.dest, IL_OP_RET_DYN);

    if (bReturnLike)
    {
        instruction.WriteInstruction(pass.dest);
        WriteFollowingComment(pass.src, pass.dest);
    }

    return EndFunction(pass);
}

/// Calls the cut copy of a function, and leaves out what follows.
bool CInstrumentedShaderIL::EndAtCall(SPass& pass)
{
    WriteCutCall(pass.dest, pass.cut);
    FinalizeFlowControl(pass.src, pass.dest, pass.cut);
    WriteInstruction(pass.dest, IL_OP_RET_DYN);
    pass.bDone = true;
    return EndFunction(pass);
}

/// Ends the function that is cut, and copies the others after it if they aren't there yet.
bool CInstrumentedShaderIL::EndFunction(SPass& pass)
{
    const InstructionNumber nCut = pass.cut.pc.m_nPos;

    if (!pass.bCopy)
    {
        return FinalizeFunctions(pass.src, pass.dest, nCut);
    }

    if (m_Instructions[nCut].GetOpCode() != IL_OP_ENDFUNC)
    {
        WriteInstruction(pass.dest, MacroAround(nCut) != nullptr ? IL_OP_MACROEND : IL_OP_ENDFUNC);
    }

    return true;
}

void CInstrumentedShaderIL::WriteFollowingComment(CSource& src, CDest& dest) const
{
    unsigned int token = 0;
    SItem item;

    if (src.PeekToken(token) && ILFormatDecode::GetOp(token) == IL_OP_COMMENT && ReadItem(src, item))
    {
        dest.WriteTokens(item.pTokens, item.nLength);
    }
}

bool CInstrumentedShaderIL::CopyMacros(CSource& src, CDest& dest)
{
    SItem item;
    unsigned int nNext = 0;

    do
    {
        while (ReadItem(src, item))
        {
            dest.WriteTokens(item.pTokens, item.nLength);

            if (item.GetOpCode() == IL_OP_MACROEND)
            {
                break;
            }
        }
    } while (src.PeekToken(nNext) && ILFormatDecode::GetOp(nNext) == IL_OP_MACRODEF);

    return true;
}

} // namespace OVK_ShaderDebugger
