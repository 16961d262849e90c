#include "il/FlowControl.h"

#include <algorithm>

namespace OVK_ShaderDebugger
{

namespace
{

/// Null for null and for a construct of another kind.
template <typename TTo, typename TFrom>
TTo* Downcast(TFrom* pConstruct, FC_Type type)
{
    return pConstruct != nullptr && pConstruct->GetType() == type ? static_cast<TTo*>(pConstruct) : nullptr;
}

} // namespace

void CIL_RegisterList::Add(const Register& reg)
{
    const auto inserted = m_IndexOf.emplace(reg.reg, m_vRegisters.size());

    if (inserted.second)
    {
        m_vRegisters.push_back(reg);
    }
    else
    {
        m_vRegisters[inserted.first->second].mask |= reg.mask;
    }
}

unsigned int CIL_FCConstruct::GetLoopDepth() const
{
    unsigned int nDepth = 0;

    for (const CIL_FCConstruct* pConstruct = this; pConstruct != nullptr; pConstruct = pConstruct->GetParent())
    {
        nDepth += pConstruct->GetType() == FC_Loop ? 1 : 0;
    }

    return nDepth;
}

void CIL_FCConstruct::SetGlobalStoreFlag()
{
    for (CIL_FCConstruct* pConstruct = this; pConstruct != nullptr; pConstruct = pConstruct->GetParent())
    {
        pConstruct->m_bHasGlobalStore = true;
    }
}

CIL_IfElseEndif* CIL_FCConstruct::AsIfElseEndif(CIL_FCConstruct* pConstruct)
{
    return Downcast<CIL_IfElseEndif>(pConstruct, FC_IfElseEndif);
}

const CIL_IfElseEndif* CIL_FCConstruct::AsIfElseEndif(const CIL_FCConstruct* pConstruct)
{
    return Downcast<const CIL_IfElseEndif>(pConstruct, FC_IfElseEndif);
}

CIL_Loop* CIL_FCConstruct::AsLoop(CIL_FCConstruct* pConstruct)
{
    return Downcast<CIL_Loop>(pConstruct, FC_Loop);
}

const CIL_Loop* CIL_FCConstruct::AsLoop(const CIL_FCConstruct* pConstruct)
{
    return Downcast<const CIL_Loop>(pConstruct, FC_Loop);
}

CIL_Switch* CIL_FCConstruct::AsSwitch(CIL_FCConstruct* pConstruct)
{
    return Downcast<CIL_Switch>(pConstruct, FC_Switch);
}

const CIL_Switch* CIL_FCConstruct::AsSwitch(const CIL_FCConstruct* pConstruct)
{
    return Downcast<const CIL_Switch>(pConstruct, FC_Switch);
}

bool CIL_Switch::IsSwitchBreak(InstructionNumber nInst) const
{
    return std::binary_search(m_vBreaks.begin(), m_vBreaks.end(), nInst);
}

InstructionNumber CIL_Switch::GetNextCase(InstructionNumber nInst) const
{
    const auto it = std::upper_bound(m_vCases.begin(), m_vCases.end(), nInst);
    return it != m_vCases.end() ? *it : m_nEnd;
}

InstructionNumber CIL_Switch::GetCaseFromBreak(InstructionNumber nInst) const
{
    const auto it = std::lower_bound(m_vCases.begin(), m_vCases.end(), nInst);
    return it != m_vCases.begin() ? *(it - 1) : m_nStart;
}

} // namespace OVK_ShaderDebugger
