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

/// Finds races between groups in global memory. No barrier orders groups, so the accesses of a whole launch are
/// compared. For each word and each kind of access the lowest access is kept, and the lowest one of another group. So
/// the result depends neither on the order of groups nor on threads, and no race between two groups is missed. A page
/// in which parts of words are accessed is kept byte by byte.
class CGroupRaces
{
public:
    static constexpr int64_t s_nMostStep = 64;

    explicit CGroupRaces(const SLaunchContext& context);
    CGroupRaces(const CGroupRaces&) = delete;
    CGroupRaces& operator=(const CGroupRaces&) = delete;

    /// Takes accesses of one kind to a memory object. Any thread. Throws std::bad_alloc.
    /// \param nRange  index of the memory object in the launch
    void Touch(uint32_t nRange, const SRaceAccess* pAccesses, uint32_t nCount);
    /// Takes a row of accesses of one kind with the same step between all neighbours. The step is at least the bytes of
    /// one work-item, and at most s_nMostStep. A step of 0 means that the first work-item has touched the whole row.
    /// \param pValues  the bytes that a write stores, one work-item after the other
    void TouchRow(uint32_t nRange, const SRaceRow& row, uint64_t nGroup, const unsigned char* pValues);
    /// Reports all pairs that raced. To be called after the launch.
    void Report(CFindings& findings);
    /// The memory in use.
    size_t GetBytes() const { return m_Arena.GetTaken(); }

private:
    /// The lowest access, and the lowest of another group.
    struct STwo
    {
        uint64_t nFirst = ~uint64_t(0);
        uint64_t nOther = ~uint64_t(0);

        void Add(uint64_t nEntry, uint32_t nGroupShift);
    };
    /// The part of a page that is touched by rows which differ only in their group.
    struct SPart
    {
        uint16_t nBegin = 0; ///< bytes from the start of the page
        uint16_t nEnd = 0;
        int16_t nFirst = 0; ///< where the first work-item's bytes begin, which may be in an earlier page
        uint16_t nItem = 0;
        uint16_t nNumber = 0;
        uint8_t nStep = 0;  ///< from each work-item to the next; 0 if the first has touched everything
        uint8_t nBytes = 0; ///< of each work-item
        ERaceKind eKind = RACE_READ;
        uint32_t nGroup = 0; ///< the lowest
        uint32_t nOther = ~0u;

        bool HasWords() const { return (nStep == 0 ? nBegin | nEnd : nFirst | nStep | nBytes) % 4 == 0; }
    };
    /// All of its memory is in the arena.
    struct SPage
    {
        uint16_t nUnit = 4;  ///< bytes
        uint16_t nParts = 0; ///< parts that pKinds doesn't include yet
        uint16_t nRoom = 0;  ///< parts for which there is room
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
    uint32_t m_nItemShift;  ///< where the work-item begins in an entry, above the number of the access
    uint32_t m_nGroupShift; ///< where the group begins in an entry
    bool m_bShort;          ///< entries have 32 bits, else 64
    CShadowArena m_Arena;
    std::vector<std::vector<SPage*>> m_vPages; ///< by memory object
    std::array<CSpinLock, 64> m_Locks;         ///< by page
    std::vector<uint32_t> m_vInstructions;     ///< by number of the access
};

} // namespace KestrelPlatform

#endif
