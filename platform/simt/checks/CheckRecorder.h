#ifndef KESTREL_PLATFORM_SIMT_CHECKS_CHECKRECORDER_H
#define KESTREL_PLATFORM_SIMT_CHECKS_CHECKRECORDER_H

#include "platform/simt/BlockRecorder.h"
#include "platform/simt/checks/Findings.h"
#include "platform/simt/checks/GroupRows.h"
#include "platform/simt/checks/InitRecorder.h"
#include "platform/simt/checks/IntervalRows.h"
#include "platform/simt/checks/NumberRecorder.h"
#include "platform/simt/checks/PartBarriers.h"
#include "platform/simt/checks/WrittenPages.h"

#include <memory>
#include <vector>

namespace KestrelPlatform
{

/// What a launch is checked for, and what has been found.
struct SCheckTotals
{
    explicit SCheckTotals(const SLaunchContext& context);
    SPlatformCheckLimits FindLimits() const;

    const SLaunchContext& context;
    CFindings findings;
    std::unique_ptr<CGroupRaces> pGroups; ///< null if races aren't looked for
    CWrittenPages written;
    std::vector<uint32_t> vInstructions; ///< by number of the access
};

/// What the blocks of one thread share.
struct SThreadChecks
{
    explicit SThreadChecks(SCheckTotals& totalsIn) : totals(totalsIn) {}
    ~SThreadChecks() { totals.findings.AddAll(findings); }
    SThreadChecks(const SThreadChecks&) = delete;
    SThreadChecks& operator=(const SThreadChecks&) = delete;

    SCheckTotals& totals;
    CFindings findings;
    CIntervalRaces races;
    CIntervalRows rows;
    std::vector<unsigned char> vLocalShadow;
};

/// Checks a running block for misaligned accesses, races, uses of unwritten values, faulty arithmetic, and barriers
/// that only part of a group reaches.
class CCheckRecorder : public IBlockRecorder
{
public:
    /// \param bFirst  whether the block is the first one of its thread
    CCheckRecorder(SThreadChecks& checks, bool bFirst);

    void Start(const CBlock& block) override;
    void Flow(const CBlock& /*block*/, uint32_t /*nInstruction*/) override {}
    void Written(const CBlock& /*block*/, const SCode& /*code*/, const SMicroOp& /*step*/) override {}
    void Accessing(const CBlock& block, const SMicroOp& step, const SAccess& access) override;
    void Stepping(const CBlock& block, const SMicroOp& step) override;
    void Stepped(const CBlock& block, const SMicroOp& step) override;
    void Accessed(const CBlock& block, const SMicroOp& step, const SAccess& access) override;
    bool SeesSteps() const override { return m_pInit || m_pNumbers; }
    void Barrier(const CBlock& block, const SMicroOp& step) override;
    /// The last groups of the thread have ended.
    void Finish() override;

private:
    /// The lanes of one group.
    struct SLanes
    {
        uint32_t nBegin;
        uint32_t nEnd;
    };

    void CheckAlignment(const CBlock& block, const SMicroOp& step, const SAccess& access);
    void CheckRaces(const CBlock& block, const SMicroOp& step, const SAccess& access);
    bool CheckRows(const CBlock& block, const SMicroOp& step, const SAccess& access);
    bool CheckRow(const CBlock& block, const SMicroOp& step, const SAccess& access, const SLanes& lanes);
    uint32_t SpaceOf(const SAccess& access, uint32_t nLane) const;
    bool PlacePlane(const CBlock& block, const SAccess& access, const SLanes& lanes, SRaceRow& row);
    bool PlaceWhole(const CBlock& block, const SAccess& access, uint64_t nLow, uint64_t nHigh, SRaceRow& row);
    bool PlaceListed(const CBlock& block, const SAccess& access, SRaceRow& row);
    bool PlaceEach(const CBlock& block, const SAccess& access, SRaceRow& row);
    bool GoUp(const SRaceRow& row) const;
    const unsigned char* StoredOf(const CBlock& block, const SAccess& access, const SLanes& lanes);
    bool IsReadOnly(const SAccess& access, uint64_t nAddress, uint64_t nBytes) const;
    bool FindPlace(const CBlock& block, const SAccess& access, uint32_t nLane, SRaceAccess& race);
    void TouchGroups();
    void Report(const CBlock& block, const SMicroOp& step, const SAccess& access, uint32_t nLane,
                const SRaceAccess& race);

    SThreadChecks& m_Checks;
    const bool m_bFirst;
    std::unique_ptr<CInitRecorder> m_pInit; ///< null if unwritten values aren't looked for
    std::unique_ptr<CNumberRecorder> m_pNumbers;
    std::unique_ptr<CPartBarriers> m_pBarriers;
    std::unique_ptr<CGroupRows> m_pGroupRows; ///< null if no other group can race
    uint32_t m_nInterval = 0;
    std::vector<uint64_t> m_vAddresses; ///< of the access under way, from the block's first lane
    std::vector<SRaceAccess> m_vGlobal; ///< its parts that touch one memory object
    uint32_t m_nRange = 0;              ///< the memory object found last
    std::vector<SIntervalRace> m_vRaces;
    std::vector<unsigned char> m_vStored; ///< bytes that the access under way stores, one work-item after the other
};

} // namespace KestrelPlatform

#endif
