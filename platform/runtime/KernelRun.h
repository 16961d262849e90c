#ifndef KESTREL_PLATFORM_RUNTIME_KERNELRUN_H
#define KESTREL_PLATFORM_RUNTIME_KERNELRUN_H

#include "KestrelPlatform.h"
#include "platform/runtime/KernelLaunch.h"

namespace KestrelPlatform::Runtime
{

/// Runs a launch. \return CL_SUCCESS, or the code that its event ends with
cl_int RunPrepared(SPreparedLaunch& prepared);

/// The faults of the last kernel run, summed up.
SPlatformFault GetLastFault();
/// The faults one by one, up to nRecords of them. \return how many are kept
cl_uint GetFaultRecords(SPlatformFaultRecord* pRecords, cl_uint nRecords);
/// Stops current and future kernel runs, or allows them again.
void BreakRuns(bool bBreak);
/// How the last kernel run ended.
SPlatformEnd GetLastEnd();
/// Where its work-items were if it was stopped early, up to nPlaces places. \return how many there are
cl_uint GetPlaces(SPlatformPlace* pPlaces, cl_uint nPlaces);
SPlatformCheckLimits GetCheckLimits();
/// The sizes of the last kernel run.
SPlatformSizes GetLastSizes();
/// Its buffers, up to nBuffers of them. \return how many there were
cl_uint GetLastBuffers(SPlatformBuffer* pBuffers, cl_uint nBuffers);

/// From now on kernel runs count how many work-items reach each instruction, or no longer.
void CountVisits(bool bCount);
/// The counts of the last run that counted, up to nCounts of them. \return how many there are
cl_uint GetVisits(cl_ulong* pCounts, cl_uint nCounts);
/// From now on kernel runs keep a profile, or no longer.
void KeepProfile(bool bKeep);
/// The rows of the last run that kept one, up to nRows of them. \return how many there are
cl_uint GetProfile(SPlatformProfile* pRows, cl_uint nRows);
/// From now on kernel runs report accesses to these bytes, or with null no longer.
void WatchAccesses(const SPlatformWatch* pWatch);
/// The accesses that the last watched run has reported, up to nAccesses. \return how many there are
cl_uint GetAccesses(SPlatformAccess* pAccesses, cl_uint nAccesses);

/// From now on kernel runs are checked, for a set of EPlatformCheck.
void SetChecks(cl_uint nChecks);
/// Arguments from whose buffers future runs follow NaN and infinity.
void FollowNumbers(const cl_uint* pArguments, cl_uint nArguments);
cl_uint GetChecks();
/// The findings of the last run, up to nFindings of them. \return how many there are
cl_uint GetFindings(SPlatformFinding* pFindings, cl_uint nFindings);

/// "file:line" for an instruction of the last kernel run, "" if the source isn't known.
std::string GetSourcePlace(cl_uint nInstruction);

} // namespace KestrelPlatform::Runtime

#endif
