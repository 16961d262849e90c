#include "tools/view/ViewSession.h"

#include "tools/session/debug/Accesses.h"
#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/Views.h"
#include "tools/source/SourcePlaces.h"
#include "tools/view/DispatchPicture.h"

#include <nlohmann/json.hpp>

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

/// Commands that a page may give: those that go on, and those that say where to look. None of them writes a file or
/// starts a program.
const char* const s_PageCommands[] = {"start",
                                      "continue",
                                      "step",
                                      "stepi",
                                      "next",
                                      "nexti",
                                      "finish",
                                      "until",
                                      "reverse-step",
                                      "reverse-next",
                                      "reverse-stepi",
                                      "reverse-nexti",
                                      "reverse-continue",
                                      "goto",
                                      "info stops",
                                      "break",
                                      "tbreak",
                                      "delete",
                                      "workitem",
                                      "frame",
                                      "print",
                                      "where",
                                      "info locals",
                                      "info breakpoints",
                                      "watch"};

bool IsPageCommand(const std::string& strCommand)
{
    return strCommand.find_first_of("\r\n") == std::string::npos &&
           std::any_of(std::begin(s_PageCommands), std::end(s_PageCommands),
                       [&](const std::string& strName)
                       {
                           return strCommand.compare(0, strName.size(), strName) == 0 &&
                                  (strCommand.size() == strName.size() || strCommand[strName.size()] == ' ' ||
                                   strCommand[strName.size()] == '/');
                       });
}

/// Of the work-item in focus; null where the expression has no value.
json ReadAtFocus(CDebugger& debugger, const std::string& strExpression)
{
    try
    {
        CExpression expression(strExpression, &debugger);
        GuessType(debugger, expression, debugger.GetSettings().eFormat);
        expression.Bind(debugger);
        double fValue = 0;
        expression.Evaluate(debugger.GetFocus(), 1, &fValue);
        return expression.HasValue(0) && std::isfinite(fValue) ? json(fValue) : json();
    }
    catch (const CCommandError&)
    {
        return json();
    }
}

/// "out[5]" for "out[id]", as the work-item in focus has it.
std::string FindElement(CDebugger& debugger, const std::string& strElement)
{
    const size_t nOpen = strElement.find('[');
    if (nOpen == std::string::npos || strElement.back() != ']')
    {
        return strElement;
    }
    const std::string strIndex = strElement.substr(nOpen + 1, strElement.size() - nOpen - 2);
    if (strIndex.find_first_not_of("0123456789") == std::string::npos)
    {
        return strElement;
    }
    const double fMost = 1e15; // up to here a double tells neighbours apart
    const json index = ReadAtFocus(debugger, strIndex);
    if (index.is_null() || index.get<double>() < 0 || index.get<double>() > fMost)
    {
        throw CCommandError(strIndex + " is no index here");
    }
    return strElement.substr(0, nOpen + 1) + std::to_string(static_cast<uint64_t>(index.get<double>())) + "]";
}

/// The lines of a file, or of the kernel's IL for an empty name.
json ListLines(CDebugger& debugger, const std::string& strFile)
{
    json lines = json::array();
    const unsigned int nLast = strFile.empty() ? static_cast<unsigned int>(debugger.GetListing().GetLineCount())
                                               : debugger.GetSourceText().GetLastLine(strFile);
    for (unsigned int nLine = 0; nLine < nLast; ++nLine)
    {
        const std::string* const pLine = strFile.empty() ? &debugger.GetListing().GetLine(nLine)
                                                         : debugger.GetSourceText().FindLine(strFile, nLine + 1);
        lines.push_back(pLine != nullptr ? *pLine : std::string());
    }
    return lines;
}

} // namespace

CViewSession::CViewSession() : m_nWake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE))
{
    if (m_nWake < 0)
    {
        throw CPlatformError(std::string("the page can't wait for its browser: ") + std::strerror(errno));
    }
}

CViewSession::CViewSession(const SDebuggeeSetup& setup, SDebuggeeOptions options) : CViewSession()
{
    options.command.isUnwanted = [this]
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        return m_bEnding;
    };
    m_pDebuggee = std::make_unique<CDebuggee>(setup, std::move(options), *this,
                                              [this](CDebugger* pDebugger) { Watch(pDebugger); });
}

CViewSession::CViewSession(const ConsoleMaker& makeConsole, CDebugger* pLaunch, CProgramSession* pProgram)
    : CViewSession()
{
    m_pDebuggee = std::make_unique<CDebuggee>(makeConsole, pLaunch, pProgram);
    CDebugger* const pDebugger = m_pDebuggee->Find();
    Watch(pDebugger);
    if (pDebugger != nullptr && pDebugger->IsLive())
    {
        CountVisit();
    }
    Publish();
}

CViewSession::~CViewSession()
{
    if (m_pDebuggee != nullptr) // it may have failed to begin
    {
        m_pDebuggee->Kill();
    }
    m_pDebuggee.reset();
    close(m_nWake);
}

void CViewSession::Watch(CDebugger* pDebugger)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_pRunning = pDebugger;
}

