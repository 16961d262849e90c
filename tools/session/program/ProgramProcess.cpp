#include "tools/session/program/ProgramProcess.h"

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <utility>

extern char** environ;

namespace KestrelTool
{

namespace
{

const useconds_t s_nGather = 1000; ///< microseconds

/// A descriptor that is closed by its owner's destructor.
class COwnedDescriptor
{
public:
    explicit COwnedDescriptor(int nFile) : m_nFile(nFile) {}
    ~COwnedDescriptor()
    {
        if (m_nFile >= 0)
        {
            close(m_nFile);
        }
    }
    COwnedDescriptor(const COwnedDescriptor&) = delete;
    COwnedDescriptor& operator=(const COwnedDescriptor&) = delete;
    int Get() const { return m_nFile; }
    int Release() { return std::exchange(m_nFile, -1); }

private:
    int m_nFile;
};

/// The program's environment, in the form that the system expects.
class CEnvironment
{
public:
    CEnvironment()
    {
        for (char** ppEntry = environ; *ppEntry != nullptr; ++ppEntry)
        {
            const std::string strEntry = *ppEntry;
            m_mapEntries[strEntry.substr(0, strEntry.find('='))] = strEntry;
        }
    }
    void Set(const std::string& strName, const std::string& strValue)
    {
        m_mapEntries[strName] = strName + "=" + strValue;
    }
    /// Sets a variable unless the user has.
    void SetDefault(const std::string& strName, const std::string& strValue)
    {
        m_mapEntries.emplace(strName, strName + "=" + strValue);
    }
    void Remove(const std::string& strName) { m_mapEntries.erase(strName); }
    std::vector<char*> Get()
    {
        std::vector<char*> vPointers;
        for (auto& entry : m_mapEntries)
        {
            vPointers.push_back(&entry.second[0]);
        }
        vPointers.push_back(nullptr);
        return vPointers;
    }

private:
    std::map<std::string, std::string> m_mapEntries;
};

CEnvironment MakeEnvironment(const SProgramCommand& command, int nDoor)
{
    CEnvironment environment;
    // A program that builds from its cache of binaries passes no source that could be shown.
    environment.SetDefault("PYOPENCL_NO_CACHE", "1");
    for (const auto& variable : command.mapVariables)
    {
        if (variable.second)
        {
            environment.Set(variable.first, *variable.second);
        }
        else
        {
            environment.Remove(variable.first);
        }
    }
    struct stat status = {};
    fstat(nDoor, &status);
    environment.Set(g_pszDoorVariable, std::to_string(nDoor) + ":" + std::to_string(status.st_ino));
    // Keeps the user's own layers.
    const char* const pszLayers = std::getenv("OPENCL_LAYERS");
    const std::string strOthers = pszLayers != nullptr ? pszLayers : "";
    environment.Set("OPENCL_LAYERS", strOthers + (strOthers.empty() ? "" : ":") + command.strLayer);
    if (!command.strVendors.empty())
    {
        environment.Set("OCL_ICD_VENDORS", command.strVendors);
        environment.Remove("OCL_ICD_FILENAMES");
    }
    return environment;
}

/// Runs in the new process, on its only thread: undoes what was set for the debugger.
[[noreturn]] void Execute(char* const* ppWords, char* const* ppEnvironment, const SProgramCommand& command,
                          bool bTerminal, pid_t nParent, int nReport)
{
    if (bTerminal)
    {
        setpgid(0, 0);
    }
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (command.bNoInput)
    {
        const int nNull = open("/dev/null", O_RDONLY);
        dup2(nNull, STDIN_FILENO);
        close(nNull);
    }
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    for (const int nSignal : {SIGINT, SIGPIPE, SIGXFSZ, SIGTTOU})
    {
        sigaction(nSignal, &action, nullptr);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    if (getppid() == nParent && (command.strFolder.empty() || chdir(command.strFolder.c_str()) == 0))
    {
        execvpe(ppWords[0], ppWords, ppEnvironment);
    }
    const int nError = errno;
    const ssize_t nWritten = write(nReport, &nError, sizeof(nError));
    _exit(nWritten > 0 ? 127 : 126);
}

} // namespace

CProgramProcess::CProgramProcess(const SProgramCommand& command)
    : m_IsUnwanted(command.isUnwanted), m_IsToPause(command.isToPause), m_bTerminal(isatty(STDIN_FILENO) != 0)
{
    try
    {
        Start(command);
    }
    catch (...)
    {
        Kill();
        throw;
    }
}

CProgramProcess::~CProgramProcess()
{
    Kill();
}

void CProgramProcess::Start(const SProgramCommand& command)
{
    int door[2] = {-1, -1};
    int report[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, door) != 0 || pipe2(report, O_CLOEXEC) != 0)
    {
        throw CProgramError(std::string("there is no socket for the program: ") + std::strerror(errno));
    }
    m_nDoor = door[0];
    const COwnedDescriptor theirs(door[1]);
    const COwnedDescriptor reportIn(report[0]);
    COwnedDescriptor reportOut(report[1]);
    fcntl(theirs.Get(), F_SETFD, 0); // inherited by everything that the program executes
    std::vector<std::string> vWords = command.vWords;
    std::vector<char*> vPointers;
    for (std::string& strWord : vWords)
    {
        vPointers.push_back(&strWord[0]);
    }
    vPointers.push_back(nullptr);
    CEnvironment environment = MakeEnvironment(command, theirs.Get());
    const std::vector<char*> vEnvironment = environment.Get();
    const pid_t nParent = getpid();
    m_nPid = fork();
    if (m_nPid == 0)
    {
        Execute(vPointers.data(), vEnvironment.data(), command, m_bTerminal, nParent, reportOut.Get());
    }
    if (m_nPid < 0)
    {
        throw CProgramError(std::string("the program can't be started: ") + std::strerror(errno));
    }
    if (m_bTerminal)
    {
        setpgid(m_nPid, m_nPid);
    }
    m_nLife = static_cast<int>(syscall(SYS_pidfd_open, m_nPid, 0));
    if (m_nLife < 0)
    {
        throw CProgramError(std::string("the program can't be watched: ") + std::strerror(errno));
    }
    close(reportOut.Release());
    int nError = 0;
    if (read(reportIn.Get(), &nError, sizeof(nError)) == sizeof(nError))
    {
        throw CProgramError(command.vWords.front() + " can't be started: " + std::strerror(nError));
    }
}

void CProgramProcess::GiveTerminal(bool bToProgram)
{
    if (!m_bTerminal || std::exchange(m_bProgramHasTerminal, bToProgram) == bToProgram)
    {
        return;
    }
    // A background process may only call this with the signal blocked.
    sigset_t blocked;
    sigset_t old;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTTOU);
    pthread_sigmask(SIG_BLOCK, &blocked, &old);
    tcsetpgrp(STDIN_FILENO, bToProgram ? m_nPid : getpgrp());
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
}

