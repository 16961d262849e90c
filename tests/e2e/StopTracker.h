#ifndef KESTREL_TESTS_E2E_STOPTRACKER_H
#define KESTREL_TESTS_E2E_STOPTRACKER_H

#include "tests/e2e/TraceModel.h"
#include "tools/session/launch/Listing.h"

#include <map>
#include <optional>
#include <vector>

namespace KestrelTest
{

/// The static structure of a kernel's text: its loops, switches and functions, by instruction number.
class CTextStructure
{
public:
    explicit CTextStructure(const KestrelTool::CListing& listing);

    std::string GetMnemonic(uint32_t nInstruction) const;
    /// The end of the loop that an instruction opens; 0 if it opens none.
    uint32_t GetLoopEnd(uint32_t nStart) const;
    /// The number of the function that contains an instruction; 0 for the main body.
    uint32_t GetFunction(uint32_t nInstruction) const { return m_vFunction[nInstruction]; }
    uint32_t GetInstructionCount() const { return static_cast<uint32_t>(m_vMnemonics.size()); }

private:
    std::vector<std::string> m_vMnemonics;
    std::vector<uint32_t> m_vFunction;
    std::map<uint32_t, uint32_t> m_mapLoopEnds;
};

/// Follows a stepping session from outside: from the lines alone it derives the passes of the loops around each stop,
/// and the calls.
class CStopTracker
{
public:
    explicit CStopTracker(const CTextStructure& structure) : m_Structure(structure), m_vFrames(1) {}

    /// \param nInstruction  executed by the stop
    SPosition Advance(uint32_t nInstruction);

private:
    struct SFrame
    {
        Loops loops;
        uint32_t nCall = 0; ///< the call that enters the next frame
    };

    void FollowCall(uint32_t nInstruction);
    SPosition At(uint32_t nInstruction) const;

    const CTextStructure& m_Structure;
    std::vector<SFrame> m_vFrames; ///< innermost call at the back
    std::optional<uint32_t> m_nLast;
};

} // namespace KestrelTest

#endif
