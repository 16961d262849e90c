// A conversation's requests in general, and those about the life of a session.

#include "tools/dap/Conversation.h"

#include "tools/dap/Fields.h"
#include "tools/dap/LaunchRequest.h"
#include "tools/session/debug/CommandError.h"

#include <nlohmann/json.hpp>

#include <new>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

const char* const s_szFaults = "faults";

json MakeCapabilities()
{
    json capabilities = json::object();
    for (const char* pszName : {"supportsConfigurationDoneRequest",
                                "supportsFunctionBreakpoints",
                                "supportsConditionalBreakpoints",
                                "supportsHitConditionalBreakpoints",
                                "supportsLogPoints",
                                "supportsEvaluateForHovers",
                                "supportsStepBack",
                                "supportsCompletionsRequest",
                                "supportsRestartRequest",
                                "supportsTerminateRequest",
                                "supportsExceptionInfoRequest",
                                "supportsValueFormattingOptions",
                                "supportsDataBreakpoints",
                                "supportsReadMemoryRequest",
                                "supportsDisassembleRequest",
                                "supportsCancelRequest",
                                "supportsBreakpointLocationsRequest",
                                "supportsClipboardContext",
                                "supportsSteppingGranularity",
                                "supportsInstructionBreakpoints",
                                "supportsLoadedSourcesRequest",
                                "supportsDelayedStackTraceLoading",
                                "supportTerminateDebuggee"})
    {
        capabilities[pszName] = true;
    }
    capabilities["exceptionBreakpointFilters"] = {
        {{"filter", s_szFaults},
         {"label", "Faults"},
         {"description", "Accesses outside memory and missed barriers, as the platform records them"},
         {"default", true}}};
    for (const auto& [pszFilter, pszLabel] : g_FaultFilters)
    {
        capabilities["exceptionBreakpointFilters"].push_back(
            {{"filter", pszFilter},
             {"label", pszLabel},
             {"description", "Stops in front of it; a run of its own finds where that is"},
             {"default", false}});
    }
    capabilities["completionTriggerCharacters"] = {" ", "$"};
    return capabilities;
}

} // namespace

const CConversation::SCommand CConversation::s_Commands[] = {
    {"initialize", Begun, Begun, &CConversation::DoInitialize},
    {"launch", Initialized, Initialized, &CConversation::DoLaunch},
    {"attach", Initialized, Over, &CConversation::DoAttach},
    {"configurationDone", Launched, Launched, &CConversation::DoConfigurationDone},
    {"restart", Running, Running, &CConversation::DoRestart},
    {"terminate", Initialized, Over, &CConversation::DoTerminate},
    {"disconnect", Begun, Over, &CConversation::DoDisconnect},
    {"continue", Running, Running, &CConversation::DoContinue},
    {"next", Running, Running, &CConversation::DoNext},
    {"stepIn", Running, Running, &CConversation::DoStepIn},
    {"stepOut", Running, Running, &CConversation::DoStepOut},
    {"stepBack", Running, Running, &CConversation::DoStepBack},
    {"reverseContinue", Running, Running, &CConversation::DoReverseContinue},
    {"setBreakpoints", Initialized, Running, &CConversation::DoSetBreakpoints},
    {"setFunctionBreakpoints", Initialized, Running, &CConversation::DoSetFunctionBreakpoints},
    {"setInstructionBreakpoints", Initialized, Running, &CConversation::DoSetInstructionBreakpoints},
    {"setExceptionBreakpoints", Initialized, Running, &CConversation::DoSetExceptionBreakpoints},
    {"breakpointLocations", Initialized, Running, &CConversation::DoBreakpointLocations},
    {"dataBreakpointInfo", Running, Running, &CConversation::DoDataBreakpointInfo},
    {"setDataBreakpoints", Initialized, Running, &CConversation::DoSetDataBreakpoints},
    {"threads", Initialized, Over, &CConversation::DoThreads},
    {"stackTrace", Running, Running, &CConversation::DoStackTrace},
    {"scopes", Running, Running, &CConversation::DoScopes},
    {"variables", Running, Running, &CConversation::DoVariables},
    {"evaluate", Running, Running, &CConversation::DoEvaluate},
    {"completions", Launched, Running, &CConversation::DoCompletions},
    {"source", Initialized, Over, &CConversation::DoSource},
    {"loadedSources", Initialized, Over, &CConversation::DoLoadedSources},
    {"disassemble", Running, Running, &CConversation::DoDisassemble},
    {"readMemory", Running, Running, &CConversation::DoReadMemory},
    {"exceptionInfo", Running, Running, &CConversation::DoExceptionInfo},
    {"kestrel/grid", Running, Running, &CConversation::DoGrid},
    {"kestrel/mask", Running, Running, &CConversation::DoMask},
    {"kestrel/focus", Running, Running, &CConversation::DoFocus},
};

CConversation::CConversation(const SDebuggeeSetup& setup, CChannel& channel, COutputCapture& capture)
    : m_Setup(setup), m_Channel(channel), m_Capture(capture), m_Requests(channel),
      m_Breakpoints(channel, m_Sources, m_Client)
{
}