CProgramProcess::SEvent CProgramProcess::Wait()
{
    SEvent event;
    GiveTerminal(true);
    // With many launches, reports may accumulate for a while, so that the program isn't slowed down by each.
    if (!m_bHurry && !WaitForInput(0))
    {
        usleep(s_nGather);
    }
    while (!m_bEnded)
    {
        // The program's messages come before its end.
        const bool bAny = WaitForInput(200);
        if (m_IsUnwanted && m_IsUnwanted())
        {
            Kill();
            break;
        }
        if (m_IsToPause && m_IsToPause())
        {
            event.bToPause = true;
            return event;
        }
        siginfo_t info = {};
        if (!bAny && waitid(P_PID, static_cast<id_t>(m_nPid), &info, WSTOPPED | WNOHANG) == 0 && info.si_pid == m_nPid)
        {
            kill(m_nPid, SIGCONT); // nobody else could continue it
        }
        if (TakeMessage(event))
        {
            // Reports are processed while the program continues.
            m_bHurry = NeedsAnswer(event.message);
            if (m_bHurry)
            {
                GiveTerminal(false);
            }
            return event;
        }
        pollfd life = {m_nLife, POLLIN, 0};
        if (poll(&life, 1, 0) == 1 && !TakeMessage(event))
        {
            Reap();
        }
        else if (event.nProcess != 0)
        {
            GiveTerminal(false);
            return event;
        }
    }
    GiveTerminal(false);
    event.bEnded = true;
    return event;
}

