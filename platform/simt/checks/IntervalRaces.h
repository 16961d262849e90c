#ifndef KESTREL_PLATFORM_SIMT_CHECKS_INTERVALRACES_H
#define KESTREL_PLATFORM_SIMT_CHECKS_INTERVALRACES_H

#include "platform/simt/checks/RaceAccess.h"

#include <cstddef>
#include <vector>

namespace KestrelPlatform
{

/// A race within a group.
struct SIntervalRace
{
    uint16_t nItem = 0; ///< of the earlier access
    uint16_t nNumber = 0;
    ERaceKind eKind = RACE_READ; ///< of the earlier access
    bool bUnequal = true;        ///< false for two writes of the same value
    uint32_t nOffset = 0;        ///< of the bytes in the later access
    uint32_t nBytes = 0;
    uint32_t nOldValue = 0; ///< of two writes, that of the earlier one
    uint32_t nValue = 0;
};

/// Finds races within a group, from the accesses to each word since the group's last barrier. It keeps the last writer,
/// the first two different readers, and the first two different work-items with atomics. At least one of the two isn't
/// the next writer. A word of which parts are accessed is split into bytes. Each thread has one object, for one
/// group after the other.
class CIntervalRaces
{
public:
    CIntervalRaces() : m_Words(1024), m_Bytes(64) {}

    /// New groups begin, and earlier accesses no longer count.
    void Begin();
    /// Takes one work-item's access. Throws std::bad_alloc.
    /// \param nSpace  number of the address space; each group of a block has its own
    /// \param nInterval  barriers so far
    /// \param vRaces  receives the races with earlier accesses
    void Touch(const SRaceAccess& access, uint32_t nSpace, uint32_t nInterval, std::vector<SIntervalRace>& vRaces);

private:
    struct SWho
    {
        uint16_t nItem = 0;
        uint16_t nNumber = s_nMostRaceNumbers; ///< s_nMostRaceNumbers if there is none

        bool IsThere() const { return nNumber != s_nMostRaceNumbers; }
    };
    struct SWhoTwo
    {
        SWho first;
        SWho other;

        void Add(const SWho& who);
        /// Anyone but that work-item.
        SWho Except(uint16_t nItem) const { return first.nItem == nItem ? other : first; }
    };
    struct SCell
    {
        uint64_t nUnit = 0; ///< address in words or bytes
        uint32_t nSpace = 0;
        uint32_t nStamp = 0;
        uint32_t nValue = 0; ///< that the writer wrote
        bool bSplit = false; ///< a word whose bytes have cells of their own
        SWho writer;
        SWhoTwo readers;
        SWhoTwo atomics;
    };
    struct STable
    {
        explicit STable(size_t nCells) : vCells(nCells) {}

        std::vector<SCell> vCells; ///< a power of two; free if the stamp is older than the group
        size_t nUsed = 0;
    };

    SCell& Cell(STable& table, uint64_t nUnit, uint32_t nSpace, uint32_t nStamp) const;
    SCell& Place(STable& table, uint64_t nUnit, uint32_t nSpace) const;
    void Grow(STable& table) const;
    void Split(uint64_t nWord, uint32_t nSpace, uint32_t nStamp);
    static void TouchCell(SCell& cell, const SRaceAccess& access, SIntervalRace race,
                          std::vector<SIntervalRace>& vRaces);

    STable m_Words;
    STable m_Bytes;
    uint32_t m_nBase = 1;
    uint32_t m_nHighest = 0; ///< stamp in use
};

} // namespace KestrelPlatform

#endif
