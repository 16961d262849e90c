#include "tests/support/Folders.h"

namespace KestrelTest
{

std::string SourceFile(const std::string& strName)
{
    return KESTREL_SOURCE_DIR "/" + strName;
}

std::string BuiltFile(const std::string& strName)
{
    return KESTREL_BINARY_DIR "/" + strName;
}

std::string PlatformFile(const std::string& strName)
{
    return PlatformFolder() + "/" + strName;
}

std::string PlatformFolder()
{
    return KESTREL_PLATFORM_DIR;
}

std::string LoaderFile()
{
    return KESTREL_ICD_LOADER;
}

} // namespace KestrelTest
