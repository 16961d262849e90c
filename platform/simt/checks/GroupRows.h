#ifndef KESTREL_PLATFORM_SIMT_CHECKS_GROUPROWS_H
#define KESTREL_PLATFORM_SIMT_CHECKS_GROUPROWS_H

#include "platform/simt/checks/GroupRaces.h"

#include <cstdint>
#include <vector>

namespace KestrelPlatform
{

/// Hands the rows of a block on to CGroupRaces, in even parts where there are any. What a loop reads word after word,
/// each of them the same one for many work-items, is put together first.
class CGroupRows
{
public:
    explicit CGroupRows(CGroupRaces& groups) : m_Groups(groups) {}

    /// \param pValues  that a write stores, one work-item after the other
    /// \param pAddresses  of a row that is no plane, as CIntervalRows has them
    void Touch(uint32_t nRange, const SRaceRow& row, uint64_t nGroup, const unsigned char* pValues,
               const uint64_t* pAddresses);
    /// Hands on what is held back.
    void Flush();

private:
    /// Reads or atomics of a loop. The pieces of each have a place of their own, and are as wide.
    struct SRun
    {
        SRaceRow row; ///< the first one's
        uint32_t nRange = 0;
        uint64_t nGroup = 0;
        uint64_t nWide = 0; ///< bytes from each piece's place
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
    std::vector<uint64_t> m_vPieces; ///< where those of a listed row begin
    std::vector<SRaceAccess> m_vWords;
};

} // namespace KestrelPlatform

#endif
