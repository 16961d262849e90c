#ifndef KESTREL_TOOLS_DEBUG_RUNTRACE_H
#define KESTREL_TOOLS_DEBUG_RUNTRACE_H

#include "tools/session/debug/KernelRuns.h"
#include "tools/session/launch/Listing.h"

#include <string>
#include <vector>

struct SPlatformTraceRecord;

namespace KestrelTool
{

/// While it exists, the platform traces the debugger's kernel runs: at which line of IL each work-item was active last.
class CRunTrace
{
public:
    /// \param listing  the kernel's text
    CRunTrace(const SPlatformControl& control, const CKernelRuns& runs, const CListing& listing, size_t nItems);
    ~CRunTrace();
    CRunTrace(const CRunTrace&) = delete;
    CRunTrace& operator=(const CRunTrace&) = delete;

    /// Whether work-items are at an instruction last.
    static bool IsCounted(const std::string& strMnemonic);

    bool HasRun() const { return !m_vLines.empty(); }
    /// Of the latest run, by work-item; NoLine for one that was active nowhere.
    const std::vector<unsigned int>& GetLines() const { return m_vLast; }

private:
    static void OnRecord(const SPlatformTraceRecord* pRecord, void* pUser);
    void Begin();
    void Add(const SPlatformTraceRecord& record);

    const SPlatformControl& m_Control;
    const CKernelRuns& m_Runs;
    const CListing& m_Listing;
    uint64_t m_nRun = 0;
    std::vector<unsigned int> m_vLines; ///< of the latest run's instructions
    std::vector<unsigned int> m_vLast;
};

} // namespace KestrelTool

#endif
