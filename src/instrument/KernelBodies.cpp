#include "instrument/AnalyzedShaderIL.h"

namespace OVK_ShaderDebugger
{

// The bodies of a kernel are its main body, its functions and its outline macros.

const SOutlineMacro* CAnalyzedShaderIL::MacroAround(InstructionNumber nInst) const
{
    for (const SOutlineMacro& macro : m_vOutlineMacros)
    {
        if (macro.nFirst <= nInst && nInst < macro.nEnd)
        {
            return &macro;
        }
    }

    return nullptr;
}

bool CAnalyzedShaderIL::IsInMain(InstructionNumber nInst) const
{
    return FunctionOf(nInst) == 0 && MacroAround(nInst) == nullptr;
}

std::optional<InstructionNumber> CAnalyzedShaderIL::FindFunction(unsigned int nLabel) const
{
    const auto it = m_FunctionInstruction.find(nLabel);
    return it != m_FunctionInstruction.end() ? std::optional<InstructionNumber>(it->second) : std::nullopt;
}

InstructionNumber CAnalyzedShaderIL::StartOfBody(InstructionNumber nInst) const
{
    if (const SOutlineMacro* pMacro = MacroAround(nInst))
    {
        return pMacro->nFirst;
    }

    const auto it = m_FunctionInstruction.find(FunctionOf(nInst));
    return it != m_FunctionInstruction.end() ? it->second : 0;
}

InstructionNumber CAnalyzedShaderIL::EndOfBody(InstructionNumber nInst) const
{
    if (const SOutlineMacro* pMacro = MacroAround(nInst))
    {
        return pMacro->nEnd;
    }

    while (nInst < m_nEndOfShader)
    {
        const ILOpCode op = m_Instructions[nInst].GetOpCode();

        if (op == IL_OP_ENDFUNC || op == IL_OP_ENDMAIN)
        {
            break;
        }

        ++nInst;
    }

    return nInst;
}

std::optional<InstructionNumber> CAnalyzedShaderIL::FindCallee(InstructionNumber nInst) const
{
    return nInst < m_Instructions.size() ? CalleeOf(m_Instructions[nInst]) : std::nullopt;
}

std::optional<InstructionNumber> CAnalyzedShaderIL::CalleeOf(const CShaderDebuggerInstructionIL& instruction) const
{
    switch (instruction.GetOpCode())
    {
    case IL_OP_CALL:
    case IL_OP_CALLNZ:
    case IL_OP_CALL_LOGICALZ:
    case IL_OP_CALL_LOGICALNZ:
    {
        // After the condition, if there is one.
        const auto it = m_FunctionInstruction.find(instruction.GetToken(instruction.GetLength() - 1));
        return it != m_FunctionInstruction.end() ? std::optional(it->second) : std::nullopt;
    }

    case IL_OP_MACROCALL:
        for (const SOutlineMacro& macro : m_vOutlineMacros)
        {
            if (macro.nLabel == instruction.GetOpToken().bits.controls)
            {
                return macro.nFirst;
            }
        }

        return std::nullopt;

    default:
        return std::nullopt;
    }
}

} // namespace OVK_ShaderDebugger
