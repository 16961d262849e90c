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

/// Steps a kernel to its end and compares every stop with the trace of a plain run: the mask, the written register of
/// every active work-item, and the values that the others still have in every register read before. Differences are
/// collected as texts; none means that everything agrees.
class CSessionChecker : public KestrelTool::ISessionClient
{
public:
    /// \param launch  also read, through a queue of its own, to check that the client's buffers aren't changed while
    ///         the session runs
    CSessionChecker(const KestrelTool::CLibraries& libraries, KestrelTool::CLaunch& launch, const CTraceModel& trace);
    ~CSessionChecker() override;

    ovkclDebugCommand OnStarted(KestrelTool::CSession& session) override;
    ovkclDebugCommand OnHalted(KestrelTool::CSession& session) override;
    void OnFinished(KestrelTool::CSession& session) override;
    void OnError(KestrelTool::CSession& session) override;

    /// Compares the kernel runs of each step with the expected number; for generated kernels.
    void CountRuns() { m_bCountRuns = true; }
    /// A limit of stops for kernels that would take too long; after it the session continues.
    void SetMaxStops(size_t nStops) { m_nMaxStops = nStops; }

    const std::vector<std::string>& GetFindings() const { return m_vFindings; }
    size_t GetStops() const { return m_nStops; }
    bool IsFinished() const { return m_bFinished; }
    /// Positions that some work-item reached in the plain run, but where no stop was.
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
    std::map<std::string, Values> m_mapKnown; ///< expected value of each register, by name
    std::vector<unsigned char> m_vPrivate;    ///< expected first words of private memory, by work-item
    /// The distances between the session's copies of a page of memory and the plain run's page.
    std::map<uint32_t, std::set<uint32_t>> m_mapPages;
    size_t m_nMaxCopies = 1; ///< a memory object that is passed several times has several copies
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
