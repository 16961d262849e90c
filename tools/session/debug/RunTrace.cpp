#include "tools/session/debug/RunTrace.h"

#include "KestrelPlatform.h"
#include "tools/session/debug/PatchedLines.h"

#include <algorithm>
#include <exception>
#include <iterator>

namespace KestrelTool
{

namespace
{

/// Beginnings of instructions that lead elsewhere. A call is recorded when it has returned: who did that was last in
/// the function. Breaks are made of other instructions in some copies. What closes a block stays in a copy that ends
/// within it, so that all come to it on their way to the end.
const char* const s_PassedOver[] = {"call",    "whileloop", "break", "continue", "switch", "case",
                                    "default", "else",      "end",   "func",     "ret"};

} // namespace

CRunTrace::CRunTrace(const SPlatformControl& control, const CKernelRuns& runs, const CListing& listing, size_t nItems)
    : m_Control(control), m_Runs(runs), m_Listing(listing), m_vLast(nItems, CListing::NoLine)
{
    m_Control.SetTrace(&CRunTrace::OnRecord, this);
}

CRunTrace::~CRunTrace()
{
    m_Control.SetTrace(nullptr, nullptr);
}

void CRunTrace::OnRecord(const SPlatformTraceRecord* pRecord, void* pUser)
{
    CRunTrace& trace = *static_cast<CRunTrace*>(pUser);
    try
    {
        trace.Add(*pRecord);
    }
    catch (const std::exception&)
    {
        trace.m_vLines.clear(); // without memory nothing is known
    }
}

bool CRunTrace::IsCounted(const std::string& strMnemonic)
{
    return std::none_of(std::begin(s_PassedOver), std::end(s_PassedOver),
                        [&](const std::string& strBeginning)
                        { return strMnemonic.compare(0, strBeginning.size(), strBeginning) == 0; });
}

void CRunTrace::Begin()
{
    const CPatchedLines lines(m_Listing, m_Runs.GetLastImage());
    m_vLines.resize(lines.GetCount());
    for (uint32_t n = 0; n < m_vLines.size(); ++n)
    {
        const unsigned int nLine = lines.Find(n);
        m_vLines[n] = nLine != CListing::NoLine && IsCounted(m_Listing.GetMnemonic(nLine)) ? nLine : CListing::NoLine;
    }
    m_vLast.assign(m_vLast.size(), CListing::NoLine);
}

void CRunTrace::Add(const SPlatformTraceRecord& record)
{
    const uint64_t nRun = m_Runs.GetCount();
    if (m_vLines.empty() || m_nRun != nRun)
    {
        m_nRun = nRun;
        Begin();
    }
    const unsigned int nLine = record.nInstruction < m_vLines.size() ? m_vLines[record.nInstruction] : CListing::NoLine;
    for (uint32_t n = 0; n < record.nItems && nLine != CListing::NoLine; ++n)
    {
        if (record.pActive[n] != 0 && record.pItems[n] < m_vLast.size())
        {
            m_vLast[record.pItems[n]] = nLine;
        }
    }
}

} // namespace KestrelTool
