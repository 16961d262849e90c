#include "platform/simt/checks/Profile.h"

#include "platform/simt/Block.h"
#include "platform/simt/Elements.h"

#include <algorithm>

namespace KestrelPlatform
{

namespace
{

const uint32_t s_nLineBits = 6; ///< lines of 64 bytes

uint32_t CountActive(const uint32_t* pMask, uint32_t nBegin, uint32_t nEnd)
{
    uint32_t nActive = 0;
    for (uint32_t n = nBegin; n < nEnd; ++n)
    {
        nActive += pMask[n] & 1;
    }
    return nActive;
}

/// Counts the lines that rows of lanes touch, if the lines come in ascending order.
/// \param nLow        the lowest address
/// \param nStep       from each lane of a row to the next
/// \param nPieceStep  from each row to the next
uint64_t CountRowLines(uint64_t nLow, uint64_t nStep, uint32_t nWidth, uint64_t nPieceStep, uint32_t nPieces,
                       uint32_t nBytes)
{
    uint64_t nLines = 0;
    uint64_t nEnd = 0; // after the last line that is counted
    const auto count = [&](uint64_t nFirst, uint64_t nLast)
    {
        const uint64_t nBegin = std::max(nFirst >> s_nLineBits, nEnd);
        const uint64_t nPast = (nLast >> s_nLineBits) + 1;
        nLines += nPast > nBegin ? nPast - nBegin : 0;
        nEnd = std::max(nEnd, nPast);
    };
    for (uint32_t p = 0; p < nPieces; ++p, nLow += nPieceStep)
    {
        if (nStep <= 1u << s_nLineBits)
        { // all lines from the first to the last are touched
            count(nLow, nLow + (nWidth - 1) * nStep + nBytes - 1);
            continue;
        }
        for (uint32_t n = 0; n < nWidth; ++n)
        {
            count(nLow + n * nStep, nLow + n * nStep + nBytes - 1);
        }
    }
    return nLines;
}

/// Counts the lines that lanes touch. \return 0 if that takes a CLineSet
uint64_t CountPlaneLines(const SAddressPlane& plane, uint32_t nCount, uint32_t nBytes)
{
    const uint32_t nWidth = plane.GetWidth(nCount);
    const uint64_t nStep = static_cast<uint64_t>(std::abs(plane.nStep));
    const uint64_t nPieceStep = static_cast<uint64_t>(std::abs(plane.nPieceStep));
    const bool bOne = nPieceStep == 0;
    // CountRowLines needs rows that touch all lines from their first to their last, or that don't reach into the next
    // row.
    if (!bOne && nStep > 1u << s_nLineBits && nPieceStep < (nWidth - 1) * nStep + nBytes)
    {
        return 0;
    }
    return CountRowLines(plane.GetLow(nCount), nStep, nWidth, nPieceStep, bOne ? 1 : plane.GetPieces(nCount), nBytes);
}

} // namespace

void CLineSet::Insert(uint64_t nLine)
{
    if (nLine == m_nLast)
    {
        return;
    }
    m_nLast = nLine;
    size_t n = (nLine * 0x9E3779B97F4A7C15u) >> 56;
    while (m_Places[n].nSet == m_nSet && m_Places[n].nLine != nLine)
    {
        n = (n + 1) % s_nPlaces;
    }
    m_nCount += m_Places[n].nSet != m_nSet;
    m_Places[n] = {nLine, m_nSet};
}

void SProfileEntry::Add(const SProfileEntry& other)
{
    after.Add(other.after);
    nEntries += other.nEntries;
    nLeast = std::min(nLeast, other.nLeast);
    nMost = std::max(nMost, other.nMost);
    for (uint32_t n = 0; n < 3; ++n)
    {
        nLoaded[n] += other.nLoaded[n];
        nStored[n] += other.nStored[n];
    }
    nAccesses += other.nAccesses;
    nLines += other.nLines;
}

void CProfileTotals::Add(const std::vector<SProfileEntry>& vEntries, const std::vector<SPresence>& vBodies)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_vEntries.resize(std::max(m_vEntries.size(), vEntries.size()));
    m_vBodies.resize(std::max(m_vBodies.size(), vBodies.size()));
    for (size_t n = 0; n < vEntries.size(); ++n)
    {
        m_vEntries[n].Add(vEntries[n]);
    }
    for (size_t n = 0; n < vBodies.size(); ++n)
    {
        m_vBodies[n].Add(vBodies[n]);
    }
}

