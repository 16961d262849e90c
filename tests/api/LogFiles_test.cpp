#include "tests/support/Folders.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace
{

/// Runs the client in C in a folder of its own with a log level.
class LogFiles : public testing::Test
{
protected:
    void SetUp() override
    {
        m_folder =
            std::filesystem::path(testing::TempDir()) / ("kestrel_log_" + std::to_string(getpid()) + "_" +
                                                         testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::remove_all(m_folder);
        std::filesystem::create_directories(m_folder);
    }
    void TearDown() override { std::filesystem::remove_all(m_folder); }

    /// \param prepare  creates files in the folder first
    /// \param strLimits  shell commands before the client
    void RunClient(const char* pszLevel, void (*prepare)(const std::filesystem::path&) = nullptr,
                   const std::string& strLimits = "true")
    {
        std::filesystem::remove_all(m_folder);
        std::filesystem::create_directories(m_folder);
        if (prepare != nullptr)
        {
            prepare(m_folder);
        }
        const std::string strLevel =
            pszLevel != nullptr ? std::string("OVK_CL_DEBUG_LOG_LEVEL=") + pszLevel : "-u OVK_CL_DEBUG_LOG_LEVEL";
        const std::string strCommand = "cd '" + m_folder.string() + "' && " + strLimits + " && env " + strLevel + " " +
                                       KestrelTest::BuiltFile("bin/c_client") + " " + KestrelTest::PlatformFolder();
        ASSERT_EQ(std::system(strCommand.c_str()), 0) << strCommand;
    }

    std::string Read(const char* pszFile) const
    {
        std::ifstream file(m_folder / pszFile);
        EXPECT_TRUE(file.is_open()) << pszFile;
        return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    }

    std::filesystem::path m_folder;
};

const char* const s_szAssertLine = "Assert: debugRegisterLocatorToString CLD_Break( \"Unrecognized register\" )\n";

TEST_F(LogFiles, LevelsDecideWhatTheUsageLogHolds)
{
    struct SCase
    {
        const char* szLevel;
        bool bTrace;
        bool bAsserts;
    };
    for (const SCase& test :
         {SCase{nullptr, false, false}, SCase{"0", false, false}, SCase{"1", false, false}, SCase{"2", false, true},
          SCase{"3", false, false}, SCase{"4", false, false}, SCase{"5", false, false}, SCase{"6", true, false},
          SCase{"7", true, false}, SCase{"8", true, false}, SCase{"nonsense", false, false}, SCase{"-1", false, false}})
    {
        const std::string strLevel = test.szLevel != nullptr ? test.szLevel : "unset";
        RunClient(test.szLevel);
        const std::string strUsage = Read("OVKKestrelUsage.log");
        EXPECT_EQ(strUsage.find("ovkclDebugEnqueueTask() returned 0\n") != std::string::npos, test.bTrace) << strLevel;
        EXPECT_EQ(strUsage.find(s_szAssertLine) != std::string::npos, test.bAsserts) << strLevel;
        EXPECT_EQ(strUsage.empty(), !test.bTrace && !test.bAsserts) << strLevel;
        if (test.bAsserts)
        {
            EXPECT_EQ(strUsage, s_szAssertLine) << "nothing but assertions";
        }
    }
}

/// Each exported function writes a line at its call and one at its result, in pairs.
TEST_F(LogFiles, TheTraceHasEveryCallAndEveryResult)
{
    RunClient("6");
    const std::string strUsage = "\n" + Read("OVKKestrelUsage.log");
    std::ifstream map(KestrelTest::SourceFile("src/api/OVKKestrel.map"));
    size_t nFunctions = 0;
    for (std::string strWord; map >> strWord;)
    {
        if (strWord.rfind("ovkcl", 0) != 0)
        {
            continue;
        }
        strWord.pop_back();
        ++nFunctions;
        const auto count = [&](const std::string& strText)
        {
            size_t nCount = 0;
            for (size_t n = strUsage.find(strText); n != std::string::npos; n = strUsage.find(strText, n + 1))
            {
                ++nCount;
            }
            return nCount;
        };
        EXPECT_GT(count("\n" + strWord + "( "), 0u) << strWord;
        EXPECT_GT(count("\n" + strWord + "() returned "), 0u) << strWord;
    }
    EXPECT_EQ(nFunctions, 32u);
    EXPECT_NE(strUsage.find(", EVENT_FINISHED )\ncallback() returned COMMAND_CONTINUE\n"), std::string::npos);
    EXPECT_NE(strUsage.find("callback() returned 256\n"), std::string::npos);
}

TEST_F(LogFiles, LieInTheFolderThatIsNamed)
{
    const std::string strOther = (m_folder.string() + "_other");
    std::filesystem::create_directories(strOther);
    RunClient("6", nullptr, "export OVK_CL_DEBUG_LOG_FOLDER='" + strOther + "'");
    EXPECT_TRUE(std::filesystem::is_empty(m_folder));
    for (const char* pszName : {"OVKKestrelUsage.log", "OVKKestrel.log"})
    {
        std::error_code error;
        EXPECT_GT(std::filesystem::file_size(std::filesystem::path(strOther) / pszName, error), 0u) << pszName;
        EXPECT_FALSE(error) << pszName;
    }
    std::filesystem::remove_all(strOther);
    RunClient("6", nullptr, "export OVK_CL_DEBUG_LOG_FOLDER=/dev/null");
    EXPECT_TRUE(std::filesystem::is_empty(m_folder)) << "what can't be logged there isn't logged elsewhere";
}

TEST_F(LogFiles, TheSessionLogIsFramedAndAppendedTo)
{
    RunClient(nullptr);
    const std::string strLog = Read("OVKKestrel.log");
    const std::string strFrame = "\n*************************************\nLog started: ";
    const size_t nFirst = strLog.find(strFrame);
    EXPECT_EQ(nFirst, 0u);
    EXPECT_NE(strLog.find(strFrame, nFirst + 1), std::string::npos) << "the client debugs twice";
    EXPECT_NE(strLog.find("\n***********************************\nLog ended: "), std::string::npos);
}

/// The files that the library writes.
const char* const s_LogNames[] = {"OVKKestrelUsage.log", "OVKKestrelConsistency.log", "OVKKestrel.log"};

/// The client in C checks all codes and values, and reports failure if one is unexpected.
TEST_F(LogFiles, WhatCantBeWrittenChangesNoSession)
{
    const auto fullDisk = [](const std::filesystem::path& folder)
    {
        for (const char* pszName : s_LogNames)
        {
            std::filesystem::create_symlink("/dev/full", folder / pszName);
        }
    };
    const auto folders = [](const std::filesystem::path& folder)
    {
        for (const char* pszName : s_LogNames)
        {
            std::filesystem::create_directory(folder / pszName);
        }
    };
    for (const char* pszLevel : {"2", "3", "6"})
    {
        RunClient(pszLevel, fullDisk);
        EXPECT_TRUE(std::filesystem::is_symlink(m_folder / s_LogNames[0]));
        RunClient(pszLevel, folders);
        EXPECT_TRUE(std::filesystem::is_directory(m_folder / s_LogNames[0]));
        // A quota that is exceeded on the way.
        RunClient(pszLevel, nullptr, "trap '' XFSZ && ulimit -f 2");
        EXPECT_LE(std::filesystem::file_size(m_folder / s_LogNames[0]), 2048u);
        EXPECT_LE(std::filesystem::file_size(m_folder / s_LogNames[2]), 2048u);
    }
}

} // namespace
