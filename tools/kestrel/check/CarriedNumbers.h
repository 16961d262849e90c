#ifndef KESTREL_TOOLS_CHECK_CARRIEDNUMBERS_H
#define KESTREL_TOOLS_CHECK_CARRIEDNUMBERS_H

#include "tools/kestrel/check/CheckedRuns.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace KestrelTool
{

/// Follows NaN and infinity from one launch of a program to the next, through its buffers. Launch files have no buffers
/// in common, and nothing is followed between them.
class CCarriedNumbers
{
public:
    /// Arguments of a launch whose buffers earlier launches have put NaN or infinity into.
    std::vector<uint32_t> FindFollowed(const SLaunchFile& file) const;
    /// Notes the buffers that a finding's numbers have reached in a launch.
    /// \param nFinding  its index in the report
    void Reach(const SPlatformFinding& raw, const SCheckedRun& run, const SLaunchFile& file, size_t nFinding);
    /// Which finding has made the numbers that a launch has loaded from a buffer.
    std::optional<size_t> FindOrigin(const SPlatformFinding& carried, const SCheckedRun& run,
                                     const SLaunchFile& file) const;

private:
    std::map<uint64_t, size_t> m_mapReached; ///< by the number of a program's buffer
};

} // namespace KestrelTool

#endif
