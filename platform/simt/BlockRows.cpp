#include "platform/simt/Block.h"
#include "platform/simt/Elements.h"

// Private memory and indexed arrays of registers, both of which are rows of the block.

namespace KestrelPlatform
{

/// Whether every active lane's value plus nOffset is below nEnd. Tries the OR of all values first, which is an upper
/// bound and quicker to find than the maximum.
bool CBlock::IsInside(const uint32_t* pValues, uint32_t nOffset, uint32_t nEnd) const
{
    if (static_cast<uint64_t>(AnyBits(pValues)) + nOffset < nEnd)
    {
        return true;
    }
    uint32_t nLow = 0;
    uint32_t nHigh = 0;
    m_Lanes.pfRange(pValues, m_pMask, m_nBegin, m_nLast, nLow, nHigh);
    return static_cast<uint64_t>(nHigh) + nOffset < nEnd;
}

uint32_t CBlock::PrivateWord(const SCode::SPrivate& area, uint64_t nAddress, uint32_t nLane) const
{
    uint32_t nWord = 0;
    for (uint32_t n = 0; n < 4; ++n)
    {
        const uint64_t nByte = nAddress + n;
        if (nByte < area.nBytes)
        {
            nWord |= ((Row(area.nRow + static_cast<uint32_t>(nByte / 4))[nLane] >> (nByte % 4 * 8)) & 0xFF) << (n * 8);
        }
    }
    return nWord;
}

/// Loads each lane's word from the row that begins pIndices[lane] * nScale words after the first one, all in one array.
/// If all lanes have the same index, a whole row is copied.
void CBlock::LoadRow(uint32_t nTo, uint32_t nFirstRow, const uint32_t* pIndices, uint32_t nScale)
{
    if (!m_pMask && IsSame(pIndices))
    {
        SLaneRows rows;
        rows.d[0] = ToRow(nTo);
        rows.s[0] = ToRow(nFirstRow + pIndices[m_nBegin] * nScale / s_nLanes);
        m_Lanes.pFast[LANE_Mov](m_pRows, rows, nullptr, m_nBegin, m_nEnd);
        return;
    }
    m_Lanes.pfLoadRows(Row(nTo), Row(nFirstRow), pIndices, nScale, m_pMask, m_nBegin, m_nLast);
}

void CBlock::StoreRow(uint32_t nFrom, uint32_t nFirstRow, const uint32_t* pIndices, uint32_t nScale)
{
    if (!m_pMask && IsSame(pIndices))
    {
        SLaneRows rows;
        rows.d[0] = ToRow(nFirstRow + pIndices[m_nBegin] * nScale / s_nLanes);
        rows.s[0] = ToRow(nFrom);
        m_Lanes.pFast[LANE_Mov](m_pRows, rows, nullptr, m_nBegin, m_nEnd);
        return;
    }
    m_Lanes.pfStoreRows(Row(nFrom), Row(nFirstRow), pIndices, nScale, m_pMask, m_nBegin, m_nLast);
}

void CBlock::PrivateAccess(const SMicroOp& step, const SAccess& access)
{
    const SCode::SPrivate& area = m_Code.vPrivate[access.nArea];
    const uint32_t* const pAddress = Row(access.nAddressRows[0]);
    const uint32_t nBits = access.nElementBytes == 4 ? AnyBits(pAddress) : 1;
    if (nBits % 4 == 0 && IsInside(pAddress, TotalBytes(access) - 1, area.nBytes))
    {
        for (uint32_t w = 0; w < access.nWords; ++w)
        {
            if (access.eOperation == SAccess::Load)
            {
                LoadRow(access.nRows[w], area.nRow + w, pAddress, s_nLanes / 4);
            }
            else
            {
                StoreRow(access.nRows[w], area.nRow + w, pAddress, s_nLanes / 4);
            }
        }
        return;
    }
    for (uint32_t n = m_nBegin; n < m_nLast; ++n)
    {
        if (IsActive(n))
        {
            PrivateLane(step, access, n);
        }
    }
}

void CBlock::PrivateLane(const SMicroOp& step, const SAccess& access, uint32_t nLane)
{
    const SCode::SPrivate& area = m_Code.vPrivate[access.nArea];
    const uint32_t nFirst = Row(access.nAddressRows[0])[nLane];
    const bool bLoad = access.eOperation == SAccess::Load;
    bool bBad = false;
    for (uint32_t i = 0; i < access.nWords; ++i)
    {
        const uint64_t nAddress = static_cast<uint64_t>(nFirst) + i * access.nElementBytes;
        uint32_t& nValue = Row(access.nRows[i])[nLane];
        if (nAddress + access.nElementBytes > area.nBytes)
        {
            nValue = bLoad ? 0 : nValue;
            bBad = true;
            continue;
        }
        if (bLoad)
        {
            const uint32_t nWord = PrivateWord(area, nAddress, nLane);
            nValue = access.nElementBytes == 4 ? nWord
                                               : LoadNarrow(reinterpret_cast<const unsigned char*>(&nWord),
                                                            access.nElementBytes, access.bSigned);
            continue;
        }
        for (uint32_t b = 0; b < access.nElementBytes; ++b)
        {
            uint32_t& nWord = Row(area.nRow + static_cast<uint32_t>((nAddress + b) / 4))[nLane];
            const uint32_t nShift = static_cast<uint32_t>((nAddress + b) % 4) * 8;
            nWord = (nWord & ~(0xFFu << nShift)) | (((nValue >> (b * 8)) & 0xFF) << nShift);
        }
    }
    if (bBad)
    {
        CountBad(step, nLane, nFirst, !bLoad, SBadAccess::Private, TotalBytes(access));
    }
}

void CBlock::IndexLoad(const SMicroOp& step, const SIndexed& indexed)
{
    const uint32_t* const pIndex = Row(indexed.nIndexRow);
    uint32_t* const pResult = Row(step.rows.d[0]);
    const std::vector<uint32_t>* const pWords = indexed.bConstant ? &m_Context.vBuffers[indexed.nArray] : nullptr;
    const SCode::SArray array = pWords ? SCode::SArray() : m_Code.vArrays[indexed.nArray];
    const uint32_t nElements = pWords ? m_Code.vBuffers[indexed.nArray].nElements : array.nElements;
    if (!pWords && IsInside(pIndex, indexed.nImmediate, nElements))
    {
        LoadRow(step.rows.d[0], array.Row(indexed.nImmediate, indexed.nComponent), pIndex, s_nLanes);
        return;
    }
    for (uint32_t n = m_nBegin; n < m_nLast; ++n)
    {
        if (!IsActive(n))
        {
            continue;
        }
        const uint32_t nIndex = pIndex[n] + indexed.nImmediate;
        if (nIndex >= nElements)
        {
            pResult[n] = 0;
            CountBad(step, n, nIndex, false, SBadAccess::Registers);
            continue;
        }
        const uint32_t nWord = nIndex * 4 + indexed.nComponent;
        if (pWords)
        {
            pResult[n] = nWord < pWords->size() ? (*pWords)[nWord] : 0;
        }
        else
        {
            pResult[n] = Row(array.Row(nIndex, indexed.nComponent))[n];
        }
    }
}

void CBlock::IndexStore(const SMicroOp& step, const SIndexed& indexed)
{
    const uint32_t* const pIndex = Row(indexed.nIndexRow);
    const SCode::SArray& array = m_Code.vArrays[indexed.nArray];
    const bool bInside = IsInside(pIndex, indexed.nImmediate, array.nElements);
    for (uint32_t c = 0; bInside && c < 4; ++c)
    {
        if (step.rows.d[0] & (1u << c))
        {
            StoreRow(step.rows.s[c], array.Row(indexed.nImmediate, c), pIndex, s_nLanes);
        }
    }
    for (uint32_t n = m_nBegin; !bInside && n < m_nLast; ++n)
    {
        if (!IsActive(n))
        {
            continue;
        }
        const uint32_t nIndex = pIndex[n] + indexed.nImmediate;
        if (nIndex >= array.nElements)
        {
            CountBad(step, n, nIndex, true, SBadAccess::Registers);
            continue;
        }
        for (uint32_t c = 0; c < 4; ++c)
        {
            if (step.rows.d[0] & (1u << c))
            {
                Row(array.Row(nIndex, c))[n] = Row(step.rows.s[c])[n];
            }
        }
    }
}

} // namespace KestrelPlatform
