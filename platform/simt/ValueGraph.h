#ifndef KESTREL_PLATFORM_SIMT_VALUEGRAPH_H
#define KESTREL_PLATFORM_SIMT_VALUEGRAPH_H

#include "platform/simt/Program.h"

#include <cstdint>
#include <utility>
#include <vector>

namespace KestrelPlatform
{

/// A value of a row: what a step writes, or a meeting of values where paths join (a phi).
struct SValue
{
    static constexpr uint32_t s_nNoStep = ~0u;

    uint32_t nRow = 0;
    uint32_t nStep = s_nNoStep; ///< the step that writes it; none for a meeting
    bool bGiven = false;        ///< the row's value before anything writes it
    bool bUsed = false;         ///< read by a step, or by a meeting that is used
};

/// A step's read of a row.
struct SValueRead
{
    uint32_t nStep = 0;
    uint32_t nRow = 0;
    uint32_t nValue = 0;
};

/// The successive values of a kernel's rows. Rows of arrays and private memory aren't tracked.
struct SValueGraph
{
    static constexpr uint32_t s_nConstant =
        0; ///< the value of rows that nothing writes, and a launch fills with one word
    static constexpr uint32_t s_nUnknown = 1; ///< of rows that aren't followed

    /// By number.
    std::vector<SValue> vValues;
    std::vector<SValueRead> vReads; ///< in the order of execution
    /// A meeting, and one of its possible values.
    std::vector<std::pair<uint32_t, uint32_t>> vMeetings;
    /// A meeting, and the value of a condition that decides on which path a work-item gets there.
    std::vector<std::pair<uint32_t, uint32_t>> vConditions;
    /// The step of a condition, and its else or end.
    std::vector<std::pair<uint32_t, uint32_t>> vParts;
};

/// \return false if several places call the same body, or a call is conditional: such code isn't analysed
bool FollowValues(const SCode& code, SValueGraph& graph);

} // namespace KestrelPlatform

#endif
