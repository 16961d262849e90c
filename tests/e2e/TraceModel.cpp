#include "tests/e2e/TraceModel.h"

#include <algorithm>
#include <stdexcept>

namespace KestrelTest
{

SPosition PositionOf(const SPlatformTraceRecord& record)
{
    SPosition position;
    position.nInstruction = record.nInstruction;
    for (uint32_t i = 0; i < record.nCalls; ++i)
    {
        position.vCalls.push_back({record.pCallSites[i], {}});
    }
    for (uint32_t i = 0; i < record.nLoops; ++i)
    {
        const uint32_t nDepth = record.pLoops[i].nCallDepth;
        Loops& loops = nDepth < record.nCalls ? position.vCalls[nDepth].second : position.vLoops;
        loops.push_back({record.pLoops[i].nStart, record.pLoops[i].nIteration});
    }
    return position;
}

size_t SObservation::Count() const
{
    return static_cast<size_t>(std::count(vActive.begin(), vActive.end(), true));
}

const SPlatformControl& GetPlatformControl(const KestrelTool::CLibraries& libraries)
{
    // Behind a loader, the platform's own extensions are only found by the call with a platform.
    cl_platform_id platform = nullptr;
    libraries.cl.clGetPlatformIDs(1, &platform, nullptr);
    void* pFunction = libraries.cl.clGetExtensionFunctionAddressForPlatform(platform, "kestrelPlatformControl");
    if (pFunction == nullptr)
    {
        throw std::runtime_error("the platform has no control");
    }
    return *reinterpret_cast<const SPlatformControl* (*)()>(pFunction)();
}

void CTraceModel::StartRecording(const SPlatformControl& control)
{
    control.SetTrace(&CTraceModel::OnRecord, this);
}

void CTraceModel::StopRecording(const SPlatformControl& control)
{
    control.SetTrace(nullptr, nullptr);
}

const SObservation* CTraceModel::Find(const SPosition& position) const
{
    const auto it = m_mapObservations.find(position);
    return it != m_mapObservations.end() ? &it->second : nullptr;
}

void CTraceModel::OnRecord(const SPlatformTraceRecord* pRecord, void* pUser)
{
    static_cast<CTraceModel*>(pUser)->Add(*pRecord);
}

void CTraceModel::Add(const SPlatformTraceRecord& record)
{
    SObservation& observation = m_mapObservations[PositionOf(record)];
    observation.nOpCode = record.nOpCode;
    observation.bHasRegister = record.nRegisterType != 0xFFFFFFFF;
    observation.nRegisterType = record.nRegisterType;
    observation.nRegisterNumber = record.nRegisterNumber;
    observation.bIndexed = record.pIndices != nullptr;
    observation.vActive.resize(m_nItems);
    observation.vValues.resize(m_nItems);
    observation.vIndices.resize(m_nItems);
    for (uint32_t i = 0; i < record.nItems; ++i)
    {
        const uint32_t nItem = record.pItems[i];
        if (record.pActive[i] == 0 || nItem >= m_nItems)
        {
            continue;
        }
        observation.vActive[nItem] = true;
        if (record.pValues != nullptr)
        {
            std::copy_n(record.pValues + 4 * i, 4, observation.vValues[nItem].begin());
        }
        if (record.pIndices != nullptr)
        {
            observation.vIndices[nItem] = record.pIndices[i];
        }
    }
}

} // namespace KestrelTest
