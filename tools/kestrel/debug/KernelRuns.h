#ifndef KESTREL_TOOLS_DEBUG_KERNELRUNS_H
#define KESTREL_TOOLS_DEBUG_KERNELRUNS_H

#include "tools/kestrel/Libraries.h"

#include <cstdint>
#include <string>
#include <vector>

namespace KestrelTool
{

/// Looks over the debugger's shoulder: makes it call the runtime through a table that counts its
/// kernel runs and keeps the image of the program that it built last. One at a time in a process.
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
    /// The image of the last program made from a binary.
    std::vector<char> GetLastImage() const;

private:
    const CLibraries& m_Lib;
};

} // namespace KestrelTool

#endif
