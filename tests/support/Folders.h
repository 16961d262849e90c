#ifndef KESTREL_TESTS_SUPPORT_FOLDERS_H
#define KESTREL_TESTS_SUPPORT_FOLDERS_H

#include <string>

/// The paths of this build's files, absolute. Only Folders.cpp is compiled with them, so that all other objects are the
/// same in every clone.
namespace KestrelTest
{

/// A file of the project, by its path from the root.
std::string SourceFile(const std::string& strName);
/// A file that was built, by its path from the build folder.
std::string BuiltFile(const std::string& strName);
/// A file of the software platform, by its path from the platform's folder.
std::string PlatformFile(const std::string& strName);
/// The software platform's folder, without a slash at its end.
std::string PlatformFolder();
/// The machine's loader of OpenCL drivers.
std::string LoaderFile();

} // namespace KestrelTest

#endif
