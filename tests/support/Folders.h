#ifndef KESTREL_TESTS_SUPPORT_FOLDERS_H
#define KESTREL_TESTS_SUPPORT_FOLDERS_H

#include <string>

/// Where the files of this build lie, as absolute paths. Folders.cpp alone is compiled with them, so that all other
/// objects are the same in every clone.
namespace KestrelTest
{

/// A file of the project, named from its root.
std::string SourceFile(const std::string& strName);
/// A file that was built, named from the build folder.
std::string BuiltFile(const std::string& strName);
/// A file of the software platform, named from its folder.
std::string PlatformFile(const std::string& strName);
/// The software platform's folder, without a slash at its end.
std::string PlatformFolder();
/// The machine's loader of OpenCL drivers.
std::string LoaderFile();

} // namespace KestrelTest

#endif
