#ifndef KESTREL_CORE_SDULOGGER_H
#define KESTREL_CORE_SDULOGGER_H

#include "core/FileLogger.h"

namespace OVK_ShaderDebugger
{

/// The level for the consistency log; the same variable and rule as GetEnvLogLevel.
LogType SDUGetEnvLogLevel();

/// "OVKKestrelConsistency.log": assertions of the IL and binary utilities, which know no session.
class CSDULogger : public CFileLogger
{
public:
    CSDULogger();

    CSDULogger& operator<<(const char* pszText)
    {
        Write(pszText);
        return *this;
    }
};

/// The one instance, made on first use and never destroyed.
CSDULogger& SDGetLogger();

/// Writes the line of a failed condition if assertion lines are wanted; always false.
bool SDU_AssertFailed(const char* pszFunction, const char* pszText);

} // namespace OVK_ShaderDebugger

/// Reports a condition that doesn't hold, and gives the condition.
#define SDU_Assert(condition) SDU_AssertText(condition, #condition)

/// The same, with the text of the report given.
#define SDU_AssertText(condition, text)                                                                                \
    (static_cast<bool>(condition) || (OVK_ShaderDebugger::SDU_AssertFailed(__func__, (text)), false))

/// Reports a place that must not be reached; gives false.
#define SDU_Break(text) OVK_ShaderDebugger::SDU_AssertFailed(__func__, (text))

#endif
