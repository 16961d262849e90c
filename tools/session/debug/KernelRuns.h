#ifndef KESTREL_TOOLS_DEBUG_KERNELRUNS_H
#define KESTREL_TOOLS_DEBUG_KERNELRUNS_H

#include "tools/session/launch/Libraries.h"

#include <cstdint>
#include <string>
#include <vector>

struct SPlatformControl;

namespace KestrelTool
{

/// Observes the debugger: makes it call the runtime through a table that counts its kernel runs, keeps the image of the
/// last program that it built and what it read after its first runs, and can refuse further runs. Only one per process.
class CKernelRuns
{
public:
    explicit CKernelRuns(const CLibraries& libraries);
    ~CKernelRuns();
    CKernelRuns(const CKernelRuns&) = delete;
    CKernelRuns& operator=(const CKernelRuns&) = delete;

    /// How many kernel runs the debugger has made.
    uint64_t GetCount() const;
    /// The total time of the runs from enqueue to end, in seconds, measured at the runtime's waits.
    double GetSeconds() const;
    /// The time of the longest run, in seconds.
    double GetLongestSeconds() const;
    /// How long the current run has taken so far; 0 if there is none.
    double GetRunningSeconds() const;
    /// The image of the last program that was created from a binary.
    std::vector<char> GetLastImage() const;

    /// Refuses kernel runs, so that the debugger's work comes to an end, or allows them again.
    void Refuse(bool bRefuse);
    /// Makes the platform count how many work-items reach each instruction of the unpatched kernel, whether the
    /// debugger or the runtime runs it. Patched copies aren't counted; they are known by having more arguments.
    /// \param pControl  null to stop counting
    void CountPlainRuns(const SPlatformControl* pControl, cl_uint nArguments);
    /// Keeps a copy of small buffers that the debugger maps for reading during its next few kernel runs.
    void WatchFirstRuns();
    /// Those copies. Early in a session, a run copies the kernel's arguments to where the debugger can read them.
    std::vector<std::vector<unsigned char>> GetFirstReads() const;

private:
    const CLibraries& m_Lib;
    const cl_icd_dispatch_table m_Noting; ///< what the counting calls pass calls on to
};

} // namespace KestrelTool

#endif
