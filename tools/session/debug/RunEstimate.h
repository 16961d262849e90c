#ifndef KESTREL_TOOLS_DEBUG_RUNESTIMATE_H
#define KESTREL_TOOLS_DEBUG_RUNESTIMATE_H

#include "tools/session/debug/CodeMap.h"

#include <cstdint>

namespace KestrelTool
{

/// A client's estimate of the number of kernel runs at the end of a movement.
struct SRunEstimate
{
    uint64_t nEnd = 0;  ///< 0 if unknown
    bool bWhole = true; ///< false if the end is a stop that isn't shown, from which the movement goes on
};

/// How many kernel runs it takes to get from a line to the first of some lines: one for each tracked register written
/// on the way, one for the stop, and those that decide about the blocks around it. 0 if the text doesn't tell.
/// \param vTracked  registers that are kept up to date; the others are read when they are looked at
/// \param nStop     receives the line where the movement ends
size_t EstimateRuns(const CListing& listing, const CCodeMap& code, unsigned int nFrom,
                    const std::set<unsigned int>& stops, const std::vector<std::string>& vTracked, unsigned int& nStop);

} // namespace KestrelTool

#endif
