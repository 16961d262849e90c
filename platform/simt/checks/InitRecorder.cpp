#include "platform/simt/checks/InitRecorder.h"

#include "platform/simt/Block.h"
#include "platform/simt/RowVisits.h"
#include "platform/simt/checks/Findings.h"

#include <algorithm>

namespace KestrelPlatform
{

namespace
{

std::vector<unsigned char> FindOrigins(const SCode& code)
{
    std::vector<unsigned char> vOrigins(code.nRows, PLATFORM_ORIGIN_REGISTER);
    for (const SCode::SArray& array : code.vArrays)
    {
        std::fill_n(vOrigins.begin() + array.nRow, array.nElements * 4, PLATFORM_ORIGIN_ARRAY);
    }
    for (const SCode::SPrivate& area : code.vPrivate)
    {
        std::fill_n(vOrigins.begin() + area.nRow, area.nBytes / 4, PLATFORM_ORIGIN_PRIVATE);
    }
    return vOrigins;
}

} // namespace

CInitRecorder::CInitRecorder(const SLaunchContext& context, CFindings& findings, CWrittenPages& written,
                             std::vector<unsigned char>& vLocal, bool bFirst)
    : m_Context(context), m_Findings(findings), m_Written(written), m_vLocal(vLocal), m_bFirst(bFirst),
      m_Rows(context.code.nRows), m_vOrigins(FindOrigins(context.code)), m_vAddresses(s_nLanes)
{
    for (const SMemoryRange& range : context.launch.vMemory)
    {
        m_bGlobal = m_bGlobal || range.pShadow;
    }
}

void CInitRecorder::Start(const CBlock& /*block*/)
{
    if (m_bFirst)
    {
        m_vLocal.assign(static_cast<size_t>(m_Context.nLocalBytes) * m_Context.nGroupsPerBlock, PLATFORM_ORIGIN_LOCAL);
    }
    for (const std::vector<uint32_t>* pRows : {&m_Context.code.vClearRows, &m_Context.code.vUnwrittenRows})
    {
        for (const uint32_t nRow : *pRows)
        {
            m_Rows.Fill(nRow, m_vOrigins[nRow] * 0x01010101u, ~0u);
        }
    }
}

/// Whether a row has something unwritten for the active work-items. A uniform value is in lane 0.
bool CInitRecorder::IsDirty(const CBlock& block, uint32_t nRow, bool bUniform) const
{
    if (nRow <= s_nZeroRow || !m_Rows.IsDirty(nRow))
    {
        return false;
    }
    const uint32_t* const pRow = m_Rows.Row(nRow);
    return (bUniform ? pRow[0]
                     : m_Context.lanes.pfAnyBits(pRow, block.Mask(), block.GetFirstLane(), block.GetEndLane())) != 0;
}

uint32_t CInitRecorder::FindDirty(const CBlock& block, const SLaneRows& rows, bool bUniform) const
{
    const uint16_t* const pDirty =
        std::find_if(rows.s, std::end(rows.s), [&](uint16_t nRow) { return IsDirty(block, nRow, bUniform); });
    return pDirty == std::end(rows.s) ? 0 : *pDirty;
}

void CInitRecorder::Tell(const CBlock& block, const SMicroOp& step, uint32_t nLane, uint32_t nFault, uint32_t nShadow,
                         uint32_t nFrom, uint64_t nAddress)
{
    SPlatformFinding finding = MakeFinding(PLATFORM_FINDING_INIT, step.nInstruction, block.GetWorkItem(nLane));
    finding.nFault = nFault;
    finding.nOther = nFrom;
    finding.nOrigin = SpreadShadow(nShadow) & 0x7F;
    finding.nAddress = nAddress;
    m_Findings.Add(finding);
}

void CInitRecorder::Demand(const CBlock& block, const SMicroOp& step, uint32_t nRow, uint32_t nFault, bool bUniform)
{
    if (!IsDirty(block, nRow, bUniform))
    {
        return;
    }
    const uint32_t nFrom = m_Rows.GetFrom(nRow);
    uint32_t* const pShadow = m_Rows.Change(nRow);
    for (uint32_t n = block.GetFirstLane(); n < block.GetEndLane(); ++n)
    {
        const uint32_t nShadow = pShadow[bUniform ? 0 : n];
        if (nShadow == 0 || !block.IsActive(n))
        {
            continue;
        }
        Tell(block, step, n, nFault, nShadow, nFrom == ~0u ? step.nInstruction : nFrom);
        pShadow[n] = bUniform ? pShadow[n] : 0;
    }
    if (bUniform)
    {
        m_Rows.Clear(nRow);
    }
    else
    {
        m_Rows.Settle(nRow, nFrom);
    }
}

void CInitRecorder::Stepping(const CBlock& block, const SMicroOp& step)
{
    if (!m_Rows.IsAny())
    {
        return;
    }
    switch (step.eKind)
    {
    case MICRO_LANE_FAST:
    case MICRO_LANE_SLOW:
        Compute(block, step, false);
        break;
    case MICRO_LANE_UNIFORM:
        Compute(block, step, true);
        break;
    case MICRO_WAVE:
        ComputeWave(block, step);
        break;
    case MICRO_IF:
    case MICRO_LEAVE_IF:
        Demand(block, step, step.rows.s[0], PLATFORM_FAULT_BRANCH, (step.nFlags & s_nFlagUniform) != 0);
        break;
    case MICRO_CALL:
        if (step.nFlags & s_nFlagConditional)
        {
            Demand(block, step, step.rows.s[0], PLATFORM_FAULT_BRANCH);
        }
        break;
    case MICRO_SWITCH:
        Demand(block, step, step.rows.s[0], PLATFORM_FAULT_BRANCH);
        break;
    case MICRO_INDEX_LOAD:
        LoadIndexed(block, step);
        break;
    case MICRO_INDEX_STORE:
        StoreIndexed(block, step);
        break;
    case MICRO_IMAGE:
    {
        const SImageAccess& image = m_Context.code.vImages[step.nAux];
        for (const uint32_t nRow : image.nCoordinates)
        {
            Demand(block, step, nRow, PLATFORM_FAULT_ADDRESS);
        }
        for (const uint32_t nRow : image.nRows)
        {
            if (image.eOperation == SImageAccess::UavStore)
            {
                Demand(block, step, nRow, PLATFORM_FAULT_OUTPUT);
            }
            else
            {
                m_Rows.Clear(block, nRow);
            }
        }
        break;
    }
    default:
        break;
    }
}

void CInitRecorder::Compute(const CBlock& block, const SMicroOp& step, bool bUniform)
{
    const uint32_t nDirty = FindDirty(block, step.rows, bUniform);
    if (nDirty == 0)
    {
        for (const uint16_t nRow : step.rows.d)
        {
            if (nRow > s_nZeroRow && bUniform)
            {
                m_Rows.Clear(nRow);
            }
            else if (nRow > s_nZeroRow)
            {
                m_Rows.Clear(block, nRow);
            }
        }
        return;
    }
    const uint32_t nFrom = m_Rows.GetFrom(nDirty) == ~0u ? step.nInstruction : m_Rows.GetFrom(nDirty);
    const EShadowRule eRule = FindShadowRule(step.nOp);
    const uint32_t nEnd = bUniform ? s_nLanes : block.GetEndLane();
    for (const uint16_t nRow : step.rows.d)
    {
        if (nRow > s_nZeroRow)
        {
            m_Rows.Change(nRow);
        }
    }
    // All lanes of a uniform step are computed from lane 0. Its own result comes last, as it may overwrite a source.
    for (uint32_t n = nEnd; n-- > (bUniform ? 0 : block.GetFirstLane());)
    {
        if (bUniform || block.IsActive(n))
        {
            ComputeLane(block, step, eRule, bUniform ? 0 : n, n);
        }
    }
    for (const uint16_t nRow : step.rows.d)
    {
        if (nRow > s_nZeroRow)
        {
            m_Rows.Settle(nRow, nFrom);
        }
    }
}

void CInitRecorder::ComputeLane(const CBlock& block, const SMicroOp& step, EShadowRule eRule, uint32_t nLane,
                                uint32_t nTo)
{
    const SLaneRows& rows = step.rows;
    const auto shadow = [&](uint16_t nRow) { return nRow > s_nZeroRow ? m_Rows.Row(nRow)[nLane] : 0; };
    uint32_t results[2] = {0, 0};
    if (eRule == SHADOW_COPY)
    {
        results[0] = shadow(rows.s[0]);
        results[1] = shadow(rows.s[1]);
    }
    else if (eRule == SHADOW_ANY)
    {
        for (uint32_t n = 0; n < 6 && results[0] == 0; ++n)
        {
            results[0] = SpreadShadow(shadow(rows.s[n]));
        }
        results[1] = results[0];
    }
    else
    {
        const uint32_t shadows[3] = {shadow(rows.s[0]), shadow(rows.s[2]), shadow(rows.s[4])};
        const uint32_t values[3] = {block.Row(rows.s[0])[nLane], block.Row(rows.s[2])[nLane],
                                    block.Row(rows.s[4])[nLane]};
        if ((shadows[0] | shadows[1] | shadows[2]) != 0)
        {
            results[0] = WorkOutShadow(eRule, values, shadows);
        }
    }
    for (uint32_t n = 0; n < 2; ++n)
    {
        if (rows.d[n] > s_nZeroRow)
        {
            m_Rows.Change(rows.d[n])[nTo] = results[n];
        }
    }
}

/// A lane that reads another lane gets that lane's shadow. Results of other operations are unwritten if the source is
/// unwritten in any lane that counts.
void CInitRecorder::ComputeWave(const CBlock& block, const SMicroOp& step)
{
    const uint32_t nSource = step.rows.s[0];
    if (step.nOp == WAVE_READ && step.rows.s[1] > s_nZeroRow)
    {
        Demand(block, step, step.rows.s[1], PLATFORM_FAULT_ADDRESS);
    }
    const bool bDirty = nSource > s_nZeroRow && m_Rows.IsDirty(nSource);
    SLaneRow result = {};
    const uint32_t nGroup = m_Context.nGroupsPerBlock > 1 ? m_Context.nGroupSize : block.GetLive();
    for (uint32_t nFirst = 0; bDirty && nFirst < block.GetLive();)
    {
        const uint32_t nEnd = std::min({nFirst + s_nWaveSize, nFirst - nFirst % nGroup + nGroup, block.GetLive()});
        uint32_t nWhole = 0;
        bool bSeen = false;
        for (uint32_t n = nFirst; n < nEnd; ++n)
        {
            const bool bTaken = block.IsActive(n) && (step.nOp != WAVE_FIRST || !bSeen);
            bSeen = bSeen || block.IsActive(n);
            nWhole = bTaken && nWhole == 0 ? m_Rows.Row(nSource)[n] : nWhole;
        }
        for (uint32_t n = nFirst; n < nEnd; ++n)
        {
            const uint32_t nLane = step.nOp == WAVE_READ ? block.Row(step.rows.s[1])[n] : 0;
            result.w[n] = step.nOp != WAVE_READ   ? nWhole
                          : nLane < nEnd - nFirst ? m_Rows.Row(nSource)[nFirst + nLane]
                                                  : 0;
        }
        nFirst = nEnd;
    }
    const uint32_t nFrom = bDirty && m_Rows.GetFrom(nSource) != ~0u ? m_Rows.GetFrom(nSource) : step.nInstruction;
    for (const uint16_t nRow : step.rows.d)
    {
        if (nRow <= s_nZeroRow || (!bDirty && !m_Rows.IsDirty(nRow)))
        {
            continue;
        }
        uint32_t* const pRow = m_Rows.Change(nRow);
        for (uint32_t n = block.GetFirstLane(); n < block.GetEndLane(); ++n)
        {
            pRow[n] = block.IsActive(n) ? result.w[n] : pRow[n];
        }
        m_Rows.Settle(nRow, nFrom);
    }
}

} // namespace KestrelPlatform
