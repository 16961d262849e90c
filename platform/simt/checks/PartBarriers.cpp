#include "platform/simt/checks/PartBarriers.h"

#include "platform/simt/Block.h"
#include "platform/simt/checks/Findings.h"

namespace KestrelPlatform
{

CPartBarriers::CPartBarriers(const SLaunchContext& context, CFindings& findings)
    : m_Context(context), m_Findings(findings), m_vOpen(context.nGroupsPerBlock)
{
}

void CPartBarriers::Tell(SPart& part, uint32_t nOther)
{
    if (part.nInstruction == ~0u)
    {
        return;
    }
    SPlatformFinding finding = MakeFinding(PLATFORM_FINDING_BARRIER, part.nInstruction, part.nMissing);
    finding.nOther = nOther;
    m_Findings.Add(finding);
    part = SPart();
}

CPartBarriers::SPart CPartBarriers::Look(const CBlock& block, const SMicroOp& step, uint32_t nFirst) const
{
    SPart part;
    part.nInstruction = step.nInstruction;
    for (uint32_t n = m_Context.nGroupSize; n-- > 0;)
    {
        part.here[n] = block.IsActive(nFirst + n);
        part.nMissing = part.here[n] ? part.nMissing : block.GetWorkItem(nFirst + n);
    }
    return part;
}

void CPartBarriers::Reach(const CBlock& block, const SMicroOp& step)
{
    if (block.GetActive() == block.GetLive())
    {
        return Finish();
    }
    for (uint32_t n = 0; n * m_Context.nGroupSize < block.GetLive(); ++n)
    {
        SPart part = Look(block, step, n * m_Context.nGroupSize);
        SPart& open = m_vOpen[n];
        const bool bRest = open.nInstruction != ~0u && (open.here & part.here).none() &&
                           open.here.count() + part.here.count() == m_Context.nGroupSize;
        if (part.here.none())
        {
            continue;
        }
        Tell(open, bRest ? part.nInstruction : ~0u);
        if (!bRest && part.here.count() != m_Context.nGroupSize)
        {
            open = part;
        }
    }
    m_bAny = true;
}

void CPartBarriers::Finish()
{
    if (!m_bAny)
    {
        return;
    }
    for (SPart& part : m_vOpen)
    {
        Tell(part, ~0u);
    }
    m_bAny = false;
}

} // namespace KestrelPlatform
