#ifndef KESTREL_PLATFORM_SIMT_CHECKS_FINDINGS_H
#define KESTREL_PLATFORM_SIMT_CHECKS_FINDINGS_H

#include "platform/simt/WideLaunch.h"

#include <map>
#include <mutex>
#include <tuple>
#include <vector>

namespace KestrelPlatform
{

/// A finding of one access, one pair of accesses, or one barrier.
SPlatformFinding MakeFinding(EPlatformFinding eKind, uint32_t nInstruction, uint64_t nWorkItem);

/// What checks have found, by place. All findings of one place are merged into one, which names the lowest work-item.
/// So it doesn't depend on the order in which they come.
class CFindings
{
public:
    // Any thread may add. Both throw std::bad_alloc.
    void Add(const SPlatformFinding& finding);
    /// No thread may add to the other one meanwhile.
    void AddAll(const CFindings& other);
    /// Ordered by instruction.
    std::vector<SPlatformFinding> List() const;
    /// Whether there were more places than are kept.
    bool IsCut() const { return m_bCut; }

private:
    void Put(const SPlatformFinding& found);

    typedef std::tuple<uint32_t, uint32_t, uint32_t, uint32_t, int32_t, uint32_t> Key;

    std::mutex m_Mutex;
    std::map<Key, SPlatformFinding> m_mapByPlace;
    bool m_bCut = false;
};

} // namespace KestrelPlatform

#endif
