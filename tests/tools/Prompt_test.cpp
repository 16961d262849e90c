// The interactive prompt, used through a pseudo-terminal like by a person.

#include "tests/support/AttackCount.h"
#include "tests/tools/ToolUnderTest.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace
{

const std::string s_strPrompt = "(kestrel) ";

/// The program on a terminal of its own.
class CTerminal
{
public:
    CTerminal(const std::string& strLaunch, const std::string& strHistory)
    {
        struct winsize size = {};
        size.ws_row = 24;
        size.ws_col = 100;
        m_nChild = forkpty(&m_nTerminal, nullptr, nullptr, &size);
        if (m_nChild == 0)
        {
            setenv("TERM", "vt100", 1);
            setenv("KESTREL_HISTORY", strHistory.c_str(), 1);
            execl(s_strKestrel.c_str(), "kestrel", "debug", strLaunch.c_str(), nullptr);
            _exit(127);
        }
    }
    ~CTerminal()
    {
        if (m_nChild > 0)
        {
            kill(m_nChild, SIGKILL);
            waitpid(m_nChild, nullptr, 0);
        }
        close(m_nTerminal);
    }
    CTerminal(const CTerminal&) = delete;
    CTerminal& operator=(const CTerminal&) = delete;

    void Type(const std::string& strKeys)
    {
        ASSERT_EQ(write(m_nTerminal, strKeys.data(), strKeys.size()), static_cast<ssize_t>(strKeys.size()));
    }

    /// Reads until a text has come. \return everything since the last call, up to there
    std::string ReadTo(const std::string& strText)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (m_strUnread.find(strText) == std::string::npos && std::chrono::steady_clock::now() < end && ReadSome())
        {
        }
        const size_t nFound = m_strUnread.find(strText);
        if (nFound == std::string::npos)
        {
            ADD_FAILURE() << "\"" << strText << "\" doesn't come; there is: " << m_strUnread;
            return m_strUnread;
        }
        std::string strRead = m_strUnread.substr(0, nFound + strText.size());
        m_strUnread.erase(0, nFound + strText.size());
        return strRead;
    }

    /// Executes a command. \return its output, up to the next prompt
    std::string Do(const std::string& strCommand)
    {
        Type(strCommand + "\n");
        ReadTo("\n");
        return ReadTo(s_strPrompt);
    }

    /// The key ends the input only at a prompt, which may not be back yet, so it is repeated.
    int EndWithFileMark()
    {
        for (int nTries = 0; nTries < 100 && m_nChild > 0; ++nTries)
        {
            Type("\x15\x04"); // on an empty line
            int nStatus = 0;
            usleep(50000);
            if (waitpid(m_nChild, &nStatus, WNOHANG) == m_nChild)
            {
                m_nChild = -1;
                m_nEndingSignal = WIFSIGNALED(nStatus) ? WTERMSIG(nStatus) : 0;
                return WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : -1;
            }
        }
        return -1;
    }

    /// Like the interrupt key.
    void Interrupt()
    {
        KestrelTest::CountAttack("interrupts of what goes on for long");
        Type("\x03");
    }

    /// Sends a signal to the program.
    void Signal(int nSignal) { kill(m_nChild, nSignal); }

    /// \return the signal that ended the program, or 0 if it ended by itself
    int GetEndingSignal() const { return m_nEndingSignal; }

    int WaitForEnd()
    {
        while (ReadSome())
        {
        }
        int nStatus = 0;
        waitpid(m_nChild, &nStatus, 0);
        m_nChild = -1;
        return WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : -1;
    }

private:
    bool ReadSome()
    {
        pollfd request = {m_nTerminal, POLLIN, 0};
        if (poll(&request, 1, 60000) <= 0)
        {
            return false;
        }
        char buffer[4096];
        const ssize_t nRead = read(m_nTerminal, buffer, sizeof(buffer));
        m_strUnread.append(buffer, nRead > 0 ? static_cast<size_t>(nRead) : 0);
        return nRead > 0;
    }

    int m_nTerminal = -1;
    pid_t m_nChild = -1;
    int m_nEndingSignal = 0;
    std::string m_strUnread;
};

