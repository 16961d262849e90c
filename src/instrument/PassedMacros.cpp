#include "instrument/AnalyzedShaderIL.h"

#include <algorithm>

namespace OVK_ShaderDebugger
{

// A macro that isn't entered is one instruction, its call, which writes whatever the macro writes, and the functions
// and macros that it calls in turn. They share the registers of the kernel.

namespace
{

/// Whether a macro's writes to a register reach its caller: its arguments are its own, and memory is no register.
bool IsShared(const Register& reg)
{
    return reg.reg.type == RT_Temp || reg.reg.type == RT_IndexableTemp || reg.reg.type == RT_PrivateUAVAccess;
}

void AddShared(const Register& reg, std::vector<Register>& vRegisters)
{
    if (IsShared(reg) && std::find(vRegisters.begin(), vRegisters.end(), reg) == vRegisters.end())
    {
        vRegisters.push_back(reg);
    }
}

} // namespace

/// An instruction of a macro that isn't entered, from the analysis.
void CAnalyzedShaderIL::NotePassedInstruction(const CShaderDebuggerInstructionIL& instruction)
{
    const ILOpCode op = instruction.GetOpCode();

    if (instruction.HasDestReg() || op == IL_OP_MACROCALL || op == IL_OP_CALL || ILShaderUtils::IsGlobalStore(op) ||
        op == IL_OP_CALLNZ || op == IL_OP_CALL_LOGICALZ || op == IL_OP_CALL_LOGICALNZ)
    {
        m_PassedMacros[m_nNotedMacro].push_back(instruction);
    }
}

/// Called once all of the kernel is known.
void CAnalyzedShaderIL::FindRegistersOfPassedMacros()
{
    for (InstructionNumber n = 0; n < m_Instructions.size(); ++n)
    {
        const CShaderDebuggerInstructionIL& instruction = m_Instructions[n];
        const unsigned int nLabel = instruction.GetOpToken().bits.controls;

        if (instruction.GetOpCode() == IL_OP_MACROCALL && !FindCallee(n) && m_PassedRegisters.count(nLabel) == 0)
        {
            m_PassedRegisters[nLabel] = CollectPassedRegisters(instruction);
        }
    }
}

/// What a call writes besides its own destination.
std::vector<Register> CAnalyzedShaderIL::CollectPassedRegisters(const CShaderDebuggerInstructionIL& call) const
{
    std::vector<Register> vRegisters;
    std::vector<const CShaderDebuggerInstructionIL*> vCalls = {&call};
    std::set<std::pair<bool, unsigned int>> done; // labels of macros and of functions

    while (!vCalls.empty())
    {
        const CShaderDebuggerInstructionIL& next = *vCalls.back();
        vCalls.pop_back();
        const bool bMacro = next.GetOpCode() == IL_OP_MACROCALL;
        const unsigned int nLabel = bMacro ? next.GetOpToken().bits.controls : next.GetToken(next.GetLength() - 1);
        const std::optional<InstructionNumber> nCallee = CalleeOf(next);

        if (!done.insert({bMacro, nLabel}).second)
        {
            continue;
        }

        if (nCallee)
        {
            for (InstructionNumber n = *nCallee; n < EndOfBody(*nCallee); ++n)
            {
                AddWritten(n, vRegisters);
                AddCall(m_Instructions[n], vCalls);
            }
        }
        else if (const auto it = m_PassedMacros.find(nLabel); bMacro && it != m_PassedMacros.end())
        {
            for (const CShaderDebuggerInstructionIL& instruction : it->second)
            {
                Register reg;

                if (MakeWrittenRegister(instruction, reg))
                {
                    AddShared(reg, vRegisters);
                }

                AddCall(instruction, vCalls);
            }
        }
    }

    return vRegisters;
}

void CAnalyzedShaderIL::AddWritten(InstructionNumber nInst, std::vector<Register>& vRegisters) const
{
    const auto it = m_RegisterOutput.find(nInst);

    if (it != m_RegisterOutput.end())
    {
        AddShared(it->second, vRegisters);
    }
}

void CAnalyzedShaderIL::AddCall(const CShaderDebuggerInstructionIL& instruction,
                                std::vector<const CShaderDebuggerInstructionIL*>& vCalls)
{
    switch (instruction.GetOpCode())
    {
    case IL_OP_CALL:
    case IL_OP_CALLNZ:
    case IL_OP_CALL_LOGICALZ:
    case IL_OP_CALL_LOGICALNZ:
    case IL_OP_MACROCALL:
        vCalls.push_back(&instruction);
        break;

    default:
        break;
    }
}

const std::vector<Register>& CAnalyzedShaderIL::RegistersPassedBy(InstructionNumber nInst) const
{
    static const std::vector<Register> s_None;

    if (m_PassedRegisters.empty() || nInst >= m_Instructions.size() ||
        m_Instructions[nInst].GetOpCode() != IL_OP_MACROCALL)
    {
        return s_None;
    }

    const auto it = m_PassedRegisters.find(m_Instructions[nInst].GetOpToken().bits.controls);
    return it != m_PassedRegisters.end() ? it->second : s_None;
}

} // namespace OVK_ShaderDebugger
