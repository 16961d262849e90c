#ifndef KESTREL_PLATFORM_SIMT_CHECKS_GROUPRACES_H
#define KESTREL_PLATFORM_SIMT_CHECKS_GROUPRACES_H

#include "platform/simt/WideLaunch.h"
#include "platform/simt/checks/IntervalRows.h"
#include "platform/simt/checks/RaceAccess.h"

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
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
    explicit CGroupRaces(const SLaunchContext& context);
    ~CGroupRaces();
    CGroupRaces(const CGroupRaces&) = delete;
    CGroupRaces& operator=(const CGroupRaces&) = delete;

    /// Takes accesses of one kind to a memory object. Any thread. Throws std::bad_alloc.
    /// \param nRange  which of the launch's
    void Touch(uint32_t nRange, const SRaceAccess* pAccesses, uint32_t nCount);
    /// Takes a row of one kind of access that leaves no gaps.
    /// \param pValues  that a write stores, one work-item after the other
    void TouchRow(uint32_t nRange, const SRaceRow& row, uint64_t nGroup, const unsigned char* pValues);
    /// Tells of all pairs that raced. For when the launch has ended.
    void Report(CFindings& findings);

private:
    /// The lowest access, and the lowest of another group.
    struct STwo
    {
        uint64_t nFirst = ~uint64_t(0);
        uint64_t nOther = ~uint64_t(0);

        void Add(uint64_t nEntry);
    };
    struct SValue
    {
        uint32_t nFirst = 0; ///< in time
        bool bDiffer = false;
        bool bWritten = false;
    };
    /// What rows that differ in nothing but their group have touched of a page.
    struct SPart
    {
        uint32_t nBegin = 0; ///< bytes from the start of the page
        uint32_t nEnd = 0;
        int64_t nFirst = 0; ///< where the first work-item's are, which may be in an earlier page
        uint32_t nBytes = 0;
        ERaceKind eKind = RACE_READ;
        uint16_t nItem = 0;
        uint16_t nNumber = 0;
        uint64_t nGroup = 0; ///< the lowest
        uint64_t nOther = ~uint64_t(0);
    };
    struct SPage
    {
        uint32_t nUnit = 4;          ///< bytes
        std::vector<STwo> vKinds[3]; ///< by RaceKind and unit; empty if there was none in the page
        std::vector<SValue> vValues; ///< written
        std::vector<SPart> vParts;   ///< that aren't among the kinds yet
    };

    SPage& Page(uint32_t nRange, uint64_t nPage);
    void Split(SPage& page) const;
    void TouchPage(SPage& page, const SRaceAccess& access) const;
    static void NoteValues(SPage& page, uint64_t nBegin, uint64_t nEnd, const unsigned char* pBytes);
    static bool Merge(SPage& page, const SPart& part);
    static bool MayRace(const SPage& page);
    static void Spread(SPage& page, const SPart& part);
    void ReportUnit(const SPage& page, size_t nUnit, uint64_t nAddress, CFindings& findings) const;
    void ReportPair(uint64_t nOne, uint64_t nTwo, const SPlatformFinding& like, CFindings& findings) const;

    const SLaunchContext& m_Context;
    std::vector<std::vector<std::unique_ptr<SPage>>> m_vPages; ///< by memory object
    std::array<std::mutex, 64> m_Mutexes;                      ///< by page
    std::vector<uint32_t> m_vInstructions;                     ///< by number of the access
};

} // namespace KestrelPlatform

#endif
