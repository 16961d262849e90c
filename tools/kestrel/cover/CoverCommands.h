#ifndef KESTREL_TOOLS_COVER_COVERCOMMANDS_H
#define KESTREL_TOOLS_COVER_COVERCOMMANDS_H

#include "tools/session/launch/Libraries.h"

#include <ostream>
#include <string>
#include <vector>

namespace KestrelTool
{

struct SCoverOptions
{
    std::vector<std::string> vLaunches;
    bool bProfile = false; ///< list loops and memory instead of branches
    bool bJson = false;
    std::string strLcov; ///< file for lcov; empty for none
};

/// Runs launch files and prints the coverage of their kernels.
/// \throws CLaunchFileError, CPlatformError, CFileError
void ShowCover(const CLibraries& libraries, const SCoverOptions& options, std::ostream& output);

} // namespace KestrelTool

#endif
