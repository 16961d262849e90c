#include <algorithm>
#include <cstring>

#include "platform/simt/Block.h"

namespace KestrelPlatform
{

namespace
{

uint32_t Load32(const unsigned char* p)
{
    uint32_t n = 0;
    std::memcpy(&n, p, sizeof n);
    return n;
}

void Store32(unsigned char* p, uint32_t n)
{
    std::memcpy(p, &n, sizeof n);
}

uint32_t LoadNarrow(const unsigned char* p, uint32_t nBytes, bool bSigned)
{
    if (nBytes == 1)
        return bSigned ? static_cast<uint32_t>(static_cast<int8_t>(*p)) : *p;
    uint16_t n = 0;
    std::memcpy(&n, p, sizeof n);
    return bSigned ? static_cast<uint32_t>(static_cast<int16_t>(n)) : n;
}

uint32_t TotalBytes(const SAccess& access)
{
    return access.nElementBytes * static_cast<uint32_t>(access.nWords);
}

} // namespace

void CBlock::CountBad(const SMicroOp& step, uint32_t nLane, uint64_t nAddress, bool bWrite)
{
    m_Context.CountBadAccess({step.nInstruction, GetWorkItem(nLane), nAddress, bWrite});
}

uint64_t CBlock::Address(const SAccess& access, uint32_t nLane) const
{
    const uint64_t nLow = Row(access.nAddressRows[0])[nLane];
    return access.b64BitAddress ? nLow | (static_cast<uint64_t>(Row(access.nAddressRows[1])[nLane]) << 32) : nLow;
}

/// The range that holds the address, or null. The last one found is tried first.
const SMemoryRange* CBlock::FindMemory(uint64_t nAddress)
{
    const std::vector<SMemoryRange>& vMemory = m_Context.launch.vMemory;
    const auto holds = [nAddress](const SMemoryRange& range)
    { return nAddress >= range.nAddress && nAddress - range.nAddress < range.nSize; };
    if (m_nLastRange < vMemory.size() && holds(vMemory[m_nLastRange]))
        return &vMemory[m_nLastRange];
    auto it = std::upper_bound(vMemory.begin(), vMemory.end(), nAddress,
                               [](uint64_t n, const SMemoryRange& range) { return n < range.nAddress; });
    if (it == vMemory.begin() || !holds(*--it))
        return nullptr;
    m_nLastRange = static_cast<size_t>(it - vMemory.begin());
    return &*it;
}

void CBlock::Access(const SMicroOp& step, const SAccess& access)
{
    switch (access.eSpace)
    {
    case SAccess::Global:
        GlobalAccess(step, access);
        break;
    case SAccess::Local:
        LocalAccess(step, access);
        break;
    default:
        PrivateAccess(step, access);
        break;
    }
}

/// Consecutive words of all active lanes, all inside memory: lane i's begin at
/// pBase + address[i] - nBase + pShift[i].
void CBlock::MoveWords(const SAccess& access, unsigned char* pBase, uint32_t nBase, bool bUniform,
                       const uint32_t* pShift)
{
    const uint32_t* const pAddress = Row(access.nAddressRows[0]);
    const uint32_t nStride = access.nWords * 4u;
    const bool bSequence = !m_pMask && !bUniform && !pShift && m_Lanes.pfIsSequence(pAddress, m_nLive, nStride);
    const bool bLoad = access.eOperation == SAccess::Load;
    for (uint32_t w = 0; w < access.nWords; ++w)
    {
        uint32_t* const pRow = Row(access.nRows[w]);
        unsigned char* const pWord = pBase + w * 4;
        if (bSequence)
        {
            unsigned char* const pFirst = pWord + (pAddress[0] - nBase);
            if (access.nWords == 1)
            {
                if (bLoad)
                    std::memcpy(pRow, pFirst, m_nLive * 4u);
                else
                    std::memcpy(pFirst, pRow, m_nLive * 4u);
                continue;
            }
            for (uint32_t i = 0; bLoad && i < m_nLive; ++i)
                pRow[i] = Load32(pFirst + i * nStride);
            for (uint32_t i = 0; !bLoad && i < m_nLive; ++i)
                Store32(pFirst + i * nStride, pRow[i]);
            continue;
        }
        if (bUniform && bLoad && !m_pMask)
        {
            std::fill_n(pRow, m_nLive, Load32(pWord));
            continue;
        }
        const uint32_t* const pMask = Row(s_nMaskRow);
        const uint32_t nEnd = std::min(m_nEnd, m_nLive);
        if (!m_pMask && bLoad && !pShift)
        {
            m_Lanes.pfGather(pRow, pWord, pAddress, nBase, nEnd);
            continue;
        }
        for (uint32_t i = m_nBegin; i < nEnd; ++i)
        {
            if (!pMask[i])
                continue;
            unsigned char* const p = pWord + (pAddress[i] - nBase) + (pShift ? pShift[i] : 0);
            if (bLoad)
                pRow[i] = Load32(p);
            else
                Store32(p, pRow[i]);
        }
    }
}

void CBlock::MoveNarrow(const SAccess& access, unsigned char* pBase, uint32_t nBase, const uint32_t* pShift)
{
    const uint32_t* const pAddress = Row(access.nAddressRows[0]);
    const uint32_t* const pMask = Row(s_nMaskRow);
    for (uint32_t i = m_nBegin; i < std::min(m_nEnd, m_nLive); ++i)
    {
        if (pMask[i])
            MoveLane(access, i, 0, pBase + (pAddress[i] - nBase) + (pShift ? pShift[i] : 0));
    }
}

/// One element of one lane, at memory that is there.
void CBlock::MoveLane(const SAccess& access, uint32_t nLane, uint32_t nElement, unsigned char* pData)
{
    uint32_t& nValue = Row(access.nRows[nElement])[nLane];
    const bool bLoad = access.eOperation == SAccess::Load;
    if (access.nElementBytes == 4)
    {
        if (bLoad)
            nValue = Load32(pData);
        else
            Store32(pData, nValue);
        return;
    }
    if (bLoad)
        nValue = LoadNarrow(pData, access.nElementBytes, access.bSigned);
    else
        std::memcpy(pData, &nValue, access.nElementBytes);
}

/// Element by element, for an access that isn't wholly inside one memory object.
void CBlock::GlobalLane(const SMicroOp& step, const SAccess& access, uint32_t nLane)
{
    const uint64_t nAddress = Address(access, nLane);
    const bool bLoad = access.eOperation == SAccess::Load;
    uint32_t nRowsSoFar = 0;
    bool bBad = false;
    uint64_t nBadAddress = 0;
    for (; nRowsSoFar < access.nWords; ++nRowsSoFar)
    {
        uint64_t nElement = nAddress + nRowsSoFar * access.nElementBytes;
        if (!access.b64BitAddress)
            nElement &= 0xFFFFFFFFu;
        const SMemoryRange* const pRange = FindMemory(nElement);
        const bool bInside = pRange && pRange->nSize - (nElement - pRange->nAddress) >= access.nElementBytes &&
                             (bLoad || !pRange->bReadOnly);
        if (bInside)
        {
            MoveLane(access, nLane, nRowsSoFar, pRange->pData + (nElement - pRange->nAddress));
            continue;
        }
        if (bLoad)
            Row(access.nRows[nRowsSoFar])[nLane] = 0;
        nBadAddress = bBad ? nBadAddress : nElement;
        bBad = true;
    }
    if (bBad)
        CountBad(step, nLane, nBadAddress, !bLoad);
}

void CBlock::GlobalAccess(const SMicroOp& step, const SAccess& access)
{
    uint32_t nLow = 0;
    uint32_t nHigh = 0;
    const uint32_t nCount = m_pMask ? m_nLiveEnd : m_nLive;
    m_Lanes.pfRange(Row(access.nAddressRows[0]), m_pMask, nCount, nLow, nHigh);
    uint64_t nBase = 0;
    bool bOneHigh = true;
    if (access.b64BitAddress)
    {
        uint32_t nFirst = 0;
        uint32_t nLast = 0;
        m_Lanes.pfRange(Row(access.nAddressRows[1]), m_pMask, nCount, nFirst, nLast);
        bOneHigh = nFirst == nLast;
        nBase = static_cast<uint64_t>(nFirst) << 32;
    }
    const SMemoryRange* const pRange = bOneHigh ? FindMemory(nBase + nLow) : nullptr;
    const bool bAtomic = access.eOperation == SAccess::Atomic;
    const uint64_t nTotal = bAtomic ? access.nElementBytes : TotalBytes(access);
    const bool bWrites = access.eOperation != SAccess::Load;
    if (pRange && pRange->nSize >= nTotal && nBase + nHigh - pRange->nAddress <= pRange->nSize - nTotal &&
        !(bWrites && pRange->bReadOnly) && !bAtomic)
    {
        unsigned char* const pFirst = pRange->pData + (nBase + nLow - pRange->nAddress);
        if (access.nElementBytes == 4)
            MoveWords(access, pFirst, nLow, nLow == nHigh, nullptr);
        else
            MoveNarrow(access, pFirst, nLow, nullptr);
        return;
    }
    for (uint32_t n = m_nBegin; n < std::min(m_nEnd, m_nLive); ++n)
    {
        if (!IsActive(n))
            continue;
        if (!bAtomic)
        {
            GlobalLane(step, access, n);
            continue;
        }
        // Atomics work on whole elements: the low bits of an address don't count.
        const uint64_t nAddress = Address(access, n) & ~static_cast<uint64_t>(access.nElementBytes - 1);
        const SMemoryRange* const pHome = FindMemory(nAddress);
        const bool bInside =
            pHome && pHome->nSize - (nAddress - pHome->nAddress) >= access.nElementBytes && !pHome->bReadOnly;
        GlobalAtomic(access, n, bInside ? pHome->pData + (nAddress - pHome->nAddress) : nullptr);
        if (!bInside)
            CountBad(step, n, Address(access, n), true);
    }
}

/// Where an address of a local memory id lies in the group's memory, or -1. Behind all declared areas
/// stand the local arguments, which every id reaches by the same address.
int64_t CBlock::LocalOffset(const SCode::SLocalArea& area, uint64_t nAddress, uint32_t nBytes) const
{
    if (nAddress + nBytes <= area.nBytes)
        return static_cast<int64_t>(area.nOffset + nAddress);
    if (nAddress >= m_Context.nDynamicStart && nAddress + nBytes <= m_Context.nLocalBytes)
        return static_cast<int64_t>(nAddress);
    return -1;
}

/// The addition to local words that nobody asks the old value of, all inside: histograms live on it.
void CBlock::AddWords(const SAccess& access, unsigned char* pBase, const uint32_t* pShift)
{
    const uint32_t* const pAddress = Row(access.nAddressRows[0]);
    const uint32_t* const pValue = Row(access.nValueRows[0]);
    const uint32_t* const pMask = Row(s_nMaskRow);
    for (uint32_t i = m_nBegin; i < std::min(m_nEnd, m_nLive); ++i)
    {
        if (!pMask[i])
            continue;
        unsigned char* const p = pBase + (pAddress[i] & ~3u) + (pShift ? pShift[i] : 0);
        Store32(p, Load32(p) + pValue[i]);
    }
}

void CBlock::LocalAccess(const SMicroOp& step, const SAccess& access)
{
    const SCode::SLocalArea& area = m_Code.vLocalAreas[access.nArea];
    const uint32_t* const pShift = m_Context.nGroupsPerBlock > 1 ? m_vLocalShift.data() : nullptr;
    const bool bAtomic = access.eOperation == SAccess::Atomic;
    const uint32_t nTotal = bAtomic ? access.nElementBytes : TotalBytes(access);
    if (!bAtomic || (access.eAtomic == ATOMIC_ADD && access.nElementBytes == 4 && !access.bReturns))
    {
        uint32_t nLow = 0;
        uint32_t nHigh = 0;
        m_Lanes.pfRange(Row(access.nAddressRows[0]), m_pMask, m_pMask ? m_nLiveEnd : m_nLive, nLow, nHigh);
        const int64_t nFirst = LocalOffset(area, nLow, nTotal);
        const int64_t nLast = LocalOffset(area, nHigh, nTotal);
        if (nFirst >= 0 && nLast >= 0 && nLast - nFirst == static_cast<int64_t>(nHigh) - nLow)
        {
            unsigned char* const pFirst = m_pLocal + nFirst;
            if (bAtomic)
                AddWords(access, m_pLocal + (nFirst - nLow), pShift);
            else if (access.nElementBytes == 4)
                MoveWords(access, pFirst, nLow, nLow == nHigh && !pShift, pShift);
            else
                MoveNarrow(access, pFirst, nLow, pShift);
            return;
        }
    }
    for (uint32_t n = m_nBegin; n < std::min(m_nEnd, m_nLive); ++n)
    {
        if (!IsActive(n))
            continue;
        uint64_t nAddress = Row(access.nAddressRows[0])[n];
        if (bAtomic)
            nAddress &= ~static_cast<uint64_t>(access.nElementBytes - 1);
        unsigned char* const pGroup = m_pLocal + (pShift ? pShift[n] : 0);
        if (bAtomic)
        {
            const int64_t nOffset = LocalOffset(area, nAddress, nTotal);
            LocalAtomic(access, n, nOffset < 0 ? nullptr : pGroup + nOffset);
            if (nOffset < 0)
                CountBad(step, n, nAddress, true);
            continue;
        }
        bool bBad = false;
        for (uint32_t i = 0; i < access.nWords; ++i)
        {
            const int64_t nOffset = LocalOffset(area, nAddress + i * access.nElementBytes, access.nElementBytes);
            if (nOffset >= 0)
                MoveLane(access, n, i, pGroup + nOffset);
            else if (access.eOperation == SAccess::Load)
                Row(access.nRows[i])[n] = 0;
            bBad = bBad || nOffset < 0;
        }
        if (bBad)
            CountBad(step, n, nAddress, access.eOperation != SAccess::Load);
    }
}

uint32_t CBlock::PrivateWord(const SCode::SPrivate& area, uint64_t nAddress, uint32_t nLane) const
{
    uint32_t nWord = 0;
    for (uint32_t n = 0; n < 4; ++n)
    {
        const uint64_t nByte = nAddress + n;
        if (nByte < area.nBytes)
            nWord |= ((Row(area.nRow + static_cast<uint32_t>(nByte / 4))[nLane] >> (nByte % 4 * 8)) & 0xFF) << (n * 8);
    }
    return nWord;
}

/// All active lanes at one aligned address: whole rows move.
void CBlock::PrivateUniform(const SAccess& access, const SCode::SPrivate& area, uint32_t nAddress)
{
    for (uint32_t w = 0; w < access.nWords; ++w)
    {
        SLaneRows rows;
        const uint32_t nRow = area.nRow + nAddress / 4 + w;
        rows.d[0] = access.eOperation == SAccess::Load ? access.nRows[w] : nRow;
        rows.s[0] = access.eOperation == SAccess::Load ? nRow : access.nRows[w];
        m_Lanes.pFast[LANE_Mov](m_pRows, rows, m_pMask, m_nBegin, m_nEnd);
    }
}

void CBlock::PrivateAccess(const SMicroOp& step, const SAccess& access)
{
    const SCode::SPrivate& area = m_Code.vPrivate[access.nArea];
    const uint32_t* const pAddress = Row(access.nAddressRows[0]);
    const uint32_t nTotal = TotalBytes(access);
    const bool bLoad = access.eOperation == SAccess::Load;
    uint32_t nLow = 0;
    uint32_t nHigh = 0;
    m_Lanes.pfRange(pAddress, m_pMask, m_pMask ? m_nLiveEnd : m_nLive, nLow, nHigh);
    const bool bWords = access.nElementBytes == 4;
    if (bWords && nLow == nHigh && nLow % 4 == 0 && static_cast<uint64_t>(nLow) + nTotal <= area.nBytes)
    {
        PrivateUniform(access, area, nLow);
        return;
    }
    for (uint32_t n = m_nBegin; n < std::min(m_nEnd, m_nLive); ++n)
    {
        if (!IsActive(n))
            continue;
        bool bBad = false;
        for (uint32_t i = 0; i < access.nWords; ++i)
        {
            const uint64_t nAddress = static_cast<uint64_t>(pAddress[n]) + i * access.nElementBytes;
            uint32_t& nValue = Row(access.nRows[i])[n];
            if (nAddress + access.nElementBytes > area.nBytes)
            {
                nValue = bLoad ? 0 : nValue;
                bBad = true;
                continue;
            }
            if (bLoad)
            {
                const uint32_t nWord = PrivateWord(area, nAddress, n);
                nValue = bWords ? nWord
                                : LoadNarrow(reinterpret_cast<const unsigned char*>(&nWord), access.nElementBytes,
                                             access.bSigned);
                continue;
            }
            for (uint32_t b = 0; b < access.nElementBytes; ++b)
            {
                uint32_t& nWord = Row(area.nRow + static_cast<uint32_t>((nAddress + b) / 4))[n];
                const uint32_t nShift = static_cast<uint32_t>((nAddress + b) % 4) * 8;
                nWord = (nWord & ~(0xFFu << nShift)) | (((nValue >> (b * 8)) & 0xFF) << nShift);
            }
        }
        if (bBad)
            CountBad(step, n, pAddress[n], !bLoad);
    }
}

/// True if no active lane's index, with the constant added, leaves an array of nElements.
bool CBlock::IndicesInside(const uint32_t* pIndex, uint32_t nAdd, uint32_t nElements) const
{
    uint32_t nLow = 0;
    uint32_t nHigh = 0;
    m_Lanes.pfRange(pIndex, m_pMask, m_pMask ? m_nLiveEnd : m_nLive, nLow, nHigh);
    return static_cast<uint64_t>(nHigh) + nAdd < nElements;
}

void CBlock::IndexLoad(const SMicroOp& step, const SIndexed& indexed)
{
    const uint32_t* const pIndex = Row(indexed.nIndexRow);
    uint32_t* const pResult = Row(step.rows.d[0]);
    const std::vector<uint32_t>* const pWords = indexed.bConstant ? &m_Context.vBuffers[indexed.nArray] : nullptr;
    const SCode::SArray array = pWords ? SCode::SArray() : m_Code.vArrays[indexed.nArray];
    const uint32_t nElements = pWords ? m_Code.vBuffers[indexed.nArray].nElements : array.nElements;
    if (!pWords && !m_pMask && IndicesInside(pIndex, indexed.nImmediate, nElements))
    {
        m_Lanes.pfLoadElements(pResult, m_pRows + array.nRow, pIndex, indexed.nImmediate, indexed.nComponent, m_nLive);
        return;
    }
    for (uint32_t n = m_nBegin; n < std::min(m_nEnd, m_nLive); ++n)
    {
        if (!IsActive(n))
            continue;
        const uint32_t nIndex = pIndex[n] + indexed.nImmediate;
        if (nIndex >= nElements)
        {
            pResult[n] = 0;
            CountBad(step, n, nIndex, false);
            continue;
        }
        const uint32_t nWord = nIndex * 4 + indexed.nComponent;
        if (pWords)
            pResult[n] = nWord < pWords->size() ? (*pWords)[nWord] : 0;
        else
            pResult[n] = Row(array.nRow + nWord)[n];
    }
}

void CBlock::IndexStore(const SMicroOp& step, const SIndexed& indexed)
{
    const uint32_t* const pIndex = Row(indexed.nIndexRow);
    const SCode::SArray& array = m_Code.vArrays[indexed.nArray];
    if (IndicesInside(pIndex, indexed.nImmediate, array.nElements))
    {
        for (uint32_t c = 0; c < 4; ++c)
        {
            if (step.rows.d[0] & (1u << c))
                m_Lanes.pfStoreElements(Row(step.rows.s[c]), m_pRows + array.nRow, pIndex, indexed.nImmediate, c,
                                        m_pMask, m_nLive);
        }
        return;
    }
    for (uint32_t n = m_nBegin; n < std::min(m_nEnd, m_nLive); ++n)
    {
        if (!IsActive(n))
            continue;
        const uint32_t nIndex = pIndex[n] + indexed.nImmediate;
        if (nIndex >= array.nElements)
        {
            CountBad(step, n, nIndex, true);
            continue;
        }
        for (uint32_t c = 0; c < 4; ++c)
        {
            if (step.rows.d[0] & (1u << c))
                Row(array.nRow + nIndex * 4 + c)[n] = Row(step.rows.s[c])[n];
        }
    }
}

} // namespace KestrelPlatform
