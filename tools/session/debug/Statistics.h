#ifndef KESTREL_TOOLS_DEBUG_STATISTICS_H
#define KESTREL_TOOLS_DEBUG_STATISTICS_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace KestrelTool
{

/// Statistics over many values.
struct SStatistics
{
    static constexpr size_t Bins = 10;

    size_t nCount = 0;
    size_t nNaN = 0;
    size_t nDistinct = 0; ///< all NaNs count as one
    double fMinimum = 0;  ///< without NaNs
    double fMaximum = 0;
    double fMean = 0;
    size_t histogram[Bins] = {}; ///< of finite values, from the minimum to the maximum
    double fLow = 0;             ///< of the histogram
    double fHigh = 0;
};

SStatistics WorkOutStatistics(const std::vector<double>& vValues);

} // namespace KestrelTool

#endif
