#include "tools/view/LastLines.h"

#include "tools/view/DispatchPicture.h"

#include <nlohmann/json.hpp>

#include <bit>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

const size_t s_nMostBytes = 64 << 20;
const size_t s_nWordBits = 64;
/// More lines than can be told apart by their colours anyway.
const size_t s_nMostClasses = 255;

} // namespace

void CLastLines::Forget()
{
    m_mapStops.clear();
}

void CLastLines::Note(CDebugger& debugger)
{
    const CTimeLine& timeLine = debugger.GetTimeLine();
    const std::optional<size_t> place = timeLine.GetPlace();
    if (!place)
    {
        return;
    }
    if (m_nGeneration != timeLine.GetGeneration())
    {
        // What came after this stop may be something else now.
        m_mapStops.erase(m_mapStops.lower_bound(*place), m_mapStops.end());
        m_nGeneration = timeLine.GetGeneration();
    }
    const std::optional<SSourceLine> source = debugger.GetSourceLine();
    const SMaskView mask = debugger.GetActive();
    SStop& stop = m_mapStops[*place];
    stop.strFile = source ? source->strFile : std::string();
    stop.nLine = source ? source->nLine : debugger.GetLine();
    stop.vActive.assign((mask.nItems + s_nWordBits - 1) / s_nWordBits, 0);
    for (size_t n = 0; n < mask.nItems; ++n)
    {
        stop.vActive[n / s_nWordBits] |= uint64_t{mask.pActive[n] != 0 ? 1U : 0U} << n % s_nWordBits;
    }
    if (m_mapStops.size() * stop.vActive.size() * sizeof(uint64_t) > s_nMostBytes && m_mapStops.begin()->first < *place)
    {
        m_mapStops.erase(m_mapStops.begin());
    }
}

json CLastLines::Draw(CDebugger& debugger, size_t nWidth, size_t nHeight) const
{
    const size_t nItems = debugger.GetExtent().Count();
    std::vector<unsigned char> vClasses(nItems);
    std::vector<uint64_t> vLeft((nItems + s_nWordBits - 1) / s_nWordBits, ~uint64_t{0});
    std::map<std::pair<std::string, unsigned int>, unsigned char> mapClasses;
    json lines = json::array();
    auto it = m_mapStops.upper_bound(debugger.GetTimeLine().GetPlace().value_or(0));
    while (it != m_mapStops.begin())
    {
        const SStop& stop = (--it)->second;
        const std::pair<std::string, unsigned int> line = {stop.strFile, stop.nLine};
        if (mapClasses.count(line) == 0 && mapClasses.size() < s_nMostClasses)
        {
            mapClasses[line] = static_cast<unsigned char>(mapClasses.size() + 1);
            lines.push_back({{"file", stop.strFile}, {"line", stop.nLine}, {"count", 0}});
        }
        const auto itClass = mapClasses.find(line);
        size_t nCount = 0;
        for (size_t nWord = 0; nWord < vLeft.size() && itClass != mapClasses.end(); ++nWord)
        {
            for (uint64_t nBits = vLeft[nWord] & stop.vActive[nWord]; nBits != 0; nBits &= nBits - 1)
            {
                vClasses[nWord * s_nWordBits + static_cast<size_t>(std::countr_zero(nBits))] = itClass->second;
                ++nCount;
            }
            vLeft[nWord] &= ~stop.vActive[nWord];
        }
        if (itClass != mapClasses.end())
        {
            json& entry = lines[itClass->second - size_t{1}];
            entry["count"] = entry["count"].get<size_t>() + nCount;
        }
    }
    json picture = DrawClasses(debugger, vClasses, nWidth, nHeight);
    picture["kind"] = "lines";
    picture["lines"] = lines;
    return picture;
}

} // namespace KestrelTool
