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

/// Runs a kernel from breakpoint to breakpoint, with single steps strewn in, and holds every stop against
/// the plain run: the place, the mask, and for each active work-item every register that it has
/// written so far. Findings are kept as texts; none means that all agrees.
class CContinueChecker : public KestrelTool::ISessionClient
{
public:
    struct SPlan
    {
        std::set<unsigned int> setLines;    ///< with a breakpoint
        std::vector<std::string> vTracked;  ///< all registers if empty
        unsigned int nStepPercent = 0;      ///< how many answers are single steps
        std::set<std::string> setAddresses; ///< registers that may differ by whole pages
        bool bAnyAddress = false;           ///< all may
        bool bCheckCosts = false;           ///< kernel runs are counted
    };

    /// \param pRecord  null for a kernel where stepping passes over live code, so that its road isn't the run's:
    ///                 then any place after the last is right at which the trace has the mask and the
    ///                 values that the stop shows. Breakpoints must be on lines without flow control
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
