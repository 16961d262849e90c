#ifndef KESTREL_TOOLS_DEBUG_STOPCOUNTS_H
#define KESTREL_TOOLS_DEBUG_STOPCOUNTS_H

#include "tools/session/launch/Listing.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace KestrelTool
{

/// How many work-items a session's stops have shown at each instruction, for a comparison with a plain run's counts.
/// What a run to a breakpoint has executed last isn't known, so that only stops after steps count. Going back takes
/// away what a step has added; where that isn't known the sums begin anew.
class CStopCounts
{
public:
    /// A launch has begun.
    void Forget() { *this = CStopCounts(); }
    /// A step has executed an instruction, and so many were active after it.
    void AddStep(unsigned int nInstruction, uint64_t nActive);
    /// A run has come to a stop.
    void AddRun();
    /// One stop back.
    void GoBack();
    /// Back to an earlier stop.
    void RunBack();
    bool HasAny() const { return !m_mapMost.empty(); }

    /// What can't be if the session's runs took the course of the plain run. Steps from the start to the end come to
    /// each instruction as often as that; others no more often.
    /// \param vPlain  the plain run's counts by instruction; empty if it wasn't counted
    /// \param bStepped  whether a step has led to the end
    /// \return a sentence; empty if there is nothing to say
    std::string Compare(const std::vector<uint64_t>& vPlain, const CListing& listing, bool bStepped) const;

private:
    struct SStop
    {
        unsigned int nInstruction = 0; ///< NoInstruction after a run
        uint64_t nActive = 0;
    };
    static constexpr unsigned int NoInstruction = CListing::NoLine;

    void BeginAnew();

    std::vector<SStop> m_vStops;                ///< that lead to the present one, the latest at the back
    std::map<unsigned int, uint64_t> m_mapSums; ///< by instruction, over m_vStops
    std::map<unsigned int, uint64_t> m_mapMost; ///< the largest sums so far
    bool m_bWhole = true;                       ///< m_vStops are all stops from the launch on
};

} // namespace KestrelTool

#endif
