#include "tools/view/StopDescription.h"

#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/SourceValues.h"
#include "tools/session/debug/Views.h"
#include "tools/source/SourcePlaces.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

json ListVariables(CDebugger& debugger)
{
    json list = json::array();
    CSourceValues values(debugger);
    for (const SSourceVariable& variable : debugger.HasSource() ? values.List() : std::vector<SSourceVariable>())
    {
        std::string strValue;
        try
        {
            strValue = values.Format(values.Read(variable, debugger.GetFocus()), debugger.GetSettings().eFormat);
        }
        catch (const CCommandError& error)
        {
            strValue = error.what();
        }
        list.push_back({{"name", variable.strName}, {"type", variable.pType->strName}, {"value", strValue}});
    }
    return list;
}

/// The stops of the time line: number, line and active work-items of each, and which one is the present one.
json ListStops(CDebugger& debugger)
{
    const CTimeLine& timeLine = debugger.GetTimeLine();
    const auto [nFirst, nEnd] = FindStopsShown(timeLine);
    json list = json::array();
    json here;
    for (size_t n = nFirst; n < nEnd; ++n)
    {
        const CTimeLine::SStop& stop = timeLine.GetStops()[n];
        const std::string strPlace = ShortenPlace(debugger.GetListing().GetPlace(stop.nLine));
        list.push_back({n + 1, strPlace.empty() ? std::to_string(stop.nLine) : strPlace, stop.nActive});
        here = timeLine.GetPlace() == stop.nPlace ? json(n + 1) : here;
    }
    return {{"stops", list}, {"here", here}, {"count", timeLine.GetStops().size()}};
}

/// File and line of the source, or none and the line of the IL.
std::pair<std::string, unsigned int> FindLine(CDebugger& debugger)
{
    const std::optional<SSourceLine> place = debugger.GetSourceLine();
    return place ? std::pair(place->strFile, place->nLine) : std::pair(std::string(), debugger.GetLine());
}

} // namespace

void CLineVisits::Count(CDebugger& debugger)
{
    const auto [strFile, nLine] = FindLine(debugger);
    SVisits& visits = m_mapLines[strFile][nLine];
    ++visits.nStops;
    visits.fShares += static_cast<double>(debugger.CountActive()) / static_cast<double>(debugger.GetExtent().Count());
}

json CLineVisits::List(const std::string& strFile) const
{
    json list = json::array();
    const auto it = m_mapLines.find(strFile);
    for (const auto& line : it != m_mapLines.end() ? it->second : std::map<unsigned int, SVisits>())
    {
        list.push_back({line.first, line.second.nStops, line.second.fShares / static_cast<double>(line.second.nStops)});
    }
    return list;
}

std::pair<size_t, size_t> FindStopsShown(const CTimeLine& timeLine)
{
    const size_t nMost = 200;
    const std::vector<CTimeLine::SStop>& vStops = timeLine.GetStops();
    const size_t nHere = static_cast<size_t>(std::count_if(
        vStops.begin(), vStops.end(), [&](const auto& stop) { return stop.nPlace < timeLine.GetPlace().value_or(0); }));
    const size_t nCount = std::min(nMost, vStops.size());
    const size_t nFirst = std::min(nHere - std::min(nHere, nCount / 2), vStops.size() - nCount);
    return {nFirst, nFirst + nCount};
}

json DescribeStop(CDebugger& debugger, const CLineVisits& visits)
{
    const auto [strFile, nLine] = FindLine(debugger);
    return {{"line", nLine},
            {"file", strFile},
            {"function", debugger.GetFrames().front().strFunction},
            {"active", debugger.CountActive()},
            {"focus", ViewItem(debugger, debugger.GetFocus())},
            {"variables", ListVariables(debugger)},
            {"visits", visits.List(strFile)},
            {"timeline", ListStops(debugger)}};
}

} // namespace KestrelTool
