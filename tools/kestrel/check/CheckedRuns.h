#ifndef KESTREL_TOOLS_CHECK_CHECKEDRUNS_H
#define KESTREL_TOOLS_CHECK_CHECKEDRUNS_H

#include "KestrelPlatform.h"
#include "tools/session/launch/Launch.h"

#include <string>
#include <vector>

namespace KestrelTool
{

/// What a run has been found to do wrong, and where its buffers were.
struct SCheckedRun
{
    std::vector<SPlatformFinding> vFindings;
    std::vector<SPlatformBuffer> vBuffers;
    SPlatformCheckLimits limits = {};
};

/// Checks kernel runs as long as it lives. Buffers whose bytes are to be followed are made meanwhile.
class CCheckedRuns
{
public:
    /// \param nChecks  a set of EPlatformCheck
    /// \param nLimit  instructions that a work-group may execute; one that comes to it is a finding
    /// \throws CPlatformError
    CCheckedRuns(const CLibraries& libraries, uint32_t nChecks, uint64_t nLimit);
    ~CCheckedRuns();
    CCheckedRuns(const CCheckedRuns&) = delete;
    CCheckedRuns& operator=(const CCheckedRuns&) = delete;

    /// \throws CPlatformError
    SCheckedRun Run(CLaunch& launch) const;

private:
    const SPlatformControl& m_Control;
};

/// The check that finds something, by its name.
const char* NameCheck(uint32_t nKind);

/// A check as users name it.
struct SCheckName
{
    const char* pszName;
    uint32_t nCheck;
    bool bDefault;
};
/// A program's own use of OpenCL, which isn't the platform's to check.
const uint32_t g_nCheckProgram = 0;
const std::vector<SCheckName>& ListChecks();

/// Instructions after which a work-group counts as one that hangs, if nobody says another number.
const uint64_t g_nUsualLimit = 1000000000;

} // namespace KestrelTool

#endif
