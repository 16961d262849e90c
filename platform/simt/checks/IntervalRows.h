#ifndef KESTREL_PLATFORM_SIMT_CHECKS_INTERVALROWS_H
#define KESTREL_PLATFORM_SIMT_CHECKS_INTERVALROWS_H

#include "platform/simt/AddressPlane.h"
#include "platform/simt/checks/IntervalRaces.h"

#include <cstddef>
#include <vector>

namespace KestrelPlatform
{

/// One access of consecutive work-items of a group, by whole words or by bytes of them.
struct SRaceRow
{
    SAddressPlane plane; ///< where they touch memory, if bPlane
    uint64_t nLow = 0;   ///< the first byte of all
    uint64_t nEnd = 0;   ///< after the last one
    uint32_t nBytes = 0; ///< of each
    uint32_t nCount = 0;
    uint32_t nSpace = 0; ///< as CIntervalRaces has it
    ERaceKind eKind = RACE_READ;
    bool bPlane = true;   ///< else the row comes with a list of addresses
    uint16_t nItem = 0;   ///< the first one in the group
    uint16_t nNumber = 0; ///< of the access in the program
};

/// Keeps a group's accesses since its last barrier as rows, while these can't race: each work-item touches words of its
/// own, or all only read, or the rows don't overlap. After the first access for which that isn't certain,
/// CIntervalRaces takes them all over and checks each word.
class CIntervalRows
{
public:
    static constexpr uint64_t s_nInactive = ~uint64_t(0);

    /// New groups begin.
    void Begin();
    /// \param pValues  the bytes that a write stores, one work-item after the other
    /// \param pAddresses  the addresses of a row that isn't a plane, s_nInactive for inactive work-items; the bytes of
    ///                    a write mustn't overlap
    /// \return false if the row has to be checked word by word
    bool Add(const SRaceRow& row, uint32_t nInterval, const unsigned char* pValues, const uint64_t* pAddresses);
    /// Hands the rows over. The rest of the interval is checked word by word.
    void GoToWords(CIntervalRaces& words, uint32_t nInterval);

private:
    struct SKept
    {
        SRaceRow row;
        size_t nData = 0; ///< where its values or addresses begin
    };

    void StartInterval(uint32_t nInterval);
    bool MayRace(const SRaceRow& row, ERaceKind eKind, const uint64_t* pAddresses) const;
    SKept* FindSame(const SRaceRow& row);
    bool Extend(const SRaceRow& row);
    void Replay(const SKept& kept, CIntervalRaces& words, uint32_t nInterval) const;

    std::vector<SKept> m_vKept[3]; ///< by kind, in the order in which they came
    std::vector<unsigned char> m_vData;
    uint32_t m_nInterval = 0;
    bool m_bWords = false; ///< the interval is checked word by word
};

} // namespace KestrelPlatform

#endif
