#ifndef KESTREL_TOOLS_PROGRAM_REPLAYPROGRAM_H
#define KESTREL_TOOLS_PROGRAM_REPLAYPROGRAM_H

#include "tools/session/launch/LaunchFile.h"

namespace KestrelTool
{

/// A C program that makes a captured launch on any OpenCL 1.2 platform. It reads the program's text and larger contents
/// from the files beside the launch file, and writes each buffer and image to a file after the launch.
/// \param strName     the launch file's name, without folder and ".json"
/// \param strProgram  name of the program's file
std::string MakeReplayProgram(const SLaunchFile& launch, const std::string& strName, const std::string& strProgram);

} // namespace KestrelTool

#endif
