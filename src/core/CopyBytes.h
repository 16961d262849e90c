#ifndef KESTREL_CORE_COPYBYTES_H
#define KESTREL_CORE_COPYBYTES_H

#include <algorithm>
#include <cstddef>
#include <cstring>

/// Copies as memcpy does, but in pieces well below the size of the second-level cache. The C library copies larger
/// pieces with a loop of its own, for which the processor first reads the cache lines that it is about to write.
/// Smaller ones it leaves to the processor's string instruction, which doesn't read them.
inline void CopyBytes(void* pDestination, const void* pSource, size_t nBytes)
{
    constexpr size_t nPiece = size_t(256) * 1024;
    auto* const pTo = static_cast<unsigned char*>(pDestination);
    const auto* const pFrom = static_cast<const unsigned char*>(pSource);
    for (size_t nDone = 0; nDone < nBytes; nDone += nPiece)
    {
        std::memcpy(pTo + nDone, pFrom + nDone, std::min(nPiece, nBytes - nDone));
    }
}

#endif
