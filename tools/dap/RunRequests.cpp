// A conversation's requests that make the kernel go on, and those about where it stops.

#include "tools/dap/Address.h"
#include "tools/dap/Conversation.h"
#include "tools/dap/Fields.h"
#include "tools/dap/Formatting.h"
#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/LineStepper.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

/// Whether steps go by instructions.
bool IsByInstruction(const json& arguments)
{
    return ReadText(arguments, "granularity", "statement") == "instruction";
}

} // namespace

json CConversation::GoOnLater(std::function<void(CDebugger&)> move)
{
    CDebugger& debugger = RequireStop();
    m_After = [move = std::move(move), &debugger] { move(debugger); };
    return nullptr;
}

json CConversation::DoContinue(const json& arguments)
{
    RequireThread(arguments);
    GoOnLater([this](CDebugger&) { m_pDebuggee->Continue(); });
    return {{"allThreadsContinued", true}};
}

json CConversation::DoNext(const json& arguments)
{
    RequireThread(arguments);
    return IsByInstruction(arguments) ? GoOnLater([](CDebugger& debugger) { debugger.Next(1); })
                                      : GoOnLater([](CDebugger& debugger) { CLineStepper(debugger).Next(1); });
}

json CConversation::DoStepIn(const json& arguments)
{
    RequireThread(arguments);
    return IsByInstruction(arguments) ? GoOnLater([](CDebugger& debugger) { debugger.Step(1); })
                                      : GoOnLater([](CDebugger& debugger) { CLineStepper(debugger).Step(1); });
}

/// Out of the kernel itself there is nothing but its end.
json CConversation::DoStepOut(const json& arguments)
{
    RequireThread(arguments);
    return GoOnLater(
        [this](CDebugger& debugger)
        {
            if (debugger.GetFrames().size() > 1)
            {
                CLineStepper(debugger).Finish();
                return;
            }
            m_pDebuggee->Continue();
        });
}

json CConversation::DoStepBack(const json& arguments)
{
    RequireThread(arguments);
    return IsByInstruction(arguments) ? GoOnLater([](CDebugger& debugger) { debugger.NextBack(1); })
                                      : GoOnLater([](CDebugger& debugger) { CLineStepper(debugger).NextBack(1); });
}

json CConversation::DoReverseContinue(const json& arguments)
{
    RequireThread(arguments);
    return GoOnLater([](CDebugger& debugger) { debugger.ContinueBack(1); });
}

// ---------------------------------------------------------------------------------------- breakpoints

json CConversation::DoSetBreakpoints(const json& arguments)
{
    return m_Breakpoints.SetLines(ReadObject(arguments, "source"), ReadObjects(arguments, "breakpoints"));
}

json CConversation::DoSetFunctionBreakpoints(const json& arguments)
{
    return m_Breakpoints.SetFunctions(ReadObjects(arguments, "breakpoints"));
}

json CConversation::DoSetInstructionBreakpoints(const json& arguments)
{
    return m_Breakpoints.SetInstructions(ReadObjects(arguments, "breakpoints"));
}

json CConversation::DoSetDataBreakpoints(const json& arguments)
{
    return m_Breakpoints.SetData(ReadObjects(arguments, "breakpoints"));
}

json CConversation::DoSetExceptionBreakpoints(const json& arguments)
{
    const std::vector<std::string> vFilters = ReadTexts(arguments, "filters");
    bool bFaults = false;
    std::vector<json> vWanted;
    for (const std::string& strFilter : vFilters)
    {
        const auto isNamed = [&](const auto& filter) { return strFilter == filter.first; };
        bFaults = bFaults || strFilter == "faults";
        if (std::any_of(std::begin(g_FaultFilters), std::end(g_FaultFilters), isNamed))
        {
            vWanted.push_back({{"filter", strFilter}});
        }
        else if (strFilter != "faults")
        {
            throw CRequestError("there is no exception filter " + strFilter);
        }
    }
    m_bFaultsStop = bFaults;
    json answer = m_Breakpoints.SetFaults(vWanted);
    // An answer has one for each filter, in their order; that of the faults is always there.
    const auto itFaults = std::find(vFilters.begin(), vFilters.end(), "faults");
    if (itFaults != vFilters.end())
    {
        json& list = answer["breakpoints"];
        list.insert(list.begin() + (itFaults - vFilters.begin()), json{{"verified", true}});
    }
    return answer;
}

/// Before the launch nothing is known of where there is code.
json CConversation::DoBreakpointLocations(const json& arguments)
{
    const json source = ReadObject(arguments, "source");
    const int64_t nFirst = ReadInteger(arguments, "line");
    const int64_t nLast = ReadInteger(arguments, "endLine", nFirst);
    json list = json::array();
    CDebugger* const pDebugger = m_pDebuggee != nullptr ? m_pDebuggee->Find() : nullptr;
    if (pDebugger != nullptr)
    {
        for (const unsigned int nLine : m_Sources.ListLines(*pDebugger, source))
        {
            const int nTold = m_Client.ToClientLine(nLine);
            if (nTold >= nFirst && nTold <= nLast)
            {
                list.push_back({{"line", nTold}});
            }
        }
    }
    return {{"breakpoints", list}};
}

/// Whether something can be watched is found out by watching it, at that moment.
json CConversation::DoDataBreakpointInfo(const json& arguments)
{
    CDebugger& debugger = RequireStop();
    const std::string strName = ReadText(arguments, "name");
    const int64_t nReference = ReadInteger(arguments, "variablesReference", 0);
    std::string strPath = strName;
    try
    {
        strPath = nReference != 0 ? m_Values.NamePath(debugger, nReference, strName) : strName;
        if (nReference == 0)
        {
            debugger.SelectFrame(FindFrame(debugger, ReadInteger(arguments, "frameId", 0)));
        }
        const IConsole::SAnswer answer =
            strPath.find_first_of("\r\n") == std::string::npos
                ? m_pDebuggee->GetConsole().Execute("awatch " + strPath)
                : IConsole::SAnswer{false, false, "what is watched has to be named on one line"};
        if (!answer.bGood)
        {
            return {{"dataId", nullptr}, {"description", TrimText(answer.strText)}};
        }
        m_pDebuggee->GetBreakpoints().Remove(m_pDebuggee->GetBreakpoints().GetAll().back().nId);
    }
    catch (const CRequestError& error)
    {
        return {{"dataId", nullptr}, {"description", error.what()}};
    }
    return {{"dataId", strPath},
            {"description", strPath},
            {"accessTypes", {"read", "write", "readWrite"}},
            {"canPersist", false}};
}

} // namespace KestrelTool
