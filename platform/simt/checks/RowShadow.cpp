#include "platform/simt/checks/RowShadow.h"

#include "platform/simt/Block.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace KestrelPlatform
{

/// Pages that are never written take no memory.
CRowShadow::CRowShadow(uint32_t nRows)
    : m_pOwner(static_cast<SLaneRow*>(std::calloc(nRows + 1, sizeof(SLaneRow)))), m_vDirty(nRows, 0),
      m_vFrom(nRows, ~0u)
{
    if (!m_pOwner)
    {
        throw std::bad_alloc();
    }
    const uintptr_t nAddress = reinterpret_cast<uintptr_t>(m_pOwner.get());
    m_pRows = reinterpret_cast<SLaneRow*>((nAddress + alignof(SLaneRow) - 1) / alignof(SLaneRow) * alignof(SLaneRow));
}

uint32_t* CRowShadow::Change(uint32_t nRow)
{
    m_nDirty += m_vDirty[nRow] ? 0 : 1;
    m_vDirty[nRow] = 1;
    return m_pRows[nRow].w;
}

void CRowShadow::Settle(uint32_t nRow, uint32_t nFrom)
{
    uint32_t nAny = 0;
    for (const uint32_t nShadow : m_pRows[nRow].w)
    {
        nAny |= nShadow;
    }
    m_vFrom[nRow] = nFrom;
    if (nAny != 0 || !m_vDirty[nRow])
    {
        return;
    }
    m_vDirty[nRow] = 0;
    --m_nDirty;
}

void CRowShadow::Fill(uint32_t nRow, uint32_t nShadow, uint32_t nFrom)
{
    std::fill_n(Change(nRow), s_nLanes, nShadow);
    m_vFrom[nRow] = nFrom;
}

void CRowShadow::Clear(const CBlock& block, uint32_t nRow)
{
    if (!m_vDirty[nRow])
    {
        return;
    }
    if (block.GetActive() == block.GetLive())
    {
        return Clear(nRow);
    }
    uint32_t* const pRow = Change(nRow);
    const uint32_t* const pMask = block.Mask();
    for (uint32_t n = block.GetFirstLane(); n < block.GetEndLane(); ++n)
    {
        pRow[n] &= ~pMask[n];
    }
    Settle(nRow, m_vFrom[nRow]);
}

void CRowShadow::Clear(uint32_t nRow)
{
    if (!m_vDirty[nRow])
    {
        return;
    }
    std::memset(m_pRows[nRow].w, 0, sizeof(SLaneRow));
    m_vDirty[nRow] = 0;
    --m_nDirty;
}

} // namespace KestrelPlatform
