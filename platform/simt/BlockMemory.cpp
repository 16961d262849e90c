#include "platform/simt/Block.h"
#include "platform/simt/Elements.h"

#include <algorithm>
#include <cstring>

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

template <class T>
void LoadElements(uint32_t* pLanes, const unsigned char* pData, uint32_t nCount)
{
    for (uint32_t n = 0; n < nCount; ++n)
    {
        T element = 0;
        std::memcpy(&element, pData + n * sizeof element, sizeof element);
        // Signed elements are sign-extended.
        pLanes[n] = static_cast<uint32_t>(int32_t{element});
    }
}

template <class T>
void StoreElements(const uint32_t* pLanes, unsigned char* pData, uint32_t nCount)
{
    for (uint32_t n = 0; n < nCount; ++n)
    {
        const T element = static_cast<T>(pLanes[n]);
        std::memcpy(pData + n * sizeof element, &element, sizeof element);
    }
}

/// Moves consecutive bytes or half-words.
void MoveNarrowSequence(const SAccess& access, uint32_t* pLanes, unsigned char* pData, uint32_t nCount)
{
    const bool bByte = access.nElementBytes == 1;
    if (access.eOperation == SAccess::Store)
    {
        (bByte ? StoreElements<uint8_t> : StoreElements<uint16_t>)(pLanes, pData, nCount);
    }
    else if (access.bSigned)
    {
        (bByte ? LoadElements<int8_t> : LoadElements<int16_t>)(pLanes, pData, nCount);
    }
    else
    {
        (bByte ? LoadElements<uint8_t> : LoadElements<uint16_t>)(pLanes, pData, nCount);
    }
}

/// Prefetches the memory after a piece: the thread's next group continues there, but too much later for the hardware
/// prefetcher to notice. A prefetch of an invalid address does no harm.
void PrefetchAfter(const unsigned char* pData, uint32_t nBytes)
{
    const uintptr_t nNext = reinterpret_cast<uintptr_t>(pData) + nBytes;
    for (uint32_t n = 0; n < nBytes; n += 64)
    {
        __builtin_prefetch(reinterpret_cast<const void*>(nNext + n));
    }
}

} // namespace

void CBlock::CountBad(const SMicroOp& step, uint32_t nLane, uint64_t nAddress, bool bWrite, SBadAccess::EMemory eMemory,
                      uint32_t nBytes, bool bReadOnly)
{
    m_Context.CountBadAccess({step.nInstruction, GetWorkItem(nLane), nAddress, bWrite, eMemory, nBytes, bReadOnly});
}

/// The range that contains the address, or null. Tries the last result first.
const SMemoryRange* CBlock::FindMemory(uint64_t nAddress)
{
    const std::vector<SMemoryRange>& vMemory = m_Context.launch.vMemory;
    const auto holds = [nAddress](const SMemoryRange& range)
    { return nAddress >= range.nAddress && nAddress - range.nAddress < range.nSize; };
    if (m_nLastRange < vMemory.size() && holds(vMemory[m_nLastRange]))
    {
        return &vMemory[m_nLastRange];
    }
    auto it = std::upper_bound(vMemory.begin(), vMemory.end(), nAddress,
                               [](uint64_t n, const SMemoryRange& range) { return n < range.nAddress; });
    if (it == vMemory.begin() || !holds(*--it))
    {
        return nullptr;
    }
    m_nLastRange = static_cast<size_t>(it - vMemory.begin());
    return &*it;
}

void CBlock::Access(const SMicroOp& step, const SAccess& access)
{
    switch (access.eSpace)
    {
    case SAccess::Global:
        if (!access.bUniform)
        {
            GlobalAccess(step, access);
        }
        else if (!UniformLoad(access))
        {
            UniformAccess(step, access);
        }
        break;
    case SAccess::Local:
        LocalAccess(step, access);
        break;
    default:
        PrivateAccess(step, access);
        break;
    }
}

