#include "tools/kestrel/check/ReportFile.h"

#include "tools/session/launch/Files.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iterator>

namespace KestrelTool
{

namespace
{

using nlohmann::json;

SCheckPlace ReadPlace(const json& place)
{
    SCheckPlace read;
    read.strFile = place.at("file");
    read.nLine = place.at("line");
    read.strText = place.at("text");
    read.nLaunch = place.value("launch", uint64_t{0});
    return read;
}

SPlatformFinding ReadDetail(const json& described)
{
    const json& detail = described.at("detail");
    SPlatformFinding raw = {};
    raw.nKind = detail.at("kind");
    raw.nFault = detail.at("fault");
    raw.nMemory = detail.at("memory");
    raw.bWrite = detail.at("write");
    raw.bOtherWrite = detail.at("other_write");
    raw.bUnequal = detail.at("unequal");
    raw.bValues = detail.at("values");
    raw.nWorkItem = detail.at("item");
    raw.nOtherItem = detail.at("other_item");
    raw.bGroups = described.value("groups", false) ? 1 : 0;
    raw.nAddress = described.at("address");
    raw.nBytes = described.at("bytes");
    const auto vItems = described.at("items").get<std::vector<uint64_t>>();
    raw.nItems = static_cast<uint32_t>(std::min(vItems.size(), std::size(raw.items)));
    std::copy_n(vItems.begin(), raw.nItems, raw.items);
    return raw;
}

SCheckFinding ReadFinding(const json& described)
{
    SCheckFinding finding;
    finding.strCheck = described.at("check");
    finding.strKernel = described.at("kernel");
    finding.strLaunch = described.value("file", "");
    finding.nLaunch = described.value("launch", uint64_t{0});
    finding.strMessage = described.at("message");
    finding.strItems = described.at("who");
    finding.nCount = described.at("count");
    finding.place = ReadPlace(described.at("place"));
    for (const char* pszOther : {"other", "read"})
    {
        finding.other = described.contains(pszOther) ? ReadPlace(described.at(pszOther)) : finding.other;
    }
    for (const json& place : described.value("chain", json::array()))
    {
        finding.vChain.push_back(ReadPlace(place));
    }
    for (const json& standing : described.value("standing", json::array()))
    {
        finding.vStanding.push_back({standing.at("items"), ReadPlace(standing.at("place"))});
    }
    finding.finding = ReadDetail(described);
    return finding;
}

} // namespace

void JoinReport(const std::string& strPath, CCheckReport& report)
{
    try
    {
        const json read = json::parse(ReadFileBytes(strPath));
        std::vector<SCheckFinding> vFindings;
        for (const json& described : read.at("findings"))
        {
            vFindings.push_back(ReadFinding(described));
        }
        report.Join(vFindings, read.at("launches"), read.at("suppressed"),
                    read.at("notes").get<std::set<std::string>>());
        for (const json& missed : read.at("missed"))
        {
            report.Miss(missed.at("file"), missed.at("why"));
        }
    }
    catch (const json::exception& error)
    {
        throw CLaunchFileError(strPath + ": not a report of kestrel check --json: " + error.what());
    }
}

} // namespace KestrelTool
