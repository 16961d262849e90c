// A conversation's requests about what there is to see at a stop.

#include "tools/dap/Address.h"
#include "tools/dap/Conversation.h"
#include "tools/dap/Fields.h"
#include "tools/dap/Formatting.h"
#include "tools/session/debug/CommandError.h"
#include "tools/session/debug/Views.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

const int s_nFramesOfStop = 1024; ///< numbers of frames that one stop may use
const int s_nStopsCounted = 1 << 20;

json DescribeInstruction(CDebugger& debugger, CSources& sources, const SClient& client, unsigned int nLine)
{
    const CListing& listing = debugger.GetListing();
    json instruction = {{"address", MakeInstructionAddress(nLine)}, {"instruction", TrimText(listing.GetLine(nLine))}};
    const CSources::SPlace place = sources.FindInstruction(debugger, nLine);
    instruction["location"] = place.source;
    instruction["line"] = client.ToClientLine(place.nLine);
    const CCodeMap::SFunction* const pFunction = debugger.GetCode().FindFunction(nLine);
    if (pFunction != nullptr && pFunction->nEntry == nLine && !pFunction->strName.empty())
    {
        instruction["symbol"] = pFunction->strName;
    }
    return instruction;
}

std::vector<unsigned int> ListInstructions(const CListing& listing)
{
    std::vector<unsigned int> vLines;
    for (unsigned int nLine = 0; nLine < listing.GetLineCount(); ++nLine)
    {
        if (listing.IsInstruction(nLine))
        {
            vLines.push_back(nLine);
        }
    }
    return vLines;
}

size_t ReadItem(const json& arguments, const SExtent& extent)
{
    const json item = arguments.value("item", json());
    if (item.is_number_integer())
    {
        return ReadCount(arguments, "item", 0);
    }
    size_t nItem = 0;
    for (size_t n = item.is_array() ? std::min<size_t>(item.size(), 3) : 0; n-- > 0;)
    {
        if (!item[n].is_number_unsigned() || item[n] < extent.nOffset[n] ||
            item[n].get<size_t>() - extent.nOffset[n] >= extent.nGlobal[n])
        {
            throw CRequestError("the dispatch has no such work-item");
        }
        nItem = nItem * extent.nGlobal[n] + item[n].get<size_t>() - extent.nOffset[n];
    }
    if (!item.is_array() || item.empty() || item.size() > 3)
    {
        throw CRequestError("the argument item has to be a work-item's number, or its place as a list");
    }
    return nItem;
}

} // namespace

CDebugger& CConversation::RequireStop()
{
    if (m_pDebuggee == nullptr)
    {
        throw CRequestError("launch comes first");
    }
    return m_pDebuggee->RequireStop();
}

void CConversation::RequireThread(const json& arguments) const
{
    const int64_t nThread = ReadInteger(arguments, "threadId");
    if (nThread != m_nThread || !m_bThread)
    {
        throw CRequestError("there is no thread " + std::to_string(nThread));
    }
}

/// \param nFrameId  0 for the innermost frame
size_t CConversation::FindFrame(CDebugger& debugger, int64_t nFrameId) const
{
    const int64_t nFirst = static_cast<int64_t>(m_nStops % s_nStopsCounted) * s_nFramesOfStop + 1;
    if (nFrameId == 0)
    {
        return 0;
    }
    if (nFrameId < nFirst || nFrameId - nFirst >= static_cast<int64_t>(debugger.GetFrames().size()))
    {
        throw CRequestError("this frame is of an earlier stop, or of none");
    }
    return static_cast<size_t>(nFrameId - nFirst);
}

EFormat CConversation::ReadFormatOf(const json& arguments)
{
    return ReadFlag(ReadObject(arguments, "format"), "hex", false) ? EFormat::Hex : RequireStop().GetSettings().eFormat;
}

json CConversation::DoThreads(const json&)
{
    CDebugger* const pDebugger = m_pDebuggee != nullptr ? m_pDebuggee->Find() : nullptr;
    if (pDebugger == nullptr || !pDebugger->IsLive())
    {
        return {{"threads", json::array()}};
    }
    const std::string strName = pDebugger->GetLaunch().GetFile().strKernel + ", work-item " +
                                NameItem(pDebugger->GetExtent(), pDebugger->GetFocus());
    return {{"threads", {{{"id", m_nThread}, {"name", strName}}}}};
}

