#ifndef KESTREL_CORE_COPYBYTES_H
#define KESTREL_CORE_COPYBYTES_H

#include <algorithm>
#include <cstddef>
#include <cstring>

/// Copies as memcpy does, but blocks of any size in pieces well below the second-level cache. Larger pieces the C
/// library copies with a loop of its own, for which the processor first reads the lines that are about to be written;
/// smaller ones it leaves to the processor's copying of strings, which knows that it needn't.
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
