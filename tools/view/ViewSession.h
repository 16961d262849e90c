#ifndef KESTREL_TOOLS_VIEW_VIEWSESSION_H
#define KESTREL_TOOLS_VIEW_VIEWSESSION_H

#include "tools/session/program/Debuggee.h"
#include "tools/view/DispatchPicture.h"
#include "tools/view/LastLines.h"
#include "tools/view/StopDescription.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>

namespace KestrelTool
{

/// What a picture is to show.
struct SPictureWish
{
    std::string strExpression;  ///< empty for the active work-items
    bool bLines = false;        ///< the line at which each work-item was active last, in place of an expression
    bool bAll = false;          ///< those work-items too that aren't active
    std::optional<size_t> from; ///< the changes since a stop of the time line, by its number from 0
    size_t nWidth = 1;
    size_t nHeight = 1;
};

/// A request that the page doesn't make.
class CBadRequest : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// A session that is looked at by a page. One thread is the session's and works off what others ask for, in turn.
class CViewSession : public IEventSink
{
public:
    CViewSession(const SDebuggeeSetup& setup, SDebuggeeOptions options);
    /// A look at a session that another front end has, which passes on its events. Only one of the two isn't null.
    /// \throws CPlatformError
    CViewSession(const ConsoleMaker& makeConsole, CDebugger* pLaunch, CProgramSession* pProgram);
    ~CViewSession() override;

    // ---- from the session's thread
    /// Begins the session and answers until End.
    void Serve();
    /// Answers what has been asked so far.
    void Work();
    /// A file descriptor that is readable while something waits for an answer.
    int GetFile() const { return m_nWake; }
    /// Around what may move the session.
    void BeginMove();
    void EndMove();
    /// \param pDebugger  whom an interrupt goes to; may be null
    void Watch(CDebugger* pDebugger);

    /// From any thread.
    void End();

    void OnEvent(const nlohmann::json& event) override;
    void OnProgress(const std::string& strText) override;

    // ---- from any thread but the session's; each waits for its turn, and throws CCommandError or std::runtime_error
    /// Does a command of the prompt; only those that a page has a use for. What it prints comes with the state.
    void Execute(const std::string& strCommand);
    /// A picture of the dispatch, as DispatchPicture.h and LastLines.h have them.
    nlohmann::json Draw(const SPictureWish& wish);
    /// Statistics and row of an expression, as DescribeValues has them. After its picture they cost little.
    nlohmann::json GetFigures(const SPictureWish& wish);
    /// An expression of the work-item in focus at each stop of the time line, up to so many around the present one.
    nlohmann::json GetCourse(const std::string& strExpression);
    /// Who wrote and read an element of a buffer, as DescribeAccesses has it.
    nlohmann::json GetAccesses(const std::string& strElement);
    /// To in front of an access: its work-item comes to its line of IL once more after so many passes.
    void GoToAccess(unsigned int nLine, size_t nItem, uint64_t nPass);
    /// The file that the stop is in, line by line; the kernel's IL where there is no source.
    nlohmann::json GetSource();

    // ---- from any thread, at once
    /// Where the session is. \param nAfter  waits for a later state than this one, up to a second
    nlohmann::json GetState(uint64_t nAfter);
    /// Interrupts what goes on.
    void Pause();

private:
    /// Values of an expression at stops of the time line, for the work-item in focus.
    struct SCourse
    {
        std::string strExpression;
        size_t nFocus = 0;
        uint64_t nGeneration = 0;
        std::map<size_t, nlohmann::json> mapValues; ///< by places
    };

    CViewSession();
    nlohmann::json Ask(std::function<nlohmann::json()> job);
    const SDispatchValues& FindValues(CDebugger& debugger, const SPictureWish& wish);
    nlohmann::json DrawChangesSince(CDebugger& debugger, const SPictureWish& wish);
    void Visit(CDebugger& debugger, const std::vector<size_t>& vStops, const std::function<void(size_t)>& look);
    void SetBusy(bool bBusy);
    void BeBusyWith(const std::function<void()>& work);
    void Perform(const std::function<void()>& move);
    void Publish();
    void Print(const std::string& strText);
    void CountVisit();

    std::unique_ptr<CDebuggee> m_pDebuggee;
    CLineVisits m_Visits; ///< of this launch
    CLastLines m_LastLines;
    SCourse m_Course;
    SDispatchValues m_Values;    ///< read last
    uint64_t m_nValuesShown = 0; ///< the state that they are of
    bool m_bValuesOfAll = false;
    uint64_t m_nShown = 0; ///< states in which something else may be to be seen than before

    int m_nWake; ///< counts the jobs that wait
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
