#include "core/FileLogger.h"

#include <cstdlib>

namespace OVK_ShaderDebugger
{

LogType GetEnvLogLevel()
{
    const char* pszLevel = std::getenv("OVK_CL_DEBUG_LOG_LEVEL");
    return pszLevel != nullptr ? static_cast<LogType>(std::atoi(pszLevel)) : logERROR;
}

std::string GetLogPath(const char* pszFileName)
{
    const char* pszFolder = std::getenv("OVK_CL_DEBUG_LOG_FOLDER");
    return pszFolder != nullptr && *pszFolder != '\0' ? std::string(pszFolder) + "/" + pszFileName : pszFileName;
}

CFileLogger::CFileLogger(const char* pszFileName)
    : m_nLogLevel(GetEnvLogLevel()), m_ofs(GetLogPath(pszFileName), std::ios::out | std::ios::trunc)
{
}

} // namespace OVK_ShaderDebugger
