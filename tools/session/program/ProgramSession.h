#ifndef KESTREL_TOOLS_PROGRAM_PROGRAMSESSION_H
#define KESTREL_TOOLS_PROGRAM_PROGRAMSESSION_H

#include "tools/session/debug/Debugger.h"
#include "tools/session/program/CapturedLaunch.h"
#include "tools/session/program/ProgramProcess.h"
#include "tools/session/program/ProgramRecord.h"

namespace KestrelTool
{

/// The model of a program under the debugger: it runs, and when a launch contains a breakpoint's place, the launch
/// waits while a replay of it is debugged. Breakpoints and settings persist between launches. It doesn't know how
/// anything is shown or entered. All calls come from one thread.
///
/// Besides a debugger's events it sends "launch" before the first stop of a launch, "passed" for a launch that was
/// selected but can't be debugged (with reason), and "ended" (with code, signal, kernels).
class CProgramSession : public IEventSink
{
public:
    CProgramSession(const CLibraries& libraries, const SProgramCommand& command, IEventSink& sink);
    ~CProgramSession() override;

    /// The debugger of the waiting launch; null if none waits.
    CDebugger* GetDebugger() { return m_pDebugger.get(); }
    SSettings& GetSettings() { return m_Settings; }
    CBreakpoints& GetBreakpoints() { return m_Breakpoints; }
    const CProgramRecord& GetRecord() const { return m_Record; }
    /// Called with a launch's debugger before it is debugged, and with null at the end.
    void SetWatcher(std::function<void(CDebugger*)> watcher) { m_Watcher = std::move(watcher); }

    SBreakpoint& AddBreakpoint(const SLaunchPlace& place, bool bTemporary);

    /// Starts the program, and runs it to the first stop or to its end.
    /// \throws CCommandError if it runs already, or can't be started
    void Run();
    /// Continues in the waiting launch and, after its end, in the program.
    void Continue(size_t nTimes);
    /// Continues the program, without further stops in the waiting launch.
    void FinishLaunch();
    /// Writes the waiting launch, as the program made it. \return path of the launch file
    /// \throws CCommandError if none waits, or it can't be written
    std::string CaptureLaunch(const SCaptureTarget& target);
    /// Writes future launches, and sends an event "captured" (launch, kernel, and file or error) for each.
    void CaptureLaunches(const SLaunchRule& rule, const SCaptureTarget& target);
    /// Ends the program.
    void Kill();
    bool IsRunning() const { return m_pProcess != nullptr; }
    /// Of the last run that ended by itself; 0 if there is none.
    int GetExitCode() const { return m_nExitCode; }

private:
    /// The source of a kernel.
    struct SKernelSource
    {
        std::set<unsigned int> lines; ///< of the program's file
        std::set<std::string> functions;
    };

    void OnEvent(const nlohmann::json& event) override;
    void OnProgress(const std::string& strText) override { m_Sink.OnProgress(strText); }
    bool OnAskToGiveUp(const std::function<bool()>& isOver) override { return m_Sink.OnAskToGiveUp(isOver); }
    void OnLeave() override { m_Sink.OnLeave(); }

    void GoOn();
    void PauseAtNextLaunch();
    bool Handle(const CProgramProcess::SEvent& event);
    bool BeginLaunch(const CProgramProcess::SEvent& event);
    void CaptureWanted(const CProgramProcess::SEvent& event);
    bool DebugLaunch(const CProgramProcess::SEvent& event);
    void LeaveLaunch();
    void Resolve(SBreakpoint& breakpoint);
    std::set<unsigned int> FindPlace(const SLaunchPlace& place);
    void SendEnd();
    std::vector<SLaunchRule> MakeRules();
    std::vector<SLaunchRule> MakeBreakpointRules();
    bool IsToBeDebugged();
    void AddSourceRules(const SLaunchPlace& place, std::vector<SLaunchRule>& vRules);
    void AddFunctionRules(const SLaunchPlace& place, std::vector<SLaunchRule>& vRules);
    const std::map<std::string, SKernelSource>& FindSource(const SKnownProgram& program);
    uint32_t FindId(unsigned int nProgram) const;

    const CLibraries& m_Lib;
    const SProgramCommand m_Command;
    IEventSink& m_Sink;
    std::function<void(CDebugger*)> m_Watcher;
    SSettings m_Settings;
    CBreakpoints m_Breakpoints;
    CProgramRecord m_Record;
    std::unique_ptr<CProgramProcess> m_pProcess;
    std::unique_ptr<CDebugger> m_pDebugger;
    SKnownLaunch m_Launch;   ///< the waiting one
    bool m_bShown = false;   ///< its event was sent
    bool m_bToPause = false; ///< the next launch that can be debugged stops before its first instruction
    std::vector<std::pair<SLaunchRule, SCaptureTarget>> m_vCaptures;
    int m_nExitCode = 0;
    /// By the program's number, and by kernel.
    std::map<unsigned int, std::map<std::string, SKernelSource>> m_mapSources;
};

/// A breakpoint's place in words.
std::string NamePlace(const SLaunchPlace& place);

} // namespace KestrelTool

#endif
