#include "KestrelPlatform.h"

#include "platform/runtime/Counters.h"
#include "platform/runtime/ExtensionEntries.h"
#include "platform/runtime/KernelRun.h"
#include "platform/runtime/Settings.h"

namespace
{

using namespace KestrelPlatform;

void SwitchExtension(const char* pszName, int32_t bEnabled)
{
    Runtime::SetExtensionEnabled(pszName, bEnabled != 0);
}

void OrderFailure(const char* pszEntryPoint, uint64_t nCall, int32_t nCode, int32_t bForever)
{
    Runtime::SetFailure(pszEntryPoint, nCall, nCode, bForever != 0);
}

void SetBuild(uint32_t nBuild)
{
    Runtime::SetBuildNumber(nBuild);
}

uint64_t CountCalls()
{
    return Runtime::GetCallCount();
}

uint64_t ReadCounter(EPlatformCounter eCounter)
{
    return Runtime::GetCounterValue(eCounter);
}

void LimitInstructions(uint64_t nInstructions)
{
    Runtime::SetInstructionLimit(nInstructions);
}

void ReadLastFault(SPlatformFault* pFault)
{
    if (pFault)
    {
        *pFault = Runtime::GetLastFault();
    }
}

uint32_t ReadFaultRecords(SPlatformFaultRecord* pRecords, uint32_t nRecords)
{
    return Runtime::GetFaultRecords(pRecords, nRecords);
}

void ShakeSchedule(uint64_t nSeed)
{
    Runtime::SetSchedule(nSeed);
}

void SwitchBreak(int32_t bBreak)
{
    Runtime::BreakRuns(bBreak != 0);
}

void ReadLastEnd(SPlatformEnd* pEnd)
{
    if (pEnd)
    {
        *pEnd = Runtime::GetLastEnd();
    }
}

void ReadLastSizes(SPlatformSizes* pSizes)
{
    if (pSizes)
    {
        *pSizes = Runtime::GetLastSizes();
    }
}

uint32_t ReadLastBuffers(SPlatformBuffer* pBuffers, uint32_t nBuffers)
{
    return Runtime::GetLastBuffers(pBuffers, nBuffers);
}

uint32_t ReadSourcePlace(uint32_t nInstruction, char* pszPlace, uint32_t nBytes)
{
    const std::string strPlace = Runtime::GetSourcePlace(nInstruction);
    if (pszPlace && nBytes > 0)
    {
        pszPlace[strPlace.copy(pszPlace, nBytes - 1)] = '\0';
    }
    return static_cast<uint32_t>(strPlace.size() + 1);
}

void SwitchVisits(int32_t bCount)
{
    Runtime::CountVisits(bCount != 0);
}

uint32_t ReadVisits(uint64_t* pCounts, uint32_t nCounts)
{
    return Runtime::GetVisits(pCounts, nCounts);
}

void SwitchProfile(int32_t bKeep)
{
    Runtime::KeepProfile(bKeep != 0);
}

uint32_t ReadProfile(SPlatformProfile* pRows, uint32_t nRows)
{
    return Runtime::GetProfile(pRows, nRows);
}

void SwitchWatch(const SPlatformWatch* pWatch)
{
    Runtime::WatchAccesses(pWatch);
}

uint32_t ReadAccesses(SPlatformAccess* pAccesses, uint32_t nAccesses)
{
    return Runtime::GetAccesses(pAccesses, nAccesses);
}

void SwitchChecks(uint32_t nChecks)
{
    Runtime::SetChecks(nChecks);
}

uint32_t ReadFindings(SPlatformFinding* pFindings, uint32_t nFindings)
{
    return Runtime::GetFindings(pFindings, nFindings);
}

uint32_t ReadPlaces(SPlatformPlace* pPlaces, uint32_t nPlaces)
{
    return Runtime::GetPlaces(pPlaces, nPlaces);
}

void ReadCheckLimits(SPlatformCheckLimits* pLimits)
{
    if (pLimits)
    {
        *pLimits = Runtime::GetCheckLimits();
    }
}

void SwitchNumbers(const uint32_t* pArguments, uint32_t nArguments)
{
    Runtime::FollowNumbers(pArguments, pArguments != nullptr ? nArguments : 0);
}

void ResetAll()
{
    Runtime::FollowNumbers(nullptr, 0);
    Runtime::SetChecks(0);
    Runtime::WatchAccesses(nullptr);
    Runtime::BreakRuns(false);
    Runtime::KeepProfile(false);
    Runtime::CountVisits(false);
    Runtime::ResetSettings();
}

} // namespace

const SPlatformControl* kestrelPlatformControl()
{
    static const SPlatformControl s_control = {
        sizeof(SPlatformControl),
        &ResetAll,
        &SetBuild,
        &SwitchExtension,
        &KestrelPlatform::Runtime::SetRefusedBuildOption,
        &OrderFailure,
        &KestrelPlatform::Runtime::ClearFailures,
        &CountCalls,
        &ReadCounter,
        &KestrelPlatform::Runtime::ClearRunningCounters,
        &KestrelPlatform::Runtime::SetTraceCallback,
        &LimitInstructions,
        &ReadLastFault,
        &ReadFaultRecords,
        &ShakeSchedule,
        &SwitchBreak,
        &ReadLastEnd,
        &ReadLastSizes,
        &ReadLastBuffers,
        &ReadSourcePlace,
        &SwitchVisits,
        &ReadVisits,
        &SwitchProfile,
        &ReadProfile,
        &SwitchWatch,
        &ReadAccesses,
        &SwitchChecks,
        &ReadFindings,
        &ReadPlaces,
        &ReadCheckLimits,
        &SwitchNumbers,
    };
    return &s_control;
}
