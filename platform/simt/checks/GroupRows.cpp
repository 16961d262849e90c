#include "platform/simt/checks/GroupRows.h"

#include "platform/simt/LaneOps.h"

#include <algorithm>
#include <cstring>

namespace KestrelPlatform
{

namespace
{

const size_t s_nMostRuns = 16;

/// One piece of a plane, as a row.
SRaceRow PieceOf(const SRaceRow& row, uint32_t nPiece)
{
    const uint32_t nWidth = row.plane.GetWidth(row.nCount);
    SRaceRow piece = row;
    piece.plane = {row.plane.At(nPiece * nWidth), row.plane.nStep};
    piece.nCount = nWidth;
    piece.nLow = piece.plane.GetLow(nWidth);
    piece.nEnd = piece.plane.GetHigh(nWidth) + row.nBytes;
    piece.nItem = static_cast<uint16_t>(row.nItem + nPiece * nWidth);
    return piece;
}

} // namespace

void CGroupRows::Touch(uint32_t nRange, const SRaceRow& row, uint64_t nGroup, const unsigned char* pValues,
                       const uint64_t* pAddresses)
{
    if (row.bPlane)
    {
        TouchPlane(nRange, row, nGroup, pValues);
    }
    else
    {
        TouchListed(nRange, row, nGroup, pValues, pAddresses);
    }
}

/// If all pieces touch the same words, the first piece is enough, as it has the lowest work-items.
void CGroupRows::TouchPlane(uint32_t nRange, SRaceRow row, uint64_t nGroup, const unsigned char* pValues)
{
    if (!row.plane.IsEven() && row.plane.nPieceStep == 0)
    {
        row = PieceOf(row, 0);
    }
    const uint32_t nWidth = row.plane.GetWidth(row.nCount);
    const int64_t nBytes = row.nBytes;
    if (row.plane.nStep == 0 && row.eKind != RACE_WRITE && nBytes % 4 == 0)
    {
        return AddRun(nRange, row, nGroup);
    }
    if (row.plane.nStep == 0 || (row.plane.nStep >= nBytes && row.plane.nStep <= CGroupRaces::s_nMostStep))
    {
        for (uint32_t n = 0; n < row.plane.GetPieces(row.nCount); ++n)
        {
            const size_t nValues = size_t{n} * nWidth * row.nBytes;
            m_Groups.TouchRow(nRange, PieceOf(row, n), nGroup, pValues ? pValues + nValues : nullptr);
        }
        return;
    }
    for (uint32_t n = 0; n < row.nCount; ++n)
    {
        AddWord(row, n, row.plane.At(n), nGroup, pValues);
    }
    TouchWords(nRange);
}

void CGroupRows::TouchListed(uint32_t nRange, const SRaceRow& row, uint64_t nGroup, const unsigned char* pValues,
                             const uint64_t* pAddresses)
{
    m_vPieces.clear();
    for (uint32_t n = 0; n < row.nCount;)
    {
        const uint32_t nPiece = TouchPiece(nRange, row, n, nGroup, pValues, pAddresses);
        if (nPiece == 0 && pAddresses[n] != CIntervalRows::s_nInactive &&
            (n == 0 || pAddresses[n] != pAddresses[n - 1]))
        {
            AddWord(row, n, pAddresses[n], nGroup, pValues);
        }
        n += std::max(nPiece, 1u);
    }
    TouchWords(nRange);
}

/// Hands on a part of a listed row without gaps, unless an earlier part has touched the same bytes.
/// \return how many work-items the part has; 0 if none begins at the lane
uint32_t CGroupRows::TouchPiece(uint32_t nRange, const SRaceRow& row, uint32_t nLane, uint64_t nGroup,
                                const unsigned char* pValues, const uint64_t* pAddresses)
{
    const uint32_t nEnd = std::min(nLane + s_nGranule, row.nCount);
    const uint64_t nFirst = pAddresses[nLane];
    if (nLane % s_nGranule != 0 || nEnd - nLane < 2 || nFirst == CIntervalRows::s_nInactive)
    {
        return 0;
    }
    for (uint32_t n = nLane + 1; n < nEnd; ++n)
    {
        if (pAddresses[n] != nFirst + uint64_t{row.nBytes} * (n - nLane))
        {
            return 0;
        }
    }
    if (std::find(m_vPieces.begin(), m_vPieces.end(), nFirst) == m_vPieces.end())
    {
        SRaceRow piece = row;
        piece.bPlane = true;
        piece.plane = {nFirst, static_cast<int64_t>(row.nBytes)};
        piece.nCount = nEnd - nLane;
        piece.nLow = nFirst;
        piece.nEnd = nFirst + uint64_t{row.nBytes} * piece.nCount;
        piece.nItem = static_cast<uint16_t>(row.nItem + nLane);
        m_Groups.TouchRow(nRange, piece, nGroup, pValues ? pValues + size_t{nLane} * row.nBytes : nullptr);
        m_vPieces.push_back(nFirst);
    }
    return nEnd - nLane;
}

void CGroupRows::AddWord(const SRaceRow& row, uint32_t nLane, uint64_t nAddress, uint64_t nGroup,
                         const unsigned char* pValues)
{
    SRaceAccess race;
    race.nAddress = nAddress;
    race.nBytes = row.nBytes;
    race.eKind = row.eKind;
    race.nItem = static_cast<uint16_t>(row.nItem + nLane);
    race.nNumber = row.nNumber;
    race.nGroup = nGroup;
    if (row.eKind == RACE_WRITE)
    {
        std::memcpy(race.bytes, pValues + size_t{nLane} * row.nBytes, row.nBytes);
    }
    m_vWords.push_back(race);
}

void CGroupRows::TouchWords(uint32_t nRange)
{
    m_Groups.Touch(nRange, m_vWords.data(), static_cast<uint32_t>(m_vWords.size()));
    m_vWords.clear();
}

/// Adds a row, each piece of which is one place, to a run that contains these places or ends just before them. If there
/// is none, the row begins a run.
void CGroupRows::AddRun(uint32_t nRange, const SRaceRow& row, uint64_t nGroup)
{
    const auto isSame = [&](const SRun& run)
    { return run.row.nNumber == row.nNumber && run.nGroup == nGroup && run.nRange == nRange; };
    const auto it = std::find_if(m_vRuns.begin(), m_vRuns.end(), isSame);
    if (it == m_vRuns.end())
    {
        if (m_vRuns.size() == s_nMostRuns)
        {
            Flush();
        }
        m_vRuns.push_back({row, nRange, nGroup, row.nBytes});
        return;
    }
    const uint64_t nOffset = row.plane.nFirst - it->row.plane.nFirst;
    if (nOffset <= it->nWide && row.plane.nPieceStep == it->row.plane.nPieceStep &&
        row.plane.nShift == it->row.plane.nShift && row.nCount == it->row.nCount && row.nItem == it->row.nItem)
    {
        it->nWide = std::max(it->nWide, nOffset + row.nBytes);
        return;
    }
    FlushRun(*it);
    *it = {row, nRange, nGroup, row.nBytes};
}

void CGroupRows::FlushRun(const SRun& run)
{
    for (uint32_t n = 0; n < run.row.plane.GetPieces(run.row.nCount); ++n)
    {
        SRaceRow piece = PieceOf(run.row, n);
        piece.nEnd = piece.nLow + run.nWide;
        m_Groups.TouchRow(run.nRange, piece, run.nGroup, nullptr);
    }
}

void CGroupRows::Flush()
{
    for (const SRun& run : m_vRuns)
    {
        FlushRun(run);
    }
    m_vRuns.clear();
}

} // namespace KestrelPlatform
