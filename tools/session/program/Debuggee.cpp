#include "tools/session/program/Debuggee.h"

#include "tools/session/ExitCode.h"
#include "tools/session/debug/CommandError.h"

namespace KestrelTool
{

CDebuggee::CDebuggee(const SDebuggeeSetup& setup, SDebuggeeOptions options, IEventSink& sink,
                     std::function<void(CDebugger*)> watcher)
    : m_Options(std::move(options)), m_Watcher(std::move(watcher))
{
    if (m_Options.strLaunch.empty())
    {
        m_Options.command.strLayer = setup.strLayer;
        m_Options.command.strVendors = setup.strVendors;
        m_pOwnProgram = std::make_unique<CProgramSession>(setup.libraries, m_Options.command, sink);
        m_pProgram = m_pOwnProgram.get();
        m_pProgram->SetWatcher(
            [this](CDebugger* pDebugger)
            {
                if (pDebugger != nullptr)
                {
                    pDebugger->SetInterruptible(true);
                }
                m_Watcher(pDebugger);
            });
    }
    else
    {
        m_pOwnLaunch = std::make_unique<CDebugger>(setup.libraries, ReadLaunchFile(m_Options.strLaunch), sink);
        m_pLaunch = m_pOwnLaunch.get();
        m_pLaunch->SetInterruptible(true);
        m_Watcher(m_pLaunch);
    }
    m_pConsole = setup.makeConsole(m_pLaunch, m_pProgram);
}

CDebuggee::CDebuggee(const ConsoleMaker& makeConsole, CDebugger* pLaunch, CProgramSession* pProgram)
    : m_pLaunch(pLaunch), m_pProgram(pProgram), m_pConsole(makeConsole(pLaunch, pProgram))
{
}

CDebuggee::~CDebuggee()
{
    if (m_Watcher)
    {
        m_Watcher(nullptr);
    }
    m_pConsole.reset();
}

CDebugger& CDebuggee::RequireStop()
{
    CDebugger* const pDebugger = Find();
    if (pDebugger == nullptr || !pDebugger->IsLive())
    {
        throw CCommandError("no kernel is stopped");
    }
    return *pDebugger;
}

void CDebuggee::Begin()
{
    m_bBegun = true;
    for (SBreakpoint& breakpoint : GetBreakpoints().GetAll())
    {
        breakpoint.nHits = 0;
    }
    if (m_pLaunch != nullptr)
    {
        m_Options.bStopOnEntry && !m_Options.bNoDebug ? m_pLaunch->Start() : m_pLaunch->Run();
        return;
    }
    if (m_Options.bStopOnEntry && !m_Options.bNoDebug)
    {
        SLaunchPlace first;
        first.eKind = SLaunchPlace::Launch;
        m_pProgram->AddBreakpoint(first, true);
    }
    m_pProgram->Run();
}

void CDebuggee::Continue()
{
    if (m_pProgram != nullptr)
    {
        m_pProgram->Continue(1);
        return;
    }
    m_pLaunch->Continue(1);
}

void CDebuggee::Kill()
{
    if (m_pOwnProgram != nullptr && m_pOwnProgram->IsRunning())
    {
        m_pOwnProgram->Kill();
    }
    if (m_pOwnLaunch != nullptr)
    {
        m_pOwnLaunch->Kill();
    }
}

bool CDebuggee::IsOver()
{
    return m_bBegun && !(m_pProgram != nullptr ? m_pProgram->IsRunning() : m_pLaunch->IsLive());
}

int CDebuggee::GetExitCode()
{
    if (m_pProgram != nullptr)
    {
        return m_pProgram->GetExitCode();
    }
    if (m_pLaunch->HasPlatformFailed())
    {
        return EXIT_PLATFORM_FAILED;
    }
    if (m_pLaunch->GetFaults().HasAny())
    {
        return EXIT_FAULT;
    }
    return m_pLaunch->HasDifference() ? EXIT_OUTPUT_DIFFERS : EXIT_GOOD;
}

} // namespace KestrelTool