void CWaveLanes::Start(const CBlock& block)
{
    if (block.GetLive() == m_nLive)
    {
        return;
    }
    m_nLive = block.GetLive();
    m_vEnds.clear();
    // A block that holds part of a group begins at a multiple of the size of waves.
    const uint32_t nGroup = block.GetContext().nGroupSize;
    for (uint32_t nFirst = 0; nFirst < m_nLive; nFirst += nGroup)
    {
        const uint32_t nEnd = std::min(nFirst + nGroup, m_nLive);
        for (uint32_t n = nFirst; n < nEnd; n += s_nWaveSize)
        {
            m_vEnds.push_back(std::min(n + s_nWaveSize, nEnd));
        }
    }
}

SProfileEntry& CProfileRecorder::Entry(uint32_t nInstruction)
{
    if (nInstruction >= m_vEntries.size())
    {
        m_vEntries.resize(nInstruction + size_t{1});
    }
    return m_vEntries[nInstruction];
}

SPresence CProfileRecorder::Look(const CBlock& block) const
{
    if (block.GetActive() == block.GetLive())
    {
        return {block.GetLive(), m_Waves.GetCount(), block.GetLive()};
    }
    SPresence presence;
    presence.nItems = block.GetActive();
    const uint32_t* const pMask = block.Mask();
    for (size_t w = 0; w < m_Waves.GetCount() && presence.nItems != 0; ++w)
    {
        uint32_t nAny = 0;
        for (uint32_t n = m_Waves.GetBegin(w); n < m_Waves.GetEnd(w); ++n)
        {
            nAny |= pMask[n];
        }
        presence.nWaves += nAny & 1;
        presence.nLanes += nAny ? m_Waves.GetEnd(w) - m_Waves.GetBegin(w) : 0;
    }
    return presence;
}

void CProfileRecorder::Start(const CBlock& block)
{
    m_vLoops.clear();
    m_Waves.Start(block);
}

void CProfileRecorder::Flow(const CBlock& block, uint32_t nInstruction)
{
    SProfileEntry& entry = Entry(nInstruction);
    entry.after.Add(Look(block));
    if (!m_vLoops.empty() && m_vLoops.back().nStart == nInstruction)
    {
        BeginPass(entry, block.GetActive());
    }
}

void CProfileRecorder::Entered(const CBlock& block, uint32_t nBody)
{
    m_vBodies.resize(std::max(m_vBodies.size(), size_t{nBody} + 1));
    m_vBodies[nBody].Add(Look(block));
}

void CProfileRecorder::OpenLoop(uint32_t nStart, uint32_t /*nEnd*/)
{
    m_vLoops.push_back({nStart, 0, 0});
}

/// No work-item enters a loop after its first pass. So if fewer begin a pass than the one before, the others have left.
void CProfileRecorder::BeginPass(SProfileEntry& entry, uint32_t nActive)
{
    SLoop& loop = m_vLoops.back();
    if (loop.nPasses == 0)
    {
        entry.nEntries += nActive;
    }
    else if (nActive < loop.nActive)
    {
        entry.nLeast = std::min(entry.nLeast, loop.nPasses);
    }
    loop.nActive = nActive;
    ++loop.nPasses;
}

void CProfileRecorder::CloseLoop()
{
    const SLoop loop = m_vLoops.back();
    m_vLoops.pop_back();
    if (loop.nActive == 0)
    {
        return;
    }
    SProfileEntry& entry = Entry(loop.nStart);
    entry.nLeast = std::min(entry.nLeast, loop.nPasses);
    entry.nMost = std::max(entry.nMost, loop.nPasses);
}

