#include "instrument/AnalysisPass.h"

#include "core/Log.h"

#include <array>

namespace OVK_ShaderDebugger
{

namespace
{

/// How far back the index of a written register is followed.
constexpr size_t s_nMaxResolveDepth = 100;

} // namespace

CAnalysisPass::CAnalysisPass(CAnalyzedShaderIL& shader, CInputTokenStream<unsigned int>& src, LineNumber nLine)
    : m_Shader(shader), m_Src(src), m_nLine(nLine)
{
}

bool CAnalysisPass::Run()
{
    CShaderDebuggerInstructionIL item(m_Shader.GetDebugger());

    while (!m_bEndEncountered && m_Shader.DecodeItem(m_Src, item))
    {
        if (!TakeItem(item))
        {
            return false;
        }

        ++m_nLine;
    }

    return Require(m_bEndEncountered, "bEndEncountered");
}

CAnalysisPass::Handler CAnalysisPass::FindHandler(ILOpCode op)
{
    typedef std::array<Handler, IL_OP_LAST> Table;
    static const Table s_Table = []
    {
        Table table = {};
        for (const SHandlerRow* pRow = s_DeclarationRows; pRow->handler != nullptr; ++pRow)
        {
            table[pRow->op] = pRow->handler;
        }
        for (const SHandlerRow* pRow = s_FlowControlRows; pRow->handler != nullptr; ++pRow)
        {
            table[pRow->op] = pRow->handler;
        }
        return table;
    }();
    return s_Table[op];
}

bool CAnalysisPass::TakeItem(CShaderDebuggerInstructionIL& item)
{
    switch (item.GetOpCode())
    {
    case IL_OP_COMMENT:
        return true;

    case IL_OP_MACROEND:
        return TakeMacroEnd();

    case IL_OP_MACRODEF:
        return TakeMacroDef(item);

    default:
        return item.IsDCL() ? Dispatch(item) : TakeInstruction(item);
    }
}

bool CAnalysisPass::TakeMacroEnd()
{
    if (!Require(m_bInOutlineMacro, "bInOutlineMacro") || !RequireValid(m_FCStack.empty(), "FCStack.empty()"))
    {
        return false;
    }

    m_bInOutlineMacro = false;

    if (m_Shader.m_nOutlineMacroEnd == g_Inst_NULL)
    {
        m_Shader.m_nOutlineMacroEnd = Position();
    }

    // A macro without an instruction is no place.
    if (m_nMacroStart != Position())
    {
        m_Shader.m_vOutlineMacros.push_back({m_nMacroLabel, m_nMacroStart, Position()});
    }

    return true;
}

bool CAnalysisPass::TakeMacroDef(const CShaderDebuggerInstructionIL& item)
{
    if (!Require(!m_bInFunction, "!bInFunction") || !Require(!m_bInOutlineMacro, "!bInOutlineMacro"))
    {
        return false;
    }

    m_Shader.NoteMacroItem(item);

    if (IsEntered(item))
    {
        m_bInOutlineMacro = true;
        m_nMacroLabel = item.GetOpToken().bits.controls;
        m_nMacroStart = Position();
        m_Shader.m_OutlineMacroLabel = m_bOutlineMacroEncountered ? m_Shader.m_OutlineMacroLabel : m_nMacroLabel;
        m_bOutlineMacroEncountered = true;
        return true;
    }

    // Skips one macro only: the outline may follow.
    CShaderDebuggerInstructionIL inMacro(m_Shader.GetDebugger());

    while (m_Shader.DecodeItem(m_Src, inMacro))
    {
        ++m_nLine;
        m_Shader.NoteMacroItem(inMacro);

        if (inMacro.GetOpCode() == IL_OP_MACROEND)
        {
            break;
        }
    }

    return true;
}

/// The first outline macro, and those after it that are called; the position never comes to the others.
bool CAnalysisPass::IsEntered(const CShaderDebuggerInstructionIL& item)
{
    return m_Shader.IsOutlineMacro(item.GetInstructionModifier(), m_Src) &&
           (!m_bOutlineMacroEncountered || m_Shader.IsMacroCalled(item.GetOpToken().bits.controls));
}

bool CAnalysisPass::TakeInstruction(CShaderDebuggerInstructionIL& item)
{
    m_Shader.m_Instructions.push_back(std::move(item));
    const CShaderDebuggerInstructionIL& instruction = m_Shader.m_Instructions.back();

    if (m_bInOutlineMacro && m_nMacroLabel == m_Shader.m_OutlineMacroLabel)
    {
        InstructionNumber& nFirst = m_Shader.m_FunctionInstruction[m_Shader.m_OutlineMacroLabel];
        nFirst = nFirst == 0 ? Position() : nFirst;
    }

    if (!Dispatch(instruction))
    {
        return false;
    }

    m_Shader.m_FunctionScope.emplace_hint(m_Shader.m_FunctionScope.end(), Position(), m_nCurrentFunction);
    NoteWrittenRegister(instruction);
    m_Shader.NoteTemps(instruction);
    NoteLine();
    ++m_Shader.m_nInstructionCount;
    return true;
}

bool CAnalysisPass::Dispatch(const CShaderDebuggerInstructionIL& item)
{
    if (const Handler handler = FindHandler(item.GetOpCode()))
    {
        return (this->*handler)(item);
    }

    return item.IsDCL() || OnOther(item);
}

void CAnalysisPass::NoteWrittenRegister(const CShaderDebuggerInstructionIL& instruction)
{
    Register reg;

    if (!m_Shader.MakeWrittenRegister(instruction, reg))
    {
        return;
    }

    // The address of a structured store isn't its index alone.
    const bool bStructured = instruction.GetOpCode() == IL_OP_UAV_STRUCT_STORE;

    if (reg.reg.pIndexRegister != nullptr && !bStructured &&
        !m_Shader.ResolveIndexRegisterToConstant(&reg, Position(), s_nMaxResolveDepth))
    {
        SD_Log(m_Shader.GetHost(), logWARNING,
               "Indexed temp could not be resolved on line %u, instruction %u. Performance may be slow.", m_nLine,
               Position());
    }

    AddToOpenBlocks(reg);
    m_Shader.m_RegisterOutput.emplace_hint(m_Shader.m_RegisterOutput.end(), Position(), std::move(reg));
}

void CAnalysisPass::AddToOpenBlocks(const Register& reg)
{
    for (auto it = m_FCStack.rbegin(); it != m_FCStack.rend(); ++it)
    {
        if (CIL_Loop* pLoop = (*it)->AsLoop())
        {
            pLoop->AddRegister(reg);
        }
        else if (CIL_Switch* pSwitch = (*it)->AsSwitch())
        {
            pSwitch->AddRegister(reg);
        }
        else if (CIL_IfElseEndif* pIf = (*it)->AsIfElseEndif())
        {
            if (pIf->IsInElse(Position()))
            {
                pIf->AddRegisterInElse(reg);
            }
            else if (SD_AssertText(m_Shader.GetHost(), pIf->IsInIf(Position()),
                                   "Should be in either if or else branch"))
            {
                pIf->AddRegisterInIf(reg);
            }
        }
    }
}

void CAnalysisPass::NoteLine()
{
    PC_LineNumberMap& map = m_Shader.m_PC_LineNumberMap;
    map.left.emplace_hint(map.left.end(), Position(), m_nLine);
    map.right.emplace_hint(map.right.end(), m_nLine, Position());
}

bool CAnalysisPass::RequireValid(bool bCondition, const char* pszText)
{
    return bCondition || m_Shader.RefuseInvalid(pszText);
}

} // namespace OVK_ShaderDebugger