CConversation::~CConversation()
{
    m_Breakpoints.SetDebuggee(nullptr);
}

void CConversation::Run()
{
    m_Requests.Start();
    while (const std::optional<SRequest> request = m_Requests.Take())
    {
        Handle(*request);
        if (request->strCommand == "disconnect")
        {
            break;
        }
    }
    m_Breakpoints.SetDebuggee(nullptr);
    if (m_pDebuggee != nullptr)
    {
        m_pDebuggee->Kill();
        m_pDebuggee.reset();
    }
}

const CConversation::SCommand* CConversation::FindCommand(const std::string& strName)
{
    for (const SCommand& command : s_Commands)
    {
        if (strName == command.pszName)
        {
            return &command;
        }
    }
    return nullptr;
}

json CConversation::Perform(const SCommand& command, const SRequest& request)
{
    static const char* const s_NotYet[] = {"", "initialize comes first", "launch comes first",
                                           "configurationDone comes first", ""};
    if (m_eStage < command.eFrom)
    {
        throw CRequestError(std::string("it is too early for ") + command.pszName + ": " + s_NotYet[m_eStage + 1]);
    }
    if (m_eStage > command.eTo)
    {
        throw CRequestError(std::string("it is too late for ") + command.pszName +
                            (m_eStage == Over ? ": the session is over" : ": it has been done"));
    }
    return (this->*command.pFunction)(request.arguments);
}

void CConversation::Handle(const SRequest& request)
{
    m_After = nullptr;
    std::string strWhy;
    try
    {
        const SCommand* const pCommand = FindCommand(request.strCommand);
        if (pCommand == nullptr)
        {
            throw CRequestError("there is no request " + request.strCommand + " here");
        }
        m_Channel.Answer(request, Perform(*pCommand, request));
    }
    catch (const std::bad_alloc&)
    {
        strWhy = "there isn't enough memory for that";
    }
    catch (const std::exception& error)
    {
        strWhy = error.what();
    }
    if (!strWhy.empty())
    {
        m_Channel.Refuse(request, strWhy);
    }
    else if (m_After)
    {
        GoOn();
    }
    Settle();
}

/// Does what a request has set going. It has been answered: what goes wrong is told as output.
void CConversation::GoOn()
{
    try
    {
        m_After();
    }
    catch (const std::bad_alloc&)
    {
        m_Channel.Print("stderr", "there isn't enough memory for that\n");
    }
    catch (const std::exception& error)
    {
        m_Channel.Print("stderr", std::string(error.what()) + "\n");
        // A client that waits for a stop has to see where it is.
        if (!m_Stop && m_eStage == Running && !m_LastStop.is_null())
        {
            m_Stop = m_LastStop;
            (*m_Stop)["reason"] = "error";
        }
    }
}

/// What breakpoints of the console's want done.
void CConversation::DoBreakpointCommands()
{
    for (CDebugger* pDebugger = m_pDebuggee->Find(); pDebugger != nullptr; pDebugger = m_pDebuggee->Find())
    {
        const std::vector<std::string> vCommands = pDebugger->TakeCommands();
        if (vCommands.empty() || pDebugger->IsInterrupted())
        {
            return;
        }
        for (const std::string& strCommand : vCommands)
        {
            m_Channel.Print("console", m_pDebuggee->GetConsole().Execute(strCommand).strText);
        }
    }
}

/// Tells the client what has become of the session.
void CConversation::Settle()
{
    if (m_pDebuggee == nullptr || m_eStage != Running)
    {
        return;
    }
    DoBreakpointCommands();
    OnProgress(std::string());
    CDebugger* const pDebugger = m_pDebuggee->Find();
    if (m_pDebuggee->IsOver())
    {
        SendEnd();
    }
    else if (m_Stop && pDebugger != nullptr && pDebugger->IsLive())
    {
        SendStop();
    }
    m_Stop.reset();
}

void CConversation::SendStop()
{
    ++m_nStops;
    m_Values.Forget();
    m_Breakpoints.TellChanges();
    m_LastStop = *m_Stop;
    m_Channel.Tell("stopped", DescribeStop(*m_Stop));
}

json CConversation::DescribeStop(const json& event)
{
    static const std::pair<const char*, const char*> s_Reasons[] = {
        {"entry", "entry"}, {"interrupt", "pause"}, {"history", "step"}, {"breakpoint", "breakpoint"},
        {"error", "pause"}, {"until", "goto"},      {"advance", "goto"}};
    json body = {{"reason", "step"}, {"threadId", m_nThread}, {"allThreadsStopped", true}};
    for (const auto& reason : s_Reasons)
    {
        if (event["reason"] == reason.first)
        {
            body["reason"] = reason.second;
        }
    }
    if (event["reason"] == "breakpoint")
    {
        const std::vector<unsigned int> vIds = event["breakpoints"];
        body["reason"] = m_Breakpoints.NameReason(vIds);
        body["hitBreakpointIds"] = m_Breakpoints.FindIds(vIds);
    }
    if (event["reason"] == "history")
    {
        body["description"] = "Stopped at the beginning: nothing has been executed before";
    }
    if (event.contains("faults") && m_bFaultsStop)
    {
        body["reason"] = "exception";
        body["description"] = "Faults";
        body["text"] = "work-items have done what they shouldn't";
    }
    return body;
}

