#include "tools/session/debug/Faults.h"

#include "KestrelPlatform.h"
#include "tools/session/debug/Format.h"
#include "tools/session/debug/PatchedLines.h"
#include "tools/session/launch/BinarySections.h"
#include "tools/source/SourcePlaces.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <utility>

namespace KestrelTool
{

void CFaults::Forget()
{
    m_nKnownAccesses = m_nKnownBarriers = 0;
    m_Known.clear();
    m_All = SFaults();
}

/// Names an address by the buffer with the closest start before it, if that is near.
std::string CFaults::NamePlace(const std::vector<SPlatformBuffer>& vBuffers, uint64_t nAddress) const
{
    std::string strName;
    uint64_t nOffset = uint64_t(1) << 32;
    for (const SPlatformBuffer& buffer : vBuffers)
    {
        // In a patched copy, the debugger's own buffers follow the kernel's.
        const bool bOwn = buffer.nArgument < m_vArguments.size();
        if (bOwn && buffer.nAddress <= nAddress && nAddress - buffer.nAddress < nOffset)
        {
            nOffset = nAddress - buffer.nAddress;
            strName = m_vArguments[buffer.nArgument].strName + "+" + FormatHex(nOffset);
        }
    }
    return strName;
}

std::string CFaults::FindSource(const CListing& listing, unsigned int nLine, uint32_t nInstruction, bool bPatched) const
{
    if (bPatched || nLine != CListing::NoLine)
    {
        return listing.GetPlace(nLine);
    }
    // A kernel without IL text: the platform still knows the source lines.
    std::string strPlace(m_pControl->GetSourcePlace(nInstruction, nullptr, 0), '\0');
    const uint32_t nNeeded =
        m_pControl->GetSourcePlace(nInstruction, strPlace.data(), static_cast<uint32_t>(strPlace.size()));
    return nNeeded == strPlace.size() ? strPlace.c_str() : std::string();
}

std::optional<SFaults> CFaults::Check(const CListing& listing, const std::vector<char>& vImage)
{
    if (m_pControl == nullptr)
    {
        return std::nullopt;
    }
    SPlatformFault found = {};
    m_pControl->GetLastFault(&found);
    // Each run starts at the kernel's first instruction, so known faults occur again.
    const bool bNews = found.nBadAccesses > m_nKnownAccesses || found.nUnreachedBarriers > m_nKnownBarriers;
    m_nKnownAccesses = std::max(m_nKnownAccesses, found.nBadAccesses);
    m_nKnownBarriers = std::max(m_nKnownBarriers, found.nUnreachedBarriers);
    if (!bNews)
    {
        return std::nullopt;
    }
    std::vector<SPlatformFaultRecord> vRecords(m_pControl->GetFaultRecords(nullptr, 0));
    vRecords.resize(std::min<size_t>(
        vRecords.size(), m_pControl->GetFaultRecords(vRecords.data(), static_cast<uint32_t>(vRecords.size()))));
    std::vector<SPlatformBuffer> vBuffers(m_pControl->GetLastBuffers(nullptr, 0));
    vBuffers.resize(std::min<size_t>(
        vBuffers.size(), m_pControl->GetLastBuffers(vBuffers.data(), static_cast<uint32_t>(vBuffers.size()))));
    SFaults faults;
    faults.nAccesses = found.nBadAccesses;
    faults.nBarriers = found.nUnreachedBarriers;
    faults.bIncomplete = found.nBadAccesses + found.nUnreachedBarriers > vRecords.size();
    const CPatchedLines lines(listing, vImage);
    for (const SPlatformFaultRecord& record : vRecords)
    {
        SFault fault;
        fault.nLine = lines.Find(record.nInstruction);
        fault.nWorkItem = record.nWorkItem;
        fault.nAddress = record.nAddress;
        fault.bWrite = record.bWrite != 0;
        fault.bBarrier = record.bBarrier != 0;
        fault.nMemory = record.nMemory;
        fault.strSource = FindSource(listing, fault.nLine, record.nInstruction, !vImage.empty());
        if (record.nMemory == PLATFORM_MEMORY_GLOBAL && !fault.bBarrier)
        {
            fault.strPlace = NamePlace(vBuffers, record.nAddress);
        }
        if (m_Known.emplace(fault.bBarrier, fault.nLine, fault.nWorkItem, fault.nAddress).second)
        {
            faults.vShown.push_back(fault);
        }
    }
    m_All.vShown.insert(m_All.vShown.end(), faults.vShown.begin(), faults.vShown.end());
    m_All.nAccesses = m_nKnownAccesses;
    m_All.nBarriers = m_nKnownBarriers;
    m_All.bIncomplete = m_All.bIncomplete || faults.bIncomplete;
    return faults;
}

std::string CFaults::DescribeEnd(const CListing& listing, const std::vector<char>& vImage) const
{
    SPlatformEnd end = {};
    if (m_pControl != nullptr)
    {
        m_pControl->GetLastEnd(&end);
    }
    if (end.nEnd == PLATFORM_END_COMPLETE)
    {
        return std::string();
    }
    if (end.nEnd == PLATFORM_END_MEMORY)
    {
        return "the platform had not enough memory for the kernel";
    }
    std::string strEnd = end.nEnd == PLATFORM_END_LIMIT
                             ? "the platform ended the kernel: a work-group came to its limit of instructions"
                             : "the kernel run was broken off";
    if (end.nWorkItem != ~uint64_t(0))
    {
        const unsigned int nLine = CPatchedLines(listing, vImage).Find(end.nInstruction);
        const std::string strSource = FindSource(listing, nLine, end.nInstruction, !vImage.empty());
        const std::string strPlace = strSource.empty() ? "" : " (" + ShortenPlace(strSource) + ")";
        strEnd += "; work-item " + std::to_string(end.nWorkItem) +
                  (nLine == CListing::NoLine
                       ? " was in it" + strPlace
                       : " was at line " + std::to_string(nLine) + strPlace + ": " + listing.GetLine(nLine));
    }
    return strEnd;
}

nlohmann::json CFaults::DescribePlaces(const CListing& listing, const std::vector<char>& vImage) const
{
    nlohmann::json list = nlohmann::json::array();
    if (m_pControl == nullptr)
    {
        return list;
    }
    std::vector<SPlatformPlace> vPlaces(m_pControl->GetPlaces(nullptr, 0));
    vPlaces.resize(
        std::min<size_t>(vPlaces.size(), m_pControl->GetPlaces(vPlaces.data(), static_cast<uint32_t>(vPlaces.size()))));
    const CPatchedLines lines(listing, vPlaces.empty() ? std::vector<char>() : vImage);
    for (const SPlatformPlace& place : vPlaces)
    {
        nlohmann::json entry = {{"where", NameWhere(place.nWhere)}, {"items", place.nItems}};
        if (place.nWorkItem != ~uint64_t(0))
        {
            entry["first"] = place.nWorkItem;
        }
        if (place.nMost != 0)
        {
            entry["passes"] = {place.nLeast, place.nMost};
        }
        if (place.nInstruction != ~uint32_t(0))
        {
            const unsigned int nLine = lines.FindNext(place.nInstruction);
            const std::string strSource = FindSource(listing, nLine, place.nInstruction, !vImage.empty());
            if (!strSource.empty())
            {
                entry["source"] = strSource;
            }
            if (nLine != CListing::NoLine)
            {
                entry["line"] = nLine;
                entry["text"] = listing.GetLine(nLine);
            }
        }
        list.push_back(entry);
    }
    return list;
}

const char* NameWhere(uint32_t nWhere)
{
    static const char* const s_Where[] = {"at", "barrier", "beside", "ended", "not begun"};
    return s_Where[std::min<size_t>(nWhere, std::size(s_Where) - 1)];
}

nlohmann::json DescribeFaults(const SFaults& faults, size_t nShown)
{
    static const char* const s_Memories[] = {"global", "local", "private", "registers", "image"};
    nlohmann::json list = nlohmann::json::array();
    for (const SFault& fault : faults.vShown)
    {
        if (list.size() == nShown)
        {
            break;
        }
        nlohmann::json entry = {{"kind", fault.bBarrier ? "barrier"
                                         : fault.bWrite ? "write"
                                                        : "read"},
                                {"workitem", fault.nWorkItem}};
        if (fault.nLine != CListing::NoLine)
        {
            entry["line"] = fault.nLine;
        }
        if (!fault.strSource.empty())
        {
            entry["source"] = fault.strSource;
        }
        if (!fault.bBarrier)
        {
            entry["memory"] = s_Memories[std::min<size_t>(fault.nMemory, std::size(s_Memories) - 1)];
            entry["address"] = fault.nAddress;
            entry["place"] = fault.strPlace.empty() ? FormatHex(fault.nAddress) : fault.strPlace;
        }
        list.push_back(entry);
    }
    return {{"list", list},
            {"more", faults.vShown.size() - list.size()},
            {"accesses", faults.nAccesses},
            {"barriers", faults.nBarriers},
            {"incomplete", faults.bIncomplete}};
}

} // namespace KestrelTool
