#include "tools/session/debug/Statistics.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>

namespace KestrelTool
{

namespace
{

uint64_t Mix(uint64_t nBits)
{
    return (nBits ^ nBits >> 29) * 0x9E3779B97F4A7C15ull;
}

/// A set that is only ever counted, for few values: its slots stay in the cache. 0 stands for an empty one.
class CDistinct
{
public:
    CDistinct() { Clear(); }

    void Clear()
    {
        m_vSlots.assign(s_nFirstSlots, 0);
        m_nCount = 0;
    }

    void Add(uint64_t nBits)
    {
        if (Insert(nBits) && ++m_nCount * 2 > m_vSlots.size())
        {
            std::vector<uint64_t> vOld(m_vSlots.size() * 4);
            vOld.swap(m_vSlots);
            for (const uint64_t nOld : vOld)
            {
                if (nOld != 0)
                {
                    Insert(nOld);
                }
            }
        }
    }

    size_t Count() const { return m_nCount; }

private:
    static constexpr size_t s_nFirstSlots = 256;

    bool Insert(uint64_t nBits)
    {
        const size_t nMask = m_vSlots.size() - 1;
        size_t nSlot = static_cast<size_t>(Mix(nBits) >> 24) & nMask;
        while (m_vSlots[nSlot] != 0)
        {
            if (m_vSlots[nSlot] == nBits)
            {
                return false;
            }
            nSlot = (nSlot + 1) & nMask;
        }
        m_vSlots[nSlot] = nBits;
        return true;
    }

    std::vector<uint64_t> m_vSlots;
    size_t m_nCount = 0;
};

uint64_t GetBits(double fValue)
{
    uint64_t nBits;
    fValue = fValue == 0 ? 0.0 : fValue; // one zero
    std::memcpy(&nBits, &fValue, sizeof(nBits));
    return nBits;
}

/// Counts different values that are neither 0 nor NaN, if they are few.
/// \return false if they are many
bool CountFew(const std::vector<double>& vValues, size_t& nCount)
{
    const size_t nMany = 4096;
    CDistinct distinct;
    uint64_t nLast = 0;
    for (const double fValue : vValues)
    {
        const uint64_t nBits = GetBits(fValue);
        if (nBits != nLast && nBits != 0 && !std::isnan(fValue))
        {
            distinct.Add(nBits);
            if (distinct.Count() > nMany)
            {
                return false;
            }
        }
        nLast = nBits;
    }
    nCount = distinct.Count();
    return true;
}

/// Counts different values that are neither 0 nor NaN. They are dealt out to parts by their bits, equal ones to the
/// same part, so that each part can be counted inside the cache. Takes as much memory again as the values.
size_t CountMany(const std::vector<double>& vValues)
{
    const unsigned int nPartBits = 9;
    const auto getPart = [](uint64_t nBits) { return Mix(nBits) >> (64 - nPartBits); };
    std::vector<size_t> vStarts((size_t(1) << nPartBits) + 1);
    for (const double fValue : vValues)
    {
        vStarts[getPart(GetBits(fValue)) + 1] += std::isnan(fValue) || fValue == 0 ? 0 : 1;
    }
    std::partial_sum(vStarts.begin(), vStarts.end(), vStarts.begin());
    std::vector<uint64_t> vDealt(vStarts.back());
    std::vector<size_t> vNext(vStarts.begin(), vStarts.end() - 1);
    for (const double fValue : vValues)
    {
        if (!std::isnan(fValue) && fValue != 0)
        {
            const uint64_t nBits = GetBits(fValue);
            vDealt[vNext[getPart(nBits)]++] = nBits;
        }
    }
    size_t nCount = 0;
    CDistinct distinct;
    for (size_t nPart = 0; nPart + 1 < vStarts.size(); ++nPart)
    {
        distinct.Clear();
        for (size_t n = vStarts[nPart]; n < vStarts[nPart + 1]; ++n)
        {
            distinct.Add(vDealt[n]);
        }
        nCount += distinct.Count();
    }
    return nCount;
}

/// Counts different values that are all whole numbers, not far from each other: a bit for each number between.
/// \return false if they aren't such
bool CountWhole(const std::vector<double>& vValues, double fLow, double fHigh, size_t& nCount)
{
    const double fMostBits = 16.0 * static_cast<double>(vValues.size());
    if (!(fLow <= fHigh) || std::abs(fLow) > 0x1p53 || std::abs(fHigh) > 0x1p53 || fHigh - fLow >= fMostBits)
    {
        return false;
    }
    const int64_t nLow = static_cast<int64_t>(fLow);
    std::vector<uint64_t> vBits(static_cast<size_t>(fHigh - fLow) / 64 + 1);
    for (const double fValue : vValues)
    {
        const int64_t nValue = fValue >= fLow && fValue <= fHigh ? static_cast<int64_t>(fValue) : nLow - 1;
        if (static_cast<double>(nValue) != fValue)
        {
            return false;
        }
        const uint64_t nBit = static_cast<uint64_t>(nValue - nLow);
        vBits[nBit / 64] |= uint64_t(1) << nBit % 64;
    }
    nCount = 0;
    for (const uint64_t nBits : vBits)
    {
        nCount += static_cast<size_t>(__builtin_popcountll(nBits));
    }
    return true;
}

size_t CountDistinct(const std::vector<double>& vValues, double fLow, double fHigh)
{
    size_t nCount = 0;
    if (CountWhole(vValues, fLow, fHigh, nCount))
    {
        return nCount;
    }
    const size_t nZero = std::find(vValues.begin(), vValues.end(), 0.0) != vValues.end() ? 1 : 0;
    return nZero + (CountFew(vValues, nCount) ? nCount : CountMany(vValues));
}

void FillHistogram(const std::vector<double>& vValues, SStatistics& statistics)
{
    const double fScale =
        statistics.fHigh > statistics.fLow ? SStatistics::Bins / (statistics.fHigh - statistics.fLow) : 0;
    // Neighbours are mostly in the same bin: with a count of its own each needn't wait for the one before.
    const size_t nCounts = 4;
    size_t counts[nCounts][SStatistics::Bins + 1] = {};
    for (size_t i = 0; i < vValues.size(); ++i)
    {
        const double fBin = std::min((vValues[i] - statistics.fLow) * fScale, double(SStatistics::Bins - 1));
        const int nBin = std::isfinite(vValues[i]) ? static_cast<int>(fBin) : int(SStatistics::Bins);
        ++counts[i % nCounts][nBin];
    }
    for (size_t nBin = 0; nBin < SStatistics::Bins; ++nBin)
    {
        for (const auto& own : counts)
        {
            statistics.histogram[nBin] += own[nBin];
        }
    }
}

/// Least, largest and sum of values, with NaNs left out; the same of those that are finite. Lanes side by side keep the
/// processor's vectors busy; the first one has them all in the end.
struct SLimits
{
    static constexpr size_t Lanes = 8;
    typedef double Values[Lanes];

