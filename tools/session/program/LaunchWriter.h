#ifndef KESTREL_TOOLS_PROGRAM_LAUNCHWRITER_H
#define KESTREL_TOOLS_PROGRAM_LAUNCHWRITER_H

#include "tools/session/launch/LaunchFile.h"

namespace KestrelTool
{

/// Whether the contents are small enough for the launch file itself.
bool IsInLaunchFile(const SArgument& argument);
/// The name of the file for the contents of an argument or a shared buffer ("arg2", "buffer0").
std::string NameContentsFile(const std::string& strLaunch, const std::string& strName);

/// Writes a launch as a launch file, and the program and larger contents as separate files, whose names begin with the
/// launch file's own. Reading it gives the same launch.
/// \param strPath     the launch file, "FOLDER/NAME.json"
/// \param strProgram  name of the program's file, with the extension for its kind
/// \throws CFileError
void WriteLaunch(const SLaunchFile& launch, const std::string& strPath, const std::string& strProgram);

} // namespace KestrelTool

#endif
