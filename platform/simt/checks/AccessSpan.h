#ifndef KESTREL_PLATFORM_SIMT_CHECKS_ACCESSSPAN_H
#define KESTREL_PLATFORM_SIMT_CHECKS_ACCESSSPAN_H

#include <cstdint>
#include <vector>

namespace KestrelPlatform
{

class CBlock;
struct SAccess;

/// Where the active work-items of a block touch memory.
struct SAccessSpan
{
    uint64_t nLow = ~uint64_t(0); ///< the first byte of all
    uint64_t nEnd = 0;            ///< after the last one
    bool bEven = false;           ///< all lanes between the first and the last are active, and lie evenly
    uint64_t nFirst = 0;          ///< the first one's address, then
    int64_t nStep = 0;            ///< from each to the next
};

/// \param nBytes  that each of them touches
/// \param vAddresses  room for addresses, which may be used
SAccessSpan FindSpan(const CBlock& block, const SAccess& access, uint32_t nBytes, std::vector<uint64_t>& vAddresses);

} // namespace KestrelPlatform

#endif
