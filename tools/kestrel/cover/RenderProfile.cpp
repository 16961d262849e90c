#include "tools/kestrel/cover/RenderProfile.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

typedef std::string (*MakeCell)(const SLineProfile& line);

struct SColumn
{
    const char* pszTitle;
    MakeCell pfMake;
};

std::string FormatShort(double fValue)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%.3g", fValue);
    return text;
}

/// At most four characters: "812", "3.2K".
std::string FormatCount(uint64_t nCount)
{
    static const char s_Units[] = {'K', 'M', 'G', 'T', 'P', 'E'};
    if (nCount < 10000)
    {
        return nCount != 0 ? std::to_string(nCount) : std::string();
    }
    double fValue = static_cast<double>(nCount) / 1000;
    size_t nUnit = 0;
    while (fValue >= 999.5)
    {
        fValue /= 1000;
        ++nUnit;
    }
    return FormatShort(fValue) + s_Units[nUnit];
}

std::string Runs(const SLineProfile& line)
{
    return line.nRuns != 0 ? FormatCount(line.nRuns) : "#####";
}

std::string Waves(const SLineProfile& line)
{
    return FormatCount(line.nWaves);
}

std::string Lanes(const SLineProfile& line)
{
    return line.nLanes != 0 ? std::to_string((line.nItems * 100 + line.nLanes / 2) / line.nLanes) + "%" : std::string();
}

template <class T, class F>
std::string ListParts(const std::vector<T>& vParts, F&& format)
{
    std::string strText;
    for (const T& part : vParts)
    {
        strText += (strText.empty() ? "" : " ") + format(part);
    }
    return strText;
}

std::string Zero(const std::string& strCount)
{
    return strCount.empty() ? "0" : strCount;
}

std::string Branches(const SLineProfile& line)
{
    return ListParts(line.vBranches,
                     [](const SBranchProfile& branch)
                     {
                         const bool bReached = branch.nGoOn + branch.nOther != 0;
                         return bReached ? Zero(FormatCount(branch.nGoOn)) + "/" + Zero(FormatCount(branch.nOther))
                                         : std::string("-");
                     });
}

double Mean(const SLoopProfile& loop)
{
    return loop.nEntries != 0 ? static_cast<double>(loop.nPasses) / static_cast<double>(loop.nEntries) : 0;
}

std::string Passes(const SLineProfile& line)
{
    return ListParts(line.vLoops,
                     [](const SLoopProfile& loop)
                     {
                         return loop.nEntries == 0 ? std::string("-")
                                                   : Zero(FormatCount(loop.nLeast)) + "/" + FormatShort(Mean(loop)) +
                                                         "/" + Zero(FormatCount(loop.nMost));
                     });
}

std::string Loaded(const SLineProfile& line)
{
    return FormatCount(line.nLoaded[0]);
}

std::string Stored(const SLineProfile& line)
{
    return FormatCount(line.nStored[0]);
}

std::string CacheLines(const SLineProfile& line)
{
    return line.nAccesses != 0
               ? FormatShort(static_cast<double>(line.nCacheLines) / static_cast<double>(line.nAccesses))
               : std::string();
}

std::string Local(const SLineProfile& line)
{
    return FormatCount(line.nLoaded[1] + line.nStored[1]);
}

std::string Private(const SLineProfile& line)
{
    return FormatCount(line.nLoaded[2] + line.nStored[2]);
}

const std::vector<SColumn> s_CoverColumns = {
    {"runs", Runs}, {"waves", Waves}, {"lanes", Lanes}, {"branches", Branches}};
const std::vector<SColumn> s_ProfileColumns = {{"runs", Runs},        {"waves", Waves},   {"lanes", Lanes},
                                               {"passes", Passes},    {"loaded", Loaded}, {"stored", Stored},
                                               {"cache", CacheLines}, {"local", Local},   {"private", Private}};

std::string Pad(const std::string& strText, size_t nWidth)
{
    return strText.size() < nWidth ? std::string(nWidth - strText.size(), ' ') + strText : strText;
}

