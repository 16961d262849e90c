#include "platform/simt/Block.h"
#include "platform/simt/SteadySteps.h"

namespace KestrelPlatform
{

/// Linear index in its group of a lane's work-item.
uint32_t CBlock::LocalIndexOfLane(uint32_t nLane) const
{
    return m_Context.nGroupsPerBlock > 1 ? nLane % m_Context.nGroupSize : m_nPart * s_nLanes + nLane;
}

void CBlock::LocalIdOfLane(uint32_t nLane, uint32_t* pId) const
{
    const size_t* pSize = m_Context.launch.nLocalSize;
    const uint32_t nIndex = LocalIndexOfLane(nLane);
    pId[0] = static_cast<uint32_t>(nIndex % pSize[0]);
    pId[1] = static_cast<uint32_t>(nIndex / pSize[0] % pSize[1]);
    pId[2] = static_cast<uint32_t>(nIndex / pSize[0] / pSize[1]);
}

uint64_t CBlock::GetGroup(uint32_t nLane) const
{
    return m_nFirstGroup + (m_Context.nGroupsPerBlock > 1 ? nLane / m_Context.nGroupSize : 0);
}

void CBlock::GroupOfLane(uint32_t nLane, uint64_t* pGroup) const
{
    const uint64_t nGroup = GetGroup(nLane);
    pGroup[0] = nGroup % m_Context.nGroups[0];
    pGroup[1] = nGroup / m_Context.nGroups[0] % m_Context.nGroups[1];
    pGroup[2] = nGroup / m_Context.nGroups[0] / m_Context.nGroups[1];
}

uint64_t CBlock::GetWorkItem(uint32_t nLane) const
{
    const SLaunch& launch = m_Context.launch;
    uint32_t nId[3];
    uint64_t nGroup[3];
    LocalIdOfLane(nLane, nId);
    GroupOfLane(nLane, nGroup);
    uint64_t nItem = 0;
    for (int n = 2; n >= 0; --n)
    {
        nItem = nItem * launch.nGlobalSize[n] + nGroup[n] * launch.nLocalSize[n] + nId[n];
    }
    return nItem;
}

void CBlock::FillLocalIds()
{
    for (uint32_t n = 0; n < s_nLanes; ++n)
    {
        uint32_t nId[3];
        LocalIdOfLane(n, nId);
        for (uint32_t i = 0; i < 3; ++i)
        {
            m_nLocalIds[i].w[n] = nId[i];
        }
        m_nLocalIds[3].w[n] = LocalIndexOfLane(n);
    }
    for (const SCode::SId& id : m_Code.vIds)
    {
        if (id.nType == IL_REGTYPE_THREAD_ID_IN_GROUP && id.nComponent < 3)
        {
            m_pRows[id.nRow] = m_nLocalIds[id.nComponent];
        }
        if (id.nType == IL_REGTYPE_THREAD_ID_IN_GROUP_FLAT)
        {
            m_pRows[id.nRow] = m_nLocalIds[3];
        }
    }
}

/// Adds the group's ids to those of its work-items. The global offset isn't part of an id: kernels add element 6 of
/// constant buffer 0.
void CBlock::FillGroupIds()
{
    const SLaunch& launch = m_Context.launch;
    const uint32_t nSlot = m_Context.nGroupsPerBlock > 1 ? m_Context.nGroupSize : m_nLive;
    for (uint32_t nFirst = 0; nFirst < m_nLive && !m_Code.vIds.empty(); nFirst += nSlot)
    {
        uint64_t nGroup[3];
        GroupOfLane(nFirst, nGroup);
        const uint64_t nLinear = nGroup[0] + m_Context.nGroups[0] * (nGroup[1] + m_Context.nGroups[1] * nGroup[2]);
        for (const SCode::SId& id : m_Code.vIds)
        {
            const uint32_t c = id.nComponent;
            uint32_t nBase = 0;
            const uint32_t* pLocal = nullptr;
            if (id.nType == IL_REGTYPE_THREAD_GROUP_ID_FLAT)
            {
                nBase = static_cast<uint32_t>(nLinear);
            }
            else if (id.nType == IL_REGTYPE_THREAD_GROUP_ID && c < 3)
            {
                nBase = static_cast<uint32_t>(nGroup[c]);
            }
            else if (id.nType == IL_REGTYPE_ABSOLUTE_THREAD_ID_FLAT)
            {
                nBase = static_cast<uint32_t>(nLinear * m_Context.nGroupSize);
                pLocal = m_nLocalIds[3].w;
            }
            else if (id.nType == IL_REGTYPE_ABSOLUTE_THREAD_ID && c < 3)
            {
                nBase = static_cast<uint32_t>(nGroup[c] * launch.nLocalSize[c]);
                pLocal = m_nLocalIds[c].w;
            }
            else
            {
                continue;
            }
            uint32_t* const pRow = Row(id.nRow);
            if (!pLocal && pRow[nFirst] != nBase)
            {
                m_Lanes.pfFill(pRow, nBase, nFirst, nFirst + nSlot);
                m_bSteady = m_bSteady && !IsSteady(id);
            }
            if (pLocal)
            {
                m_Lanes.pfScale(pRow, pLocal, 0u - nBase, 1, nFirst, nFirst + nSlot);
            }
        }
    }
}

} // namespace KestrelPlatform