bool CBlock::IsSame(const uint32_t* pValues) const
{
    uint32_t nLow = 0;
    uint32_t nHigh = 0;
    if (!m_pMask)
    {
        return m_Lanes.pfIsSequence(pValues, m_nBegin, m_nLast, 0);
    }
    m_Lanes.pfRange(pValues, m_pMask, m_nBegin, m_nLast, nLow, nHigh);
    return nLow == nHigh;
}

uint32_t CBlock::AnyBits(const uint32_t* pValues) const
{
    return m_Lanes.pfAnyBits(pValues, m_pMask, m_nBegin, m_nLast);
}

CBlock::SOffsets CBlock::Offsets(const uint32_t* pAddresses, uint32_t nStride) const
{
    SOffsets offsets;
    offsets.pAddresses = pAddresses;
    if (!m_pMask)
    {
        offsets.nLow = pAddresses[m_nBegin];
        offsets.nHigh = pAddresses[m_nLast - 1];
        offsets.bSequence =
            offsets.nLow < offsets.nHigh && m_Lanes.pfIsSequence(pAddresses, m_nBegin, m_nLast, nStride);
        if (offsets.bSequence || (offsets.nLow == offsets.nHigh && IsSame(pAddresses)))
        {
            return offsets;
        }
    }
    m_Lanes.pfRange(pAddresses, m_pMask, m_nBegin, m_nLast, offsets.nLow, offsets.nHigh);
    return offsets;
}

/// The words of all lanes are consecutive in memory.
void CBlock::MoveSequence(const SAccess& access, unsigned char* pMemory)
{
    const bool bLoad = access.eOperation == SAccess::Load;
    const bool bGlobal = access.eSpace == SAccess::Global;
    const uint32_t nBytes = (m_nLast - m_nBegin) * TotalBytes(access);
    if (access.nWords == 1)
    {
        unsigned char* const pLanes = reinterpret_cast<unsigned char*>(Row(access.nRows[0]) + m_nBegin);
        std::memcpy(bLoad ? pLanes : pMemory, bLoad ? pMemory : pLanes, nBytes);
    }
    else
    {
        uint32_t* rows[4] = {};
        for (uint32_t w = 0; w < access.nWords; ++w)
        {
            rows[w] = Row(access.nRows[w]);
        }
        if (bLoad)
        {
            m_Lanes.pfSeparate(rows, access.nWords, pMemory, m_nBegin, m_nLast);
        }
        else if (bGlobal)
        {
            StoreTogether(rows, access.nWords, pMemory, nBytes);
            return;
        }
        else
        {
            m_Lanes.pfInterleave(rows, access.nWords, pMemory, m_nBegin, m_nLast);
        }
    }
    if (bGlobal)
    {
        PrefetchAfter(pMemory, nBytes);
    }
}

/// Stores the words of several rows to global memory in one copy. For a copy of this size, many processors skip
/// fetching the cache lines that it overwrites, which single stores always do, often from another core. For the same
/// reason the memory after it isn't prefetched.
void CBlock::StoreTogether(const uint32_t* const* ppRows, uint32_t nRows, unsigned char* pMemory, uint32_t nBytes)
{
    alignas(64) unsigned char buffer[s_nLanes * sizeof(uint32_t) * 4];
    m_Lanes.pfInterleave(ppRows, nRows, buffer, m_nBegin, m_nLast);
    std::memcpy(pMemory, buffer, nBytes);
}

/// Moves consecutive words of all active lanes, all within memory; pBase corresponds to the lowest address.
void CBlock::MoveWords(const SAccess& access, unsigned char* pBase, const SOffsets& offsets)
{
    const bool bLoad = access.eOperation == SAccess::Load;
    if (offsets.bSequence)
    {
        MoveSequence(access, pBase);
        return;
    }
    for (uint32_t w = 0; w < access.nWords; ++w)
    {
        uint32_t* const pRow = Row(access.nRows[w]);
        unsigned char* const pWord = pBase + w * 4;
        if (bLoad && !m_pMask && offsets.nLow == offsets.nHigh)
        {
            m_Lanes.pfFill(pRow, Load32(pWord), m_nBegin, m_nLast);
        }
        else if (bLoad)
        {
            m_Lanes.pfGather(pRow, pWord, offsets.pAddresses, offsets.nLow, offsets.nScale, m_pMask, m_nBegin, m_nLast);
        }
        else
        {
            m_Lanes.pfScatter(pRow, pWord, offsets.pAddresses, offsets.nLow, m_pMask, m_nBegin, m_nLast);
        }
    }
}

