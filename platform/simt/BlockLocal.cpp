// Accesses to local memory.

#include "platform/simt/Block.h"
#include "platform/simt/Elements.h"

namespace KestrelPlatform
{

/// The offset within the group's memory of an address of a local memory id, or -1. The local arguments come after all
/// declared areas, at addresses that are the same for every id.
int64_t CBlock::LocalOffset(const SCode::SLocalArea& area, uint64_t nAddress, uint32_t nBytes) const
{
    if (nAddress + nBytes <= area.nBytes)
    {
        return static_cast<int64_t>(area.nOffset + nAddress);
    }
    if (nAddress >= m_Context.nDynamicStart && nAddress + nBytes <= m_Context.nLocalBytes)
    {
        return static_cast<int64_t>(nAddress);
    }
    return -1;
}

/// Like GlobalMemory. With several groups in a block, offsets are relative to the first group's memory.
unsigned char* CBlock::LocalMemory(const SAccess& access, SOffsets& offsets)
{
    const SCode::SLocalArea& area = m_Code.vLocalAreas[access.nArea];
    const uint32_t nTotal = LaneBytes(access);
    const uint32_t* const pAddresses = Row(access.nAddressRows[0]);
    offsets = Offsets(pAddresses, nTotal);
    const int64_t nFirst = LocalOffset(area, offsets.nLow, nTotal);
    const int64_t nLast = LocalOffset(area, offsets.nHigh, nTotal);
    if (nFirst < 0 || nLast < 0 || nLast - nFirst != static_cast<int64_t>(offsets.nHigh) - offsets.nLow)
    {
        return nullptr;
    }
    unsigned char* const pBase = m_pLocal + nFirst;
    if (m_Context.nGroupsPerBlock == 1)
    {
        return pBase;
    }
    for (uint32_t n = m_nBegin; n < m_nLast; ++n)
    {
        m_Shifted.w[n] = pAddresses[n] + m_vLocalShift[n];
    }
    const uint32_t nLow = offsets.nLow;
    offsets = Offsets(m_Shifted.w, nTotal);
    return pBase + (offsets.nLow - nLow);
}

void CBlock::LocalLane(const SMicroOp& step, const SAccess& access, uint32_t nLane)
{
    const SCode::SLocalArea& area = m_Code.vLocalAreas[access.nArea];
    unsigned char* const pGroup = m_pLocal + m_vLocalShift[nLane];
    uint64_t nAddress = Row(access.nAddressRows[0])[nLane];
    if (access.eOperation == SAccess::Atomic)
    {
        nAddress &= ~static_cast<uint64_t>(access.nElementBytes - 1);
        const int64_t nOffset = LocalOffset(area, nAddress, access.nElementBytes);
        LocalAtomic(access, nLane, nOffset < 0 ? nullptr : pGroup + nOffset);
        if (nOffset < 0)
        {
            CountBad(step, nLane, nAddress, true, SBadAccess::Local, access.nElementBytes);
        }
        return;
    }
    bool bBad = false;
    for (uint32_t i = 0; i < access.nWords; ++i)
    {
        const int64_t nOffset = LocalOffset(area, nAddress + i * access.nElementBytes, access.nElementBytes);
        if (nOffset >= 0)
        {
            MoveLane(access, nLane, i, pGroup + nOffset);
        }
        else if (access.eOperation == SAccess::Load)
        {
            Row(access.nRows[i])[nLane] = 0;
        }
        bBad = bBad || nOffset < 0;
    }
    if (bBad)
    {
        CountBad(step, nLane, nAddress, access.eOperation != SAccess::Load, SBadAccess::Local, TotalBytes(access));
    }
}

void CBlock::LocalAccess(const SMicroOp& step, const SAccess& access)
{
    SOffsets offsets;
    unsigned char* const pBase = LocalMemory(access, offsets);
    const bool bAtomic = access.eOperation == SAccess::Atomic;
    const bool bWords = access.nElementBytes == 4;
    const bool bAligned = !bAtomic || (bWords && (AnyBits(offsets.pAddresses) & 3) == 0);
    if (pBase && bAligned)
    {
        if (bAtomic)
        {
            AtomicWords(access, pBase, offsets);
        }
        else if (bWords)
        {
            MoveWords(access, pBase, offsets);
        }
        else
        {
            MoveNarrow(access, pBase, offsets);
        }
        return;
    }
    for (uint32_t n = m_nBegin; n < m_nLast; ++n)
    {
        if (IsActive(n))
        {
            LocalLane(step, access, n);
        }
    }
}

} // namespace KestrelPlatform
