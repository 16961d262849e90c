#ifndef KESTREL_TOOLS_PROGRAM_CAPTUREDLAUNCH_H
#define KESTREL_TOOLS_PROGRAM_CAPTUREDLAUNCH_H

#include "tools/session/program/ProgramRecord.h"

namespace KestrelTool
{

/// Where to write captured launches.
struct SCaptureTarget
{
    std::string strFolder = "captured";
    bool bEmitC = false; ///< also write a C program beside each launch file
};

/// Parses "N" or "N-M" as the launch numbers of a rule; false for anything else.
bool ReadLaunchRange(const std::string& strText, SLaunchRule& rule);

/// Writes a launch with everything that it needs to a folder, which is created if necessary.
/// \return path of the launch file
/// \throws CFileError, std::filesystem::filesystem_error
std::string WriteCapturedLaunch(const SLaunchFile& file, const SKnownLaunch& launch, const SKnownProgram& program,
                                const SCaptureTarget& target);

} // namespace KestrelTool

#endif