void CConversation::SendEnd()
{
    m_eStage = Over;
    m_Values.Forget();
    m_Capture.Drain();
    if (m_bThread)
    {
        m_Channel.Tell("thread", {{"reason", "exited"}, {"threadId", m_nThread}});
    }
    m_Channel.Tell("exited", {{"exitCode", m_pDebuggee->GetExitCode()}});
    m_Channel.Tell("terminated", json::object());
}

// ---------------------------------------------------------------------------------------- what the session tells

void CConversation::OnEvent(const json& event)
{
    const std::string strEvent = event["event"];
    if (strEvent == "started" || strEvent == "launch")
    {
        m_nThread = event.value("number", 1);
        m_bThread = true;
        m_Channel.Tell("thread", {{"reason", "started"}, {"threadId", m_nThread}});
    }
    if (strEvent == "stopped")
    {
        m_Stop = event;
        const bool bMore = event.contains("faults") || event.contains("complaints") || event.contains("notes");
        if (!bMore)
        {
            return; // the client shows all there is
        }
    }
    m_Channel.Print(strEvent == "error" ? "stderr" : "console", m_pDebuggee->GetConsole().Render(event));
}

/// Progress is shown from the first text on to an empty one.
void CConversation::OnProgress(const std::string& strText)
{
    if (!m_Client.bProgress || (strText.empty() && !m_bProgressShown))
    {
        return;
    }
    if (strText.empty())
    {
        m_bProgressShown = false;
        m_Channel.Tell("progressEnd", {{"progressId", std::to_string(m_nProgress)}});
        return;
    }
    if (!m_bProgressShown)
    {
        m_bProgressShown = true;
        m_Channel.Tell("progressStart", {{"progressId", std::to_string(++m_nProgress)},
                                         {"title", "Running the kernel"},
                                         {"cancellable", true},
                                         {"message", strText}});
        return;
    }
    m_Channel.Tell("progressUpdate", {{"progressId", std::to_string(m_nProgress)}, {"message", strText}});
}

// ---------------------------------------------------------------------------------------- the life of a session

json CConversation::DoInitialize(const json& arguments)
{
    const std::string strPaths = ReadText(arguments, "pathFormat", "path");
    if (strPaths != "path")
    {
        throw CRequestError("paths are understood as \"path\" only");
    }
    m_Client.bLinesFrom1 = ReadFlag(arguments, "linesStartAt1", true);
    m_Client.bColumnsFrom1 = ReadFlag(arguments, "columnsStartAt1", true);
    m_Client.bProgress = ReadFlag(arguments, "supportsProgressReporting", false);
    m_Client.bInvalidated = ReadFlag(arguments, "supportsInvalidatedEvent", false);
    m_eStage = Initialized;
    return MakeCapabilities();
}

json CConversation::DoLaunch(const json& arguments)
{
    SDebuggeeOptions options = ReadLaunchRequest(arguments);
    options.command.isUnwanted = [this] { return m_Requests.IsEnding(); };
    options.command.isToPause = [this] { return m_Requests.TakePause(); };
    m_pDebuggee = std::make_unique<CDebuggee>(m_Setup, std::move(options), *this,
                                              [this](CDebugger* pDebugger) { m_Requests.SetDebugger(pDebugger); });
    m_eStage = Launched;
    // What has been wanted so far is set now; then the client may say more.
    m_After = [this]
    {
        m_Breakpoints.SetDebuggee(m_pDebuggee.get());
        m_Breakpoints.TellChanges();
        m_Channel.Tell("initialized", json::object());
    };
    return nullptr;
}

json CConversation::DoAttach(const json&)
{
    throw CRequestError("there is nothing to attach to: a session begins with its launch");
}

json CConversation::DoConfigurationDone(const json&)
{
    m_eStage = Running;
    m_After = [this] { m_pDebuggee->Begin(); };
    return nullptr;
}

json CConversation::DoRestart(const json&)
{
    m_After = [this]
    {
        m_pDebuggee->Kill();
        m_pDebuggee->Begin();
    };
    return nullptr;
}

json CConversation::DoTerminate(const json&)
{
    m_After = [this]
    {
        if (m_pDebuggee != nullptr && m_eStage != Over)
        {
            m_pDebuggee->Kill();
            SendEnd();
        }
        m_eStage = Over;
    };
    return nullptr;
}

json CConversation::DoDisconnect(const json&)
{
    if (m_pDebuggee != nullptr)
    {
        m_pDebuggee->Kill();
    }
    m_eStage = Over;
    return nullptr;
}

} // namespace KestrelTool