class Prompt : public testing::Test
{
protected:
    Prompt() : m_strHistory(testing::TempDir() + "kestrel_history_" + std::to_string(getpid()))
    {
        std::filesystem::remove(m_strHistory);
    }
    ~Prompt() override { std::filesystem::remove(m_strHistory); }

    const std::string m_strHistory;
    const std::string m_strNestedIf = s_strExamples + "nested_if/nested_if.json";
};

/// Interrupts and progress while another thread works: tests for the thread sanitizer.
class ThreadsPrompt : public Prompt
{
};

} // namespace

TEST_F(Prompt, RepeatsWithEnterAndEndsWithTheFileMark)
{
    CTerminal terminal(m_strNestedIf, "");
    EXPECT_TRUE(Holds(terminal.ReadTo(s_strPrompt), "Kernel nested_if on Quench, 16 work-items"));
    EXPECT_TRUE(Holds(terminal.Do("start"), "=>   11"));
    EXPECT_TRUE(Holds(terminal.Do("step"), "=>   12"));
    EXPECT_TRUE(Holds(terminal.Do(""), "=>   13"));
    EXPECT_TRUE(Holds(terminal.Do(""), "=>   14"));
    EXPECT_TRUE(Holds(terminal.Do("nonsense"), "there is no command"));
    EXPECT_EQ(terminal.EndWithFileMark(), 0);
}

TEST_F(Prompt, CompletesCommandsRegistersAndPlaces)
{
    CTerminal terminal(s_strExamples + "call_chain/call_chain.json", "");
    terminal.ReadTo(s_strPrompt);
    // Executing the completed lines shows that they are complete, since cut-off names would be unknown.
    terminal.Type("tbr\tadd_t\t\n");
    EXPECT_TRUE(Holds(terminal.ReadTo("func 1031"), "temporary breakpoint 1 at line 26"));
    terminal.ReadTo(s_strPrompt);
    EXPECT_TRUE(Holds(terminal.Do("run"), "=>   26"));
    terminal.Type("info reg\t\n");
    terminal.ReadTo("work-item 0");
    terminal.ReadTo(s_strPrompt);
    terminal.Type("set lis\t3\n");
    terminal.ReadTo(s_strPrompt);
    EXPECT_TRUE(Holds(terminal.Do("show listsize"), "listsize     3"));
    // Several choices are listed, and the line stays.
    terminal.Type("reverse-\t");
    const std::string strChoices = terminal.ReadTo("reverse-continue");
    EXPECT_TRUE(Holds(strChoices, "reverse-step"));
    terminal.Type("s\t\n");
    terminal.ReadTo("=>   21");
}

TEST_F(Prompt, KeepsItsHistory)
{
    {
        CTerminal terminal(m_strNestedIf, m_strHistory);
        terminal.ReadTo(s_strPrompt);
        terminal.Do("info kernel");
        terminal.Do("show limit");
        terminal.Type("\x10\x10\n"); // two lines up
        EXPECT_TRUE(Holds(terminal.ReadTo("entry at line 11"), "info kernel"));
        terminal.ReadTo(s_strPrompt);
        terminal.Type("quit\n");
        EXPECT_EQ(terminal.WaitForEnd(), 0);
    }
    CTerminal terminal(m_strNestedIf, m_strHistory);
    terminal.ReadTo(s_strPrompt);
    terminal.Type("\x10\x10\n"); // quit, and the line before it
    EXPECT_TRUE(Holds(terminal.ReadTo("entry at line 11"), "info kernel"));
}

/// Enough work-items that kernels run for a while.
#ifdef __SANITIZE_THREAD__
constexpr int s_nLongItems = 256;
#else
constexpr int s_nLongItems = 16384;
#endif

