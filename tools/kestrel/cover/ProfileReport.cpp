#include "tools/kestrel/cover/ProfileReport.h"

#include "tools/session/debug/Faults.h"
#include "tools/session/debug/KernelArguments.h"
#include "tools/session/debug/ReadListing.h"
#include "tools/session/debug/SourceLines.h"
#include "tools/session/launch/BinarySections.h"
#include "tools/session/launch/Files.h"
#include "tools/session/launch/PlatformDoor.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <tuple>

namespace KestrelTool
{

namespace
{

/// Keeps profiles while it exists.
class CProfileSwitch
{
public:
    explicit CProfileSwitch(const SPlatformControl& control) : m_Control(control) { m_Control.KeepProfile(1); }
    ~CProfileSwitch() { m_Control.KeepProfile(0); }
    CProfileSwitch(const CProfileSwitch&) = delete;
    CProfileSwitch& operator=(const CProfileSwitch&) = delete;

    std::vector<SPlatformProfile> Take() const
    {
        std::vector<SPlatformProfile> vRows(m_Control.GetProfile(nullptr, 0));
        m_Control.GetProfile(vRows.data(), static_cast<uint32_t>(vRows.size()));
        return vRows;
    }

private:
    const SPlatformControl& m_Control;
};

/// A line of a file in one inlined copy of its function.
struct SLineKey
{
    std::string strFile;
    unsigned int nLine = 0;
    uint64_t nInstance = 0;

