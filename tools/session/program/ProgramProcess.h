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

/// A program that can't be started; the text says why.
class CProgramError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// What to start.
struct SProgramCommand
{
    std::vector<std::string> vWords; ///< the program and its arguments
    std::string strLayer;            ///< the layer's library
    bool bNoInput = false;           ///< the standard input is the debugger's
    std::string strVendors;          ///< the OpenCL driver to use, by its path; empty for the machine's own
    std::string strFolder;           ///< where it is started; empty for the debugger's own folder
    std::map<std::string, std::optional<std::string>> mapVariables; ///< of its environment; without a value: not there
    /// Asked now and then while the program is waited for; if so, it is ended. Null for never.
    std::function<bool()> isUnwanted;
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
        int nProcess = 0; ///< which of the program's processes, from 1; known by its connection
        SMessage message;
    };

    /// Lets the program have the terminal and waits until it says something, or ends.
    SEvent Wait();
    /// Answers what a process has said. One that is gone doesn't hear it.
    void Answer(int nProcess, const nlohmann::json& answer);
    /// Ends the program and waits for its end.
    void Kill();

    bool HasEnded() const { return m_bEnded; }
    /// Whether any process of the program's has loaded the layer.
    bool WasHeard() const { return m_nProcesses != 0; }
    /// Its exit code, or 128 and the signal that ended it, as shells have it.
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
    int m_nLife = -1; ///< readable once the program has ended
    std::function<bool()> m_IsUnwanted;
    bool m_bTerminal = false;
    bool m_bProgramHasTerminal = false;
    bool m_bHurry = true; ///< whoever sent the last message waits for an answer
    bool m_bEnded = false;
    int m_nStatus = 0;
    int m_nProcesses = 0;
    std::map<int, int> m_mapConnections; ///< sockets by process
};

} // namespace KestrelTool

#endif