TEST_F(ThreadsPrompt, IsInterruptedAndShowsProgress)
{
    // Seconds of stops at a breakpoint whose condition is never true.
    const std::string strFolder = testing::TempDir() + "kestrel_loop_" + std::to_string(getpid());
    std::filesystem::create_directories(strFolder);
    std::filesystem::copy_file(s_strExamples + "loop_trip_count/loop_trip_count.il", strFolder + "/loop_trip_count.il",
                               std::filesystem::copy_options::overwrite_existing);
    std::ofstream(strFolder + "/long.json")
        << R"({"program": "loop_trip_count.il", "kernel": "loop_trip_count", "local": [256], "global": [)"
        << s_nLongItems << R"(], "args": [{"buffer": {"type": "int", "count": )" << s_nLongItems
        << R"(, "fill": "zero"}}]})";
    {
        CTerminal terminal(strFolder + "/long.json", "");
        terminal.ReadTo(s_strPrompt);
        terminal.Do("break 19 if any r3.x == -1");
        terminal.Type("run\n");
        terminal.ReadTo("kernel run ");
        terminal.Interrupt();
        // On a slow machine the current kernel run takes too long, and is aborted.
        const std::string strInterrupted = terminal.ReadTo(s_strPrompt);
        EXPECT_TRUE(Holds(strInterrupted, "interrupted"));
        if (Holds(strInterrupted, "broken off"))
        {
            terminal.Do("delete");
            terminal.Do("start");
        }
        // It can continue from there.
        EXPECT_TRUE(Holds(terminal.Do("step"), "=>"));
        EXPECT_TRUE(Holds(terminal.Do("reverse-step"), "=>"));
        terminal.Do("delete");
        terminal.Type("step 100000\n");
        EXPECT_TRUE(Holds(terminal.ReadTo(" of 100000"), "stop "));
        terminal.Interrupt();
        EXPECT_TRUE(Holds(terminal.ReadTo(s_strPrompt), "interrupted"));
        // At the prompt, an interrupt only clears the line.
        terminal.Type("nonsense \x03show limit\n");
        terminal.ReadTo("ranges and changes");
        terminal.Type("quit\n");
        EXPECT_EQ(terminal.WaitForEnd(), 0);
    }
    std::filesystem::remove_all(strFolder);
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
const std::string s_strManyPasses = "4000000"; // takes as long there as many more passes do elsewhere
#else
const std::string s_strManyPasses = "50000000";
#endif

/// A kernel that never ends, without a limit of instructions: whatever a test does, the kernel runs until it is
/// aborted.
class ThreadsEndless : public Prompt
{
protected:
    ThreadsEndless() : m_strFolder(testing::TempDir() + "kestrel_endless_" + std::to_string(getpid()))
    {
        std::filesystem::create_directories(m_strFolder);
        WriteKernel("spin", "0", "");
        // Long enough to be interrupted.
        WriteKernel("long", s_strManyPasses, "ige r4.z, r1.x, l0.w\nbreak_logicalnz r4.z\n");
        setenv("KESTREL_PLATFORM", "limit=0", 1);
    }
    ~ThreadsEndless() override
    {
        unsetenv("KESTREL_PLATFORM");
        std::filesystem::remove_all(m_strFolder);
    }

    /// \param strInLoop  instructions
    void WriteKernel(const std::string& strName, const std::string& strLiteral, const std::string& strInLoop)
    {
        std::ofstream(m_strFolder + "/" + strName + ".il") << R"(;ARGSTART:__OpenCL_spin_kernel
;version:3:1:104
;device:quench
;uniqueid:1024
;memory:64bitABI
;pointer:out:i32:1:1:0:uav:10:4:RW:0:0
;function:1:1030
;ARGEND:__OpenCL_spin_kernel
il_cs_2_0
dcl_cb cb0[10]
dcl_cb cb1[1]
dcl_literal l0, 2, 1, 0, )" << strLiteral << R"(
;$$$$$$$$$$
endmain
func 1024
;__OpenCL_spin_kernel
dcl_max_thread_per_group 256
dcl_typeless_uav_id(10)_stride(4)_length(4)
mov r1.x, l0.z
mov r4.x, l0.z
mov r4.y, l0.y
whileloop
)" << strInLoop << R"(iadd r1.x, r1.x, l0.y
endloop
iadd r3.x, r1.x, l0.y
uav_raw_store_id(10)_addr64 mem0.x, cb1[0].xy, r3.x
ret
endfunc
end
)";
        std::ofstream(m_strFolder + "/" + strName + ".json")
            << R"({"program": ")" << strName << R"(.il", "kernel": "spin", "global": [1], "local": [1],
                   "args": [{"buffer": {"type": "int", "count": 1, "fill": "zero"}}]})";
    }

    const std::string m_strFolder;
};

