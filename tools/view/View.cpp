#include "tools/view/View.h"

#include "tools/session/ExitCode.h"
#include "tools/view/PageFiles.h"
#include "tools/view/ViewSession.h"

#include <httplib.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <csignal>
#include <iostream>
#include <random>
#include <thread>

namespace KestrelTool
{

namespace
{

std::string MakeToken()
{
    std::random_device source;
    std::string strToken;
    for (size_t n = 0; n < 32; ++n)
    {
        strToken += "0123456789abcdef"[source() % 16];
    }
    return strToken;
}

std::string ToText(const nlohmann::json& object)
{
    return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

/// \throws CBadRequest
size_t ReadNumber(const httplib::Request& request, const char* pszName)
{
    const std::string strText = request.get_param_value(pszName);
    if (strText.empty() || strText.size() > 9 || strText.find_first_not_of("0123456789") != std::string::npos)
    {
        throw CBadRequest(std::string(pszName) + " has to be a number");
    }
    return std::stoul(strText);
}

SPictureWish ReadWish(const httplib::Request& request)
{
    const auto readSize = [&](const char* pszName)
    { return std::clamp<size_t>(request.has_param(pszName) ? ReadNumber(request, pszName) : 256, 1, 2048); };
    SPictureWish wish;
    wish.strExpression = request.get_param_value("expression");
    wish.bLines = request.has_param("lines");
    wish.bAll = request.has_param("all");
    wish.from = request.has_param("from") ? std::optional<size_t>(ReadNumber(request, "from")) : std::nullopt;
    wish.nWidth = readSize("width");
    wish.nHeight = readSize("height");
    return wish;
}

/// A server of one session's page.
class CServer
{
public:
    CServer(CViewSession& session, unsigned int nPort);
    ~CServer();

    const std::string& GetAddress() const { return m_strAddress; }

private:
    using Handler = std::function<nlohmann::json(const httplib::Request&)>;

    bool IsOurs(const httplib::Request& request) const;
    void Route();
    void Get(const std::string& strPath, Handler handler);
    void Post(const std::string& strPath, Handler handler);
    static void Answer(const Handler& handler, const httplib::Request& request, httplib::Response& response);
    void Push(httplib::Response& response);

    CViewSession& m_Session;
    httplib::Server m_Server;
    const std::string m_strToken = MakeToken();
    std::string m_strHost; ///< "127.0.0.1:PORT"
    std::string m_strAddress;
    std::thread m_Thread;
};

CServer::CServer(CViewSession& session, unsigned int nPort) : m_Session(session)
{
    const char* const pszLoopback = "127.0.0.1";
    const bool bBound = nPort == 0 || m_Server.bind_to_port(pszLoopback, static_cast<int>(nPort));
    const int nBound = nPort == 0 ? m_Server.bind_to_any_port(pszLoopback) : static_cast<int>(nPort);
    if (!bBound || nBound <= 0)
    {
        throw CPlatformError("there is no port " + std::to_string(nPort) + " to serve a page on");
    }
    m_strHost = std::string(pszLoopback) + ":" + std::to_string(nBound);
    m_strAddress = "http://" + m_strHost + "/" + m_strToken + "/";
    Route();
    m_Thread = std::thread([this] { m_Server.listen_after_bind(); });
}

CServer::~CServer()
{
    m_Server.stop();
    m_Thread.join();
}

/// A page of somebody else's can make a browser ask, but neither under our name nor without saying whose it is.
bool CServer::IsOurs(const httplib::Request& request) const
{
    const std::string strOrigin = request.get_header_value("Origin");
    return request.get_header_value("Host") == m_strHost && (strOrigin.empty() || strOrigin == "http://" + m_strHost) &&
           request.path.compare(0, m_strToken.size() + 2, "/" + m_strToken + "/") == 0;
}

/// What a stop can't tell is an answer too: an expression may have a value at one stop and none at the next. Only a
/// request that no page of ours makes is refused.
void CServer::Answer(const Handler& handler, const httplib::Request& request, httplib::Response& response)
{
    nlohmann::json answer;
    try
    {
        answer = handler(request);
    }
    catch (const CBadRequest& error)
    {
        response.status = 400;
        answer = {{"error", error.what()}};
    }
    catch (const std::exception& error)
    {
        answer = {{"error", error.what()}};
    }
    if (!answer.contains("shades"))
    {
        response.set_content(ToText(answer), "application/json");
        return;
    }
    // A line of text, and the bytes after it.
    const std::string strShades = answer["shades"];
    answer.erase("shades");
    response.set_content(ToText(answer) + "\n" + strShades, "application/octet-stream");
}

void CServer::Get(const std::string& strPath, Handler handler)
{
    m_Server.Get("/" + m_strToken + strPath, [handler](const httplib::Request& request, httplib::Response& response)
                 { Answer(handler, request, response); });
}

void CServer::Post(const std::string& strPath, Handler handler)
{
    m_Server.Post("/" + m_strToken + strPath, [handler](const httplib::Request& request, httplib::Response& response)
                  { Answer(handler, request, response); });
}

/// Events: each state of the session as it comes.
void CServer::Push(httplib::Response& response)
{
    response.set_chunked_content_provider(
        "text/event-stream",
        [this, nLast = uint64_t(0)](size_t, httplib::DataSink& sink) mutable
        {
            const nlohmann::json state = m_Session.GetState(nLast);
            const uint64_t nState = state["number"];
            // A comment keeps the connection, and finds out whether it is there.
            const std::string strText = nState > nLast ? "data: " + ToText(state) + "\n\n" : ":\n\n";
            nLast = nState;
            return !state["ended"].get<bool>() && sink.write(strText.data(), strText.size());
        });
}

void CServer::Route()
{
    m_Server.set_pre_routing_handler(
        [this](const httplib::Request& request, httplib::Response& response)
        {
            response.set_header("Content-Security-Policy", "default-src 'self'; frame-ancestors 'none'");
            response.set_header("X-Content-Type-Options", "nosniff");
            response.set_header("Referrer-Policy", "no-referrer");
            response.set_header("Cache-Control", "no-store");
            if (IsOurs(request))
            {
                return httplib::Server::HandlerResponse::Unhandled;
            }
            response.status = 403;
            response.set_content("This address isn't the page's.\n", "text/plain");
            return httplib::Server::HandlerResponse::Handled;
        });
    m_Server.set_payload_max_length(4096);
    m_Server.set_keep_alive_timeout(1); // so long the end waits for who says no more
    for (const SPageFile& file : g_PageFiles)
    {
        m_Server.Get("/" + m_strToken + "/" + file.pszName,
                     [&file](const httplib::Request&, httplib::Response& response)
                     { response.set_content(file.pszText, file.pszType); });
    }
    m_Server.Get("/" + m_strToken + "/events",
                 [this](const httplib::Request&, httplib::Response& response) { Push(response); });
    Get("/source", [this](const httplib::Request&) { return m_Session.GetSource(); });
    Get("/cells", [this](const httplib::Request& request) { return m_Session.Draw(ReadWish(request)); });
    Get("/figures", [this](const httplib::Request& request) { return m_Session.GetFigures(ReadWish(request)); });
    Get("/course",
        [this](const httplib::Request& request) { return m_Session.GetCourse(request.get_param_value("expression")); });
    Get("/accesses",
        [this](const httplib::Request& request) { return m_Session.GetAccesses(request.get_param_value("element")); });
    Post("/command",
         [this](const httplib::Request& request)
         {
             m_Session.Execute(request.body);
             return nlohmann::json();
         });
    Post("/access",
         [this](const httplib::Request& request)
         {
             m_Session.GoToAccess(static_cast<unsigned int>(ReadNumber(request, "line")), ReadNumber(request, "item"),
                                  ReadNumber(request, "pass"));
             return nlohmann::json();
         });
    Post("/pause",
         [this](const httplib::Request&)
         {
             m_Session.Pause();
             return nlohmann::json();
         });
}

/// The page of another front end's session.
class CSharedPage : public IPage
{
public:
    CSharedPage(const ConsoleMaker& makeConsole, CDebugger* pLaunch, CProgramSession* pProgram, unsigned int nPort)
        : m_Session(makeConsole, pLaunch, pProgram), m_Server(m_Session, nPort)
    {
    }
    /// The server waits for its answers when it ends.
    ~CSharedPage() override { m_Session.End(); }

    const std::string& GetAddress() const override { return m_Server.GetAddress(); }
    int GetFile() const override { return m_Session.GetFile(); }
    void Work() override { m_Session.Work(); }
    void OnEvent(const nlohmann::json& event) override { m_Session.OnEvent(event); }
    void OnProgress(const std::string& strText) override { m_Session.OnProgress(strText); }
    void OnCommand() override { m_Session.BeginMove(); }
    void OnAnswer() override { m_Session.EndMove(); }
    void Watch(CDebugger* pDebugger) override { m_Session.Watch(pDebugger); }

private:
    CViewSession m_Session;
    CServer m_Server;
};

} // namespace

std::unique_ptr<IPage> ServePage(const ConsoleMaker& makeConsole, CDebugger* pLaunch, CProgramSession* pProgram,
                                 unsigned int nPort)
{
    return std::make_unique<CSharedPage>(makeConsole, pLaunch, pProgram, nPort);
}

int RunView(const SDebuggeeSetup& setup, const SDebuggeeOptions& options, unsigned int nPort)
{
    // Signals are taken by a thread of their own, which may do what a handler may not.
    sigset_t signals;
    sigemptyset(&signals);
    for (const int nSignal : {SIGINT, SIGTERM})
    {
        sigaddset(&signals, nSignal);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    CViewSession session(setup, options);
    std::thread(
        [signals, &session]
        {
            int nSignal = 0;
            sigwait(&signals, &nSignal);
            session.End();
        })
        .detach();
    const CServer server(session, nPort);
    std::cout << server.GetAddress() << std::endl;
    session.Serve();
    return EXIT_GOOD;
}

} // namespace KestrelTool
