// Finds where each work-item was last.

#include "tools/session/debug/Debugger.h"
#include "tools/session/debug/RunTrace.h"

#include <algorithm>

namespace KestrelTool
{

/// The session comes to this stop once more, from the one before it, so that no register has been read here. Reading
/// one takes a run up to the stop.
std::vector<unsigned int> CDebugger::FindLastLines()
{
    RequireLive();
    if (IsAtEntry())
    {
        return std::vector<unsigned int>(m_Extent.Count(), CListing::NoLine);
    }
    const std::optional<size_t> here = m_TimeLine.GetPlace();
    const std::vector<CTimeLine::SStop>& vStops = m_TimeLine.GetStops();
    const auto it =
        std::find_if(vStops.begin(), vStops.end(), [&](const CTimeLine::SStop& stop) { return stop.nPlace >= here; });
    if (m_pControl == nullptr || !here || it == vStops.begin())
    {
        return std::vector<unsigned int>();
    }
    VisitStops({static_cast<size_t>(it - vStops.begin()) - 1}, [](size_t) {});
    const CRunTrace trace(*m_pControl, m_Runs, *m_pListing, m_Extent.Count());
    for (const std::string& strRegister : GetActiveRegisters())
    {
        GetSession().GetRegister(strRegister);
        if (trace.HasRun())
        {
            return trace.GetLines();
        }
    }
    return std::vector<unsigned int>();
}

} // namespace KestrelTool