TEST_F(ThreadsEndless, RunsAreBrokenOffAndTheSessionIsBackWhereItWas)
{
    CTerminal terminal(m_strFolder + "/spin.json", "");
    terminal.ReadTo(s_strPrompt);
    // On a slow machine, progress is also shown on the way to the first stop.
    const auto interrupt = [&](const char* pszCommand, const char* pszBefore = "")
    {
        terminal.Type(std::string(pszCommand) + "\n");
        terminal.ReadTo(pszBefore);
        terminal.ReadTo("kernel run ");
        terminal.Interrupt();
        return terminal.ReadTo(s_strPrompt);
    };
    // Nothing had been executed yet, so the session is back at the start.
    const std::string strAtStart = interrupt("run", "kernel spin on Quench");
    for (const char* pszText : {"1 work-item at line 15, pass ", "interrupted, 1 of 1 active", "=>   10",
                                "a kernel run was broken off, and the session is back where it was"})
    {
        EXPECT_TRUE(Holds(strAtStart, pszText)) << pszText << " isn't in " << strAtStart;
    }
    EXPECT_TRUE(Holds(terminal.Do("step"), "=>   11"));
    terminal.Do("step");
    EXPECT_TRUE(Holds(interrupt("continue"), "=>   12"));
    EXPECT_TRUE(Holds(terminal.Do("print r4.x"), "r4.x = 0"));
    EXPECT_TRUE(Holds(terminal.Do("reverse-step"), "=>   11"));
    terminal.Do("step 4");
    // On the way to a breakpoint that is never reached, across heads of the endless loop.
    terminal.Do("break 17");
    EXPECT_TRUE(Holds(interrupt("continue"), "interrupted"));
    terminal.Do("delete");
    // Without anybody at the keyboard.
    terminal.Do("set max-seconds 1");
    const std::string strTooLong = terminal.Do("continue");
    EXPECT_TRUE(Holds(strTooLong, "took longer than max-seconds (1)")) << strTooLong;
    EXPECT_TRUE(Holds(terminal.Do("step"), "=>")) << "and the session goes on";
    terminal.Type("quit\n");
    EXPECT_EQ(terminal.WaitForEnd(), 0) << "at a stop of a kernel that doesn't end";
}

TEST_F(ThreadsEndless, WhatIsAskedAtAStopIsBrokenOffToo)
{
    CTerminal terminal(m_strFolder + "/long.json", "");
    terminal.ReadTo(s_strPrompt);
    terminal.Do("break 19");
    EXPECT_TRUE(Holds(terminal.Do("run"), "breakpoint 1, 1 of 1 active"));
    terminal.Type("print r1.x\n");
    terminal.ReadTo("kernel run ");
    terminal.Interrupt();
    const std::string strBroken = terminal.ReadTo(s_strPrompt);
    EXPECT_TRUE(Holds(strBroken, "1 work-item at line ")) << strBroken;
    EXPECT_TRUE(Holds(strBroken, "a kernel run was broken off, and the session is back where it was")) << strBroken;
    EXPECT_TRUE(Holds(terminal.Do("print r1.x"), "r1.x = " + s_strManyPasses)) << "it can be asked for again";
    terminal.Type("quit\n");
    EXPECT_EQ(terminal.WaitForEnd(), 0);
}