/// \return whether there is something to read, or the program has ended
bool CProgramProcess::WaitForInput(int nMilliseconds)
{
    std::vector<pollfd> vPolled = {{m_nDoor, POLLIN, 0}, {m_nLife, POLLIN, 0}};
    for (const auto& connection : m_mapConnections)
    {
        vPolled.push_back({connection.second, POLLIN, 0});
    }
    return poll(vPolled.data(), vPolled.size(), nMilliseconds) > 0;
}

void CProgramProcess::TakeConnections()
{
    pollfd door = {m_nDoor, POLLIN, 0};
    while (poll(&door, 1, 0) == 1 && (door.revents & POLLIN) != 0)
    {
        const int nSocket = ReceiveDescriptor(m_nDoor);
        if (nSocket < 0)
        {
            return;
        }
        m_mapConnections[++m_nProcesses] = nSocket;
    }
}

/// \return whether a process has sent a message
bool CProgramProcess::TakeMessage(SEvent& event)
{
    TakeConnections();
    const std::map<int, int> mapConnections = m_mapConnections;
    for (const auto& connection : mapConnections)
    {
        pollfd polled = {connection.second, POLLIN, 0};
        if (poll(&polled, 1, 0) != 1)
        {
            continue;
        }
        try
        {
            std::optional<SMessage> message = ReceiveMessage(connection.second);
            if (message)
            {
                event.nProcess = connection.first;
                event.message = std::move(*message);
                return true;
            }
        }
        catch (const CProtocolError&)
        {
            // It is disconnected; the program continues.
            Drop(connection.first);
            continue;
        }
        Drop(connection.first);
    }
    return false;
}

void CProgramProcess::Drop(int nProcess)
{
    close(m_mapConnections[nProcess]);
    m_mapConnections.erase(nProcess);
}

void CProgramProcess::Answer(int nProcess, const nlohmann::json& answer)
{
    const auto it = m_mapConnections.find(nProcess);
    if (it != m_mapConnections.end() && !SendMessage(it->second, answer))
    {
        Drop(nProcess);
    }
}

void CProgramProcess::Tell(const nlohmann::json& message)
{
    const std::map<int, int> mapConnections = m_mapConnections;
    for (const auto& connection : mapConnections)
    {
        Answer(connection.first, message);
    }
}

void CProgramProcess::Reap()
{
    int nStatus = 0;
    pid_t nReaped = 0;
    do
    {
        nReaped = waitpid(m_nPid, &nStatus, 0);
    } while (nReaped < 0 && errno == EINTR);
    m_nStatus = nStatus;
    m_bEnded = true;
}

void CProgramProcess::Kill()
{
    if (m_nPid > 0 && !m_bEnded)
    {
        kill(m_nPid, SIGKILL);
        Reap();
    }
    for (const auto& connection : m_mapConnections)
    {
        close(connection.second);
    }
    m_mapConnections.clear();
    for (int* pFile : {&m_nDoor, &m_nLife})
    {
        if (*pFile >= 0)
        {
            close(std::exchange(*pFile, -1));
        }
    }
}

int CProgramProcess::GetExitCode() const
{
    return WIFSIGNALED(m_nStatus) ? 128 + WTERMSIG(m_nStatus) : WEXITSTATUS(m_nStatus);
}

int CProgramProcess::GetSignal() const
{
    return WIFSIGNALED(m_nStatus) ? WTERMSIG(m_nStatus) : 0;
}

} // namespace KestrelTool
