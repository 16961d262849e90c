#include "tools/kestrel/check/RenderCheck.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <sstream>

namespace KestrelTool
{

namespace
{

using nlohmann::json;

bool IsRace(const SCheckFinding& finding)
{
    return finding.finding.nKind == PLATFORM_FINDING_RACE;
}

/// Whether the bytes were read at another place.
bool IsRead(const SCheckFinding& finding)
{
    return finding.finding.nKind == PLATFORM_FINDING_INIT && !finding.other.strFile.empty() &&
           !(finding.place == finding.other);
}

std::string NameCheckPlace(const SCheckPlace& place)
{
    return place.strFile + ":" + std::to_string(place.nLine);
}

std::string RenderCheckPlace(const SCheckPlace& place)
{
    return place.strText.empty() ? std::string() : "  > " + std::to_string(place.nLine) + " | " + place.strText + "\n";
}

/// Place, launch and kernel, as far as known.
/// \param bSeveral  there was more than one launch
std::string RenderWhere(const SCheckFinding& finding, bool bSeveral)
{
    std::string strText;
    const auto add = [&strText](const std::string& strPart) { strText += (strText.empty() ? "  " : ", ") + strPart; };
    if (!finding.place.strFile.empty())
    {
        add("at " + NameCheckPlace(finding.place));
    }
    if (finding.nLaunch != 0 || (bSeveral && !finding.strLaunch.empty()))
    {
        add("launch " + (finding.nLaunch != 0 ? std::to_string(finding.nLaunch) : finding.strLaunch));
    }
    if (!finding.strKernel.empty())
    {
        add("kernel " + finding.strKernel);
    }
    return (strText.empty() ? "" : strText + "\n") + RenderCheckPlace(finding.place);
}

std::string NameTimes(uint64_t nCount)
{
    return nCount == 1 ? "once" : std::to_string(nCount) + " times";
}

std::string NameInLine(const SCheckFinding& finding)
{
    return finding.strMessage + (finding.strItems.empty() ? "" : " (" + finding.strItems + ")");
}

json DescribePlace(const SCheckPlace& place)
{
    json described = {{"file", place.strFile}, {"line", place.nLine}, {"text", place.strText}};
    if (place.nLaunch != 0)
    {
        described["launch"] = place.nLaunch;
    }
    return described;
}

/// Details that distinguish findings of the same place, for joining reports.
json DescribeDetail(const SPlatformFinding& raw)
{
    return {{"kind", raw.nKind},
            {"fault", raw.nFault},
            {"memory", raw.nMemory},
            {"write", raw.bWrite},
            {"other_write", raw.bOtherWrite},
            {"unequal", raw.bUnequal},
            {"values", raw.bValues},
            {"item", raw.nWorkItem},
            {"other_item", raw.nOtherItem}};
}

json MakeLocation(const SCheckPlace& place)
{
    // Lines of IL count from 0, lines in this format from 1.
    return {{"physicalLocation",
             {{"artifactLocation", {{"uri", place.strFile}}}, {"region", {{"startLine", std::max(place.nLine, 1u)}}}}}};
}

std::string EscapeXml(const std::string& strText)
{
    std::string strEscaped;
    for (const char c : strText)
    {
        switch (c)
        {
        case '&':
            strEscaped += "&amp;";
            break;
        case '<':
            strEscaped += "&lt;";
            break;
        case '>':
            strEscaped += "&gt;";
            break;
        case '"':
            strEscaped += "&quot;";
            break;
        default:
            strEscaped += static_cast<unsigned char>(c) < 0x20 ? ' ' : c;
        }
    }
    return strEscaped;
}

} // namespace

std::string RenderCheck(const CCheckReport& report)
{
    std::ostringstream text;
    for (const SCheckFinding& finding : report.GetFindings())
    {
        text << finding.strCheck << ": " << finding.strMessage << "\n"
             << RenderWhere(finding, report.GetLaunches() > 1);
        if (finding.IsPair() && !(finding.place == finding.other))
        {
            text << "  and " << NameCheckPlace(finding.other) << "\n" << RenderCheckPlace(finding.other);
        }
        if (IsRead(finding))
        {
            text << "  read at " << NameCheckPlace(finding.other) << "\n" << RenderCheckPlace(finding.other);
        }
        for (const SCheckPlace& place : finding.vChain)
        {
            text << "  then " << (place.nLaunch != 0 ? "in launch " + std::to_string(place.nLaunch) + " " : "") << "at "
                 << NameCheckPlace(place) << "\n"
                 << RenderCheckPlace(place);
        }
        for (const SCheckStanding& standing : finding.vStanding)
        {
            text << "  " << standing.strItems
                 << (standing.place.strFile.empty() ? "" : ", at " + NameCheckPlace(standing.place)) << "\n"
                 << RenderCheckPlace(standing.place);
        }
        text << "  " << finding.strItems << (finding.strItems.empty() ? "" : "; ") << NameTimes(finding.nCount)
             << "\n\n";
    }
    for (const std::string& strNote : report.GetNotes())
    {
        text << "note: " << strNote << "\n";
    }
    for (const auto& [strLaunch, strWhy] : report.GetMissed())
    {
        text << "not checked: " << strLaunch << ": " << strWhy << "\n";
    }
    const size_t nFindings = report.GetFindings().size();
    text << (nFindings == 0 ? "nothing found" : std::to_string(nFindings) + (nFindings == 1 ? " finding" : " findings"))
         << " in " << report.GetLaunches() << (report.GetLaunches() == 1 ? " launch" : " launches");
    if (report.GetSuppressed() > 0)
    {
        text << ", " << report.GetSuppressed() << " suppressed";
    }
    if (!report.GetMissed().empty())
    {
        text << ", " << report.GetMissed().size() << " not checked";
    }
    return text.str() + "\n";
}

json DescribeCheck(const CCheckReport& report)
{
    json findings = json::array();
    for (const SCheckFinding& finding : report.GetFindings())
    {
        const SPlatformFinding& raw = finding.finding;
        json described = {{"check", finding.strCheck},     {"kernel", finding.strKernel},
                          {"message", finding.strMessage}, {"place", DescribePlace(finding.place)},
                          {"count", finding.nCount},       {"address", raw.nAddress},
                          {"bytes", raw.nBytes},           {"items", json::array()},
                          {"who", finding.strItems},       {"detail", DescribeDetail(raw)}};
        if (finding.nLaunch != 0)
        {
            described["launch"] = finding.nLaunch;
        }
        else if (!finding.strLaunch.empty())
        {
            described["file"] = finding.strLaunch;
        }
        if (IsRace(finding))
        {
            described["items"] = {raw.nWorkItem, raw.nOtherItem};
            described["equal"] = raw.bUnequal == 0;
            described["groups"] = raw.bGroups != 0;
        }
        else
        {
            described["items"] = std::vector<uint64_t>(raw.items, raw.items + raw.nItems);
        }
        if (finding.IsPair())
        {
            described["other"] = DescribePlace(finding.other);
        }
        if (IsRead(finding))
        {
            described["read"] = DescribePlace(finding.other);
        }
        for (const SCheckPlace& place : finding.vChain)
        {
            described["chain"].push_back(DescribePlace(place));
        }
        for (const SCheckStanding& standing : finding.vStanding)
        {
            described["standing"].push_back({{"items", standing.strItems}, {"place", DescribePlace(standing.place)}});
        }
        findings.push_back(described);
    }
    json missed = json::array();
    for (const auto& [strLaunch, strWhy] : report.GetMissed())
    {
        missed.push_back({{"file", strLaunch}, {"why", strWhy}});
    }
    return {{"findings", findings},
            {"missed", missed},
            {"launches", report.GetLaunches()},
            {"suppressed", report.GetSuppressed()},
            {"notes", report.GetNotes()}};
}

json MakeSarif(const CCheckReport& report)
{
    json results = json::array();
    for (const SCheckFinding& finding : report.GetFindings())
    {
        const bool bTwo = finding.IsPair() && !(finding.place == finding.other);
        results.push_back(
            {{"ruleId", finding.strCheck},
             {"level", "error"},
             {"message", {{"text", NameInLine(finding)}}},
             {"locations", finding.place.strFile.empty() ? json::array() : json::array({MakeLocation(finding.place)})},
             {"relatedLocations", bTwo ? json::array({MakeLocation(finding.other)}) : json::array()},
             {"occurrenceCount", finding.nCount}});
    }
    const json driver = {{"name", "kestrel check"},
                         {"rules", json::array({{{"id", "memory"}},
                                                {{"id", "race"}},
                                                {{"id", "init"}},
                                                {{"id", "nan"}},
                                                {{"id", "barrier"}},
                                                {{"id", "alignment"}},
                                                {{"id", "api"}}})}};
    return {{"version", "2.1.0"}, {"runs", json::array({{{"tool", {{"driver", driver}}}, {"results", results}}})}};
}

std::string MakeJUnit(const CCheckReport& report, const std::vector<std::string>& vChecks)
{
    std::ostringstream text;
    size_t nFailed = 0;
    std::ostringstream cases;
    for (const std::string& strCheck : vChecks)
    {
        cases << "  <testcase classname=\"kestrel.check\" name=\"" << strCheck << "\">\n";
        std::string strFailures;
        for (const SCheckFinding& finding : report.GetFindings())
        {
            if (finding.strCheck == strCheck)
            {
                strFailures += (finding.place.strFile.empty() ? "" : NameCheckPlace(finding.place) + ": ") +
                               NameInLine(finding) + "\n";
            }
        }
        if (!strFailures.empty())
        {
            ++nFailed;
            cases << "    <failure message=\"" << EscapeXml(strFailures.substr(0, strFailures.find('\n'))) << "\">"
                  << EscapeXml(strFailures) << "</failure>\n";
        }
        cases << "  </testcase>\n";
    }
    const size_t nMissed = report.GetMissed().size();
    for (const auto& [strLaunch, strWhy] : report.GetMissed())
    {
        cases << "  <testcase classname=\"kestrel.check\" name=\"" << EscapeXml(strLaunch) << "\">\n"
              << "    <error message=\"" << EscapeXml(strWhy) << "\"/>\n  </testcase>\n";
    }
    text << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuite name=\"kestrel check\" tests=\""
         << vChecks.size() + nMissed << "\" errors=\"" << nMissed << "\" failures=\"" << nFailed << "\">\n"
         << cases.str() << "</testsuite>\n";
    return text.str();
}

} // namespace KestrelTool