TEST_F(ThreadsEndless, AnInterruptEndsCommandListsAndCounts)
{
    CTerminal terminal(m_strFolder + "/spin.json", "");
    terminal.ReadTo(s_strPrompt);
    terminal.Do("break 11");
    // Commands that continue, stop, and continue again forever.
    terminal.Type("commands 1\nstep\nrun\nend\n");
    for (const char* pszCommand : {"run", "run"})
    {
        terminal.Type(std::string(pszCommand) + "\n");
        terminal.ReadTo("=>   11");
        terminal.Interrupt();
        terminal.ReadTo("interrupted");
        terminal.ReadTo(s_strPrompt);
        EXPECT_TRUE(Holds(terminal.Do("info breakpoints"), "  11 ")) << "the prompt is back";
    }
    terminal.Do("delete");
    terminal.Do("break 14");
    terminal.Do("run");
    terminal.Type("continue 1000000\n");
    terminal.ReadTo(" of 1000000");
    terminal.Interrupt();
    terminal.ReadTo(s_strPrompt);
    EXPECT_TRUE(Holds(terminal.Do("info breakpoints"), "  14 ")) << "the prompt is back";
    terminal.Type("quit\n");
    EXPECT_EQ(terminal.WaitForEnd(), 0);
}

/// Whenever a signal comes, the program continues or ends in an orderly way; only signals meant to end it do.
TEST_F(ThreadsPrompt, SignalsAtAnyMomentEndNothingElse)
{
    struct SSignal
    {
        int nSignal;
        bool bEnds;
    };
    const int nMoments = 12;
    for (const SSignal& test : {SSignal{SIGINT, true}, SSignal{SIGTERM, true}, SSignal{SIGHUP, true},
                                SSignal{SIGPIPE, true}, SSignal{SIGWINCH, false}, SSignal{SIGCONT, false}})
    {
        for (int nMoment = 0; nMoment < nMoments; ++nMoment)
        {
            CTerminal terminal(m_strNestedIf, m_strHistory);
            terminal.Type("break 21\nrun\nstep 5\nreverse-step\ncontinue\nrun\ninfo registers\ncontinue\n");
            usleep(static_cast<useconds_t>(nMoment * nMoment * 300));
            terminal.Signal(test.nSignal);
            KestrelTest::CountAttack("signals at moments of a session");
            const int nCode = terminal.EndWithFileMark();
            const bool bBySignal = test.bEnds && terminal.GetEndingSignal() == test.nSignal;
            EXPECT_TRUE((nCode >= 0 && nCode <= 5) || bBySignal)
                << strsignal(test.nSignal) << ", moment " << nMoment << ": " << nCode << ", ended by signal "
                << terminal.GetEndingSignal();
        }
    }
}

/// The output of a session into a pipe that isn't read at first.
/// \param bInterrupt  whether it is interrupted while it waits there
std::string PrintIntoFullPipe(const std::string& strLaunch, bool bInterrupt)
{
    int input[2];
    int output[2];
    EXPECT_EQ(pipe2(input, O_CLOEXEC) | pipe2(output, O_CLOEXEC), 0);
    const int nRoom = fcntl(output[1], F_SETPIPE_SZ, 4096);
    const pid_t nChild = fork();
    if (nChild == 0)
    {
        dup2(input[0], STDIN_FILENO);
        dup2(output[1], STDOUT_FILENO);
        setenv("KESTREL_HISTORY", "", 1);
        execl(s_strKestrel.c_str(), "kestrel", "debug", "-q", strLaunch.c_str(), nullptr);
        _exit(127);
    }
    close(output[1]);
    const std::string strCommands = "help\nhelp\nhelp\nhelp\nquit\n";
    EXPECT_EQ(write(input[1], strCommands.data(), strCommands.size()), static_cast<ssize_t>(strCommands.size()));
    int nWaiting = 0;
    for (int nTries = 0; nTries < 1000 && nWaiting < nRoom; ++nTries)
    {
        usleep(10000);
        ioctl(output[0], FIONREAD, &nWaiting);
    }
    usleep(50000); // until it is about to write the next piece
    kill(nChild, bInterrupt ? SIGINT : 0);
    usleep(50000);
    std::string strText;
    char piece[4096];
    for (ssize_t nRead = 0; (nRead = read(output[0], piece, sizeof(piece))) > 0;)
    {
        strText.append(piece, static_cast<size_t>(nRead));
    }
    int nStatus = 0;
    waitpid(nChild, &nStatus, 0);
    EXPECT_TRUE(WIFEXITED(nStatus) && WEXITSTATUS(nStatus) == 0) << nStatus;
    for (const int nFile : {input[0], input[1], output[0]})
    {
        close(nFile);
    }
    return strText;
}

