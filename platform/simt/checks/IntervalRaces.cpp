#include "platform/simt/checks/IntervalRaces.h"

#include <algorithm>
#include <cstring>

namespace KestrelPlatform
{

void CIntervalRaces::SWhoTwo::Add(const SWho& who)
{
    if (!first.IsThere())
    {
        first = who;
    }
    else if (!other.IsThere() && first.nItem != who.nItem)
    {
        other = who;
    }
}

void CIntervalRaces::Begin()
{
    m_nBase = std::max(m_nBase, m_nHighest) + 1;
    m_Words.nUsed = 0;
    m_Bytes.nUsed = 0;
    if (m_nBase < 0x80000000u)
    {
        return;
    }
    *this = CIntervalRaces();
}

/// The unit's cell, or the free one that it would take.
CIntervalRaces::SCell& CIntervalRaces::Place(STable& table, uint64_t nUnit, uint32_t nSpace) const
{
    const size_t nMask = table.vCells.size() - 1;
    size_t n = ((nUnit + nSpace * 0x100000001u) * 0x9E3779B97F4A7C15u >> 32) & nMask;
    for (;; n = (n + 1) & nMask)
    {
        SCell& cell = table.vCells[n];
        if (cell.nStamp < m_nBase || (cell.nUnit == nUnit && cell.nSpace == nSpace))
        {
            return cell;
        }
    }
}

void CIntervalRaces::Grow(STable& table) const
{
    STable larger(table.vCells.size() * 4);
    larger.nUsed = table.nUsed;
    for (const SCell& cell : table.vCells)
    {
        if (cell.nStamp >= m_nBase)
        {
            Place(larger, cell.nUnit, cell.nSpace) = cell;
        }
    }
    std::swap(table, larger);
}

CIntervalRaces::SCell& CIntervalRaces::Cell(STable& table, uint64_t nUnit, uint32_t nSpace, uint32_t nStamp) const
{
    SCell* pCell = &Place(table, nUnit, nSpace);
    if (pCell->nStamp == nStamp)
    {
        return *pCell;
    }
    const bool bNew = pCell->nStamp < m_nBase;
    if (bNew && table.nUsed * 2 > table.vCells.size())
    {
        Grow(table);
        pCell = &Place(table, nUnit, nSpace);
    }
    table.nUsed += bNew ? 1 : 0;
    *pCell = SCell();
    pCell->nUnit = nUnit;
    pCell->nSpace = nSpace;
    pCell->nStamp = nStamp;
    return *pCell;
}

void CIntervalRaces::Split(uint64_t nWord, uint32_t nSpace, uint32_t nStamp)
{
    SCell& word = Cell(m_Words, nWord, nSpace, nStamp);
    if (word.bSplit)
    {
        return;
    }
    for (uint32_t n = 0; n < 4; ++n)
    {
        SCell& byte = Cell(m_Bytes, nWord * 4 + n, nSpace, nStamp);
        byte.nValue = word.nValue >> (8 * n) & 0xFF;
        byte.writer = word.writer;
        byte.readers = word.readers;
        byte.atomics = word.atomics;
    }
    word.bSplit = true;
}

void CIntervalRaces::TouchCell(SCell& cell, const SRaceAccess& access, SIntervalRace race,
                               std::vector<SIntervalRace>& vRaces)
{
    const auto meet = [&](const SWho& who, ERaceKind eKind)
    {
        if (!who.IsThere() || who.nItem == access.nItem)
        {
            return;
        }
        race.nItem = who.nItem;
        race.nNumber = who.nNumber;
        race.eKind = eKind;
        race.bUnequal = eKind != RACE_WRITE || access.eKind != RACE_WRITE || race.nOldValue != race.nValue;
        vRaces.push_back(race);
    };
    std::memcpy(&race.nValue, access.bytes + race.nOffset, race.nBytes);
    race.nOldValue = cell.nValue;
    meet(cell.writer, RACE_WRITE);
    if (access.eKind != RACE_READ)
    {
        meet(cell.readers.Except(access.nItem), RACE_READ);
    }
    if (access.eKind != RACE_ATOMIC)
    {
        meet(cell.atomics.Except(access.nItem), RACE_ATOMIC);
    }
    const SWho who{access.nItem, access.nNumber};
    if (access.eKind == RACE_WRITE)
    {
        cell.writer = who;
        cell.nValue = race.nValue;
    }
    else
    {
        (access.eKind == RACE_READ ? cell.readers : cell.atomics).Add(who);
    }
}

void CIntervalRaces::Touch(const SRaceAccess& access, uint32_t nSpace, uint32_t nInterval,
                           std::vector<SIntervalRace>& vRaces)
{
    const uint32_t nStamp = m_nBase + nInterval;
    m_nHighest = std::max(m_nHighest, nStamp);
    const uint64_t nEnd = access.nAddress + access.nBytes;
    for (uint64_t nWord = access.nAddress / 4; nWord * 4 < nEnd; ++nWord)
    {
        const uint64_t nFirst = std::max(nWord * 4, access.nAddress);
        const uint64_t nLast = std::min(nWord * 4 + 4, nEnd);
        SIntervalRace race;
        race.nOffset = static_cast<uint32_t>(nFirst - access.nAddress);
        race.nBytes = static_cast<uint32_t>(nLast - nFirst);
        SCell& word = Cell(m_Words, nWord, nSpace, nStamp);
        if (race.nBytes == 4 && !word.bSplit)
        {
            TouchCell(word, access, race, vRaces);
            continue;
        }
        Split(nWord, nSpace, nStamp);
        race.nBytes = 1;
        for (uint64_t n = nFirst; n < nLast; ++n, ++race.nOffset)
        {
            TouchCell(Cell(m_Bytes, n, nSpace, nStamp), access, race, vRaces);
        }
    }
}

} // namespace KestrelPlatform
