#include "tools/session/program/ProgramSession.h"

#include "tools/session/debug/CommandError.h"
#include "tools/session/program/ProgramFollower.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <utility>

namespace KestrelTool
{

using nlohmann::json;

CProgramSession::CProgramSession(const CLibraries& libraries, const SProgramCommand& command, IEventSink& sink)
    : m_Lib(libraries), m_Command(command), m_Sink(sink), m_Record(ListSourceFolders(command))
{
}

CProgramSession::~CProgramSession() = default;

// ---------------------------------------------------------------------------------------- running

void CProgramSession::Run()
{
    if (m_pProcess != nullptr)
    {
        throw CCommandError("the program runs already");
    }
    m_Record = CProgramRecord(ListSourceFolders(m_Command));
    m_mapSources.clear();
    m_nExitCode = 0;
    m_bToPause = false;
    m_Breakpoints.GetAll().remove_if([](const SBreakpoint& breakpoint)
                                     { return breakpoint.place && breakpoint.place->eKind == SLaunchPlace::Line; });
    m_Sink.OnProgramGoesOn();
    try
    {
        m_pProcess = std::make_unique<CProgramProcess>(m_Command);
    }
    catch (const CProgramError& error)
    {
        throw CCommandError(error.what());
    }
    GoOn();
}

void CProgramSession::Continue(size_t nTimes)
{
    if (m_pDebugger == nullptr)
    {
        throw CCommandError("the program isn't running; run starts it");
    }
    if (m_pDebugger->IsLive())
    {
        m_pDebugger->Continue(nTimes);
        if (m_pDebugger->IsLive())
        {
            return;
        }
    }
    LeaveLaunch();
    GoOn();
}

void CProgramSession::FinishLaunch()
{
    if (m_pDebugger == nullptr)
    {
        throw CCommandError("no launch waits; run starts the program");
    }
    m_pDebugger->Kill();
    LeaveLaunch();
    GoOn();
}

std::string CProgramSession::CaptureLaunch(const SCaptureTarget& target)
{
    if (m_pDebugger == nullptr)
    {
        throw CCommandError("no launch waits; with a kernel or a number those to come are captured");
    }
    SLaunchFile file = m_pDebugger->GetLaunch().GetFile();
    const SKnownProgram& program = m_Record.GetPrograms()[m_Launch.nProgram - 1];
    file.strSource = program.strSource.empty() ? file.strSource : program.strSource;
    try
    {
        return WriteCapturedLaunch(file, m_Launch, program, target);
    }
    catch (const std::runtime_error& error)
    {
        throw CCommandError(error.what());
    }
}

void CProgramSession::CaptureLaunches(const SLaunchRule& rule, const SCaptureTarget& target)
{
    m_vCaptures.emplace_back(rule, target);
}

void CProgramSession::Kill()
{
    if (m_pProcess == nullptr)
    {
        throw CCommandError("the program isn't running");
    }
    if (m_pDebugger != nullptr)
    {
        m_pDebugger->Kill();
        m_pProcess->Kill();
        LeaveLaunch();
    }
    m_pProcess.reset();
}

void CProgramSession::GoOn()
{
    while (true)
    {
        m_Sink.OnProgramGoesOn();
        const CProgramProcess::SEvent event = m_pProcess->Wait();
        if (event.bEnded)
        {
            SendEnd();
            return;
        }
        if (event.bToPause)
        {
            PauseAtNextLaunch();
        }
        else if (Handle(event))
        {
            return;
        }
    }
}

/// Between launches a program has no place that could be shown.
void CProgramSession::PauseAtNextLaunch()
{
    m_bToPause = true;
    json rules = DescribeRules(MakeRules());
    rules["unasked"] = true;
    m_pProcess->Tell(rules);
}

/// \return whether a launch waits and is being debugged
bool CProgramSession::Handle(const CProgramProcess::SEvent& event)
{
    bool bStopped = false;
    try
    {
        if (CProgramRecord::IsStop(event.message))
        {
            bStopped = BeginLaunch(event);
        }
        else
        {
            m_Record.Note(event.nProcess, event.message);
        }
    }
    catch (const CProtocolError& error)
    {
        m_Sink.OnEvent({{"event", "passed"}, {"launch", nullptr}, {"reason", error.what()}});
    }
    if (!bStopped && NeedsAnswer(event.message))
    {
        m_pProcess->Answer(event.nProcess, DescribeRules(MakeRules()));
    }
    return bStopped;
}

bool CProgramSession::BeginLaunch(const CProgramProcess::SEvent& event)
{
    m_Launch = m_Record.AddLaunch(event.nProcess, event.message);
    m_bShown = false;
    std::string strReason = event.message.header.value("error", "");
    try
    {
        if (strReason.empty())
        {
            CaptureWanted(event);
        }
        if (strReason.empty() && IsToBeDebugged() && DebugLaunch(event))
        {
            return true;
        }
    }
    catch (const std::runtime_error& error)
    {
        if (m_pDebugger != nullptr && m_pDebugger->IsLive())
        {
            throw; // its run was aborted, and it is back where it began
        }
        strReason = error.what();
        if (m_Record.GetPrograms()[m_Launch.nProgram - 1].strSource.empty())
        {
            strReason += "; its program was made from a binary";
        }
    }
    if (!strReason.empty())
    {
        m_Sink.OnEvent(
            {{"event", "passed"}, {"launch", m_Launch.nNumber}, {"kernel", m_Launch.strKernel}, {"reason", strReason}});
    }
    if (m_pDebugger != nullptr)
    {
        m_pDebugger->Kill();
        if (m_Watcher)
        {
            m_Watcher(nullptr); // the error may have come after the debugger was announced
        }
        m_pDebugger.reset();
    }
    return false;
}

void CProgramSession::CaptureWanted(const CProgramProcess::SEvent& event)
{
    const SKnownProgram& program = m_Record.GetPrograms()[m_Launch.nProgram - 1];
    for (const auto& capture : m_vCaptures)
    {
        if (Wants(capture.first, m_Launch.strKernel, program.nId, m_Launch.nNumber, m_Launch.nTurn))
        {
            json told = {{"event", "captured"}, {"launch", m_Launch.nNumber}, {"kernel", m_Launch.strKernel}};
            try
            {
                const SLaunchFile file = m_Record.MakeLaunch(event.nProcess, event.message);
                told["file"] = WriteCapturedLaunch(file, m_Launch, program, capture.second);
            }
            catch (const std::runtime_error& error)
            {
                told["error"] = error.what();
            }
            m_Sink.OnEvent(told);
        }
    }
}

/// \return whether the replay has stopped
bool CProgramSession::DebugLaunch(const CProgramProcess::SEvent& event)
{
    SLaunchFile file = m_Record.MakeLaunch(event.nProcess, event.message);
    const SKnownProgram& program = m_Record.GetPrograms()[m_Launch.nProgram - 1];
    file.strSource = program.strSource.empty() ? file.strSource : NameSource(program);
    m_pDebugger = std::make_unique<CDebugger>(m_Lib, std::move(file), *this);
    m_pDebugger->Share(m_Settings, m_Breakpoints);
    for (SBreakpoint& breakpoint : m_Breakpoints.GetAll())
    {
        Resolve(breakpoint);
    }
    if (m_Watcher)
    {
        m_Watcher(m_pDebugger.get());
    }
    m_bToPause ? m_pDebugger->Start() : m_pDebugger->Run();
    if (m_pDebugger->IsLive())
    {
        return true;
    }
    if (m_Watcher)
    {
        m_Watcher(nullptr);
    }
    return false;
}

/// Lets the program continue. Breakpoints on lines stay, for launches of the same kernel; watches are removed, since
/// their accesses aren't known for another launch.
void CProgramSession::LeaveLaunch()
{
    m_Breakpoints.GetAll().remove_if([](const SBreakpoint& breakpoint) { return breakpoint.pWatch != nullptr; });
    for (SBreakpoint& breakpoint : m_Breakpoints.GetAll())
    {
        if (!breakpoint.place)
        {
            SLaunchPlace place;
            place.strKernel = m_Launch.strKernel;
            place.nProgram = m_Launch.nProgram;
            place.lines = breakpoint.lines;
            breakpoint.place = place;
        }
        breakpoint.lines.clear();
    }
    if (m_Watcher)
    {
        m_Watcher(nullptr);
    }
    m_pDebugger.reset();
    m_Sink.OnProgramGoesOn();
    m_pProcess->Answer(m_Launch.nProcess, DescribeRules(MakeRules()));
}

// ---------------------------------------------------------------------------------------- events

/// A launch that passes all its breakpoints isn't reported, unless it has a fault.
void CProgramSession::OnEvent(const json& event)
{
    const std::string strEvent = event["event"];
    const bool bFinished = strEvent == "finished";
    if (strEvent == "started" || (bFinished && !m_bShown && !event.contains("faults") && !event.contains("ended")))
    {
        return;
    }
    if (!m_bShown)
    {
        m_bShown = true;
        m_Sink.OnEvent({{"event", "launch"},
                        {"number", m_Launch.nNumber},
                        {"process", m_Launch.nProcess},
                        {"kernel", m_Launch.strKernel},
                        {"program", m_Record.GetPrograms()[m_Launch.nProgram - 1].strFile},
                        {"device", m_pDebugger->GetLaunch().GetDeviceName()},
                        {"items", m_pDebugger->GetExtent().Count()}});
    }
    json told = event;
    if (bFinished)
    {
        told["launch"] = m_Launch.nNumber;
    }
    if (strEvent == "stopped" && std::exchange(m_bToPause, false))
    {
        told["reason"] = "interrupt";
    }
    m_Sink.OnEvent(told);
}

void CProgramSession::SendEnd()
{
    m_nExitCode = m_pProcess->GetExitCode();
    json kernels = json::array();
    for (const auto& count : m_Record.CountLaunches())
    {
        kernels.push_back({{"kernel", count.first}, {"launches", count.second}});
    }
    const json event = {{"event", "ended"},
                        {"code", m_nExitCode},
                        {"signal", m_pProcess->GetSignal()},
                        {"heard", m_pProcess->WasHeard()},
                        {"kernels", kernels}};
    m_pProcess.reset();
    m_Sink.OnEvent(event);
}

} // namespace KestrelTool