json CConversation::DoStackTrace(const json& arguments)
{
    RequireThread(arguments);
    CDebugger& debugger = RequireStop();
    const std::vector<SFrame> vFrames = debugger.GetFrames();
    const size_t nStart = std::min(ReadCount(arguments, "startFrame", 0), vFrames.size());
    const size_t nLevels = ReadCount(arguments, "levels", 0);
    const size_t nEnd = nLevels == 0 ? vFrames.size() : nStart + std::min(nLevels, vFrames.size() - nStart);
    json list = json::array();
    for (size_t n = nStart; n < nEnd; ++n)
    {
        const CSources::SPlace place = m_Sources.FindPlace(debugger, vFrames[n]);
        const std::string& strKernel = debugger.GetLaunch().GetFile().strKernel;
        list.push_back(
            {{"id", static_cast<int>(m_nStops % s_nStopsCounted) * s_nFramesOfStop + static_cast<int>(n) + 1},
             {"name", vFrames[n].strFunction.empty() ? strKernel : vFrames[n].strFunction},
             {"source", place.source},
             {"line", m_Client.ToClientLine(place.nLine)},
             {"column", m_Client.GetFirstColumn()},
             {"instructionPointerReference", MakeInstructionAddress(vFrames[n].nLine)}});
    }
    return {{"stackFrames", list}, {"totalFrames", vFrames.size()}};
}

json CConversation::DoScopes(const json& arguments)
{
    CDebugger& debugger = RequireStop();
    const int64_t nFrameId = ReadInteger(arguments, "frameId");
    if (nFrameId == 0)
    {
        throw CRequestError("there is no frame 0");
    }
    return m_Values.ListScopes(debugger, FindFrame(debugger, nFrameId));
}

json CConversation::DoVariables(const json& arguments)
{
    CDebugger& debugger = RequireStop();
    CValues::SPage page;
    const std::string strFilter = ReadText(arguments, "filter", "");
    page.bNamed = strFilter != "indexed";
    page.bIndexed = strFilter != "named";
    page.nStart = ReadCount(arguments, "start", 0);
    page.nCount = ReadCount(arguments, "count", 0);
    page.eFormat = ReadFormatOf(arguments);
    return {{"variables", m_Values.List(debugger, ReadInteger(arguments, "variablesReference"), page)}};
}

json CConversation::DoEvaluate(const json& arguments)
{
    const std::string strText = ReadText(arguments, "expression");
    const std::string strContext = ReadText(arguments, "context", "");
    const int64_t nFrameId = ReadInteger(arguments, "frameId", 0);
    CDebugger* const pDebugger = m_pDebuggee->Find();
    const bool bLive = pDebugger != nullptr && pDebugger->IsLive();
    if (bLive)
    {
        pDebugger->SelectFrame(FindFrame(*pDebugger, nFrameId));
    }
    if (strContext == "repl")
    {
        return ExecuteCommand(strText);
    }
    CDebugger& debugger = RequireStop();
    return m_Values.Evaluate(debugger, debugger.GetFrame(), strText, ReadFormatOf(arguments));
}

/// A line of the console's: a command, or else an expression.
json CConversation::ExecuteCommand(const std::string& strText)
{
    const IConsole::SAnswer answer = m_pDebuggee->GetConsole().Execute(strText);
    if (answer.bQuit)
    {
        m_After = [this]
        {
            m_pDebuggee->Kill();
            m_eStage == Running ? SendEnd() : m_Channel.Tell("terminated", json::object());
            m_eStage = Over;
        };
    }
    CDebugger* const pDebugger = m_pDebuggee->Find();
    if (!answer.bGood && pDebugger != nullptr && pDebugger->IsLive())
    {
        try
        {
            return m_Values.Evaluate(*pDebugger, pDebugger->GetFrame(), strText, pDebugger->GetSettings().eFormat);
        }
        catch (const CCommandError&)
        {
            // It is no expression either; what the command says counts.
        }
    }
    const std::string strResult = TrimText(answer.strText);
    if (!answer.bGood)
    {
        throw CRequestError(strResult);
    }
    return {{"result", strResult}, {"variablesReference", 0}};
}

json CConversation::DoCompletions(const json& arguments)
{
    const std::string strText = ReadText(arguments, "text");
    const int64_t nColumn = ReadInteger(arguments, "column") - m_Client.GetFirstColumn();
    const std::string strLine =
        strText.substr(0, static_cast<size_t>(std::clamp<int64_t>(nColumn, 0, static_cast<int64_t>(strText.size()))));
    std::string strWord;
    json list = json::array();
    for (const std::string& strChoice : m_pDebuggee->GetConsole().Complete(strLine, strWord))
    {
        list.push_back({{"label", strChoice},
                        {"start", strLine.size() - strWord.size() + static_cast<size_t>(m_Client.GetFirstColumn())},
                        {"length", strWord.size()}});
    }
    return {{"targets", list}};
}

