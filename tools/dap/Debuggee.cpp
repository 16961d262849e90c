#include "tools/dap/Debuggee.h"

#include "tools/dap/Fields.h"
#include "tools/session/ExitCode.h"

#include <filesystem>

namespace KestrelTool
{

namespace
{

std::map<std::string, std::optional<std::string>> ReadVariables(const nlohmann::json& arguments)
{
    std::map<std::string, std::optional<std::string>> mapVariables;
    const nlohmann::json environment = ReadObject(arguments, "env");
    for (const auto& variable : environment.items())
    {
        if (!variable.value().is_string() && !variable.value().is_null())
        {
            throw CRequestError("the environment's variable " + variable.key() + " has to be a text, or null");
        }
        mapVariables[variable.key()] =
            variable.value().is_null() ? std::nullopt : std::optional<std::string>(variable.value());
    }
    return mapVariables;
}

} // namespace

SDebuggeeOptions SDebuggeeOptions::Read(const nlohmann::json& arguments)
{
    SDebuggeeOptions options;
    options.strLaunch = ReadText(arguments, "launchFile", "");
    options.command.strFolder = ReadText(arguments, "cwd", "");
    options.command.mapVariables = ReadVariables(arguments);
    options.bStopOnEntry = ReadFlag(arguments, "stopOnEntry", false);
    options.bNoDebug = ReadFlag(arguments, "noDebug", false);
    const std::string strProgram = ReadText(arguments, "program", "");
    if (options.strLaunch.empty() == strProgram.empty())
    {
        throw CRequestError("a launch needs either launchFile, the path of a launch file, or program");
    }
    if (!options.strLaunch.empty())
    {
        const std::filesystem::path path = options.strLaunch;
        options.strLaunch =
            options.command.strFolder.empty() ? path.string() : (options.command.strFolder / path).string();
        return options;
    }
    options.command.vWords = ReadTexts(arguments, "args");
    options.command.vWords.insert(options.command.vWords.begin(), strProgram);
    options.command.bNoInput = true;
    return options;
}

CDebuggee::CDebuggee(const SAdapterSetup& setup, SDebuggeeOptions options, IEventSink& sink,
                     std::function<void(CDebugger*)> watcher)
    : m_Options(std::move(options)), m_Watcher(std::move(watcher))
{
    if (m_Options.strLaunch.empty())
    {
        m_Options.command.strLayer = setup.strLayer;
        m_Options.command.strVendors = setup.strVendors;
        m_pProgram = std::make_unique<CProgramSession>(setup.libraries, m_Options.command, sink);
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
        m_pLaunch = std::make_unique<CDebugger>(setup.libraries, ReadLaunchFile(m_Options.strLaunch), sink);
        m_pLaunch->SetInterruptible(true);
        m_Watcher(m_pLaunch.get());
    }
    m_pConsole = setup.makeConsole(m_pLaunch.get(), m_pProgram.get());
}

CDebuggee::~CDebuggee()
{
    m_Watcher(nullptr);
    m_pConsole.reset();
}

CDebugger& CDebuggee::RequireStop()
{
    CDebugger* const pDebugger = Find();
    if (pDebugger == nullptr || !pDebugger->IsLive())
    {
        throw CRequestError("no kernel is stopped");
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
    if (m_pProgram != nullptr && m_pProgram->IsRunning())
    {
        m_pProgram->Kill();
    }
    if (m_pLaunch != nullptr)
    {
        m_pLaunch->Kill();
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
