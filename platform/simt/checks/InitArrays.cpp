// Arrays of registers and private memory, which rows hold element by element.

#include "platform/simt/Block.h"
#include "platform/simt/Elements.h"
#include "platform/simt/checks/InitRecorder.h"

#include <algorithm>
#include <cstring>

namespace KestrelPlatform
{

/// Whether no element that the active work-items' indices may choose has anything unwritten in a component.
bool CInitRecorder::AreElementsClean(const CBlock& block, const SIndexed& indexed, uint32_t nComponent) const
{
    const SCode::SArray& array = m_Context.code.vArrays[indexed.nArray];
    uint32_t nLow = 0;
    uint32_t nHigh = 0;
    m_Context.lanes.pfRange(block.Row(indexed.nIndexRow), block.Mask(), block.GetFirstLane(), block.GetEndLane(), nLow,
                            nHigh);
    // An index that leaves the range of its numbers comes out again among the first elements.
    const bool bTurns = uint64_t{nHigh} + indexed.nImmediate > ~0u;
    const uint32_t nFirst = bTurns ? 0 : nLow + indexed.nImmediate;
    const uint64_t nEnd = bTurns ? array.nElements : uint64_t{nHigh} + indexed.nImmediate + 1;
    for (uint64_t n = nFirst; n < std::min<uint64_t>(nEnd, array.nElements); ++n)
    {
        if (m_Rows.IsDirty(array.Row(static_cast<uint32_t>(n), nComponent)))
        {
            return false;
        }
    }
    return true;
}

void CInitRecorder::LoadIndexed(const CBlock& block, const SMicroOp& step)
{
    const SIndexed& indexed = m_Context.code.vIndexed[step.nAux];
    const uint32_t nTo = step.rows.d[0];
    Demand(block, step, indexed.nIndexRow, PLATFORM_FAULT_ADDRESS);
    if (indexed.bConstant)
    {
        m_Rows.Clear(block, nTo);
        return;
    }
    const SCode::SArray& array = m_Context.code.vArrays[indexed.nArray];
    if (AreElementsClean(block, indexed, indexed.nComponent))
    {
        m_Rows.Clear(block, nTo);
        return;
    }
    uint32_t nFrom = step.nInstruction;
    uint32_t* const pTo = m_Rows.Change(nTo);
    for (uint32_t n = block.GetFirstLane(); n < block.GetEndLane(); ++n)
    {
        if (!block.IsActive(n))
        {
            continue;
        }
        const uint32_t nIndex = block.Row(indexed.nIndexRow)[n] + indexed.nImmediate;
        const uint32_t nRow = nIndex < array.nElements ? array.Row(nIndex, indexed.nComponent) : s_nZeroRow;
        pTo[n] = nIndex < array.nElements ? m_Rows.Row(nRow)[n] : 0;
        nFrom = pTo[n] != 0 && m_Rows.GetFrom(nRow) != ~0u ? m_Rows.GetFrom(nRow) : nFrom;
    }
    m_Rows.Settle(nTo, nFrom);
}

void CInitRecorder::StoreIndexed(const CBlock& block, const SMicroOp& step)
{
    const SIndexed& indexed = m_Context.code.vIndexed[step.nAux];
    const SCode::SArray& array = m_Context.code.vArrays[indexed.nArray];
    Demand(block, step, indexed.nIndexRow, PLATFORM_FAULT_ADDRESS);
    for (uint32_t c = 0; c < 4; ++c)
    {
        const uint32_t nSource = step.rows.s[c];
        if ((nSource <= s_nZeroRow || !m_Rows.IsDirty(nSource)) && AreElementsClean(block, indexed, c))
        {
            continue;
        }
        for (uint32_t n = block.GetFirstLane(); (step.rows.d[0] & (1u << c)) && n < block.GetEndLane(); ++n)
        {
            const uint32_t nIndex = block.Row(indexed.nIndexRow)[n] + indexed.nImmediate;
            if (!block.IsActive(n) || nIndex >= array.nElements)
            {
                continue;
            }
            const uint32_t nShadow = nSource > s_nZeroRow ? m_Rows.Row(nSource)[n] : 0;
            const uint32_t nRow = array.Row(nIndex, c);
            if (nShadow == m_Rows.Row(nRow)[n])
            {
                continue;
            }
            m_Rows.Change(nRow)[n] = nShadow;
            m_Rows.Settle(nRow, nShadow ? m_Rows.GetFrom(nSource) : m_Rows.GetFrom(nRow));
        }
    }
}

uint32_t CInitRecorder::StoredShadow(const SAccess& access, uint32_t nWord, uint32_t nLane) const
{
    const uint32_t nRow = access.nRows[nWord];
    return nRow > s_nZeroRow ? m_Rows.Row(nRow)[nLane] : 0;
}

/// Whether neither what is moved nor where it goes has anything unwritten.
bool CInitRecorder::ArePrivateClean(const CBlock& block, const SAccess& access) const
{
    for (uint32_t w = 0; w < access.nWords; ++w)
    {
        if (access.nRows[w] > s_nZeroRow && m_Rows.IsDirty(access.nRows[w]))
        {
            return false;
        }
    }
    const SCode::SPrivate& area = m_Context.code.vPrivate[access.nArea];
    uint32_t nLow = 0;
    uint32_t nHigh = 0;
    m_Context.lanes.pfRange(block.Row(access.nAddressRows[0]), block.Mask(), block.GetFirstLane(), block.GetEndLane(),
                            nLow, nHigh);
    const uint64_t nEnd = std::min<uint64_t>(uint64_t{nHigh} + TotalBytes(access), area.nBytes);
    for (uint64_t nWord = nLow / 4; nWord * 4 < nEnd; ++nWord)
    {
        if (m_Rows.IsDirty(area.nRow + static_cast<uint32_t>(nWord)))
        {
            return false;
        }
    }
    return true;
}

/// Whole words that are the same for all work-items, all of which are active. \return false for anything else
bool CInitRecorder::MovePrivateRows(const CBlock& block, const SMicroOp& step, const SAccess& access)
{
    const SCode::SPrivate& area = m_Context.code.vPrivate[access.nArea];
    const uint32_t* const pAddresses = block.Row(access.nAddressRows[0]);
    const uint64_t nAddress = pAddresses[0];
    if (block.GetActive() != block.GetLive() || access.nElementBytes != 4 || nAddress % 4 != 0 ||
        nAddress + TotalBytes(access) > area.nBytes ||
        !m_Context.lanes.pfIsSequence(pAddresses, 0, block.GetEndLane(), 0))
    {
        return false;
    }
    for (uint32_t w = 0; w < access.nWords; ++w)
    {
        const uint32_t nPrivate = area.nRow + static_cast<uint32_t>(nAddress / 4) + w;
        const bool bLoad = access.eOperation == SAccess::Load;
        const uint32_t nFromRow = bLoad ? nPrivate : access.nRows[w];
        const uint32_t nTo = bLoad ? access.nRows[w] : nPrivate;
        if (nTo <= s_nZeroRow)
        {
            continue;
        }
        if (nFromRow <= s_nZeroRow || !m_Rows.IsDirty(nFromRow))
        {
            m_Rows.Clear(nTo);
            continue;
        }
        const uint32_t nFrom = m_Rows.GetFrom(nFromRow);
        std::memcpy(m_Rows.Change(nTo), m_Rows.Row(nFromRow), sizeof(SLaneRow));
        m_Rows.Settle(nTo, bLoad && nFrom == ~0u ? step.nInstruction : nFrom);
    }
    return true;
}

/// Rows hold private memory, by word.
void CInitRecorder::MovePrivate(const CBlock& block, const SMicroOp& step, const SAccess& access)
{
    const SCode::SPrivate& area = m_Context.code.vPrivate[access.nArea];
    const bool bLoad = access.eOperation == SAccess::Load;
    if (!m_Rows.IsAny() || ArePrivateClean(block, access) || MovePrivateRows(block, step, access))
    {
        return;
    }
    for (uint32_t w = 0; w < access.nWords; ++w)
    {
        uint32_t nFrom = step.nInstruction;
        for (uint32_t n = block.GetFirstLane(); n < block.GetEndLane(); ++n)
        {
            const uint64_t nAddress = block.Row(access.nAddressRows[0])[n] + uint64_t(w) * access.nElementBytes;
            if (!block.IsActive(n) || nAddress + access.nElementBytes > area.nBytes)
            {
                continue;
            }
            uint32_t nLoaded = 0;
            for (uint32_t b = 0; b < access.nElementBytes; ++b)
            {
                const uint32_t nRow = area.nRow + static_cast<uint32_t>((nAddress + b) / 4);
                const uint32_t nShift = static_cast<uint32_t>((nAddress + b) % 4) * 8;
                const uint32_t nHere = m_Rows.Row(nRow)[n] >> nShift & 0xFF;
                const uint32_t nValue = StoredShadow(access, w, n) >> (8 * b) & 0xFF;
                nLoaded |= nHere << (8 * b);
                if (bLoad && nHere != 0 && m_Rows.GetFrom(nRow) != ~0u)
                {
                    nFrom = m_Rows.GetFrom(nRow);
                }
                if (bLoad || nHere == nValue)
                {
                    continue;
                }
                uint32_t* const pRow = m_Rows.Change(nRow);
                pRow[n] = (pRow[n] & ~(0xFFu << nShift)) | nValue << nShift;
                m_Rows.Settle(nRow, nValue ? m_Rows.GetFrom(access.nRows[w]) : m_Rows.GetFrom(nRow));
            }
            if (bLoad && nLoaded != m_Rows.Row(access.nRows[w])[n])
            {
                m_Rows.Change(access.nRows[w])[n] = nLoaded;
            }
        }
        if (bLoad && m_Rows.IsDirty(access.nRows[w]))
        {
            m_Rows.Settle(access.nRows[w], nFrom);
        }
    }
}

} // namespace KestrelPlatform
