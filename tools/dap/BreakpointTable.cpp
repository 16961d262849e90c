#include "tools/dap/BreakpointTable.h"

#include "tools/dap/Address.h"
#include "tools/dap/Fields.h"
#include "tools/dap/Formatting.h"
#include "tools/session/debug/CommandError.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace KestrelTool
{

using nlohmann::json;

namespace
{

/// What an access of a data breakpoint is at the prompt.
const std::pair<const char*, const char*> s_WatchCommands[] = {
    {"write", "watch"}, {"read", "rwatch"}, {"readWrite", "awatch"}};

std::string NameWatchCommand(const json& wanted)
{
    const std::string strAccess = ReadText(wanted, "accessType", "write");
    for (const auto& command : s_WatchCommands)
    {
        if (strAccess == command.first)
        {
            return command.second;
        }
    }
    throw CRequestError("there is no access type " + strAccess);
}

/// A word that goes into a command: it has to stay one.
std::string RequireWord(const std::string& strText)
{
    if (strText.empty() || strText.find_first_of(" \t\r\n") != std::string::npos)
    {
        throw CRequestError("a function's name is one word");
    }
    return strText;
}

std::string RequireOneLine(const std::string& strText)
{
    if (strText.empty() || strText.find_first_of("\r\n") != std::string::npos)
    {
        throw CRequestError("what is watched has to be named on one line");
    }
    return strText;
}

} // namespace

std::function<bool(size_t)> ReadHitCondition(const std::string& strText)
{
    const size_t nDigit = strText.find_first_of("0123456789");
    std::string strSign = strText.substr(0, std::min(nDigit, strText.size()));
    strSign.erase(std::remove(strSign.begin(), strSign.end(), ' '), strSign.end());
    std::string strDigits = nDigit == std::string::npos ? "" : strText.substr(nDigit);
    strDigits.erase(strDigits.find_last_not_of(' ') + 1);
    const size_t nMaxDigits = 9;
    const size_t nHits = strDigits.empty() || strDigits.size() > nMaxDigits ||
                                 strDigits.find_first_not_of("0123456789") != std::string::npos
                             ? 0
                             : std::stoul(strDigits);
    if (nHits != 0 && (strSign.empty() || strSign == ">="))
    {
        return [nHits](size_t n) { return n >= nHits; };
    }
    if (nHits != 0 && strSign == ">")
    {
        return [nHits](size_t n) { return n > nHits; };
    }
    if (nHits != 0 && (strSign == "==" || strSign == "="))
    {
        return [nHits](size_t n) { return n == nHits; };
    }
    if (nHits != 0 && strSign == "%")
    {
        return [nHits](size_t n) { return n % nHits == 0; };
    }
    throw CRequestError("a hit condition is a number from 1, with >=, >, == or % before it or without");
}

json CBreakpointTable::SetLines(const json& source, const std::vector<json>& vWanted)
{
    m_Sources.NameFile(source);
    for (const json& wanted : vWanted)
    {
        ReadInteger(wanted, "line");
    }
    return Replace(Line, source, vWanted);
}

json CBreakpointTable::SetFunctions(const std::vector<json>& vWanted)
{
    return Replace(Function, nullptr, vWanted);
}

json CBreakpointTable::SetInstructions(const std::vector<json>& vWanted)
{
    return Replace(Instruction, nullptr, vWanted);
}

json CBreakpointTable::SetData(const std::vector<json>& vWanted)
{
    return Replace(Data, nullptr, vWanted);
}

json CBreakpointTable::SetFaults(const std::vector<json>& vWanted)
{
    return Replace(Fault, nullptr, vWanted);
}

/// One that is wanted as before stays, with its hits.
json CBreakpointTable::Replace(EKind eKind, const json& source, const std::vector<json>& vWanted)
{
    std::list<SEntry> old;
    for (auto it = m_Entries.begin(); it != m_Entries.end();)
    {
        const auto itNext = std::next(it);
        if (it->eKind == eKind && (eKind != Line || it->source == source))
        {
            old.splice(old.end(), m_Entries, it);
        }
        it = itNext;
    }
    json list = json::array();
    for (const json& wanted : vWanted)
    {
        const auto itOld =
            std::find_if(old.begin(), old.end(),
                         [&](const SEntry& entry) { return entry.wanted == wanted && entry.nBreakpoint != 0; });
        if (itOld != old.end())
        {
            m_Entries.splice(m_Entries.end(), old, itOld);
        }
        else
        {
            m_Entries.emplace_back();
            m_Entries.back().nId = ++m_nLastId;
            m_Entries.back().eKind = eKind;
            m_Entries.back().source = source;
            m_Entries.back().wanted = wanted;
            Place(m_Entries.back());
        }
        list.push_back(Describe(m_Entries.back()));
    }
    for (const SEntry& entry : old)
    {
        Remove(entry);
    }
    return {{"breakpoints", list}};
}

void CBreakpointTable::SetDebuggee(CDebuggee* pDebuggee)
{
    m_pDebuggee = pDebuggee;
    for (SEntry& entry : m_Entries)
    {
        entry.nBreakpoint = 0;
        Place(entry);
    }
}

void CBreakpointTable::Place(SEntry& entry)
{
    entry.strMessage = "set when the launch is there";
    if (m_pDebuggee == nullptr || m_pDebuggee->GetOptions().bNoDebug)
    {
        return;
    }
    entry.strMessage.clear();
    try
    {
        SBreakpoint& breakpoint = Add(entry);
        entry.nBreakpoint = breakpoint.nId;
        SetConditions(entry, breakpoint);
        if (breakpoint.lines.empty())
        {
            entry.strMessage = "set when a kernel is launched that has code here";
        }
        return;
    }
    catch (const CRequestError& error)
    {
        entry.strMessage = error.what();
    }
    catch (const CCommandError& error)
    {
        entry.strMessage = error.what();
    }
    Remove(entry);
    entry.nBreakpoint = 0;
}

SBreakpoint& CBreakpointTable::Add(const SEntry& entry)
{
    switch (entry.eKind)
    {
    case Function:
        return AddByCommand("break", RequireWord(ReadText(entry.wanted, "name")));
    case Data:
        return AddByCommand(NameWatchCommand(entry.wanted), RequireOneLine(ReadText(entry.wanted, "dataId")));
    case Fault:
        return AddByCommand("stop on", RequireWord(ReadText(entry.wanted, "filter")));
    case Instruction:
        return AddInstruction(entry);
    default:
        return AddLine(entry);
    }
}

SBreakpoint& CBreakpointTable::AddAt(CDebugger& debugger, const std::set<unsigned int>& lines)
{
    if (debugger.IsLive() && !debugger.GetSession().SetBreakpoints(lines).empty())
    {
        throw CRequestError("this line can hold no breakpoint");
    }
    return m_pDebuggee->GetBreakpoints().Add(lines, false);
}

SBreakpoint& CBreakpointTable::AddLine(const SEntry& entry)
{
    const auto nLine =
        static_cast<unsigned int>(std::max(0LL, m_Client.FromClientLine(ReadInteger(entry.wanted, "line"))));
    CDebugger* const pDebugger = m_pDebuggee->Find();
    CSources::SCode code;
    if (pDebugger != nullptr)
    {
        code = m_Sources.FindCode(*pDebugger, entry.source, nLine);
    }
    if (m_pDebuggee->GetProgram() != nullptr &&
        (code.lines.empty() || !pDebugger->GetListing().GetPlace(*code.lines.begin()).empty()))
    {
        SLaunchPlace place;
        place.eKind = SLaunchPlace::Source;
        place.strFile = m_Sources.NameFile(entry.source);
        place.nLine = nLine;
        return m_pDebuggee->GetProgram()->AddBreakpoint(place, false);
    }
    if (code.lines.empty())
    {
        throw CRequestError("the kernel has no code at this line or after it");
    }
    return AddAt(*pDebugger, code.lines);
}

SBreakpoint& CBreakpointTable::AddInstruction(const SEntry& entry)
{
    CDebugger* const pDebugger = m_pDebuggee->Find();
    const unsigned int nLine =
        ReadInstructionAddress(ReadText(entry.wanted, "instructionReference"), ReadInteger(entry.wanted, "offset", 0));
    if (pDebugger == nullptr || !pDebugger->GetListing().IsInstruction(nLine))
    {
        throw CRequestError("there is no instruction at this address");
    }
    return AddAt(*pDebugger, {nLine});
}

/// As at the prompt, whose commands know what a name means.
SBreakpoint& CBreakpointTable::AddByCommand(const std::string& strCommand, const std::string& strWhat)
{
    const IConsole::SAnswer answer = m_pDebuggee->GetConsole().Execute(strCommand + " " + strWhat);
    if (!answer.bGood)
    {
        throw CRequestError(TrimText(answer.strText));
    }
    return m_pDebuggee->GetBreakpoints().GetAll().back();
}

void CBreakpointTable::SetConditions(const SEntry& entry, SBreakpoint& breakpoint)
{
    const std::string strCondition = ReadText(entry.wanted, "condition", "");
    if (!strCondition.empty() && m_pDebuggee->Find() != nullptr)
    {
        CExpression(strCondition, m_pDebuggee->Find());
    }
    breakpoint.strCondition = strCondition;
    const std::string strHits = ReadText(entry.wanted, "hitCondition", "");
    const std::string strLog = ReadText(entry.wanted, "logMessage", "");
    if (strHits.empty() && strLog.empty())
    {
        return;
    }
    const std::function<bool(size_t)> counts =
        strHits.empty() ? [](size_t) { return true; } : ReadHitCondition(strHits);
    breakpoint.isWanted = [this, counts, strLog](const SBreakpoint& hit)
    {
        if (counts(hit.nHits) && !strLog.empty())
        {
            m_Channel.Print("console", FormatLog(strLog) + "\n");
        }
        return counts(hit.nHits) && strLog.empty();
    };
}

/// A text with the values of expressions in braces, of the work-item in focus.
std::string CBreakpointTable::FormatLog(const std::string& strMessage)
{
    std::string strText;
    for (size_t nStart = 0; nStart < strMessage.size();)
    {
        const size_t nOpen = std::min(strMessage.find('{', nStart), strMessage.size());
        const size_t nClose = strMessage.find('}', nOpen);
        strText += strMessage.substr(nStart, nOpen - nStart);
        if (nClose == std::string::npos)
        {
            return strText + strMessage.substr(nOpen);
        }
        try
        {
            CDebugger& debugger = m_pDebuggee->RequireStop();
            strText += FormatExpression(debugger, strMessage.substr(nOpen + 1, nClose - nOpen - 1));
        }
        catch (const std::runtime_error& error)
        {
            strText += std::string("<") + error.what() + ">";
        }
        nStart = nClose + 1;
    }
    return strText;
}

SBreakpoint* CBreakpointTable::Find(const SEntry& entry)
{
    if (m_pDebuggee == nullptr || entry.nBreakpoint == 0)
    {
        return nullptr;
    }
    for (SBreakpoint& breakpoint : m_pDebuggee->GetBreakpoints().GetAll())
    {
        if (breakpoint.nId == entry.nBreakpoint)
        {
            return &breakpoint;
        }
    }
    return nullptr;
}

/// The user may have done that at the prompt.
void CBreakpointTable::Remove(const SEntry& entry)
{
    if (const SBreakpoint* pBreakpoint = Find(entry))
    {
        m_pDebuggee->GetBreakpoints().Remove(pBreakpoint->nId);
    }
}

json CBreakpointTable::Describe(SEntry& entry)
{
    const SBreakpoint* const pBreakpoint = Find(entry);
    CDebugger* const pDebugger = pBreakpoint != nullptr ? m_pDebuggee->Find() : nullptr;
    const bool bVerified = pDebugger != nullptr && !pBreakpoint->lines.empty();
    json description = {{"id", entry.nId}, {"verified", bVerified}};
    entry.bToldVerified = bVerified;
    if (bVerified)
    {
        const unsigned int nLine = *pBreakpoint->lines.begin();
        const CSources::SPlace place = m_Sources.FindInstruction(*pDebugger, nLine);
        description["source"] = entry.eKind == Line ? entry.source : place.source;
        description["line"] = m_Client.ToClientLine(place.nLine);
        description["instructionReference"] = MakeInstructionAddress(nLine);
        // A breakpoint in the kernel's IL is shown there, though the instruction comes from the source.
        if (entry.eKind == Line && place.source.value("path", "") != entry.source.value("path", "") &&
            place.source.value("sourceReference", 0) != entry.source.value("sourceReference", 0))
        {
            description["line"] = entry.wanted["line"];
        }
        return description;
    }
    if (!entry.strMessage.empty())
    {
        description["message"] = entry.strMessage;
    }
    if (entry.eKind == Line)
    {
        description["source"] = entry.source;
        description["line"] = entry.wanted["line"];
    }
    return description;
}

void CBreakpointTable::TellChanges()
{
    for (SEntry& entry : m_Entries)
    {
        const SBreakpoint* const pBreakpoint = Find(entry);
        if (!entry.bToldVerified && pBreakpoint != nullptr && !pBreakpoint->lines.empty() &&
            m_pDebuggee->Find() != nullptr)
        {
            m_Channel.Tell("breakpoint", {{"reason", "changed"}, {"breakpoint", Describe(entry)}});
        }
    }
}

const CBreakpointTable::SEntry* CBreakpointTable::FindEntry(unsigned int nBreakpoint) const
{
    const auto it = std::find_if(m_Entries.begin(), m_Entries.end(),
                                 [&](const SEntry& entry) { return entry.nBreakpoint == nBreakpoint; });
    return it != m_Entries.end() ? &*it : nullptr;
}

std::vector<int> CBreakpointTable::FindIds(const std::vector<unsigned int>& vIds) const
{
    std::vector<int> vFound;
    for (const unsigned int nId : vIds)
    {
        if (const SEntry* pEntry = FindEntry(nId))
        {
            vFound.push_back(pEntry->nId);
        }
    }
    return vFound;
}

const char* CBreakpointTable::NameReason(const std::vector<unsigned int>& vIds) const
{
    static const char* const s_Reasons[] = {"breakpoint", "function breakpoint", "instruction breakpoint",
                                            "data breakpoint", "exception"};
    const SEntry* const pEntry = vIds.empty() ? nullptr : FindEntry(vIds.front());
    return s_Reasons[pEntry != nullptr ? pEntry->eKind : Line];
}

} // namespace KestrelTool
