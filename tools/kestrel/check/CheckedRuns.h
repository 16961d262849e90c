#ifndef KESTREL_TOOLS_CHECK_CHECKEDRUNS_H
#define KESTREL_TOOLS_CHECK_CHECKEDRUNS_H

#include "KestrelPlatform.h"
#include "tools/session/launch/Launch.h"

#include <string>
#include <vector>

namespace KestrelTool
{

/// The findings of a run, and the places of its buffers.
struct SCheckedRun
{
    std::vector<SPlatformFinding> vFindings;
    std::vector<SPlatformBuffer> vBuffers;
    SPlatformCheckLimits limits = {};
    std::vector<SPlatformPlace> vPlaces; ///< of a run that was stopped: where its work-items were
};

/// While it exists, kernel runs are checked. Buffers to be tracked have to be created meanwhile.
class CCheckedRuns
{
public:
    /// \param nChecks  a set of EPlatformCheck
    /// \param nLimit  instructions that a work-group may execute; reaching it is a finding
    /// \throws CPlatformError
    CCheckedRuns(const CLibraries& libraries, uint32_t nChecks, uint64_t nLimit);
    ~CCheckedRuns();
    CCheckedRuns(const CCheckedRuns&) = delete;
    CCheckedRuns& operator=(const CCheckedRuns&) = delete;

    /// \param vFollowed  arguments whose buffers have NaN or infinity of earlier runs in them, which are followed
    /// \throws CPlatformError
    SCheckedRun Run(CLaunch& launch, const std::vector<uint32_t>& vFollowed) const;

private:
    const SPlatformControl& m_Control;
};

/// The name of the check that makes findings of a kind.
const char* NameCheck(uint32_t nKind);

/// The name that users give a check.
struct SCheckName
{
    const char* pszName;
    uint32_t nCheck;
    bool bDefault;
};
/// The check of a program's use of OpenCL, which the tool makes rather than the platform.
const uint32_t g_nCheckProgram = 0;
const std::vector<SCheckName>& ListChecks();

/// The default for the number of instructions after which a work-group is assumed to hang.
const uint64_t g_nUsualLimit = 1000000000;

} // namespace KestrelTool

#endif
