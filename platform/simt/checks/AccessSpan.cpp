#include "platform/simt/checks/AccessSpan.h"

#include "platform/simt/Block.h"

#include <algorithm>

namespace KestrelPlatform
{

namespace
{

void AddEven(SAccessSpan& span, uint64_t nFirst, uint64_t nLast, uint32_t nBytes)
{
    span.nLow = std::min({span.nLow, nFirst, nLast});
    span.nEnd = std::max({span.nEnd, nFirst + nBytes, nLast + nBytes});
}

} // namespace

SAccessSpan FindSpan(const CBlock& block, const SAccess& access, uint32_t nBytes, std::vector<uint64_t>& vAddresses)
{
    SAccessSpan span;
    const uint32_t nBegin = block.GetFirstLane();
    const uint32_t nEnd = block.GetEndLane();
    const bool bAll = block.GetActive() == nEnd - nBegin;
    uint64_t nFirst = 0;
    uint64_t nLast = 0;
    if ((bAll || access.bUniform) && block.IsEven(access, nBegin, nEnd, nFirst, nLast))
    {
        AddEven(span, nFirst, nLast, nBytes);
        span.bEven = true;
        span.nFirst = nFirst;
        span.nStep = nEnd - nBegin > 1 ? static_cast<int64_t>(nLast - nFirst) / int64_t{nEnd - nBegin - 1} : 0;
        return span;
    }
    // The rows of a small group lie evenly, each for itself.
    for (uint32_t nPiece = nBegin; nPiece < nEnd; nPiece += s_nGranule)
    {
        const uint32_t nPieceEnd = std::min(nPiece + s_nGranule, nEnd);
        if (bAll && block.IsEven(access, nPiece, nPieceEnd, nFirst, nLast))
        {
            AddEven(span, nFirst, nLast, nBytes);
            continue;
        }
        block.FillAddresses(access, nPiece, nPieceEnd, vAddresses.data());
        for (uint32_t n = nPiece; n < nPieceEnd; ++n)
        {
            if (block.IsActive(n))
            {
                AddEven(span, vAddresses[n - nPiece], vAddresses[n - nPiece], nBytes);
            }
        }
    }
    return span;
}

} // namespace KestrelPlatform
