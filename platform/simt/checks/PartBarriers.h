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

/// Finds barriers to which only part of a group comes, for groups that lie within a block. If all others then come to
/// another one, the two are one finding.
class CPartBarriers
{
public:
    CPartBarriers(const SLaunchContext& context, CFindings& findings);

    /// Active work-items have come to a barrier. Throws std::bad_alloc.
    void Reach(const CBlock& block, const SMicroOp& step);
    /// Tells of what is still open. For when groups have ended.
    void Finish();

private:
    /// A barrier that part of a group has come to.
    struct SPart
    {
        uint32_t nInstruction = ~0u; ///< which stands for none
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
