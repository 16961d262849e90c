#ifndef KESTREL_TOOLS_DAP_CONVERSATION_H
#define KESTREL_TOOLS_DAP_CONVERSATION_H

#include "tools/dap/BreakpointTable.h"
#include "tools/dap/Channel.h"
#include "tools/dap/Client.h"
#include "tools/dap/OutputCapture.h"
#include "tools/dap/Requests.h"
#include "tools/dap/Sources.h"
#include "tools/dap/Values.h"
#include "tools/session/program/Debuggee.h"

namespace KestrelTool
{

/// One client's conversation, from its first request to its last. The thread that runs it is the session's; another one
/// reads.
class CConversation : public IEventSink
{
public:
    CConversation(const SDebuggeeSetup& setup, CChannel& channel, COutputCapture& capture);
    ~CConversation() override;

    /// Answers requests until the client says farewell, or is gone.
    void Run();

private:
    using json = nlohmann::json;

    /// How far the conversation has come. A request says from which stage on it has a meaning.
    enum EStage
    {
        Begun,
        Initialized,
        Launched, ///< there is something to debug, which doesn't run yet
        Running,  ///< it does, or is stopped
        Over
    };

    struct SCommand
    {
        const char* pszName;
        EStage eFrom;
        EStage eTo;
        json (CConversation::*pFunction)(const json& arguments);
    };
    static const SCommand s_Commands[];
    static const SCommand* FindCommand(const std::string& strName);

    void Handle(const SRequest& request);
    json Perform(const SCommand& command, const SRequest& request);
    void GoOn();
    void Settle();
    void DoBreakpointCommands();
    void SendStop();
    void SendEnd();
    json DescribeStop(const json& event);

    // ---- the life of a session
    json DoInitialize(const json& arguments);
    json DoLaunch(const json& arguments);
    json DoConfigurationDone(const json& arguments);
    json DoRestart(const json& arguments);
    json DoTerminate(const json& arguments);
    json DoDisconnect(const json& arguments);
    json DoAttach(const json& arguments);

    // ---- going on
    json DoContinue(const json& arguments);
    json DoNext(const json& arguments);
    json DoStepIn(const json& arguments);
    json DoStepOut(const json& arguments);
    json DoStepBack(const json& arguments);
    json DoReverseContinue(const json& arguments);
    /// Makes the kernel go on when the request has been answered.
    json GoOnLater(std::function<void(CDebugger&)> move);

    // ---- breakpoints
    json DoSetBreakpoints(const json& arguments);
    json DoSetFunctionBreakpoints(const json& arguments);
    json DoSetInstructionBreakpoints(const json& arguments);
    json DoSetExceptionBreakpoints(const json& arguments);
    json DoBreakpointLocations(const json& arguments);
    json DoDataBreakpointInfo(const json& arguments);
    json DoSetDataBreakpoints(const json& arguments);

    // ---- what is there to see
    json DoThreads(const json& arguments);
    json DoStackTrace(const json& arguments);
    json DoScopes(const json& arguments);
    json DoVariables(const json& arguments);
    json DoEvaluate(const json& arguments);
    json DoCompletions(const json& arguments);
    json DoSource(const json& arguments);
    json DoLoadedSources(const json& arguments);
    json DoDisassemble(const json& arguments);
    json DoReadMemory(const json& arguments);
    json DoExceptionInfo(const json& arguments);

    // ---- views
    json DoGrid(const json& arguments);
    json DoMask(const json& arguments);
    json DoFocus(const json& arguments);

    CDebugger& RequireStop();
    void RequireThread(const json& arguments) const;
    size_t FindFrame(CDebugger& debugger, int64_t nFrameId) const;
    json ExecuteCommand(const std::string& strText);
    EFormat ReadFormatOf(const json& arguments);

    void OnEvent(const json& event) override;
    void OnProgress(const std::string& strText) override;

    const SDebuggeeSetup& m_Setup;
    CChannel& m_Channel;
    COutputCapture& m_Capture;
    CRequests m_Requests;
    SClient m_Client;
    CSources m_Sources;
    CBreakpointTable m_Breakpoints;
    CValues m_Values;
    std::unique_ptr<CDebuggee> m_pDebuggee;
    EStage m_eStage = Begun;
    std::function<void()> m_After; ///< what is done when the request has been answered
    std::optional<json> m_Stop;    ///< an event that the client hasn't been told of
    json m_LastStop;               ///< that it stands at
    bool m_bLaunchFailed = false;  ///< something has come up without which a session ends
    bool m_bFaultsStop = true;     ///< a stop with faults is told as an exception
    bool m_bThread = false;        ///< the client knows that there is one
    int m_nThread = 1;             ///< the launch's number
    int m_nStops = 0;
    int m_nProgress = 0; ///< of the progress that is shown
    bool m_bProgressShown = false;
};

} // namespace KestrelTool

#endif
