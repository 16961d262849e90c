#include "platform/simt/Block.h"

#include "platform/simt/BlockRecorder.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

namespace KestrelPlatform
{

void CBlock::SFree::operator()(void* p) const
{
    std::free(p);
}

CBlock::CBlock(SLaunchContext& context, uint32_t nPart, unsigned char* pLocal, CPendingAdds& pending)
    : m_Context(context), m_Code(context.code), m_Lanes(context.lanes), m_nPart(nPart), m_pLocal(pLocal),
      m_Pending(pending),
      m_nLimit(context.launch.nInstructionLimit != 0 ? context.launch.nInstructionLimit : ~uint64_t(0))
{
    const size_t nBytes = static_cast<size_t>(m_Code.nRows) * sizeof(SLaneRow);
    m_pMemory.reset(std::aligned_alloc(alignof(SLaneRow), nBytes));
    if (!m_pMemory)
    {
        throw std::bad_alloc();
    }
    m_pRows = static_cast<SLaneRow*>(m_pMemory.get());
    std::memset(m_pRows, 0, nBytes);
    m_vReturns.assign(m_Code.vBodyEntries.size(), 0);
    m_vBranches.assign(m_Code.nRows, SBranch());
    m_vPasses.assign(m_Code.nRows, 0);
    m_vLocalShift.assign(s_nLanes, 0);
    for (uint32_t n = 0; n < s_nLanes && context.nGroupsPerBlock > 1; ++n)
    {
        m_vLocalShift[n] = std::min(n / context.nGroupSize, context.nGroupsPerBlock - 1) * context.nLocalBytes;
    }
    FillConstants();
    FillLocalIds();
}

void CBlock::FillConstants()
{
    for (const SCode::SConstant& constant : m_Code.vConstants)
    {
        uint32_t nValue = constant.nValue;
        if (constant.nBuffer >= 0)
        {
            const std::vector<uint32_t>& vWords = m_Context.vBuffers[static_cast<size_t>(constant.nBuffer)];
            nValue = nValue < vWords.size() ? vWords[nValue] : 0;
        }
        std::fill_n(Row(constant.nRow), s_nLanes, nValue);
    }
}

void CBlock::Start(uint64_t nFirstGroup, IBlockRecorder* pTrace)
{
    m_nFirstGroup = nFirstGroup;
    m_pTrace = pTrace;
    m_bSeen = pTrace && pTrace->SeesSteps();
    const uint64_t nGroupsLeft = m_Context.nGroupCount - nFirstGroup;
    if (m_Context.nGroupsPerBlock > 1)
    {
        m_nLive =
            static_cast<uint32_t>(std::min<uint64_t>(nGroupsLeft, m_Context.nGroupsPerBlock)) * m_Context.nGroupSize;
    }
    else
    {
        m_nLive = std::min(m_Context.nGroupSize - m_nPart * s_nLanes, s_nLanes);
    }
    m_nLiveEnd = (m_nLive + s_nGranule - 1) & ~(s_nGranule - 1);
    uint32_t* const pMask = Row(s_nMaskRow);
    m_Lanes.pfFill(pMask, 0xFFFFFFFFu, 0, m_nLive);
    m_Lanes.pfFill(pMask, 0, m_nLive, s_nLanes);
    for (const uint32_t nRow : m_Code.vClearRows)
    {
        ClearRow(nRow);
    }
    FillGroupIds();
    if (!m_bSteady)
    {
        RunSteady();
    }
    m_nExecuted = 0;
    m_nStep = m_Code.vBodyEntries[0];
    SetMask({m_nLive, 0, m_nLiveEnd});
    if (m_pTrace)
    {
        m_pTrace->Start(*this);
    }
}

void CBlock::RunSteady()
{
    for (const SMicroOp& step : m_Code.vSteadySteps)
    {
        m_Lanes.pFast[step.nOp](m_pRows, step.rows, nullptr, 0, s_nLanes);
    }
    m_bSteady = true;
}

void CBlock::TellPlaces(EState eState) const
{
    const SMicroOp* const pAt = eState == Stopped ? m_pStoppedAt : nullptr;
    const bool bBegun = eState == AtBarrier || (pAt && (pAt->eKind != MICRO_ENTER || pAt->nAux != 0));
    if (!bBegun)
    {
        return m_Context.AddPlace({eState == Done ? PLATFORM_WHERE_ENDED : PLATFORM_WHERE_NOT_BEGUN,
                                   SItem::NoInstruction, m_nLive, GetWorkItem(0), 0, 0});
    }
    uint32_t nLane = 0;
    while (nLane + 1 < m_nLive && !IsActive(nLane))
    {
        ++nLane;
    }
    const uint64_t nPasses = pAt && pAt->eKind == MICRO_END_LOOP ? m_vPasses[pAt->rows.d[0]] : 0;
    if (m_nActive != 0)
    {
        m_Context.AddPlace({pAt ? PLATFORM_WHERE_AT : PLATFORM_WHERE_BARRIER, pAt ? pAt->nInstruction : m_nBarrier,
                            m_nActive, GetWorkItem(nLane), nPasses, nPasses});
    }
    if (m_nActive != m_nLive)
    {
        m_Context.AddPlace(
            {PLATFORM_WHERE_BESIDE, SItem::NoInstruction, m_nLive - m_nActive, GetFirstMissing(false), 0, 0});
    }
}

uint64_t CBlock::GetFirstMissing(bool bDone) const
{
    uint32_t nLane = 0;
    while (!bDone && nLane + 1 < m_nLive && IsActive(nLane))
    {
        ++nLane;
    }
    return GetWorkItem(nLane);
}

} // namespace KestrelPlatform
