#ifndef KESTREL_TOOLS_VIEW_VIEWSESSION_H
#define KESTREL_TOOLS_VIEW_VIEWSESSION_H

#include "tools/session/program/Debuggee.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <map>
#include <mutex>
#include <string>

namespace KestrelTool
{

/// A session that is looked at by a page. One thread is the session's and works off what others ask for, in turn.
class CViewSession : public IEventSink
{
public:
    CViewSession(const SDebuggeeSetup& setup, SDebuggeeOptions options);
    ~CViewSession() override;

    /// Begins the session and answers until End.
    void Serve();
    /// From any thread.
    void End();

    // ---- from any thread but the session's; each waits for its turn, and throws CCommandError or std::runtime_error
    /// Does a command of the prompt; only those that a page has a use for. What it prints comes with the state.
    void Execute(const std::string& strCommand);
    /// The active work-items by cells, or an expression's values: as ViewMask and ViewGrid have them, but with "shades"
    /// in place of the cells, a byte each. 0 is for a cell with nothing in it, 1 for the lowest value, 255 for the
    /// highest.
    nlohmann::json GetCells(const std::string& strExpression, bool bAll, size_t nWidth, size_t nHeight);
    nlohmann::json GetStatistics(const std::string& strExpression, bool bAll);
    /// An expression's values along the row in x of the work-item in focus, as ViewRow has them.
    nlohmann::json GetRow(const std::string& strExpression);
    /// The file that the stop is in, line by line; the kernel's IL where there is no source.
    nlohmann::json GetSource();

    // ---- from any thread, at once
    /// Where the session is. \param nAfter  waits for a later state than this one, up to a second
    nlohmann::json GetState(uint64_t nAfter);
    /// Interrupts what goes on.
    void Pause();

private:
    /// Stops at a line.
    struct SVisits
    {
        uint64_t nStops = 0;
        double fShares = 0; ///< sum of the shares of work-items that were active
    };

    nlohmann::json Ask(std::function<nlohmann::json()> job);
    void Perform(const std::function<void()>& move);
    void Publish();
    void Print(const std::string& strText);
    nlohmann::json DescribeStop(CDebugger& debugger);
    nlohmann::json ListVariables(CDebugger& debugger);
    void CountVisit(const nlohmann::json& stop);
    nlohmann::json ListVisits(const std::string& strFile) const;

    void OnEvent(const nlohmann::json& event) override;
    void OnProgress(const std::string& strText) override;

    std::unique_ptr<CDebuggee> m_pDebuggee;
    nlohmann::json m_Stop;                                              ///< the last event "stopped"
    std::map<std::string, std::map<unsigned int, SVisits>> m_mapVisits; ///< of this launch, by file and line

    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    std::deque<std::packaged_task<nlohmann::json()>> m_Jobs;
    CDebugger* m_pRunning = nullptr; ///< whom an interrupt goes to
    bool m_bBusy = false;
    bool m_bEnding = false;
    std::string m_strOutput; ///< the end of what the session has told so far
    nlohmann::json m_State = nlohmann::json::object();
    uint64_t m_nState = 0;
};

} // namespace KestrelTool

#endif
