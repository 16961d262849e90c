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

typedef std::vector<SSpan> Spans; ///< in order, none touching another

/// Where the values of a kernel are live. Positions count along the steps of the structured form. An instruction reads
/// at an even position and writes at the next one. The copies of an edge read and write at the end of the edge's source
/// block; the branch reads its condition after them.
struct SLiveness
{
    std::vector<SSpan> vHulls; ///< by virtual register: from the first to the last step that matters
    /// By virtual register, for phis and the values copied into them: where the value is live in the function's own
    /// flow graph.
    std::vector<Spans> vSpans;
    std::vector<SSpan> vGuards;
    /// By block: from the position where the copies on its edges have been written to the end of the block.
    std::vector<SSpan> vCopiesWritten;
};

SLiveness FindLiveness(const SKernelCode& code, const std::vector<SFlowStep>& vSteps, unsigned nGuards);

/// Whether two lists overlap in a stretch for which the function gives true.
bool Meet(const Spans& a, const Spans& b, llvm::function_ref<bool(const SSpan&)> counts);
/// Adds stretches to a list, which may be much longer.
void Unite(Spans& spans, const Spans& others);

} // namespace KestrelOpenCL

#endif
