#include "core/CLLogger.h"

namespace OVK_ShaderDebugger
{

CLogger::CLogger() : CFileLogger("OVKKestrelUsage.log") {}

CLogger& GetLogger()
{
    static CLogger* const s_pLogger = new CLogger;
    return *s_pLogger;
}

bool CLD_Report(const char* pszFunction, const char* pszMacro, const std::string& strText)
{
    if (GetLogger().IsAssertLogging())
    {
        GetLogger() << std::string("Assert: ") + pszFunction + " " + pszMacro + "( " + strText + " )\n";
    }
    return false;
}

void CLD_Log(const std::string& strLine)
{
    if (GetLogger().IsLogging())
    {
        GetLogger() << strLine;
    }
}

} // namespace OVK_ShaderDebugger
