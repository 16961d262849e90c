#ifndef KESTREL_TOOLS_PROGRAM_DEBUGGEE_H
#define KESTREL_TOOLS_PROGRAM_DEBUGGEE_H

#include "tools/session/Console.h"
#include "tools/session/program/ProgramSession.h"

namespace KestrelTool
{

/// What a front end provides.
struct SDebuggeeSetup
{
    const CLibraries& libraries;
    std::string strLayer; ///< for programs under the debugger, as in SProgramCommand
    std::string strVendors;
    ConsoleMaker makeConsole;
};

/// What is to be debugged: a launch file, or a program.
struct SDebuggeeOptions
{
    std::string strLaunch; ///< path of a launch file; empty for a program
    SProgramCommand command;
    bool bStopOnEntry = false;
    bool bNoDebug = false; ///< run without stops
};

/// The launch of a launch file, or the launches of a program in turn, under the debugger.
class CDebuggee
{
public:
    /// \param watcher  called with the current debugger, or null
    /// \throws CLaunchFileError, CPlatformError
    CDebuggee(const SDebuggeeSetup& setup, SDebuggeeOptions options, IEventSink& sink,
              std::function<void(CDebugger*)> watcher);
    /// A session that another front end has, which outlives this. Only one of the two isn't null.
    CDebuggee(const ConsoleMaker& makeConsole, CDebugger* pLaunch, CProgramSession* pProgram);
    ~CDebuggee();

    /// The debugger of the waiting launch; null for none.
    CDebugger* Find() { return m_pProgram != nullptr ? m_pProgram->GetDebugger() : m_pLaunch; }
    /// The same, which must be at a stop. \throws CCommandError if it isn't
    CDebugger& RequireStop();
    /// Null for a launch file.
    CProgramSession* GetProgram() { return m_pProgram; }
    IConsole& GetConsole() { return *m_pConsole; }
    CBreakpoints& GetBreakpoints() { return m_pProgram ? m_pProgram->GetBreakpoints() : m_pLaunch->GetBreakpoints(); }
    const SDebuggeeOptions& GetOptions() const { return m_Options; }

    void Begin();
    void Continue();
    /// Ends the session, unless it is another front end's.
    void Kill();
    /// Whether it was started and has ended.
    bool IsOver();
    bool HasBegun() const { return m_bBegun; }
    int GetExitCode();

private:
    SDebuggeeOptions m_Options;
    std::function<void(CDebugger*)> m_Watcher;
    std::unique_ptr<CDebugger> m_pOwnLaunch;
    std::unique_ptr<CProgramSession> m_pOwnProgram;
    CDebugger* m_pLaunch = nullptr;
    CProgramSession* m_pProgram = nullptr;
    std::unique_ptr<IConsole> m_pConsole;
    bool m_bBegun = false;
};

} // namespace KestrelTool

#endif
