#ifndef KESTREL_TESTS_E2E_CONTINUECHECKER_H
#define KESTREL_TESTS_E2E_CONTINUECHECKER_H

#include "tests/e2e/StepRecord.h"
#include "tools/session/launch/Session.h"

#include <random>
#include <set>
#include <string>
#include <vector>

namespace KestrelTest
{

/// Runs a kernel from breakpoint to breakpoint, with single steps in between, and compares every stop with the plain
/// run: the place, the mask, and for each active work-item every register that it has written so far. Differences are
/// collected as texts; none means that everything agrees.
class CContinueChecker : public KestrelTool::ISessionClient
{
public:
    struct SPlan
    {
        std::set<unsigned int> setLines;    ///< with a breakpoint
        std::vector<std::string> vTracked;  ///< tracked registers; all if empty
        unsigned int nStepPercent = 0;      ///< how many answers are single steps
        std::set<std::string> setAddresses; ///< registers that may differ by whole pages
        bool bAnyAddress = false;           ///< all registers may
        bool bCheckCosts = false;           ///< compare the number of kernel runs
    };

    /// \param pRecord  null for a kernel in which stepping skips code that some work-items run, so that its path
    ///         differs from the run's: then any later place is accepted where the trace has the stop's mask and values.
    ///         Breakpoints must be on lines without control flow
    CContinueChecker(SPlan plan, const CItemHistory& history, const CStepRecord* pRecord, uint32_t nSeed);

    ovkclDebugCommand OnStarted(KestrelTool::CSession& session) override;
    ovkclDebugCommand OnHalted(KestrelTool::CSession& session) override;
    void OnFinished(KestrelTool::CSession& session) override;
    void OnError(KestrelTool::CSession& session) override;

    const std::vector<std::string>& GetFindings() const { return m_vFindings; }
    size_t GetStops() const { return m_nStops; }
    size_t GetCountedRuns() const { return m_nCounted; }
    bool IsFinished() const { return m_bFinished; }

private:
    ovkclDebugCommand Answer(const KestrelTool::CSession& session);
    void CheckRecordedStop(const KestrelTool::CSession& session);
    void CheckRuns(const CStepRecord::SExpected& expected);
    void CheckAnyPlace(KestrelTool::CSession& session);
    std::string CompareValues(const KestrelTool::CSession& session, const std::vector<size_t>& vProgress) const;
    bool IsTracked(const std::string& strName) const;
    bool Agrees(const std::string& strName, uint32_t nGot, uint32_t nWanted) const;
    void Report(const std::string& strText);

    SPlan m_Plan;
    const CItemHistory& m_History;
    const CStepRecord* m_pRecord;
    std::mt19937 m_Engine;
    std::vector<std::string> m_vFindings;
    std::vector<size_t> m_vProgress; ///< of each work-item at the last place
    bool m_bStepped = false;         ///< the last answer was a step
    size_t m_nAt = 0;                ///< the last stop, as the record counts them
    size_t m_nStops = 0;
    size_t m_nCounted = 0; ///< continues whose kernel runs were compared
    bool m_bFinished = false;
};

} // namespace KestrelTest

#endif