void CProfileRecorder::Accessing(const CBlock& block, const SMicroOp& step, const SAccess& access)
{
    SProfileEntry& entry = Entry(step.nInstruction);
    const uint64_t nBytes = uint64_t{block.GetActive()} * LaneBytes(access);
    entry.nLoaded[access.eSpace] += access.eOperation != SAccess::Store ? nBytes : 0;
    entry.nStored[access.eSpace] += access.eOperation != SAccess::Load ? nBytes : 0;
    if (access.eSpace == SAccess::Global)
    {
        CountLines(block, access, entry);
    }
}

/// Inserts the lines of lanes nBegin to nEnd, all of which are active.
void CProfileRecorder::InsertLines(const CBlock& block, const SAccess& access, uint32_t nBegin, uint32_t nEnd)
{
    const uint32_t nBytes = LaneBytes(access);
    SAddressPlane plane;
    if (block.FindPlane(access, nBegin, nEnd, plane) && plane.IsEven() && std::abs(plane.nStep) <= 1 << s_nLineBits)
    { // all lines from the first to the last are touched
        const uint64_t nLast = (plane.GetHigh(nEnd - nBegin) + nBytes - 1) >> s_nLineBits;
        for (uint64_t nLine = plane.GetLow(nEnd - nBegin) >> s_nLineBits; nLine <= nLast; ++nLine)
        {
            m_Lines.Insert(nLine);
        }
        return;
    }
    uint64_t addresses[s_nWaveSize];
    block.FillAddresses(access, nBegin, nEnd, addresses);
    for (uint32_t n = 0; n < nEnd - nBegin; ++n)
    {
        m_Lines.Insert(addresses[n] >> s_nLineBits);
        m_Lines.Insert((addresses[n] + nBytes - 1) >> s_nLineBits);
    }
}

void CProfileRecorder::CountLines(const CBlock& block, const SAccess& access, SProfileEntry& entry)
{
    const bool bAll = block.GetActive() == block.GetLive();
    const uint32_t* const pMask = block.Mask();
    const uint32_t nFirst = block.GetFirstLane();
    SAddressPlane plane;
    const bool bPlane = bAll && block.FindPlane(access, nFirst, block.GetEndLane(), plane);
    for (size_t w = 0; w < m_Waves.GetCount(); ++w)
    {
        const uint32_t nBegin = std::max(m_Waves.GetBegin(w), block.GetFirstLane());
        const uint32_t nEnd = std::min(m_Waves.GetEnd(w), block.GetEndLane());
        const uint32_t nActive = bAll ? nEnd - nBegin : CountActive(pMask, nBegin, nEnd);
        if (nActive == 0)
        {
            continue;
        }
        ++entry.nAccesses;
        SAddressPlane part;
        const bool bPart = bPlane && plane.GetPart(nBegin - nFirst, nActive, part);
        const uint64_t nLines = bPart ? CountPlaneLines(part, nActive, LaneBytes(access)) : 0;
        if (nLines != 0)
        {
            entry.nLines += nLines;
            continue;
        }
        // In small groups only lanes of the same row have an even step, so the lanes are taken a granule at a time.
        m_Lines.Clear();
        for (uint32_t nPiece = nBegin; nPiece < nEnd; nPiece += s_nGranule)
        {
            const uint32_t nPieceEnd = std::min(nPiece + s_nGranule, nEnd);
            if (bAll || CountActive(pMask, nPiece, nPieceEnd) == nPieceEnd - nPiece)
            {
                InsertLines(block, access, nPiece, nPieceEnd);
                continue;
            }
            for (uint32_t n = nPiece; n < nPieceEnd; ++n)
            {
                if (pMask[n])
                {
                    InsertLines(block, access, n, n + 1);
                }
            }
        }
        entry.nLines += m_Lines.GetCount();
    }
}

} // namespace KestrelPlatform