void CBlock::MoveNarrow(const SAccess& access, unsigned char* pBase, const SOffsets& offsets)
{
    if (offsets.bSequence)
    {
        MoveNarrowSequence(access, Row(access.nRows[0]) + m_nBegin, pBase, m_nLast - m_nBegin);
        return;
    }
    for (uint32_t i = m_nBegin; i < m_nLast; ++i)
    {
        if (IsActive(i))
        {
            MoveLane(access, i, 0, pBase + (offsets.pAddresses[i] - offsets.nLow));
        }
    }
}

/// Moves one element of one lane; its memory is known to exist.
void CBlock::MoveLane(const SAccess& access, uint32_t nLane, uint32_t nElement, unsigned char* pData)
{
    uint32_t& nValue = Row(access.nRows[nElement])[nLane];
    const bool bLoad = access.eOperation == SAccess::Load;
    if (access.nElementBytes == 4)
    {
        if (bLoad)
        {
            nValue = Load32(pData);
        }
        else
        {
            Store32(pData, nValue);
        }
        return;
    }
    if (bLoad)
    {
        nValue = LoadNarrow(pData, access.nElementBytes, access.bSigned);
    }
    else
    {
        std::memcpy(pData, &nValue, access.nElementBytes);
    }
}

/// Handles one lane of an access that isn't entirely within one memory object.
void CBlock::GlobalLane(const SMicroOp& step, const SAccess& access, uint32_t nLane)
{
    const bool bAtomic = access.eOperation == SAccess::Atomic;
    const bool bLoad = access.eOperation == SAccess::Load;
    // Atomics work on whole elements, so the low bits of an address are ignored.
    const uint64_t nIgnored = bAtomic ? access.nElementBytes - 1 : 0;
    const uint64_t nAddress = Address(access, nLane) & ~nIgnored;
    const uint32_t nElements = bAtomic ? 1 : access.nWords;
    bool bBad = false;
    bool bReadOnly = false;
    uint64_t nBadAddress = 0;
    for (uint32_t n = 0; n < nElements; ++n)
    {
        uint64_t nElement = nAddress + n * access.nElementBytes;
        if (!access.b64BitAddress)
        {
            nElement &= 0xFFFFFFFFu;
        }
        const SMemoryRange* const pRange = FindMemory(nElement);
        const bool bInside = pRange && pRange->nSize - (nElement - pRange->nAddress) >= access.nElementBytes &&
                             (bLoad || !pRange->bReadOnly);
        unsigned char* const pData = bInside ? pRange->pData + (nElement - pRange->nAddress) : nullptr;
        if (bAtomic)
        {
            GlobalAtomic(access, nLane, pData);
        }
        else if (bInside)
        {
            MoveLane(access, nLane, n, pData);
        }
        else if (bLoad)
        {
            Row(access.nRows[n])[nLane] = 0;
        }
        if (bInside)
        {
            continue;
        }
        nBadAddress = bBad ? nBadAddress : (bAtomic ? Address(access, nLane) : nElement);
        bReadOnly = bBad ? bReadOnly : pRange && pRange->bReadOnly && !bLoad;
        bBad = true;
    }
    if (bBad)
    {
        CountBad(step, nLane, nBadAddress, !bLoad, SBadAccess::Global, access.nElementBytes, bReadOnly);
    }
}

