#ifndef KESTREL_TOOLS_CHECK_CHECKCOMMAND_H
#define KESTREL_TOOLS_CHECK_CHECKCOMMAND_H

#include "tools/kestrel/check/CheckedRuns.h"
#include "tools/session/launch/Libraries.h"
#include "tools/session/program/ProgramProcess.h"

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace KestrelTool
{

struct SCheckOptions
{
    std::vector<std::string> vLaunches;     ///< files, and folders of files
    bool bMerge = false;                    ///< they are reports to join
    std::string strShard;                   ///< "2/8" for a part of the launches; empty for all
    std::optional<SProgramCommand> program; ///< instead of launch files
    std::vector<std::string> vChecks;       ///< by name; empty for the default ones
    std::string strSuppressions;            ///< file; empty for none
    std::string strSarif;                   ///< files to write; empty for none
    std::string strJUnit;
    bool bJson = false;
    uint64_t nLimit = g_nUsualLimit; ///< instructions that a work-group may execute
};

/// Checks launch files, or the launches of a program, and prints the findings.
/// \param messages  receives what couldn't be checked
/// \return the tool's exit code
/// \throws CLaunchFileError, CPlatformError, CFileError, CProgramError
int CheckLaunches(const CLibraries& libraries, const SCheckOptions& options, std::ostream& output,
                  std::ostream& messages);

/// Joins reports that were printed as JSON, and prints the result.
/// \return the tool's exit code
/// \throws CLaunchFileError, CFileError
int MergeReports(const SCheckOptions& options, std::ostream& output);

} // namespace KestrelTool

#endif
