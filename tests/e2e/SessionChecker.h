#ifndef KESTREL_TESTS_E2E_SESSIONCHECKER_H
#define KESTREL_TESTS_E2E_SESSIONCHECKER_H

#include "tests/e2e/StopTracker.h"
#include "tests/e2e/TraceModel.h"
#include "tools/session/launch/Session.h"

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace KestrelTest
{

/// Steps a kernel to its end and holds every stop against the trace of a plain run: the mask, the
/// written register of every active work-item, and what every register read before still reads for
/// the others. Findings are kept as texts; none means that all agrees.
class CSessionChecker : public KestrelTool::ISessionClient
{
public:
    /// \param launch  also read, through a queue of its own, to see that the client's buffers stay
    ///                untouched while the session runs
    CSessionChecker(const KestrelTool::CLibraries& libraries, KestrelTool::CLaunch& launch, const CTraceModel& trace);
    ~CSessionChecker() override;

    ovkclDebugCommand OnStarted(KestrelTool::CSession& session) override;
    ovkclDebugCommand OnHalted(KestrelTool::CSession& session) override;
    void OnFinished(KestrelTool::CSession& session) override;
    void OnError(KestrelTool::CSession& session) override;

    /// Holds the kernel runs of each step against what it should cost; for generated kernels.
    void CountRuns() { m_bCountRuns = true; }
    /// A stop limit for kernels that would take too long; after it the session continues.
    void SetMaxStops(size_t nStops) { m_nMaxStops = nStops; }

    const std::vector<std::string>& GetFindings() const { return m_vFindings; }
    size_t GetStops() const { return m_nStops; }
    bool IsFinished() const { return m_bFinished; }
    /// Positions that some work-item reached in the plain run and that were no stop.
    std::vector<SPosition> GetUnvisited() const;

private:
    typedef std::vector<std::optional<Words>> Values;

    void Report(const std::string& strText);
    std::vector<bool> ExpectMask(const SPosition& position) const;
    void CheckMask(const SPosition& position, const KestrelTool::SMaskView& mask);
    void CheckRegister(KestrelTool::CSession& session, const SPosition& position);
    void NoteWrite(const SObservation& observation);
    bool Agrees(const uint32_t* pGot, const Words& wanted);
    void CheckCosts(KestrelTool::CSession& session);
    void CheckPrivate(KestrelTool::CSession& session, const SPosition& position);
    void CheckUntouched();

    const KestrelTool::CLibraries& m_Lib;
    KestrelTool::CLaunch& m_Launch;
    const CTraceModel& m_Trace;
    cl_command_queue m_SideQueue = nullptr;
    std::unique_ptr<CTextStructure> m_pStructure;
    std::unique_ptr<CStopTracker> m_pTracker;
    std::map<std::string, Values> m_mapKnown; ///< what each register must read, by its name
    std::vector<unsigned char> m_vPrivate;    ///< what the first words of private memory must read, by work-item
    /// How far the session's copies of a page of memory lie from the page of the plain run.
    std::map<uint32_t, std::set<uint32_t>> m_mapPages;
    size_t m_nMaxCopies = 1; ///< a memory object that is passed more than once has as many copies
    std::set<SPosition> m_setVisited;
    std::vector<std::string> m_vFindings;
    SPosition m_Position;
    size_t m_nStops = 0;
    size_t m_nMaxStops = 0;
    bool m_bFinished = false;
    bool m_bCountRuns = false;
};

} // namespace KestrelTest

#endif
