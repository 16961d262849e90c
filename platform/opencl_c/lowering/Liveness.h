#ifndef KESTREL_PLATFORM_OPENCL_C_LOWERING_LIVENESS_H
#define KESTREL_PLATFORM_OPENCL_C_LOWERING_LIVENESS_H

#include "platform/opencl_c/lowering/Allocation.h"

#include "llvm/ADT/STLFunctionalExtras.h"

namespace KestrelOpenCL
{

/// A stretch of positions, both ends inclusive.
struct SSpan
{
    uint32_t nFirst = 0xFFFFFFFFu;
    uint32_t nLast = 0;

    void Add(uint32_t n)
    {
        nFirst = n < nFirst ? n : nFirst;
        nLast = n > nLast ? n : nLast;
    }
    bool IsEmpty() const { return nFirst > nLast; }
};

typedef std::vector<SSpan> Spans; ///< in order, without touching each other

/// Where the values of a kernel live. Positions count through the steps of the structured form: an instruction reads at
/// an even one and writes at the next; the copies of an edge read and write at the end of the block they come from, and
/// the branch looks at its condition after them.
struct SLiveness
{
    std::vector<SSpan> vHulls; ///< by virtual register: from the first to the last step that counts
    /// By virtual register, for phis and what is copied into them: where the value is needed, on the function's own
    /// graph.
    std::vector<Spans> vSpans;
    std::vector<SSpan> vGuards;
    /// By block: from where the copies on its edges have been written to its end.
    std::vector<SSpan> vCopiesWritten;
};

SLiveness FindLiveness(const SKernelCode& code, const std::vector<SFlowStep>& vSteps, unsigned nGuards);

/// Whether there is a stretch that is part of both and of which the function says that it counts.
bool Meet(const Spans& a, const Spans& b, llvm::function_ref<bool(const SSpan&)> counts);
/// Adds others to a list that may be much longer.
void Unite(Spans& spans, const Spans& others);

} // namespace KestrelOpenCL

#endif
