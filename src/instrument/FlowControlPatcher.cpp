#include "instrument/InstrumentedShaderIL.h"

#include "core/Log.h"

namespace OVK_ShaderDebugger
{

namespace
{

/// What a flow control instruction does to the blocks that are open in the pass.
enum EFlowAction : unsigned char
{
    FA_None, ///< no flow control instruction that the pass knows
    FA_Copy,
    FA_Return, ///< as FA_Copy, but written after the stores if it is the target
    FA_Open,   ///< opens an if or a switch
    FA_Else,
    FA_EndIf,
    FA_While,
    FA_EndLoop,
    FA_EndSwitch,
    FA_Func
};

struct SFlowRow
{
    ILOpCode op;
    EFlowAction action;
};

constexpr SFlowRow s_FlowRows[] = {
    {IL_OP_RET, FA_Return},
    {IL_OP_RET_DYN, FA_Return},
    {IL_OP_ENDFUNC, FA_Return},
    {IL_OP_IFC, FA_Open},
    {IL_OP_IFNZ, FA_Open},
    {IL_OP_IF_LOGICALZ, FA_Open},
    {IL_OP_IF_LOGICALNZ, FA_Open},
    {IL_OP_SWITCH, FA_Open},
    {IL_OP_ELSE, FA_Else},
    {IL_OP_ENDIF, FA_EndIf},
    {IL_OP_WHILE, FA_While},
    {IL_OP_ENDLOOP, FA_EndLoop},
    {IL_OP_ENDSWITCH, FA_EndSwitch},
    {IL_OP_FUNC, FA_Func},
    {IL_OP_BREAK, FA_Copy},
    {IL_OP_BREAKC, FA_Copy},
    {IL_OP_BREAK_LOGICALZ, FA_Copy},
    {IL_OP_BREAK_LOGICALNZ, FA_Copy},
    {IL_OP_CONTINUE, FA_Copy},
    {IL_OP_CONTINUEC, FA_Copy},
    {IL_OP_CONTINUE_LOGICALZ, FA_Copy},
    {IL_OP_CONTINUE_LOGICALNZ, FA_Copy},
    {IL_OP_CALL, FA_Copy},
    {IL_OP_CALLNZ, FA_Copy},
    {IL_OP_CALL_LOGICALZ, FA_Copy},
    {IL_OP_CALL_LOGICALNZ, FA_Copy},
    {IL_OP_CASE, FA_Copy},
    {IL_OP_DEFAULT, FA_Copy},
    {IL_OP_RET_LOGICALZ, FA_Copy},
    {IL_OP_RET_LOGICALNZ, FA_Copy},
};

EFlowAction ActionOf(ILOpCode op)
{
    typedef std::array<EFlowAction, IL_OP_LAST> Table;
    static const Table s_Table = []
    {
        Table table = {};
        for (const SFlowRow& row : s_FlowRows)
        {
            table[row.op] = row.action;
        }
        return table;
    }();
    return s_Table[op];
}

bool IsIfFamily(ILOpCode op)
{
    return op == IL_OP_IFC || op == IL_OP_IFNZ || op == IL_OP_IF_LOGICALZ || op == IL_OP_IF_LOGICALNZ;
}

bool IsIfOrElse(ILOpCode op)
{
    return IsIfFamily(op) || op == IL_OP_ELSE;
}

bool IsWhile(ILOpCode op)
{
    return op == IL_OP_WHILE;
}

bool IsSwitch(ILOpCode op)
{
    return op == IL_OP_SWITCH;
}

} // namespace

bool CInstrumentedShaderIL::PatchFlowControlInstruction(CSource& src, CDest& dest,
                                                        InstructionNumber nCurrentInstruction, const ProgramCounter& pc,
                                                        const CShaderDebuggerInstructionIL& instruction)
{
    const EFlowAction action = ActionOf(instruction.GetOpCode());
    const CIL_Loop* pLoop = nullptr;

    switch (action)
    {
    case FA_None:
        return SD_Break(GetHost(), "Unrecognized flow control instruction");

    case FA_Return:
        if (nCurrentInstruction == pc.m_nPos)
        {
            return true;
        }
        break;

    case FA_Open:
        m_FlowControlStack.push_back(nCurrentInstruction);
        break;

    case FA_Else:
        PopThrough(IsIfFamily);
        m_FlowControlStack.push_back(nCurrentInstruction);
        break;

    case FA_EndIf:
        PopThrough(IsIfOrElse);
        break;

    case FA_While:
        m_FlowControlStack.push_back(nCurrentInstruction);
        pLoop = LoopAround(nCurrentInstruction, pc);
        break;

    case FA_EndLoop:
        PopThrough(IsWhile);
        break;

    case FA_EndSwitch:
        PopThrough(IsSwitch);
        break;

    case FA_Copy:
    case FA_Func:
        break;
    }

    if (pLoop != nullptr)
    {
        WriteLoopEntry(dest, *pLoop, pc);
    }

    instruction.WriteInstruction(dest);

    if (pLoop != nullptr)
    {
        WriteLoopHead(dest, *pLoop);
    }

    return action != FA_Func || WriteFunctionHead(src, dest, nCurrentInstruction);
}

/// The comment that names a function, and the declarations that were left out of its body.
bool CInstrumentedShaderIL::WriteFunctionHead(CSource& src, CDest& dest, InstructionNumber nFunc)
{
    const auto it = m_FunctionScope.find(nFunc);

    if (!SD_Assert(GetHost(), it != m_FunctionScope.end()))
    {
        return false;
    }

    WriteFollowingComment(src, dest);
    WriteDecls(dest, it->second);
    return true;
}

/// The loop that a whileloop opens, if it holds the target.
const CIL_Loop* CInstrumentedShaderIL::LoopAround(InstructionNumber nWhile, const ProgramCounter& pc) const
{
    const CIL_Loop* pLoop = CIL_FCConstruct::AsLoop(ConstructOf(nWhile));
    return pLoop != nullptr && pLoop->IsInsideLoop(pc) ? pLoop : nullptr;
}

/// Puts the passes that the loop may run into its counter. A loop inside another that holds the target is held back in
/// the outer one's last pass only, the one whose counter stands at 0: in the passes before it, it runs as the kernel
/// wrote it.
void CInstrumentedShaderIL::WriteLoopEntry(CDest& dest, const CIL_Loop& loop, const ProgramCounter& pc)
{
    if (!IsCounted(loop, pc))
    {
        return;
    }

    const Component component = loop.GetCountComponent();
    const Register counter(RT_Temp, loop.GetCountRegister(), component);
    const auto itCopy = m_CopyLiterals.find(loop.GetStart());
    const unsigned int nLiteral = itCopy != m_CopyLiterals.end() ? itCopy->second : loop.GetLiteralRegister();
    const Register passes(RT_LITERAL, nLiteral, component);
    const CIL_Loop* pOuter = EnclosingLoop(loop);

    if (pOuter == nullptr || !IsCounted(*pOuter, pc))
    {
        MovDestSrc(dest, counter, passes);
        return;
    }

    CMovDestSrcSrcSrc(dest, counter, Register(RT_Temp, pOuter->GetCountRegister(), pOuter->GetCountComponent()),
                      Register(RT_LITERAL, GetLiteralRegisterMinus1(), component), passes);
}

/// Whether the target, which lies in the loop, lies in a certain pass of it.
bool CInstrumentedShaderIL::IsCounted(const CIL_Loop& loop, const ProgramCounter& pc)
{
    LoopState state;
    return pc.GetLoopState(loop.GetStart(), state);
}

const CIL_Loop* CInstrumentedShaderIL::EnclosingLoop(const CIL_FCConstruct& construct)
{
    for (const CIL_FCConstruct* p = construct.GetParent(); p != nullptr; p = p->GetParent())
    {
        if (const CIL_Loop* pLoop = CIL_FCConstruct::AsLoop(p))
        {
            return pLoop;
        }
    }

    return nullptr;
}

/// Leaves the loop when no pass is left, else counts one down, and clears the flag of an earlier pass.
void CInstrumentedShaderIL::WriteLoopHead(CDest& dest, const CIL_Loop& loop)
{
    const Register counter(RT_Temp, loop.GetCountRegister(), loop.GetCountComponent());
    WriteInstruction(dest, IL_OP_BREAK_LOGICALZ);
    WriteSourceReg(dest, counter);
    IAddDestSrcSrc(dest, counter, counter, Register(RT_LITERAL, GetLiteralRegisterMinus1(), loop.GetCountComponent()));
    WriteExecMaskTempReg(dest, false);
}

bool CInstrumentedShaderIL::FinalizeFlowControl(CSource& src, CDest& dest, const SCut& cut)
{
    InstructionNumber nPosition = cut.pc.m_nPos;

    while (InLoop())
    {
        if (PopFlowControlInstruction().GetOpCode() == IL_OP_WHILE)
        {
            CopyRestOfBlock(src, dest, IL_OP_WHILE, IL_OP_ENDLOOP, cut, nPosition);
        }
    }

    while (InSwitch())
    {
        if (PopFlowControlInstruction().GetOpCode() == IL_OP_SWITCH)
        {
            CopyRestOfBlock(src, dest, IL_OP_SWITCH, IL_OP_ENDSWITCH, cut, nPosition);
        }
    }

    while (!m_FlowControlStack.empty())
    {
        if (SD_AssertText(GetHost(), IsIfOrElse(PopFlowControlInstruction().GetOpCode()), "Unhandled flow control op"))
        {
            WriteInstruction(dest, IL_OP_ENDIF);
        }
    }

    return true;
}

/// Copies through the instruction that closes the innermost open block of a kind; blocks inside are copied with it.
void CInstrumentedShaderIL::CopyRestOfBlock(CSource& src, CDest& dest, ILOpCode opOpen, ILOpCode opClose,
                                            const SCut& cut, InstructionNumber& nPosition)
{
    unsigned int nDepth = 1;
    SItem item;

    while (nDepth != 0 && ReadItem(src, item))
    {
        const ILOpCode op = item.GetOpCode();

        if (cut.IsTarget())
        {
            // A work-item that returns here never comes to the stores after the block.
            WriteOutputsOfReturning(dest, item.pTokens, item.nLength, cut.pc.m_nPos);
        }

        dest.WriteTokens(item.pTokens, item.nLength);

        if (op == IL_OP_COMMENT || ILShaderUtils::IsDCL(op))
        {
            continue;
        }

        ++nPosition;
        SD_AssertText(GetHost(), nPosition < m_Instructions.size() && m_Instructions[nPosition].GetOpCode() == op,
                      "m_Instructions[nCurrentInstruction].GetOpCode() == instruction.GetOpCode()");
        nDepth += op == opOpen;
        nDepth -= op == opClose;
    }
}

/// Keeps a declaration in text that is left out: the text after the function may need it.
void CInstrumentedShaderIL::WriteDeclarationAfterTarget(CDest& dest, const SItem& item) const
{
    if (ILShaderUtils::IsDCL(item.GetOpCode()) && !IsReplacedDeclaration(item) && !IsDroppedAfterTarget(item))
    {
        dest.WriteTokens(item.pTokens, item.nLength);
    }
}

bool CInstrumentedShaderIL::FinalizeFunctions(CSource& src, CDest& dest, InstructionNumber nCurrentInstruction)
{
    bool bEndOfFunctionEncountered = m_Instructions[nCurrentInstruction].GetOpCode() == IL_OP_ENDFUNC;
    SItem item;

    while (!bEndOfFunctionEncountered && ReadItem(src, item))
    {
        switch (item.GetOpCode())
        {
        case IL_OP_END:
            return true;

        case IL_OP_ENDMAIN:
        case IL_OP_ENDFUNC:
        case IL_OP_MACROEND:
            dest.WriteTokens(item.pTokens, item.nLength);
            bEndOfFunctionEncountered = true;
            break;

        default:
            WriteDeclarationAfterTarget(dest, item);
            break;
        }
    }

    if (!SD_Assert(GetHost(), bEndOfFunctionEncountered))
    {
        return false;
    }

    // The macros of other kernels aren't analysed. Whatever they hold, they end with their mend.
    bool bInMacro = false;

    while (ReadItem(src, item))
    {
        const ILOpCode op = item.GetOpCode();
        bInMacro = op == IL_OP_MACRODEF || (bInMacro && op != IL_OP_MACROEND);

        if (op == IL_OP_END && !bInMacro)
        {
            return true;
        }

        if (!IsDroppedAfterTarget(item))
        {
            dest.WriteTokens(item.pTokens, item.nLength);
        }
    }

    return SD_Break(GetHost(), "No END encounter before end of shader stream");
}

/// Declarations that the preamble has made already.
bool CInstrumentedShaderIL::IsDroppedAfterTarget(const SItem& item) const
{
    const IL_OpCode opToken{item.pTokens[0]};

    switch (item.GetOpCode())
    {
    case IL_DCL_OUTPUT:
        return true;

    case IL_DCL_CONST_BUFFER:
        // With an inline table there is no operand, and so no buffer of the runtime's.
        return IsCompute() && !opToken.bits.pri_modifier_present && item.nLength > 1 &&
               IL_Src{item.pTokens[1]}.bits.register_num <= 1;

    case IL_OP_DCL_RAW_UAV:
        return IsCompute() && opToken.bits.controls == m_nRawUAVNum;

    default:
        return false;
    }
}

const CShaderDebuggerInstructionIL& CInstrumentedShaderIL::PopFlowControlInstruction()
{
    const CShaderDebuggerInstructionIL& instruction = m_Instructions[m_FlowControlStack.back()];
    m_FlowControlStack.pop_back();
    SD_Log(GetHost(), logVERBOSE, "\t%s\n", instruction.GetOpCodeName().c_str());
    return instruction;
}

void CInstrumentedShaderIL::PopThrough(bool (*pfnIsLast)(ILOpCode))
{
    while (!m_FlowControlStack.empty())
    {
        const ILOpCode op = m_Instructions[m_FlowControlStack.back()].GetOpCode();
        m_FlowControlStack.pop_back();

        if (pfnIsLast(op))
        {
            return;
        }
    }
}

bool CInstrumentedShaderIL::InBlock(ILOpCode op) const
{
    for (const InstructionNumber nInst : m_FlowControlStack)
    {
        if (m_Instructions[nInst].GetOpCode() == op)
        {
            return true;
        }
    }

    return false;
}

} // namespace OVK_ShaderDebugger
