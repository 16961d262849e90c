#ifndef KESTREL_TOOLS_CHECK_REPORTFILE_H
#define KESTREL_TOOLS_CHECK_REPORTFILE_H

#include "tools/kestrel/check/CheckReport.h"

namespace KestrelTool
{

/// Adds the findings of a report that was printed as JSON.
/// \throws CLaunchFileError for a file that isn't one, CFileError
void JoinReport(const std::string& strPath, CCheckReport& report);

} // namespace KestrelTool

#endif
