#ifndef KESTREL_TOOLS_PROGRAM_DEBUGGEE_H
#define KESTREL_TOOLS_PROGRAM_DEBUGGEE_H

#include "tools/session/Console.h"
#include "tools/session/program/ProgramSession.h"

namespace KestrelTool
{

/// What a front end works with.
struct SDebuggeeSetup
{
    const CLibraries& libraries;
    std::string strLayer; ///< for programs under the debugger, as SProgramCommand has them
    std::string strVendors;
    ConsoleMaker makeConsole;
};

/// What is to be debugged: a launch file, or a program.
struct SDebuggeeOptions
{
    std::string strLaunch; ///< path of a launch file; empty for a program
    SProgramCommand command;
    bool bStopOnEntry = false;
    bool bNoDebug = false; ///< without stops
};

/// What is debugged: the launch of a launch file, or one after another those of a program.
class CDebuggee
{
public:
    /// \param watcher  called with the debugger that is at work, or null
    /// \throws CLaunchFileError, CPlatformError
    CDebuggee(const SDebuggeeSetup& setup, SDebuggeeOptions options, IEventSink& sink,
              std::function<void(CDebugger*)> watcher);
    ~CDebuggee();

    /// The debugger of the launch that waits; null for none.
    CDebugger* Find() { return m_pProgram != nullptr ? m_pProgram->GetDebugger() : m_pLaunch.get(); }
    /// The same, stopped somewhere. \throws CCommandError if it isn't
    CDebugger& RequireStop();
    /// Null for a launch file.
    CProgramSession* GetProgram() { return m_pProgram.get(); }
    IConsole& GetConsole() { return *m_pConsole; }
    CBreakpoints& GetBreakpoints() { return m_pProgram ? m_pProgram->GetBreakpoints() : m_pLaunch->GetBreakpoints(); }
    const SDebuggeeOptions& GetOptions() const { return m_Options; }

    void Begin();
    void Continue();
    void Kill();
    /// Whether it has begun and come to its end.
    bool IsOver();
    bool HasBegun() const { return m_bBegun; }
    int GetExitCode();

private:
    SDebuggeeOptions m_Options;
    std::function<void(CDebugger*)> m_Watcher;
    std::unique_ptr<CDebugger> m_pLaunch;
    std::unique_ptr<CProgramSession> m_pProgram;
    std::unique_ptr<IConsole> m_pConsole;
    bool m_bBegun = false;
};

} // namespace KestrelTool

#endif
