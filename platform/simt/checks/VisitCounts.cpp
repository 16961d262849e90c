#include "platform/simt/checks/VisitCounts.h"

#include "platform/simt/Block.h"

namespace KestrelPlatform
{

void CVisitTotals::Add(const std::vector<uint64_t>& vCounts)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_vCounts.size() < vCounts.size())
    {
        m_vCounts.resize(vCounts.size(), 0);
    }
    for (size_t n = 0; n < vCounts.size(); ++n)
    {
        m_vCounts[n] += vCounts[n];
    }
}

void CVisitCounts::Flow(const CBlock& block, uint32_t nInstruction)
{
    if (nInstruction >= m_vCounts.size())
    {
        m_vCounts.resize(nInstruction + size_t{1}, 0);
    }
    m_vCounts[nInstruction] += block.GetActive();
}

void CVisitCounts::Written(const CBlock& block, const SCode& /*code*/, const SMicroOp& step)
{
    Flow(block, step.nInstruction);
}

} // namespace KestrelPlatform
