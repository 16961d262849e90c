#ifndef KESTREL_TESTS_TOOLS_ATTACK_H
#define KESTREL_TESTS_TOOLS_ATTACK_H

#include "tests/support/AttackCount.h"
#include "tests/tools/ToolUnderTest.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

namespace fs = std::filesystem;

const std::string s_strLaunch = s_strExamples + "nested_if/nested_if.json";
const std::string s_strSource = s_strExamples + "nested_if/nested_if.il";

struct SOutcome
{
    int nCode = -1;      ///< the exit code; for a signal, 1000 plus its number
    std::string strText; ///< both streams
};

typedef std::vector<std::string> Words;

inline std::string ReadText(const fs::path& path)
{
    std::ifstream stream(path, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

class Attack : public testing::Test
{
protected:
    Attack() : m_Folder(fs::temp_directory_path() / ("kestrel_attack_" + std::to_string(getpid())))
    {
        fs::remove_all(m_Folder);
        fs::create_directories(m_Folder / "folder");
        mkfifo((m_Folder / "pipe").c_str(), 0600);
        std::ofstream(m_Folder / "k.il") << ReadText(s_strSource);
    }
    ~Attack() override { fs::remove_all(m_Folder); }

    std::string Path(const std::string& strName) const { return (m_Folder / strName).string(); }

    /// A launch file of the nested ifs with the test's own fields.
    std::string WriteLaunch(const std::string& strText) const
    {
        std::ofstream(m_Folder / "launch.json") << strText;
        return Path("launch.json");
    }

    /// Sets the way of attack that the following runs count as; empty for none.
    void CountAs(const std::string& strWay) { m_strWay = strWay; }

    /// Runs the program; an alarm ends it if it hangs.
    /// \param prepare  called in the child before that, with its streams set up
    SOutcome Run(const Words& words, const std::function<void()>& prepare = {}, const std::string& strInput = "") const
    {
        if (!m_strWay.empty())
        {
            KestrelTest::CountAttack(m_strWay);
        }
        std::ofstream(m_Folder / "input") << strInput;
        const pid_t nChild = fork();
        if (nChild == 0)
        {
            const int nInput = open(Path("input").c_str(), O_RDONLY);
            const int nOutput = open(Path("output").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
            dup2(nInput, 0);
            dup2(nOutput, 1);
            dup2(nOutput, 2);
            close(nInput);
            close(nOutput);
            setenv("KESTREL_HISTORY", "", 1);
            alarm(100);
            if (prepare)
            {
                prepare();
            }
            std::vector<char*> vWords = {const_cast<char*>("kestrel")};
            for (const std::string& strWord : words)
            {
                vWords.push_back(const_cast<char*>(strWord.c_str()));
            }
            vWords.push_back(nullptr);
            execv(s_strKestrel.c_str(), vWords.data());
            _exit(127);
        }
        int nStatus = 0;
        waitpid(nChild, &nStatus, 0);
        return {WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : 1000 + WTERMSIG(nStatus), ReadText(m_Folder / "output")};
    }

    const fs::path m_Folder;

private:
    std::string m_strWay;
};

inline void PutInPlace(const char* pszPath, int nFlags, int nFile)
{
    const int nOpen = open(pszPath, nFlags);
    dup2(nOpen, nFile);
    close(nOpen);
}

inline void LimitResource(int nResource, rlim_t nLimit)
{
    const struct rlimit limit = {nLimit, nLimit};
    setrlimit(static_cast<__rlimit_resource>(nResource), &limit);
}

#endif
