#ifndef KESTREL_PLATFORM_SIMT_ELEMENTS_H
#define KESTREL_PLATFORM_SIMT_ELEMENTS_H

#include "platform/simt/Program.h"

#include <cstring>

namespace KestrelPlatform
{

/// Loads a byte or half-word, extended to a word.
inline uint32_t LoadNarrow(const unsigned char* p, uint32_t nBytes, bool bSigned)
{
    if (nBytes == 1)
    {
        return bSigned ? static_cast<uint32_t>(static_cast<int8_t>(*p)) : *p;
    }
    uint16_t n = 0;
    std::memcpy(&n, p, sizeof n);
    return bSigned ? static_cast<uint32_t>(static_cast<int16_t>(n)) : n;
}

/// The bytes that an access moves for one work-item.
inline uint32_t TotalBytes(const SAccess& access)
{
    return access.nElementBytes * static_cast<uint32_t>(access.nWords);
}

/// The bytes of memory that one work-item's access touches; an atomic touches one element.
inline uint32_t LaneBytes(const SAccess& access)
{
    return access.eOperation == SAccess::Atomic ? access.nElementBytes : TotalBytes(access);
}

} // namespace KestrelPlatform

#endif
