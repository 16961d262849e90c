#ifndef KESTREL_TOOLS_PROGRAM_PROGRAMPROCESS_H
#define KESTREL_TOOLS_PROGRAM_PROGRAMPROCESS_H

#include "tools/session/Protocol.h"

#include <sys/types.h>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace KestrelTool
{

/// A program that can't be started; the text gives the reason.
class CProgramError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// A program to start.
struct SProgramCommand
{
    std::vector<std::string> vWords; ///< the program and its arguments
    std::string strLayer;            ///< the layer's library
    bool bNoInput = false;           ///< standard input belongs to the debugger
    std::string strVendors;          ///< path of the OpenCL driver to use; empty for the machine's own
    std::string strFolder;           ///< working folder; empty for the debugger's own
    std::map<std::string, std::optional<std::string>> mapVariables; ///< to set in its environment, or to remove
    /// Called now and then while waiting for the program; true ends it. May be empty.
    std::function<bool()> isUnwanted;
    /// Called as often; true pauses the program at its next launch. May be empty.
    std::function<bool()> isToPause;
};

/// A program with the layer in it. All its processes that use OpenCL may be heard; the end is that of the one that was
/// started. The program ends when this object or the debugger does. All calls come from the thread that made it.
class CProgramProcess
{
public:
    /// \throws CProgramError
    explicit CProgramProcess(const SProgramCommand& command);
    ~CProgramProcess();
    CProgramProcess(const CProgramProcess&) = delete;
    CProgramProcess& operator=(const CProgramProcess&) = delete;

    struct SEvent
    {
        bool bEnded = false;
        bool bToPause = false; ///< nothing has been sent, but the program is to pause
        int nProcess = 0;      ///< which of the program's processes has sent it, from 1
        SMessage message;
    };

    /// Gives the program the terminal, and waits until it sends something or ends, or is to pause.
    SEvent Wait();
    /// Answers a process's message. Does nothing if the process has ended.
    void Answer(int nProcess, const nlohmann::json& answer);
    /// Sends a message to all of the program's processes.
    void Tell(const nlohmann::json& message);
    /// Ends the program and waits for its end.
    void Kill();

    bool HasEnded() const { return m_bEnded; }
    /// Whether any process of the program has loaded the layer.
    bool WasHeard() const { return m_nProcesses != 0; }
    /// Its exit code; if a signal has ended it, 128 plus the signal's number, as in shells.
    int GetExitCode() const;
    /// The signal that ended it; 0 for none.
    int GetSignal() const;

private:
    void Start(const SProgramCommand& command);
    bool WaitForInput(int nMilliseconds);
    bool TakeMessage(SEvent& event);
    void TakeConnections();
    void Drop(int nProcess);
    void Reap();
    void GiveTerminal(bool bToProgram);

    pid_t m_nPid = -1;
    int m_nDoor = -1;
    int m_nLife = -1; ///< becomes readable when the program has ended
    std::function<bool()> m_IsUnwanted;
    std::function<bool()> m_IsToPause;
    bool m_bTerminal = false;
    bool m_bProgramHasTerminal = false;
    bool m_bHurry = true; ///< the sender of the last message waits for an answer
    bool m_bEnded = false;
    int m_nStatus = 0;
    int m_nProcesses = 0;
    std::map<int, int> m_mapConnections; ///< sockets by process
};

} // namespace KestrelTool

#endif