    bool operator<(const SLineKey& other) const
    {
        return std::tie(strFile, nLine, nInstance) < std::tie(other.strFile, other.nLine, other.nInstance);
    }
};

template <class T>
void AddEach(std::vector<T>& vTo, const std::vector<T>& vFrom, void (*pfAdd)(T& to, const T& from))
{
    vTo.resize(std::max(vTo.size(), vFrom.size()));
    for (size_t n = 0; n < vFrom.size(); ++n)
    {
        pfAdd(vTo[n], vFrom[n]);
    }
}

/// Adds an instruction to its line.
void AddRow(SLineProfile& line, const SPlatformProfile& row)
{
    if (row.nItems > line.nRuns)
    {
        line.nRuns = row.nItems;
        line.nWaves = row.nWaves;
    }
    line.nItems += row.nItems;
    line.nLanes += row.nLanes;
    if (row.nBranch != 0)
    {
        line.vBranches.push_back({row.nGoOn, row.nItems - row.nGoOn});
    }
    for (size_t n = 0; n < 3; ++n)
    {
        line.nLoaded[n] += row.nLoaded[n];
        line.nStored[n] += row.nStored[n];
    }
    line.nAccesses += row.nAccesses;
    line.nCacheLines += row.nLines;
}

void AddLoop(SLineProfile& line, const SPlatformProfile& row)
{
    line.vLoops.push_back({row.nEntries, row.nItems, row.nLeast, row.nMost});
}

std::vector<std::string> ReadTexts(const std::string& strFile)
{
    try
    {
        return SplitLines(ReadFileBytes(strFile));
    }
    catch (const CFileError&)
    {
        return {}; // lines are listed without their text
    }
}

/// Ends of bodies, which aren't executed after a return.
bool IsEnd(const std::string& strMnemonic)
{
    return strMnemonic == "end" || strMnemonic == "endfunc" || strMnemonic == "endmain";
}

/// Ends of blocks belong to no source line: their place is that of the instruction before them.
bool IsBorder(const std::string& strMnemonic)
{
    static const std::set<std::string> s_Borders = {"else", "endif", "endloop", "case", "default", "endswitch"};
    return IsEnd(strMnemonic) || s_Borders.count(strMnemonic) != 0;
}

bool IsLoop(const std::string& strMnemonic)
{
    return strMnemonic == "whileloop";
}

bool HasPlaces(const CListing& listing)
{
    for (unsigned int n = 0; n < listing.GetLineCount(); ++n)
    {
        if (!listing.GetPlace(n).empty())
        {
            return true;
        }
    }
    return false;
}

} // namespace

void SLoopProfile::Add(const SLoopProfile& other)
{
    nLeast = nEntries == 0 ? other.nLeast : other.nEntries == 0 ? nLeast : std::min(nLeast, other.nLeast);
    nMost = std::max(nMost, other.nMost);
    nEntries += other.nEntries;
    nPasses += other.nPasses;
}

void SLineProfile::Add(const SLineProfile& other)
{
    nRuns += other.nRuns;
    nWaves += other.nWaves;
    nItems += other.nItems;
    nLanes += other.nLanes;
    AddEach<SBranchProfile>(vBranches, other.vBranches,
                            [](SBranchProfile& to, const SBranchProfile& from)
                            {
                                to.nGoOn += from.nGoOn;
                                to.nOther += from.nOther;
                            });
    AddEach<SLoopProfile>(vLoops, other.vLoops, [](SLoopProfile& to, const SLoopProfile& from) { to.Add(from); });
    for (size_t n = 0; n < 3; ++n)
    {
        nLoaded[n] += other.nLoaded[n];
        nStored[n] += other.nStored[n];
    }
    nAccesses += other.nAccesses;
    nCacheLines += other.nCacheLines;
}

void CProfileReport::Run(const CLibraries& libraries, CLaunch& launch)
{
    const SPlatformControl* const pControl = FindPlatformControl(libraries);
    if (pControl == nullptr)
    {
        throw CPlatformError("this platform keeps no profile of a run; the software platform does");
    }
    const CProfileSwitch profile(*pControl);
    launch.Run();
    const std::vector<SPlatformProfile> vRows = profile.Take();
    if (vRows.empty())
    {
        throw CPlatformError("there is no profile of the run");
    }
    const std::vector<char> vBinary = launch.ReadBinary();
    const std::string& strKernel = launch.GetFile().strKernel;
    CDebugInfo debug(vBinary);
    const CListing listing = ReadListing(vBinary, ReadLabel(ReadMetadata(vBinary, strKernel)));
    if (HasPlaces(listing))
    {
        AddSource(strKernel, vRows, listing, debug);
    }
    else
    {
        AddText(strKernel, vRows, listing);
    }
    m_vLaunches.push_back(strKernel + ": " + std::to_string(launch.GetWorkItems()) + " work-items");
}

SFileProfile& CProfileReport::SourceFile(const std::string& strName)
{
    const auto [it, bNew] = m_mapFiles.insert({strName, {}});
    if (bNew)
    {
        it->second.bSource = true;
        it->second.vTexts = ReadTexts(strName);
    }
    return it->second;
}

/// "life.il", or another name if another kernel has that one.
std::string CProfileReport::ChooseName(const std::string& strKernel, const CListing& listing)
{
    std::vector<std::string> vTexts;
    for (unsigned int n = 0; n < listing.GetLineCount(); ++n)
    {
        vTexts.push_back(listing.GetLine(n));
    }
    for (size_t nTry = 1;; ++nTry)
    {
        std::string strName = strKernel + (nTry > 1 ? "-" + std::to_string(nTry) : "") + ".il";
        const auto it = m_mapFiles.insert({strName, {false, vTexts, {}, {}}}).first;
        if (!it->second.bSource && it->second.vTexts == vTexts)
        {
            return strName;
        }
    }
}

/// Instructions without a source place belong to no source line.
void CProfileReport::AddSource(const std::string& strKernel, const std::vector<SPlatformProfile>& vRows,
                               const CListing& listing, CDebugInfo& debug)
{
    std::map<SLineKey, SLineProfile> mapLines;
    std::set<std::pair<std::string, uint64_t>> begun; // instances of functions whose first instruction was seen
    for (unsigned int nInstruction = 0; nInstruction < vRows.size(); ++nInstruction)
    {
        const unsigned int nLine = listing.GetLineOfInstruction(nInstruction);
        std::optional<SSourceLine> place = ReadSourceLine(listing.GetPlace(nLine));
        if (!place || IsBorder(listing.GetMnemonic(nLine)))
        {
            continue;
        }
        place->strFile = std::filesystem::path(place->strFile).lexically_normal().string();
        const std::vector<SSourceFrame>& vFrames = debug.FindFrames(nLine);
        const std::string strFunction = vFrames.empty() ? strKernel : vFrames[0].strFunction;
        const uint64_t nInstance = vFrames.empty() ? 0 : vFrames[0].nInstance;
        SLineProfile& line = mapLines[{place->strFile, place->nLine, nInstance}];
        if (IsLoop(listing.GetMnemonic(nLine)))
        {
            // A loop's opening instruction isn't counted as executing the line in each pass; its condition is.
            AddLoop(line, vRows[nInstruction]);
            line.nRuns = std::max(line.nRuns, vRows[nInstruction].nEntries);
        }
        else
        {
            AddRow(line, vRows[nInstruction]);
        }
        SFunctionProfile& function =
            SourceFile(place->strFile).mapFunctions.insert({strFunction, {place->nLine, 0}}).first->second;
        function.nLine = std::min(function.nLine, place->nLine);
        function.nCalls += begun.insert({strFunction, nInstance}).second ? vRows[nInstruction].nItems : 0;
    }
    for (const auto& [key, line] : mapLines)
    {
        SourceFile(key.strFile).mapLines[key.nLine].Add(line);
    }
}

void CProfileReport::AddText(const std::string& strKernel, const std::vector<SPlatformProfile>& vRows,
                             const CListing& listing)
{
    SFileProfile& file = m_mapFiles[ChooseName(strKernel, listing)];
    for (unsigned int nInstruction = 0; nInstruction < vRows.size(); ++nInstruction)
    {
        const unsigned int nLine = listing.GetLineOfInstruction(nInstruction);
        if (nLine != CListing::NoLine && !IsEnd(listing.GetMnemonic(nLine)))
        {
            SLineProfile line;
            if (IsLoop(listing.GetMnemonic(nLine)))
            {
                AddLoop(line, vRows[nInstruction]);
            }
            AddRow(line, vRows[nInstruction]);
            file.mapLines[nLine].Add(line);
            SFunctionProfile& function = file.mapFunctions.insert({strKernel, {nLine, 0}}).first->second;
            function.nCalls += function.nLine == nLine ? line.nRuns : 0;
        }
    }
}

} // namespace KestrelTool
