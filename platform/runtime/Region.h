#ifndef KESTREL_PLATFORM_RUNTIME_REGION_H
#define KESTREL_PLATFORM_RUNTIME_REGION_H

#include <cstddef>

namespace KestrelPlatform::Runtime
{

/// The distances in bytes between rows, and between slices, in memory.
struct SPitches
{
    size_t m_nRow;
    size_t m_nSlice;
};

/// A box of bytes: bytes in a row, rows in a slice, slices.
struct SBox
{
    size_t m_nRowBytes;
    size_t m_nRows;
    size_t m_nSlices;

    size_t GetBytes() const { return m_nRowBytes * m_nRows * m_nSlices; }
};

/// Copies a box, row by row. Overlapping boxes are harmless, but their result is undefined.
void CopyBox(unsigned char* pTarget, const SPitches& target, const unsigned char* pSource, const SPitches& source,
             const SBox& box);

/// Fills a piece of memory with a pattern; nBytes is a multiple of nPattern.
void FillPattern(unsigned char* pTarget, size_t nBytes, const void* pPattern, size_t nPattern);

/// a * b + c, or false on overflow.
bool MultiplyAdd(size_t a, size_t b, size_t c, size_t& nResult);

} // namespace KestrelPlatform::Runtime

#endif
