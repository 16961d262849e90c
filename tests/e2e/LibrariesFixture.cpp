#include "tests/e2e/LibrariesFixture.h"
#include "tests/support/Folders.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

namespace KestrelTest
{

namespace
{

const char* const s_pszLoaderSwitch = "KESTREL_BEHIND_LOADER";
const std::string s_strPlatform = KestrelTest::PlatformFolder();
const std::string s_strDebugger = KestrelTest::BuiltFile("lib/libOVKKestrel.so");

KestrelTool::CLibraries Open()
{
    if (!IsBehindLoader())
    {
        return KestrelTool::CLibraries(s_strPlatform, s_strDebugger);
    }
    setenv("OCL_ICD_VENDORS", (s_strPlatform + "/icd").c_str(), 1);
    return KestrelTool::CLibraries(s_strPlatform, KestrelTest::LoaderFile(), s_strDebugger);
}

} // namespace

bool IsBehindLoader()
{
    return std::getenv(s_pszLoaderSwitch) != nullptr;
}

const KestrelTool::CLibraries& GetLibraries()
{
    static const KestrelTool::CLibraries s_Libraries = Open();
    return s_Libraries;
}

std::string ReplayCommand()
{
    const testing::TestInfo* pInfo = testing::UnitTest::GetInstance()->current_test_info();
    const std::string strSwitch = IsBehindLoader() ? std::string(s_pszLoaderSwitch) + "=1 " : "";
    return strSwitch + std::filesystem::read_symlink("/proc/self/exe").string() +
           " --gtest_filter=" + pInfo->test_suite_name() + "." + pInfo->name();
}

} // namespace KestrelTest
