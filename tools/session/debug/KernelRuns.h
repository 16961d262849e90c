#ifndef KESTREL_TOOLS_DEBUG_KERNELRUNS_H
#define KESTREL_TOOLS_DEBUG_KERNELRUNS_H

#include "tools/session/launch/Libraries.h"

#include <cstdint>
#include <string>
#include <vector>

struct SPlatformControl;

namespace KestrelTool
{

/// Looks over the debugger's shoulder: makes it call the runtime through a table that counts its
/// kernel runs, keeps the image of the program that it built last and what it has read of its first runs, and
/// can refuse further runs. One at a time in a process.
class CKernelRuns
{
public:
    explicit CKernelRuns(const CLibraries& libraries);
    ~CKernelRuns();
    CKernelRuns(const CKernelRuns&) = delete;
    CKernelRuns& operator=(const CKernelRuns&) = delete;

    /// Kernel runs of the debugger so far.
    uint64_t GetCount() const;
    /// Seconds from enqueue to end that the runs have taken, as the runtime's waits show them.
    double GetSeconds() const;
    /// Seconds of the longest one.
    double GetLongestSeconds() const;
    /// How long the present run has been under way; 0 without one.
    double GetRunningSeconds() const;
    /// The image of the last program made from a binary.
    std::vector<char> GetLastImage() const;

    /// Refuses kernel runs from now on, so that the debugger's work comes to an end; or no longer.
    void Refuse(bool bRefuse);
    /// From now on the platform counts who comes to each instruction of the kernel as it is, be it run by the debugger
    /// or by the runtime, but not of patched copies, which have more arguments.
    /// \param pControl  null ends it
    void CountPlainRuns(const SPlatformControl* pControl, cl_uint nArguments);
    /// Keeps what small buffers hold that the debugger maps for reading during its next few kernel runs.
    void WatchFirstRuns();
    /// What has been kept. Early in a session a run copies the kernel's arguments to where the debugger reads them.
    std::vector<std::vector<unsigned char>> GetFirstReads() const;

private:
    const CLibraries& m_Lib;
    const cl_icd_dispatch_table m_Noting; ///< what the counting calls go on to
};

} // namespace KestrelTool

#endif
