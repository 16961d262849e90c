#include "engine/RegisterExpansion.h"

#include "core/Log.h"
#include "engine/PrivateAccess.h"
#include "instrument/AnalyzedShaderIL.h"

#include <algorithm>
#include <set>

namespace OVK_ShaderDebugger
{

namespace
{

/// The declared size of an array, in the function of an instruction or else in one of its callers. A macro has no
/// declarations of its own.
const unsigned int* FindDeclaredSize(const CAnalyzedShaderIL& kernel, const SPosition& at, const Register& reg)
{
    const auto findIn = [&](unsigned int nFunction) -> const unsigned int*
    {
        const auto itScope = kernel.GetDeclarations().find(nFunction);
        if (itScope == kernel.GetDeclarations().end())
        {
            return nullptr;
        }
        const auto& sizes = reg.reg.type == RT_IndexableTemp ? itScope->second.m_IndexedTempRegisterSizes
                                                             : itScope->second.m_PrivateUAVSizes;
        const auto it = sizes.find(reg.reg.number);
        return it != sizes.end() ? &it->second : nullptr;
    };
    const InstructionNumber nInst = at.pc.m_nPos;
    const bool bInMacro = kernel.MacroAround(nInst) != nullptr;
    const unsigned int* pSize = bInMacro ? nullptr : findIn(kernel.FunctionOf(nInst));
    for (auto it = at.callStack.begin(); pSize == nullptr && it != at.callStack.end(); ++it)
    {
        pSize = kernel.MacroAround(it->m_nPos) != nullptr ? nullptr : findIn(kernel.FunctionOf(it->m_nPos));
    }
    return pSize != nullptr || !bInMacro ? pSize : findIn(kernel.FunctionOf(nInst));
}

/// The slots that a store to a constant address in private memory may reach. Results are kept by whole slots, and only
/// the beginning of the store is known.
void AddSlots(const CAnalyzedShaderIL& kernel, const SPosition& at, const Register& reg,
              std::deque<Register>& registers)
{
    const unsigned int nInSlot = reg.reg.index % s_nPrivateSlotSize;
    const unsigned int nFirst = reg.reg.index - nInSlot;
    const unsigned int* pSize = FindDeclaredSize(kernel, at, reg);
    const bool bNext = nInSlot != 0 && pSize != nullptr && nFirst + s_nPrivateSlotSize < *pSize;
    for (unsigned int nSlot = 0; nSlot <= (bNext ? 1u : 0u); ++nSlot)
    {
        const Register slot(reg.reg.type, reg.reg.number, reg.mask, nFirst + nSlot * s_nPrivateSlotSize);
        if (std::find(registers.begin(), registers.end(), slot) == registers.end())
        {
            registers.push_back(slot);
        }
    }
}

void AddElements(const CAnalyzedShaderIL& kernel, const SPosition& at, const Register& reg,
                 std::deque<Register>& registers)
{
    const unsigned int* pSize = FindDeclaredSize(kernel, at, reg);
    if (!SD_AssertText(kernel.GetHost(), pSize != nullptr, "Indexed reg decl not found in call stack"))
    {
        return;
    }
    // An indexed temp has elements, private memory 16-byte slots at byte addresses.
    const unsigned int nStep = reg.reg.type == RT_PrivateUAVAccess ? s_nPrivateSlotSize : 1;
    for (unsigned int nIndex = 0; nIndex < *pSize; nIndex += nStep)
    {
        registers.emplace_back(reg.reg.type, reg.reg.number, COMP_All, nIndex);
    }
}

} // namespace

std::deque<Register> ExpandRegisters(const CAnalyzedShaderIL& kernel, const SPosition& at,
                                     const std::deque<Register>& registers)
{
    std::deque<Register> expanded;
    std::set<Register> arrays;
    for (const Register& reg : registers)
    {
        const bool bElements = reg.reg.type == RT_IndexableTemp || reg.reg.type == RT_PrivateUAVAccess;
        if (reg.reg.type == RT_PrivateUAVAccess && reg.reg.pIndexRegister == nullptr)
        {
            AddSlots(kernel, at, reg, expanded);
        }
        else if (!IsRegTypeIndexed(reg.reg.type) || (bElements && reg.reg.pIndexRegister == nullptr))
        {
            expanded.push_back(reg);
        }
        else if (SD_AssertText(kernel.GetHost(), bElements,
                               "reg->reg.type == RT_IndexableTemp || reg->reg.type == RT_PrivateUAVAccess"))
        {
            arrays.insert(Register(reg.reg.type, reg.reg.number, COMP_All));
        }
    }
    for (const Register& reg : arrays)
    {
        AddElements(kernel, at, reg, expanded);
    }
    return expanded;
}

} // namespace OVK_ShaderDebugger
