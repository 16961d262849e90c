#ifndef KESTREL_TOOLS_PROGRAM_CAPTURE_H
#define KESTREL_TOOLS_PROGRAM_CAPTURE_H

#include "tools/session/program/CapturedLaunch.h"
#include "tools/session/program/ProgramProcess.h"

#include <cstdint>
#include <iosfwd>

namespace KestrelTool
{

/// The options of `kestrel capture`.
struct SCaptureOptions
{
    SProgramCommand command;
    SLaunchRule wanted;
    SCaptureTarget target;
};

/// Runs a program to its end, and writes the selected launches as launch files.
/// \param messages  receives a line for each of them, and the failures
/// \return the program's exit code, or an EExitCode if a launch should have been captured and wasn't
/// \throws CProgramError, CFileError
int CaptureLaunches(const SCaptureOptions& options, std::ostream& messages);

} // namespace KestrelTool

#endif
