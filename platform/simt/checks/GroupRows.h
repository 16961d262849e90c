#ifndef KESTREL_PLATFORM_SIMT_CHECKS_GROUPROWS_H
#define KESTREL_PLATFORM_SIMT_CHECKS_GROUPROWS_H

#include "platform/simt/checks/GroupRaces.h"

#include <cstdint>
#include <vector>

namespace KestrelPlatform
{

/// Hands the rows of a block on to CGroupRaces, in parts of an even step where possible. If a loop reads one word after
/// the other, each of them for many work-items, these reads are combined first.
class CGroupRows
{
public:
    explicit CGroupRows(CGroupRaces& groups) : m_Groups(groups) {}

    /// \param pValues  the bytes that a write stores, one work-item after the other
    /// \param pAddresses  the addresses of a row that isn't a plane, as for CIntervalRows::Add
    void Touch(uint32_t nRange, const SRaceRow& row, uint64_t nGroup, const unsigned char* pValues,
               const uint64_t* pAddresses);
    /// Hands on what is held back.
    void Flush();

private:
    /// Combined reads or atomics of a loop. Each piece of the row touches the bytes after a place of its own.
    struct SRun
    {
        SRaceRow row; ///< the first access
        uint32_t nRange = 0;
        uint64_t nGroup = 0;
        uint64_t nWide = 0; ///< bytes touched from each piece's place on
    };

    void TouchPlane(uint32_t nRange, SRaceRow row, uint64_t nGroup, const unsigned char* pValues);
    void TouchListed(uint32_t nRange, const SRaceRow& row, uint64_t nGroup, const unsigned char* pValues,
                     const uint64_t* pAddresses);
    uint32_t TouchPiece(uint32_t nRange, const SRaceRow& row, uint32_t nLane, uint64_t nGroup,
                        const unsigned char* pValues, const uint64_t* pAddresses);
    void AddWord(const SRaceRow& row, uint32_t nLane, uint64_t nAddress, uint64_t nGroup, const unsigned char* pValues);
    void TouchWords(uint32_t nRange);
    void AddRun(uint32_t nRange, const SRaceRow& row, uint64_t nGroup);
    void FlushRun(const SRun& run);

    CGroupRaces& m_Groups;
    std::vector<SRun> m_vRuns;
    std::vector<uint64_t> m_vPieces; ///< where the pieces of a listed row begin
    std::vector<SRaceAccess> m_vWords;
};

} // namespace KestrelPlatform

#endif
