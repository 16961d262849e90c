#include "core/FileLogger.h"

#include <cstdlib>
#include <fstream>

#include <boost/thread/lock_guard.hpp>
#include <boost/thread/mutex.hpp>

namespace OVK_ShaderDebugger
{

struct CFileLogger::SFile
{
    explicit SFile(const std::string& strPath) : stream(strPath, std::ios::out | std::ios::trunc) {}

    std::ofstream stream;
    boost::mutex mutex;
};

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
    : m_nLogLevel(GetEnvLogLevel()), m_pFile(std::make_unique<SFile>(GetLogPath(pszFileName)))
{
}

CFileLogger::~CFileLogger() = default;

void CFileLogger::Write(std::string_view text)
{
    if (!IsLogging() && !IsAssertLogging())
    {
        return;
    }
    const boost::lock_guard<boost::mutex> lock(m_pFile->mutex);
    m_pFile->stream << text;
    m_pFile->stream.flush();
}

} // namespace OVK_ShaderDebugger
