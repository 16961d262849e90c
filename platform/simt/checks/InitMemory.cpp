// The shadow of memory: what accesses find there, and what they leave.

#include "platform/simt/Block.h"
#include "platform/simt/Elements.h"
#include "platform/simt/checks/InitRecorder.h"
#include "platform/simt/checks/WrittenPages.h"

#include <algorithm>
#include <cstring>

namespace KestrelPlatform
{

namespace
{

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
