#ifndef KESTREL_PLATFORM_SIMT_CHECKS_PARTBARRIERS_H
#define KESTREL_PLATFORM_SIMT_CHECKS_PARTBARRIERS_H

#include "platform/simt/LaneOps.h"

#include <bitset>
#include <vector>

namespace KestrelPlatform
{

class CBlock;
class CFindings;
struct SLaunchContext;
struct SMicroOp;

/// Finds barriers that only part of a group reaches, for groups within one block. If all others then reach another
/// barrier, the two are one finding.
class CPartBarriers
{
public:
    CPartBarriers(const SLaunchContext& context, CFindings& findings);

    /// The active work-items have reached a barrier. Throws std::bad_alloc.
    void Reach(const CBlock& block, const SMicroOp& step);
    /// Reports the barriers that are still open. To be called when the groups have ended.
    void Finish();

private:
    /// A barrier that part of a group has reached.
    struct SPart
    {
        uint32_t nInstruction = ~0u; ///< ~0 for none
        uint64_t nMissing = 0;       ///< the first work-item that didn't
        std::bitset<s_nLanes> here;
    };

    SPart Look(const CBlock& block, const SMicroOp& step, uint32_t nFirst) const;
    void Tell(SPart& part, uint32_t nOther);

    const SLaunchContext& m_Context;
    CFindings& m_Findings;
    std::vector<SPart> m_vOpen; ///< by group of the block
    bool m_bAny = false;
};

} // namespace KestrelPlatform

#endif
