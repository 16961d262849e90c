#ifndef KESTREL_PLATFORM_SIMT_CHECKS_GROUPRACES_H
#define KESTREL_PLATFORM_SIMT_CHECKS_GROUPRACES_H

#include "platform/simt/WideLaunch.h"
#include "platform/simt/checks/IntervalRows.h"
#include "platform/simt/checks/RaceAccess.h"
#include "platform/simt/checks/ShadowArena.h"
#include "platform/simt/checks/SpinLock.h"
#include "platform/simt/checks/StoredValues.h"

#include <array>
#include <cstdint>
#include <vector>

namespace KestrelPlatform
{

class CFindings;
struct SCode;
struct SLaunchContext;

/// The instruction of each access of a program.
std::vector<uint32_t> FindAccessInstructions(const SCode& code);

/// Which groups have touched each word of global memory, over a whole launch: no barrier orders groups. Of each kind
/// of access the lowest one is kept, and the lowest one of another group. So what is kept depends neither on the order
/// of groups nor on threads, and two groups that shouldn't have met are never missed. Words of which bytes are touched
/// by themselves are kept byte by byte, a page at a time.
class CGroupRaces
{
public:
    static constexpr int64_t s_nMostStep = 64;

    explicit CGroupRaces(const SLaunchContext& context);
    CGroupRaces(const CGroupRaces&) = delete;
    CGroupRaces& operator=(const CGroupRaces&) = delete;

    /// Takes accesses of one kind to a memory object. Any thread. Throws std::bad_alloc.
    /// \param nRange  which of the launch's
    void Touch(uint32_t nRange, const SRaceAccess* pAccesses, uint32_t nCount);
    /// Takes an even row of one kind of access of which each work-item's bytes lie behind those of the one before, by
    /// s_nMostStep at most. Or bytes that its first work-item has touched all of, which its step of 0 tells.
    /// \param pValues  that a write stores, one work-item after the other
    void TouchRow(uint32_t nRange, const SRaceRow& row, uint64_t nGroup, const unsigned char* pValues);
    /// Tells of all pairs that raced. For when the launch has ended.
    void Report(CFindings& findings);
    /// What all of this takes.
    size_t GetBytes() const { return m_Arena.GetTaken(); }

private:
    /// The lowest access, and the lowest of another group.
    struct STwo
    {
        uint64_t nFirst = ~uint64_t(0);
        uint64_t nOther = ~uint64_t(0);

        void Add(uint64_t nEntry, uint32_t nGroupShift);
    };
    /// What rows that differ in nothing but their group have touched of a page.
    struct SPart
    {
        uint16_t nBegin = 0; ///< bytes from the start of the page
        uint16_t nEnd = 0;
        int16_t nFirst = 0; ///< where the first work-item's are, which may be in an earlier page
        uint16_t nItem = 0;
        uint16_t nNumber = 0;
        uint8_t nStep = 0;  ///< from each work-item's to the next; 0 if the first has touched them all
        uint8_t nBytes = 0; ///< of each
        ERaceKind eKind = RACE_READ;
        uint32_t nGroup = 0; ///< the lowest
        uint32_t nOther = ~0u;

        bool HasWords() const { return (nStep == 0 ? nBegin | nEnd : nFirst | nStep | nBytes) % 4 == 0; }
    };
    /// All of it lies in the arena.
    struct SPage
    {
        uint16_t nUnit = 4;  ///< bytes
        uint16_t nParts = 0; ///< that aren't among the kinds yet
        uint16_t nRoom = 0;  ///< for them
        uint16_t nNext = 0;  ///< the part to look at first
        SPart* pParts = nullptr;
        unsigned char* pKinds[3] = {};    ///< entries by RaceKind and unit; null if there was none in the page
        SStoredValues* pValues = nullptr; ///< null if nothing was written
    };

    SPage& Page(uint32_t nRange, uint64_t nPage);
    CSpinLock& LockOf(uint64_t nPage) { return m_Locks[nPage % m_Locks.size()]; }
    uint64_t MakeEntry(uint64_t nGroup, uint32_t nItem, uint32_t nNumber) const;
    STwo GetTwo(const SPage& page, ERaceKind eKind, size_t nUnit) const;
    void SetTwo(SPage& page, ERaceKind eKind, size_t nUnit, const STwo& two);
    void AddEntry(SPage& page, ERaceKind eKind, size_t nUnit, uint64_t nEntry);
    void Split(SPage& page);
    void TouchPage(SPage& page, const SRaceAccess& access);
    void NoteRow(SPage& page, const SPart& part, const SRaceRow& row, uint64_t nStart, const unsigned char* pValues);
    void NoteValues(SPage& page, uint64_t nBegin, uint64_t nEnd, const unsigned char* pBytes);
    static SPart* FindPart(SPage& page, const SPart& part);
    static bool Merge(SPage& page, const SPart& part);
    void AddPart(SPage& page, const SPart& part);
    static bool MayRace(const SPage& page);
    void Spread(SPage& page, const SPart& part);
    void SpreadItem(SPage& page, const SPart& part, uint32_t nItem, uint32_t nBegin, uint32_t nEnd);
    void ReportUnit(const SPage& page, size_t nUnit, uint64_t nAddress, CFindings& findings) const;
    void ReportPair(uint64_t nOne, uint64_t nTwo, const SPlatformFinding& like, CFindings& findings) const;

    const SLaunchContext& m_Context;
    uint32_t m_nItemShift;  ///< in an entry, above the number of the access
    uint32_t m_nGroupShift; ///< above the work-item's
    bool m_bShort;          ///< entries of the launch have 32 bits, else 64
    CShadowArena m_Arena;
    std::vector<std::vector<SPage*>> m_vPages; ///< by memory object
    std::array<CSpinLock, 64> m_Locks;         ///< by page
    std::vector<uint32_t> m_vInstructions;     ///< by number of the access
};

} // namespace KestrelPlatform

#endif