void CViewSession::Serve()
{
    Perform([this] { m_pDebuggee->Begin(); });
    bool bEnding = false;
    while (!bEnding)
    {
        {
            std::unique_lock<std::mutex> lock(m_Mutex);
            m_Changed.wait(lock, [this] { return m_bEnding || !m_Jobs.empty(); });
            bEnding = m_bEnding;
        }
        Work();
    }
}

void CViewSession::Work()
{
    for (uint64_t nOne = 0; read(m_nWake, &nOne, sizeof nOne) == sizeof nOne;)
    {
        std::packaged_task<json()> job;
        {
            const std::lock_guard<std::mutex> lock(m_Mutex);
            if (m_Jobs.empty())
            {
                return;
            }
            job = std::move(m_Jobs.front());
            m_Jobs.pop_front();
        }
        job();
    }
}

void CViewSession::End()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_bEnding = true;
    m_Jobs.clear(); // whoever waits for one gets an error
    if (m_bBusy && m_pRunning != nullptr)
    {
        m_pRunning->Interrupt();
    }
    m_Changed.notify_all();
}

void CViewSession::Pause()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_bBusy && m_pRunning != nullptr)
    {
        m_pRunning->Interrupt();
    }
}

json CViewSession::Ask(std::function<json()> job)
{
    std::future<json> answer;
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        if (m_bEnding)
        {
            throw CCommandError("the session has ended");
        }
        m_Jobs.emplace_back(std::move(job));
        answer = m_Jobs.back().get_future();
        const uint64_t nOne = 1;
        [[maybe_unused]] const ssize_t nWritten = write(m_nWake, &nOne, sizeof nOne);
        m_Changed.notify_all();
    }
    try
    {
        return answer.get();
    }
    catch (const std::future_error&) // End has thrown the job away
    {
        throw CCommandError("the session has ended");
    }
}

/// Does what may run kernels. What goes wrong is told as output.
void CViewSession::Perform(const std::function<void()>& move)
{
    BeginMove();
    try
    {
        move();
    }
    catch (const std::exception& error)
    {
        Print(std::string(error.what()) + "\n");
    }
    SetBusy(false);
    Publish();
}

/// An interrupt is for what goes on, and is forgotten with its end.
void CViewSession::SetBusy(bool bBusy)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_bBusy = bBusy;
    if (!bBusy && m_pRunning != nullptr)
    {
        m_pRunning->ClearInterrupts();
    }
}

void CViewSession::BeginMove()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_bBusy = true;
    m_State["busy"] = true;
    ++m_nState;
    m_Changed.notify_all();
}

void CViewSession::EndMove()
{
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_bBusy = false;
    }
    Publish();
}

void CViewSession::Execute(const std::string& strCommand)
{
    if (!IsPageCommand(strCommand))
    {
        throw CBadRequest("a page can't do this: " + strCommand);
    }
    Ask(
        [this, strCommand]
        {
            Perform([&] { Print(m_pDebuggee->GetConsole().Execute(strCommand).strText); });
            return json();
        });
}

json CViewSession::Draw(const SPictureWish& wish)
{
    return Ask(
        [wish, this]
        {
            CDebugger& debugger = m_pDebuggee->RequireStop();
            if (wish.bLines)
            {
                json picture;
                BeBusyWith([&] { picture = m_LastLines.Draw(debugger, wish.nWidth, wish.nHeight); });
                return picture;
            }
            if (wish.strExpression.empty())
            {
                return DrawMask(debugger, wish.nWidth, wish.nHeight);
            }
            return wish.from ? DrawChangesSince(debugger, wish)
                             : DrawValues(debugger, FindValues(debugger, wish), wish.nWidth, wish.nHeight);
        });
}

json CViewSession::GetFigures(const SPictureWish& wish)
{
    return Ask(
        [wish, this]
        {
            CDebugger& debugger = m_pDebuggee->RequireStop();
            return DescribeValues(debugger, FindValues(debugger, wish));
        });
}

/// An expression's values at this stop. The last ones are kept.
const SDispatchValues& CViewSession::FindValues(CDebugger& debugger, const SPictureWish& wish)
{
    const bool bKept = m_nValuesShown == m_nShown && m_bValuesOfAll == wish.bAll &&
                       m_Values.strExpression == wish.strExpression && !m_Values.vValues.empty();
    if (!bKept)
    {
        m_Values = SDispatchValues();
        m_Values = ReadValues(debugger, wish.strExpression, wish.bAll);
        m_nValuesShown = m_nShown;
        m_bValuesOfAll = wish.bAll;
    }
    return m_Values;
}

void CViewSession::Visit(CDebugger& debugger, const std::vector<size_t>& vStops,
                         const std::function<void(size_t)>& look)
{
    BeBusyWith([&] { debugger.VisitStops(vStops, look); });
}

/// Makes kernel runs, which Pause ends, without a move that is to be told.
void CViewSession::BeBusyWith(const std::function<void()>& work)
{
    SetBusy(true);
    try
    {
        work();
    }
    catch (...)
    {
        SetBusy(false);
        throw;
    }
    SetBusy(false);
}

