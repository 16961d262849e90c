#ifndef KESTREL_PLATFORM_SIMT_CHECKS_VISITCOUNTS_H
#define KESTREL_PLATFORM_SIMT_CHECKS_VISITCOUNTS_H

#include "platform/simt/BlockRecorder.h"

#include <mutex>
#include <vector>

namespace KestrelPlatform
{

/// How many work-items came to each instruction of a launch, over all passes of loops and all calls.
class CVisitTotals
{
public:
    /// Takes the counts of one thread. Any thread.
    void Add(const std::vector<uint64_t>& vCounts);
    /// By instruction; shorter than the program if no work-item came to the rest of it. To be called after the launch.
    std::vector<uint64_t> Take() { return std::move(m_vCounts); }

private:
    std::mutex m_Mutex;
    std::vector<uint64_t> m_vCounts;
};

/// The counts of one thread's blocks.
class CVisitCounts : public IBlockRecorder
{
public:
    explicit CVisitCounts(CVisitTotals& totals) : m_Totals(totals) {}
    /// Hands the counts over.
    ~CVisitCounts() override { m_Totals.Add(m_vCounts); }

    void Flow(const CBlock& block, uint32_t nInstruction) override;
    void Written(const CBlock& block, const SCode& code, const SMicroOp& step) override;

private:
    CVisitTotals& m_Totals;
    std::vector<uint64_t> m_vCounts;
};

} // namespace KestrelPlatform

#endif
