#ifndef KESTREL_PLATFORM_COMPILER_BYTEHASH_H
#define KESTREL_PLATFORM_COMPILER_BYTEHASH_H

#include <cstdint>
#include <string_view>

namespace KestrelPlatform
{

/// FNV-1a over 64 bits; nHash continues an earlier one.
inline uint64_t HashBytes(std::string_view bytes, uint64_t nHash = 14695981039346656037u)
{
    for (const char c : bytes)
    {
        nHash = (nHash ^ static_cast<unsigned char>(c)) * 1099511628211u;
    }
    return nHash;
}

} // namespace KestrelPlatform

#endif
