#include "tests/e2e/ExampleList.h"
#include "tests/support/Folders.h"
#include "tests/support/Stride.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

namespace KestrelTest
{

std::vector<std::string> ListExamples()
{
    std::vector<std::string> vNames;
    const std::filesystem::path root = GetExamplePath("");
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root))
    {
        if (entry.path().extension() == ".json")
        {
            vNames.push_back(std::filesystem::relative(entry.path(), root).string());
        }
    }
    std::sort(vNames.begin(), vNames.end());
    return vNames;
}

std::vector<std::string> ListSomeExamples()
{
    const std::vector<std::string> vAll = ListExamples();
    std::vector<std::string> vSome;
    for (size_t n = 0; n < vAll.size(); ++n)
    {
        if (!s_bSanitized || n % 3 == 2)
        {
            vSome.push_back(vAll[n]);
        }
    }
    return vSome;
}

std::string GetExamplePath(const std::string& strName)
{
    return KestrelTest::SourceFile("examples/") + strName;
}

std::string GetExampleTestName(const testing::TestParamInfo<std::string>& info)
{
    std::string strName = std::filesystem::path(info.param).stem().string();
    std::replace_if(
        strName.begin(), strName.end(), [](unsigned char c) { return !std::isalnum(c); }, '_');
    return strName;
}

} // namespace KestrelTest
