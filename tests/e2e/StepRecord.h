#ifndef KESTREL_TESTS_E2E_STEPRECORD_H
#define KESTREL_TESTS_E2E_STEPRECORD_H

#include "tests/e2e/ItemHistory.h"
#include "tests/e2e/StopTracker.h"
#include "tools/session/launch/Launch.h"
#include "tools/session/launch/Listing.h"

#include <memory>
#include <optional>
#include <set>
#include <vector>

namespace KestrelTest
{

/// The stops of a session that only steps, which is the road that a continue takes as well, and from
/// it where a continue must stop. The entry of a session, which is no halt, is number 0.
class CStepRecord
{
public:
    struct SStop
    {
        uint32_t nInstruction = 0; ///< executed last
        unsigned int nNextLine = 0;
        unsigned int nDepth = 0; ///< open calls
        std::vector<bool> vMask;
        std::vector<size_t> vProgress; ///< instructions that each work-item has executed, as CItemHistory counts them
    };

    /// Where a continue must stop.
    struct SExpected
    {
        size_t nStop = 0;
        /// What the way there wrote, as a run has to read it: a text for each register with its components ("r3.xy"),
        /// and one for each element of an array whose index isn't known. None if flow has to be decided on the way.
        std::optional<std::set<std::string>> setWritten;
        size_t nAtStop = 1; ///< kernel runs of the stop's own instruction
    };

    /// Steps the launch through its end. The launch's contents are used up.
    CStepRecord(const KestrelTool::CLibraries& libraries, KestrelTool::CLaunch& launch, const CItemHistory& history);

    const std::vector<SStop>& GetStops() const { return m_vStops; }
    const KestrelTool::CListing& GetListing() const { return *m_pListing; }

    /// Where a continue from a stop ends, with breakpoints on these lines; nothing if it meets none.
    /// It goes along the stops, but passes over whole blocks that hold no breakpoint strictly between
    /// their first and last line. The test comes after each turn, so that the first is always taken.
    std::optional<SExpected> Continue(size_t nFrom, const std::set<unsigned int>& setLines) const;

private:
    struct SBlock
    {
        uint32_t nStart;
        uint32_t nMiddle; ///< the else, or the end
        uint32_t nEnd;
    };

    void FindBlocks();
    void Record(const KestrelTool::CLibraries& libraries, KestrelTool::CLaunch& launch, const CItemHistory& history);
    std::set<uint32_t> GetMarked(const std::set<unsigned int>& setLines) const;
    bool IsMarkedWithin(uint32_t nFrom, uint32_t nTo, const std::set<uint32_t>& setMarked) const;
    /// The last instruction that is passed over together with one that opens or divides a block.
    std::optional<uint32_t> GetSkipEnd(uint32_t nInstruction, const std::set<uint32_t>& setMarked) const;
    bool IsEndOfMarkedLoop(uint32_t nInstruction, const std::set<uint32_t>& setMarked) const;
    size_t GetLastWithin(size_t nStop, uint32_t nSkipEnd) const;
    /// Nothing if flow may leave in between.
    std::optional<std::set<std::string>> GetWritten(uint32_t nFirst, uint32_t nLast) const;
    bool AddWritten(uint32_t nFirst, uint32_t nLast, std::optional<std::set<std::string>>& written) const;
    unsigned int GetArraySize(const std::string& strArray) const;

    std::unique_ptr<KestrelTool::CListing> m_pListing;
    std::unique_ptr<CTextStructure> m_pStructure;
    std::vector<SBlock> m_vBlocks;
    std::vector<std::pair<uint32_t, uint32_t>> m_vCalls; ///< a call and the function's first instruction
    std::vector<SStop> m_vStops;
};

} // namespace KestrelTest

#endif
