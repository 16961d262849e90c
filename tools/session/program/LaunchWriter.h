#ifndef KESTREL_TOOLS_PROGRAM_LAUNCHWRITER_H
#define KESTREL_TOOLS_PROGRAM_LAUNCHWRITER_H

#include "tools/session/launch/LaunchFile.h"

namespace KestrelTool
{

/// Whether contents are few enough to stand in the launch file itself.
bool IsInLaunchFile(const SArgument& argument);
/// Name of the file with the contents of an argument or a shared buffer ("arg2", "buffer0").
std::string NameContentsFile(const std::string& strLaunch, const std::string& strName);

/// Writes a launch as a launch file with the files that it names, which begin with the launch file's own name:
/// contents of more than a few elements, and the program. Reading it gives the same launch.
/// \param strPath     the launch file, "FOLDER/NAME.json"
/// \param strProgram  name of the program's file; its end says what it is
/// \throws CFileError
void WriteLaunch(const SLaunchFile& launch, const std::string& strPath, const std::string& strProgram);

} // namespace KestrelTool

#endif
