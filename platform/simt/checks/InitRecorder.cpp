#include "platform/simt/checks/InitRecorder.h"

#include "platform/simt/Block.h"
#include "platform/simt/Elements.h"
#include "platform/simt/RowVisits.h"
#include "platform/simt/checks/Findings.h"
#include "platform/simt/checks/WrittenPages.h"

#include <algorithm>
#include <cstring>

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

bool IsBufferCopy(uint32_t nShadow)
{
    for (; nShadow != 0; nShadow >>= 8)
    {
        const uint32_t nByte = nShadow & 0xFF;
        if (nByte != 0 && (nByte < s_nFirstBuffer || (nByte & s_nWorkedOut) != 0))
        {
            return false;
        }
    }
    return true;
}

/// Whether an element may hold padding of a structure: part of it is written, and the rest isn't a computed value.
bool IsGap(uint32_t nShadow, uint32_t nBytes)
{
    bool bPart = false;
    for (uint32_t n = 0; n < nBytes; ++n, nShadow >>= 8)
    {
        bPart = bPart || (nShadow & 0xFF) == 0;
        if ((nShadow & s_nWorkedOut) != 0)
        {
            return false;
        }
    }
    return bPart;
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

void CInitRecorder::Accessing(const CBlock& block, const SMicroOp& step, const SAccess& access)
{
    const auto address = [&](uint32_t nRow) { Demand(block, step, nRow, PLATFORM_FAULT_ADDRESS, access.bUniform); };
    if (access.bScaled)
    {
        address(access.nIndexRow);
        Demand(block, step, access.nBaseRows[0], PLATFORM_FAULT_ADDRESS, true);
        Demand(block, step, access.nScaleRow, PLATFORM_FAULT_ADDRESS, true);
    }
    else
    {
        std::for_each(access.nAddressRows, access.nAddressRows + 2, address);
    }
    if (access.eSpace == SAccess::Private)
    {
        MovePrivate(block, step, access);
    }
    else if (access.eOperation == SAccess::Atomic)
    {
        TouchAtomic(block, step, access);
    }
    else if (access.eOperation == SAccess::Store)
    {
        StoreShadow(block, step, access);
    }
    else
    {
        LoadShadow(block, step, access);
    }
}

bool CInitRecorder::HasShadow(const SAccess& access) const
{
    return access.eSpace == SAccess::Local ? !m_vLocal.empty() : m_bGlobal;
}

/// The shadow of a lane's bytes; null if they are outside of memory, or if their memory object has no shadow.
unsigned char* CInitRecorder::Find(const CBlock& block, const SAccess& access, uint32_t nLane, uint32_t nBytes)
{
    const uint64_t nAddress = m_vAddresses[nLane - block.GetFirstLane()];
    if (access.eSpace == SAccess::Local)
    {
        const int64_t nOffset = block.LocalOffset(m_Context.code.vLocalAreas[access.nArea], nAddress, nBytes);
        const size_t nSlot = m_Context.nGroupsPerBlock > 1 ? nLane / m_Context.nGroupSize : 0;
        return nOffset < 0 ? nullptr : &m_vLocal[nSlot * m_Context.nLocalBytes + static_cast<size_t>(nOffset)];
    }
    if (!HoldRange(nAddress, nBytes))
    {
        return nullptr;
    }
    const SMemoryRange& range = m_Context.launch.vMemory[m_nRange];
    return range.pShadow ? range.pShadow + (nAddress - range.nAddress) : nullptr;
}

/// Sets m_nRange to the memory object that holds all of these bytes. \return false if none does
bool CInitRecorder::HoldRange(uint64_t nAddress, uint64_t nBytes)
{
    const std::vector<SMemoryRange>& vMemory = m_Context.launch.vMemory;
    const auto holds = [&](const SMemoryRange& range)
    { return nAddress - range.nAddress < range.nSize && range.nSize - (nAddress - range.nAddress) >= nBytes; };
    if (m_nRange < vMemory.size() && holds(vMemory[m_nRange]))
    {
        return true;
    }
    const auto it = std::upper_bound(vMemory.begin(), vMemory.end(), nAddress,
                                     [](uint64_t n, const SMemoryRange& range) { return n < range.nAddress; });
    if (it == vMemory.begin() || !holds(*(it - 1)))
    {
        return false;
    }
    m_nRange = static_cast<size_t>(it - 1 - vMemory.begin());
    return true;
}

/// Whether all memory between the lowest and the highest byte that the active work-items access is written. False also
/// if that isn't known.
bool CInitRecorder::IsWritten(const CBlock& block, const SAccess& access, uint32_t nBytes)
{
    m_Span = FindSpan(block, access, nBytes, m_vAddresses);
    if (m_Span.nEnd <= m_Span.nLow)
    {
        return false;
    }
    if (access.eSpace == SAccess::Global)
    {
        if (!HoldRange(m_Span.nLow, m_Span.nEnd - m_Span.nLow))
        {
            return false;
        }
        const uint64_t nStart = m_Context.launch.vMemory[m_nRange].nAddress;
        return m_Written.Are(m_nRange, m_Span.nLow - nStart, m_Span.nEnd - nStart);
    }
    const int64_t nOffset = block.LocalOffset(m_Context.code.vLocalAreas[access.nArea], m_Span.nLow,
                                              static_cast<uint32_t>(m_Span.nEnd - m_Span.nLow));
    if (nOffset < 0 || m_Span.nEnd - m_Span.nLow > m_Context.nLocalBytes)
    {
        return false;
    }
    const bool bSlots = m_Context.nGroupsPerBlock > 1;
    const size_t nFirstSlot = bSlots ? block.GetFirstLane() / m_Context.nGroupSize : 0;
    const size_t nLastSlot = bSlots ? (block.GetEndLane() - 1) / m_Context.nGroupSize : 0;
    for (size_t nSlot = nFirstSlot; nSlot <= nLastSlot; ++nSlot)
    {
        const unsigned char* const pShadow = &m_vLocal[nSlot * m_Context.nLocalBytes + static_cast<size_t>(nOffset)];
        if (!IsZero(pShadow, m_Span.nEnd - m_Span.nLow))
        {
            return false;
        }
    }
    return true;
}

/// Marks the span that IsWritten found as written, for a store of written values that leaves no gaps in it. \return
/// false for any other store
bool CInitRecorder::StoreWritten(const CBlock& block, const SAccess& access)
{
    const int64_t nBytes = TotalBytes(access);
    const uint64_t nAll = m_Span.nEnd - m_Span.nLow;
    const bool bLocal = access.eSpace == SAccess::Local;
    const SAddressPlane& plane = m_Span.plane;
    if (!m_Span.bPlane || !plane.IsEven() || (plane.nStep != nBytes && plane.nStep != -nBytes) ||
        (bLocal && (m_Context.nGroupsPerBlock > 1 || nAll > m_Context.nLocalBytes)))
    {
        return false;
    }
    const int64_t nOffset =
        bLocal ? block.LocalOffset(m_Context.code.vLocalAreas[access.nArea], m_Span.nLow, static_cast<uint32_t>(nAll))
               : 0;
    if (nOffset < 0 || (!bLocal && !HoldRange(m_Span.nLow, nAll)))
    {
        return false;
    }
    const SMemoryRange* const pRange = bLocal ? nullptr : &m_Context.launch.vMemory[m_nRange];
    std::memset(bLocal ? &m_vLocal[static_cast<size_t>(nOffset)] : pRange->pShadow + (m_Span.nLow - pRange->nAddress),
                0, nAll);
    return true;
}

/// Marks everything that is loaded as written.
void CInitRecorder::ClearLoaded(const CBlock& block, const SAccess& access)
{
    for (uint32_t w = 0; w < access.nWords; ++w)
    {
        const uint32_t nRow = access.nRows[w];
        if (nRow > s_nZeroRow && access.bUniform && (access.nUniformWords & (1u << w)))
        {
            m_Rows.Clear(nRow);
        }
        else if (nRow > s_nZeroRow)
        {
            m_Rows.Clear(block, nRow);
        }
    }
}

void CInitRecorder::LoadShadow(const CBlock& block, const SMicroOp& step, const SAccess& access)
{
    const bool bThere = HasShadow(access) && !IsWritten(block, access, TotalBytes(access));
    if (!bThere)
    {
        return ClearLoaded(block, access);
    }
    block.FillAddresses(access, block.GetFirstLane(), block.GetEndLane(), m_vAddresses.data());
    SLaneRow words[4];
    uint32_t any[4] = {};
    for (uint32_t n = block.GetFirstLane(); n < block.GetEndLane(); ++n)
    {
        const unsigned char* const pShadow = block.IsActive(n) ? Find(block, access, n, TotalBytes(access)) : nullptr;
        for (uint32_t w = 0; w < access.nWords; ++w)
        {
            uint32_t nShadow = 0;
            if (pShadow)
            {
                std::memcpy(&nShadow, pShadow + w * access.nElementBytes, access.nElementBytes);
            }
            const uint32_t nTop = nShadow >> (8 * access.nElementBytes - 8) & 0xFF;
            for (uint32_t i = access.nElementBytes; access.bSigned && i < 4; ++i)
            {
                nShadow |= nTop << (8 * i);
            }
            words[w].w[n] = nShadow;
            any[w] |= nShadow;
        }
    }
    for (uint32_t w = 0; w < access.nWords; ++w)
    {
        const uint32_t nRow = access.nRows[w];
        if (nRow <= s_nZeroRow || (any[w] == 0 && !m_Rows.IsDirty(nRow)))
        {
            continue;
        }
        const bool bAll = access.bUniform && (access.nUniformWords & (1u << w));
        uint32_t nActive = block.GetFirstLane();
        while (nActive + 1 < block.GetEndLane() && !block.IsActive(nActive))
        {
            ++nActive;
        }
        uint32_t* const pRow = m_Rows.Change(nRow);
        for (uint32_t n = 0; n < s_nLanes; ++n)
        {
            if (bAll)
            {
                pRow[n] = words[w].w[nActive];
            }
            else if (n >= block.GetFirstLane() && n < block.GetEndLane() && block.IsActive(n))
            {
                pRow[n] = words[w].w[n];
            }
        }
        m_Rows.Settle(nRow, step.nInstruction);
    }
}

void CInitRecorder::StoreShadow(const CBlock& block, const SMicroOp& step, const SAccess& access)
{
    bool bDirty = false;
    for (uint32_t w = 0; w < access.nWords; ++w)
    {
        bDirty = bDirty || IsDirty(block, access.nRows[w], false);
    }
    if (!bDirty && (!HasShadow(access) || IsWritten(block, access, TotalBytes(access)) || StoreWritten(block, access)))
    {
        return;
    }
    const uint32_t nFirst = block.GetFirstLane();
    block.FillAddresses(access, nFirst, block.GetEndLane(), m_vAddresses.data());
    for (uint32_t n = nFirst; n < block.GetEndLane(); ++n)
    {
        if (!block.IsActive(n))
        {
            continue;
        }
        unsigned char* const pShadow = Find(block, access, n, TotalBytes(access));
        if (!bDirty)
        {
            if (pShadow)
            {
                std::memset(pShadow, 0, TotalBytes(access));
            }
            continue;
        }
        for (uint32_t w = 0; w < access.nWords; ++w)
        {
            const uint32_t nMask = access.nElementBytes == 4 ? ~0u : (1u << (8 * access.nElementBytes)) - 1;
            uint32_t nShadow = StoredShadow(access, w, n) & nMask;
            // A vector of three components may be stored as four, of which the last one has no value.
            const bool bGap = IsGap(nShadow, access.nElementBytes) ||
                              (w == 3 && access.nElementBytes == 4 && StoredShadow(access, 2, n) == 0 &&
                               (nShadow & (s_nWorkedOut * 0x01010101u)) == 0);
            if (nShadow != 0 && access.eSpace == SAccess::Global && !IsBufferCopy(nShadow) && !bGap)
            {
                const uint32_t nFrom = m_Rows.GetFrom(access.nRows[w]);
                Tell(block, step, n, PLATFORM_FAULT_OUTPUT, nShadow, nFrom == ~0u ? step.nInstruction : nFrom,
                     m_vAddresses[n - nFirst] + w * access.nElementBytes);
                nShadow = 0;
            }
            if (pShadow && nShadow != 0 && access.eSpace == SAccess::Global)
            {
                const uint64_t nPlace = m_vAddresses[n - nFirst] - m_Context.launch.vMemory[m_nRange].nAddress;
                m_Written.Spoil(m_nRange, nPlace, nPlace + TotalBytes(access));
            }
            if (pShadow)
            {
                std::memcpy(pShadow + w * access.nElementBytes, &nShadow, access.nElementBytes);
            }
        }
    }
}

/// The memory that an atomic changes must be written, except for an exchange, whose result doesn't depend on it.
void CInitRecorder::TouchAtomic(const CBlock& block, const SMicroOp& step, const SAccess& access)
{
    for (const uint32_t nRow : access.nValueRows)
    {
        Demand(block, step, nRow, PLATFORM_FAULT_OUTPUT);
    }
    if (HasShadow(access) && !IsWritten(block, access, access.nElementBytes))
    {
        block.FillAddresses(access, block.GetFirstLane(), block.GetEndLane(), m_vAddresses.data());
        for (uint32_t n = block.GetFirstLane(); n < block.GetEndLane(); ++n)
        {
            unsigned char* const pShadow = block.IsActive(n) ? Find(block, access, n, access.nElementBytes) : nullptr;
            uint32_t nShadow = 0;
            if (pShadow)
            {
                std::memcpy(&nShadow, pShadow, 4);
            }
            // What other groups do to a buffer before this isn't known, so the shadow of its bytes stays as it is.
            if (nShadow != 0 && (access.eAtomic == ATOMIC_XCHG || access.eSpace == SAccess::Local))
            {
                std::memset(pShadow, 0, access.nElementBytes);
            }
            if (nShadow != 0 && access.eAtomic != ATOMIC_XCHG)
            {
                Tell(block, step, n, PLATFORM_FAULT_ATOMIC, nShadow, step.nInstruction,
                     m_vAddresses[n - block.GetFirstLane()]);
            }
        }
    }
    for (uint32_t w = 0; access.bReturns && w < access.nElementBytes / 4u; ++w)
    {
        m_Rows.Clear(block, access.nRows[w]);
    }
}

} // namespace KestrelPlatform
