#include "platform/simt/checks/IntervalRows.h"

#include <algorithm>
#include <cstring>

namespace KestrelPlatform
{

namespace
{

const size_t s_nMostRows = 4096;
const size_t s_nMostData = size_t(4) << 20;
/// How far back the same row is looked for: loops repeat theirs soon.
const size_t s_nLookBack = 32;

/// Whether each work-item touches the same place in both rows, and no other work-item touches it.
bool AreOwn(const SRaceRow& one, const SRaceRow& other)
{
    const int64_t nBytes = std::max(one.nBytes, other.nBytes);
    if (!one.bPlane || !other.bPlane || !one.plane.IsApart(one.nCount, nBytes))
    {
        return false;
    }
    const auto origin = [](const SRaceRow& row)
    { return row.plane.nFirst - static_cast<uint64_t>(row.nItem * row.plane.nStep); };
    const bool bEven = one.plane.IsEven() && other.plane.IsEven() && one.nCount > 1 && other.nCount > 1;
    return bEven ? one.plane.nStep == other.plane.nStep && origin(one) == origin(other)
                 : one.plane == other.plane && one.nItem == other.nItem && one.nCount == other.nCount;
}

/// Whether all work-items touch the same place. For a loop's reads, Extend may have added places after it.
bool IsOnePlace(const SRaceRow& row)
{
    return row.bPlane && row.plane.IsEven() && row.plane.nStep == 0;
}

} // namespace

void CIntervalRows::Begin()
{
    StartInterval(0);
}

void CIntervalRows::StartInterval(uint32_t nInterval)
{
    for (std::vector<SKept>& vKept : m_vKept)
    {
        vKept.clear();
    }
    m_vData.clear();
    m_nInterval = nInterval;
    m_bWords = false;
}

bool CIntervalRows::MayRace(const SRaceRow& row, ERaceKind eKind, const uint64_t* pAddresses) const
{
    // The addresses of a listed write don't overlap. So if both rows have the same ones, each word is one work-item's.
    const auto areSame = [&](const SKept& kept)
    {
        return !row.bPlane && !kept.row.bPlane && (row.eKind == RACE_WRITE || eKind == RACE_WRITE) &&
               kept.row.nItem == row.nItem && kept.row.nCount == row.nCount && kept.row.nBytes == row.nBytes &&
               std::memcmp(m_vData.data() + kept.nData, pAddresses, sizeof(uint64_t) * row.nCount) == 0;
    };
    return std::any_of(m_vKept[eKind].begin(), m_vKept[eKind].end(),
                       [&](const SKept& kept)
                       {
                           return kept.row.nSpace == row.nSpace && kept.row.nLow < row.nEnd &&
                                  row.nLow < kept.row.nEnd && !AreOwn(kept.row, row) && !areSame(kept);
                       });
}

CIntervalRows::SKept* CIntervalRows::FindSame(const SRaceRow& row)
{
    std::vector<SKept>& vKept = m_vKept[row.eKind];
    for (size_t n = vKept.size(); row.bPlane && n > 0 && vKept.size() - n < s_nLookBack; --n)
    {
        const SRaceRow& other = vKept[n - 1].row;
        if (other.bPlane && other.plane == row.plane && other.nBytes == row.nBytes && other.nCount == row.nCount &&
            other.nSpace == row.nSpace && other.nItem == row.nItem && other.nNumber == row.nNumber)
        {
            return &vKept[n - 1];
        }
    }
    return nullptr;
}

/// Adds a read of one place by all work-items to an earlier read that it continues, as loops make them. \return false
/// if there is none
bool CIntervalRows::Extend(const SRaceRow& row)
{
    std::vector<SKept>& vKept = m_vKept[RACE_READ];
    for (size_t n = vKept.size(); IsOnePlace(row) && n > 0 && vKept.size() - n < s_nLookBack; --n)
    {
        SRaceRow& other = vKept[n - 1].row;
        const uint64_t nOffset = row.nLow - other.nLow;
        if (IsOnePlace(other) && other.nNumber == row.nNumber && other.nSpace == row.nSpace &&
            other.nCount == row.nCount && other.nItem == row.nItem && other.nBytes == row.nBytes &&
            nOffset <= other.nEnd - other.nLow && nOffset % row.nBytes == 0)
        {
            other.nEnd = std::max(other.nEnd, row.nEnd);
            return true;
        }
    }
    return false;
}

bool CIntervalRows::Add(const SRaceRow& row, uint32_t nInterval, const unsigned char* pValues,
                        const uint64_t* pAddresses)
{
    if (nInterval != m_nInterval)
    {
        StartInterval(nInterval);
    }
    if (m_bWords)
    {
        return false;
    }
    const size_t nValues = row.eKind == RACE_WRITE ? size_t{row.nBytes} * row.nCount : 0;
    if (SKept* const pSame = FindSame(row))
    {
        // The values of the last write count.
        if (nValues != 0)
        {
            std::memcpy(m_vData.data() + pSame->nData, pValues, nValues);
        }
        std::rotate(pSame, pSame + 1, m_vKept[row.eKind].data() + m_vKept[row.eKind].size());
        return true;
    }
    const size_t nAddresses = row.bPlane ? 0 : sizeof(uint64_t) * row.nCount;
    const size_t nData = nAddresses + nValues;
    if (m_vKept[row.eKind].size() >= s_nMostRows || m_vData.size() + nData > s_nMostData ||
        (row.eKind != RACE_READ && MayRace(row, RACE_READ, pAddresses)) || MayRace(row, RACE_WRITE, pAddresses) ||
        (row.eKind != RACE_ATOMIC && MayRace(row, RACE_ATOMIC, pAddresses)))
    {
        return false;
    }
    if (row.eKind == RACE_READ && Extend(row))
    {
        return true;
    }
    m_vKept[row.eKind].push_back({row, m_vData.size()});
    if (nData != 0)
    {
        m_vData.resize(m_vData.size() + nData);
        unsigned char* const pData = m_vData.data() + m_vData.size() - nData;
        // A plane row has no addresses and a read no values: there is nothing to point at then.
        std::copy_n(reinterpret_cast<const unsigned char*>(pAddresses), nAddresses, pData);
        std::copy_n(pValues, nValues, pData + nAddresses);
    }
    return true;
}

void CIntervalRows::Replay(const SKept& kept, CIntervalRaces& words, uint32_t nInterval) const
{
    const SRaceRow& row = kept.row;
    SRaceAccess access;
    access.nBytes = row.nBytes;
    access.eKind = row.eKind;
    access.nNumber = row.nNumber;
    std::vector<SIntervalRace> vNone;
    for (uint32_t n = 0; n < row.nCount; ++n)
    {
        access.nItem = static_cast<uint16_t>(row.nItem + n);
        access.nAddress = row.plane.At(n);
        const unsigned char* const pData = m_vData.data() + kept.nData;
        if (!row.bPlane)
        {
            std::memcpy(&access.nAddress, pData + n * sizeof(uint64_t), sizeof(uint64_t));
        }
        if (row.eKind == RACE_WRITE)
        {
            std::memcpy(access.bytes, pData + (row.bPlane ? 0 : sizeof(uint64_t) * row.nCount) + n * row.nBytes,
                        row.nBytes);
        }
        const uint64_t nEnd = access.nAddress + (IsOnePlace(row) ? row.nEnd - row.nLow : row.nBytes);
        for (; access.nAddress != s_nInactive && access.nAddress < nEnd; access.nAddress += row.nBytes)
        {
            words.Touch(access, row.nSpace, nInterval, vNone);
        }
    }
}

void CIntervalRows::GoToWords(CIntervalRaces& words, uint32_t nInterval)
{
    if (nInterval != m_nInterval)
    {
        StartInterval(nInterval);
    }
    if (m_bWords)
    {
        return;
    }
    for (const std::vector<SKept>& vKept : m_vKept)
    {
        for (const SKept& kept : vKept)
        {
            Replay(kept, words, nInterval);
        }
    }
    StartInterval(nInterval);
    m_bWords = true;
}

} // namespace KestrelPlatform
