#ifndef KESTREL_TOOLS_PROGRAM_CAPTURE_H
#define KESTREL_TOOLS_PROGRAM_CAPTURE_H

#include "tools/session/program/CapturedLaunch.h"
#include "tools/session/program/ProgramProcess.h"

#include <cstdint>
#include <iosfwd>

namespace KestrelTool
{

/// What `kestrel capture` was asked for.
struct SCaptureOptions
{
    SProgramCommand command;
    SLaunchRule wanted;
    SCaptureTarget target;
};

/// Runs a program to its end and writes those of its launches that are wanted as launch files.
/// \param messages  gets a line for each of them, and says what couldn't be captured
/// \return the program's exit code, or an EExitCode if something wasn't captured that should have been
/// \throws CProgramError, CFileError
int CaptureLaunches(const SCaptureOptions& options, std::ostream& messages);

} // namespace KestrelTool

#endif
