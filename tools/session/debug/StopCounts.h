#ifndef KESTREL_TOOLS_DEBUG_STOPCOUNTS_H
#define KESTREL_TOOLS_DEBUG_STOPCOUNTS_H

#include "tools/session/launch/Listing.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace KestrelTool
{

/// Counts the work-items that a session's stops have shown at each instruction, for comparison with a plain run's
/// counts. Only stops after steps count, since the last instruction before a breakpoint isn't known. Going back
/// subtracts what a step has added; if that isn't known, the sums start anew.
class CStopCounts
{
public:
    /// A launch has begun.
    void Forget() { *this = CStopCounts(); }
    /// A step has executed an instruction; afterwards nActive work-items were active.
    void AddStep(unsigned int nInstruction, uint64_t nActive);
    /// A run has led to a stop.
    void AddRun();
    /// Back by one stop.
    void GoBack();
    /// Back to an earlier stop.
    void RunBack();
    bool HasAny() const { return !m_mapMost.empty(); }

    /// Finds counts that are impossible if the session's runs went the same way as the plain run. If all steps from
    /// start to end are known, each instruction must be reached equally often; otherwise not more often.
    /// \param vPlain  the plain run's counts by instruction; empty if it wasn't counted
    /// \param bStepped  whether the end was reached by a step
    /// \return a sentence; empty if all is consistent
    std::string Compare(const std::vector<uint64_t>& vPlain, const CListing& listing, bool bStepped) const;

private:
    struct SStop
    {
        unsigned int nInstruction = 0; ///< NoInstruction after a run
        uint64_t nActive = 0;
    };
    static constexpr unsigned int NoInstruction = CListing::NoLine;

    void BeginAnew();

    std::vector<SStop> m_vStops;                ///< stops that led to the current one, the latest at the back
    std::map<unsigned int, uint64_t> m_mapSums; ///< by instruction, over m_vStops
    std::map<unsigned int, uint64_t> m_mapMost; ///< the largest sums so far
    bool m_bWhole = true;                       ///< m_vStops has all stops since the launch
};

} // namespace KestrelTool

#endif
