#ifndef KESTREL_TOOLS_CHECK_CHECKREPORT_H
#define KESTREL_TOOLS_CHECK_CHECKREPORT_H

#include "KestrelPlatform.h"
#include "tools/kestrel/check/CheckedRuns.h"
#include "tools/kestrel/check/Suppressions.h"
#include "tools/session/debug/KernelArguments.h"
#include "tools/session/launch/Launch.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace KestrelTool
{

/// Where a finding is: a line of a source, counted from 1, or of a kernel's IL, counted from 0.
struct SCheckPlace
{
    std::string strFile;
    unsigned int nLine = 0;
    std::string strText; ///< of the line; empty if it can't be read

    bool operator<(const SCheckPlace& other) const;
    bool operator==(const SCheckPlace& other) const { return strFile == other.strFile && nLine == other.nLine; }
};

/// Something wrong with a kernel, at one place or two.
struct SCheckFinding
{
    std::string strCheck;            ///< "memory", "race", "init", "nan", "barrier", "alignment" or "api"
    std::string strKernel;           ///< empty for what no kernel does
    std::string strLaunch;           ///< the launch file, of several the first by name; empty for a program's
    uint64_t nLaunch = 0;            ///< of a program's the first that does it, from 1; else 0
    SCheckPlace place;               ///< without a file for what has none
    SCheckPlace other;               ///< of a race or two barriers; of "init", what read the bytes, if elsewhere
    std::vector<SCheckPlace> vChain; ///< of "nan": what passes it on, in order
    std::string strMessage;          ///< what is wrong, in a line
    std::string strItems;            ///< "work-items 3, 7, 11 and others"; empty if it isn't theirs
    SPlatformFinding finding = {};   ///< its first one
    uint64_t nCount = 0;

    /// Whether two places do it together, of which the second one may be the first.
    bool IsPair() const;
};

/// What launches do wrong.
class CCheckReport
{
public:
    explicit CCheckReport(CSuppressions suppressions) : m_Suppressions(std::move(suppressions)) {}

    /// Makes a launch, runs it and takes in what is found.
    /// \param nLaunch  counts a program's launches; 0 for one of a file
    /// \throws CPlatformError
    void Run(const CCheckedRuns& runs, const CLibraries& libraries, const SLaunchFile& file, uint64_t nLaunch = 0);
    /// Takes in what a program does wrong itself: all but "finding" of it is told.
    void Complain(SCheckFinding finding);
    /// Takes in what another report has found.
    void Join(const std::vector<SCheckFinding>& vFindings, size_t nLaunches, size_t nSuppressed,
              const std::set<std::string>& notes);

    /// By launch and place.
    const std::vector<SCheckFinding>& GetFindings() const { return m_vFindings; }
    size_t GetLaunches() const { return m_nLaunches; }
    size_t GetSuppressed() const { return m_nSuppressed; }
    /// What wasn't looked for, or isn't told, by launch.
    const std::set<std::string>& GetNotes() const { return m_Notes; }

private:
    void Take(const SCheckedRun& run, const CLaunch& launch, uint64_t nLaunch);
    void Add(const SCheckFinding& finding);
    const std::vector<std::string>& ReadSource(const std::string& strFile, const SLaunchFile& launch);

    const CSuppressions m_Suppressions;
    std::map<std::string, std::vector<std::string>> m_mapSources;
    std::vector<SCheckFinding> m_vFindings;
    std::set<std::string> m_Notes;
    size_t m_nLaunches = 0;
    size_t m_nSuppressed = 0;
};

} // namespace KestrelTool

#endif
