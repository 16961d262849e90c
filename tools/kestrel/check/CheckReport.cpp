#include "tools/kestrel/check/CheckReport.h"

#include "tools/kestrel/check/CheckWords.h"
#include "tools/session/debug/Faults.h"
#include "tools/session/debug/ReadListing.h"
#include "tools/session/debug/SourceLines.h"
#include "tools/session/launch/BinarySections.h"
#include "tools/session/launch/Files.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <tuple>
#include <utility>

namespace KestrelTool
{

namespace
{

/// How telling a finding is: of several at the same lines the most telling one is shown.
auto Weight(const SPlatformFinding& finding)
{
    return std::make_tuple(finding.bUnequal, finding.bWrite + finding.bOtherWrite, finding.bValues, ~finding.nWorkItem,
                           ~finding.nOtherItem);
}

/// Adds what a list misses of another, as long as there is room. Elements are kept in order.
template <typename T, size_t nMost>
void JoinLists(T (&to)[nMost], uint32_t& nTo, const T (&from)[nMost], uint32_t nFrom)
{
    std::set<T> all(to, to + nTo);
    all.insert(from, from + nFrom);
    nTo = 0;
    for (const T& element : all)
    {
        if (nTo < nMost)
        {
            to[nTo++] = element;
        }
    }
}

/// Two findings of a launch that are told as one, with the work-items of both.
SPlatformFinding Join(const SPlatformFinding& a, const SPlatformFinding& b)
{
    const bool bSecond = Weight(a) < Weight(b);
    SPlatformFinding joined = bSecond ? b : a;
    const SPlatformFinding& other = bSecond ? a : b;
    joined.nCount = a.nCount + b.nCount;
    JoinLists(joined.items, joined.nItems, other.items, other.nItems);
    JoinLists(joined.chain, joined.nChain, other.chain, other.nChain);
    JoinLists(joined.outputs, joined.nOutputs, other.outputs, other.nOutputs);
    return joined;
}

/// Whether it is about single work-items, which are all named.
bool NamesItems(const SPlatformFinding& finding)
{
    const bool bCarried = finding.nKind == PLATFORM_FINDING_NAN && finding.nFault == PLATFORM_FAULT_CARRIED;
    return finding.nKind != PLATFORM_FINDING_RACE && finding.nKind != PLATFORM_FINDING_BARRIER &&
           finding.nKind != PLATFORM_FINDING_HANG && !bCarried;
}

/// Joins findings of a launch at several instructions of one line.
/// \param find  gives an instruction's place
template <typename Find>
std::vector<SPlatformFinding> JoinByLine(const std::vector<SPlatformFinding>& vFindings, const Find& find)
{
    typedef std::tuple<SCheckPlace, uint32_t, uint32_t, uint32_t, int32_t> Key;
    std::map<Key, size_t> mapIndices;
    std::vector<SPlatformFinding> vJoined;
    for (const SPlatformFinding& finding : vFindings)
    {
        if (!NamesItems(finding))
        {
            vJoined.push_back(finding);
            continue;
        }
        const Key key{find(finding.nInstruction), finding.nKind, finding.nFault, finding.nMemory, finding.bWrite};
        const auto [it, bNew] = mapIndices.emplace(key, vJoined.size());
        if (bNew)
        {
            vJoined.push_back(finding);
            continue;
        }
        vJoined[it->second] = Join(vJoined[it->second], finding);
    }
    return vJoined;
}

} // namespace

bool SCheckPlace::operator<(const SCheckPlace& other) const
{
    return std::tie(strFile, nLine) < std::tie(other.strFile, other.nLine);
}

bool SCheckFinding::IsPair() const
{
    return finding.nKind == PLATFORM_FINDING_RACE ||
           (finding.nKind == PLATFORM_FINDING_BARRIER && !other.strFile.empty());
}

void CCheckReport::Run(const CCheckedRuns& runs, const CLibraries& libraries, const SLaunchFile& file, uint64_t nLaunch)
{
    CLaunch launch(libraries, file);
    const SCheckedRun run = runs.Run(launch, m_Carried.FindFollowed(file));
    const std::string strLaunch = nLaunch != 0 ? "launch " + std::to_string(nLaunch) : file.strPath;
    if (run.limits.nSkipped & PLATFORM_CHECK_RACE)
    {
        m_Notes.insert(strLaunch + ": the kernel has too many accesses to look for races");
    }
    if (run.limits.bMore != 0)
    {
        m_Notes.insert(strLaunch + ": more is wrong, at other places than those that are told");
    }
    Take(run, launch, nLaunch);
    ++m_nLaunches;
}

void CCheckReport::Join(const std::vector<SCheckFinding>& vFindings, size_t nLaunches, size_t nSuppressed,
                        const std::set<std::string>& notes)
{
    m_Notes.insert(notes.begin(), notes.end());
    m_nLaunches += nLaunches;
    m_nSuppressed += nSuppressed;
    for (const SCheckFinding& finding : vFindings)
    {
        Add(finding);
    }
}

void CCheckReport::Complain(SCheckFinding finding)
{
    finding.strCheck = "api";
    finding.finding.nOther = ~0u;
    finding.nCount = 1;
    Add(finding);
}

const std::vector<std::string>& CCheckReport::ReadSource(const std::string& strFile, const SLaunchFile& launch)
{
    const auto [it, bNew] = m_mapSources.insert({strFile, {}});
    if (!bNew)
    {
        return it->second;
    }
    const std::string strFolder = std::filesystem::path(launch.strPath).parent_path().string();
    for (const std::string& strPath : {strFile, (std::filesystem::path(strFolder) / strFile).string()})
    {
        try
        {
            return it->second = SplitLines(ReadFileBytes(strPath));
        }
        catch (const CFileError&)
        {
            continue; // findings then come without the line's text, unless the program holds it
        }
    }
    // The source of a program without a file begins with its name.
    const std::string strHead = "#line 1 \"" + strFile + "\"\n";
    if (launch.strSource.compare(0, strHead.size(), strHead) == 0)
    {
        it->second = SplitLines(launch.strSource.substr(strHead.size()));
    }
    return it->second;
}

void CCheckReport::Take(const SCheckedRun& run, const CLaunch& launch, uint64_t nLaunch)
{
    const std::vector<char> vBinary = launch.ReadBinary();
    const std::string& strKernel = launch.GetFile().strKernel;
    const std::vector<std::string> vMetadata = ReadMetadata(vBinary, strKernel);
    const CListing listing = ReadListing(vBinary, ReadLabel(vMetadata));
    const CCheckWords words(run.vBuffers, ReadArguments(vMetadata));
    const auto find = [&](uint32_t nInstruction)
    {
        const unsigned int nLine = listing.GetLineOfInstruction(nInstruction);
        const std::optional<SSourceLine> source = ReadSourceLine(listing.GetPlace(nLine));
        if (!source)
        {
            return SCheckPlace{strKernel + ".il", nLine, listing.GetLine(nLine), 0};
        }
        const std::string strFile = std::filesystem::path(source->strFile).lexically_normal().string();
        const std::vector<std::string>& vTexts = ReadSource(strFile, launch.GetFile());
        const bool bThere = source->nLine > 0 && source->nLine <= vTexts.size();
        return SCheckPlace{strFile, source->nLine, bThere ? vTexts[source->nLine - 1] : "", 0};
    };
    for (const SPlatformFinding& raw : JoinByLine(run.vFindings, find))
    {
        SCheckFinding finding;
        finding.strCheck = NameCheck(raw.nKind);
        finding.strKernel = strKernel;
        finding.nLaunch = nLaunch;
        finding.strLaunch = nLaunch == 0 ? launch.GetFile().strPath : "";
        finding.place = find(raw.nInstruction);
        finding.other = raw.nOther != ~0u ? find(raw.nOther) : SCheckPlace();
        for (uint32_t n = 0; n < raw.nChain; ++n)
        {
            const SCheckPlace place = find(raw.chain[n]);
            if (!(place == finding.place) &&
                std::find(finding.vChain.begin(), finding.vChain.end(), place) == finding.vChain.end())
            {
                finding.vChain.push_back(place);
            }
        }
        finding.strMessage = words.Describe(raw);
        finding.strItems = words.NameItems(raw);
        finding.finding = raw;
        finding.nCount = raw.nCount;
        for (size_t n = 0; raw.nKind == PLATFORM_FINDING_HANG && n < run.vPlaces.size(); ++n)
        {
            const bool bPlace = run.vPlaces[n].nInstruction != ~uint32_t(0);
            finding.vStanding.push_back(
                {DescribeStanding(run.vPlaces[n]), bPlace ? find(run.vPlaces[n].nInstruction) : SCheckPlace()});
        }
        const bool bCarried = raw.nKind == PLATFORM_FINDING_NAN && raw.nFault == PLATFORM_FAULT_CARRIED;
        const std::optional<size_t> nFinding =
            bCarried ? m_Carried.FindOrigin(raw, run, launch.GetFile()) : Add(finding);
        if (nFinding && bCarried)
        {
            PassOn(finding, words.NameOutputs(raw), m_vFindings[*nFinding]);
        }
        if (nFinding && raw.nKind == PLATFORM_FINDING_NAN)
        {
            m_Carried.Reach(raw, run, launch.GetFile(), *nFinding);
        }
    }
}

/// Lengthens a finding by what a later launch does with its numbers. A place is told once, for the first such launch.
void CCheckReport::PassOn(const SCheckFinding& carried, const std::string& strOutputs, SCheckFinding& origin)
{
    std::vector<SCheckPlace> vPlaces = carried.vChain;
    vPlaces.insert(vPlaces.begin(), carried.place);
    bool bNew = false;
    for (SCheckPlace& place : vPlaces)
    {
        if (!(place == origin.place) &&
            std::find(origin.vChain.begin(), origin.vChain.end(), place) == origin.vChain.end())
        {
            place.nLaunch = carried.nLaunch;
            origin.vChain.push_back(place);
            bNew = true;
        }
    }
    if (bNew && !strOutputs.empty())
    {
        origin.strMessage += "; in launch " + std::to_string(carried.nLaunch) + " it reaches " + strOutputs;
    }
}

/// Keeps one finding for each check and line, or pair of lines in either order.
/// \return its index; nothing if it is suppressed
std::optional<size_t> CCheckReport::Add(const SCheckFinding& finding)
{
    const auto isIntended = [&finding, this](const SCheckPlace& place)
    {
        return m_Suppressions.Holds(finding.strCheck, finding.strKernel, place.nLine) ||
               IsIntended(place.strText, finding.strCheck);
    };
    const bool bPair = finding.IsPair();
    if (isIntended(finding.place) || (bPair && isIntended(finding.other)))
    {
        ++m_nSuppressed;
        return std::nullopt;
    }
    const auto isSame = [&finding, bPair](const SCheckFinding& known)
    {
        if (known.strCheck != finding.strCheck || known.strKernel != finding.strKernel ||
            known.finding.nKind != finding.finding.nKind || known.IsPair() != bPair)
        {
            return false;
        }
        if (known.strCheck == "api")
        {
            return known.strMessage == finding.strMessage && known.place == finding.place;
        }
        return bPair ? std::minmax(known.place, known.other) == std::minmax(finding.place, finding.other)
                     : known.place == finding.place && known.finding.nFault == finding.finding.nFault &&
                           known.finding.nMemory == finding.finding.nMemory &&
                           known.finding.bWrite == finding.finding.bWrite;
    };
    const auto it = std::find_if(m_vFindings.begin(), m_vFindings.end(), isSame);
    if (it == m_vFindings.end())
    {
        m_vFindings.push_back(finding);
        return m_vFindings.size() - 1;
    }
    const uint64_t nCount = it->nCount + finding.nCount;
    // Of a program's launches, keeps the first one's; of launch files, whatever their order, the most telling.
    const auto weight = [](const SCheckFinding& one) { return std::make_tuple(~one.nLaunch, Weight(one.finding)); };
    if (weight(*it) < weight(finding) || (weight(*it) == weight(finding) && finding.strLaunch < it->strLaunch))
    {
        *it = finding;
    }
    it->nCount = nCount;
    return static_cast<size_t>(it - m_vFindings.begin());
}

} // namespace KestrelTool
