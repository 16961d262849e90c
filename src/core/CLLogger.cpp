#include "core/CLLogger.h"

namespace OVK_ShaderDebugger
{

CLogger::CLogger() : CFileLogger("OVKKestrelUsage.log") {}

CLogger& GetLogger()
{
    static CLogger* const s_pLogger = new CLogger;
    return *s_pLogger;
}

bool CLD_Report(const char* pszFunction, const char* pszMacro, const char* pszText) noexcept
{
    try
    {
        if (GetLogger().IsAssertLogging())
        {
            GetLogger() << std::string("Assert: ") + pszFunction + " " + pszMacro + "( " + pszText + " )\n";
        }
    }
    catch (...)
    {
    }
    return false;
}

} // namespace OVK_ShaderDebugger
