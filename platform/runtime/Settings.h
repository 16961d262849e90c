#ifndef KESTREL_PLATFORM_RUNTIME_SETTINGS_H
#define KESTREL_PLATFORM_RUNTIME_SETTINGS_H

#include "KestrelPlatform.h"
#include "platform/runtime/OpenCL.h"

#include <memory>
#include <string>

namespace KestrelPlatform
{
class ITraceSink;
}

namespace KestrelPlatform::Runtime
{

/// The settings of the software platform. They start from the environment variable KESTREL_PLATFORM
/// (docs/platform.md) and change through KestrelPlatform.h. All functions may be called on any thread.

/// Restores all settings to what they were at load, and drops failures that are still to come.
void ResetSettings();

/// The fault in the environment variable; empty if there is none. With a fault the platform offers nothing.
std::string GetNonsense();

cl_uint GetBuildNumber();
void SetBuildNumber(cl_uint nBuild);

bool IsExtensionEnabled(const std::string& strName);
void SetExtensionEnabled(const char* pszName, bool bEnabled);
/// The switched extensions that are on, each followed by a blank.
std::string GetEnabledExtensions();

/// True if these build options are to be rejected.
bool IsBuildOptionRefused(const std::string& strOptions);
void SetRefusedBuildOption(const char* pszText);

cl_ulong GetInstructionLimit();
void SetInstructionLimit(cl_ulong nInstructions);

/// The seed of a kernel run's schedule, a new one for each run; 0 if none is set.
cl_ulong TakeSchedule();
void SetSchedule(cl_ulong nSeed);

/// The sink that kernel runs write their trace to; null for none.
std::shared_ptr<ITraceSink> GetTraceSink();
void SetTraceCallback(PlatformTraceCallback pCallback, void* pUser);

void SetFailure(const char* pszEntryPoint, cl_ulong nCall, cl_int nCode, bool bForever);
void ClearFailures();
cl_ulong GetCallCount();
/// Counts a call of an entry point.
/// \return the code with which this call has to fail, or CL_SUCCESS
cl_int CountCall(const char* pszEntryPoint);

} // namespace KestrelPlatform::Runtime

#endif
