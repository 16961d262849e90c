#include "platform/runtime/Settings.h"

#include "platform/runtime/Trace.h"
#include "platform/simt/LaneOps.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
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

/// A work-group that has executed this many instructions is assumed to be in an endless loop.
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

/// The settings that the environment can change.
struct SValues
{
    cl_uint m_nBuild = 1800;
    std::set<std::string> m_setExtensions{"cl_ovk_event_callback", "cl_ovk_object_metadata"};
    std::string m_strRefusedOption;
    cl_ulong m_nInstructionLimit = s_nDefaultInstructionLimit;
    cl_ulong m_nSchedule = 0; ///< the seed for the next kernel run; 0 for none
    std::vector<SFailure> m_vFailures;
    std::shared_ptr<ITraceSink> m_pTrace;
    std::string m_strNonsense; ///< the fault in the environment's settings; empty if there is none
};

bool IsSwitchable(const std::string& strName)
{
    for (const char* pszExtension : s_switchableExtensions)
    {
        if (strName == pszExtension)
        {
            return true;
        }
    }
    return false;
}

/// Reads a number that makes up the whole text and is at most nMax.
bool ReadNumber(const std::string& strText, cl_ulong nMax, cl_ulong& nValue)
{
    char* pszEnd = nullptr;
    errno = 0;
    nValue = std::strtoull(strText.c_str(), &pszEnd, 0);
    const bool bDigit = !strText.empty() && std::isdigit(static_cast<unsigned char>(strText[0])) != 0;
    return bDigit && *pszEnd == '\0' && errno == 0 && nValue <= nMax;
}

/// Whether calls of this name can be made to fail.
bool IsEntryPoint(const std::string& strName)
{
    static const std::set<std::string> s_names = {
#define KP_EXPORTED(name) #name,
#define KP_LOADER(name) #name,
#define KP_TABLE_ONLY(name) #name,
#define KP_EXTENSION(name, extension) #name,
#include "platform/runtime/EntryPoints.def"
#undef KP_EXPORTED
#undef KP_LOADER
#undef KP_TABLE_ONLY
#undef KP_EXTENSION
    };
    return strName.empty() || s_names.count(strName) != 0;
}

/// "ENTRYPOINT:CALL:CODE", optionally with ":forever"; an empty name means any.
bool ParseFailure(const std::string& strText, SFailure& failure)
{
    std::istringstream stream(strText);
    std::string strCall, strCode, strForever;
    std::getline(stream, failure.m_strEntryPoint, ':');
    std::getline(stream, strCall, ':');
    std::getline(stream, strCode, ':');
    std::getline(stream, strForever);
    failure.m_bForever = strForever == "forever";
    cl_ulong nCode = 0;
    const bool bCode = strCode.size() > 1 && strCode[0] == '-' && ReadNumber(strCode.substr(1), INT32_MAX, nCode);
    failure.m_nCode = -static_cast<cl_int>(nCode);
    return bCode && ReadNumber(strCall, CL_ULONG_MAX, failure.m_nCallsLeft) && failure.m_nCallsLeft != 0 &&
           IsEntryPoint(failure.m_strEntryPoint) && (strForever.empty() || failure.m_bForever);
}

/// \return false for a width that doesn't exist, or that this machine doesn't have
bool ChooseVectors(const std::string& strBits)
{
    struct SWidth
    {
        const char* pszBits;
        EInstructionSet eSet;
    };
    static const SWidth s_widths[] = {
        {"128", EInstructionSet::Baseline}, {"256", EInstructionSet::Avx2}, {"512", EInstructionSet::Avx512}};
    for (const SWidth& width : s_widths)
    {
        if (strBits == width.pszBits)
        {
            return ChooseInstructionSet(width.eSet);
        }
    }
    return false;
}

/// \return false for an unknown or wrong setting
bool ApplySetting(SValues& values, const std::string& strName, const std::string& strValue)
{
    cl_ulong nBuild = 0;
    if (strName == "build" && ReadNumber(strValue, UINT32_MAX, nBuild))
    {
        values.m_nBuild = static_cast<cl_uint>(nBuild);
        return true;
    }
    if ((strName == "no" || strName == "with") && IsSwitchable(strValue))
    {
        if (strName == "no")
        {
            values.m_setExtensions.erase(strValue);
        }
        else
        {
            values.m_setExtensions.insert(strValue);
        }
        return true;
    }
    if (strName == "refuse" && !strValue.empty())
    {
        values.m_strRefusedOption = strValue;
        return true;
    }
    if (strName == "limit")
    {
        return ReadNumber(strValue, CL_ULONG_MAX, values.m_nInstructionLimit);
    }
    if (strName == "vectors")
    {
        return ChooseVectors(strValue);
    }
    if (strName == "schedule")
    {
        return ReadNumber(strValue, CL_ULONG_MAX, values.m_nSchedule);
    }
    if (strName == "fail")
    {
        values.m_vFailures.emplace_back();
        return ParseFailure(strValue, values.m_vFailures.back());
    }
    if (strName == "trace" && !strValue.empty())
    {
        values.m_pTrace = MakeFileTrace(strValue);
        return values.m_pTrace != nullptr;
    }
    return false;
}

