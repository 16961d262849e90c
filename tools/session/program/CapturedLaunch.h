#ifndef KESTREL_TOOLS_PROGRAM_CAPTUREDLAUNCH_H
#define KESTREL_TOOLS_PROGRAM_CAPTUREDLAUNCH_H

#include "tools/session/program/ProgramRecord.h"

namespace KestrelTool
{

/// Where captured launches go.
struct SCaptureTarget
{
    std::string strFolder = "captured";
    bool bEmitC = false; ///< write a program in C beside each launch file
};

/// "N" or "N-M" as the numbers of launches that a rule wants; false for anything else.
bool ReadLaunchRange(const std::string& strText, SLaunchRule& rule);

/// Writes a launch with all that it needs into a folder, which is made if it isn't there.
/// \return path of the launch file
/// \throws CFileError, std::filesystem::filesystem_error
std::string WriteCapturedLaunch(const SLaunchFile& file, const SKnownLaunch& launch, const SKnownProgram& program,
                                const SCaptureTarget& target);

} // namespace KestrelTool

#endif
