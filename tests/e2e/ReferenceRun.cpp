#include "tests/e2e/ReferenceRun.h"

#include "tests/e2e/RegisterTypes.h"

#include <map>

namespace KestrelTest
{

namespace
{

// Register types, as numbered in tokens.

SReferenceLaunch MakeLaunch(const KestrelTool::SLaunchFile& file, uint64_t nAddress)
{
    SReferenceLaunch launch;
    for (unsigned int i = 0; i < file.nDimensions; ++i)
    {
        launch.nGlobalSize[i] = static_cast<uint32_t>(file.nGlobalSize[i]);
        launch.nLocalSize[i] = static_cast<uint32_t>(file.nLocalSize[i]);
    }
    for (const KestrelTool::SArgument& argument : file.vArguments)
    {
        launch.vAddresses.push_back(nAddress);
        launch.vBuffers.push_back(argument.vContents);
    }
    return launch;
}

std::string NameOf(const SObservation& observation, size_t nItem)
{
    if (observation.nRegisterType == s_nIndexedTemp)
    {
        return "x" + std::to_string(observation.nRegisterNumber) + "[" + std::to_string(observation.vIndices[nItem]) +
               "]";
    }
    return "r" + std::to_string(observation.nRegisterNumber);
}

std::string ToText(const Words& words)
{
    std::string strText;
    for (const uint32_t nWord : words)
    {
        strText += (strText.empty() ? "" : ", ") + std::to_string(static_cast<int32_t>(nWord));
    }
    return "(" + strText + ")";
}

std::string Compare(const CReferenceRun::SMomentState& moment, const SObservation& observation)
{
    if (observation.vActive != moment.moment.vAfter)
    {
        return "the mask differs";
    }
    const bool bRegister = observation.bHasRegister &&
                           (observation.nRegisterType == s_nTemp || observation.nRegisterType == s_nIndexedTemp);
    for (size_t i = 0; bRegister && i < observation.vActive.size(); ++i)
    {
        if (!observation.vActive[i])
        {
            continue;
        }
        const std::string strName = NameOf(observation, i);
        const auto it = moment.state.mapRegisters.find(strName);
        const Words wanted = it != moment.state.mapRegisters.end() ? it->second[i] : Words{};
        if (observation.vValues[i] != wanted)
        {
            return strName + " of work-item " + std::to_string(i) + " is " + ToText(observation.vValues[i]) + ", not " +
                   ToText(wanted);
        }
    }
    return std::string();
}

} // namespace

CReferenceRun::CReferenceRun(const KestrelTool::SLaunchFile& file, uint64_t nAddress)
    : m_Text(file.strSource), m_nAddress(nAddress)
{
    const SReferenceLaunch launch = MakeLaunch(file, nAddress);
    CMachine machine(m_Text, launch);
    machine.Run([this](const SMoment& moment, const SReferenceState& state) { m_vMoments.push_back({moment, state}); });
    m_Final = machine.GetState();
}

uint64_t FindBufferAddress(const CTraceModel& trace, bool b64Bit, uint32_t nOffset)
{
    for (const auto& entry : trace.GetObservations())
    {
        const SObservation& observation = entry.second;
        if (observation.bHasRegister && observation.nRegisterType == s_nTemp && observation.nRegisterNumber == 2)
        {
            const Words& words = observation.vValues[0];
            return words[0] + (b64Bit ? uint64_t(words[1]) << 32 : 0) - nOffset;
        }
    }
    throw CReferenceError("no address in r2");
}

std::vector<std::string> CompareTrace(const CReferenceRun& run, const CTraceModel& trace)
{
    std::vector<std::string> vFindings;
    std::set<SPosition> setTold;
    for (const CReferenceRun::SMomentState& moment : run.GetMoments())
    {
        setTold.insert(moment.moment.position);
        const SObservation* pObservation = trace.Find(moment.moment.position);
        if (pObservation == nullptr && moment.moment.IsEmpty())
        {
            continue;
        }
        const std::string strFinding =
            pObservation != nullptr ? Compare(moment, *pObservation) : "the platform didn't execute it";
        if (!strFinding.empty())
        {
            vFindings.push_back(moment.moment.position.ToString() + " (" + moment.moment.strName + "): " + strFinding);
        }
    }
    for (const auto& entry : trace.GetObservations())
    {
        if (setTold.count(entry.first) == 0 && entry.second.Count() != 0)
        {
            vFindings.push_back(entry.first.ToString() + ": only the platform executed it");
        }
    }
    return vFindings;
}

} // namespace KestrelTest
