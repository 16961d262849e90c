#include "tools/session/debug/Statistics.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <exception>
#include <limits>
#include <numeric>
#include <thread>

namespace KestrelTool
{

namespace
{

/// The values for one thread.
struct SPart
{
    const double* pValues;
    size_t nCount;
};

/// Calls work(number, part), which mustn't throw, for each part; on several threads if there are many values and
/// several processors. Parts for which no thread can be started run one after the other.
template <typename Work>
void ForEachPart(const std::vector<SPart>& vParts, const Work& work)
{
    std::vector<std::thread> vThreads;
    size_t nPart = 1;
    try
    {
        for (; nPart < vParts.size(); ++nPart)
        {
            vThreads.emplace_back([&work, &vParts, nPart] { work(nPart, vParts[nPart]); });
        }
    }
    catch (const std::exception&)
    {
        // Parts without a thread run here.
    }
    for (size_t nHere = nPart; nHere < vParts.size(); ++nHere)
    {
        work(nHere, vParts[nHere]);
    }
    work(0, vParts.front());
    for (std::thread& thread : vThreads)
    {
        thread.join();
    }
}

std::vector<SPart> Divide(const std::vector<double>& vValues)
{
    const size_t nLeast = size_t(1) << 17; // for fewer values, starting a thread takes as long as the work
    const size_t nMost = 8;
    const size_t nWanted = std::min({vValues.size() / nLeast, size_t(std::thread::hardware_concurrency()), nMost});
    const size_t nParts = std::max<size_t>(nWanted, 1);
    std::vector<SPart> vParts;
    for (size_t n = 0; n < nParts; ++n)
    {
        const size_t nFirst = vValues.size() * n / nParts;
        vParts.push_back({vValues.data() + nFirst, vValues.size() * (n + 1) / nParts - nFirst});
    }
    return vParts;
}

uint64_t Mix(uint64_t nBits)
{
    return (nBits ^ nBits >> 29) * 0x9E3779B97F4A7C15ull;
}

/// A set that only counts, for few values: its slots fit in the cache. 0 marks an empty slot.
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
    fValue = fValue == 0 ? 0.0 : fValue; // -0 counts as 0
    std::memcpy(&nBits, &fValue, sizeof(nBits));
    return nBits;
}

/// Counts distinct values other than 0 and NaN, if there are few.
/// \return false if there are many
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

/// Counts distinct values other than 0 and NaN. Their bits decide which part they go to, so that equal values are in
/// the same part, and each part fits in the cache. Takes as much memory again as the values.
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

/// Sets a bit for each number.
/// \return false if one isn't whole, or not between the limits
bool MarkWhole(const SPart& part, double fLow, double fHigh, std::vector<uint64_t>& vBits)
{
    const int64_t nLow = static_cast<int64_t>(fLow);
    for (size_t i = 0; i < part.nCount; ++i)
    {
        const double fValue = part.pValues[i];
        const int64_t nValue = fValue >= fLow && fValue <= fHigh ? static_cast<int64_t>(fValue) : nLow - 1;
        if (static_cast<double>(nValue) != fValue)
        {
            return false;
        }
        const uint64_t nBit = static_cast<uint64_t>(nValue - nLow);
        vBits[nBit / 64] |= uint64_t(1) << nBit % 64;
    }
    return true;
}

/// Counts distinct values if they are whole numbers in a small range, with a bit for each number in the range.
/// \return false if they aren't
bool CountWhole(const std::vector<double>& vValues, double fLow, double fHigh, size_t& nCount)
{
    const double fMostBits = 16.0 * static_cast<double>(vValues.size());
    if (!(fLow <= fHigh) || std::abs(fLow) > 0x1p53 || std::abs(fHigh) > 0x1p53 || fHigh - fLow >= fMostBits)
    {
        return false;
    }
    const std::vector<SPart> vParts = Divide(vValues);
    const size_t nWords = static_cast<size_t>(fHigh - fLow) / 64 + 1;
    std::vector<std::vector<uint64_t>> vBits(vParts.size(), std::vector<uint64_t>(nWords));
    std::vector<char> vWhole(vParts.size());
    ForEachPart(vParts, [&](size_t nPart, const SPart& part)
                { vWhole[nPart] = MarkWhole(part, fLow, fHigh, vBits[nPart]) ? 1 : 0; });
    if (std::find(vWhole.begin(), vWhole.end(), 0) != vWhole.end())
    {
        return false;
    }
    nCount = 0;
    for (size_t nWord = 0; nWord < nWords; ++nWord)
    {
        uint64_t nAny = 0;
        for (const std::vector<uint64_t>& vOwn : vBits)
        {
            nAny |= vOwn[nWord];
        }
        nCount += static_cast<size_t>(__builtin_popcountll(nAny));
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

/// Consecutive values often fall in the same bin. Separate counts avoid waiting for the previous increment.
struct SBinCounts
{
    static constexpr size_t Lanes = 4;

    size_t counts[Lanes][SStatistics::Bins + 1] = {};

    void Add(const SPart& part, double fLow, double fScale)
    {
        for (size_t i = 0; i < part.nCount; ++i)
        {
            const double fValue = part.pValues[i];
            const double fBin = std::min((fValue - fLow) * fScale, double(SStatistics::Bins - 1));
            ++counts[i % Lanes][std::isfinite(fValue) ? static_cast<int>(fBin) : int(SStatistics::Bins)];
        }
    }
};

void FillHistogram(const std::vector<double>& vValues, SStatistics& statistics)
{
    const double fScale =
        statistics.fHigh > statistics.fLow ? SStatistics::Bins / (statistics.fHigh - statistics.fLow) : 0;
    const std::vector<SPart> vParts = Divide(vValues);
    std::vector<SBinCounts> vCounts(vParts.size());
    ForEachPart(vParts, [&](size_t nPart, const SPart& part) { vCounts[nPart].Add(part, statistics.fLow, fScale); });
    for (size_t nBin = 0; nBin < SStatistics::Bins; ++nBin)
    {
        for (const SBinCounts& part : vCounts)
        {
            for (const auto& own : part.counts)
            {
                statistics.histogram[nBin] += own[nBin];
            }
        }
    }
}

/// Minimum, maximum and sum of all values except NaNs, and of the finite ones. Several lanes keep the vector units
/// busy; in the end the first lane has the total.
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

    void Add(const SPart& part)
    {
        size_t i = 0;
        for (; part.nCount - i >= Lanes; i += Lanes)
        {
            Add(part.pValues + i, Lanes);
        }
        Add(part.pValues + i, part.nCount - i);
    }

    void Add(const SLimits& other)
    {
        for (size_t n = 0; n < Lanes; ++n)
        {
            minimum[n] = std::min(minimum[n], other.minimum[n]);
            maximum[n] = std::max(maximum[n], other.maximum[n]);
            low[n] = std::min(low[n], other.low[n]);
            high[n] = std::max(high[n], other.high[n]);
            sum[n] += other.sum[n];
            nans[n] += other.nans[n];
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
    const std::vector<SPart> vParts = Divide(vValues);
    std::vector<SLimits> vLimits(vParts.size());
    ForEachPart(vParts, [&](size_t nPart, const SPart& part) { vLimits[nPart].Add(part); });
    SLimits limits;
    for (const SLimits& own : vLimits)
    {
        limits.Add(own);
    }
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
