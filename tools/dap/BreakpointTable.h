#ifndef KESTREL_TOOLS_DAP_BREAKPOINTTABLE_H
#define KESTREL_TOOLS_DAP_BREAKPOINTTABLE_H

#include "tools/dap/Channel.h"
#include "tools/dap/Client.h"
#include "tools/dap/Sources.h"
#include "tools/session/program/Debuggee.h"

#include <list>
#include <utility>

namespace KestrelTool
{

/// Checks of which a client may have stops in front of what they find, and what they are called.
const std::pair<const char*, const char*> g_FaultFilters[] = {
    {"memory", "Accesses outside memory"},
    {"race", "Races"},
    {"init", "Uses of what nobody wrote"},
    {"nan", "NaN, infinity and wrong integers"},
    {"barrier", "Barriers that part of a work-group misses"},
};

/// The breakpoints that a client wants, whether there is something debugged to set them in or not yet.
class CBreakpointTable
{
public:
    CBreakpointTable(CChannel& channel, CSources& sources, const SClient& client)
        : m_Channel(channel), m_Sources(sources), m_Client(client)
    {
    }

    // Each replaces those of its kind, and gives what has become of them as an answer's body.
    nlohmann::json SetLines(const nlohmann::json& source, const std::vector<nlohmann::json>& vWanted);
    nlohmann::json SetFunctions(const std::vector<nlohmann::json>& vWanted);
    nlohmann::json SetInstructions(const std::vector<nlohmann::json>& vWanted);
    nlohmann::json SetData(const std::vector<nlohmann::json>& vWanted);
    /// \param vWanted  [{"filter": CHECK}]
    nlohmann::json SetFaults(const std::vector<nlohmann::json>& vWanted);

    /// Sets all that have been wanted so far. Null for the end.
    void SetDebuggee(CDebuggee* pDebuggee);
    /// Tells the client of those that have got a place since it was told last.
    void TellChanges();
    /// The client's numbers of some of the session's breakpoints.
    std::vector<int> FindIds(const std::vector<unsigned int>& vIds) const;
    /// What kind of breakpoint has stopped, as an event's reason says it.
    const char* NameReason(const std::vector<unsigned int>& vIds) const;

private:
    enum EKind
    {
        Line,
        Function,
        Instruction,
        Data,
        Fault
    };

    struct SEntry
    {
        int nId = 0;
        EKind eKind = Line;
        nlohmann::json source; ///< of a line
        nlohmann::json wanted;
        unsigned int nBreakpoint = 0; ///< the session's number; 0 if it couldn't be set
        std::string strMessage;       ///< why it hasn't got a place
        bool bToldVerified = false;
    };

    nlohmann::json Replace(EKind eKind, const nlohmann::json& source, const std::vector<nlohmann::json>& vWanted);
    void Place(SEntry& entry);
    SBreakpoint& Add(const SEntry& entry);
    SBreakpoint& AddLine(const SEntry& entry);
    SBreakpoint& AddInstruction(const SEntry& entry);
    SBreakpoint& AddByCommand(const std::string& strCommand, const std::string& strWhat);
    SBreakpoint& AddAt(CDebugger& debugger, const std::set<unsigned int>& lines);
    void SetConditions(const SEntry& entry, SBreakpoint& breakpoint);
    std::string FormatLog(const std::string& strMessage);
    void Remove(const SEntry& entry);
    SBreakpoint* Find(const SEntry& entry);
    const SEntry* FindEntry(unsigned int nBreakpoint) const;
    nlohmann::json Describe(SEntry& entry);

    CChannel& m_Channel;
    CSources& m_Sources;
    const SClient& m_Client;
    CDebuggee* m_pDebuggee = nullptr;
    std::list<SEntry> m_Entries;
    int m_nLastId = 0;
};

/// Which hits count: "5", ">= 5", "> 5", "== 5" or "% 5"; a bare number is the first that counts.
/// \throws CRequestError
std::function<bool(size_t)> ReadHitCondition(const std::string& strText);

} // namespace KestrelTool

#endif
