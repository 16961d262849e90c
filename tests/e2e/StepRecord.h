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

/// The stops of a session that only steps. A continue takes the same path, so they tell where it must stop. Number 0 is
/// the session's entry, which isn't a stop.
class CStepRecord
{
public:
    struct SStop
    {
        uint32_t nInstruction = 0; ///< last executed
        unsigned int nNextLine = 0;
        unsigned int nDepth = 0; ///< open calls
        std::vector<bool> vMask;
        std::vector<size_t> vProgress; ///< instructions executed by each work-item, as counted by CItemHistory
    };

    /// Where a continue must stop.
    struct SExpected
    {
        size_t nStop = 0;
        /// The registers written on the way, which a run has to read: a text with components for each ("r3.xy"), and
        /// one for each element of an array whose index isn't known. None if control flow has to be decided on the way.
        std::optional<std::set<std::string>> setWritten;
        size_t nAtStop = 1; ///< kernel runs of the stop's own instruction
    };

    /// Steps the launch to its end, which changes the launch's contents.
    CStepRecord(const KestrelTool::CLibraries& libraries, KestrelTool::CLaunch& launch, const CItemHistory& history);

    const std::vector<SStop>& GetStops() const { return m_vStops; }
    const KestrelTool::CListing& GetListing() const { return *m_pListing; }

    /// Where a continue from a stop ends, with breakpoints on these lines; nothing if it reaches none. It follows
    /// the stops, but skips whole blocks without a breakpoint strictly between their first and last line. The
    /// test comes after each movement, so the first instruction is always executed.
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
    /// The last instruction that is skipped together with one that opens or divides a block.
    std::optional<uint32_t> GetSkipEnd(uint32_t nInstruction, const std::set<uint32_t>& setMarked) const;
    bool IsEndOfMarkedLoop(uint32_t nInstruction, const std::set<uint32_t>& setMarked) const;
    size_t GetLastWithin(size_t nStop, uint32_t nSkipEnd) const;
    /// Nothing if work-items may leave in between.
    std::optional<std::set<std::string>> GetWritten(uint32_t nFirst, uint32_t nLast) const;
    bool AddWritten(uint32_t nFirst, uint32_t nLast, std::optional<std::set<std::string>>& written) const;
    unsigned int GetArraySize(const std::string& strArray) const;

    std::unique_ptr<KestrelTool::CListing> m_pListing;
    std::unique_ptr<CTextStructure> m_pStructure;
    std::vector<SBlock> m_vBlocks;
    std::vector<std::pair<uint32_t, uint32_t>> m_vCalls; ///< call, and first instruction of its function
    std::vector<SStop> m_vStops;
};

} // namespace KestrelTest

#endif
