#include "core/SDULogger.h"

#include <string>

namespace OVK_ShaderDebugger
{

LogType SDUGetEnvLogLevel()
{
    return GetEnvLogLevel();
}

CSDULogger::CSDULogger() : CFileLogger("OVKKestrelConsistency.log") {}

CSDULogger& SDGetLogger()
{
    static CSDULogger* const s_pLogger = new CSDULogger;
    return *s_pLogger;
}

bool SDU_AssertFailed(const char* pszFunction, const char* pszText)
{
    if (SDGetLogger().IsAssertLogging())
    {
        const std::string strLine = std::string("Assert: ") + pszFunction + " SDU_Assert( " + pszText + " )\n";
        SDGetLogger() << strLine.c_str();
    }
    return false;
}

} // namespace OVK_ShaderDebugger
