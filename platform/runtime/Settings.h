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

/// All settings as they were at load. The failures that are still to come are dropped.
void ResetSettings();

/// What is wrong with the environment variable; empty if nothing is. The platform offers nothing then.
std::string GetNonsense();

cl_uint GetBuildNumber();
void SetBuildNumber(cl_uint nBuild);

bool IsExtensionEnabled(const std::string& strName);
void SetExtensionEnabled(const char* pszName, bool bEnabled);
/// The switched extensions that are on, each followed by a blank.
std::string GetEnabledExtensions();

/// True if these build options are to be refused.
bool IsBuildOptionRefused(const std::string& strOptions);
void SetRefusedBuildOption(const char* pszText);

cl_ulong GetInstructionLimit();
void SetInstructionLimit(cl_ulong nInstructions);

/// The seed of a kernel run's schedule, another one each time; 0 where none is set.
cl_ulong TakeSchedule();
void SetSchedule(cl_ulong nSeed);

/// The sink that kernel runs write their trace to; null for none.
std::shared_ptr<ITraceSink> GetTraceSink();
void SetTraceCallback(PlatformTraceCallback pCallback, void* pUser);

void SetFailure(const char* pszEntryPoint, cl_ulong nCall, cl_int nCode, bool bForever);
void ClearFailures();
cl_ulong GetCallCount();
/// Counts a call of an entry point.
/// \return the code that this call is to give instead of doing its work, or CL_SUCCESS
cl_int CountCall(const char* pszEntryPoint);

} // namespace KestrelPlatform::Runtime

#endif
