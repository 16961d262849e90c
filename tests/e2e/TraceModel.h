#ifndef KESTREL_TESTS_E2E_TRACEMODEL_H
#define KESTREL_TESTS_E2E_TRACEMODEL_H

#include "KestrelPlatform.h"
#include "tests/reference/Position.h"
#include "tools/session/launch/Libraries.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace KestrelTest
{

/// The position that a record of the trace is about.
SPosition PositionOf(const SPlatformTraceRecord& record);

/// What a plain run did at one position, over all work-items.
struct SObservation
{
    uint32_t nOpCode = 0;
    std::vector<bool> vActive;
    bool bHasRegister = false;
    uint32_t nRegisterType = 0;
    uint32_t nRegisterNumber = 0;
    bool bIndexed = false;
    std::vector<Words> vValues;     ///< by work-item; meaningful for active ones
    std::vector<uint32_t> vIndices; ///< by work-item, if indexed

    size_t Count() const;
};

/// The settings and counters of the software platform.
const SPlatformControl& GetPlatformControl(const KestrelTool::CLibraries& libraries);

/// Records a plain run: the independent answer to what a debugger must report at each stop.
class CTraceModel
{
public:
    explicit CTraceModel(size_t nItems) : m_nItems(nItems) {}

    /// Records every kernel run from here to StopRecording.
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
