#ifndef KESTREL_TESTS_E2E_REFERENCECHECKER_H
#define KESTREL_TESTS_E2E_REFERENCECHECKER_H

#include "tests/e2e/ReferenceRun.h"
#include "tools/session/launch/Session.h"

#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace KestrelTest
{

/// Steps a kernel to its end, sometimes goes back, and compares every stop with the reference machine: the place, the
/// mask, every register of every work-item, and private, local and global memory. With breakpoints it runs from one to
/// the next, following the stops of an earlier stepping session, and back to places that the run may have skipped.
class CReferenceChecker : public KestrelTool::ISessionClient
{
public:
    /// A stop: the machine's moment, and the next line.
    struct SStop
    {
        size_t nMoment = 0;
        unsigned int nNextLine = 0;
    };

    struct SPlan
    {
        bool b64Bit = true;
        unsigned int nBackPercent = 0;     ///< how often it goes back
        std::vector<SStop> vStops;         ///< of a stepping session, if there are breakpoints
        std::set<unsigned int> setLines;   ///< with breakpoints; empty: single steps
        std::vector<std::string> vTracked; ///< tracked registers, including r2; all if empty
        bool bOnDemand = false;            ///< registers are read when they are compared
        bool bMemory = true;               ///< compare memory too
    };

    CReferenceChecker(const CReferenceRun& run, SPlan plan, uint32_t nSeed);

    ovkclDebugCommand OnStarted(KestrelTool::CSession& session) override;
    ovkclDebugCommand OnHalted(KestrelTool::CSession& session) override;
    void OnFinished(KestrelTool::CSession& session) override;
    void OnError(KestrelTool::CSession& session) override;

    const std::vector<std::string>& GetFindings() const { return m_vFindings; }
    const std::vector<SStop>& GetStops() const { return m_vStops; }
    size_t GetHalts() const { return m_nHalts; }
    bool IsFinished() const { return m_bFinished; }

private:
    ovkclDebugCommand Answer(const KestrelTool::CSession& session);
    ovkclDebugCommand AnswerRun(const KestrelTool::CSession& session);
    bool Arrive(KestrelTool::CSession& session);
    bool ArriveByStep(KestrelTool::CSession& session);
    bool ArriveByRun(KestrelTool::CSession& session);
    bool ArriveAgain(const KestrelTool::CSession& session);
    std::optional<size_t> FindNextRun() const;
    bool IsExpected(size_t nMoment) const;
    void Check(KestrelTool::CSession& session);
    void CheckMask(const KestrelTool::CSession& session, const SMoment& moment);
    void CheckRegisters(const KestrelTool::CSession& session, const SReferenceState& state);
    void CheckRegister(const std::string& strName, const KestrelTool::SRegisterView& view,
                       const std::vector<Words>& vWanted);
    bool Agrees(const std::string& strName, const unsigned int* pGot, const Words& wanted);
    void CheckPrivate(const KestrelTool::CSession& session, const SReferenceState& state);
    void CheckLocal(const KestrelTool::CSession& session, const SReferenceState& state);
    void CheckGlobal(const KestrelTool::CSession& session, const SReferenceState& state);
    void Report(const std::string& strText);

    const CReferenceRun& m_Run;
    SPlan m_Plan;
    std::mt19937 m_Engine;
    std::vector<SStop> m_vStops;   ///< that led to the current place
    std::set<uint64_t> m_setMoves; ///< distances of the session's copies of the buffer from the plain run's
    size_t m_nBack = 0;            ///< steps back still to be taken
    ovkclDebugCommand m_Answered = OVKCLDEBUG_COMMAND_STEP;
    size_t m_nHalts = 0;
    size_t m_nRunAt = 0;        ///< with breakpoints: the last stop, as the plan counts them
    size_t m_nTurns = 0;        ///< how often a run was followed by one back
    unsigned int m_nBackTo = 0; ///< a breakpoint for a run back; 0 for a step back
    bool m_bLost = false;
    bool m_bFinished = false;
    std::vector<std::string> m_vFindings;
};

} // namespace KestrelTest

#endif
