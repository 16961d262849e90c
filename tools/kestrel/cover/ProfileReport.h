#ifndef KESTREL_TOOLS_COVER_PROFILEREPORT_H
#define KESTREL_TOOLS_COVER_PROFILEREPORT_H

#include "KestrelPlatform.h"
#include "tools/session/launch/Launch.h"
#include "tools/session/launch/Listing.h"
#include "tools/source/DebugInfo.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace KestrelTool
{

/// What work-items did at a branch that they reached.
struct SBranchProfile
{
    uint64_t nGoOn = 0;  ///< into an if, or continuing in a loop or function
    uint64_t nOther = 0; ///< past the if, or out
};

/// The passes of a loop that work-items began, including one that leaves it in its condition.
struct SLoopProfile
{
    uint64_t nEntries = 0;
    uint64_t nPasses = 0;
    uint64_t nLeast = 0;
    uint64_t nMost = 0;

    void Add(const SLoopProfile& other);
};

/// The profile of a line. If a function is inlined several times, each copy counts. How often the line ran is the count
/// of the instruction that most work-items reached.
struct SLineProfile
{
    uint64_t nRuns = 0;  ///< by work-items
    uint64_t nWaves = 0; ///< by waves
    uint64_t nItems = 0; ///< work-items that reached it, over all instructions
    uint64_t nLanes = 0; ///< lanes of their waves, active or not
    std::vector<SBranchProfile> vBranches;
    std::vector<SLoopProfile> vLoops;
    uint64_t nLoaded[3] = {}; ///< in bytes, by EPlatformMemory: global, local, private
    uint64_t nStored[3] = {};
    uint64_t nAccesses = 0; ///< accesses to global memory, by waves
    uint64_t nCacheLines = 0;

    void Add(const SLineProfile& other);
};

struct SFunctionProfile
{
    unsigned int nLine = 0; ///< the first line
    uint64_t nCalls = 0;    ///< by work-items
};

/// A source file, or a kernel's IL.
struct SFileProfile
{
    bool bSource = false;
    std::vector<std::string> vTexts;               ///< texts of the lines; none if the source can't be read
    std::map<unsigned int, SLineProfile> mapLines; ///< from 1 in a source, from 0 in IL
    std::map<std::string, SFunctionProfile> mapFunctions;
};

/// The combined profile of any number of launches.
class CProfileReport
{
public:
    /// Runs a launch and adds its profile.
    /// \throws CPlatformError
    void Run(const CLibraries& libraries, CLaunch& launch);

    const std::map<std::string, SFileProfile>& GetFiles() const { return m_mapFiles; }
    /// "life: 8 work-items", one for each launch.
    const std::vector<std::string>& GetLaunches() const { return m_vLaunches; }

private:
    void AddSource(const std::string& strKernel, const std::vector<SPlatformProfile>& vRows, const CListing& listing,
                   CDebugInfo& debug);
    void AddText(const std::string& strKernel, const std::vector<SPlatformProfile>& vRows, const CListing& listing);
    SFileProfile& SourceFile(const std::string& strName);
    std::string ChooseName(const std::string& strKernel, const CListing& listing);

    std::map<std::string, SFileProfile> m_mapFiles;
    std::vector<std::string> m_vLaunches;
};

} // namespace KestrelTool

#endif
