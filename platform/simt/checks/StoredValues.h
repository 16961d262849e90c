#ifndef KESTREL_PLATFORM_SIMT_CHECKS_STOREDVALUES_H
#define KESTREL_PLATFORM_SIMT_CHECKS_STOREDVALUES_H

#include "platform/simt/checks/RaceAccess.h"

#include <cstdint>

namespace KestrelPlatform
{

/// What was first stored in each byte of a page, and whether anything else was stored there since.
struct SStoredValues
{
    /// Nothing was stored in the page. The bytes themselves stay as they are.
    SStoredValues() : m_nWritten{}, m_nDiffer{} {}

    void Note(uint64_t nBegin, uint64_t nEnd, const unsigned char* pValues);
    /// Whether different values were stored in any of these bytes, which lie within 8.
    bool Differ(uint64_t nBegin, uint32_t nBytes) const;

private:
    static constexpr uint32_t s_nBits = 64; ///< bytes for which one word has bits

    void NoteRest(uint64_t nFirst, uint64_t nMask, uint64_t nOld, const unsigned char* pValues);

    unsigned char m_First[s_nRacePageBytes];
    uint64_t m_nWritten[s_nRacePageBytes / s_nBits]; ///< a bit for each byte
    uint64_t m_nDiffer[s_nRacePageBytes / s_nBits];
};

} // namespace KestrelPlatform

#endif