/// A table of the file's lines, without empty columns.
std::string RenderFile(const SFileProfile& file, const std::vector<SColumn>& vColumns)
{
    std::vector<size_t> vWidths(vColumns.size(), 0);
    for (const auto& [nLine, line] : file.mapLines)
    {
        for (size_t n = 0; n < vColumns.size(); ++n)
        {
            vWidths[n] = std::max(vWidths[n], vColumns[n].pfMake(line).size());
        }
    }
    std::string strTable;
    const auto addRow = [&](const std::string& strLine, const std::string& strText, auto&& makeCell)
    {
        std::string strRow = Pad(strLine, 5);
        for (size_t n = 0; n < vColumns.size(); ++n)
        {
            if (vWidths[n] != 0)
            {
                strRow += "  " + Pad(makeCell(n), std::max(vWidths[n], std::strlen(vColumns[n].pszTitle)));
            }
        }
        strRow += strText.empty() ? "" : " | " + strText;
        strTable += strRow.substr(0, strRow.find_last_not_of(' ') + 1) + "\n";
    };
    addRow("line", "", [&](size_t n) { return vColumns[n].pszTitle; });
    const unsigned int nFirst = file.bSource ? 1 : 0;
    const unsigned int nEnd = std::max(file.mapLines.empty() ? 0 : file.mapLines.rbegin()->first + 1,
                                       static_cast<unsigned int>(file.vTexts.size()) + nFirst);
    for (unsigned int nLine = nFirst; nLine < nEnd; ++nLine)
    {
        const auto it = file.mapLines.find(nLine);
        const size_t nText = nLine - nFirst;
        if (it != file.mapLines.end() || nText < file.vTexts.size())
        {
            addRow(std::to_string(nLine), nText < file.vTexts.size() ? file.vTexts[nText] : std::string(),
                   [&](size_t n)
                   { return it != file.mapLines.end() ? vColumns[n].pfMake(it->second) : std::string(); });
        }
    }
    return strTable;
}

struct SShares
{
    size_t nLines = 0;
    size_t nLinesRun = 0;
    size_t nWays = 0;
    size_t nWaysTaken = 0;
};

SShares CountShares(const SFileProfile& file)
{
    SShares shares;
    for (const auto& entry : file.mapLines)
    {
        ++shares.nLines;
        shares.nLinesRun += entry.second.nRuns != 0 ? 1 : 0;
        for (const SBranchProfile& branch : entry.second.vBranches)
        {
            shares.nWays += 2;
            shares.nWaysTaken += (branch.nGoOn != 0 ? 1u : 0u) + (branch.nOther != 0 ? 1u : 0u);
        }
    }
    return shares;
}

std::string OfAll(size_t nPart, size_t nAll)
{
    return std::to_string(nPart) + " of " + std::to_string(nAll);
}

std::string Render(const CProfileReport& report, const std::vector<SColumn>& vColumns)
{
    std::string strText;
    for (const std::string& strLaunch : report.GetLaunches())
    {
        strText += "kernel " + strLaunch + "\n";
    }
    for (const auto& [strName, file] : report.GetFiles())
    {
        const SShares shares = CountShares(file);
        strText += "\n" + strName + ": " + OfAll(shares.nLinesRun, shares.nLines) + " lines run, " +
                   OfAll(shares.nWaysTaken, shares.nWays) + " ways of branches taken\n" + RenderFile(file, vColumns);
    }
    return strText;
}

