#include "tools/kestrel/check/FaultPlaces.h"

#include "tools/kestrel/check/CheckWords.h"
#include "tools/kestrel/check/CheckedRuns.h"
#include "tools/session/debug/CommandError.h"
#include "tools/session/launch/BinarySections.h"

#include <algorithm>

namespace KestrelTool
{

namespace
{

uint32_t ReadCheck(const std::string& strCheck)
{
    const std::vector<SCheckName>& vChecks = ListChecks();
    const auto it = std::find_if(vChecks.begin(), vChecks.end(),
                                 [&](const SCheckName& check)
                                 { return check.nCheck != g_nCheckProgram && strCheck == check.pszName; });
    if (it == vChecks.end())
    {
        throw CCommandError("stop on takes memory, race, init, nan, barrier or alignment");
    }
    return it->nCheck;
}

class CPlaceMaker
{
public:
    CPlaceMaker(const CDebugger& debugger, const SCheckedRun& run)
        : m_Debugger(debugger), m_Words(run.vBuffers, debugger.GetArguments())
    {
    }

    void Add(const SPlatformFinding& finding, SFaultStop& stop) const
    {
        SFaultPlace place;
        place.strMessage = m_Words.Describe(finding) + "; " + m_Words.NameItems(finding);
        place.bMissing = finding.nKind == PLATFORM_FINDING_BARRIER;
        const bool bRace = finding.nKind == PLATFORM_FINDING_RACE;
        const bool bAccess = bRace || finding.nKind == PLATFORM_FINDING_OUTSIDE ||
                             finding.nKind == PLATFORM_FINDING_READ_ONLY ||
                             finding.nKind == PLATFORM_FINDING_MISALIGNED;
        if (bAccess && finding.nMemory <= PLATFORM_MEMORY_PRIVATE)
        {
            SetAddress(finding, place);
        }
        // The address is known for the first work-item only.
        place.items = {finding.nWorkItem};
        if (!place.nAddress && !place.bMissing)
        {
            place.items.insert(finding.items, finding.items + finding.nItems);
        }
        AddAt(finding.nInstruction, place, stop);
        if (bRace)
        {
            place.items = {finding.nOtherItem};
            AddAt(finding.nOther, place, stop);
        }
    }

private:
    /// Translates an address, since the session's buffers lie elsewhere than the run's.
    void SetAddress(const SPlatformFinding& finding, SFaultPlace& place) const
    {
        const SPlatformBuffer* const pBuffer =
            finding.nMemory == PLATFORM_MEMORY_GLOBAL ? m_Words.FindBuffer(finding.nAddress) : nullptr;
        place.nAddress = finding.nAddress - (pBuffer != nullptr ? pBuffer->nAddress : 0);
        if (pBuffer != nullptr)
        {
            place.nArgument = pBuffer->nArgument;
        }
    }

    void AddAt(uint32_t nInstruction, const SFaultPlace& place, SFaultStop& stop) const
    {
        stop.mapPlaces.emplace(m_Debugger.GetListing().GetLineOfInstruction(nInstruction), place);
    }

    const CDebugger& m_Debugger;
    const CCheckWords m_Words;
};

} // namespace

SFaultStop FindFaultPlaces(CDebugger& debugger, const std::string& strCheck)
{
    const CCheckedRuns runs(debugger.GetLibraries(), ReadCheck(strCheck), g_nUsualLimit);
    CLaunch launch(debugger.GetLibraries(), debugger.GetLaunch().GetFile());
    const SCheckedRun run = runs.Run(launch, {});
    SFaultStop stop;
    stop.strText = "stop on " + strCheck;
    const CPlaceMaker maker(debugger, run);
    for (const SPlatformFinding& finding : run.vFindings)
    {
        maker.Add(finding, stop);
    }
    if (stop.mapPlaces.empty())
    {
        throw CCommandError("nothing of that kind is found in the launch");
    }
    return stop;
}

} // namespace KestrelTool
