#ifndef KESTREL_TOOLS_DEBUG_RUNESTIMATE_H
#define KESTREL_TOOLS_DEBUG_RUNESTIMATE_H

#include "tools/session/debug/CodeMap.h"

#include <cstdint>

namespace KestrelTool
{

/// Where the count of kernel runs will stand at the end of a move, as far as a client can tell.
struct SRunEstimate
{
    uint64_t nEnd = 0;  ///< 0 if it isn't known
    bool bWhole = true; ///< nothing follows the move but what the user has asked for
};

/// How many kernel runs it takes to get from a line to the first of some lines: one for each kept register that the
/// text between them writes, one for the stop, and those that decide the blocks around it. 0 if the text doesn't tell.
/// \param vTracked  registers that are kept up to date; the others are read when they are looked at
/// \param nStop     receives the line where the way ends
size_t EstimateRuns(const CListing& listing, const CCodeMap& code, unsigned int nFrom,
                    const std::set<unsigned int>& stops, const std::vector<std::string>& vTracked, unsigned int& nStop);

} // namespace KestrelTool

#endif
