#include "tools/view/ViewSession.h"

#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/SourceValues.h"
#include "tools/session/debug/Views.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <sstream>

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

/// A picture with shades in place of its cells. As numbers in a text a million cells take longer than their values do.
json MakeShades(json picture)
{
    const bool bMask = picture["view"] == "mask";
    const double fLow = bMask || picture["low"].is_null() ? 0 : picture["low"].get<double>();
    const double fHigh = bMask || picture["high"].is_null() ? 1 : picture["high"].get<double>();
    const double fFactor = fHigh > fLow ? 254 / (fHigh - fLow) : 0;
    const json& cells = picture["cells"];
    std::string strShades(cells.size(), '\0');
    for (size_t n = 0; n < cells.size(); ++n)
    {
        if (cells[n].is_number())
        {
            const double fValue = cells[n].get<double>() / (bMask ? picture["sizes"][n].get<double>() : 1);
            const double fShade = fFactor == 0 ? 127 : (fValue - fLow) * fFactor;
            strShades[n] = static_cast<char>(1 + static_cast<int>(std::clamp(fShade, 0.0, 254.0)));
        }
    }
    picture.erase("cells");
    picture.erase("sizes");
    picture["shades"] = std::move(strShades);
    return picture;
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

CViewSession::CViewSession(const SDebuggeeSetup& setup, SDebuggeeOptions options)
{
    options.command.isUnwanted = [this]
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        return m_bEnding;
    };
    m_pDebuggee = std::make_unique<CDebuggee>(setup, std::move(options), *this,
                                              [this](CDebugger* pDebugger)
                                              {
                                                  const std::lock_guard<std::mutex> lock(m_Mutex);
                                                  m_pRunning = pDebugger;
                                              });
}

CViewSession::~CViewSession()
{
    m_pDebuggee->Kill();
    m_pDebuggee.reset();
}

void CViewSession::Serve()
{
    Perform([this] { m_pDebuggee->Begin(); });
    while (true)
    {
        std::packaged_task<json()> job;
        {
            std::unique_lock<std::mutex> lock(m_Mutex);
            m_Changed.wait(lock, [this] { return m_bEnding || !m_Jobs.empty(); });
            if (m_bEnding)
            {
                m_Jobs.clear(); // whoever waits for one gets an error
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
        m_Changed.notify_all();
    }
    return answer.get();
}

/// Does what may run kernels. What goes wrong is told as output.
void CViewSession::Perform(const std::function<void()>& move)
{
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_bBusy = true;
        m_State["busy"] = true;
        ++m_nState;
        m_Changed.notify_all();
    }
    try
    {
        move();
    }
    catch (const std::exception& error)
    {
        Print(std::string(error.what()) + "\n");
    }
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_bBusy = false;
        if (m_pRunning != nullptr)
        {
            m_pRunning->ClearInterrupts();
        }
    }
    Publish();
}

void CViewSession::Execute(const std::string& strCommand)
{
    if (!IsPageCommand(strCommand))
    {
        throw CCommandError("a page can't do this: " + strCommand);
    }
    Ask(
        [this, strCommand]
        {
            Perform([&] { Print(m_pDebuggee->GetConsole().Execute(strCommand).strText); });
            return json();
        });
}

json CViewSession::GetCells(const std::string& strExpression, bool bAll, size_t nWidth, size_t nHeight)
{
    return Ask(
        [=, this]
        {
            CDebugger& debugger = m_pDebuggee->RequireStop();
            if (strExpression.empty())
            {
                return MakeShades(ViewMask(debugger, nWidth, nHeight));
            }
            CExpression expression(strExpression, &debugger);
            GuessType(debugger, expression, debugger.GetSettings().eFormat);
            return MakeShades(ViewGrid(debugger, expression, bAll, nWidth, nHeight));
        });
}

json CViewSession::GetStatistics(const std::string& strExpression, bool bAll)
{
    return Ask(
        [=, this]
        {
            CDebugger& debugger = m_pDebuggee->RequireStop();
            CExpression expression(strExpression, &debugger);
            GuessType(debugger, expression, debugger.GetSettings().eFormat);
            return ViewStatistics(debugger, expression, bAll);
        });
}

json CViewSession::GetRow(const std::string& strExpression)
{
    const size_t nMost = 4096;
    return Ask(
        [=, this]
        {
            CDebugger& debugger = m_pDebuggee->RequireStop();
            CExpression expression(strExpression, &debugger);
            GuessType(debugger, expression, debugger.GetSettings().eFormat);
            return ViewRow(debugger, expression, nMost);
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

json CViewSession::ListVariables(CDebugger& debugger)
{
    json list = json::array();
    CSourceValues values(debugger);
    for (const SSourceVariable& variable : debugger.HasSource() ? values.List() : std::vector<SSourceVariable>())
    {
        std::string strValue;
        try
        {
            strValue = values.Format(values.Read(variable, debugger.GetFocus()), debugger.GetSettings().eFormat);
        }
        catch (const CCommandError& error)
        {
            strValue = error.what();
        }
        list.push_back({{"name", variable.strName}, {"type", variable.pType->strName}, {"value", strValue}});
    }
    return list;
}

void CViewSession::CountVisit(const json& stop)
{
    CDebugger* const pDebugger = m_pDebuggee->Find();
    if (pDebugger == nullptr)
    {
        return;
    }
    const std::optional<SSourceLine> place = pDebugger->GetSourceLine();
    SVisits& visits = place ? m_mapVisits[place->strFile][place->nLine] : m_mapVisits[std::string()][stop["line"]];
    ++visits.nStops;
    visits.fShares += stop["count"].get<double>() / stop["items"].get<double>();
}

/// Line, stops there, and the mean share of work-items that were active at them.
json CViewSession::ListVisits(const std::string& strFile) const
{
    json list = json::array();
    const auto it = m_mapVisits.find(strFile);
    for (const auto& line : it != m_mapVisits.end() ? it->second : std::map<unsigned int, SVisits>())
    {
        list.push_back({line.first, line.second.nStops, line.second.fShares / static_cast<double>(line.second.nStops)});
    }
    return list;
}

json CViewSession::DescribeStop(CDebugger& debugger)
{
    const std::optional<SSourceLine> place = debugger.GetSourceLine();
    json state = {{"line", place ? place->nLine : debugger.GetLine()},
                  {"file", place ? place->strFile : std::string()},
                  {"instruction", debugger.GetListing().GetLine(debugger.GetLine())},
                  {"reason", m_Stop.value("reason", "")},
                  {"function", debugger.GetFrames().front().strFunction},
                  {"active", debugger.CountActive()},
                  {"focus", ViewItem(debugger, debugger.GetFocus())},
                  {"variables", ListVariables(debugger)},
                  {"visits", ListVisits(place ? place->strFile : std::string())}};
    return state;
}

void CViewSession::Publish()
{
    json state = {{"busy", false}, {"live", false}, {"over", m_pDebuggee->IsOver()}};
    CDebugger* const pDebugger = m_pDebuggee->Find();
    if (pDebugger != nullptr)
    {
        state["kernel"] = pDebugger->GetLaunch().GetFile().strKernel;
        state["items"] = pDebugger->GetExtent().Count();
        state["local"] = pDebugger->GetExtent().nLocal;
        state["live"] = pDebugger->IsLive();
        try
        {
            state["stop"] = pDebugger->IsLive() ? DescribeStop(*pDebugger) : json();
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
        m_Stop = event;
        CountVisit(event);
    }
    if (event["event"] == "started" || event["event"] == "launch")
    {
        m_mapVisits.clear();
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
