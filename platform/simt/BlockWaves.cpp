#include "platform/simt/Block.h"

#include <algorithm>

namespace KestrelPlatform
{

/// Instructions over a wave: s_nWaveSize consecutive work-items of a group. A wave is always within one block, since
/// blocks begin at multiples of the wave size.
void CBlock::Wave(const SMicroOp& step)
{
    const uint32_t nGroup = m_Context.nGroupsPerBlock > 1 ? m_Context.nGroupSize : m_nLive;
    for (uint32_t nFirst = 0; nFirst < m_nLive;)
    {
        const uint32_t nGroupEnd = nFirst - nFirst % nGroup + nGroup;
        const uint32_t nEnd = std::min({nFirst + s_nWaveSize, nGroupEnd, m_nLive});
        WaveLanes(step, nFirst, nEnd, LocalIndexOfLane(nFirst) / s_nWaveSize);
        nFirst = nEnd;
    }
}

/// Bit n: lane n of the wave is active and its value isn't 0.
uint64_t CBlock::WaveBits(uint32_t nRow, uint32_t nFirst, uint32_t nEnd) const
{
    uint64_t nBits = 0;
    for (uint32_t n = nFirst; n < nEnd; ++n)
    {
        if (IsActive(n) && Row(nRow)[n] != 0)
        {
            nBits |= 1ull << (n - nFirst);
        }
    }
    return nBits;
}

void CBlock::WaveLanes(const SMicroOp& step, uint32_t nFirst, uint32_t nEnd, uint32_t nWave)
{
    const auto eOperation = static_cast<EWave>(step.nOp);
    const uint32_t* const a = Row(step.rows.s[0]);
    const uint32_t* const b = Row(step.rows.s[1]);
    const uint64_t nBits = eOperation == WAVE_BALLOT ? WaveBits(step.rows.s[0], nFirst, nEnd) : 0;
    uint32_t nActive = nFirst;
    while (nActive < nEnd && !IsActive(nActive))
    {
        ++nActive;
    }
    const uint32_t nOfFirst = nActive < nEnd ? a[nActive] : 0;
    for (uint32_t n = nActive; n < nEnd; ++n)
    {
        if (!IsActive(n))
        {
            continue;
        }
        const uint32_t nLane = n - nFirst;
        uint64_t nResult = 0;
        switch (eOperation)
        {
        case WAVE_BALLOT:
            nResult = nBits;
            break;
        case WAVE_FIRST:
            nResult = nOfFirst;
            break;
        case WAVE_READ:
            nResult = b[n] < nEnd - nFirst ? a[nFirst + b[n]] : 0;
            break;
        case WAVE_COUNT:
        {
            const uint64_t nMask = a[n] | (static_cast<uint64_t>(b[n]) << 32);
            nResult = static_cast<uint64_t>(__builtin_popcountll(nMask & ((1ull << nLane) - 1)));
            break;
        }
        case WAVE_LANE:
            nResult = nLane;
            break;
        case WAVE_INDEX:
            nResult = nWave;
            break;
        }
        Row(step.rows.d[0])[n] = static_cast<uint32_t>(nResult);
        if (eOperation == WAVE_BALLOT)
        {
            Row(step.rows.d[1])[n] = static_cast<uint32_t>(nResult >> 32);
        }
    }
}

} // namespace KestrelPlatform
