#include "tools/session/debug/StopCounts.h"

#include <algorithm>

namespace KestrelTool
{

void CStopCounts::AddStep(unsigned int nInstruction, uint64_t nActive)
{
    m_vStops.push_back({nInstruction, nActive});
    uint64_t& nSum = m_mapSums[nInstruction];
    nSum += nActive;
    uint64_t& nMost = m_mapMost[nInstruction];
    nMost = std::max(nMost, nSum);
}

void CStopCounts::AddRun()
{
    m_vStops.push_back({NoInstruction, 0});
    m_bWhole = false;
}

void CStopCounts::GoBack()
{
    if (m_vStops.empty() || m_vStops.back().nInstruction == NoInstruction)
    {
        BeginAnew();
        return;
    }
    m_mapSums[m_vStops.back().nInstruction] -= m_vStops.back().nActive;
    m_vStops.pop_back();
}

void CStopCounts::RunBack()
{
    BeginAnew();
}

void CStopCounts::BeginAnew()
{
    m_vStops.clear();
    m_mapSums.clear();
    m_bWhole = false;
}

std::string CStopCounts::Compare(const std::vector<uint64_t>& vPlain, const CListing& listing, bool bStepped) const
{
    if (vPlain.empty())
    {
        return std::string();
    }
    const bool bEqual = m_bWhole && bStepped;
    size_t nPlaces = 0;
    std::string strFirst;
    for (const auto& entry : m_mapMost)
    {
        const uint64_t nPlain = entry.first < vPlain.size() ? vPlain[entry.first] : 0;
        if (entry.second > nPlain || (bEqual && entry.second != nPlain))
        {
            if (nPlaces++ == 0)
            {
                strFirst = "line " + std::to_string(listing.GetLineOfInstruction(entry.first)) + " (" +
                           std::to_string(entry.second) + " at the stops, " + std::to_string(nPlain) +
                           " in the plain run)";
            }
        }
    }
    if (nPlaces == 0)
    {
        return std::string();
    }
    return "The session's stops and a plain run of the kernel disagree about how many work-items come to " + strFirst +
           (nPlaces > 1 ? " and to " + std::to_string(nPlaces - 1) + " more lines" : "") +
           ": the kernel's course depends on the order in which its work-groups run, and so may what the stops have "
           "shown.";
}

} // namespace KestrelTool
