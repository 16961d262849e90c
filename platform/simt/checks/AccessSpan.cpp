#include "platform/simt/checks/AccessSpan.h"

#include "platform/simt/Block.h"

#include <algorithm>

namespace KestrelPlatform
{

namespace
{

void Add(SAccessSpan& span, uint64_t nLow, uint64_t nHigh, uint32_t nBytes)
{
    span.nLow = std::min(span.nLow, nLow);
    span.nEnd = std::max(span.nEnd, nHigh + nBytes);
}

/// Lane by lane.
void AddEach(const CBlock& block, const SAccess& access, uint32_t nBytes, std::vector<uint64_t>& vAddresses,
             SAccessSpan& span)
{
    const uint32_t nBegin = block.GetFirstLane();
    block.FillAddresses(access, nBegin, block.GetEndLane(), vAddresses.data());
    for (uint32_t n = nBegin; n < block.GetEndLane(); ++n)
    {
        if (block.IsActive(n))
        {
            Add(span, vAddresses[n - nBegin], vAddresses[n - nBegin], nBytes);
        }
    }
}

} // namespace

SAccessSpan FindSpan(const CBlock& block, const SAccess& access, uint32_t nBytes, std::vector<uint64_t>& vAddresses)
{
    SAccessSpan span;
    const uint32_t nBegin = block.GetFirstLane();
    const uint32_t nEnd = block.GetEndLane();
    const bool bAll = block.GetActive() == nEnd - nBegin;
    if ((bAll || access.bUniform) && block.FindPlane(access, nBegin, nEnd, span.plane))
    {
        span.bPlane = true;
        Add(span, span.plane.GetLow(nEnd - nBegin), span.plane.GetHigh(nEnd - nBegin), nBytes);
        return span;
    }
    uint64_t nLow = 0;
    uint64_t nHigh = 0;
    if (block.FindRange(access, nLow, nHigh))
    {
        Add(span, nLow, nHigh, nBytes);
    }
    else
    {
        AddEach(block, access, nBytes, vAddresses, span);
    }
    return span;
}

} // namespace KestrelPlatform
