#include "platform/simt/checks/Profile.h"

#include <algorithm>

#include "platform/simt/Block.h"
#include "platform/simt/Elements.h"

namespace KestrelPlatform
{

namespace
{

const uint32_t s_nLineBits = 6; ///< lines of 64 bytes

/// The different lines that a wave's access touches.
class CLineSet
{
public:
    CLineSet() { std::fill_n(m_Lines, s_nPlaces, s_nNone); }

    void Insert(uint64_t nLine)
    {
        if (nLine == m_nLast)
            return;
        m_nLast = nLine;
        size_t n = (nLine * 0x9E3779B97F4A7C15u) >> 56;
        while (m_Lines[n] != s_nNone && m_Lines[n] != nLine)
            n = (n + 1) % s_nPlaces;
        m_nCount += m_Lines[n] == s_nNone;
        m_Lines[n] = nLine;
    }
    uint32_t GetCount() const { return m_nCount; }

private:
    // A wave's access touches two for each work-item at most.
    static constexpr size_t s_nPlaces = 256;
    static constexpr uint64_t s_nNone = ~uint64_t(0); // not a line: a line's number has zeros at its top

    uint64_t m_Lines[s_nPlaces];
    uint64_t m_nLast = s_nNone;
    uint32_t m_nCount = 0;
};
static_assert(s_nWaveSize * 2 < 256, "the set of lines must not fill up");

/// Whether all addresses from one lane to another follow each other without a gap.
bool IsRun(const uint64_t* pAddresses, uint32_t nBegin, uint32_t nEnd, uint32_t nBytes)
{
    uint64_t nOther = 0;
    for (uint32_t n = nBegin + 1; n < nEnd; ++n)
        nOther |= pAddresses[n] - pAddresses[n - 1] - nBytes;
    return nOther == 0;
}

} // namespace

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
        m_vEntries[n].Add(vEntries[n]);
    for (size_t n = 0; n < vBodies.size(); ++n)
        m_vBodies[n].Add(vBodies[n]);
}

void CWaveLanes::Start(const CBlock& block)
{
    if (block.GetLive() == m_nLive)
        return;
    m_nLive = block.GetLive();
    m_vEnds.clear();
    // A block that holds part of a group begins at a multiple of the size of waves.
    const uint32_t nGroup = block.GetContext().nGroupSize;
    for (uint32_t nFirst = 0; nFirst < m_nLive; nFirst += nGroup)
    {
        const uint32_t nEnd = std::min(nFirst + nGroup, m_nLive);
        for (uint32_t n = nFirst; n < nEnd; n += s_nWaveSize)
            m_vEnds.push_back(std::min(n + s_nWaveSize, nEnd));
    }
}

SProfileEntry& CProfileRecorder::Entry(uint32_t nInstruction)
{
    if (nInstruction >= m_vEntries.size())
        m_vEntries.resize(nInstruction + size_t{1});
    return m_vEntries[nInstruction];
}

SPresence CProfileRecorder::Look(const CBlock& block) const
{
    if (block.GetActive() == block.GetLive())
        return {block.GetLive(), m_Waves.GetCount(), block.GetLive()};
    SPresence presence;
    presence.nItems = block.GetActive();
    const uint32_t* const pMask = block.Mask();
    for (size_t w = 0; w < m_Waves.GetCount() && presence.nItems != 0; ++w)
    {
        uint32_t nAny = 0;
        for (uint32_t n = m_Waves.GetBegin(w); n < m_Waves.GetEnd(w); ++n)
            nAny |= pMask[n];
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
        BeginPass(entry, block.GetActive());
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

/// Nobody comes into a loop after its first pass, so that those who are fewer than before have left after the last one.
void CProfileRecorder::BeginPass(SProfileEntry& entry, uint32_t nActive)
{
    SLoop& loop = m_vLoops.back();
    if (loop.nPasses == 0)
        entry.nEntries += nActive;
    else if (nActive < loop.nActive)
        entry.nLeast = std::min(entry.nLeast, loop.nPasses);
    loop.nActive = nActive;
    ++loop.nPasses;
}

void CProfileRecorder::CloseLoop()
{
    const SLoop loop = m_vLoops.back();
    m_vLoops.pop_back();
    if (loop.nActive == 0)
        return;
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
        CountLines(block, access, entry);
}

void CProfileRecorder::CountLines(const CBlock& block, const SAccess& access, SProfileEntry& entry)
{
    uint64_t addresses[s_nLanes];
    block.FillAddresses(access, addresses);
    const uint32_t nBytes = LaneBytes(access);
    const uint32_t* const pMask = block.Mask();
    for (size_t w = 0; w < m_Waves.GetCount(); ++w)
    {
        const uint32_t nBegin = std::max(m_Waves.GetBegin(w), block.GetFirstLane());
        const uint32_t nEnd = std::min(m_Waves.GetEnd(w), block.GetEndLane());
        uint32_t nActive = 0;
        for (uint32_t n = nBegin; n < nEnd; ++n)
            nActive += pMask[n] & 1;
        if (nActive == 0)
            continue;
        ++entry.nAccesses;
        if (nActive == nEnd - nBegin && IsRun(addresses, nBegin, nEnd, nBytes))
        {
            const uint64_t nLast = (addresses[nEnd - 1] + nBytes - 1) >> s_nLineBits;
            entry.nLines += nLast - (addresses[nBegin] >> s_nLineBits) + 1;
            continue;
        }
        CLineSet lines;
        for (uint32_t n = nBegin; n < nEnd; ++n)
        {
            if (!pMask[n])
                continue;
            lines.Insert(addresses[n] >> s_nLineBits);
            lines.Insert((addresses[n] + nBytes - 1) >> s_nLineBits);
        }
        entry.nLines += lines.GetCount();
    }
}

} // namespace KestrelPlatform