json CViewSession::DrawChangesSince(CDebugger& debugger, const SPictureWish& wish)
{
    SDispatchValues before;
    Visit(debugger, {*wish.from}, [&](size_t) { before = ReadValues(debugger, wish.strExpression, wish.bAll); });
    return DrawChanges(debugger, before, FindValues(debugger, wish), wish.nWidth, wish.nHeight);
}

json CViewSession::GetCourse(const std::string& strExpression)
{
    return Ask(
        [strExpression, this]() -> json
        {
            CDebugger& debugger = m_pDebuggee->RequireStop();
            const CTimeLine& timeLine = debugger.GetTimeLine();
            const std::vector<CTimeLine::SStop> vStops = timeLine.GetStops();
            if (m_Course.strExpression != strExpression || m_Course.nFocus != debugger.GetFocus() ||
                m_Course.nGeneration != timeLine.GetGeneration())
            {
                m_Course = {strExpression, debugger.GetFocus(), timeLine.GetGeneration(), {}};
            }
            const auto [nFirst, nEnd] = FindStopsShown(timeLine);
            std::vector<size_t> vUnknown;
            for (size_t n = nFirst; n < nEnd; ++n)
            {
                if (m_Course.mapValues.count(vStops[n].nPlace) == 0)
                {
                    vUnknown.push_back(n);
                }
            }
            Visit(debugger, vUnknown,
                  [&](size_t nStop)
                  { m_Course.mapValues[vStops[nStop].nPlace] = ReadAtFocus(debugger, strExpression); });
            json values = json::array();
            for (size_t n = nFirst; n < nEnd; ++n)
            {
                values.push_back(m_Course.mapValues[vStops[n].nPlace]);
            }
            return {{"expression", strExpression}, {"first", nFirst}, {"values", values}};
        });
}

json CViewSession::GetAccesses(const std::string& strElement)
{
    const size_t nMost = 1000;
    return Ask(
        [=, this]
        {
            CDebugger& debugger = m_pDebuggee->RequireStop();
            return DescribeAccesses(debugger.GetLibraries(), debugger.GetLaunch().GetFile(),
                                    FindElement(debugger, strElement), nMost);
        });
}

void CViewSession::GoToAccess(unsigned int nLine, size_t nItem, uint64_t nPass)
{
    Ask(
        [=, this]
        {
            Perform([&] { m_pDebuggee->RequireStop().GoToPass(nLine, nItem, nPass); });
            return json();
        });
}

json CViewSession::GetSource()
{
    return Ask(
        [this]() -> json
        {
            CDebugger* const pDebugger = m_pDebuggee->Find();
            if (pDebugger == nullptr)
            {
                throw CCommandError("no launch waits");
            }
            const std::optional<SSourceLine> place = pDebugger->GetSourceLine();
            const std::string strFile = place ? place->strFile : std::string();
            return {{"file", strFile}, {"first", place ? 1 : 0}, {"lines", ListLines(*pDebugger, strFile)}};
        });
}

void CViewSession::CountVisit()
{
    CDebugger* const pDebugger = m_pDebuggee->Find();
    if (pDebugger != nullptr)
    {
        m_Visits.Count(*pDebugger);
        m_LastLines.Note(*pDebugger);
    }
}

void CViewSession::Publish()
{
    json state = {{"busy", false}, {"live", false}, {"over", m_pDebuggee->IsOver()}, {"shown", ++m_nShown}};
    CDebugger* const pDebugger = m_pDebuggee->Find();
    if (pDebugger != nullptr)
    {
        state["kernel"] = pDebugger->GetLaunch().GetFile().strKernel;
        state["items"] = pDebugger->GetExtent().Count();
        state["local"] = pDebugger->GetExtent().nLocal;
        state["live"] = pDebugger->IsLive();
        try
        {
            state["stop"] = pDebugger->IsLive() ? DescribeStop(*pDebugger, m_Visits) : json();
        }
        catch (const std::exception& error)
        {
            Print(std::string(error.what()) + "\n");
        }
    }
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_State = std::move(state);
    ++m_nState;
    m_Changed.notify_all();
}

json CViewSession::GetState(uint64_t nAfter)
{
    std::unique_lock<std::mutex> lock(m_Mutex);
    m_Changed.wait_for(lock, std::chrono::seconds(1), [&] { return m_bEnding || m_nState > nAfter; });
    json state = m_State;
    state["number"] = m_nState;
    state["output"] = m_strOutput;
    state["ended"] = m_bEnding;
    return state;
}

void CViewSession::Print(const std::string& strText)
{
    const size_t nKept = 20000;
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_strOutput += strText;
    m_strOutput.erase(0, m_strOutput.size() - std::min(m_strOutput.size(), nKept));
}

void CViewSession::OnEvent(const json& event)
{
    if (event["event"] == "stopped")
    {
        CountVisit();
    }
    if (event["event"] == "started" || event["event"] == "launch")
    {
        m_Visits.Forget();
        m_LastLines.Forget();
    }
    Print(m_pDebuggee->GetConsole().Render(event));
}

void CViewSession::OnProgress(const std::string& strText)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_State["progress"] = strText;
    ++m_nState;
    m_Changed.notify_all();
}

} // namespace KestrelTool
