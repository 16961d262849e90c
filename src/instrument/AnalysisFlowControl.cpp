#include "instrument/AnalysisPass.h"

#include "core/ErrorStrings.h"
#include "core/Log.h"

#include <new>

namespace OVK_ShaderDebugger
{

const CAnalysisPass::SHandlerRow CAnalysisPass::s_FlowControlRows[] = {
    {IL_OP_IFC, &CAnalysisPass::OnIf},
    {IL_OP_IFNZ, &CAnalysisPass::OnIf},
    {IL_OP_IF_LOGICALZ, &CAnalysisPass::OnIf},
    {IL_OP_IF_LOGICALNZ, &CAnalysisPass::OnIf},
    {IL_OP_ELSE, &CAnalysisPass::OnElse},
    {IL_OP_ENDIF, &CAnalysisPass::OnEndIf},
    {IL_OP_WHILE, &CAnalysisPass::OnWhile},
    {IL_OP_ENDLOOP, &CAnalysisPass::OnEndLoop},
    {IL_OP_SWITCH, &CAnalysisPass::OnSwitch},
    {IL_OP_ENDSWITCH, &CAnalysisPass::OnEndSwitch},
    {IL_OP_CASE, &CAnalysisPass::OnCase},
    {IL_OP_DEFAULT, &CAnalysisPass::OnCase},
    {IL_OP_BREAK, &CAnalysisPass::OnBreak},
    {IL_OP_BREAKC, &CAnalysisPass::OnBreak},
    {IL_OP_BREAK_LOGICALZ, &CAnalysisPass::OnBreak},
    {IL_OP_BREAK_LOGICALNZ, &CAnalysisPass::OnBreak},
    {IL_OP_CONTINUE, &CAnalysisPass::OnContinue},
    {IL_OP_CONTINUEC, &CAnalysisPass::OnContinue},
    {IL_OP_CONTINUE_LOGICALZ, &CAnalysisPass::OnContinue},
    {IL_OP_CONTINUE_LOGICALNZ, &CAnalysisPass::OnContinue},
    {IL_OP_END, &CAnalysisPass::OnEnd},
    {IL_OP_ENDMAIN, &CAnalysisPass::OnEndMain},
    {IL_OP_FUNC, &CAnalysisPass::OnFunc},
    {IL_OP_ENDFUNC, &CAnalysisPass::OnEndFunc},
    {IL_OP_RET, &CAnalysisPass::OnReturn},
    {IL_OP_RET_DYN, &CAnalysisPass::OnReturn},
    {IL_OP_RET_LOGICALZ, &CAnalysisPass::OnReturn},
    {IL_OP_RET_LOGICALNZ, &CAnalysisPass::OnReturn},
    {IL_OP_LOOP, &CAnalysisPass::OnUnsupported},
    {IL_OP_CUT, &CAnalysisPass::OnUnsupported},
    {IL_OP_EMIT, &CAnalysisPass::OnUnsupported},
    {IL_OP_EMIT_THEN_CUT, &CAnalysisPass::OnUnsupported},
    {IL_OP_CUT_STREAM, &CAnalysisPass::OnUnsupported},
    {IL_OP_EMIT_STREAM, &CAnalysisPass::OnUnsupported},
    {IL_OP_EMIT_THEN_CUT_STREAM, &CAnalysisPass::OnUnsupported},
    {IL_OP_HS_CP_PHASE, &CAnalysisPass::OnUnsupported},
    {IL_OP_HS_FORK_PHASE, &CAnalysisPass::OnUnsupported},
    {IL_OP_HS_JOIN_PHASE, &CAnalysisPass::OnUnsupported},
    {IL_OP_ENDPHASE, &CAnalysisPass::OnUnsupported},
    {IL_OP_UNKNOWN, nullptr},
};

void CAnalysisPass::SetConstruct(CIL_FCConstruct* pConstruct)
{
    m_Shader.m_FlowControl.emplace_hint(m_Shader.m_FlowControl.end(), Position(), pConstruct);
}

/// Opens a block at the current instruction.
template <typename Construct>
bool CAnalysisPass::Open()
{
    if (!RequireValid(m_FCStack.size() < CAnalyzedShaderIL::MAX_BLOCK_DEPTH, "FCStack.size() < MAX_BLOCK_DEPTH"))
    {
        return false;
    }

    std::unique_ptr<Construct> pConstruct(new (std::nothrow) Construct(Front(), Position()));

    if (pConstruct == nullptr)
    {
        return m_Shader.Refuse(ES_CanNotDebug_OutOfMemory);
    }

    m_FCStack.push_back(pConstruct.get());
    m_Shader.m_vConstructs.push_back(std::move(pConstruct));
    SetConstruct(Front());
    return true;
}

/// Ends the innermost block at the current instruction.
bool CAnalysisPass::Close()
{
    SetConstruct(Front());
    m_FCStack.pop_back();
    return true;
}

bool CAnalysisPass::IsClosed()
{
    SetConstruct(nullptr);
    return RequireValid(m_FCStack.empty(), "FCStack.empty()");
}

bool CAnalysisPass::OnIf(const CShaderDebuggerInstructionIL&)
{
    return Open<CIL_IfElseEndif>();
}

bool CAnalysisPass::OnElse(const CShaderDebuggerInstructionIL&)
{
    CIL_IfElseEndif* pIf = CIL_FCConstruct::AsIfElseEndif(Front());

    if (!Require(!m_FCStack.empty(), "!FCStack.empty()") || !Require(pIf != nullptr, "pIf") ||
        !Require(!pIf->HasElse(), "!pIf->HasElse()"))
    {
        return false;
    }

    pIf->SetElse(Position());
    SetConstruct(pIf);
    return true;
}

bool CAnalysisPass::OnEndIf(const CShaderDebuggerInstructionIL&)
{
    CIL_IfElseEndif* pIf = CIL_FCConstruct::AsIfElseEndif(Front());

    if (!Require(!m_FCStack.empty(), "!FCStack.empty()") || !Require(pIf != nullptr, "pIf"))
    {
        return false;
    }

    pIf->SetEndIf(Position());
    return Close();
}

bool CAnalysisPass::OnWhile(const CShaderDebuggerInstructionIL&)
{
    ++m_nLoopDepth;
    m_nMaxLoopDepth = std::max(m_nMaxLoopDepth, m_nLoopDepth);
    return Open<CIL_Loop>();
}

bool CAnalysisPass::OnEndLoop(const CShaderDebuggerInstructionIL&)
{
    CIL_Loop* pLoop = CIL_FCConstruct::AsLoop(Front());

    if (!Require(!m_FCStack.empty(), "!FCStack.empty()") || !Require(pLoop != nullptr, "pLoop"))
    {
        return false;
    }

    --m_nLoopDepth;
    pLoop->SetEnd(Position());
    return Close();
}

bool CAnalysisPass::OnSwitch(const CShaderDebuggerInstructionIL&)
{
    return Open<CIL_Switch>();
}

bool CAnalysisPass::OnEndSwitch(const CShaderDebuggerInstructionIL&)
{
    CIL_Switch* pSwitch = CIL_FCConstruct::AsSwitch(Front());

    if (!Require(!m_FCStack.empty(), "!FCStack.empty()") || !Require(pSwitch != nullptr, "pSwitch"))
    {
        return false;
    }

    pSwitch->SetEnd(Position());
    return Close();
}

bool CAnalysisPass::OnCase(const CShaderDebuggerInstructionIL&)
{
    CIL_Switch* pSwitch = CIL_FCConstruct::AsSwitch(Front());

    if (!Require(!m_FCStack.empty(), "!FCStack.empty()") || !Require(pSwitch != nullptr, "pSwitch"))
    {
        return false;
    }

    pSwitch->AddCase(Position());
    SetConstruct(pSwitch);
    return true;
}

bool CAnalysisPass::OnBreak(const CShaderDebuggerInstructionIL&)
{
    if (!Require(!m_FCStack.empty(), "!FCStack.empty()"))
    {
        return false;
    }

    CIL_FCConstruct* pLeft = Front();

    while (pLeft != nullptr && pLeft->GetType() == FC_IfElseEndif)
    {
        pLeft = pLeft->GetParent();
    }

    CIL_Switch* pSwitch = CIL_FCConstruct::AsSwitch(pLeft);

    if (pSwitch != nullptr)
    {
        pSwitch->AddBreak(Position());
    }

    SetConstruct(pSwitch != nullptr ? pSwitch : Front());
    return true;
}

bool CAnalysisPass::OnContinue(const CShaderDebuggerInstructionIL&)
{
    SetConstruct(Front());
    return Require(!m_FCStack.empty(), "!FCStack.empty()");
}

bool CAnalysisPass::OnEnd(const CShaderDebuggerInstructionIL&)
{
    m_bEndEncountered = true;
    return IsClosed();
}

bool CAnalysisPass::OnEndMain(const CShaderDebuggerInstructionIL&)
{
    m_bEndMainEncountered = true;
    m_bInFunction = false;
    return IsClosed();
}

bool CAnalysisPass::OnFunc(const CShaderDebuggerInstructionIL& instruction)
{
    if (!RequireValid(!m_bInFunction, "!bInFunction") || !RequireValid(!m_bInOutlineMacro, "!bInOutlineMacro") ||
        !RequireValid(m_bEndMainEncountered, "bEndMainEncountered"))
    {
        return false;
    }

    m_bInFunction = true;
    m_nCurrentFunction = instruction.GetToken(instruction.GetLength() - 1);
    m_Shader.m_FunctionInstruction[m_nCurrentFunction] = Position();
    SetConstruct(Front());
    return true;
}

bool CAnalysisPass::OnEndFunc(const CShaderDebuggerInstructionIL&)
{
    m_bInFunction = false;
    return IsClosed();
}

bool CAnalysisPass::OnReturn(const CShaderDebuggerInstructionIL&)
{
    SetConstruct(Front());
    return RequireValid(m_bInFunction || m_bInOutlineMacro, "bInFunction || bInOutlineMacro");
}

bool CAnalysisPass::OnUnsupported(const CShaderDebuggerInstructionIL& instruction)
{
    std::string strMessage = ES_CanNotDebug_UnsupportedOp;
    return m_Shader.Refuse(strMessage.replace(strMessage.find("%s"), 2, instruction.GetOpCodeName()));
}

bool CAnalysisPass::OnOther(const CShaderDebuggerInstructionIL& instruction)
{
    if (ILShaderUtils::IsReadAtomicOp(instruction.GetOpCode()))
    {
        return OnUnsupported(instruction);
    }

    SetConstruct(Front());

    if (Front() != nullptr && ILShaderUtils::WritesGlobalMemory(instruction.GetOpCode()))
    {
        Front()->SetGlobalStoreFlag();
    }

    return true;
}

} // namespace OVK_ShaderDebugger
