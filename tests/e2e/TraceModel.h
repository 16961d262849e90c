#ifndef KESTREL_TESTS_E2E_TRACEMODEL_H
#define KESTREL_TESTS_E2E_TRACEMODEL_H

#include "KestrelPlatform.h"
#include "tests/reference/MachinePosition.h"
#include "tools/session/launch/Libraries.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace KestrelTest
{

/// The position of a trace record.
SPosition PositionOf(const SPlatformTraceRecord& record);

/// What happened at one position of a plain run, for all work-items.
struct SObservation
{
    uint32_t nOpCode = 0;
    std::vector<bool> vActive;
    bool bHasRegister = false;
    uint32_t nRegisterType = 0;
    uint32_t nRegisterNumber = 0;
    bool bIndexed = false;
    std::vector<Words> vValues;     ///< by work-item; valid for active ones
    std::vector<uint32_t> vIndices; ///< by work-item, if indexed

    size_t Count() const;
};

/// The settings and counters of the software platform.
const SPlatformControl& GetPlatformControl(const KestrelTool::CLibraries& libraries);

/// Records a plain run, which independently gives the expected report for each stop.
class CTraceModel
{
public:
    explicit CTraceModel(size_t nItems) : m_nItems(nItems) {}

    /// Starts to record every kernel run, until StopRecording.
    void StartRecording(const SPlatformControl& control);
    void StopRecording(const SPlatformControl& control);

    /// Null for a position that no work-item reached.
    const SObservation* Find(const SPosition& position) const;
    const std::map<SPosition, SObservation>& GetObservations() const { return m_mapObservations; }

private:
    static void OnRecord(const SPlatformTraceRecord* pRecord, void* pUser);
    void Add(const SPlatformTraceRecord& record);

    size_t m_nItems;
    std::map<SPosition, SObservation> m_mapObservations;
};

} // namespace KestrelTest

#endif