/// Splits a text at its commas; entries may be empty.
std::vector<std::string> SplitAtCommas(const std::string& strText)
{
    std::vector<std::string> vParts(1);
    for (const char c : strText)
    {
        if (c == ',')
        {
            vParts.emplace_back();
        }
        else
        {
            vParts.back() += c;
        }
    }
    return vParts;
}

/// A setting as an error message shows it, without characters that could control the terminal.
std::string Show(const std::string& strSetting)
{
    std::string strShown = "\"";
    for (const char c : strSetting)
    {
        char szCode[8] = {c, '\0'};
        if (c < 0x20 || c > 0x7E)
        {
            std::snprintf(szCode, sizeof(szCode), "\\x%02x", static_cast<unsigned char>(c));
        }
        strShown += szCode;
    }
    return strShown + "\"";
}

/// What a setting is about, as it may be set only once: an extension, a failure, or the setting's name.
std::string GetSubject(const std::string& strSetting)
{
    const size_t nEquals = std::min(strSetting.find('='), strSetting.size());
    const std::string strName = strSetting.substr(0, nEquals);
    if (strName == "no" || strName == "with")
    {
        return "extension" + strSetting.substr(nEquals);
    }
    return strName == "fail" ? strSetting : strName;
}

/// A setting with a fault would silently test nothing. So the platform reports it, and offers no devices.
SValues ReadEnvironment()
{
    SValues values;
    const char* pszSettings = std::getenv("KESTREL_PLATFORM");
    if (!pszSettings || *pszSettings == '\0')
    {
        return values;
    }
    std::set<std::string> setSubjects;
    for (const std::string& strSetting : SplitAtCommas(pszSettings))
    {
        const size_t nEquals = std::min(strSetting.find('='), strSetting.size());
        const std::string strValue = nEquals < strSetting.size() ? strSetting.substr(nEquals + 1) : std::string();
        if (!ApplySetting(values, strSetting.substr(0, nEquals), strValue))
        {
            values.m_strNonsense = Show(strSetting) + " is no setting of the software platform";
        }
        else if (!setSubjects.insert(GetSubject(strSetting)).second)
        {
            values.m_strNonsense = Show(strSetting) + " sets again what is set before it";
        }
    }
    return values;
}

struct SSettings
{
    std::mutex m_Mutex;
    SValues m_Values = ReadEnvironment();
    /// Lets calls skip the lock if no failures are ordered.
    std::atomic<bool> m_bFailuresOrdered{!m_Values.m_vFailures.empty()};
    std::atomic<cl_ulong> m_nCalls{0};
};

SSettings& Settings()
{
    static auto& s_settings = *new SSettings;
    return s_settings;
}

/// Accesses the values under the lock.
template <class F>
auto WithValues(F&& access)
{
    SSettings& settings = Settings();
    std::lock_guard<std::mutex> lock(settings.m_Mutex);
    return access(settings.m_Values);
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
    {
        return;
    }
    WithValues(
        [&](SValues& values)
        {
            if (bEnabled)
            {
                values.m_setExtensions.insert(pszName);
            }
            else
            {
                values.m_setExtensions.erase(pszName);
            }
        });
}

std::string GetEnabledExtensions()
{
    return WithValues(
        [](const SValues& values)
        {
            std::string strExtensions;
            for (const char* pszExtension : s_switchableExtensions)
            {
                if (values.m_setExtensions.count(pszExtension) != 0)
                {
                    strExtensions += std::string(pszExtension) + " ";
                }
            }
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
    std::lock_guard<std::mutex> lock(settings.m_Mutex);
    settings.m_Values.m_vFailures.push_back(std::move(failure));
    settings.m_bFailuresOrdered = true;
    settings.m_nCalls = 0;
}

void ClearFailures()
{
    SSettings& settings = Settings();
    std::lock_guard<std::mutex> lock(settings.m_Mutex);
    settings.m_Values.m_vFailures.clear();
    settings.m_bFailuresOrdered = false;
    settings.m_nCalls = 0;
}

std::string GetNonsense()
{
    return WithValues([](const SValues& values) { return values.m_strNonsense; });
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
    {
        return CL_SUCCESS;
    }
    cl_int nCode = CL_SUCCESS;
    std::lock_guard<std::mutex> lock(settings.m_Mutex);
    for (SFailure& failure : settings.m_Values.m_vFailures)
    {
        if (!failure.m_strEntryPoint.empty() && failure.m_strEntryPoint != pszEntryPoint)
        {
            continue;
        }
        if (failure.m_nCallsLeft > 1)
        {
            --failure.m_nCallsLeft;
            continue;
        }
        if (failure.m_nCallsLeft == 1)
        {
            nCode = failure.m_nCode;
        }
        if (!failure.m_bForever)
        {
            failure.m_nCallsLeft = 0;
        }
    }
    return nCode;
}

} // namespace KestrelPlatform::Runtime
