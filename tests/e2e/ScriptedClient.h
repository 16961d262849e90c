#ifndef KESTREL_TESTS_E2E_SCRIPTEDCLIENT_H
#define KESTREL_TESTS_E2E_SCRIPTEDCLIENT_H

#include "tools/session/launch/Session.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace KestrelTest
{

/// A client whose answers are functions, and which records its events.
class CScriptedClient : public KestrelTool::ISessionClient
{
public:
    typedef std::function<ovkclDebugCommand(KestrelTool::CSession&)> Answer;

    CScriptedClient(Answer onStarted, Answer onHalted)
        : m_OnStarted(std::move(onStarted)), m_OnHalted(std::move(onHalted))
    {
    }

    ovkclDebugCommand OnStarted(KestrelTool::CSession& session) override
    {
        m_vEvents.push_back("started");
        return m_OnStarted(session);
    }
    ovkclDebugCommand OnHalted(KestrelTool::CSession& session) override
    {
        m_vEvents.push_back("halted");
        return m_OnHalted(session);
    }
    void OnFinished(KestrelTool::CSession&) override { m_vEvents.push_back("finished"); }
    void OnError(KestrelTool::CSession& session) override
    {
        m_vEvents.push_back("error");
        m_strError = session.GetLastError();
    }

    const std::vector<std::string>& GetEvents() const { return m_vEvents; }
    const std::string& GetError() const { return m_strError; }

private:
    Answer m_OnStarted;
    Answer m_OnHalted;
    std::vector<std::string> m_vEvents;
    std::string m_strError;
};

inline ovkclDebugCommand AlwaysStep(KestrelTool::CSession&)
{
    return OVKCLDEBUG_COMMAND_STEP;
}

inline ovkclDebugCommand AlwaysContinue(KestrelTool::CSession&)
{
    return OVKCLDEBUG_COMMAND_CONTINUE;
}

} // namespace KestrelTest

#endif
