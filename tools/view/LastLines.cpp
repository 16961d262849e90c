#include "tools/view/LastLines.h"

#include "tools/view/DispatchPicture.h"

#include <nlohmann/json.hpp>

#include <algorithm>
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
    m_vTraced.clear();
    m_nTraced = 0;
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

/// \return 0 if there are too many lines
unsigned char CLastLines::SClasses::FindClass(const Line& line)
{
    auto it = std::find(vLines.begin(), vLines.end(), line);
    if (it == vLines.end() && vLines.size() == s_nMostClasses)
    {
        return 0;
    }
    const size_t nClass = static_cast<size_t>(it - vLines.begin());
    if (it == vLines.end())
    {
        vLines.push_back(line);
        vCounts.push_back(0);
    }
    return static_cast<unsigned char>(nClass + 1);
}

/// Who is active at the stop is at its line.
CLastLines::SClasses CLastLines::ClassifyByTrace(CDebugger& debugger) const
{
    const CListing& listing = debugger.GetListing();
    SClasses classes;
    classes.vOfItems.resize(m_vTraced.size());
    const std::optional<SSourceLine> here = debugger.GetSourceLine();
    const unsigned char nHere =
        classes.FindClass(here ? Line{here->strFile, here->nLine} : Line{std::string(), debugger.GetLine()});
    std::map<unsigned int, unsigned char> mapClasses;
    const SMaskView mask = debugger.GetActive();
    for (size_t n = 0; n < m_vTraced.size(); ++n)
    {
        unsigned char nClass = mask.pActive[n] != 0 ? nHere : 0;
        if (nClass == 0 && m_vTraced[n] != CListing::NoLine)
        {
            const auto [it, bNew] = mapClasses.emplace(m_vTraced[n], 0);
            if (bNew)
            {
                const std::optional<SSourceLine> place = ReadSourceLine(listing.GetPlace(m_vTraced[n]));
                it->second =
                    classes.FindClass(place ? Line{place->strFile, place->nLine} : Line{std::string(), m_vTraced[n]});
            }
            nClass = it->second;
        }
        classes.vOfItems[n] = nClass;
        if (nClass != 0)
        {
            ++classes.vCounts[nClass - size_t{1}];
        }
    }
    return classes;
}

CLastLines::SClasses CLastLines::ClassifyByStops(CDebugger& debugger) const
{
    const size_t nItems = debugger.GetExtent().Count();
    SClasses classes;
    classes.vOfItems.resize(nItems);
    std::vector<uint64_t> vLeft((nItems + s_nWordBits - 1) / s_nWordBits, ~uint64_t{0});
    auto it = m_mapStops.upper_bound(debugger.GetTimeLine().GetPlace().value_or(0));
    while (it != m_mapStops.begin())
    {
        const SStop& stop = (--it)->second;
        const unsigned char nClass = classes.FindClass({stop.strFile, stop.nLine});
        for (size_t nWord = 0; nWord < vLeft.size() && nClass != 0; ++nWord)
        {
            for (uint64_t nBits = vLeft[nWord] & stop.vActive[nWord]; nBits != 0; nBits &= nBits - 1)
            {
                classes.vOfItems[nWord * s_nWordBits + static_cast<size_t>(std::countr_zero(nBits))] = nClass;
                ++classes.vCounts[nClass - size_t{1}];
            }
            vLeft[nWord] &= ~stop.vActive[nWord];
        }
    }
    return classes;
}

json CLastLines::Draw(CDebugger& debugger, size_t nWidth, size_t nHeight)
{
    if (m_nTraced != debugger.GetMoves())
    {
        m_vTraced = debugger.FindLastLines();
        m_nTraced = debugger.GetMoves();
    }
    const SClasses classes = m_vTraced.empty() ? ClassifyByStops(debugger) : ClassifyByTrace(debugger);
    json lines = json::array();
    for (size_t n = 0; n < classes.vLines.size(); ++n)
    {
        lines.push_back(
            {{"file", classes.vLines[n].first}, {"line", classes.vLines[n].second}, {"count", classes.vCounts[n]}});
    }
    json picture = DrawClasses(debugger, classes.vOfItems, nWidth, nHeight);
    picture["kind"] = "lines";
    picture["lines"] = lines;
    return picture;
}

} // namespace KestrelTool
