// Arrays of registers and private memory, which rows hold element by element.

#include "platform/simt/Block.h"
#include "platform/simt/Elements.h"
#include "platform/simt/checks/InitRecorder.h"

#include <algorithm>
#include <cstring>

namespace KestrelPlatform
{

/// Whether a component is written in all elements that the active work-items' indices may select.
bool CInitRecorder::AreElementsClean(const CBlock& block, const SIndexed& indexed, uint32_t nComponent) const
{
    const SCode::SArray& array = m_Context.code.vArrays[indexed.nArray];
    uint32_t nLow = 0;
    uint32_t nHigh = 0;
    m_Context.lanes.pfRange(block.Row(indexed.nIndexRow), block.Mask(), block.GetFirstLane(), block.GetEndLane(), nLow,
                            nHigh);
    // The sum of index and immediate wraps around, to the first elements.
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
    Demand(block, step, indexed.nIndexRow, PLATFORM_FAULT_ADDRESS);
    for (uint32_t c = 0; c < 4; ++c)
    {
        const uint32_t nSource = step.rows.s[c];
        const bool bClean = !IsDirty(block, nSource, false) && AreElementsClean(block, indexed, c);
        if ((step.rows.d[0] & (1u << c)) && !bClean && !StoreElementRow(block, indexed, c, nSource))
        {
            StoreElements(block, indexed, c, nSource);
        }
    }
}

/// Stores to one element, if all work-items are active and have the same index. \return false otherwise
bool CInitRecorder::StoreElementRow(const CBlock& block, const SIndexed& indexed, uint32_t nComponent, uint32_t nSource)
{
    const SCode::SArray& array = m_Context.code.vArrays[indexed.nArray];
    const uint32_t* const pIndices = block.Row(indexed.nIndexRow);
    const uint32_t nIndex = pIndices[0] + indexed.nImmediate;
    if (block.GetActive() != block.GetLive() || nIndex >= array.nElements ||
        !m_Context.lanes.pfIsSequence(pIndices, 0, block.GetEndLane(), 0))
    {
        return false;
    }
    MoveRow(nSource, array.Row(nIndex, nComponent), m_Rows.GetFrom(nSource));
    return true;
}

void CInitRecorder::StoreElements(const CBlock& block, const SIndexed& indexed, uint32_t nComponent, uint32_t nSource)
{
    const SCode::SArray& array = m_Context.code.vArrays[indexed.nArray];
    for (uint32_t n = block.GetFirstLane(); n < block.GetEndLane(); ++n)
    {
        const uint32_t nIndex = block.Row(indexed.nIndexRow)[n] + indexed.nImmediate;
        if (!block.IsActive(n) || nIndex >= array.nElements)
        {
            continue;
        }
        const uint32_t nShadow = nSource > s_nZeroRow ? m_Rows.Row(nSource)[n] : 0;
        const uint32_t nRow = array.Row(nIndex, nComponent);
        if (nShadow != m_Rows.Row(nRow)[n])
        {
            Put(nRow, n, nShadow, nShadow != 0);
        }
    }
    SettleChanged(nSource);
}

/// Sets the shadow of one lane of a row, and notes the row for SettleChanged.
/// \param bUnwritten  whether something unwritten is put there
void CInitRecorder::Put(uint32_t nRow, uint32_t nLane, uint32_t nShadow, bool bUnwritten)
{
    m_Rows.Change(nRow)[nLane] = nShadow;
    auto it = std::find_if(m_vChanged.rbegin(), m_vChanged.rend(),
                           [nRow](const SChanged& changed) { return changed.nRow == nRow; });
    if (it == m_vChanged.rend())
    {
        m_vChanged.push_back({nRow, false});
        it = m_vChanged.rbegin();
    }
    it->bUnwritten = it->bUnwritten || bUnwritten;
}

/// \param nSource  the row from which the new contents have come
void CInitRecorder::SettleChanged(uint32_t nSource)
{
    for (const SChanged& changed : m_vChanged)
    {
        m_Rows.Settle(changed.nRow, m_Rows.GetFrom(changed.bUnwritten ? nSource : changed.nRow));
    }
    m_vChanged.clear();
}

/// Copies the shadow of a whole row.
void CInitRecorder::MoveRow(uint32_t nFromRow, uint32_t nTo, uint32_t nFrom)
{
    if (nTo <= s_nZeroRow)
    {
        return;
    }
    if (nFromRow <= s_nZeroRow || !m_Rows.IsDirty(nFromRow))
    {
        m_Rows.Clear(nTo);
        return;
    }
    std::memcpy(m_Rows.Change(nTo), m_Rows.Row(nFromRow), sizeof(SLaneRow));
    m_Rows.Settle(nTo, nFrom);
}

uint32_t CInitRecorder::StoredShadow(const SAccess& access, uint32_t nWord, uint32_t nLane) const
{
    const uint32_t nRow = access.nRows[nWord];
    return nRow > s_nZeroRow ? m_Rows.Row(nRow)[nLane] : 0;
}

/// Whether nothing is unwritten in the registers and the private memory of a move.
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

/// Moves whole words, if all work-items are active and have the same address. \return false otherwise
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
        const uint32_t nFrom = m_Rows.GetFrom(nFromRow);
        MoveRow(nFromRow, nTo, bLoad && nFrom == ~0u ? step.nInstruction : nFrom);
    }
    return true;
}

/// Loads from or stores to private memory, of which each row holds a word.
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
                Put(nRow, n, (m_Rows.Row(nRow)[n] & ~(0xFFu << nShift)) | nValue << nShift, nValue != 0);
            }
            if (bLoad && nLoaded != m_Rows.Row(access.nRows[w])[n])
            {
                m_Rows.Change(access.nRows[w])[n] = nLoaded;
            }
        }
        SettleChanged(access.nRows[w]);
        if (bLoad && m_Rows.IsDirty(access.nRows[w]))
        {
            m_Rows.Settle(access.nRows[w], nFrom);
        }
    }
}

} // namespace KestrelPlatform
