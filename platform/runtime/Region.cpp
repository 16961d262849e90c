#include "platform/runtime/Region.h"

#include <algorithm>
#include <cstring>

namespace KestrelPlatform::Runtime
{

void CopyBox(unsigned char* pTarget, const SPitches& target, const unsigned char* pSource, const SPitches& source,
             const SBox& box)
{
    for (size_t nSlice = 0; nSlice < box.m_nSlices; ++nSlice)
    {
        for (size_t nRow = 0; nRow < box.m_nRows; ++nRow)
        {
            std::memmove(pTarget + nSlice * target.m_nSlice + nRow * target.m_nRow,
                         pSource + nSlice * source.m_nSlice + nRow * source.m_nRow, box.m_nRowBytes);
        }
    }
}

void FillPattern(unsigned char* pTarget, size_t nBytes, const void* pPattern, size_t nPattern)
{
    if (nBytes == 0)
    {
        return;
    }
    std::memcpy(pTarget, pPattern, nPattern);
    // Each pass doubles the filled part.
    for (size_t nFilled = nPattern; nFilled < nBytes;)
    {
        const size_t nPiece = std::min(nFilled, nBytes - nFilled);
        std::memcpy(pTarget + nFilled, pTarget, nPiece);
        nFilled += nPiece;
    }
}

bool MultiplyAdd(size_t a, size_t b, size_t c, size_t& nResult)
{
    size_t nProduct = 0;
    return !__builtin_mul_overflow(a, b, &nProduct) && !__builtin_add_overflow(nProduct, c, &nResult);
}

} // namespace KestrelPlatform::Runtime
