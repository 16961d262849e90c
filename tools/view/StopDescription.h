#ifndef KESTREL_TOOLS_VIEW_STOPDESCRIPTION_H
#define KESTREL_TOOLS_VIEW_STOPDESCRIPTION_H

#include "tools/session/debug/Debugger.h"

#include <nlohmann/json_fwd.hpp>

#include <map>
#include <string>
#include <utility>

namespace KestrelTool
{

/// How often a launch has stopped at each line, and with how many work-items.
class CLineVisits
{
public:
    /// Counts the present stop.
    void Count(CDebugger& debugger);
    void Forget() { m_mapLines.clear(); }
    /// For each line of a file: the line, stops there, and the mean share of work-items that were active at them.
    /// \param strFile  empty for IL
    nlohmann::json List(const std::string& strFile) const;

private:
    struct SVisits
    {
        uint64_t nStops = 0;
        double fShares = 0; ///< sum of the shares of work-items that were active
    };

    std::map<std::string, std::map<unsigned int, SVisits>> m_mapLines; ///< by file and line
};

/// The stops of the time line that a page has room for: those around the present one.
/// \return the first, and the one after the last
std::pair<size_t, size_t> FindStopsShown(const CTimeLine& timeLine);

/// The present stop as a page shows it: place, focus, variables of the work-item in focus, visits of the file's lines,
/// and the time line.
nlohmann::json DescribeStop(CDebugger& debugger, const CLineVisits& visits);

} // namespace KestrelTool

#endif
