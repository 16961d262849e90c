#ifndef KESTREL_PLATFORM_SIMT_CHECKS_RACEACCESS_H
#define KESTREL_PLATFORM_SIMT_CHECKS_RACEACCESS_H

#include <cstdint>

namespace KestrelPlatform
{

/// What an access means for others to the same bytes.
enum ERaceKind : uint8_t
{
    RACE_READ,
    RACE_WRITE,
    RACE_ATOMIC ///< doesn't race with other atomics
};

/// Size of the pages by which accesses to global memory are kept.
const uint32_t s_nRacePageBytes = 4096;

/// The numbers of work-items in a group and of accesses in a program have 16 bits, and are below this one.
const uint32_t s_nMostRaceNumbers = 0xFFFF;

/// One work-item's access.
struct SRaceAccess
{
    uint64_t nAddress = 0; ///< from the start of a memory object or of local memory
    uint32_t nBytes = 0;   ///< at most 16
    ERaceKind eKind = RACE_READ;
    uint16_t nItem = 0;           ///< in its group
    uint16_t nNumber = 0;         ///< of the access in the program
    uint64_t nGroup = 0;          ///< linear
    unsigned char bytes[16] = {}; ///< that it stores
};

} // namespace KestrelPlatform

#endif
