#include "core/FileLogger.h"

#include <cstdlib>

namespace OVK_ShaderDebugger
{

LogType GetEnvLogLevel()
{
    const char* pszLevel = std::getenv("OVK_CL_DEBUG_LOG_LEVEL");
    return pszLevel != nullptr ? static_cast<LogType>(std::atoi(pszLevel)) : logERROR;
}

CFileLogger::CFileLogger(const char* pszFileName)
    : m_nLogLevel(GetEnvLogLevel()), m_ofs(pszFileName, std::ios::out | std::ios::trunc)
{
}

} // namespace OVK_ShaderDebugger
