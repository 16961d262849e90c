#ifndef KESTREL_TOOLS_CHECK_CHECKREPORT_H
#define KESTREL_TOOLS_CHECK_CHECKREPORT_H

#include "KestrelPlatform.h"
#include "tools/kestrel/check/CarriedNumbers.h"
#include "tools/kestrel/check/CheckedRuns.h"
#include "tools/kestrel/check/Suppressions.h"
#include "tools/session/debug/KernelArguments.h"
#include "tools/session/launch/Launch.h"

#include <cstdint>
#include <map>
#include <optional>
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
    std::string strText;  ///< the line's text; empty if it can't be read
    uint64_t nLaunch = 0; ///< in a chain, the program's launch, if it is a later one than the finding's

    bool operator<(const SCheckPlace& other) const;
    bool operator==(const SCheckPlace& other) const { return strFile == other.strFile && nLine == other.nLine; }
};

/// Work-items of a kernel that was stopped since it didn't end.
struct SCheckStanding
{
    std::string strItems; ///< "63 work-items", "1 work-item at the barrier"
    SCheckPlace place;    ///< without a file for work-items that are in no loop and at no barrier
};

/// A fault of a kernel, at one place or two.
struct SCheckFinding
{
    std::string strCheck;                  ///< "memory", "race", "init", "nan", "barrier", "alignment" or "api"
    std::string strKernel;                 ///< empty if no kernel is to blame
    std::string strLaunch;                 ///< the launch file, the first by name of several; empty for a program's
    uint64_t nLaunch = 0;                  ///< the first of the program's launches with it, from 1; else 0
    SCheckPlace place;                     ///< without a file if there is none
    SCheckPlace other;                     ///< second place of a race or of barriers; for "init" the read, if elsewhere
    std::vector<SCheckPlace> vChain;       ///< for "nan": where it is passed on, in order
    std::vector<SCheckStanding> vStanding; ///< for a kernel that doesn't end: where all work-items were
    std::string strMessage;                ///< the fault, in one line
    std::string strItems;                  ///< "work-items 3, 7, 11 and others"; empty if none are concerned
    SPlatformFinding finding = {};         ///< the first one
    uint64_t nCount = 0;

    /// Whether it has two places, which may come in either order.
    bool IsPair() const;
};

/// The findings of a number of launches.
class CCheckReport
{
public:
    explicit CCheckReport(CSuppressions suppressions) : m_Suppressions(std::move(suppressions)) {}

    /// Creates a launch, runs it and adds its findings.
    /// \param nLaunch  number of the program's launch; 0 for one from a file
    /// \throws CPlatformError
    void Run(const CCheckedRuns& runs, const CLibraries& libraries, const SLaunchFile& file, uint64_t nLaunch = 0);
    /// Adds a fault of the program itself; uses all fields except "finding".
    void Complain(SCheckFinding finding);
    /// Notes a launch file that couldn't be checked, and why.
    void Miss(const std::string& strLaunch, const std::string& strWhy) { m_Missed.insert({strLaunch, strWhy}); }
    /// Adds the findings of another report.
    void Join(const std::vector<SCheckFinding>& vFindings, size_t nLaunches, size_t nSuppressed,
              const std::set<std::string>& notes);

    /// Sorted by launch and place.
    const std::vector<SCheckFinding>& GetFindings() const { return m_vFindings; }
    /// Those that were checked.
    size_t GetLaunches() const { return m_nLaunches; }
    /// Launch files that couldn't be checked, and why.
    const std::map<std::string, std::string>& GetMissed() const { return m_Missed; }
    size_t GetSuppressed() const { return m_nSuppressed; }
    /// What wasn't checked or isn't reported, by launch.
    const std::set<std::string>& GetNotes() const { return m_Notes; }

private:
    void Take(const SCheckedRun& run, const CLaunch& launch, uint64_t nLaunch);
    std::optional<size_t> Add(const SCheckFinding& finding);
    void PassOn(const SCheckFinding& carried, const std::string& strOutputs, SCheckFinding& origin);
    const std::vector<std::string>& ReadSource(const std::string& strFile, const SLaunchFile& launch);

    const CSuppressions m_Suppressions;
    std::map<std::string, std::vector<std::string>> m_mapSources;
    std::vector<SCheckFinding> m_vFindings;
    CCarriedNumbers m_Carried;
    std::set<std::string> m_Notes;
    std::map<std::string, std::string> m_Missed;
    size_t m_nLaunches = 0;
    size_t m_nSuppressed = 0;
};

} // namespace KestrelTool

#endif