    Values minimum;
    Values maximum;
    Values low;
    Values high;
    Values sum = {};
    Values nans = {};

    SLimits()
    {
        std::fill(minimum, minimum + Lanes, std::numeric_limits<double>::infinity());
        std::fill(maximum, maximum + Lanes, -std::numeric_limits<double>::infinity());
        std::copy(minimum, minimum + Lanes, low);
        std::copy(maximum, maximum + Lanes, high);
    }

    void Add(const double* pValues, size_t nLanes)
    {
        for (size_t n = 0; n < nLanes; ++n)
        {
            const double fValue = pValues[n];
            const double fSize = std::abs(fValue);
            const double fNumber = fValue == fValue ? fValue : 0;
            const double fLeast = fSize < std::numeric_limits<double>::infinity() ? fValue : low[n];
            const double fMost = fSize < std::numeric_limits<double>::infinity() ? fValue : high[n];
            minimum[n] = fValue < minimum[n] ? fValue : minimum[n];
            maximum[n] = fValue > maximum[n] ? fValue : maximum[n];
            low[n] = fLeast < low[n] ? fLeast : low[n];
            high[n] = fMost > high[n] ? fMost : high[n];
            sum[n] += fNumber;
            nans[n] += fValue == fValue ? 0.0 : 1.0;
        }
    }

    void Join()
    {
        for (size_t n = 1; n < Lanes; ++n)
        {
            minimum[0] = std::min(minimum[0], minimum[n]);
            maximum[0] = std::max(maximum[0], maximum[n]);
            low[0] = std::min(low[0], low[n]);
            high[0] = std::max(high[0], high[n]);
            sum[0] += sum[n];
            nans[0] += nans[n];
        }
    }
};

SLimits FindLimits(const std::vector<double>& vValues)
{
    SLimits limits;
    size_t i = 0;
    for (; vValues.size() - i >= SLimits::Lanes; i += SLimits::Lanes)
    {
        limits.Add(&vValues[i], SLimits::Lanes);
    }
    limits.Add(vValues.data() + i, vValues.size() - i);
    limits.Join();
    return limits;
}

} // namespace

SStatistics WorkOutStatistics(const std::vector<double>& vValues)
{
    SStatistics statistics;
    statistics.nCount = vValues.size();
    const SLimits limits = FindLimits(vValues);
    statistics.nNaN = static_cast<size_t>(limits.nans[0]);
    statistics.nDistinct = CountDistinct(vValues, limits.low[0], limits.high[0]) + (statistics.nNaN != 0 ? 1 : 0);
    const size_t nNumbers = statistics.nCount - statistics.nNaN;
    const double fNone = std::numeric_limits<double>::quiet_NaN();
    statistics.fMinimum = nNumbers != 0 ? limits.minimum[0] : fNone;
    statistics.fMaximum = nNumbers != 0 ? limits.maximum[0] : fNone;
    statistics.fMean = nNumbers != 0 ? limits.sum[0] / static_cast<double>(nNumbers) : fNone;
    statistics.fLow = limits.low[0] <= limits.high[0] ? limits.low[0] : 0;
    statistics.fHigh = limits.low[0] <= limits.high[0] ? limits.high[0] : 0;
    FillHistogram(vValues, statistics);
    return statistics;
}

} // namespace KestrelTool