json CConversation::DoSource(const json& arguments)
{
    const json source = ReadObject(arguments, "source");
    const int64_t nReference = ReadInteger(source, "sourceReference", ReadInteger(arguments, "sourceReference", 0));
    return {{"content", m_Sources.GetText(nReference)}, {"mimeType", "text/x-opencl-src"}};
}

json CConversation::DoLoadedSources(const json&)
{
    CDebugger* const pDebugger = m_pDebuggee != nullptr ? m_pDebuggee->Find() : nullptr;
    return {{"sources", pDebugger != nullptr ? m_Sources.List(*pDebugger) : json::array()}};
}

json CConversation::DoDisassemble(const json& arguments)
{
    CDebugger& debugger = RequireStop();
    const size_t nMost = 100000;
    const size_t nCount = ReadCount(arguments, "instructionCount", 0);
    if (nCount > nMost)
    {
        throw CRequestError("that many instructions at once are too many");
    }
    const unsigned int nLine =
        ReadInstructionAddress(ReadText(arguments, "memoryReference"), ReadInteger(arguments, "offset", 0));
    const std::vector<unsigned int> vLines = ListInstructions(debugger.GetListing());
    const int64_t nFirst = std::lower_bound(vLines.begin(), vLines.end(), nLine) - vLines.begin() +
                           ReadInteger(arguments, "instructionOffset", 0);
    json list = json::array();
    for (int64_t n = nFirst; n < nFirst + static_cast<int64_t>(nCount); ++n)
    {
        if (n >= 0 && n < static_cast<int64_t>(vLines.size()))
        {
            list.push_back(DescribeInstruction(debugger, m_Sources, m_Client, vLines[static_cast<size_t>(n)]));
            continue;
        }
        const int64_t nBeyond = n < 0 ? n
                                      : static_cast<int64_t>(debugger.GetListing().GetLineCount()) + n -
                                            static_cast<int64_t>(vLines.size());
        list.push_back(
            {{"address", MakeInstructionAddress(nBeyond)}, {"instruction", ""}, {"presentationHint", "invalid"}});
    }
    return {{"instructions", list}};
}

json CConversation::DoReadMemory(const json& arguments)
{
    CDebugger& debugger = RequireStop();
    const size_t nMost = 16 << 20;
    const size_t nCount = ReadCount(arguments, "count", 0);
    if (nCount > nMost)
    {
        throw CRequestError("that much memory at once is too much");
    }
    const SMemoryBytes memory =
        ReadReference(debugger, ReadText(arguments, "memoryReference"), ReadInteger(arguments, "offset", 0), nCount);
    json body = {{"address", FormatHex(memory.nAddress)}, {"data", EncodeBase64(memory.vBytes)}};
    if (memory.vBytes.size() < nCount)
    {
        body["unreadableBytes"] = nCount - memory.vBytes.size();
    }
    return body;
}

json CConversation::DoExceptionInfo(const json& arguments)
{
    RequireThread(arguments);
    RequireStop();
    if (!m_LastStop.contains("faults"))
    {
        throw CRequestError("this stop has no faults");
    }
    json event = m_LastStop;
    const std::string strText = m_pDebuggee->GetConsole().Render(event);
    return {{"exceptionId", "faults"},
            {"description", strText},
            {"breakMode", m_bFaultsStop ? "always" : "never"},
            {"details", {{"message", strText}}}};
}

// ---------------------------------------------------------------------------------------- views

json CConversation::DoGrid(const json& arguments)
{
    CDebugger& debugger = RequireStop();
    CExpression expression(ReadText(arguments, "expression"), &debugger);
    GuessType(debugger, expression, ReadFormatOf(arguments));
    return ViewGrid(debugger, expression, ReadFlag(arguments, "all", false),
                    std::clamp<size_t>(ReadCount(arguments, "width", 64), 1, 4096),
                    std::clamp<size_t>(ReadCount(arguments, "height", 64), 1, 4096));
}

json CConversation::DoMask(const json& arguments)
{
    return ViewMask(RequireStop(), std::clamp<size_t>(ReadCount(arguments, "width", 64), 1, 4096),
                    std::clamp<size_t>(ReadCount(arguments, "height", 64), 1, 4096));
}

json CConversation::DoFocus(const json& arguments)
{
    CDebugger& debugger = RequireStop();
    debugger.SetFocus(ReadItem(arguments, debugger.GetExtent()));
    if (m_Client.bInvalidated)
    {
        m_After = [this] { m_Channel.Tell("invalidated", {{"areas", {"threads", "stacks", "variables"}}}); };
    }
    return ViewItem(debugger, debugger.GetFocus());
}

} // namespace KestrelTool
