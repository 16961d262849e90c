#ifndef KESTREL_PLATFORM_RUNTIME_REGION_H
#define KESTREL_PLATFORM_RUNTIME_REGION_H

#include <cstddef>

namespace KestrelPlatform::Runtime
{

/// How many bytes lie between rows, and between slices, of a piece of memory.
struct SPitches
{
    size_t m_nRow;
    size_t m_nSlice;
};

/// A box of bytes: so many bytes a row, rows a slice, slices.
struct SBox
{
    size_t m_nRowBytes;
    size_t m_nRows;
    size_t m_nSlices;

    size_t GetBytes() const { return m_nRowBytes * m_nRows * m_nSlices; }
};

/// Copies a box, row by row. Boxes that share bytes give no defined result, but do no harm.
void CopyBox(unsigned char* pTarget, const SPitches& target, const unsigned char* pSource, const SPitches& source,
             const SBox& box);

/// Fills a piece of memory with a pattern; nBytes is a multiple of nPattern.
void FillPattern(unsigned char* pTarget, size_t nBytes, const void* pPattern, size_t nPattern);

/// a * b + c, or false if that doesn't fit.
bool MultiplyAdd(size_t a, size_t b, size_t c, size_t& nResult);

} // namespace KestrelPlatform::Runtime

#endif
