#include "instrument/InstrumentedShaderIL.h"
#include "instrument/PatchPass.h"

#include "core/Log.h"

namespace OVK_ShaderDebugger
{

// A memory kernel leaves memory as it is at a position: every work-item executes everything up to and including the
// position, in the order of the stepping, and nothing after it. Text after the target that isn't in a loop around it is
// left out. The earlier passes of a loop need it, but not the target's pass, in which the loop's counter is 0 for all.
// There work-items leave the loop at the target; those that haven't come to it leave at the next place where they join:
// the other part of an if, the end of an if, the next case, the end of an inner block.
// if, the next case, the end of an inner block.

namespace
{

/// Targets that write no memory and send work-items elsewhere: the work-items leave before them.
bool LeavesBefore(ILOpCode op)
{
    switch (op)
    {
    case IL_OP_SWITCH:
    case IL_OP_RET:
    case IL_OP_RET_DYN:
    case IL_OP_RET_LOGICALZ:
    case IL_OP_RET_LOGICALNZ:
    case IL_OP_BREAK:
    case IL_OP_BREAKC:
    case IL_OP_BREAK_LOGICALZ:
    case IL_OP_BREAK_LOGICALNZ:
    case IL_OP_CONTINUE:
    case IL_OP_CONTINUEC:
    case IL_OP_CONTINUE_LOGICALZ:
    case IL_OP_CONTINUE_LOGICALNZ:
        return true;

    default:
        return false;
    }
}

bool Opens(ILOpCode op)
{
    switch (op)
    {
    case IL_OP_IFC:
    case IL_OP_IFNZ:
    case IL_OP_IF_LOGICALZ:
    case IL_OP_IF_LOGICALNZ:
    case IL_OP_WHILE:
    case IL_OP_SWITCH:
        return true;

    default:
        return false;
    }
}

bool Closes(ILOpCode op)
{
    return op == IL_OP_ENDIF || op == IL_OP_ENDLOOP || op == IL_OP_ENDSWITCH;
}

bool IsReturn(ILOpCode op)
{
    return op == IL_OP_RET || op == IL_OP_RET_DYN || op == IL_OP_RET_LOGICALZ || op == IL_OP_RET_LOGICALNZ;
}

/// The instruction that ends a block which another one has opened.
ILOpCode CloserOf(ILOpCode opOpen)
{
    return opOpen == IL_OP_WHILE ? IL_OP_ENDLOOP : opOpen == IL_OP_SWITCH ? IL_OP_ENDSWITCH : IL_OP_ENDIF;
}

constexpr unsigned int s_nFenceThreadsAndLocal = 3;

/// How local memory is copied. Storing a word for each byte is right too, since the copy goes upward.
struct SLocalPiece
{
    unsigned int nBytes;
    ILOpCode op;
    RegisterMask mask;
};

constexpr SLocalPiece s_LocalPieces[] = {
    {16, IL_OP_LDS_LOAD, COMP_All}, {4, IL_OP_LDS_LOAD, COMP_x}, {1, IL_OP_LDS_LOAD_UBYTE, COMP_x}};

const SLocalPiece& PieceOf(unsigned int nSize)
{
    return nSize % 16 == 0 ? s_LocalPieces[0] : nSize % 4 == 0 ? s_LocalPieces[1] : s_LocalPieces[2];
}

} // namespace

bool CInstrumentedShaderIL::CreateMemoryShader(const ProgramCounter& target, const std::vector<SLocalBlock>& vBlocks,
                                               std::vector<char>& vImage)
{
    SMemoryPatch memory{vBlocks};
    return CreateMemoryImage(target, memory, vImage);
}

bool CInstrumentedShaderIL::CreateValueShader(const ProgramCounter& target, const std::vector<Register>& vRegisters,
                                              unsigned int nPlane, std::vector<char>& vImage)
{
    const std::vector<SLocalBlock> vNone;
    SMemoryPatch memory{vNone};
    memory.pRegisters = &vRegisters;
    memory.nPlane = nPlane;
    return CreateMemoryImage(target, memory, vImage);
}

bool CInstrumentedShaderIL::CreateMemoryImage(const ProgramCounter& target, SMemoryPatch& memory,
                                              std::vector<char>& vImage)
{
    CSource src(m_pDebugger, m_vTokens.data(), m_vTokens.size());
    CDest dest(m_pDebugger, m_vTokens.size());

    if (!IsShaderDebuggable(GetMode()) || !PatchMemory(src, dest, target, memory) || dest.HasLostTokens())
    {
        SD_Log(GetHost(), logERROR, "Failed to patch IL");
        return false;
    }

    LogTokens("", dest.GetStream(), dest.GetTokensWritten());
    return MakeImage(dest, vImage);
}

bool CInstrumentedShaderIL::PatchMemoryIL(CSource& src, CDest& dest, const ProgramCounter& target,
                                          const std::vector<SLocalBlock>& vBlocks)
{
    SMemoryPatch memory{vBlocks};
    return PatchMemory(src, dest, target, memory);
}

bool CInstrumentedShaderIL::PatchMemory(CSource& src, CDest& dest, const ProgramCounter& target, SMemoryPatch& memory)
{
    if (target == g_PC_NULL || !IsStopPosition(target))
    {
        return false;
    }

    if (!m_CallStack.empty())
    {
        const InstructionNumber nOutermost = m_CallStack.FromOutside(0).m_nPos;

        if (IsInMain(nOutermost) && !IsRepeatedCall(nOutermost))
        {
            memory.nMainCut = nOutermost;
        }
    }

    return PatchAll(src, dest, target, {}, &memory);
}

/// The main body up to its one call on the way to the target, with the call as it is: the runtime looks for it there.
bool CInstrumentedShaderIL::EndMainAtCall(SPass& pass)
{
    m_Instructions[pass.nCurrentInstruction].WriteInstruction(pass.dest);
    CloseOpenBlocks(pass.dest);
    WriteMemoryEnd(pass);
    SItem item;

    while (ReadItem(pass.src, item))
    {
        const ILOpCode op = item.GetOpCode();

        if (ILShaderUtils::IsInstruction(op))
        {
            ++pass.nCurrentInstruction;
        }

        if (op == IL_OP_ENDMAIN)
        {
            pass.dest.WriteTokens(item.pTokens, item.nLength);
            ++pass.nCurrentInstruction;
            return true;
        }

        WriteDeclarationAfterTarget(pass.dest, item);
    }

    return false;
}

/// Writes the target, and ends its function there. It is memory that counts here, so a store without a destination is
/// written like any other instruction.
bool CInstrumentedShaderIL::EndMemoryAtTarget(SPass& pass, const SItem& item)
{
    const InstructionNumber nTarget = pass.nCurrentInstruction;
    const CShaderDebuggerInstructionIL& instruction = m_Instructions[nTarget];
    const ILOpCode op = instruction.GetOpCode();
    pass.bDone = true;

    if (op == IL_OP_ENDFUNC)
    {
        WriteInstruction(pass.dest, IL_OP_RET_DYN);
        instruction.WriteInstruction(pass.dest);
        return EndFunction(pass);
    }

    if (LeavesBefore(op))
    {
        if (InnermostCountedLoop(pass.cut) != nullptr)
        {
            WriteLeave(pass.dest, pass.cut);
            pass.dest.WriteTokens(item.pTokens, item.nLength);
        }

        return EndMemoryFunction(pass, op == IL_OP_SWITCH ? 1 : 0);
    }

    if (instruction.IsFlowControlOp())
    {
        if (!PatchFlowControlInstruction(pass.src, pass.dest, nTarget, pass.cut.pc, instruction))
        {
            return false;
        }
    }
    else
    {
        pass.dest.WriteTokens(item.pTokens, item.nLength);
    }

    WriteFollowingComment(pass.src, pass.dest);
    WriteLeave(pass.dest, pass.cut);
    return EndMemoryFunction(pass, 0);
}

/// Calls the cut copy of a function, and nothing of what follows.
bool CInstrumentedShaderIL::EndMemoryAtCall(SPass& pass)
{
    WriteCutCall(pass.dest, pass.cut);
    WriteLeave(pass.dest, pass.cut);
    pass.bDone = true;
    return EndMemoryFunction(pass, 0);
}

/// \param nInner blocks that the instruction written last has opened
bool CInstrumentedShaderIL::EndMemoryFunction(SPass& pass, unsigned int nInner)
{
    if (InnermostCountedLoop(pass.cut) != nullptr)
    {
        CopyRestOfLoops(pass, nInner);
    }

    CloseOpenBlocks(pass.dest);

    if (IsInMain(pass.cut.pc.m_nPos))
    {
        WriteMemoryEnd(pass);
    }
    else
    {
        WriteInstruction(pass.dest, IL_OP_RET_DYN);
    }

    return EndFunction(pass);
}

/// The innermost loop that is open in the pass and holds the cut; null for none.
const CIL_Loop* CInstrumentedShaderIL::InnermostCountedLoop(const SCut& cut) const
{
    for (auto it = m_FlowControlStack.rbegin(); it != m_FlowControlStack.rend(); ++it)
    {
        const CIL_Loop* pLoop =
            m_Instructions[*it].GetOpCode() == IL_OP_WHILE ? CIL_FCConstruct::AsLoop(ConstructOf(*it)) : nullptr;

        if (pLoop != nullptr && IsCounted(*pLoop, cut.pc))
        {
            return pLoop;
        }
    }

    return nullptr;
}

/// In the target's pass, leaves the innermost loop, or the switch in it at whose end the work-items leave the loop.
void CInstrumentedShaderIL::WriteLeave(CDest& dest, const SCut& cut)
{
    const CIL_Loop* pLoop = InnermostCountedLoop(cut);

    if (pLoop == nullptr)
    {
        return;
    }

    const Register counter(RT_Temp, pLoop->GetCountRegister(), pLoop->GetCountComponent());
    bool bInSwitch = false;

    for (auto it = m_FlowControlStack.rbegin(); *it != pLoop->GetStart(); ++it)
    {
        bInSwitch = bInSwitch || m_Instructions[*it].GetOpCode() == IL_OP_SWITCH;
    }

    WriteInstruction(dest, bInSwitch ? IL_OP_IF_LOGICALZ : IL_OP_BREAK_LOGICALZ);
    WriteSourceReg(dest, counter);

    if (bInSwitch)
    {
        WriteInstruction(dest, IL_OP_BREAK);
        WriteInstruction(dest, IL_OP_ENDIF);
    }
}

/// Copies through the end of the outermost counted loop.
void CInstrumentedShaderIL::CopyRestOfLoops(SPass& pass, unsigned int nInner)
{
    const bool bInMain = IsInMain(pass.cut.pc.m_nPos);
    SItem item;

    while (InnermostCountedLoop(pass.cut) != nullptr && ReadItem(pass.src, item))
    {
        const ILOpCode op = item.GetOpCode();

        if (bInMain && IsReturn(op))
        {
            WriteWhatIsAskedFor(pass);
        }

        pass.dest.WriteTokens(item.pTokens, item.nLength);

        if (Opens(op))
        {
            ++nInner;
        }
        else if (Closes(op) && nInner != 0)
        {
            --nInner;
        }
        else if (nInner == 0 && (Closes(op) || op == IL_OP_ELSE || op == IL_OP_CASE || op == IL_OP_DEFAULT))
        {
            if (Closes(op))
            {
                m_FlowControlStack.pop_back();
            }

            WriteLeave(pass.dest, pass.cut);
        }
    }
}

void CInstrumentedShaderIL::CloseOpenBlocks(CDest& dest)
{
    while (!m_FlowControlStack.empty())
    {
        WriteInstruction(dest, CloserOf(PopFlowControlInstruction().GetOpCode()));
    }
}

/// The end of the main body, to which all work-items come that haven't returned from it.
void CInstrumentedShaderIL::WriteMemoryEnd(SPass& pass)
{
    if (!pass.pMemory->vBlocks.empty() && !pass.pMemory->bReturned)
    {
        WriteInstruction(pass.dest, IL_OP_FENCE, s_nFenceThreadsAndLocal);
    }

    WriteWhatIsAskedFor(pass);
    WriteInstruction(pass.dest, IL_OP_RET_DYN);
}

/// Stores what is wanted besides memory, for the work-items that end here.
void CInstrumentedShaderIL::WriteWhatIsAskedFor(SPass& pass)
{
    pass.pMemory->pRegisters != nullptr ? WriteValues(pass) : WriteLocalMemory(pass);
}

/// Stores registers as they were at the position: a work-item at the main body's end, or at a return from it, has
/// executed nothing since, or never came to the position. In the coordinate temp, w is the offset in the buffer.
void CInstrumentedShaderIL::WriteValues(SPass& pass)
{
    CDest& dest = pass.dest;
    const size_t nUsed = m_CopyLiterals.size();

    if (!SD_AssertText(GetHost(), nUsed < m_qUnusedLiteralRegs.size(), "!qUnusedLiteralRegs.empty()"))
    {
        return;
    }

    const Register offset(RT_Temp, GetGIDTempRegister(), COMP_w);
    WriteElementIndex(dest);

    for (unsigned int n = 0; n < 2; ++n)
    {
        WriteInstruction(dest, IL_OP_I_SHL);
        WriteDestReg(dest, offset);
        WriteSourceReg(dest, offset);
        WriteSourceReg(dest, Register(RT_LITERAL, GetLiteralRegister2(), COMP_x));
    }

    for (const Register& reg : *pass.pMemory->pRegisters)
    {
        auto itLiteral = m_qUnusedLiteralRegs.cbegin() + static_cast<ptrdiff_t>(nUsed);
        WriteCaptureOf(dest, reg, itLiteral);
        WriteToResults(dest, COMP_All, offset);
        WriteLiteralDeclaration(dest, m_qUnusedLiteralRegs[nUsed], pass.pMemory->nPlane);
        IAddDestSrcSrc(dest, offset, offset, Register(RT_LITERAL, m_qUnusedLiteralRegs[nUsed], COMP_x));
    }
}

/// In the group that the selector names: a 1 into the first element of the results buffer, and all blocks of local
/// memory to their places in it.
void CInstrumentedShaderIL::WriteLocalMemory(SPass& pass)
{
    if (pass.pMemory->vBlocks.empty())
    {
        return;
    }

    CDest& dest = pass.dest;
    const Register flag(RT_Temp, GetExecMaskTempRegister(), COMP_x);
    pass.pMemory->bReturned = true;

    WriteInstruction(dest, IL_OP_I_EQ);
    WriteDestReg(dest, flag);
    WriteSourceReg(dest, IL_REGTYPE_THREAD_GROUP_ID_FLAT, 0, COMP_x);
    WriteSourceReg(dest, Register(RT_CONST_BUFF, s_nArgumentBuffer, COMP_x, GetRegisterSelectorConstantBufferIndex()));
    WriteInstruction(dest, IL_OP_IF_LOGICALNZ);
    WriteSourceReg(dest, flag);
    MovDestSrc(dest, Register(RT_Temp, GetOutputTempRegister(), COMP_All),
               Register(RT_LITERAL, GetLiteralRegister1(), COMP_All));
    WriteToResults(dest, COMP_All, Register(RT_LITERAL, GetLiteralRegister0(), COMP_x));

    for (const SLocalBlock& block : pass.pMemory->vBlocks)
    {
        WriteLocalBlock(pass, block);
    }

    WriteInstruction(dest, IL_OP_ENDIF);
}

/// Stores components of the output temp at an offset in the results buffer.
void CInstrumentedShaderIL::WriteToResults(CDest& dest, RegisterMask mask, const Register& offset)
{
    const RegisterMask addressMask = m_b64BitAddressSpace ? COMP_xy : COMP_x;
    const Register address(RT_Temp, GetOutputAddressTempRegister(), addressMask);
    const Register base(RT_CONST_BUFF, s_nArgumentBuffer, addressMask, GetOutputConstantBufferIndex());

    if (m_b64BitAddressSpace)
    {
        WriteInstruction(dest, IL_OP_I64_ADD);
        WriteDestReg(dest, address);
        WriteSourceReg(dest, base);
        WriteSourceReg(dest, offset, EXTD_ZeroFill);
    }
    else
    {
        IAddDestSrcSrc(dest, address, base, offset);
    }

    UavRawStore(dest, GetResultsUAVNum(), Register(RT_GENERIC_MEM, 0, mask), address,
                Register(RT_Temp, GetOutputTempRegister(), mask), IL_UAV_SC_DECIDE);
}

/// Copies a block in pieces that never pass its end. In the coordinate temp, x counts the bytes, y is the address in
/// local memory and z the offset in the buffer.
void CInstrumentedShaderIL::WriteLocalBlock(SPass& pass, const SLocalBlock& block)
{
    CDest& dest = pass.dest;
    const size_t nUsed = m_CopyLiterals.size();

    if (!SD_AssertText(GetHost(), nUsed < m_qUnusedLiteralRegs.size(), "!qUnusedLiteralRegs.empty()"))
    {
        return;
    }

    const SLocalPiece& piece = PieceOf(block.nSize);
    const auto counter = [this](RegisterMask mask) { return Register(RT_Temp, GetGIDTempRegister(), mask); };
    const auto literal = [nLiteral = m_qUnusedLiteralRegs[nUsed]](RegisterMask mask)
    { return Register(RT_LITERAL, nLiteral, mask); };
    const Register done(RT_Temp, GetExecMaskTempRegister(), COMP_y);

    WriteInstruction(dest, IL_DCL_LITERAL);
    WriteSourceReg(dest, literal(COMP_All));
    WriteImmediate32_4(dest, block.nSize, block.nOffset, piece.nBytes, 0);
    WriteZero(dest, GetGIDTempRegister());

    if (block.bArgument)
    {
        MovDestSrc(dest, counter(COMP_y), Register(RT_CONST_BUFF, s_nArgumentBuffer, COMP_x, block.nElement));
    }

    MovDestSrc(dest, counter(COMP_z), literal(COMP_y));
    WriteInstruction(dest, IL_OP_WHILE);
    WriteInstruction(dest, IL_OP_U_GE);
    WriteDestReg(dest, done);
    WriteSourceReg(dest, counter(COMP_x));
    WriteSourceReg(dest, literal(COMP_x));
    WriteInstruction(dest, IL_OP_BREAK_LOGICALNZ);
    WriteSourceReg(dest, done);
    WriteInstruction(dest, piece.op, block.nId);
    WriteDestReg(dest, Register(RT_Temp, GetOutputTempRegister(), piece.mask));
    WriteSourceReg(dest, counter(COMP_y));
    WriteToResults(dest, piece.mask, counter(COMP_z));
    IAddDestSrcSrc(dest, counter(COMP_xyz), counter(COMP_xyz), literal(COMP_z));
    WriteInstruction(dest, IL_OP_ENDLOOP);
}

} // namespace OVK_ShaderDebugger
