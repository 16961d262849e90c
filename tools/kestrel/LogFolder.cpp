#include "tools/kestrel/LogFolder.h"

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace KestrelTool
{

namespace
{

const char* const s_pszVariable = "OVK_CL_DEBUG_LOG_FOLDER";
constexpr std::uintmax_t s_nMaxLog = 1 << 20;

/// Paths that aren't absolute are ignored, as for a user's other standard folders.
std::filesystem::path FindStateFolder()
{
    const char* pszState = std::getenv("XDG_STATE_HOME");
    if (pszState != nullptr && std::filesystem::path(pszState).is_absolute())
    {
        return pszState;
    }
    const char* pszHome = std::getenv("HOME");
    const std::filesystem::path home(pszHome != nullptr ? pszHome : "");
    return home.is_absolute() ? home / ".local" / "state" : std::filesystem::path();
}

} // namespace

void ChooseLogFolder()
{
    const char* pszChosen = std::getenv(s_pszVariable);
    if (pszChosen != nullptr && *pszChosen != '\0')
    {
        return;
    }
    const std::filesystem::path state = FindStateFolder();
    const std::filesystem::path folder = state.empty() ? "/dev/null" : state / "kestrel";
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    const std::filesystem::path log = folder / "OVKKestrel.log";
    const std::uintmax_t nSize = std::filesystem::file_size(log, error);
    if (!error && nSize > s_nMaxLog)
    {
        std::filesystem::rename(log, folder / "OVKKestrel.log.old", error);
    }
    setenv(s_pszVariable, folder.c_str(), 1);
}

} // namespace KestrelTool
