#ifndef KESTREL_TOOLS_CHECK_CHECKCOMMAND_H
#define KESTREL_TOOLS_CHECK_CHECKCOMMAND_H

#include "tools/session/launch/Libraries.h"

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace KestrelTool
{

struct SCheckOptions
{
    std::vector<std::string> vLaunches;
    std::vector<std::string> vChecks; ///< by name; none for those that are made by default
    std::string strSuppressions;      ///< file; empty for none
    std::string strSarif;             ///< files to write; empty for none
    std::string strJUnit;
    bool bJson = false;
    uint64_t nLimit = 1000000000; ///< instructions that a work-group may execute
};

/// Runs launch files, checks what they do, and prints what is wrong.
/// \return the program's exit code
/// \throws CLaunchFileError, CPlatformError, CFileError
int CheckLaunches(const CLibraries& libraries, const SCheckOptions& options, std::ostream& output);

} // namespace KestrelTool

#endif