json DescribeLineProfile(unsigned int nLine, const SLineProfile& line)
{
    json object = {
        {"line", nLine},        {"runs", line.nRuns},        {"waves", line.nWaves},  {"activeLanes", line.nItems},
        {"lanes", line.nLanes}, {"branches", json::array()}, {"loops", json::array()}};
    for (const SBranchProfile& branch : line.vBranches)
    {
        object["branches"].push_back({{"goOn", branch.nGoOn}, {"other", branch.nOther}});
    }
    for (const SLoopProfile& loop : line.vLoops)
    {
        object["loops"].push_back({{"entries", loop.nEntries},
                                   {"passes", loop.nPasses},
                                   {"least", loop.nLeast},
                                   {"mean", Mean(loop)},
                                   {"most", loop.nMost}});
    }
    static const char* const s_Memories[] = {"global", "local", "private"};
    for (size_t n = 0; n < 3; ++n)
    {
        object["loaded"][s_Memories[n]] = line.nLoaded[n];
        object["stored"][s_Memories[n]] = line.nStored[n];
    }
    object["accesses"] = line.nAccesses;
    object["cacheLines"] = line.nCacheLines;
    return object;
}

} // namespace

std::string RenderCover(const CProfileReport& report)
{
    return Render(report, s_CoverColumns);
}

std::string RenderProfile(const CProfileReport& report)
{
    return Render(report, s_ProfileColumns);
}

json DescribeProfile(const CProfileReport& report)
{
    json object = {{"launches", report.GetLaunches()}, {"files", json::array()}};
    for (const auto& [strName, file] : report.GetFiles())
    {
        json lines = json::array();
        for (const auto& [nLine, line] : file.mapLines)
        {
            lines.push_back(DescribeLineProfile(nLine, line));
        }
        json functions = json::array();
        for (const auto& [strFunction, function] : file.mapFunctions)
        {
            functions.push_back({{"name", strFunction}, {"line", function.nLine}, {"calls", function.nCalls}});
        }
        object["files"].push_back(
            {{"name", strName}, {"source", file.bSource}, {"functions", functions}, {"lines", lines}});
    }
    return object;
}

std::string MakeLcov(const CProfileReport& report, const std::map<std::string, std::string>& mapPaths)
{
    std::string strText;
    const auto add = [&strText](const char* pszTag, const std::string& strRest)
    { strText += std::string(pszTag) + ":" + strRest + "\n"; };
    for (const auto& [strName, file] : report.GetFiles())
    {
        const auto itPath = mapPaths.find(strName);
        const std::string& strPath = itPath != mapPaths.end() ? itPath->second : strName;
        const unsigned int nFirst = file.bSource ? 0 : 1; // IL lines count from 0, lcov's from 1
        add("TN", "");
        add("SF", std::filesystem::absolute(strPath).lexically_normal().string());
        size_t nCalled = 0;
        for (const auto& [strFunction, function] : file.mapFunctions)
        {
            add("FN", std::to_string(function.nLine + nFirst) + "," + strFunction);
            add("FNDA", std::to_string(function.nCalls) + "," + strFunction);
            nCalled += function.nCalls != 0 ? 1 : 0;
        }
        add("FNF", std::to_string(file.mapFunctions.size()));
        add("FNH", std::to_string(nCalled));
        for (const auto& [nLine, line] : file.mapLines)
        {
            for (size_t n = 0; n < line.vBranches.size(); ++n)
            {
                const SBranchProfile& branch = line.vBranches[n];
                const bool bReached = branch.nGoOn + branch.nOther != 0;
                const std::string strBranch = std::to_string(nLine + nFirst) + "," + std::to_string(n) + ",";
                add("BRDA", strBranch + "0," + (bReached ? std::to_string(branch.nGoOn) : "-"));
                add("BRDA", strBranch + "1," + (bReached ? std::to_string(branch.nOther) : "-"));
            }
        }
        const SShares shares = CountShares(file);
        add("BRF", std::to_string(shares.nWays));
        add("BRH", std::to_string(shares.nWaysTaken));
        for (const auto& [nLine, line] : file.mapLines)
        {
            add("DA", std::to_string(nLine + nFirst) + "," + std::to_string(line.nRuns));
        }
        add("LF", std::to_string(shares.nLines));
        add("LH", std::to_string(shares.nLinesRun));
        strText += "end_of_record\n";
    }
    return strText;
}

} // namespace KestrelTool