/// The memory at the lowest address, if all lanes' elements are within one memory object; else null.
unsigned char* CBlock::GlobalMemory(const SAccess& access, SOffsets& offsets)
{
    offsets = Offsets(Row(access.nAddressRows[0]), LaneBytes(access));
    uint64_t nBase = 0;
    if (access.b64BitAddress)
    {
        const uint32_t* const pHigh = Row(access.nAddressRows[1]);
        if (!IsSame(pHigh))
        {
            return nullptr;
        }
        uint32_t nLane = m_nBegin;
        while (!IsActive(nLane))
        {
            ++nLane;
        }
        nBase = static_cast<uint64_t>(pHigh[nLane]) << 32;
    }
    return MemoryOf(access, nBase + offsets.nLow, offsets.nHigh - offsets.nLow);
}

/// The memory at nLow, if an object contains the whole access, whose highest address is nLow + nSpread.
unsigned char* CBlock::MemoryOf(const SAccess& access, uint64_t nLow, uint64_t nSpread)
{
    const SMemoryRange* const pRange = FindMemory(nLow);
    const uint64_t nTotal = LaneBytes(access);
    if (!pRange || (access.eOperation != SAccess::Load && pRange->bReadOnly))
    {
        return nullptr;
    }
    const uint64_t nLeft = pRange->nSize - (nLow - pRange->nAddress);
    return nLeft >= nTotal && nSpread <= nLeft - nTotal ? pRange->pData + (nLow - pRange->nAddress) : nullptr;
}

/// Like GlobalMemory, for a scaled access.
unsigned char* CBlock::ScaledMemory(const SAccess& access, SOffsets& offsets)
{
    const uint32_t* const pIndices = Row(access.nIndexRow);
    const uint32_t nScale = Row(access.nScaleRow)[0];
    const uint32_t nTotal = LaneBytes(access);
    const bool bAtomic = access.eOperation == SAccess::Atomic;
    if (!access.bSameIndex)
    {
        m_Index = Offsets(pIndices, 1);
        m_nScaledBy = s_nNotScaled;
    }
    offsets = m_Index;
    // Negative offsets, and offsets that aren't a multiple of an atomic's size, need whole addresses.
    if ((access.bIndexSigned && (offsets.nHigh | nScale) > 0x7FFFFFFFu) || (bAtomic && nScale % nTotal != 0))
    {
        return nullptr;
    }
    const uint64_t nBase = Row(access.nBaseRows[0])[0] | static_cast<uint64_t>(Row(access.nBaseRows[1])[0]) << 32;
    const uint64_t nLow = nBase + static_cast<uint64_t>(offsets.nLow) * nScale;
    const uint64_t nSpread = static_cast<uint64_t>(offsets.nHigh - offsets.nLow) * nScale;
    unsigned char* const pBase = MemoryOf(access, nLow, nSpread);
    if (!pBase || nSpread > 0xFFFFFFFFu || (bAtomic && nLow % nTotal != 0))
    {
        return nullptr;
    }
    const bool bWords = access.nElementBytes == 4 && !bAtomic;
    offsets.bSequence = offsets.bSequence && nScale == nTotal;
    const bool bLoad = access.eOperation == SAccess::Load && !m_pMask;
    const bool bOne = bLoad && offsets.nLow == offsets.nHigh;
    if (bWords && bLoad && !offsets.bSequence && !bOne && access.nWords == 1)
    {
        offsets.nScale = nScale;
        offsets.nHigh = offsets.nLow + static_cast<uint32_t>(nSpread);
        return pBase;
    }
    if ((!bWords || !(offsets.bSequence || bOne)) && nScale != m_nScaledBy)
    {
        m_Lanes.pfScale(m_Scaled.w, pIndices, offsets.nLow, nScale, m_nBegin, m_nLast);
        m_nScaledBy = nScale;
    }
    offsets.pAddresses = m_Scaled.w;
    offsets.nLow = 0;
    offsets.nHigh = static_cast<uint32_t>(nSpread);
    return pBase;
}

