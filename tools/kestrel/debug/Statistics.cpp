#include "tools/kestrel/debug/Statistics.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace KestrelTool
{

namespace
{

/// A set that is only ever counted. It starts small, so that few distinct values stay in the cache.
class CDistinct
{
public:
    CDistinct() : m_vSlots(1024) {}

    void Add(double fValue)
    {
        uint64_t nBits;
        fValue = fValue == 0 ? 0.0 : fValue; // one zero
        std::memcpy(&nBits, &fValue, sizeof(nBits));
        if (nBits == 0)
        {
            m_bZero = true;
            return;
        }
        if (Insert(nBits) && ++m_nCount * 2 > m_vSlots.size())
        {
            Grow();
        }
    }

    size_t Count() const { return m_nCount + (m_bZero ? 1 : 0); }

private:
    bool Insert(uint64_t nBits)
    {
        const size_t nMask = m_vSlots.size() - 1;
        size_t nSlot = static_cast<size_t>((nBits ^ nBits >> 29) * 0x9E3779B97F4A7C15ull >> 24) & nMask;
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

    void Grow()
    {
        std::vector<uint64_t> vOld(m_vSlots.size() * 4);
        vOld.swap(m_vSlots);
        for (const uint64_t nBits : vOld)
        {
            if (nBits != 0)
            {
                Insert(nBits);
            }
        }
    }

    std::vector<uint64_t> m_vSlots; ///< 0 for an empty one
    size_t m_nCount = 0;
    bool m_bZero = false;
};

void FillHistogram(const std::vector<double>& vValues, SStatistics& statistics)
{
    const double fScale =
        statistics.fHigh > statistics.fLow ? SStatistics::Bins / (statistics.fHigh - statistics.fLow) : 0;
    for (const double fValue : vValues)
    {
        if (std::isfinite(fValue))
        {
            const size_t nBin = static_cast<size_t>((fValue - statistics.fLow) * fScale);
            ++statistics.histogram[std::min(nBin, SStatistics::Bins - 1)];
        }
    }
}

} // namespace

SStatistics WorkOutStatistics(const std::vector<double>& vValues)
{
    SStatistics statistics;
    statistics.nCount = vValues.size();
    const double fInfinity = std::numeric_limits<double>::infinity();
    double fLow = fInfinity;
    double fHigh = -fInfinity;
    double fMinimum = fInfinity;
    double fMaximum = -fInfinity;
    double fSum = 0;
    CDistinct distinct;
    for (const double fValue : vValues)
    {
        if (std::isnan(fValue))
        {
            ++statistics.nNaN;
            continue;
        }
        fSum += fValue;
        fMinimum = std::min(fMinimum, fValue);
        fMaximum = std::max(fMaximum, fValue);
        if (std::isfinite(fValue))
        {
            fLow = std::min(fLow, fValue);
            fHigh = std::max(fHigh, fValue);
        }
        distinct.Add(fValue);
    }
    statistics.nDistinct = distinct.Count() + (statistics.nNaN != 0 ? 1 : 0);
    const size_t nNumbers = statistics.nCount - statistics.nNaN;
    const double fNone = std::numeric_limits<double>::quiet_NaN();
    statistics.fMinimum = nNumbers != 0 ? fMinimum : fNone;
    statistics.fMaximum = nNumbers != 0 ? fMaximum : fNone;
    statistics.fMean = nNumbers != 0 ? fSum / static_cast<double>(nNumbers) : fNone;
    statistics.fLow = fLow <= fHigh ? fLow : 0;
    statistics.fHigh = fLow <= fHigh ? fHigh : 0;
    FillHistogram(vValues, statistics);
    return statistics;
}

} // namespace KestrelTool
