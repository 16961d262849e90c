#ifndef KESTREL_PLATFORM_SIMT_VALUEGRAPH_H
#define KESTREL_PLATFORM_SIMT_VALUEGRAPH_H

#include "platform/simt/Program.h"

#include <cstdint>
#include <utility>
#include <vector>

namespace KestrelPlatform
{

/// A value of a row: what a step writes, or what it is where ways of the flow meet.
struct SValue
{
    static constexpr uint32_t s_nNoStep = ~0u;

    uint32_t nRow = 0;
    uint32_t nStep = s_nNoStep; ///< that writes it; none for a meeting
    bool bGiven = false;        ///< what the row holds before anything writes it
    bool bUsed = false;         ///< a step reads it, or a meeting that is used
};

/// A step's look at a row.
struct SValueRead
{
    uint32_t nStep = 0;
    uint32_t nRow = 0;
    uint32_t nValue = 0;
};

/// The values that the rows of a kernel take in turn. Rows of arrays and private memory aren't followed.
struct SValueGraph
{
    static constexpr uint32_t s_nConstant =
        0; ///< the value of rows that nothing writes, and a launch fills with one word
    static constexpr uint32_t s_nUnknown = 1; ///< of rows that aren't followed

    /// By number.
    std::vector<SValue> vValues;
    std::vector<SValueRead> vReads; ///< in the order in which the steps run
    /// A meeting, and a value that it may be.
    std::vector<std::pair<uint32_t, uint32_t>> vMeetings;
    /// A meeting, and the value of a condition that tells by which way a work-item comes.
    std::vector<std::pair<uint32_t, uint32_t>> vConditions;
    /// Steps of a condition and of its else, its end: the latter two belong to the former.
    std::vector<std::pair<uint32_t, uint32_t>> vParts;
};

/// \return false for code of which several places call the same body, or some work-items only: that isn't followed
bool FollowValues(const SCode& code, SValueGraph& graph);

} // namespace KestrelPlatform

#endif
