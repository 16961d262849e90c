#ifndef KESTREL_PLATFORM_SIMT_CHECKS_ACCESSSPAN_H
#define KESTREL_PLATFORM_SIMT_CHECKS_ACCESSSPAN_H

#include "platform/simt/AddressPlane.h"

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
    bool bPlane = false;          ///< all lanes between the first and the last are active, and lie as plane says
    SAddressPlane plane;
};

/// \param nBytes  that each of them touches
/// \param vAddresses  room for addresses, which may be used
SAccessSpan FindSpan(const CBlock& block, const SAccess& access, uint32_t nBytes, std::vector<uint64_t>& vAddresses);

} // namespace KestrelPlatform

#endif
