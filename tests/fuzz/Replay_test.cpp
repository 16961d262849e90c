#include "fuzz/Targets.h"
#include "tests/support/AttackCount.h"
#include "tests/support/Folders.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

using namespace KestrelFuzz;

namespace
{

namespace fs = std::filesystem;

class Replay : public testing::TestWithParam<STarget>
{
};

/// A violated property ends the program and names the file.
TEST_P(Replay, EveryFileOfTheCorpusKeepsTheProperties)
{
    std::vector<fs::path> vFiles;
    for (const auto& entry :
         fs::directory_iterator(std::filesystem::path(KestrelTest::SourceFile("fuzz/corpus")) / GetParam().pszName))
    {
        vFiles.push_back(entry.path());
    }
    ASSERT_GE(vFiles.size(), 10u);
    std::sort(vFiles.begin(), vFiles.end());
    for (const fs::path& path : vFiles)
    {
        std::ifstream file(path, std::ios::binary);
        const std::vector<char> vBytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        SetInputName(path.string());
        KestrelTest::CountAttack(std::string("files of the fuzz target ") + GetParam().pszName);
        GetParam().pfnRun(reinterpret_cast<const uint8_t*>(vBytes.data()), vBytes.size());
    }
    SetInputName("");
}

INSTANTIATE_TEST_SUITE_P(Corpus, Replay, testing::ValuesIn(s_Targets),
                         [](const testing::TestParamInfo<STarget>& test) { return test.param.pszName; });

} // namespace
