#include "Programs.h"

#include "platform/compiler/ProgramCache.h"

#include <filesystem>

#include <csignal>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

namespace fs = std::filesystem;
using KestrelPlatform::CProgramCache;
using KestrelPlatform::SCachedProgram;

class CCacheTest : public testing::Test
{
protected:
    CCacheTest() { fs::remove_all(m_strFolder); }
    ~CCacheTest() override { fs::remove_all(m_strFolder); }

    std::vector<fs::path> Files() const
    {
        std::vector<fs::path> vFiles;
        for (const fs::directory_entry& entry : fs::directory_iterator(m_strFolder))
        {
            vFiles.push_back(entry.path());
        }
        return vFiles;
    }

    static SCachedProgram Program(const std::string& strText, size_t nBytes = 100)
    {
        return {"log of " + strText, std::vector<char>(nBytes, strText[0])};
    }

    const std::string m_strFolder = testing::TempDir() + "kestrel-cache-" + std::to_string(getpid()) + "/deep/down";
};

TEST_F(CCacheTest, GivesBackWhatWasStoredAndNothingElse)
{
    const CProgramCache cache(m_strFolder);
    SCachedProgram found;
    EXPECT_FALSE(cache.Find("a", found));
    cache.Store("a", Program("A"));
    cache.Store("b", Program("B"));
    cache.Store("b", Program("C"));
    ASSERT_TRUE(cache.Find("a", found));
    EXPECT_EQ(found.strLog, "log of A");
    EXPECT_EQ(found.vImage, Program("A").vImage);
    ASSERT_TRUE(CProgramCache(m_strFolder).Find("b", found)) << "another process finds it too";
    EXPECT_EQ(found.strLog, "log of C");
    EXPECT_FALSE(cache.Find("c", found));
    EXPECT_EQ(Files().size(), 2u);
}

TEST_F(CCacheTest, DamagedAndCutFilesCountAsNotThere)
{
    const CProgramCache cache(m_strFolder);
    cache.Store("key", Program("A"));
    const std::vector<fs::path> vFiles = Files();
    ASSERT_EQ(vFiles.size(), 1u);
    const std::string strWhole = (std::ostringstream() << std::ifstream(vFiles[0], std::ios::binary).rdbuf()).str();
    for (size_t n = 0; n < strWhole.size(); ++n)
    {
        SCachedProgram found;
        std::ofstream(vFiles[0], std::ios::binary) << strWhole.substr(0, n);
        EXPECT_FALSE(cache.Find("key", found)) << "cut at " << n;
        std::string strDamaged = strWhole;
        strDamaged[n] = static_cast<char>(strDamaged[n] ^ 0x10);
        std::ofstream(vFiles[0], std::ios::binary) << strDamaged;
        EXPECT_FALSE(cache.Find("key", found)) << "damaged at " << n;
    }
    cache.Store("key", Program("A"));
    SCachedProgram found;
    EXPECT_TRUE(cache.Find("key", found)) << "and is written anew";
}

TEST_F(CCacheTest, TheOldestGoWhenThereIsTooMuch)
{
    const CProgramCache cache(m_strFolder, 8000);
    cache.Store("first", Program("A", 1900));
    for (const fs::path& path : Files())
    {
        fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::hours(1));
    }
    std::ofstream(m_strFolder + "/not ours") << std::string(100000, 'x');
    for (int n = 0; n < 4; ++n)
    {
        cache.Store(std::to_string(n), Program("B", 1900));
    }
    cache.Store("larger than a quarter", Program("L", 3000));
    SCachedProgram found;
    EXPECT_FALSE(cache.Find("first", found));
    EXPECT_TRUE(cache.Find("3", found));
    EXPECT_FALSE(cache.Find("larger than a quarter", found));
    EXPECT_TRUE(fs::exists(m_strFolder + "/not ours"));
}

/// If nothing can be written there is no cache, which isn't an error: here a file is in the folder's place.
TEST_F(CCacheTest, NoRoomIsNoFault)
{
    fs::create_directories(fs::path(m_strFolder).parent_path());
    std::ofstream(m_strFolder) << "in the way";
    const CProgramCache cache(m_strFolder);
    cache.Store("a", Program("A"));
    SCachedProgram found;
    EXPECT_FALSE(cache.Find("a", found));
    EXPECT_FALSE(CProgramCache("").IsOn());
}

/// A write that fails because the disk is full leaves no file, not even a part of one.
TEST_F(CCacheTest, AFullDiskLeavesNothing)
{
    const pid_t nChild = fork();
    if (nChild == 0)
    {
        // Files of this process can't grow beyond 1,000 bytes, so a write fails in the middle.
        signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {1000, 1000};
        setrlimit(RLIMIT_FSIZE, &limit);
        CProgramCache(m_strFolder).Store("a", Program("A", 5000));
        _exit(0);
    }
    int nStatus = -1;
    ASSERT_EQ(waitpid(nChild, &nStatus, 0), nChild);
    EXPECT_EQ(nStatus, 0);
    EXPECT_TRUE(Files().empty());
}

/// Processes that store and find the same programs at the same time only see complete ones.
TEST_F(CCacheTest, SeveralProcessesAtOnce)
{
    std::vector<pid_t> vChildren;
    for (int nChild = 0; nChild < 4; ++nChild)
    {
        vChildren.push_back(fork());
        if (vChildren.back() == 0)
        {
            const CProgramCache cache(m_strFolder, 60000);
            bool bOk = true;
            for (int n = 0; n < 300; ++n)
            {
                const std::string strKey = std::to_string(n % 7);
                SCachedProgram found;
                bOk &=
                    !cache.Find(strKey, found) || (found.strLog == "log of " + strKey && found.vImage.size() == 10000);
                cache.Store(strKey, Program(strKey, 10000));
            }
            _exit(bOk ? 0 : 1);
        }
    }
    for (const pid_t nChild : vChildren)
    {
        int nStatus = -1;
        ASSERT_EQ(waitpid(nChild, &nStatus, 0), nChild);
        EXPECT_EQ(nStatus, 0);
    }
    for (const fs::path& path : Files())
    {
        EXPECT_EQ(path.extension(), ".kestrel") << "what is half-written is gone";
    }
}

} // namespace
