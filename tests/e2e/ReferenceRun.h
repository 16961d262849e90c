#ifndef KESTREL_TESTS_E2E_REFERENCERUN_H
#define KESTREL_TESTS_E2E_REFERENCERUN_H

#include "tests/e2e/TraceModel.h"
#include "tests/reference/Machine.h"
#include "tools/session/launch/LaunchFile.h"

#include <set>
#include <string>
#include <vector>

namespace KestrelTest
{

/// All moments of a launch in the reference machine, with everything visible at each of them.
class CReferenceRun
{
public:
    struct SMomentState
    {
        SMoment moment;
        SReferenceState state;
    };

    /// \param nAddress  of the launch's only buffer
    /// \throws CReferenceError
    CReferenceRun(const KestrelTool::SLaunchFile& file, uint64_t nAddress);

    const std::vector<SMomentState>& GetMoments() const { return m_vMoments; }
    const SReferenceState& GetFinal() const { return m_Final; }
    const CKernelText& GetText() const { return m_Text; }
    uint64_t GetAddress() const { return m_nAddress; }

private:
    CKernelText m_Text;
    uint64_t m_nAddress;
    std::vector<SMomentState> m_vMoments;
    SReferenceState m_Final;
};

/// The buffer's address in a recorded run: all generated kernels keep an address in r2.
uint64_t FindBufferAddress(const CTraceModel& trace, bool b64Bit, uint32_t nOffset);

/// Compares a plain run's trace with the machine, in both directions. \return the differences as texts
std::vector<std::string> CompareTrace(const CReferenceRun& run, const CTraceModel& trace);

} // namespace KestrelTest

#endif
