#include "platform/runtime/Settings.h"

#include "platform/runtime/Trace.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <set>
#include <sstream>
#include <vector>

namespace KestrelPlatform::Runtime
{

namespace
{

/// A work-group that has executed this many instructions is taken to be in an endless loop.
constexpr cl_ulong s_nDefaultInstructionLimit = 4000000000ULL;

constexpr const char* s_switchableExtensions[] = {"cl_ovk_event_callback", "cl_ovk_object_metadata",
                                                  "cl_ext_object_metadata"};

/// A failure that a test has ordered.
struct SFailure
{
    std::string m_strEntryPoint; ///< empty: any
    cl_ulong m_nCallsLeft = 0;   ///< 1: the next call fails
    cl_int m_nCode = CL_SUCCESS;
    bool m_bForever = false;
};

/// What the environment can set.
struct SValues
{
    cl_uint m_nBuild = 1800;
    std::set<std::string> m_setExtensions{"cl_ovk_event_callback", "cl_ovk_object_metadata"};
    std::string m_strRefusedOption;
    cl_ulong m_nInstructionLimit = s_nDefaultInstructionLimit;
    cl_ulong m_nSchedule = 0; ///< the next kernel run's; 0: none is shaken
    std::vector<SFailure> m_vFailures;
    std::shared_ptr<ITraceSink> m_pTrace;
};

bool IsSwitchable(const std::string& strName)
{
    for (const char* pszExtension : s_switchableExtensions)
        if (strName == pszExtension)
            return true;
    return false;
}

/// "ENTRYPOINT:CALL:CODE", with ":forever" behind it if wanted; an empty name means any.
SFailure ParseFailure(const std::string& strText)
{
    std::istringstream stream(strText);
    std::string strCall, strCode, strForever;
    SFailure failure;
    std::getline(stream, failure.m_strEntryPoint, ':');
    std::getline(stream, strCall, ':');
    std::getline(stream, strCode, ':');
    std::getline(stream, strForever);
    failure.m_nCallsLeft = std::strtoull(strCall.c_str(), nullptr, 0);
    failure.m_nCode = static_cast<cl_int>(std::strtol(strCode.c_str(), nullptr, 0));
    failure.m_bForever = strForever == "forever";
    return failure;
}

void ApplySetting(SValues& values, const std::string& strName, const std::string& strValue)
{
    if (strName == "build")
        values.m_nBuild = static_cast<cl_uint>(std::strtoul(strValue.c_str(), nullptr, 0));
    else if (strName == "no")
        values.m_setExtensions.erase(strValue);
    else if (strName == "with" && IsSwitchable(strValue))
        values.m_setExtensions.insert(strValue);
    else if (strName == "refuse")
        values.m_strRefusedOption = strValue;
    else if (strName == "limit")
        values.m_nInstructionLimit = std::strtoull(strValue.c_str(), nullptr, 0);
    else if (strName == "schedule")
        values.m_nSchedule = std::strtoull(strValue.c_str(), nullptr, 0);
    else if (strName == "fail")
        values.m_vFailures.push_back(ParseFailure(strValue));
    else if (strName == "trace")
        values.m_pTrace = MakeFileTrace(strValue);
}

SValues ReadEnvironment()
{
    SValues values;
    const char* pszSettings = std::getenv("KESTREL_PLATFORM");
    std::istringstream stream(pszSettings ? pszSettings : "");
    for (std::string strSetting; std::getline(stream, strSetting, ',');)
    {
        const size_t nEquals = strSetting.find('=');
        if (nEquals != std::string::npos)
            ApplySetting(values, strSetting.substr(0, nEquals), strSetting.substr(nEquals + 1));
    }
    return values;
}

struct SSettings
{
    std::mutex m_mutex;
    SValues m_values = ReadEnvironment();
    /// Lets a call without ordered failures pass without the lock.
    std::atomic<bool> m_bFailuresOrdered{!m_values.m_vFailures.empty()};
    std::atomic<cl_ulong> m_nCalls{0};
};

SSettings& Settings()
{
    static auto& s_settings = *new SSettings;
    return s_settings;
}

/// Runs an access under the lock.
template <class F>
auto WithValues(F&& access)
{
    SSettings& settings = Settings();
    std::lock_guard<std::mutex> lock(settings.m_mutex);
    return access(settings.m_values);
}

} // namespace

void ResetSettings()
{
    SValues initial = ReadEnvironment();
    initial.m_vFailures.clear();
    WithValues([&initial](SValues& values) { std::swap(values, initial); });
    ClearFailures();
}

cl_uint GetBuildNumber()
{
    return WithValues([](const SValues& values) { return values.m_nBuild; });
}

void SetBuildNumber(cl_uint nBuild)
{
    WithValues([nBuild](SValues& values) { values.m_nBuild = nBuild; });
}

bool IsExtensionEnabled(const std::string& strName)
{
    return WithValues([&strName](const SValues& values) { return values.m_setExtensions.count(strName) != 0; });
}

void SetExtensionEnabled(const char* pszName, bool bEnabled)
{
    if (!pszName || !IsSwitchable(pszName))
        return;
    WithValues(
        [&](SValues& values)
        {
            if (bEnabled)
                values.m_setExtensions.insert(pszName);
            else
                values.m_setExtensions.erase(pszName);
        });
}

std::string GetEnabledExtensions()
{
    return WithValues(
        [](const SValues& values)
        {
            std::string strExtensions;
            for (const char* pszExtension : s_switchableExtensions)
                if (values.m_setExtensions.count(pszExtension) != 0)
                    strExtensions += std::string(pszExtension) + " ";
            return strExtensions;
        });
}

bool IsBuildOptionRefused(const std::string& strOptions)
{
    return WithValues(
        [&strOptions](const SValues& values) {
            return !values.m_strRefusedOption.empty() &&
                   strOptions.find(values.m_strRefusedOption) != std::string::npos;
        });
}

void SetRefusedBuildOption(const char* pszText)
{
    WithValues([pszText](SValues& values) { values.m_strRefusedOption = pszText ? pszText : ""; });
}

cl_ulong GetInstructionLimit()
{
    return WithValues([](const SValues& values) { return values.m_nInstructionLimit; });
}

void SetInstructionLimit(cl_ulong nInstructions)
{
    WithValues([nInstructions](SValues& values) { values.m_nInstructionLimit = nInstructions; });
}

cl_ulong TakeSchedule()
{
    return WithValues([](SValues& values) { return values.m_nSchedule == 0 ? 0 : values.m_nSchedule++; });
}

void SetSchedule(cl_ulong nSeed)
{
    WithValues([nSeed](SValues& values) { values.m_nSchedule = nSeed; });
}

std::shared_ptr<ITraceSink> GetTraceSink()
{
    return WithValues([](const SValues& values) { return values.m_pTrace; });
}

void SetTraceCallback(PlatformTraceCallback pCallback, void* pUser)
{
    std::shared_ptr<ITraceSink> pTrace = pCallback ? MakeCallbackTrace(pCallback, pUser) : nullptr;
    WithValues([&pTrace](SValues& values) { std::swap(values.m_pTrace, pTrace); });
}

void SetFailure(const char* pszEntryPoint, cl_ulong nCall, cl_int nCode, bool bForever)
{
    SFailure failure{pszEntryPoint ? pszEntryPoint : "", nCall, nCode, bForever};
    SSettings& settings = Settings();
    std::lock_guard<std::mutex> lock(settings.m_mutex);
    settings.m_values.m_vFailures.push_back(std::move(failure));
    settings.m_bFailuresOrdered = true;
    settings.m_nCalls = 0;
}

void ClearFailures()
{
    SSettings& settings = Settings();
    std::lock_guard<std::mutex> lock(settings.m_mutex);
    settings.m_values.m_vFailures.clear();
    settings.m_bFailuresOrdered = false;
    settings.m_nCalls = 0;
}

cl_ulong GetCallCount()
{
    return Settings().m_nCalls.load();
}

cl_int CountCall(const char* pszEntryPoint)
{
    SSettings& settings = Settings();
    settings.m_nCalls.fetch_add(1);
    if (!settings.m_bFailuresOrdered.load())
        return CL_SUCCESS;
    cl_int nCode = CL_SUCCESS;
    std::lock_guard<std::mutex> lock(settings.m_mutex);
    for (SFailure& failure : settings.m_values.m_vFailures)
    {
        if (!failure.m_strEntryPoint.empty() && failure.m_strEntryPoint != pszEntryPoint)
            continue;
        if (failure.m_nCallsLeft > 1)
        {
            --failure.m_nCallsLeft;
            continue;
        }
        if (failure.m_nCallsLeft == 1)
            nCode = failure.m_nCode;
        if (!failure.m_bForever)
            failure.m_nCallsLeft = 0;
    }
    return nCode;
}

} // namespace KestrelPlatform::Runtime