/// Computes the addresses of a scaled access, like the step that it replaces.
void CBlock::FindAddresses(const SAccess& access)
{
    SLaneRows rows;
    for (uint32_t n = 0; n < 2; ++n)
    {
        rows.d[n] = static_cast<uint16_t>(access.nAddressRows[n]);
        rows.s[4 + n] = static_cast<uint16_t>(access.nBaseRows[n]);
    }
    rows.s[0] = static_cast<uint16_t>(access.nIndexRow);
    rows.s[2] = static_cast<uint16_t>(access.nScaleRow);
    const uint32_t nOp = access.bIndexSigned ? LANE_IL_OP_MAD_I64_I32 : LANE_IL_OP_MAD_U64_U32;
    m_Lanes.pFast[nOp](m_pRows, rows, m_pMask, m_nBegin, m_nEnd);
}

void CBlock::GlobalAccess(const SMicroOp& step, const SAccess& access)
{
    SOffsets offsets;
    unsigned char* pBase = access.bScaled ? ScaledMemory(access, offsets) : GlobalMemory(access, offsets);
    if (access.bScaled && !pBase)
    {
        FindAddresses(access);
        pBase = GlobalMemory(access, offsets);
    }
    const bool bAtomic = access.eOperation == SAccess::Atomic;
    const bool bAligned = !bAtomic || (AnyBits(offsets.pAddresses) & (access.nElementBytes - 1u)) == 0;
    if (pBase && bAligned)
    {
        if (bAtomic)
        {
            AtomicWords(access, pBase, offsets);
            return;
        }
        if (m_Pending.Meets(pBase, static_cast<uint64_t>(offsets.nHigh - offsets.nLow) + TotalBytes(access)))
        {
            m_Pending.Flush();
        }
        if (access.nElementBytes == 4)
        {
            MoveWords(access, pBase, offsets);
        }
        else
        {
            MoveNarrow(access, pBase, offsets);
        }
        return;
    }
    m_Pending.Flush();
    for (uint32_t n = m_nBegin; n < m_nLast; ++n)
    {
        if (IsActive(n))
        {
            GlobalLane(step, access, n);
        }
    }
}

/// Loads one element into each word, for all work-items at once. \return false if it isn't within memory
bool CBlock::UniformLoad(const SAccess& access)
{
    const uint64_t nHigh = access.b64BitAddress ? Row(access.nAddressRows[1])[0] : 0;
    const unsigned char* const pData = MemoryOf(access, nHigh << 32 | Row(access.nAddressRows[0])[0], 0);
    if (!pData)
    {
        return false;
    }
    if (m_Pending.Meets(pData, TotalBytes(access)))
    {
        m_Pending.Flush();
    }
    for (uint32_t w = 0; w < access.nWords; ++w)
    {
        uint32_t* const pRow = Row(access.nRows[w]);
        const uint32_t nValue =
            access.nElementBytes == 4 ? Load32(pData + w * 4) : LoadNarrow(pData, access.nElementBytes, access.bSigned);
        if (access.nUniformWords & (1u << w))
        {
            m_Lanes.pfFill(pRow, nValue, 0, s_nLanes);
        }
        else if (!m_pMask)
        {
            m_Lanes.pfFill(pRow, nValue, m_nBegin, m_nLast);
        }
        else
        {
            for (uint32_t n = m_nBegin; n < m_nLast; ++n)
            {
                pRow[n] = (nValue & m_pMask[n]) | (pRow[n] & ~m_pMask[n]);
            }
        }
    }
    return true;
}

/// The same for each work-item, so that faults are reported for each.
void CBlock::UniformAccess(const SMicroOp& step, const SAccess& access)
{
    for (const uint32_t nRow : access.nAddressRows)
    {
        if (nRow != s_nMaskRow)
        {
            m_Lanes.pfFill(Row(nRow), Row(nRow)[0], 0, s_nLanes);
        }
    }
    GlobalAccess(step, access);
    uint32_t nFirst = m_nBegin;
    while (!IsActive(nFirst))
    {
        ++nFirst;
    }
    for (uint32_t w = 0; w < access.nWords; ++w)
    {
        if (access.nUniformWords & (1u << w))
        {
            m_Lanes.pfFill(Row(access.nRows[w]), Row(access.nRows[w])[nFirst], 0, s_nLanes);
        }
    }
}

} // namespace KestrelPlatform