TEST_F(Prompt, LosesNothingThatAnInterruptMeetsOnItsWay)
{
    const std::string strWhole = PrintIntoFullPipe(m_strNestedIf, false);
    EXPECT_GT(strWhole.size(), 10000u);
    EXPECT_EQ(PrintIntoFullPipe(m_strNestedIf, true), strWhole);
}

/// Gives a command as a page does. \return the first line of the server's answer
std::string GiveFromPage(const std::string& strAddress, const std::string& strCommand)
{
    const size_t nHost = strAddress.find("//") + 2;
    const size_t nPath = strAddress.find('/', nHost);
    const std::string strHost = strAddress.substr(nHost, nPath - nHost);
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(std::stoul(strHost.substr(strHost.find(':') + 1))));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int nSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(connect(nSocket, reinterpret_cast<struct sockaddr*>(&address), sizeof address), 0);
    const std::string strRequest = "POST " + strAddress.substr(nPath) + "command HTTP/1.1\r\nHost: " + strHost +
                                   "\r\nConnection: close\r\nContent-Length: " + std::to_string(strCommand.size()) +
                                   "\r\n\r\n" + strCommand;
    EXPECT_EQ(write(nSocket, strRequest.data(), strRequest.size()), static_cast<ssize_t>(strRequest.size()));
    char answer[200];
    const ssize_t nRead = read(nSocket, answer, sizeof answer);
    close(nSocket);
    const std::string strAnswer(answer, nRead > 0 ? static_cast<size_t>(nRead) : 0);
    return strAnswer.substr(0, strAnswer.find('\r'));
}

TEST_F(ThreadsPrompt, KeepsALineWhileAPageMovesTheSession)
{
    CTerminal terminal(m_strNestedIf, "");
    terminal.ReadTo(s_strPrompt);
    terminal.Do("start");
    terminal.Do("display 40 + 1");
    std::string strAddress = terminal.Do("view");
    strAddress = strAddress.substr(strAddress.find("http"), strAddress.rfind('/') + 1 - strAddress.find("http"));
    EXPECT_TRUE(Holds(terminal.Do("view"), strAddress)); // one page is enough
    terminal.Type("print 100 +");
    terminal.ReadTo("100 +");
    EXPECT_EQ(GiveFromPage(strAddress, "stepi"), "HTTP/1.1 200 OK");
    terminal.ReadTo("=>   12");
    terminal.ReadTo("= 41"); // what is shown at each stop
    terminal.ReadTo("print 100 +");
    terminal.Type(" 11\n");
    terminal.ReadTo("= 111");
    terminal.ReadTo(s_strPrompt);
    EXPECT_TRUE(Holds(terminal.Do("step"), "=>   13"));
    terminal.Do("view off");
    EXPECT_TRUE(Holds(terminal.Do("view off"), "no page is served"));
    EXPECT_EQ(terminal.EndWithFileMark(), 0);
}

TEST_F(Prompt, KeepsNoHistoryInWhatIsNoFile)
{
    for (const char* pszHistory : {"/dev/zero", "/tmp"})
    {
        CTerminal terminal(m_strNestedIf, pszHistory);
        EXPECT_TRUE(Holds(terminal.ReadTo(s_strPrompt), "no history is kept"));
        terminal.Type("quit\n");
        EXPECT_EQ(terminal.WaitForEnd(), 0);
    }
}
