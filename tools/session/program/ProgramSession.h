#ifndef KESTREL_TOOLS_PROGRAM_PROGRAMSESSION_H
#define KESTREL_TOOLS_PROGRAM_PROGRAMSESSION_H

#include "tools/session/debug/Debugger.h"
#include "tools/session/program/CapturedLaunch.h"
#include "tools/session/program/ProgramProcess.h"
#include "tools/session/program/ProgramRecord.h"

namespace KestrelTool
{

/// The model of a program under the debugger: it runs, and where a launch has a breakpoint's place it waits while a
/// replay of that launch is debugged. Breakpoints and settings stay from launch to launch. It knows nothing of a
/// prompt. All calls come from one thread.
///
/// Besides a debugger's events it sends "launch" in front of the first stop of a launch, "passed" for a launch that was
/// wanted and can't be debugged (with reason), and "ended" (with code, signal, kernels).
class CProgramSession : public IEventSink
{
public:
    CProgramSession(const CLibraries& libraries, const SProgramCommand& command, IEventSink& sink);
    ~CProgramSession() override;

    /// The debugger of the launch that waits; null if none does.
    CDebugger* GetDebugger() { return m_pDebugger.get(); }
    SSettings& GetSettings() { return m_Settings; }
    CBreakpoints& GetBreakpoints() { return m_Breakpoints; }
    const CProgramRecord& GetRecord() const { return m_Record; }
    /// Called with the debugger of a launch that is going to be debugged, and with null at its end.
    void SetWatcher(std::function<void(CDebugger*)> watcher) { m_Watcher = std::move(watcher); }

    SBreakpoint& AddBreakpoint(const SLaunchPlace& place, bool bTemporary);

    /// Starts the program and runs it to the first stop, or to its end.
    /// \throws CCommandError if it runs already, or can't be started
    void Run();
    /// Goes on in the launch that waits, and after its end with the program.
    void Continue(size_t nTimes);
    /// Goes on with the program, without a stop in the launch that waits.
    void FinishLaunch();
    /// Writes the launch that waits, as the program made it. \return path of the launch file
    /// \throws CCommandError if none waits, or it can't be written
    std::string CaptureLaunch(const SCaptureTarget& target);
    /// Writes launches to come, with an event "captured" (launch, kernel, and file or error) for each.
    void CaptureLaunches(const SLaunchRule& rule, const SCaptureTarget& target);
    /// Ends the program.
    void Kill();
    bool IsRunning() const { return m_pProcess != nullptr; }
    /// Of the last run that came to its own end; 0 without one.
    int GetExitCode() const { return m_nExitCode; }

private:
    /// What a kernel is made of.
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
    SKnownLaunch m_Launch; ///< the one that waits
    bool m_bShown = false; ///< it has been told of
    std::vector<std::pair<SLaunchRule, SCaptureTarget>> m_vCaptures;
    int m_nExitCode = 0;
    /// Of each kernel of a program, by the program's number.
    std::map<unsigned int, std::map<std::string, SKernelSource>> m_mapSources;
};

/// A breakpoint's place in words.
std::string NamePlace(const SLaunchPlace& place);

} // namespace KestrelTool

#endif
